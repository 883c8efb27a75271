// The port that a till opens. The emulator keeps a slave descriptor of its own, so that a till may open
// and close the port as often as it likes without the master side ever seeing a hang-up, and sets raw mode
// on it before anyone else can: nothing the device sends is echoed back to it.
#pragma once

#include <string>

namespace emulator {

class PseudoTerminal {
 public:
  PseudoTerminal();
  ~PseudoTerminal();
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  int master() const { return master_; }
  const std::string& path() const { return path_; }

  // Unplugs the device: a till that has the port open sees it hung up.
  void hang_up();
  // Plugs it in again, as a new terminal.
  void come_back();

  // Throws away what the till has not read yet.
  void discard_unread() const;
  // Bytes that the till has not read yet.
  int unread() const;

 private:
  int master_ = -1;
  int slave_ = -1;
  std::string path_;
};

// A symbolic link to the port under a name that stays the same. Whatever stood there before is left alone,
// unless it is the link of an emulator that was killed: one to a terminal that is gone, or to this very one.
class PortLink {
 public:
  PortLink() = default;
  ~PortLink() { remove(); }
  PortLink(const PortLink&) = delete;
  PortLink& operator=(const PortLink&) = delete;

  // Throws std::runtime_error with a text for the user.
  void create(const std::string& name, const std::string& target);
  // Removes the link if it still is ours.
  void remove();
  const std::string& name() const { return name_; }

 private:
  std::string name_;
  std::string target_;
};

}  // namespace emulator
