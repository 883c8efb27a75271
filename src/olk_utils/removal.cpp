#include "olk_utils/removal.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "olk_utils/bounded_text.h"

namespace {

// A command line of 256 bytes less "rm -R " and the final NUL.
constexpr size_t kLongestRemovablePath = 249;

// One directory on the way down a tree that is being removed. Only the deepest one is open: a tree may
// be deeper than a process has descriptors, and its path longer than the system takes.
struct Level {
  Level* above;
  DIR* stream;
  dev_t device;
  ino_t inode;
  size_t kept;  // entries that could not be removed; a new reading of the directory meets them first
  char name[NAME_MAX + 1];
};

// Opens the directory itself, never one that a link points to.
bool open_level(Level* level, int parent, const char* name) {
  const int descriptor = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor == -1) return false;
  struct stat status {};
  if (fstat(descriptor, &status) == 0) level->stream = fdopendir(descriptor);
  if (level->stream == nullptr) {
    close(descriptor);
    return false;
  }
  level->device = status.st_dev;
  level->inode = status.st_ino;
  return true;
}

void close_level(Level* level) {
  if (level->stream != nullptr) closedir(level->stream);
  level->stream = nullptr;
}

const char* next_entry(Level* level) {
  for (;;) {
    const dirent* entry = readdir(level->stream);
    if (entry == nullptr) return nullptr;
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) return entry->d_name;
  }
}

bool remove_entry(int parent, const char* name) {
  if (unlinkat(parent, name, 0) == 0 || unlinkat(parent, name, AT_REMOVEDIR) == 0) return true;
  return errno == ENOENT;
}

// Goes down one directory; null, with nothing changed, when it cannot be entered.
Level* enter(Level* above, int parent, const char* name) {
  if (strlen(name) > NAME_MAX) return nullptr;
  Level* level = static_cast<Level*>(calloc(1, sizeof(Level)));
  if (level == nullptr) return nullptr;
  if (!open_level(level, parent, name)) {
    free(level);
    return nullptr;
  }
  copy_text(level->name, name);
  level->above = above;
  if (above != nullptr) close_level(above);
  return level;
}

// Opens the directory above again, by its ".." entry. False when the tree was moved meanwhile: what is
// above now is not ours to remove.
bool reopen_above(Level* level) {
  Level* above = level->above;
  Level found{};
  if (!open_level(&found, dirfd(level->stream), "..")) return false;
  if (found.device != above->device || found.inode != above->inode) {
    close_level(&found);
    return false;
  }
  above->stream = found.stream;
  return true;
}

void abandon(Level* level) {
  while (level != nullptr) {
    Level* above = level->above;
    close_level(level);
    free(level);
    level = above;
  }
}

// Removes a directory that has been read to its end and goes on in the one above it.
Level* leave(Level* level) {
  Level* above = level->above;
  if (above == nullptr) {
    remove_entry(AT_FDCWD, level->name);
  } else if (reopen_above(level)) {
    if (!remove_entry(dirfd(above->stream), level->name)) ++above->kept;
    for (size_t skipped = 0; skipped < above->kept; ++skipped) next_entry(above);
  } else {
    abandon(level);
    return nullptr;
  }
  close_level(level);
  free(level);
  return above;
}

// Everything below the directory and the directory itself; what cannot be removed stays.
void remove_tree(const char* path) {
  Level* level = enter(nullptr, AT_FDCWD, path);
  while (level != nullptr) {
    const char* name = next_entry(level);
    if (name == nullptr) {
      level = leave(level);
    } else if (const int directory = dirfd(level->stream); !remove_entry(directory, name)) {
      if (Level* below = enter(level, directory, name); below != nullptr) {
        level = below;
      } else {
        ++level->kept;
      }
    }
  }
}

}  // namespace

void remove_path(const char* path) {
  char name[kLongestRemovablePath + 1];
  size_t length = strlen(path);
  if (length > kLongestRemovablePath) return;
  copy_text(name, path);
  while (length > 0 && name[length - 1] == '/') name[--length] = '\0';

  const char* slash = strrchr(name, '/');
  const char* last = slash == nullptr ? name : slash + 1;
  if (*last == '\0' || strcmp(last, ".") == 0 || strcmp(last, "..") == 0) return;
  if (!remove_entry(AT_FDCWD, name)) remove_tree(name);
}
