// A device that costs as little as a device can: it acknowledges and answers at once.
//
//   instant-device
//
// Prints the path of its pseudo-terminal and serves it until it is terminated. A command's third field
// chooses the reply: "R9000" asks for a text of 9,000 bytes; "W500" for a short one after a silence of 500 ms
// in front of the acknowledgement and another one in front of the reply; anything else gets a short one.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "line_protocol.h"

namespace {

using bench::kBlock;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

struct Terminal {
  int master = -1;
  int slave = -1;  // held open, so that the port outlives its clients
  std::string path;
};

Terminal open_terminal() {
  Terminal terminal;
  terminal.master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal.master < 0 || grantpt(terminal.master) != 0 || unlockpt(terminal.master) != 0) {
    fail("opening a pseudo-terminal");
  }
  terminal.path = ptsname(terminal.master);
  terminal.slave = open(terminal.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings{};
  if (terminal.slave < 0 || tcgetattr(terminal.slave, &settings) != 0) fail("opening the port");
  cfmakeraw(&settings);
  if (tcsetattr(terminal.slave, TCSANOW, &settings) != 0) fail("setting the port raw");
  return terminal;
}

class Device {
 public:
  explicit Device(int master) : master_(master) {}

  void take(const char* bytes, std::size_t count) {
    while (count > 0) {
      const std::size_t taken = receiving_ ? take_frame(bytes, count) : take_between(bytes);
      bytes += taken;
      count -= taken;
    }
  }

 private:
  // Between frames: acknowledgements of reply blocks, and the STX of the next command.
  std::size_t take_between(const char* byte) {
    if (*byte == bench::kStx) {
      receiving_ = true;
      text_.clear();
    } else if (*byte == bench::kAck) {
      send_block();
    } else if (*byte == bench::kNak) {
      sent_ = kAckLength;
      send_block();
    }
    return 1;
  }

  std::size_t take_frame(const char* bytes, std::size_t count) {
    const void* etx = std::memchr(bytes, bench::kEtx, count);
    const std::size_t taken =
        etx == nullptr ? count : static_cast<std::size_t>(static_cast<const char*>(etx) - bytes) + 1;
    const std::size_t blocks_before = (1 + text_.size()) / kBlock;
    text_.append(bytes, taken);
    if (etx != nullptr) {
      receiving_ = false;
      answer();
    } else {
      for (std::size_t n = blocks_before; n < (1 + text_.size()) / kBlock; ++n) send(&bench::kAck, 1);
    }
    return taken;
  }

  void answer() {
    const std::size_t length = text_.size() - 2;
    const std::string_view text = std::string_view(text_).substr(0, length);
    if (text_.size() < 2 || bench::checksum(text) != text_[length]) {
      send(&bench::kNak, 1);
      return;
    }
    prepare_reply(text);
    sent_ = 0;
    if (silence_.count() > 0) answer_late();
    send_block();
  }

  void answer_late() {
    std::this_thread::sleep_for(silence_);
    send(reply_.data(), kAckLength);
    sent_ = kAckLength;
    std::this_thread::sleep_for(silence_);
  }

  // A command that begins as the last one did gets the same reply again, at no cost.
  void prepare_reply(std::string_view command) {
    const std::string_view start = command.substr(0, 64);
    if (start == answered_) return;
    answered_ = start;
    const std::size_t name_end = command.find('|');
    const std::string_view session = command.substr(name_end + 1, 6);
    const std::string_view wish = command.substr(std::min(command.size(), name_end + 8));
    const std::size_t number = number_in(wish);
    std::string text = std::string(session) + "|08000|SAT em operacao||";
    if (wish.starts_with('R') && text.size() < number) text.append(number - text.size(), 'x');
    silence_ = std::chrono::milliseconds(wish.starts_with('W') ? number : 0);
    reply_ = bench::kAck + bench::frame(text);
  }

  static std::size_t number_in(std::string_view wish) {
    std::size_t number = 0;
    if (!wish.empty()) std::from_chars(wish.data() + 1, wish.data() + wish.size(), number);
    return number;
  }

  // The command's ACK and the reply's first block go out together. Blocks are counted from the reply's STX.
  void send_block() {
    if (sent_ >= reply_.size()) return;
    const std::size_t begin = sent_;
    sent_ = std::min(std::max(begin, kAckLength) + kBlock, reply_.size());
    send(reply_.data() + begin, sent_ - begin);
  }

  void send(const char* bytes, std::size_t count) const {
    while (count > 0) {
      const ssize_t written = write(master_, bytes, count);
      if (written < 0) fail("writing to the port");
      bytes += written;
      count -= static_cast<std::size_t>(written);
    }
  }

  static constexpr std::size_t kAckLength = 1;

  int master_;
  bool receiving_ = false;
  std::string text_;      // of the command in progress, its checksum and ETX included
  std::string answered_;  // start of the command that reply_ answers
  std::string reply_;     // the ACK and the reply's frame
  std::size_t sent_ = 0;
  std::chrono::milliseconds silence_{0};
};

[[noreturn]] void serve(const Terminal& terminal) {
  Device device(terminal.master);
  std::array<char, 65536> bytes;
  for (;;) {
    const ssize_t count = read(terminal.master, bytes.data(), bytes.size());
    if (count <= 0) fail("reading from the port");
    device.take(bytes.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace

int main() try {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const Terminal terminal = open_terminal();
  std::printf("%s\n", terminal.path.c_str());
  std::fflush(stdout);
  serve(terminal);
} catch (const std::exception& error) {
  std::fprintf(stderr, "instant-device: %s\n", error.what());
  return 1;
}
