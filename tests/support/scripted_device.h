// The device's end of the line: a pseudo-terminal whose master follows a script of steps. It has framing code
// of its own, so that a mistake of the library's does not meet its mirror image here.
//
// A script moves on in turns that never block. Tests with the virtual clock give it its turns from within the
// library's own waits (virtual_clock::on_turn), which makes every exchange exactly repeatable; tests with the
// real clock play it on a DeviceThread.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace scripted {

inline constexpr char kStx = '\x02';
inline constexpr char kEtx = '\x03';
inline constexpr char kAck = '\x06';
inline constexpr char kNak = '\x15';
inline constexpr std::size_t kBlock = 16384;

// Sum of the text's bytes, with 4 in the place of 3.
unsigned char checksum(std::string_view text);
std::string frame(std::string_view text);
// The same with a checksum that is wrong and no ETX.
std::string bad_frame(std::string_view text);
// A text whose frame, from STX to ETX, has this length: a session number, a code, then filling.
std::string text_for_frame_of(std::size_t length);

struct Step {
  enum class Kind {
    kExpectFrame,
    kExpectCount,
    kExpectBytes,
    kTake,
    kSend,
    kPause,
    kAwaitRelease,
    kAwaitReader,
    kFlood,
    kHangUp
  };
  Kind kind;
  std::string bytes;
  std::size_t count = 0;
  std::int64_t milliseconds = 0;
};
using Script = std::vector<Step>;
Script operator+(Script left, const Script& right);
Script operator*(int times, const Script& script);

// A frame of one block, up to its ETX, with the right checksum.
Step expect_frame();
// So many bytes and for the moment no more: the host waits for an answer now.
Step expect_block(std::size_t count);
Step expect(std::string bytes);
// Takes so many bytes off the line and leaves the rest of them there.
Step take(std::size_t count);
Step expect_ack();
Step expect_nak();

Step send(std::string bytes);
Step ack();
Step nak();
Step send_frame(std::string_view text);
Step send_bad_frame(std::string_view text);
// Each piece waits until the host has read the one before it.
Script send_in_pieces(const std::string& bytes, std::size_t size);
// These bytes again and again, without an end.
Step flood(std::string bytes);

// A pause of the device's, by the clock that it was given.
Step pause_ms(std::int64_t milliseconds);
// Until the host has read all that was sent.
Step await_reader();
// Silence until ScriptedDevice::release.
Step await_release();
Step hang_up();

class ScriptedDevice {
 public:
  using Clock = std::function<std::int64_t()>;  // in milliseconds

  explicit ScriptedDevice(Clock clock);
  ~ScriptedDevice();
  ScriptedDevice(const ScriptedDevice&) = delete;
  ScriptedDevice& operator=(const ScriptedDevice&) = delete;

  // Name of the port to open.
  const std::string& path() const { return path_; }
  int master() const { return master_; }
  // The device's own descriptor of the port: it keeps the line up while no host has it open.
  int port() const { return port_; }

  // Starts a script, with nothing received so far. A former one must have been played to its end.
  void play(Script script);
  // Goes on as far as it can without waiting. Returns the milliseconds until it wants its next turn.
  std::int64_t take_turn();
  void release() { released_ = true; }

  bool is_over() const { return next_ == script_.size() || !failure_.empty(); }
  bool wants_to_send() const;
  bool awaits_bytes() const;
  // What each expecting step got, in order.
  const std::vector<std::string>& received() const { return received_; }
  // Empty if the script has been played to its end and the host has sent nothing more, else what went wrong.
  std::string verdict();

 private:
  bool try_step(const Step& step);
  bool receive(std::size_t count, const Step& step);
  bool send_rest(const std::string& bytes);
  bool host_has_read_all() const;
  bool line_has_room() const;
  void fill_inbox(std::size_t limit = std::string::npos);
  bool fail(const std::string& reason);

  Clock clock_;
  int master_ = -1;
  int port_ = -1;
  std::string path_;
  Script script_;
  std::size_t next_ = 0;
  std::size_t sent_ = 0;
  std::int64_t due_ = -1;
  std::string inbox_;
  std::vector<std::string> received_;
  std::string failure_;
  std::atomic<bool> released_ = false;
};

std::int64_t steady_clock_ms();

// Plays the script of a device on a thread, until its end or until the object goes.
class DeviceThread {
 public:
  explicit DeviceThread(ScriptedDevice& device);
  ~DeviceThread();
  DeviceThread(const DeviceThread&) = delete;
  DeviceThread& operator=(const DeviceThread&) = delete;

  // Waits for the script's end (a few seconds at most) and gives the verdict.
  std::string finish();

 private:
  void run();
  void stop();

  ScriptedDevice& device_;
  int wake_up_;
  std::mutex mutex_;
  std::condition_variable over_changed_;
  bool over_ = false;
  std::thread thread_;
};

}  // namespace scripted
