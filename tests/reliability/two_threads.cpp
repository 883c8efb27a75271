// The one use of two threads that the library knows: a host calls SAT functions, and the size-control loop
// runs on a thread of its own. Built with ThreadSanitizer, with the loop's seconds made a thousand times
// shorter.
//
//   two-threads DEVICE CALLS

#include <time.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "reliability/child_device.h"
#include "reliability/hosts.h"

extern "C" {
int __real_nanosleep(const timespec* wanted, timespec* left);
int __wrap_nanosleep(const timespec* wanted, timespec* left);

int __wrap_nanosleep(const timespec* wanted, timespec* left) {
  constexpr long kShortened = 1000;
  const long nanoseconds = wanted->tv_sec * 1000000000 + wanted->tv_nsec;
  if (nanoseconds < 1000000000) return __real_nanosleep(wanted, left);
  const timespec shorter{0, nanoseconds / kShortened};
  return __real_nanosleep(&shorter, left);
}
}

// What is thrown ends the program, and with it the test.
int main(int argc, char** argv) {  // NOLINT(bugprone-exception-escape)
  if (argc != 3) return 2;
  const int calls = std::atoi(argv[2]);
  ChildDevice device(argv[1]);
  configure_port(device.port(), '5');
  write_file("SAT.ini",
             read_file("SAT.ini") +
                 "LogFileMaxSize=20000\n");  // outgrown over and over: both sides rotate the trace log
  VersaoDllTalvex();                         // the first call sets up what the loop reads
  std::thread(LogSzCtlTherad).detach();
  int wrong = 0;
  for (int session = 0; session < calls; ++session) {
    const std::size_t length = 50 + static_cast<std::size_t>(session) % 3000;
    const std::string code = "A" + std::to_string(length);
    if (!is_right_reply(ConsultarStatusOperacional(session, code.c_str()), session, length)) ++wrong;
    if (session % 50 == 0)
      std::filesystem::last_write_time(
          "SAT.ini", std::filesystem::file_time_type::clock::now() + std::chrono::seconds(session));
  }
  const DeviceCount count = device.stop();
  std::printf("%d calls, %d wrong; device: %lu commands, %lu damaged\n", calls, wrong, count.commands,
              count.damaged);
  std::fflush(stdout);
  // Nothing of this program is taken down under the loop, which never ends.
  std::quick_exit(wrong == 0 && count.damaged == 0 ? 0 : 1);
}
