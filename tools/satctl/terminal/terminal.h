// Standard output and error. The library prints diagnostics of its own to both; they are kept apart, so
// that --json and --raw are exact.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace satctl {

enum class Colour { plain, bold, red, green, yellow, dim };

// Takes the process's standard output and error for satctl alone; the library gets /dev/null while a
// LibraryOutputSilenced lives.
void claim_terminal();

void print(std::string_view text);  // to standard output
void print_line(std::string_view text);
void print_error(std::string_view text);  // a line to standard error

bool output_is_terminal();
bool error_is_terminal();
int error_descriptor();

// The text in colour, if standard output is a terminal and NO_COLOR is not set.
std::string coloured(Colour colour, std::string_view text);

// Whether everything printed so far has reached standard output.
bool output_arrived();

class LibraryOutputSilenced {
 public:
  LibraryOutputSilenced();
  ~LibraryOutputSilenced();
  LibraryOutputSilenced(const LibraryOutputSilenced&) = delete;
  LibraryOutputSilenced& operator=(const LibraryOutputSilenced&) = delete;
};

}  // namespace satctl
