#include "hub/http/api.h"

#include <algorithm>
#include <charconv>

#include "hub/encoding.h"
#include "hub/http/answers.h"
#include "hub/text.h"

namespace hub {

namespace {

using nlohmann::json;

constexpr unsigned kSellers = kTill | kAdministrator;
constexpr unsigned kLookers = kViewer | kSupervisor | kAdministrator;
constexpr unsigned kEverybody = kTill | kLookers;
constexpr std::chrono::seconds kQuestionLimit{60};
constexpr int kMostOperations = 1000;

Response problem(int status, const Text& detail, const std::string& field = {}) {
  return response_of(Problem{status, tr(detail), field});
}

Response journal_failed(const JournalError& error) {
  return response_of(Problem{503,
                             fill({"the journal cannot be used: {}", "o diário não pode ser usado: {}"},
                                  {std::string_view(error.what())}),
                             {}});
}

Response not_found() {
  return problem(404, {"there is nothing of that name", "não existe nada com esse nome"});
}

std::vector<std::string> split_path(std::string_view path) {
  std::vector<std::string> segments;
  while (!path.empty()) {
    path.remove_prefix(1);
    const auto slash = path.find('/');
    segments.emplace_back(path.substr(0, slash));
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash);
  }
  return segments;
}

// What stands in the places; none if the path does not fit.
std::optional<std::vector<std::string>> arguments_in(std::string_view pattern,
                                                     const std::vector<std::string>& segments) {
  const auto wanted = split_path(pattern);
  if (wanted.size() != segments.size()) return std::nullopt;
  std::vector<std::string> arguments;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (wanted[i] == "{}")
      arguments.push_back(segments[i]);
    else if (wanted[i] != segments[i])
      return std::nullopt;
  }
  return arguments;
}

std::optional<OperationId> id_in(const std::string& text) {
  OperationId id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc{} || end != text.data() + text.size() || id <= 0) return std::nullopt;
  return id;
}

std::string without_port(std::string host) {
  const auto colon = host.rfind(':');
  const auto bracket = host.rfind(']');
  if (colon != std::string::npos && (bracket == std::string::npos || colon > bracket)) host.resize(colon);
  return host;
}

}  // namespace

Api::Api(Journal& journal, Broker& broker, const DeviceView& device)
    : journal_(journal), broker_(broker), device_(device) {}

const std::vector<Api::Route>& Api::routes() {
  static const std::vector<Route> table{
      {"PUT", "/v1/vendas/{}", kSellers, &Api::put_sale},
      {"GET", "/v1/vendas/{}", kSellers, &Api::get_sale},
      {"DELETE", "/v1/vendas/{}", kSellers, &Api::delete_sale},
      {"PUT", "/v1/cancelamentos/{}", kSellers, &Api::put_cancellation},
      {"GET", "/v1/cancelamentos/{}", kSellers, &Api::get_cancellation},
      {"POST", "/v1/funcoes/{}", kSellers, &Api::post_function},
      {"GET", "/v1/equipamentos", kEverybody, &Api::get_devices},
      {"GET", "/v1/equipamentos/{}", kEverybody, &Api::get_device},
      {"GET", "/v1/recibos", kEverybody, &Api::get_receipts},
      {"GET", "/v1/recibos/{}", kEverybody, &Api::get_receipt},
      {"GET", "/v1/operacoes", kLookers, &Api::get_operations},
      {"GET", "/v1/operacoes/{}", kEverybody, &Api::get_operation},
      {"POST", "/v1/operacoes/{}/decisao", kSupervisor | kAdministrator, &Api::post_decision},
      {"GET", "/healthz", 0, &Api::get_health},
  };
  return table;
}

std::vector<std::string> route_names() {
  std::vector<std::string> names;
  for (const auto& route : Api::routes()) names.push_back(std::string(route.method) + ' ' + route.path);
  return names;
}

// ---- From a request to its route ----

