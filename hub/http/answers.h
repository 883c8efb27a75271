// Records as the JSON that tills and people get.
#pragma once

#include <nlohmann/json.hpp>

#include "hub/broker/broker.h"
#include "hub/desk/device_view.h"
#include "hub/http/messages.h"

namespace hub {

Response json_response(int status, const nlohmann::json& body);

// As its till sees it: 200 settled or expired, 202 while it goes on, 409 undecided.
Response response_of(const Operation& operation);
nlohmann::json fiscal_json(const Operation& operation);
// As a supervisor sees it.
nlohmann::json operation_json(const Operation& operation, const std::string& till);

// A reply, raw and taken apart.
nlohmann::json reply_json(const std::string& reply);
nlohmann::json device_json(const DeviceView& device, Instant now);
nlohmann::json receipt_json(const Receipt& receipt);

}  // namespace hub
