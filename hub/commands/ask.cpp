#include "hub/commands/ask.h"

#include "hub/http/wire.h"

namespace hub {

HubAnswer ask_hub(const Settings& settings, const std::string& method, const std::string& target,
                  const nlohmann::json& body) {
  const Response response = ask_hub(settings.socket, method, target, body.is_null() ? "" : body.dump());
  auto answer = nlohmann::json::parse(response.body, nullptr, /*allow_exceptions=*/false);
  return {response.status, answer.is_object() ? std::move(answer) : nlohmann::json::object()};
}

}  // namespace hub
