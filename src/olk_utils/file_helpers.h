// What the library's own files need of the exported OLK_* file helpers, without their limits.
#pragma once

// As OLK_FileExist, which tells a size in 32 bits and thus takes a file of 2 GiB for a missing one: here it
// is cut at INT32_MAX. A missing file is -1, with the helper's line.
int existing_file_size(const char* path);
