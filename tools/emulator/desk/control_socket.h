// The local socket on which orders arrive: any number of clients, a line each time.
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

 private:
  struct Client {
    std::string input;
    std::string output;
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
