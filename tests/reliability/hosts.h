// Host processes of a test: children that use the library from its first call on, each in a folder of its
// own.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "reliability/planned_line.h"
#include "support/text_files.h"
#include "talvex/talvex.h"

inline std::string six_digits(int session) {
  const std::string digits = std::to_string(session);
  return std::string(6 - digits.size(), '0') + digits;
}

inline void configure_port(const std::string& port, char log_mode = '1') {
  write_file("SAT.ini",
             "[SERIAL_PORT_CONFIG]\nFixarPorta=" + port +
                 "\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nEnable=0\n[ARVOLEN]\n[LOG]\nLogFilePath=Log\nLogMode=" +
                 log_mode + "\n");
}

inline bool is_right_reply(const std::string& reply, int session, std::size_t length) {
  return reply == planned::reply_text(six_digits(session), length);
}

inline bool is_busy_reply(const std::string& reply, int session) {
  return reply == std::to_string(session) + "|10098|SAT em processamento, tente novamente.||";
}

// Starts a host in the folder, which is made if need be; its exit status is what `work` returns.
inline pid_t start_host(const std::filesystem::path& folder, const std::function<int()>& work) {
  const pid_t child = fork();
  if (child != 0) return child;
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  std::filesystem::current_path(folder, error);
  alarm(60);
  const int result = error ? 99 : work();
  std::fflush(stdout);
  _exit(result);
}

// Exit status, or minus the signal that ended it.
inline int end_of_host(pid_t host) {
  int status = 0;
  if (waitpid(host, &status, 0) != host) return -999;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

inline int run_host(const std::filesystem::path& folder, const std::function<int()>& work) {
  return end_of_host(start_host(folder, work));
}
