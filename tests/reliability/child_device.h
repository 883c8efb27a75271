// A planned device in a process of its own, for as long as the object lives.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

struct DeviceCount {
  unsigned long commands = 0;
  unsigned long damaged = 0;
  unsigned long interrupted = 0;
};

class ChildDevice {
 public:
  explicit ChildDevice(const std::string& program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    child_ = fork();
    if (child_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      execl(program.c_str(), program.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(ends[1]);
    output_ = fdopen(ends[0], "r");
    char line[256] = "";
    if (child_ < 0 || fgets(line, sizeof line, output_) == nullptr)
      throw std::runtime_error("cannot start " + program);
    port_ = line;
    port_.pop_back();
  }
  ~ChildDevice() {
    if (child_ > 0) stop();
    fclose(output_);
  }
  ChildDevice(const ChildDevice&) = delete;
  ChildDevice& operator=(const ChildDevice&) = delete;

  const std::string& port() const { return port_; }
  pid_t pid() const { return child_; }

  DeviceCount stop() {
    kill(child_, SIGTERM);
    DeviceCount count;
    if (fscanf(output_, "commands %lu damaged %lu interrupted %lu", &count.commands, &count.damaged,
               &count.interrupted) != 3) {
      std::fprintf(stderr, "the device did not end as it should\n");
    }
    waitpid(child_, nullptr, 0);
    child_ = -1;
    return count;
  }

 private:
  pid_t child_ = -1;
  FILE* output_ = nullptr;
  std::string port_;
};
