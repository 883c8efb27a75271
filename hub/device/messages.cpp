#include "hub/device/messages.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "hub/encoding.h"

namespace hub {

namespace {

using nlohmann::json;

constexpr std::array<std::string_view, 6> kAnswerNames{"ready", "failed",       "held",
                                                       "reply", "port_changed", "locked"};

json parsed(std::string_view text) {
  return json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
}

std::optional<std::string> text_of(const json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::optional<std::string> bytes_of(const json& value) {
  if (!value.is_string()) return std::nullopt;
  return from_base64(value.get_ref<const std::string&>());
}

}  // namespace

std::string encode(const ChildOrder& order) {
  if (order.kind == ChildOrder::Kind::lock_serial) return json{{"lock_serial", order.serial}}.dump();
  json values = json::array();
  for (const std::string& value : order.values) values.push_back(base64(value));
  return json{{"call", order.function}, {"session", order.session}, {"values", values}}.dump();
}

std::string encode(const ChildAnswer& answer) {
  return json{{"is", kAnswerNames[static_cast<std::size_t>(answer.kind)]},
              {"text", base64(answer.text)},
              {"port_changed", answer.port_changed}}
      .dump();
}

std::optional<ChildOrder> decode_order(std::string_view text) {
  const json object = parsed(text);
  if (!object.is_object()) return std::nullopt;
  ChildOrder order;
  if (const auto serial = text_of(object, "lock_serial")) {
    order.kind = ChildOrder::Kind::lock_serial;
    order.serial = *serial;
    return order;
  }
  const auto function = text_of(object, "call");
  const auto session = object.find("session");
  const auto values = object.find("values");
  if (!function || session == object.end() || !session->is_number_integer() || values == object.end() ||
      !values->is_array()) {
    return std::nullopt;
  }
  order.function = *function;
  order.session = session->get<int>();
  for (const json& value : *values) {
    const auto bytes = bytes_of(value);
    if (!bytes) return std::nullopt;
    order.values.push_back(*bytes);
  }
  return order;
}

std::optional<ChildAnswer> decode_answer(std::string_view text) {
  const json object = parsed(text);
  if (!object.is_object()) return std::nullopt;
  const auto name = text_of(object, "is");
  const auto bytes = object.find("text");
  const auto changed = object.find("port_changed");
  if (!name || bytes == object.end() || changed == object.end() || !changed->is_boolean())
    return std::nullopt;
  const auto found = std::find(kAnswerNames.begin(), kAnswerNames.end(), *name);
  const auto content = bytes_of(*bytes);
  if (found == kAnswerNames.end() || !content) return std::nullopt;
  return ChildAnswer{static_cast<ChildAnswer::Kind>(found - kAnswerNames.begin()), *content,
                     changed->get<bool>()};
}

std::string framed(const std::string& message) {
  std::string frame;
  for (int shift = 24; shift >= 0; shift -= 8) frame += static_cast<char>(message.size() >> shift & 0xFF);
  return frame + message;
}

std::optional<std::size_t> length_in(std::string_view four_bytes) {
  std::size_t length = 0;
  for (const char c : four_bytes) length = length << 8 | static_cast<unsigned char>(c);
  if (four_bytes.size() != kLengthBytes || length > kLongestMessage) return std::nullopt;
  return length;
}

}  // namespace hub
