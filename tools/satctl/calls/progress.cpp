#include "calls/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

#include "terminal/settings.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kQuietAtFirst{400};
constexpr milliseconds kRefresh{250};
constexpr std::string_view kClearLine = "\r\033[K";

constexpr Text kSearching{"looking for the device", "procurando o equipamento"};
constexpr Text kWaiting{"waiting for the device at {}", "aguardando o equipamento em {}"};
constexpr Text kProgressLine{"{} {}: {} s of at most {} s, {}", "{} {}: {} s de no máximo {} s, {}"};

constexpr Text kInterrupted{"satctl: interrupted; the port is unlocked. {}",
                            "satctl: interrompido; a porta está liberada. {}"};
constexpr Text kHarmless{"{} changes nothing in the device and can be repeated.",
                         "{} não altera nada no equipamento e pode ser repetida."};
constexpr Text kLookUp{
    "The outcome of {} is unknown. To find out: satctl consultar-numero-sessao --numero {}",
    "O resultado de {} é desconhecido. Para descobrir: satctl consultar-numero-sessao --numero {}"};
constexpr Text kRecover{
    "The outcome of {} is unknown; do not send it again before you know. "
    "To find out: satctl recuperar --sessao {}",
    "O resultado de {} é desconhecido; não reenvie antes de saber. "
    "Para descobrir: satctl recuperar --sessao {}"};

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};

// Ready before the signal comes: the handler only writes.
std::string g_notice;
std::array<struct sigaction, kSignals.size()> g_former_actions;

void write_to_terminal(std::string_view text) {
  [[maybe_unused]] const ssize_t ignored = write(error_descriptor(), text.data(), text.size());
}

void end_with_notice(int signal_number) {
  write_to_terminal(g_notice);
  std::signal(signal_number, SIG_DFL);
  std::raise(signal_number);
}

// The port, once the library has opened it: the descriptor says so, no library call does.
std::string open_port() {
  namespace fs = std::filesystem;
  std::error_code error;
  const auto name = read_file(kPortFile);
  const fs::path port = fs::canonical(name.value_or(""), error);
  if (error) return {};
  for (const auto& entry : fs::directory_iterator("/proc/self/fd", error)) {
    std::error_code closed_meanwhile;
    if (fs::read_symlink(entry.path(), closed_meanwhile) == port) return port.string();
  }
  return {};
}

std::size_t terminal_width() {
  constexpr std::size_t kUsualWidth = 80;
  winsize size{};
  return ioctl(error_descriptor(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

// Cut to one line of the terminal, never inside a character.
std::string one_line(std::string text) {
  const std::size_t room = terminal_width() - 1;
  std::size_t characters = 0, end = 0;
  while (end < text.size()) {
    const bool starts_character = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
    if (starts_character && ++characters > room) break;
    ++end;
  }
  text.resize(end);
  return text;
}

}  // namespace

std::string how_to_find_out(const Function& function, int session) {
  const std::string number = std::to_string(session);
  switch (function.effect) {
    case Effect::none:
      return fill(kHarmless, {function.name});
    case Effect::change:
      return fill(kLookUp, {function.name, number});
    case Effect::fiscal:
      return fill(kRecover, {function.name, number});
  }
  return {};
}

Progress::Progress(const Function& function, int session, int limit_seconds)
    : function_(function), session_(session), limit_seconds_(limit_seconds) {
  if (error_is_terminal()) thread_ = std::thread(&Progress::show_until_done, this);
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    done_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void Progress::show_until_done() {
  const auto start = steady_clock::now();
  std::unique_lock lock(mutex_);
  if (changed_.wait_for(lock, kQuietAtFirst, [this] { return done_; })) return;
  do {
    const std::string port = open_port();
    const std::string doing = port.empty() ? tr(kSearching) : fill(kWaiting, {port});
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - start);
    write_to_terminal(std::string(kClearLine) +
                      one_line(fill(kProgressLine, {function_.name, std::to_string(session_),
                                                    std::to_string(elapsed.count()),
                                                    std::to_string(limit_seconds_), doing})));
  } while (!changed_.wait_for(lock, kRefresh, [this] { return done_; }));
  write_to_terminal(kClearLine);
}

InterruptNotice::InterruptNotice(const Function& function, int session) {
  g_notice = std::string(error_is_terminal() ? kClearLine : "") +
             fill(kInterrupted, {how_to_find_out(function, session)}) + '\n';
  struct sigaction action {};
  action.sa_handler = end_with_notice;
  for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &action, &g_former_actions[i]);
}

InterruptNotice::~InterruptNotice() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &g_former_actions[i], nullptr);
}

}  // namespace satctl
