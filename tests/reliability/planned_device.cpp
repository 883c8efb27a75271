// A device that does what each command's activation code tells it to; see planned_line.h.
//
//   planned-device
//
// Prints the path of its pseudo-terminal and serves it until SIGTERM. Then it prints one line,
//
//   commands N damaged N interrupted N
//
// with the frames that came whole and with the right checksum, those that came damaged, and those exchanges
// that the other end broke off or answered wrongly.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "reliability/planned_line.h"

namespace {

using namespace planned;

constexpr int kForever = -1;
constexpr int kLookMs = 500;
constexpr int kLongestAnswerMs = 5000;
constexpr useconds_t kGapMicroseconds = 150000;

volatile sig_atomic_t ended;
void end(int) {
  ended = 1;
}

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(2);
}

// The host began another command where an answer was due, or gave none at all.
struct Interrupted {
  bool by_stx;
};
struct Ended {};

class Device {
 public:
  Device() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master_ == -1 || grantpt(master_) != 0 || unlockpt(master_) != 0) fail("pseudo-terminal");
    path_ = ptsname(master_);
    port_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);  // keeps the line up
    termios settings{};
    if (port_ == -1 || tcgetattr(port_, &settings) != 0) fail("port");
    cfmakeraw(&settings);
    if (tcsetattr(port_, TCSANOW, &settings) != 0) fail("port");
  }

  const std::string& path() const { return path_; }

  void serve() {
    bool stx_read = false;
    try {
      for (;;) {
        try {
          const std::string text = read_command(stx_read);
          stx_read = false;
          answer(text);
        } catch (const Interrupted& interruption) {
          ++interrupted_;
          stx_read = interruption.by_stx;
        }
      }
    } catch (const Ended&) {
    }
    std::printf("commands %lu damaged %lu interrupted %lu\n", commands_, damaged_, interrupted_);
  }

 private:
  // ---- Bytes ----

  // In short waits: a signal may come between the look at its flag and the wait.
  void wait_for_bytes(int timeout_ms) {
    pollfd line{master_, POLLIN, 0};
    for (int waited = 0; timeout_ms == kForever || waited < timeout_ms; waited += kLookMs) {
      if (ended != 0) throw Ended{};
      if (poll(&line, 1, kLookMs) > 0) return;
    }
    throw Interrupted{false};
  }

  void fill(int timeout_ms) {
    while (next_ == held_) {
      wait_for_bytes(timeout_ms);
      const ssize_t count = read(master_, bytes_, sizeof bytes_);
      if (count > 0) {
        next_ = 0;
        held_ = static_cast<std::size_t>(count);
      } else if (errno != EINTR && errno != EAGAIN) {
        fail("read");
      }
    }
  }

  char next_byte(int timeout_ms) {
    fill(timeout_ms);
    return bytes_[next_++];
  }

  // While the line takes no more of a reply, another command may come: the host that was to read this is
  // gone.
  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = write(master_, bytes.data(), bytes.size());
      if (count > 0) {
        bytes.remove_prefix(static_cast<std::size_t>(count));
      } else if (errno == EAGAIN) {
        wait_for_room();
      } else if (errno != EINTR) {
        fail("write");
      }
      if (ended != 0) throw Ended{};
    }
  }

  void wait_for_room() {
    const short events = replying_ ? POLLIN | POLLOUT : POLLOUT;
    pollfd line{master_, events, 0};
    if (poll(&line, 1, kLookMs) <= 0 || (line.revents & POLLOUT) != 0 || (line.revents & POLLIN) == 0) return;
    if (next_byte(kLookMs) == kStx) throw Interrupted{true};
  }

  void expect(char wanted) {
    const char byte = next_byte(kLongestAnswerMs);
    if (byte != wanted) throw Interrupted{byte == kStx};
  }

  // ---- Commands ----

  // Text of the next whole frame, damaged ones refused. Every block but the last is acknowledged.
  std::string read_command(bool stx_read) {
    replying_ = false;
    for (;;) {
      while (!stx_read) stx_read = next_byte(kForever) == kStx;
      stx_read = false;
      std::string text;
      for (;;) {
        fill(kLongestAnswerMs);
        const std::string_view fresh(bytes_ + next_, held_ - next_);
        const std::size_t to_block_end = kBlock - (1 + text.size()) % kBlock;
        const std::size_t etx = fresh.find(kEtx);
        const std::size_t count =
            std::min({etx == std::string_view::npos ? fresh.size() : etx + 1, to_block_end});
        text += fresh.substr(0, count);
        next_ += count;
        if (text.back() == kEtx) break;
        if ((1 + text.size()) % kBlock == 0) send({&kAck, 1});
      }
      // A host that was killed leaves the beginning of a frame in front of the next one's.
      const std::size_t last_stx = text.rfind(kStx, text.size() - 3);
      if (!is_whole(text) && text.size() >= 3 && last_stx != std::string::npos) text.erase(0, last_stx + 1);
      if (is_whole(text)) {
        ++commands_;
        return text.substr(0, text.size() - 2);
      }
      ++damaged_;
      send({&kNak, 1});
    }
  }

  static bool is_whole(const std::string& text) {
    const std::size_t length = text.size() < 3 ? 0 : text.size() - 2;
    return length > 0 && static_cast<unsigned char>(text[length]) == checksum({text.data(), length});
  }

  void expect_again(const std::string& text) {
    if (read_command(false) != text) throw Interrupted{false};
    replying_ = true;
  }

  // ---- Replies ----

  void answer(const std::string& text) {
    replying_ = true;
    const std::size_t name_end = std::min(text.find('|'), text.size() - 1);
    const std::size_t session_end = std::min(text.find('|', name_end + 1), text.size());
    const std::size_t code_end = std::min(text.find('|', session_end + 1), text.size());
    const std::string session = text.substr(name_end + 1, session_end - name_end - 1);
    const std::string code =
        session_end < text.size() ? text.substr(session_end + 1, code_end - session_end - 1) : "";
    const Plan plan = plan_of(code);
    const std::string reply = frame(reply_text(session, plan.reply_length));
    switch (plan.fault) {
      case Fault::kNone:
        return send_reply(std::string(1, kAck), reply);
      case Fault::kOneNak:
        refuse(1, text);
        return send_reply(std::string(1, kAck), reply);
      case Fault::kThreeNaks:
        refuse(3, text);
        return send_reply(std::string(1, kAck), reply);
      case Fault::kFourNaks:
        refuse(3, text);
        return send({&kNak, 1});
      case Fault::kGarbageBeforeAck:
        return send_reply("Z" + std::string(1, kAck), reply);
      case Fault::kStxNak:
        return send_reply({kStx, kNak}, reply);
      case Fault::kStxEtx:
        return send_reply({kStx, kEtx}, reply);
      case Fault::kStxAck:
        send(std::string{kStx, kAck});
        expect_again(text);
        return send_reply(std::string(1, kAck), reply);
      case Fault::kLoneStx:
        return send({&kStx, 1});
      case Fault::kSeparateReply:
        send({&kAck, 1});
        sched_yield();
        return send_reply("", reply);
      case Fault::kGarbageBeforeReply:
        return send_reply(kAck + std::string("0042|lixo"), reply);
      case Fault::kOneBadReply:
        send_damaged(std::string(1, kAck), reply);
        return send_reply("", reply);
      case Fault::kTwoBadReplies:
        send_damaged(std::string(1, kAck), reply);
        send_damaged("", reply);
        return send_reply("", reply);
      case Fault::kThreeBadReplies:
        send_damaged(std::string(1, kAck), reply);
        send_damaged("", reply);
        return send_damaged("", reply);
      case Fault::kSingleBytes:
        send({&kAck, 1});
        return send_blocks(reply, 1, kAck);
      case Fault::kPieces:
        send({&kAck, 1});
        return send_blocks(reply, 1 + reply.size() / 3, kAck);
      case Fault::kDuplicateReply:
        // The second one lies in the port's queue when the host comes back, unless it is too long for that.
        return reply.size() < 1000 ? send_twice(reply) : send_reply(std::string(1, kAck), reply);
      case Fault::kGap:
        send(kAck + reply.substr(0, std::min(reply.size() / 2, kBlock / 2)));
        usleep(kGapMicroseconds);
        expect(kNak);
        return send_reply("", reply);
    }
  }

  void refuse(int times, const std::string& text) {
    for (int i = 0; i < times; ++i) {
      send({&kNak, 1});
      expect_again(text);
    }
  }

  void send_twice(const std::string& reply) {
    send(kAck + reply + reply);
    expect(kAck);
  }

  // A first block goes out behind `lead`, in one piece; the host acknowledges every block.
  void send_reply(const std::string& lead, const std::string& reply) {
    if (reply.size() <= kBlock) {
      send(lead + reply);
      return expect(kAck);
    }
    send(lead);
    send_blocks(reply, kBlock, kAck);
  }

  void send_damaged(const std::string& lead, std::string reply) {
    char& check = reply[reply.size() - 2];
    check = static_cast<char>(check == kEtx - 1 ? check + 2 : check + 1);
    send(lead);
    send_blocks(reply, kBlock, kNak);
  }

  void send_blocks(const std::string& reply, std::size_t piece, char last_answer) {
    for (std::size_t at = 0; at < reply.size();) {
      const std::size_t block_end = std::min(reply.size(), (at / kBlock + 1) * kBlock);
      while (at < block_end) {
        const std::size_t count = std::min(piece, block_end - at);
        send(std::string_view(reply).substr(at, count));
        at += count;
      }
      expect(at == reply.size() ? last_answer : kAck);
    }
  }

  int master_ = -1;
  int port_ = -1;
  std::string path_;
  char bytes_[65536];
  std::size_t next_ = 0;
  std::size_t held_ = 0;
  bool replying_ = false;
  unsigned long commands_ = 0;
  unsigned long damaged_ = 0;
  unsigned long interrupted_ = 0;
};

}  // namespace

int main() {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  struct sigaction action {};
  action.sa_handler = end;  // without SA_RESTART: ends the wait too
  sigaction(SIGTERM, &action, nullptr);
  static Device device;
  std::printf("%s\n", device.path().c_str());
  std::fflush(stdout);
  device.serve();
  return 0;
}
