// Bytes from devices and logs, made safe for a terminal and for JSON.
#pragma once

#include <string>
#include <string_view>

namespace satctl {

enum class Layout { single_line, keep_lines };

// Valid UTF-8 passes; control characters and other bytes become \xNN.
std::string printable(std::string_view bytes, Layout layout = Layout::single_line);

// Valid UTF-8 passes, control characters too (JSON escapes them itself); other bytes become \xNN.
std::string valid_utf8(std::string_view bytes);

}  // namespace satctl
