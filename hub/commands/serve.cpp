// talvex-hub serve: puts the rooms together and runs the one event loop.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <csignal>

#include "hub/commands/commands.h"
#include "hub/desk/desk.h"
#include "hub/http/wire.h"
#include "satctl/terminal/terminal.h"

namespace hub {

namespace asio = boost::asio;
using asio::awaitable;

namespace {

// One hub for a state folder; the lock goes with the process.
bool lock_state(const std::filesystem::path& folder) {
  const int file = open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  return file >= 0 && flock(file, LOCK_EX | LOCK_NB) == 0;
}

std::filesystem::path child_program() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / "talvex-hub-device";
}

// What tills send and devices answer, and tokens on their way, are in this process's memory.
void keep_secrets() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  umask(S_IRWXG | S_IRWXO);
}

// Fed by the event loop: a loop that hangs is started anew. A disk that fails does not hang it.
awaitable<void> feed_watchdog(asio::io_context& context) {
  std::uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) co_return;
  asio::steady_timer timer(context);
  while (true) {
    sd_notify(0, "WATCHDOG=1");
    timer.expires_after(std::chrono::microseconds(microseconds / 3));
    co_await timer.async_wait(asio::as_tuple(asio::use_awaitable));
  }
}

// The call that is with the device is waited for; a second signal is not so patient.
awaitable<void> stop_on_signal(asio::signal_set& signals, Desk& desk, Server& server) {
  co_await signals.async_wait(asio::as_tuple(asio::use_awaitable));
  sd_notify(0, "STOPPING=1");
  server.stop();
  desk.stop();
  co_await signals.async_wait(asio::as_tuple(asio::use_awaitable));
  _exit(static_cast<int>(Exit::success));
}

awaitable<void> run_desk(Desk& desk, asio::io_context& context) {
  co_await desk.run();
  context.stop();
}

}  // namespace

Exit serve(const Settings& settings) {
  keep_secrets();
  signal(SIGPIPE, SIG_IGN);
  signal(SIGCHLD, SIG_IGN);  // nobody waits for the children: their sockets tell when they end
  std::filesystem::create_directories(settings.state);
  if (!lock_state(settings.state)) {
    satctl::print_error(fill({"talvex-hub: another hub works in {}", "talvex-hub: outro hub trabalha em {}"},
                             {settings.state.string()}));
    return Exit::listen;
  }
  Journal journal(settings.journal());
  Broker broker(journal, [] { return std::chrono::steady_clock::now(); });
  broker.load();

  asio::io_context context(1);
  Desk desk(context.get_executor(), journal, broker, settings, child_program());
  Api api(journal, broker, desk.view());
  Server server(context, api);
  std::string addresses;
  for (const std::string& address : settings.http) {
    addresses += (addresses.empty() ? "http://" : " http://") + server.listen(address);
  }
  server.listen(settings.socket);

  asio::signal_set signals(context, SIGINT, SIGTERM);
  asio::co_spawn(context, stop_on_signal(signals, desk, server), asio::detached);
  asio::co_spawn(context, feed_watchdog(context), asio::detached);
  asio::co_spawn(context, run_desk(desk, context), [](const std::exception_ptr& error) {
    if (error) std::rethrow_exception(error);
  });
  // Scripts wait for this line; it is not translated.
  satctl::print_line("listening on " + (addresses.empty() ? settings.socket.string() : addresses));
  sd_notify(0, "READY=1");
  context.run();
  return Exit::success;
}

void add_serve_command(CommandLine& line) {
  line.app.add_subcommand("serve", tr({"serve the tills", "atender os caixas"}))->callback([&line] {
    line.action = [&line] { return serve(line.settings()); };
  });
}

}  // namespace hub
