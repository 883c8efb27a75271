#include "line/line.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "line/frame.h"

namespace emulator {

namespace {

// A till that takes nothing for this long has gone; it would have given the reply up long before.
constexpr Milliseconds kStallLimit{5'000};
// More than one read only piles up while the device sends or waits, from a till that sends garbage meanwhile.
constexpr std::size_t kMostInput = 262'144;
// Hanging up destroys what the till has not read yet. Bytes take a moment to become visible as unread, so
// only a line that stays empty for a while has been read.
constexpr Milliseconds kSettled{20};
constexpr Milliseconds kReadLimit{1'000};

}  // namespace

Line::Line(PseudoTerminal& terminal, PortLink& link, Waiter& waiter)
    : terminal_(terminal), link_(link), waiter_(waiter) {}

std::optional<unsigned char> Line::peek(Clock::time_point deadline) {
  while (input_.empty()) {
    if ((wait(POLLIN, deadline) & POLLIN) != 0) {
      read_available();
    } else if (Clock::now() >= deadline) {
      return std::nullopt;
    }
  }
  return input_.front();
}

Sent Line::write(std::string_view bytes, const std::vector<Cut>& cuts, const Absence& absence) {
  std::size_t sent = 0;
  for (const Cut& cut : cuts) {
    if (cut.at > bytes.size() || cut.at < sent) continue;
    if (const Sent outcome = write(bytes.substr(sent, cut.at - sent)); outcome != Sent::all) return outcome;
    sent = cut.at;
    if (cut.unplug) {
      wait_until_read();
      unplug(absence);
    }
    if (!pause(cut.pause)) return Sent::interrupted;
  }
  return write(bytes.substr(sent));
}

Sent Line::write(std::string_view bytes) {
  if (byte_delay_.count() == 0) return write_piece(bytes);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (const Sent outcome = write_piece(bytes.substr(i, 1)); outcome != Sent::all) return outcome;
    if (!pause(byte_delay_)) return Sent::interrupted;
  }
  return Sent::all;
}

Sent Line::write_piece(std::string_view bytes) {
  auto deadline = Clock::now() + kStallLimit;
  while (!bytes.empty()) {
    const ssize_t count = ::write(terminal_.master(), bytes.data(), bytes.size());
    if (count > 0) {
      if (observer_) observer_(Direction::to_till, bytes.substr(0, static_cast<std::size_t>(count)));
      bytes.remove_prefix(static_cast<std::size_t>(count));
      deadline = Clock::now() + kStallLimit;
      continue;
    }
    if (count < 0 && errno != EAGAIN && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "writing to the port");
    }
    if (Clock::now() >= deadline) return Sent::stalled;
    if ((wait(POLLIN | POLLOUT, deadline) & POLLIN) != 0) read_available();
    if (till_speaks()) return Sent::interrupted;
  }
  return Sent::all;
}

bool Line::pause(Clock::duration duration) {
  const auto deadline = Clock::now() + duration;
  while (Clock::now() < deadline) {
    if ((wait(POLLIN, deadline) & POLLIN) != 0) read_available();
    if (till_speaks()) return false;
  }
  return true;
}

void Line::unplug(const Absence& absence) {
  requested_absence_.reset();
  const std::string former = link_.name();
  const std::string name = name_after(absence);
  terminal_.hang_up();
  link_.remove();
  input_.clear();
  const auto deadline = Clock::now() + absence.duration;
  while (Clock::now() < deadline) waiter_.wait(-1, 0, deadline);
  terminal_.come_back();
  throw HungUp{link_again(name, former)};
}

// A device whose new name is taken by now keeps its former one; the emulator lives on in any case.
std::string Line::link_again(const std::string& name, const std::string& former) {
  std::string complaint;
  for (const std::string& wanted : {name, former}) {
    if (wanted.empty()) break;
    try {
      link_.create(wanted, terminal_.path());
      break;
    } catch (const std::runtime_error& error) {
      complaint = error.what();
    }
  }
  return complaint;
}

std::string Line::name_after(const Absence& absence) const {
  if (absence.new_name.empty()) return link_.name();
  const auto slash = link_.name().rfind('/');
  return slash == std::string::npos ? absence.new_name : link_.name().substr(0, slash + 1) + absence.new_name;
}

void Line::wait_until_read() {
  const auto limit = Clock::now() + kReadLimit;
  for (auto empty_since = Clock::now(); Clock::now() - empty_since < kSettled && Clock::now() < limit;) {
    if (terminal_.unread() > 0) empty_since = Clock::now();
    waiter_.wait(-1, 0, Clock::now() + Milliseconds(1));
  }
}

bool Line::till_speaks() const {
  return std::any_of(input_.begin(), input_.end(),
                     [](unsigned char byte) { return byte == kStx || byte == kNak; });
}

short Line::wait(short events, Clock::time_point deadline) {
  if (requested_absence_) unplug(*std::exchange(requested_absence_, {}));
  const short ready = waiter_.wait(terminal_.master(), events, deadline);
  if (requested_absence_) unplug(*std::exchange(requested_absence_, {}));
  return ready;
}

void Line::read_available() {
  std::array<char, 65'536> buffer;
  const ssize_t count = read(terminal_.master(), buffer.data(), buffer.size());
  if (count <= 0) return;
  const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
  if (observer_) observer_(Direction::from_till, bytes);
  if (input_.size() < kMostInput) input_.insert(input_.end(), bytes.begin(), bytes.end());
}

}  // namespace emulator
