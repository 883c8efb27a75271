/* Preloaded into the hub: breaks its disk, or kills it, at a chosen place.
 *   HUB_SHIM_KILL=N     SIGKILL at the Nth call of those below, before it is carried out
 *   HUB_SHIM_FAIL=FILE  while this file exists, fdatasync and fsync fail with EIO and writing with ENOSPC
 *   HUB_SHIM_SLOW=MS    each fdatasync takes so long, as on a memory card
 * Children of the program are left alone. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

static pid_t program;
static long calls, last_call;
static const char* broken;
static long slow;

__attribute__((constructor)) static void begin(void) {
  const char* kill_at = getenv("HUB_SHIM_KILL");
  const char* milliseconds = getenv("HUB_SHIM_SLOW");
  program = getpid();
  last_call = kill_at != NULL ? atol(kill_at) : 0;
  slow = milliseconds != NULL ? atol(milliseconds) : 0;
  broken = getenv("HUB_SHIM_FAIL");
  unsetenv("LD_PRELOAD");
}

static void count(void) {
  if (last_call > 0 && getpid() == program && ++calls == last_call) kill(program, SIGKILL);
}

static int is_broken(void) {
  return broken != NULL && access(broken, F_OK) == 0;
}

static void* real(const char* name) {
  return dlsym(RTLD_NEXT, name);
}

static int sync_file(const char* name, int file) {
  count();
  if (slow > 0) {
    const struct timespec pause = {slow / 1000, slow % 1000 * 1000000};
    nanosleep(&pause, NULL);
  }
  if (is_broken()) {
    errno = EIO;
    return -1;
  }
  return ((int (*)(int))real(name))(file);
}

int fdatasync(int file) {
  return sync_file("fdatasync", file);
}

int fsync(int file) {
  return sync_file("fsync", file);
}

ssize_t pwrite64(int file, const void* bytes, size_t length, off64_t offset) {
  count();
  if (is_broken()) {
    errno = ENOSPC;
    return -1;
  }
  return ((ssize_t(*)(int, const void*, size_t, off64_t))real("pwrite64"))(file, bytes, length, offset);
}

ssize_t sendmsg(int socket, const struct msghdr* message, int flags) {
  count();
  return ((ssize_t(*)(int, const struct msghdr*, int))real("sendmsg"))(socket, message, flags);
}
