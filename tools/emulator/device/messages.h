// The texts of return codes and of the tax authority's notices.
#pragma once

#include <optional>
#include <string_view>

namespace emulator {

std::string_view return_code_message(int code);
// Nothing for a code without a notice.
std::optional<std::string_view> sefaz_notice(int code);

}  // namespace emulator
