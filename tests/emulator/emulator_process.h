// The emulator as a process of its own, started with its options and ended by its process id.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

class EmulatorProcess {
 public:
  explicit EmulatorProcess(std::vector<std::string> options) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    options.insert(options.begin(), EMULATOR_PROGRAM);
    std::vector<char*> arguments;
    arguments.reserve(options.size() + 1);
    for (std::string& option : options) arguments.push_back(option.data());
    arguments.push_back(nullptr);
    const int error = posix_spawn(&pid_, EMULATOR_PROGRAM, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) throw std::runtime_error(std::string("cannot start the emulator: ") + strerror(error));
    read_path(ends[0]);
    close(ends[0]);
  }
  ~EmulatorProcess() { stop(); }
  EmulatorProcess(const EmulatorProcess&) = delete;
  EmulatorProcess& operator=(const EmulatorProcess&) = delete;

  const std::string& path() const { return path_; }

  // The exit status, or -1 if it had been stopped before.
  int stop(int signal = SIGTERM) {
    if (pid_ <= 0) return -1;
    kill(pid_, signal);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  void read_path(int fd) {
    for (char c = 0; read(fd, &c, 1) == 1 && c != '\n';) path_ += c;
    if (path_.empty()) {
      stop(SIGKILL);
      throw std::runtime_error("the emulator did not start");
    }
  }

  pid_t pid_ = -1;
  std::string path_;
};
