// The items of "SAT.ini" in the working directory, as settings of the library.
#pragma once

#include "api/settings.h"

// Reads every item; a later reading than those of the set-up begins with a line of its own. Returns the last
// step number, or the negative result of CreateFile_TalvexIni when there is no file and none could be made.
int UpdateTalvexConfiguration(Settings& settings, bool reading_again);
