// Arguments of the SAT functions, as the user gives them.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "library/functions.h"
#include "library/library.h"

namespace satctl {

struct GivenArgument {
  std::string text;
  bool literal = false;  // to be sent as it is: neither @FILE nor -, and not checked for its form
};

// Whether the form of the value is checked, so that a literal one has an option of its own.
bool has_form(ParameterKind kind);

// The values to hand to the library: files read, states translated, everything checked that would break
// the command before it reaches the device. Throws UsageError.
std::vector<std::string> argument_values(const Library& library, const Function& function,
                                         const std::vector<GivenArgument>& given);

// The activation code: as given, or from SAT_CODIGO. Throws UsageError.
std::string activation_code_value(const std::string& given);

// The IBGE codes of the 27 states.
inline constexpr std::array kStateCodes{11, 12, 13, 14, 15, 16, 17, 21, 22, 23, 24, 25, 26, 27,
                                        28, 29, 31, 32, 33, 35, 41, 42, 43, 50, 51, 52, 53};

// By IBGE code or two letters.
std::optional<int> find_state(const Library& library, const std::string& text);

}  // namespace satctl
