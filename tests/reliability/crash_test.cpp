// A host that is killed at every single system call of a transaction, and the next host after it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <termios.h>

#include <cstdarg>
#include <cstdio>

#include "reliability/child_device.h"
#include "reliability/hosts.h"
#include "support/scratch_directory.h"

// ---- The calls of the library, counted --------------------------------------------------------------

namespace {

int calls_until_kill = -1;

void count_call() {
  if (calls_until_kill > 0 && --calls_until_kill == 0) kill(getpid(), SIGKILL);
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __real_write(int descriptor, const void* bytes, size_t count);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
int __real_close(int descriptor);
int __real_flock(int descriptor, int operation);
int __real_ioctl(int descriptor, unsigned long request, void* argument);
int __real_tcgetattr(int descriptor, termios* settings);
int __real_tcsetattr(int descriptor, int when, const termios* settings);
int __real_mkdir(const char* path, mode_t mode);
int __real_ftruncate(int descriptor, off_t length);
int __real_fclose(FILE* file);
FILE* __real_popen(const char* command, const char* mode);
int __real_pclose(FILE* command);

int __wrap_open(const char* path, int flags, mode_t mode) {
  count_call();
  return __real_open(path, flags, mode);
}
ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  count_call();
  return __real_read(descriptor, buffer, size);
}
ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  count_call();
  return __real_write(descriptor, bytes, count);
}
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  count_call();
  return __real_poll(descriptors, count, timeout);
}
int __wrap_close(int descriptor) {
  count_call();
  return __real_close(descriptor);
}
int __wrap_flock(int descriptor, int operation) {
  count_call();
  return __real_flock(descriptor, operation);
}
int __wrap_ioctl(int descriptor, unsigned long request, void* argument) {
  count_call();
  return __real_ioctl(descriptor, request, argument);
}
int __wrap_tcgetattr(int descriptor, termios* settings) {
  count_call();
  return __real_tcgetattr(descriptor, settings);
}
int __wrap_tcsetattr(int descriptor, int when, const termios* settings) {
  count_call();
  return __real_tcsetattr(descriptor, when, settings);
}
int __wrap_mkdir(const char* path, mode_t mode) {
  count_call();
  return __real_mkdir(path, mode);
}
int __wrap_ftruncate(int descriptor, off_t length) {
  count_call();
  return __real_ftruncate(descriptor, length);
}
int __wrap_fclose(FILE* file) {
  count_call();
  return __real_fclose(file);
}
FILE* __wrap_popen(const char* command, const char* mode) {
  count_call();
  return __real_popen(command, mode);
}
int __wrap_pclose(FILE* command) {
  count_call();
  return __real_pclose(command);
}

}  // extern "C"

namespace {

constexpr int kSession = 4711;
constexpr int kNextSession = 4712;
constexpr std::size_t kLength = 20000;  // two blocks each way
constexpr int kRight = 0;
constexpr int kWrong = 1;
constexpr int kRefusedText = 2;

// The command was sent four times, and each time the beginning of another reply stood where its answer was
// due.
std::string refused_text(const std::string& port) {
  return "SAT Erro[-02009]Lnx Dev[" + port + "] L[2305] F[Communicate] >> CMD or << ACK LibVer[23-JUL-2020]";
}

int sell(int session, const std::string& port) {
  const std::string sale(kLength, 'v');
  const std::string reply = EnviarDadosVenda(session, ("A" + std::to_string(kLength)).c_str(), sale.c_str());
  if (is_right_reply(reply, session, kLength)) return kRight;
  std::printf("%s\n", reply.substr(0, 200).c_str());
  return reply == refused_text(port) ? kRefusedText : kWrong;
}

// The host lives through so many system calls.
int sell_and_die(int calls, const std::string& port) {
  calls_until_kill = calls;
  const int result = sell(kSession, port);
  calls_until_kill = -1;
  return result;
}

// The rest of a reply that the dead host did not read may still come in when the next host is already
// sending. An STX where an answer is due, and an ACK behind it, count as a NAK; four of these end the call
// with its documented text, which is the only other outcome, and a rare one. The next host never gets the
// dead host's reply, and the call behind it is right.
TEST(Crash, HostKilledAtAnySystemCallDoesNotDisturbTheNext) {
  const ScratchDirectory scratch;
  ChildDevice device(TALVEX_PLANNED_DEVICE);
  configure_port(device.port());
  int kills = 0;
  int failures = 0;
  for (int calls = 1;; ++calls) {
    const int end = run_host(".", [&] { return sell_and_die(calls, device.port()); });
    ASSERT_TRUE(end == -SIGKILL || end == kRight) << end << " at system call " << calls;
    int next = run_host(".", [&] { return sell(kNextSession, device.port()); });
    if (next == kRefusedText) {
      ++failures;
      next = run_host(".", [&] { return sell(kNextSession, device.port()); });
    }
    ASSERT_EQ(next, kRight) << "behind a host that was killed at system call " << calls;
    if (end == kRight) break;
    ++kills;
  }
  EXPECT_GT(kills, 100);
  EXPECT_LE(failures, kills / 20);
  std::printf("%d kills: %d times the next call was right, %d times the one behind it\n", kills,
              kills - failures, failures);
}

// Without a configuration the first call writes one. A torn one must not stop the next host either.
TEST(Crash, HostKilledInItsFirstCallLeavesAWorkingFolder) {
  const ScratchDirectory scratch;
  const auto ask = [] {
    const std::string reply = ConsultarSAT(kSession);
    return reply == "SAT Erro[-02000]Lnx SAT Nao Encontrado L[2193] F[Communicate] LibVer[23-JUL-2020]"
               ? kRight
               : kWrong;
  };
  for (int calls = 1;; ++calls) {
    const std::string folder = std::to_string(calls);
    const int end = run_host(folder, [&] {
      calls_until_kill = calls;
      return ask();
    });
    ASSERT_TRUE(end == -SIGKILL || end == kRight) << end << " at system call " << calls;
    ASSERT_EQ(run_host(folder, ask), kRight) << "behind a host that was killed at system call " << calls;
    EXPECT_EQ(read_file(folder + "/SAT.conf"), "/dev/ttyNONE");
    if (end == kRight) break;
  }
}

}  // namespace
