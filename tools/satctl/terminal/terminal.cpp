#include "terminal/terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>

namespace satctl {

namespace {

constexpr int kStandardOutput = 1, kStandardError = 2;

int g_output = kStandardOutput, g_error = kStandardError, g_null = -1;
bool g_output_failed = false;

constexpr const char* kSequences[] = {"", "\033[1m", "\033[31m", "\033[32m", "\033[33m", "\033[2m"};

bool write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool colours_wanted() {
  const char* no_color = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return output_is_terminal() && (no_color == nullptr || *no_color == '\0') &&
         (terminal == nullptr || std::string_view(terminal) != "dumb");
}

}  // namespace

void claim_terminal() {
  g_null = open("/dev/null", O_RDWR | O_CLOEXEC);
  const int output = fcntl(kStandardOutput, F_DUPFD_CLOEXEC, 3);
  const int error = fcntl(kStandardError, F_DUPFD_CLOEXEC, 3);
  if (output >= 0) g_output = output;
  if (error >= 0) g_error = error;
}

void print(std::string_view text) {
  if (!write_all(g_output, text)) g_output_failed = true;
}

void print_line(std::string_view text) {
  print(std::string(text) + '\n');
}

void print_error(std::string_view text) {
  write_all(g_error, std::string(text) + '\n');
}

bool output_is_terminal() {
  return isatty(g_output) == 1;
}
bool error_is_terminal() {
  return isatty(g_error) == 1;
}
int error_descriptor() {
  return g_error;
}
bool output_arrived() {
  return !g_output_failed;
}

std::string coloured(Colour colour, std::string_view text) {
  static const bool wanted = colours_wanted();
  if (!wanted || colour == Colour::plain) return std::string(text);
  return std::string(kSequences[static_cast<std::size_t>(colour)]).append(text).append("\033[0m");
}

LibraryOutputSilenced::LibraryOutputSilenced() {
  if (g_null < 0) return;
  dup2(g_null, kStandardOutput);
  dup2(g_null, kStandardError);
}

LibraryOutputSilenced::~LibraryOutputSilenced() {
  std::fflush(stdout);
  if (g_output != kStandardOutput) dup2(g_output, kStandardOutput);
  if (g_error != kStandardError) dup2(g_error, kStandardError);
}

}  // namespace satctl
