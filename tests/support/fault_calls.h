// System calls on the library's port that fail when a test says so, the reading of SAT.ini, and the start of
// the device search. The test is linked with fault_calls.cpp and the linker's --wrap for each call; calls on
// other descriptors go through untouched.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace fault_calls {

enum class Call {
  kOpen,
  kRead,
  kWrite,
  kPoll,
  kClose,
  kFlock,
  kTcgetattr,
  kTcsetattr,
  kOpenSettings,
  kReadSettings,
  kStartSearch,
};
inline constexpr const char* kCallNames[] = {
    "open",
    "read",
    "write",
    "poll",
    "close",
    "flock",
    "tcgetattr",
    "tcsetattr",
    "open of SAT.ini",
    "read of SAT.ini",
    "device search",
};

inline constexpr int kForever = -1;

struct Fault {
  Call call;
  int skip = 0;   // calls that go through first
  int times = 1;  // calls that it befalls, or kForever
  long result = -1;
  int error = 0;          // errno, when the result is -1
  std::string bytes{};    // of a read: what it delivers in the place of result
  std::size_t limit = 0;  // of a write: goes through, but no more than so many bytes of it
  std::size_t asked = 0;  // of a read: befalls only one that asks for so many bytes, unless 0
  bool event = false;     // the test's event takes place, then the call goes through
};

// Faults of the same call befall it one behind the other.
void inject(std::vector<Fault> faults);

// Faults that have not befallen all their calls, those without an end: none at all.
std::vector<std::string> unspent();

// What takes place where a fault says so.
void on_event(std::function<void()> event);

// Calls on the port since inject, those that failed included.
int count_of(Call call);

// Modem lines that were raised, in order: TIOCM_DTR, TIOCM_RTS, one element per call.
const std::vector<int>& raised_modem_lines();

}  // namespace fault_calls
