// The messages of the trace log as the library's own format strings, and what may be shown of each value in
// them.
#pragma once

#include <array>
#include <span>
#include <string_view>

namespace masking {

// Of texts. Numbers are shown, except bytes and the digits of a taxpayer's number.
enum class Quoted {
  nothing,  // there is no such text in the format
  hidden,
  path,      // a port, file or folder that SAT.ini or the library names
  function,  // of the standard or the library
  name,      // a section or item of SAT.ini
  setting,   // a value of SAT.ini
  constant,  // one of the library's own texts
  error,     // a text of the C library
  command,
  reply,
  packet,    // a command or a reply
  log_line,  // of the protocol log
  argument,  // field of a command; the format's first number is its place
  answer,    // field of a reply
  session,
  return_code,
  notice_code,
  message,
};

enum class Numbers { shown, hidden };

struct TraceLine {
  std::string_view format;
  std::array<Quoted, 5> texts{};
  Numbers numbers = Numbers::shown;
};

std::span<const TraceLine> trace_lines();
// Failures that the library puts in the place of a reply.
std::span<const TraceLine> failure_texts();

}  // namespace masking
