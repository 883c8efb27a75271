// Removing files and whole directories.
#pragma once

// Removes the named thing itself: of a link never what it points to. The working directory, the one above it,
// the root and over-long names are refused; what cannot be removed stays.
void remove_path(const char* path);