std::optional<Caller> Api::caller_of(const Request& request) {
  if (!request.token.empty()) return caller_with_token(journal_, request.token);
  if (request.local) return local_caller(journal_);
  return std::nullopt;
}

bool Api::host_allowed(const Request& request) const {
  if (!request.tcp) return true;
  const std::string name = without_port(request.host);
  return std::find(hosts_.begin(), hosts_.end(), name) != hosts_.end();
}

Reaction Api::react(const Request& request) {
  try {
    return dispatch(request);
  } catch (const JournalError& error) {
    return journal_failed(error);
  }
}

bool Api::is_over(const Wait& wait) const {
  try {
    return wait.over();
  } catch (const JournalError&) {
    return false;
  }
}

Response Api::finish(const Wait& wait) const {
  try {
    return wait.then();
  } catch (const JournalError& error) {
    return journal_failed(error);
  }
}

Reaction Api::dispatch(const Request& request) {
  if (!host_allowed(request)) {
    return problem(421, {"this hub is not known by that name", "este hub não é conhecido por esse nome"},
                   "Host");
  }
  auto parsed = parse_target(request.target);
  if (const auto* wrong = std::get_if<Problem>(&parsed)) return response_of(*wrong);
  const auto& target = std::get<Target>(parsed);
  std::string allowed;
  for (const Route& route : routes()) {
    auto arguments = arguments_in(route.path, target.segments);
    if (!arguments) continue;
    if (request.method != route.method) {
      allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
      continue;
    }
    std::optional<Caller> caller;
    if (route.roles != 0) {
      caller = caller_of(request);
      if (!caller) return problem(401, {"a token is needed", "é preciso um token"}, "Authorization");
      if ((caller->role & route.roles) == 0) {
        return problem(403, {"this role may not do that", "esse papel não pode fazer isso"});
      }
    }
    const Call call{caller ? &*caller : nullptr, &request, std::move(*arguments), target.query};
    return (this->*route.handle)(call);
  }
  if (allowed.empty()) return not_found();
  Response response = problem(405, {"not with this method", "não com esse método"});
  response.headers.emplace_back("Allow", allowed);
  return response;
}

// ---- Sales and cancellations ----

Reaction Api::put_sale(const Call& call) {
  return put(call, Fiscal::sale);
}
Reaction Api::put_cancellation(const Call& call) {
  return put(call, Fiscal::cancellation);
}
Reaction Api::get_sale(const Call& call) {
  return get(call, Fiscal::sale);
}
Reaction Api::get_cancellation(const Call& call) {
  return get(call, Fiscal::cancellation);
}

Reaction Api::put(const Call& call, Fiscal function) {
  const std::string& key = call.arguments.front();
  if (!is_key(key))
    return problem(
        400,
        {"the key must be 1 to 100 visible characters", "a chave deve ter de 1 a 100 caracteres visíveis"},
        "chave");
  auto parsed = parse_fiscal(function, call.request->body);
  if (const auto* wrong = std::get_if<Problem>(&parsed)) return response_of(*wrong);
  auto& body = std::get<FiscalBody>(parsed);
  body.request.key = key;
  const Receiving receiving = broker_.put(call.caller->till, body.request);
  switch (receiving.taken) {
    case Taken::other_body:
      return problem(422, {"the key stands for something else", "a chave é de outra operação"}, "chave");
    case Taken::too_many:
      return problem(429, {"four of this till wait already", "quatro desta caixa já esperam"});
    case Taken::refused:
      return response_of(Problem{503, receiving.reason, {}});
    case Taken::operation:
      break;
  }
  const Operation& operation = *receiving.operation;
  const bool over = is_settled(operation.state) || operation.state == State::undecided;
  // A late request of an attempt that is over asks for nothing, and so does not wait.
  if (over || body.wait.count() == 0 || body.request.attempt < operation.attempt)
    return response_of(operation);
  return wait_for(operation.id, body.wait);
}

