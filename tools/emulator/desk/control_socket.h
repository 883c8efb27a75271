// The local socket on which orders arrive: several clients, a line each time. A client from which nothing
// comes for a while is closed, so that none keeps others out.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "line/waiter.h"

namespace emulator {

class ControlSocket : public SideChannel {
 public:
  // Answers a line with a line.
  using Execute = std::function<std::string(const std::string&)>;

  // Throws std::runtime_error. The left-over socket of a killed emulator is replaced, nothing else.
  ControlSocket(std::string path, Execute execute);
  ~ControlSocket() override;
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  void collect(std::vector<pollfd>& fds) const override;
  void serve(const pollfd& ready) override;
  Clock::time_point due() const override;
  void tick(Clock::time_point now) override;

  static constexpr std::chrono::seconds kIdleLimit{60};

 private:
  struct Client {
    std::string input;
    std::string output;
    Clock::time_point last_seen = Clock::now();
  };

  void accept_client();
  // False when the client has gone or misbehaves.
  bool read_from(int fd, Client& client);
  static bool write_to(int fd, Client& client);

  std::string path_;
  Execute execute_;
  int listener_ = -1;
  std::map<int, Client> clients_;
};

}  // namespace emulator
