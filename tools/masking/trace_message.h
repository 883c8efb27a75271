// Messages of the trace log taken apart by the formats that the library writes them with.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "masking/trace_lines.h"

namespace masking {

// A message behind its time and level. One that the library does not write shows its length only.
std::string masked_message(std::string_view message);

// A failure that the library puts in the place of a reply; nothing for any other text.
std::optional<std::string> masked_failure_text(std::string_view text);

// A line of the protocol log, and the mark behind its bracket.
std::string masked_log_line(std::string_view line);
std::string masked_mark(std::string_view mark);

// A path without the runs of digits that could be somebody's number; hidden when it has unusual characters.
std::string masked_path(std::string_view path);
// A value of SAT.ini: a number, a line setting or a path.
std::string masked_setting(std::string_view value);

// Calls use(kind, place, text) for each text that the message quotes; place is the message's first number.
using QuotationUse = std::function<void(Quoted, long place, std::string_view text)>;
void for_each_quotation(std::string_view message, const QuotationUse& use);

}  // namespace masking
