#include "desk/control_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace emulator {

namespace {

constexpr std::size_t kLongestLine = 65'536;
constexpr std::size_t kMostClients = 32;

[[noreturn]] void fail(const std::string& path, int error) {
  throw std::runtime_error("cannot open the control socket " + path + ": " +
                           std::generic_category().message(error));
}

// A listener whose queue is full lets nobody in, but it listens.
bool somebody_listens(const sockaddr_un& address) {
  const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const bool answered =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN;
  close(probe);
  return answered;
}

}  // namespace

ControlSocket::ControlSocket(std::string path, Execute execute)
    : path_(std::move(path)), execute_(std::move(execute)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof address.sun_path) fail(path_, ENAMETOOLONG);
  std::memcpy(address.sun_path, path_.c_str(), path_.size());
  if (std::filesystem::is_socket(path_) && !somebody_listens(address)) std::filesystem::remove(path_);

  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  // Whoever may connect decides what the device does: its owner only.
  const mode_t former = umask(0177);
  const int bound = bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int error = errno;
  umask(former);
  if (bound != 0 || listen(listener_, 8) != 0) {
    close(listener_);
    fail(path_, error);
  }
}

ControlSocket::~ControlSocket() {
  for (const auto& [fd, client] : clients_) close(fd);
  close(listener_);
  unlink(path_.c_str());
}

void ControlSocket::collect(std::vector<pollfd>& fds) const {
  fds.push_back({listener_, POLLIN, 0});
  for (const auto& [fd, client] : clients_) {
    fds.push_back({fd, static_cast<short>(client.output.empty() ? POLLIN : POLLOUT), 0});
  }
}

void ControlSocket::serve(const pollfd& ready) {
  if (ready.fd == listener_) return accept_client();
  const auto client = clients_.find(ready.fd);
  if (client == clients_.end()) return;
  const bool alive = (client->second.output.empty() ? read_from(ready.fd, client->second) : true) &&
                     write_to(ready.fd, client->second);
  if (alive) return;
  close(ready.fd);
  clients_.erase(client);
}

Clock::time_point ControlSocket::due() const {
  auto first = Clock::time_point::max();
  for (const auto& [fd, client] : clients_) first = std::min(first, client.last_seen + kIdleLimit);
  return first;
}

void ControlSocket::tick(Clock::time_point now) {
  std::erase_if(clients_, [now](const auto& entry) {
    const bool idle = now - entry.second.last_seen >= kIdleLimit;
    if (idle) close(entry.first);
    return idle;
  });
}

void ControlSocket::accept_client() {
  const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd < 0) return;
  if (clients_.size() >= kMostClients) {
    close(fd);
    return;
  }
  clients_.emplace(fd, Client{});
}

bool ControlSocket::read_from(int fd, Client& client) {
  std::array<char, 4'096> buffer;
  const ssize_t count = recv(fd, buffer.data(), buffer.size(), 0);
  if (count < 0) return errno == EAGAIN || errno == EINTR;
  client.last_seen = Clock::now();
  client.input.append(buffer.data(), static_cast<std::size_t>(count));
  for (std::size_t end = 0; (end = client.input.find('\n')) != std::string::npos;) {
    const std::string line = client.input.substr(0, end);
    client.input.erase(0, end + 1);
    client.output += execute_(line) + "\n";
  }
  // A client that closed its side after its last order still gets the answer.
  return client.input.size() <= kLongestLine && (count > 0 || !client.output.empty());
}

bool ControlSocket::write_to(int fd, Client& client) {
  while (!client.output.empty()) {
    const ssize_t count = send(fd, client.output.data(), client.output.size(), MSG_NOSIGNAL);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    client.last_seen = Clock::now();
    client.output.erase(0, static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace emulator
