#include "support/scripted_device.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>
#include <utility>

namespace scripted {

namespace {

constexpr std::int64_t kNoTurnWanted = std::numeric_limits<std::int64_t>::max();
constexpr std::chrono::seconds kLongestFinish{20};

std::string in_hex(std::string_view bytes) {
  constexpr std::size_t kShown = 40;
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char byte : bytes.substr(0, kShown)) {
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 0x0F];
    text += ' ';
  }
  if (bytes.size() > kShown) text += "... " + std::to_string(bytes.size()) + " bytes in all";
  return text;
}

}  // namespace

// ---- Frames -----------------------------------------------------------------------------------------

unsigned char checksum(std::string_view text) {
  unsigned sum = 0;
  for (const char byte : text) sum += static_cast<unsigned char>(byte);
  return sum % 256 == 3 ? 4 : static_cast<unsigned char>(sum % 256);
}

std::string frame(std::string_view text) {
  return kStx + std::string(text) + static_cast<char>(checksum(text)) + kEtx;
}

std::string bad_frame(std::string_view text) {
  std::string bytes = frame(text);
  char& check = bytes[bytes.size() - 2];
  check = static_cast<char>(check == kEtx - 1 ? check + 2 : check + 1);
  return bytes;
}

std::string text_for_frame_of(std::size_t length) {
  std::string text = "000042|08000|";
  while (text.size() + 3 < length) text += static_cast<char>('a' + text.size() % 23);
  return text;
}

// ---- Scripts ----------------------------------------------------------------------------------------

