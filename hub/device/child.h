// The device child as the desk sees it: a process that makes one call at a time and may die at any moment.
#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "hub/device/messages.h"

namespace hub {

struct ChildSettings {
  std::filesystem::path program, folder, locks;
  std::string library;
};

class Child {
 public:
  Child(boost::asio::any_io_executor executor, ChildSettings settings);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool alive() const { return process_ >= 0; }
  // Starts it on a port. What it says then is ready, held or failed; in the latter cases it is gone.
  boost::asio::awaitable<ChildAnswer> start(const std::filesystem::path& port);
  // None: it died, hung longer than the limit and was killed, or said what no child says.
  boost::asio::awaitable<std::optional<ChildAnswer>> ask(const ChildOrder& order, std::chrono::seconds limit);
  void kill();

 private:
  boost::asio::awaitable<std::optional<ChildAnswer>> hear(std::chrono::seconds limit);
  boost::asio::awaitable<std::optional<ChildAnswer>> read_answer();
  bool spawn(const std::filesystem::path& port);

  ChildSettings settings_;
  boost::asio::local::stream_protocol::socket socket_;
  int process_ = -1;  // pidfd
};

}  // namespace hub
