// "SAT.ini" in the working directory: its default text, and its items as settings of the library.
#pragma once

#include "api/settings.h"

// Writes the default file unless one with content exists. Returns the file's size, or a negative or zero
// result when it could not be written.
int CreateFile_TalvexIni();

// Reads every item. Returns the last step number, or the negative result of CreateFile_TalvexIni when there
// is no file and none could be made.
int UpdateTalvexConfiguration(Settings& settings);