Reaction Api::get(const Call& call, Fiscal function) {
  const auto wait = parse_wait(call.query);
  if (const auto* wrong = std::get_if<Problem>(&wait)) return response_of(*wrong);
  const auto operation = broker_.find(call.caller->till, function, call.arguments.front());
  if (!operation) return not_found();
  const auto most = std::get<std::chrono::seconds>(wait);
  const bool over = is_settled(operation->state) || operation->state == State::undecided;
  if (over || most.count() == 0) return response_of(*operation);
  return wait_for(operation->id, most);
}

Wait Api::wait_for(OperationId id, std::chrono::seconds most, bool by_id) {
  const auto over = [this, id] {
    const auto operation = broker_.find(id);
    return !operation || is_settled(operation->state) || operation->state == State::undecided;
  };
  const auto then = [this, id, by_id]() -> Response {
    const auto operation = broker_.find(id);
    if (!operation) return not_found();
    if (!by_id) return response_of(*operation);
    return json_response(is_settled(operation->state) ? 200 : 202, operation_json(*operation, {}));
  };
  return {id, most, over, then};
}

Reaction Api::delete_sale(const Call& call) {
  const std::string& key = call.arguments.front();
  if (!is_key(key))
    return problem(
        400,
        {"the key must be 1 to 100 visible characters", "a chave deve ter de 1 a 100 caracteres visíveis"},
        "chave");
  const Operation operation = *broker_.close(call.caller->till, Fiscal::sale, key).operation;
  const bool nothing_issued = is_settled(operation.state) && operation.receipt.empty() &&
                              !(operation.state == State::done && Reply(operation.reply).receipt());
  return json_response(nothing_issued ? 200 : 409, fiscal_json(operation));
}

// ---- Functions ----

Reaction Api::post_function(const Call& call) {
  const auto* function = satctl::find_function(call.arguments.front());
  if (function == nullptr || function->name != call.arguments.front()) return not_found();
  if (function->effect == satctl::Effect::fiscal) {
    return problem(404, {"sales and cancellations have routes of their own",
                         "vendas e cancelamentos têm rotas próprias"});
  }
  // A change of the code would leave the hub with the old one.
  if (function->name == std::string_view("TrocarCodigoDeAtivacao")) return not_found();
  if (function->effect == satctl::Effect::change && call.caller->role != kAdministrator) {
    return problem(403, {"for administrators only", "só para administradores"});
  }
  auto parsed = parse_function(*function, call.request->body);
  if (const auto* wrong = std::get_if<Problem>(&parsed)) return response_of(*wrong);
  const auto& request = std::get<FunctionRequest>(parsed);
  if (function->reply_session != satctl::ReplySession::own) return ask_journal(call, request);
  const auto job = broker_.ask(call.caller->till, request);
  if (!job) return problem(429, {"four of this till wait already", "quatro desta caixa já esperam"});
  if (*job > 0) {
    Response response = json_response(202, operation_json(*broker_.find(*job), call.caller->till.name));
    response.headers.emplace_back("Location", "/v1/operacoes/" + std::to_string(*job));
    return response;
  }
  const auto session = request.session;
  const auto then = [this, id = *job, session]() -> Response {
    const auto reply = broker_.answer(id);
    if (!reply) return problem(503, {"the device did not answer", "o equipamento não respondeu"});
    return json_response(200, reply_json(session ? under_session(*reply, *session) : *reply));
  };
  return Wait{*job, kQuestionLimit, [this, id = *job] { return broker_.is_answered(id); }, then};
}

// What the device remembers would be another till's.
Reaction Api::ask_journal(const Call& call, const FunctionRequest& request) {
  const int session = request.session.value_or(0);
  const Till& till = call.caller->till;
  const std::string reply = request.values.empty()
                                ? broker_.last_fiscal_reply(till, session)
                                : broker_.session_reply(till, session, std::stoi(request.values.front()));
  return json_response(200, reply_json(reply));
}

// ---- Looking ----

bool Api::may_see(const Caller& caller, TillId till) const {
  return caller.role != kTill || caller.till.id == till;
}

