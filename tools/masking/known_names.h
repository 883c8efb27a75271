// Names that the library itself writes into its logs.
#pragma once

#include <string_view>

namespace masking {

bool is_sat_function(std::string_view name);      // of the standard
bool is_library_function(std::string_view name);  // in the head of a message
bool is_source_path(std::string_view path);
bool is_configuration_name(std::string_view name);  // a section or an item of SAT.ini

}  // namespace masking
