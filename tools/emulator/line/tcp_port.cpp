#include "line/tcp_port.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace emulator {

namespace {

constexpr const char* kLoopback = "127.0.0.1";

// Numbers only: nothing is looked up.
std::unique_ptr<addrinfo, void (*)(addrinfo*)> resolve(const TcpAddress& address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.host.c_str(), address.port.c_str(), &hints, &found) != 0) found = nullptr;
  return {found, freeaddrinfo};
}

// The lock that tills take, too.
int open_terminal(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0 || flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
  close(fd);
  return -1;
}

}  // namespace

TcpAddress tcp_address(const std::string& text) {
  const auto colon = text.rfind(':');
  TcpAddress address{kLoopback, text};
  if (colon != std::string::npos) address = {text.substr(0, colon), text.substr(colon + 1)};
  if (address.host.size() > 2 && address.host.front() == '[' && address.host.back() == ']') {
    address.host = address.host.substr(1, address.host.size() - 2);
  }
  const bool number = !address.port.empty() && address.port.size() <= 5 &&
                      address.port.find_first_not_of("0123456789") == std::string::npos &&
                      std::stoi(address.port) <= 65'535;
  if (!number || address.host.empty() || !resolve(address)) {
    throw std::invalid_argument("\"" + text + "\" is no ADDRESS:PORT (numbers only, such as 127.0.0.1:9100)");
  }
  return address;
}

TcpPort::TcpPort(const TcpAddress& address, std::function<std::string()> terminal_path)
    : terminal_path_(std::move(terminal_path)) {
  const auto found = resolve(address);
  if (!found) throw std::runtime_error("cannot listen on " + address.host + ":" + address.port);
  listener_ = socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(listener_, found->ai_addr, found->ai_addrlen) == 0 && listen(listener_, 4) == 0) return;
  const int error = errno;
  close(listener_);
  throw std::runtime_error("cannot listen on " + address.host + ":" + address.port + ": " +
                           std::generic_category().message(error));
}

TcpPort::~TcpPort() {
  disconnect();
  close(listener_);
}

std::string TcpPort::address() const {
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  std::array<char, NI_MAXHOST> host{};
  std::array<char, NI_MAXSERV> port{};
  getsockname(listener_, reinterpret_cast<sockaddr*>(&bound), &size);
  getnameinfo(reinterpret_cast<const sockaddr*>(&bound), size, host.data(), host.size(), port.data(),
              port.size(), NI_NUMERICHOST | NI_NUMERICSERV);
  return std::string(host.data()) + ":" + port.data();
}

// An end is read only when the other one has taken everything: neither can fill the memory.
void TcpPort::collect(std::vector<pollfd>& fds) const {
  fds.push_back({listener_, POLLIN, 0});
  if (client_ < 0) return;
  const auto wanted = [](const std::string& incoming, const std::string& outgoing) {
    return static_cast<short>((incoming.empty() ? POLLIN : 0) | (outgoing.empty() ? 0 : POLLOUT));
  };
  fds.push_back({client_, wanted(to_terminal_, to_client_), 0});
  fds.push_back({terminal_, wanted(to_client_, to_terminal_), 0});
}

void TcpPort::serve(const pollfd& ready) {
  if (ready.fd == listener_) return accept_client();
  if (client_ < 0 || (ready.fd != client_ && ready.fd != terminal_)) return;
  // Either end has gone for good; what is held for the other one is worth nothing then.
  if ((ready.revents & (POLLHUP | POLLERR)) != 0) return disconnect();
  const bool alive =
      (ready.fd == client_ ? receive(client_, to_terminal_) : receive(terminal_, to_client_)) &&
      send(terminal_, to_terminal_) && send(client_, to_client_);
  if (!alive) disconnect();
}

void TcpPort::accept_client() {
  const int client = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (client < 0) return;
  const int terminal = client_ < 0 ? open_terminal(terminal_path_()) : -1;
  if (terminal < 0) {
    close(client);
    return;
  }
  const int on = 1;
  setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  client_ = client;
  terminal_ = terminal;
}

void TcpPort::disconnect() {
  if (client_ >= 0) close(client_);
  if (terminal_ >= 0) close(terminal_);
  client_ = terminal_ = -1;
  to_terminal_.clear();
  to_client_.clear();
}

bool TcpPort::receive(int fd, std::string& held) {
  if (!held.empty()) return true;
  std::array<char, 16'384> buffer;
  const ssize_t count = read(fd, buffer.data(), buffer.size());
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  held.append(buffer.data(), static_cast<std::size_t>(count));
  return count > 0;
}

bool TcpPort::send(int fd, std::string& held) {
  while (!held.empty()) {
    const ssize_t count = write(fd, held.data(), held.size());
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    held.erase(0, static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace emulator
