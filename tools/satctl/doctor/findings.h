// The findings of satctl doctor as text and as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "doctor/doctor.h"

namespace satctl {

Grade worst(const std::vector<Finding>& findings);
std::string as_text(const std::vector<Finding>& findings, bool in_colour);
nlohmann::ordered_json as_json(const std::vector<Finding>& findings);

}  // namespace satctl
