// A child process that holds the lock on a port while the object lives.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

class OtherProcess {
 public:
  // Returns once the child holds the lock or has ended because it could not get it.
  OtherProcess(std::string program, std::string port) {
    int to_child[2];
    int from_child[2];
    if (pipe2(to_child, O_CLOEXEC) != 0 || pipe2(from_child, O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to_child[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, from_child[1], STDOUT_FILENO);
    char* arguments[] = {program.data(), port.data(), nullptr};
    const int error = posix_spawn(&child_, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(to_child[0]);
    close(from_child[1]);
    hold_ = to_child[1];
    char byte = 0;
    holds_port_ = error == 0 && read(from_child[0], &byte, 1) == 1;
    close(from_child[0]);
    if (error != 0) throw std::runtime_error("cannot start " + program);
  }
  ~OtherProcess() {
    close(hold_);
    waitpid(child_, nullptr, 0);
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;

  bool holds_port() const { return holds_port_; }

 private:
  pid_t child_ = -1;
  int hold_ = -1;
  bool holds_port_ = false;
};

// Whether another process could have the port now.
inline bool port_is_free(const std::string& program, const std::string& port) {
  return OtherProcess(program, port).holds_port();
}
