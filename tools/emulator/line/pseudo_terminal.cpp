#include "line/pseudo_terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace emulator {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void make_raw(int fd) {
  termios settings{};
  if (tcgetattr(fd, &settings) != 0) fail("reading the terminal's settings");
  cfmakeraw(&settings);
  if (tcsetattr(fd, TCSANOW, &settings) != 0) fail("setting the terminal raw");
}

// Terminals are numbered again from the lowest free one: the link that a killed emulator left may well lead
// to the terminal that this one has just got.
bool is_left_over_link(const fs::path& name, const fs::path& own_port) {
  std::error_code ignored;
  if (!fs::is_symlink(name, ignored)) return false;
  const fs::path target = fs::read_symlink(name, ignored);
  return target == own_port || (target.parent_path() == "/dev/pts" && !fs::exists(target, ignored));
}

std::string reason_to_leave(const fs::path& name) {
  std::error_code ignored;
  const fs::path target = fs::read_symlink(name, ignored);
  if (target.parent_path() == "/dev/pts") return " (it is in use: it leads to " + target.string() + ")";
  return " (it is not a left-over link of an emulator)";
}

}  // namespace

PseudoTerminal::PseudoTerminal() {
  come_back();
}

PseudoTerminal::~PseudoTerminal() {
  hang_up();
}

void PseudoTerminal::come_back() {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (master_ < 0) fail("opening a pseudo-terminal");
  std::array<char, 128> name{};
  if (grantpt(master_) != 0 || unlockpt(master_) != 0 || ptsname_r(master_, name.data(), name.size()) != 0) {
    fail("preparing the pseudo-terminal");
  }
  path_ = name.data();
  slave_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave_ < 0) fail("opening the pseudo-terminal's port");
  make_raw(slave_);
}

void PseudoTerminal::hang_up() {
  if (slave_ >= 0) close(slave_);
  if (master_ >= 0) close(master_);
  slave_ = master_ = -1;
}

void PseudoTerminal::discard_unread() const {
  if (slave_ >= 0) tcflush(slave_, TCIFLUSH);
}

int PseudoTerminal::unread() const {
  int count = 0;
  return slave_ >= 0 && ioctl(slave_, FIONREAD, &count) == 0 ? count : 0;
}

void PortLink::create(const std::string& name, const std::string& target) {
  if (is_left_over_link(name, target)) fs::remove(name);
  if (symlink(target.c_str(), name.c_str()) != 0) {
    throw std::runtime_error("cannot make the link " + name + ": " + std::generic_category().message(errno) +
                             (errno == EEXIST ? reason_to_leave(name) : ""));
  }
  name_ = name;
  target_ = target;
}

void PortLink::remove() {
  if (name_.empty()) return;
  std::error_code ignored;
  if (fs::read_symlink(name_, ignored) == target_) fs::remove(name_, ignored);
  name_.clear();
}

}  // namespace emulator
