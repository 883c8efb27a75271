// Commands that ask the hub at work.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "hub/settings.h"

namespace hub {

struct HubAnswer {
  int status = 0;
  nlohmann::json body;
  // In words, for a problem.
  std::string detail() const { return body.value("detail", std::string()); }
};

HubAnswer ask_hub(const Settings& settings, const std::string& method, const std::string& target,
                  const nlohmann::json& body = nullptr);

}  // namespace hub
