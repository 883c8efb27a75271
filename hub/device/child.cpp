#include "hub/device/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <csignal>

// glibc 2.36 has forgotten that C++ includes it too.
extern "C" {
#include <sys/pidfd.h>
}

namespace hub {

namespace asio = boost::asio;
using asio::awaitable;
using asio::use_awaitable;
using namespace asio::experimental::awaitable_operators;

namespace {

constexpr std::chrono::seconds kStartLimit{10};

// Between fork and exec; what fails here shows as a child that ends at once.
[[noreturn]] void become(const std::string& program, int hub, char* const* arguments) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGPIPE, SIG_DFL);
  signal(SIGCHLD, SIG_DFL);  // the library waits for programs of its own
  dup2(hub, STDIN_FILENO);
  execv(program.c_str(), arguments);
  _exit(127);
}

}  // namespace

Child::Child(asio::any_io_executor executor, ChildSettings settings)
    : settings_(std::move(settings)), socket_(std::move(executor)) {}

Child::~Child() {
  kill();
}

void Child::kill() {
  if (process_ < 0) return;
  pidfd_send_signal(process_, SIGKILL, nullptr, 0);
  close(process_);
  process_ = -1;
  boost::system::error_code ignored;
  socket_.close(ignored);
}

bool Child::spawn(const std::filesystem::path& port) {
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return false;
  const std::string parent = std::to_string(getpid());
  const char* arguments[] = {settings_.program.c_str(),
                             parent.c_str(),
                             port.c_str(),
                             settings_.folder.c_str(),
                             settings_.locks.c_str(),
                             settings_.library.c_str(),
                             nullptr};
  const pid_t pid = fork();
  if (pid == 0) become(settings_.program.string(), pair[1], const_cast<char* const*>(arguments));
  close(pair[1]);
  if (pid > 0) process_ = pidfd_open(pid, 0);
  if (process_ < 0) {
    close(pair[0]);
    return false;
  }
  socket_.assign(asio::local::stream_protocol(), pair[0]);
  return true;
}

awaitable<ChildAnswer> Child::start(const std::filesystem::path& port) {
  kill();
  if (!spawn(port)) co_return ChildAnswer{ChildAnswer::Kind::failed, "no process", false};
  const auto said = co_await hear(kStartLimit);
  if (said && said->kind == ChildAnswer::Kind::ready) co_return *said;
  kill();
  co_return said.value_or(ChildAnswer{ChildAnswer::Kind::failed, settings_.program.string(), false});
}

awaitable<std::optional<ChildAnswer>> Child::ask(const ChildOrder& order, std::chrono::seconds limit) {
  const std::string frame = framed(encode(order));
  const auto [error, length] =
      co_await asio::async_write(socket_, asio::buffer(frame), asio::as_tuple(use_awaitable));
  if (error) {
    kill();
    co_return std::nullopt;
  }
  co_return co_await hear(limit);
}

awaitable<std::optional<ChildAnswer>> Child::hear(std::chrono::seconds limit) {
  asio::steady_timer timer(socket_.get_executor(), limit);
  const auto first = co_await (read_answer() || timer.async_wait(use_awaitable));
  auto said = first.index() == 0 ? std::get<0>(first) : std::nullopt;
  if (!said) kill();
  co_return said;
}

awaitable<std::optional<ChildAnswer>> Child::read_answer() {
  std::string text(kLengthBytes, '\0');
  const auto [error, count] =
      co_await asio::async_read(socket_, asio::buffer(text), asio::as_tuple(use_awaitable));
  const auto length = error ? std::nullopt : length_in(text);
  if (!length) co_return std::nullopt;
  text.resize(*length);
  const auto [broken, read] =
      co_await asio::async_read(socket_, asio::buffer(text), asio::as_tuple(use_awaitable));
  if (broken) co_return std::nullopt;
  co_return decode_answer(text);
}

}  // namespace hub
