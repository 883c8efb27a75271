// Base64, digests, random bytes, and text of unknown code page made fit for JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hub/moment.h"

namespace hub {

std::string base64(std::string_view bytes);
// Strict: no blanks, no line breaks, whole groups. A receipt's own base64 may have line breaks: see the next
// one.
std::optional<std::string> from_base64(std::string_view text);
std::optional<std::string> from_wrapped_base64(std::string_view text);

std::string sha256(std::string_view bytes);  // 32 bytes
std::string hexadecimal(std::string_view bytes);
std::string random_bytes(std::size_t count);  // fit for secrets
int random_number(int first, int last);       // both included

// UTF-8 stays as it is; anything else is taken for code page 1252, which most tills and devices speak.
std::string utf8(std::string_view bytes);

// Seconds since 1970 as "2026-03-01T10:20:30Z", and back from that or from a date alone.
std::string moment_text(Moment seconds);
std::optional<Moment> moment_from(std::string_view text);

}  // namespace hub
