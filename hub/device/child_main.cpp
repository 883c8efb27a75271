// talvex-hub-device: loads the driver library in a folder of its own and makes one call at a time for the
// hub. It may be killed at any moment, and does not outlive the hub.
//   talvex-hub-device PARENT PORT FOLDER LOCKS LIBRARY       with the hub's socket as standard input

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "hub/device/messages.h"
#include "hub/device/port.h"
#include "satctl/library/library.h"
#include "satctl/terminal/exit_status.h"
#include "satctl/terminal/terminal.h"

namespace {

using namespace hub;

int g_hub = -1;

struct Start {
  pid_t parent;
  std::filesystem::path port, folder, locks;
  std::string library;
};

[[noreturn]] void end() {
  _exit(0);
}

// ---- The hub's socket ----

// Out of the way of the programs that the library starts: one that outlived this process would keep the hub
// waiting.
void claim_socket() {
  g_hub = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dup2(nothing, STDIN_FILENO);
}

void write_whole(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = send(g_hub, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) end();
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

std::string read_whole(std::size_t length) {
  std::string bytes(length, '\0');
  for (std::size_t filled = 0; filled < length;) {
    const ssize_t count = read(g_hub, bytes.data() + filled, length - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) end();
    filled += static_cast<std::size_t>(count);
  }
  return bytes;
}

void answer(const ChildAnswer& what) {
  write_whole(framed(encode(what)));
}

ChildOrder next_order() {
  const auto length = length_in(read_whole(kLengthBytes));
  if (!length) end();
  const auto order = decode_order(read_whole(*length));
  if (!order) end();
  return *order;
}

// An order may outlive the hub that gave it: then nobody would learn what became of it.
void end_without_hub() {
  pollfd hub{g_hub, POLLRDHUP, 0};
  if (poll(&hub, 1, 0) > 0 && (hub.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) end();
}

// ---- The library's folder ----

// The port is fixed, so that the library cannot find another device than the one whose lock is held. Its logs
// would hold activation codes.
void write_settings(const std::filesystem::path& port) {
  std::ofstream("SAT.ini", std::ios::trunc) << "[SERIAL_PORT_CONFIG]\nFixarPorta=" << port.string()
                                            << "\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nEnable=0\n"
                                               "[ARVOLEN]\nEnable=0\n[LOG]\nLogFilePath=Log\nLogMode=0\n";
}

// ---- One child's life ----

void die_with_hub(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) end();
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);  // a core would hold the activation code
}

[[noreturn]] void give_up(ChildAnswer::Kind kind, const std::string& reason) {
  answer({kind, reason, false});
  end();
}

void lock_or_end(const std::filesystem::path& folder, const std::string& name) {
  static std::set<std::string> locked;
  if (!locked.insert(name).second) return;
  switch (lock_for_life(folder, name)) {
    case LockResult::locked:
      return;
    case LockResult::held:
      give_up(ChildAnswer::Kind::held, name);
    case LockResult::impossible:
      give_up(ChildAnswer::Kind::failed,
              (folder / name).string() + ": " + std::generic_category().message(errno));
  }
}

ChildAnswer call(const satctl::Library& library, const Start& start, const PortNode& port,
                 const ChildOrder& order) {
  const auto* function = satctl::find_function(order.function);
  if (function == nullptr || function->parameters.size() != order.values.size()) {
    return {ChildAnswer::Kind::failed, "no such call", false};
  }
  if (node_of(start.port) != port) return {ChildAnswer::Kind::port_changed, {}, true};
  end_without_hub();
  std::string reply = library.call(*function, order.session, order.values);
  return {ChildAnswer::Kind::reply, std::move(reply), node_of(start.port) != port};
}

[[noreturn]] void serve(const Start& start) {
  const auto port = node_of(start.port);
  if (!port) give_up(ChildAnswer::Kind::failed, "no port");
  lock_or_end(start.locks, lock_name(*port));
  std::filesystem::create_directories(start.folder);
  std::filesystem::current_path(start.folder);
  write_settings(std::filesystem::canonical(start.port));
  const satctl::Library library(start.library);
  answer({ChildAnswer::Kind::ready, library.path().string(), false});
  while (true) {
    const ChildOrder order = next_order();
    if (order.kind == ChildOrder::Kind::lock_serial) {
      lock_or_end(start.locks, lock_name_of_serial(order.serial));
      answer({ChildAnswer::Kind::locked, {}, false});
    } else {
      answer(call(library, start, *port, order));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    satctl::print_error("talvex-hub-device is started by talvex-hub");
    return static_cast<int>(satctl::ExitStatus::usage);
  }
  claim_socket();
  satctl::claim_terminal();
  const Start start{static_cast<pid_t>(std::atol(argv[1])), argv[2], argv[3], argv[4], argv[5]};
  die_with_hub(start.parent);
  try {
    serve(start);
  } catch (const std::exception& error) {
    give_up(ChildAnswer::Kind::failed, error.what());
  }
}
