// The items of "SAT.ini" in the working directory, as settings of the library.
#pragma once

#include "api/settings.h"

// Reads every item. Returns the last step number, or the negative result of CreateFile_TalvexIni when there
// is no file and none could be made.
int UpdateTalvexConfiguration(Settings& settings);
