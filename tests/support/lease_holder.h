// Another process that holds a lease on a file, as a file server does that shares the till's folder.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

class LeaseHolder {
 public:
  // Giving way takes a moment: somebody who tries only once more comes too early.
  enum class Manner { kGivesWay, kKeeps };

  // Returns once the child holds the lease, or has ended because it did not get it.
  LeaseHolder(const std::filesystem::path& file, int lease, Manner manner) {
    int to_child[2];
    int from_child[2];
    if (pipe2(to_child, O_CLOEXEC) != 0 || pipe2(from_child, O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe");
    child_ = fork();
    if (child_ == 0) {
      close(to_child[1]);
      _exit(hold(file.c_str(), lease, manner, to_child[0], from_child[1]));
    }
    close(to_child[0]);
    close(from_child[1]);
    release_ = to_child[1];
    char byte = 0;
    holds_ = child_ > 0 && read(from_child[0], &byte, 1) == 1;
    close(from_child[0]);
  }
  ~LeaseHolder() {
    if (child_ > 0) was_asked();
  }
  LeaseHolder(const LeaseHolder&) = delete;
  LeaseHolder& operator=(const LeaseHolder&) = delete;

  // Not every file system and kernel has leases.
  bool holds() const { return holds_; }

  // Ends the holder and tells whether anybody has asked it to give way.
  bool was_asked() {
    close(release_);
    int status = 0;
    waitpid(child_, &status, 0);
    child_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == kAsked;
  }

 private:
  static constexpr int kAsked = 1;
  static constexpr useconds_t kMoment = 30000;

  static int hold(const char* path, int lease, Manner manner, int release, int report) {
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGIO);
    sigprocmask(SIG_BLOCK, &asked, nullptr);
    const int file = open(path, (lease == F_RDLCK ? O_RDONLY : O_RDWR) | O_CLOEXEC);
    const char byte = 'h';
    if (fcntl(file, F_SETLEASE, lease) != 0 || write(report, &byte, 1) != 1) return 0;

    bool was_asked = false;
    const timespec soon{0, 1000000};
    for (pollfd end{release, POLLIN, 0}; poll(&end, 1, 0) == 0;) {
      if (sigtimedwait(&asked, nullptr, &soon) != SIGIO) continue;
      was_asked = true;
      if (manner == Manner::kKeeps) continue;
      usleep(kMoment);
      fcntl(file, F_SETLEASE, F_UNLCK);
      close(file);
    }
    return was_asked ? kAsked : 0;
  }

  pid_t child_ = -1;
  int release_ = -1;
  bool holds_ = false;
};
