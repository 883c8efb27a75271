// How the library opens whatever it opens.
#pragma once

#include <sys/types.h>

// Never waits (a FIFO in the place of a file must not stop a sale), takes no controlling terminal, and hands
// nothing to programs that the host starts. In a host that closed its standard streams the lowest free
// numbers are theirs: what host or library print would then go to the device or into a file, so none is ever
// used.
int open_at_once(const char* path, int flags, mode_t mode = 0);

// The same for files, on which another process may hold a lease (a file server that shares the till's
// folder): the attempt asks the holder to give way, and the file is tried again until it has. All that one
// call of the library waits for one file is about a second; from then on its attempts fail at once, with
// EWOULDBLOCK.
int open_file(const char* path, int flags, mode_t mode = 0);

// A new call of the library begins: it may wait for every file anew.
void forget_lease_waits();

// For appending. The names of logs can be foretold: in a folder that others can write to, a link in their
// place would lead to any file of the till. A FIFO does not count as a log either: a write to it could fill
// it up or find that its reader has gone.
int open_log_file(const char* path, mode_t mode);

// Whether a descriptor still is what open_log_file opened. A host that becomes a daemon closes all
// descriptors, and may then have opened a file of its own under that number; hardly one with these flags. The
// file itself is not asked: a status makes the file system write finer time stamps.
bool is_open_log_file(int descriptor);