Reaction Api::get_devices(const Call& /*call*/) {
  return json_response(200, {{"equipamentos", json::array({device_json(device_, broker_.now())})}});
}

Reaction Api::get_device(const Call& call) {
  if (call.arguments.front() != device_.serial) return not_found();
  return json_response(200, device_json(device_, broker_.now()));
}

Reaction Api::get_receipts(const Call& call) {
  auto parsed = parse_receipt_search(call.query);
  if (const auto* wrong = std::get_if<Problem>(&parsed)) return response_of(*wrong);
  auto& search = std::get<ReceiptSearch>(parsed);
  if (call.caller->role == kTill) search.till = call.caller->till.name;
  json list = json::array();
  for (const Receipt& receipt : journal_.receipts(search)) list.push_back(receipt_json(receipt));
  return json_response(200, {{"recibos", list}});
}

Reaction Api::get_receipt(const Call& call) {
  constexpr std::string_view kXml = ".xml";
  std::string name = call.arguments.front();
  const bool document = name.ends_with(kXml);
  if (document) name.resize(name.size() - kXml.size());
  const auto key = AccessKey::parse(name);
  const auto receipt = key ? journal_.receipt(key->digits()) : std::nullopt;
  if (!receipt || (call.caller->role == kTill && receipt->till != call.caller->till.name)) return not_found();
  if (!document) {
    json object = receipt_json(*receipt);
    if (!receipt->reply.empty()) object.update(reply_json(receipt->reply));
    return json_response(200, object);
  }
  const auto xml = from_wrapped_base64(Reply(receipt->reply).field(field::kDocument));
  if (!xml || xml->empty()) return not_found();
  Response response;
  response.type = "application/xml";
  response.body = *xml;
  return response;
}

Reaction Api::get_operations(const Call& call) {
  const auto wanted = call.query.find("estado");
  if (wanted != call.query.end() && !state_named(wanted->second)) {
    return problem(400, {"there is no such state", "não existe esse estado"}, "estado");
  }
  const auto operations = wanted == call.query.end()
                              ? journal_.latest(kMostOperations)
                              : journal_.in_state(*state_named(wanted->second), kMostOperations);
  std::map<TillId, std::string> names;
  for (const Till& till : journal_.tills()) names[till.id] = till.name;
  json list = json::array();
  for (const Operation& operation : operations)
    list.push_back(operation_json(operation, names[operation.till]));
  return json_response(200, {{"operacoes", list}});
}

Reaction Api::get_operation(const Call& call) {
  const auto wait = parse_wait(call.query);
  if (const auto* wrong = std::get_if<Problem>(&wait)) return response_of(*wrong);
  const auto id = id_in(call.arguments.front());
  const auto operation = id ? broker_.find(*id) : std::nullopt;
  if (!operation || !may_see(*call.caller, operation->till)) return not_found();
  auto waiting = wait_for(*id, std::get<std::chrono::seconds>(wait), true);
  if (waiting.most.count() == 0 || waiting.over()) return waiting.then();
  return waiting;
}

Reaction Api::post_decision(const Call& call) {
  const auto id = id_in(call.arguments.front());
  if (!id || !broker_.find(*id)) return not_found();
  auto parsed = parse_settlement(call.request->body);
  if (const auto* wrong = std::get_if<Problem>(&parsed)) return response_of(*wrong);
  auto& settlement = std::get<Settlement>(parsed);
  settlement.who = call.caller->till.name;
  const std::string refusal = broker_.decide(*id, settlement);
  if (!refusal.empty()) return response_of(Problem{409, refusal, "decisao"});
  return json_response(200, operation_json(*broker_.find(*id), {}));
}

Reaction Api::get_health(const Call& /*call*/) {
  const std::string& refusal = broker_.refusal();
  json body{{"estado", refusal.empty() ? "ok" : "sem vendas"}};
  if (!refusal.empty()) body["motivo"] = refusal;
  return json_response(200, body);
}

}  // namespace hub
