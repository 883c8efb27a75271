// The serial line: bytes to and from the till, at the pace of the line, with the interruptions that a fault
// rule or the control socket asks for.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "line/pseudo_terminal.h"
#include "line/waiter.h"

namespace emulator {

// The port was unplugged and, if so ordered, is back: whatever was going on with the till is over.
struct HungUp {
  std::string complaint;  // if the link could not be made again
};

// A place in a transmission where the line does something else than send the next byte.
struct Cut {
  std::size_t at = 0;  // bytes sent before it
  Milliseconds pause{0};
  bool unplug = false;
};

// How the device leaves and returns.
struct Absence {
  Milliseconds duration{300};
  std::string new_name;  // of the link, in the same folder; empty: the same name
};

enum class Direction { from_till, to_till };
using LineObserver = std::function<void(Direction, std::string_view)>;

enum class Sent {
  all,
  interrupted,  // the till speaks: it rejects what it got so far or starts a new command
  stalled,      // the till takes nothing any more
};

class Line {
 public:
  Line(PseudoTerminal& terminal, PortLink& link, Waiter& waiter);

  void observe(LineObserver observer) { observer_ = std::move(observer); }
  void set_byte_delay(std::chrono::microseconds delay) { byte_delay_ = delay; }
  // Unplugs the device at the next moment that the line waits (which is at once).
  void request_absence(Absence absence) { requested_absence_ = std::move(absence); }

  // The next byte of the till, which stays where it is until `take` removes it; nothing at the deadline.
  std::optional<unsigned char> peek(Clock::time_point deadline);
  void take() { input_.pop_front(); }

  Sent write(std::string_view bytes);
  Sent write(std::string_view bytes, const std::vector<Cut>& cuts, const Absence& absence);
  // False when the till started to speak before the time was over.
  bool pause(Clock::duration duration);
  [[noreturn]] void unplug(const Absence& absence);

  void discard_unread() const { terminal_.discard_unread(); }
  // Waits until the till has read everything that was sent, or has long stopped reading.
  void wait_until_read();
  const std::string& port() const { return terminal_.path(); }
  const std::string& link_name() const { return link_.name(); }

 private:
  Sent write_piece(std::string_view bytes);
  bool till_speaks() const;
  std::string name_after(const Absence& absence) const;
  std::string link_again(const std::string& name, const std::string& former);
  short wait(short events, Clock::time_point deadline);
  void read_available();

  PseudoTerminal& terminal_;
  PortLink& link_;
  Waiter& waiter_;
  LineObserver observer_;
  std::chrono::microseconds byte_delay_{0};
  std::optional<Absence> requested_absence_;
  std::deque<unsigned char> input_;
};

}  // namespace emulator
