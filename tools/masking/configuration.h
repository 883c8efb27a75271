// SAT.ini, and texts of satctl's own.
#pragma once

#include <string>
#include <string_view>

namespace masking {

// Known sections and items with their values; of everything else the length. Line for line.
std::string masked_configuration(std::string_view text);

// Without the runs of eleven digits and more, whatever punctuation stands between them.
std::string without_long_numbers(std::string_view text);

}  // namespace masking