Script operator+(Script left, const Script& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Script operator*(int times, const Script& script) {
  Script all;
  for (int i = 0; i < times; ++i) all = std::move(all) + script;
  return all;
}

Step expect_frame() {
  return {Step::Kind::kExpectFrame, "", 0, 0};
}
Step expect_block(std::size_t count) {
  return {Step::Kind::kExpectCount, "", count, 0};
}
Step expect(std::string bytes) {
  return {Step::Kind::kExpectBytes, std::move(bytes), 0, 0};
}
Step take(std::size_t count) {
  return {Step::Kind::kTake, "", count, 0};
}
Step expect_ack() {
  return expect({kAck});
}
Step expect_nak() {
  return expect({kNak});
}

Step send(std::string bytes) {
  return {Step::Kind::kSend, std::move(bytes), 0, 0};
}
Step ack() {
  return send({kAck});
}
Step nak() {
  return send({kNak});
}
Step send_frame(std::string_view text) {
  return send(frame(text));
}
Step send_bad_frame(std::string_view text) {
  return send(bad_frame(text));
}

Script send_in_pieces(const std::string& bytes, std::size_t size) {
  Script script;
  for (std::size_t start = 0; start < bytes.size(); start += size) {
    script.push_back(await_reader());
    script.push_back(send(bytes.substr(start, size)));
  }
  return script;
}

Step flood(std::string bytes) {
  return {Step::Kind::kFlood, std::move(bytes), 0, 0};
}
Step pause_ms(std::int64_t milliseconds) {
  return {Step::Kind::kPause, "", 0, milliseconds};
}
Step await_reader() {
  return {Step::Kind::kAwaitReader, "", 0, 0};
}
Step await_release() {
  return {Step::Kind::kAwaitRelease, "", 0, 0};
}
Step hang_up() {
  return {Step::Kind::kHangUp, "", 0, 0};
}

// ---- The device -------------------------------------------------------------------------------------

ScriptedDevice::ScriptedDevice(Clock clock) : clock_(std::move(clock)) {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  char name[128];
  if (master_ == -1 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
      ptsname_r(master_, name, sizeof name) != 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  path_ = name;
  port_ = open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (port_ == -1) throw std::runtime_error("the pseudo-terminal does not open");
}

ScriptedDevice::~ScriptedDevice() {
  if (port_ != -1) close(port_);
  if (master_ != -1) close(master_);
}

void ScriptedDevice::play(Script script) {
  const std::string former = script_.empty() ? "" : verdict();
  script_ = std::move(script);
  next_ = sent_ = 0;
  due_ = -1;
  received_.clear();
  failure_ = former.empty() ? "" : "former script, " + former;
  released_ = false;
}

std::int64_t ScriptedDevice::take_turn() {
  while (!is_over() && try_step(script_[next_])) {
    ++next_;
    sent_ = 0;
    due_ = -1;
  }
  return due_ == -1 ? kNoTurnWanted : std::max<std::int64_t>(due_ - clock_(), 0);
}

bool ScriptedDevice::wants_to_send() const {
  return !is_over() && script_[next_].kind == Step::Kind::kSend;
}

bool ScriptedDevice::awaits_bytes() const {
  if (is_over()) return false;
  const Step::Kind kind = script_[next_].kind;
  return kind == Step::Kind::kExpectFrame || kind == Step::Kind::kExpectCount ||
         kind == Step::Kind::kExpectBytes || kind == Step::Kind::kTake;
}

// True when the step has been made; false when it cannot be made yet, or never.
bool ScriptedDevice::try_step(const Step& step) {
  switch (step.kind) {
    case Step::Kind::kExpectFrame: {
      fill_inbox();
      const std::size_t etx = inbox_.find(kEtx);
      if (etx == std::string::npos) return false;
      const std::string bytes = inbox_.substr(0, etx + 1);
      if (bytes.size() < 3 || bytes != frame(bytes.substr(1, bytes.size() - 3)))
        return fail("no right frame: " + in_hex(bytes));
      return receive(bytes.size(), step);
    }
    case Step::Kind::kExpectCount:
      fill_inbox();
      if (inbox_.size() > step.count) return fail("too many bytes: " + in_hex(inbox_.substr(step.count)));
      return receive(step.count, step);
    case Step::Kind::kExpectBytes:
      fill_inbox();
      return receive(step.bytes.size(), step);
    case Step::Kind::kTake:
      fill_inbox(step.count);
      return receive(step.count, step) && line_has_room();
    case Step::Kind::kSend:
      return send_rest(step.bytes);
    case Step::Kind::kPause:
      if (due_ == -1) due_ = clock_() + step.milliseconds;
      return clock_() >= due_;
    case Step::Kind::kAwaitReader:
      return host_has_read_all();
    case Step::Kind::kAwaitRelease:
      return released_;
    case Step::Kind::kFlood:
      if (host_has_read_all()) {
        sent_ = 0;
        send_rest(step.bytes);
      }
      return released_;
    case Step::Kind::kHangUp:
      close(std::exchange(master_, -1));
      return true;
  }
  return fail("unknown step");
}

bool ScriptedDevice::receive(std::size_t count, const Step& step) {
  if (inbox_.size() < count) return false;
  received_.push_back(inbox_.substr(0, count));
  inbox_.erase(0, count);
  if (step.kind == Step::Kind::kExpectBytes && received_.back() != step.bytes)
    return fail("expected " + in_hex(step.bytes) + "but got " + in_hex(received_.back()));
  return true;
}

bool ScriptedDevice::send_rest(const std::string& bytes) {
  while (sent_ < bytes.size()) {
    const ssize_t count = write(master_, bytes.data() + sent_, bytes.size() - sent_);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno != EAGAIN) return fail("write failed");
    if (count <= 0) return false;
    sent_ += static_cast<std::size_t>(count);
  }
  return true;
}

bool ScriptedDevice::host_has_read_all() const {
  pollfd queue{port_, POLLIN, 0};
  return poll(&queue, 1, 0) == 0;
}

// The kernel moves the bytes on the line up a moment later; by then the host's next write goes through.
bool ScriptedDevice::line_has_room() const {
  constexpr int kLongestMoment = 5000;
  pollfd line{port_, POLLOUT, 0};
  return poll(&line, 1, kLongestMoment) == 1;
}

// Takes what is on the line until the inbox holds limit bytes.
void ScriptedDevice::fill_inbox(std::size_t limit) {
  char bytes[4096];
  while (master_ != -1 && inbox_.size() < limit) {
    const ssize_t count = read(master_, bytes, std::min(sizeof bytes, limit - inbox_.size()));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    inbox_.append(bytes, static_cast<std::size_t>(count));
  }
}

bool ScriptedDevice::fail(const std::string& reason) {
  failure_ = "step " + std::to_string(next_ + 1) + " of " + std::to_string(script_.size()) + ": " + reason;
  return false;
}

std::string ScriptedDevice::verdict() {
  take_turn();
  if (!failure_.empty()) return failure_;
  fill_inbox();
  if (!is_over()) fail("not made; waiting bytes: " + in_hex(inbox_));
  if (failure_.empty() && !inbox_.empty()) failure_ = "the host sent more: " + in_hex(inbox_);
  return failure_;
}

// ---- On a thread ------------------------------------------------------------------------------------

std::int64_t steady_clock_ms() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

DeviceThread::DeviceThread(ScriptedDevice& device)
    : device_(device), wake_up_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), thread_([this] { run(); }) {}

DeviceThread::~DeviceThread() {
  stop();
  close(wake_up_);
}

void DeviceThread::run() {
  constexpr std::int64_t kLook = 1;  // for steps that wait for something poll cannot tell
  for (;;) {
    const std::int64_t next_turn = device_.take_turn();
    if (device_.is_over()) break;
    const short events = device_.wants_to_send() ? POLLOUT : POLLIN;
    pollfd descriptors[] = {{wake_up_, POLLIN, 0}, {device_.master(), events, 0}};
    const bool can_be_told = device_.wants_to_send() || device_.awaits_bytes();
    poll(descriptors, can_be_told ? 2 : 1, can_be_told ? -1 : static_cast<int>(std::min(next_turn, kLook)));
    if (descriptors[0].revents != 0) break;
  }
  const std::lock_guard lock(mutex_);
  over_ = true;
  over_changed_.notify_all();
}

void DeviceThread::stop() {
  const std::uint64_t one = 1;
  if (write(wake_up_, &one, sizeof one) != sizeof one) std::abort();
  if (thread_.joinable()) thread_.join();
}

std::string DeviceThread::finish() {
  {
    std::unique_lock lock(mutex_);
    over_changed_.wait_for(lock, kLongestFinish, [this] { return over_; });
  }
  stop();
  return device_.verdict();
}

}  // namespace scripted
