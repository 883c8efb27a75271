#include "hub/http/answers.h"

#include <array>

#include "hub/encoding.h"
#include "hub/sat/reply.h"
#include "hub/text.h"
#include "satctl/calls/reply.h"

namespace hub {

namespace {

using nlohmann::json;

constexpr std::array<std::string_view, 7> kDeviceStates{"absent",      "silent",    "no-code", "other",
                                                        "finding-out", "undecided", "ready"};

int status_of(State state) {
  if (state == State::undecided) return 409;
  return is_settled(state) ? 200 : 202;
}

// The fields by the standard's names. Documents stay in the raw reply, where they are byte for byte.
json named_fields(const std::vector<std::string>& values) {
  json object = json::object();
  if (values.size() < 2) return object;
  for (const auto& field : satctl::name_fields(satctl::find_function_by_code(values[1]), values)) {
    if (field.kind == satctl::FieldKind::document || field.name.starts_with("campo")) continue;
    object[field.name] = utf8(field.value);
  }
  return object;
}

std::string title_of(int status) {
  switch (status) {
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 409:
      return "Conflict";
    case 413:
      return "Payload Too Large";
    case 421:
      return "Misdirected Request";
    case 422:
      return "Unprocessable Content";
    case 429:
      return "Too Many Requests";
    case 503:
      return "Service Unavailable";
    default:
      return "Error";
  }
}

}  // namespace

Response json_response(int status, const json& body) {
  Response response;
  response.status = status;
  response.body = body.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
  return response;
}

Response response_of(const Problem& problem) {
  json body{{"type", "about:blank"},
            {"title", title_of(problem.status)},
            {"status", problem.status},
            {"detail", problem.detail}};
  if (!problem.field.empty()) body["campo"] = problem.field;
  Response response = json_response(problem.status, body);
  response.type = "application/problem+json";
  if (problem.status == 401) response.headers.emplace_back("WWW-Authenticate", "Bearer");
  if (problem.status == 429) response.headers.emplace_back("Retry-After", "1");
  return response;
}

Response response_of(const Operation& operation) {
  return json_response(status_of(operation.state), fiscal_json(operation));
}

json fiscal_json(const Operation& operation) {
  json object{{"chave", operation.key},
              {"estado", name_of(operation.state)},
              {"tentativa", operation.attempt},
              {"equipamento", operation.serial}};
  if (!operation.receipt.empty()) object["chaveConsulta"] = "CFe" + operation.receipt;
  if (operation.state == State::done && !operation.reply.empty()) {
    object.update(reply_json(operation.reply_for_till()));
  } else if (!operation.reason.empty()) {
    object["motivo"] = utf8(operation.reason);
  }
  return object;
}

json operation_json(const Operation& operation, const std::string& till) {
  json object = fiscal_json(operation);
  object["id"] = operation.id;
  object["funcao"] = operation.function;
  object["caixa"] = till;
  object["motivo"] = utf8(operation.reason);
  object["criada"] = moment_text(operation.created);
  object["mudada"] = moment_text(operation.changed);
  if (operation.session > 0) object["sessaoDoEquipamento"] = six_digits(operation.session);
  return object;
}

json reply_json(const std::string& text) {
  const Reply reply(text);
  json object{{"retorno", base64(text)}, {"resposta", named_fields(reply.fields())}};
  if (reply.failure()) object["falha"] = *reply.failure();
  return object;
}

json device_json(const DeviceView& device, Instant now) {
  json object{{"equipamento", device.serial},
              {"estado", kDeviceStates.at(static_cast<std::size_t>(device.state))}};
  if (!device.trouble.empty()) object["motivo"] = device.trouble;
  if (device.status_read) {
    object["status"] = named_fields(device.status);
    object["idade"] = std::chrono::duration_cast<std::chrono::seconds>(now - *device.status_read).count();
  }
  return object;
}

json receipt_json(const Receipt& receipt) {
  return {{"chaveConsulta", "CFe" + receipt.key}, {"numero", receipt.number},
          {"valorTotalCFe", receipt.total},       {"caixa", receipt.till},
          {"equipamento", receipt.serial},        {"momento", moment_text(receipt.moment)}};
}

}  // namespace hub
