// HTTP on loopback and on a Unix socket. The one source file behind this header knows Beast.
#pragma once

#include <boost/asio/io_context.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "hub/http/api.h"

namespace hub {

class Server {
 public:
  Server(boost::asio::io_context& context, Api& api);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // "127.0.0.1:8360", port 0 for any. Returns the address with the port it got. Loopback only: this hub
  // speaks no TLS.
  std::string listen(const std::string& address);
  void listen(const std::filesystem::path& socket);
  void stop();

 private:
  class Connections;
  boost::asio::io_context& context_;
  std::shared_ptr<Connections> connections_;
};

class ListenError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class NoHubError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One request to the running hub, over its Unix socket. Throws NoHubError if nobody is there.
Response ask_hub(const std::filesystem::path& socket, const std::string& method, const std::string& target,
                 const std::string& body);

}  // namespace hub
