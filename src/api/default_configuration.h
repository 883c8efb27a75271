// "SAT.ini" as the library makes it where there is none.
#pragma once

// Writes the default file unless one with content exists. Returns the file's size, or a negative or zero
// result when it could not be written.
int CreateFile_TalvexIni();
