// The port over TCP, for a till on another machine or in a container: what one client sends goes into the
// pseudo-terminal as a till's bytes would, and what comes out of it goes back. One till at a time: while a
// client is connected the pseudo-terminal is locked, and while another till holds that lock clients are
// turned away.
#pragma once

#include <functional>
#include <string>

#include "line/waiter.h"

namespace emulator {

struct TcpAddress {
  std::string host;  // a numeric address
  std::string port;
};
// "ADDRESS:PORT", "[ADDRESS]:PORT" or "PORT", which is on the loopback. Throws std::invalid_argument.
TcpAddress tcp_address(const std::string& text);

class TcpPort : public SideChannel {
 public:
  // `terminal_path` is asked anew for each client: an unplugged device comes back elsewhere. Throws
  // std::runtime_error.
  TcpPort(const TcpAddress& address, std::function<std::string()> terminal_path);
  ~TcpPort() override;
  TcpPort(const TcpPort&) = delete;
  TcpPort& operator=(const TcpPort&) = delete;

  void collect(std::vector<pollfd>& fds) const override;
  void serve(const pollfd& ready) override;

  // "127.0.0.1:9100", with the number that port 0 was given.
  std::string address() const;

 private:
  void accept_client();
  void disconnect();
  // Moves what can be moved in one direction; false when that end has gone.
  static bool receive(int fd, std::string& held);
  static bool send(int fd, std::string& held);

  std::function<std::string()> terminal_path_;
  int listener_ = -1;
  int client_ = -1;
  int terminal_ = -1;
  std::string to_terminal_;
  std::string to_client_;
};

}  // namespace emulator
