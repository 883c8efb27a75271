#include "hub/http/parsing.h"

#include <algorithm>
#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>
#include <charconv>
#include <nlohmann/json.hpp>

#include "hub/encoding.h"
#include "hub/text.h"

namespace hub {

namespace {

using nlohmann::json;

constexpr std::size_t kLongestKey = 100;
constexpr int kLongestPatience = 600;
constexpr int kLongestWait = 60;
constexpr int kLastSessionOfTill = 999'999;
constexpr int kMostAttempts = 1'000'000;
constexpr std::size_t kLongestText = 1000;  // of what a person writes
constexpr Moment kSecondsOfDay = Moment{24} * 60 * 60;

Problem missing(const std::string& field) {
  return {400, fill({"{} is missing", "falta {}"}, {field}), field};
}

Problem wrong(const std::string& field, const Text& what) {
  return {400, fill({"{} {}", "{} {}"}, {field, tr(what)}), field};
}

// One JSON object, whose fields are taken one by one. The first mistake is kept.
class Fields {
 public:
  explicit Fields(std::string_view text)
      : object_(json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false)) {
    if (!object_.is_object()) {
      fail({400, tr({"the body must be a JSON object", "o corpo deve ser um objeto JSON"}), {}});
    }
  }

  const std::optional<Problem>& problem() const { return problem_; }
  void fail(Problem problem) {
    if (!problem_) problem_ = std::move(problem);
  }

  const json* find(const std::string& name) const {
    if (!object_.is_object()) return nullptr;
    const auto found = object_.find(name);
    return found == object_.end() || found->is_null() ? nullptr : &*found;
  }

  std::string text(const std::string& name) {
    const json* value = find(name);
    if (value == nullptr) {
      fail(missing(name));
    } else if (!value->is_string()) {
      fail(wrong(name, {"must be a text", "deve ser um texto"}));
    } else if (value->get_ref<const std::string&>().find_first_of(std::string_view("\0\x03|", 3)) !=
               std::string::npos) {
      fail(
          wrong(name, {"holds a byte that no device takes", "contém um byte que nenhum equipamento aceita"}));
    } else {
      return value->get<std::string>();
    }
    return {};
  }

  // Bytes of a document. A zero byte or the end of a frame in it would cut the command short.
  std::string document(const std::string& name) {
    const json* value = find(name);
    if (value == nullptr) {
      fail(missing(name));
      return {};
    }
    const auto bytes = value->is_string() ? from_base64(value->get_ref<const std::string&>()) : std::nullopt;
    if (!bytes || bytes->empty()) {
      fail(wrong(name, {"must be base64", "deve ser base64"}));
    } else if (bytes->find_first_of(std::string_view("\0\x03", 2)) != std::string::npos) {
      fail(
          wrong(name, {"holds a byte that no device takes", "contém um byte que nenhum equipamento aceita"}));
    } else {
      return *bytes;
    }
    return {};
  }

  std::optional<int> number(const std::string& name, int least, int most) {
    const json* value = find(name);
    if (value == nullptr) return std::nullopt;
    const bool fits = value->is_number_unsigned() &&
                      value->get<std::uint64_t>() >= static_cast<unsigned>(least) &&
                      value->get<std::uint64_t>() <= static_cast<unsigned>(most);
    if (fits) return value->get<int>();
    fail({400,
          fill({"{} must be a whole number from {} to {}", "{} deve ser um número inteiro de {} a {}"},
               {name, std::to_string(least), std::to_string(most)}),
          name});
    return std::nullopt;
  }

  std::optional<int> session() { return number("numeroSessao", 0, kLastSessionOfTill); }

 private:
  json object_;
  std::optional<Problem> problem_;
};

template <typename T>
Parsed<T> result(const Fields& fields, T value) {
  if (fields.problem()) return *fields.problem();
  return value;
}

bool is_document(std::string_view parameter) {
  return parameter == "dadosVenda" || parameter == "dadosConfiguracao" || parameter == "certificado";
}

std::string value_of(Fields& fields, const satctl::Parameter& parameter) {
  const std::string name = parameter.name;
  switch (parameter.kind) {
    case satctl::ParameterKind::number:
    case satctl::ParameterKind::state:
    case satctl::ParameterKind::session: {
      const auto number = fields.number(name, 0, kLastSessionOfTill);
      if (!number) fields.fail(missing(name));
      return std::to_string(number.value_or(0));
    }
    default:
      return is_document(name) ? fields.document(name) : fields.text(name);
  }
}

}  // namespace

bool is_key(std::string_view text) {
  return !text.empty() && text.size() <= kLongestKey &&
         std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

Parsed<Target> parse_target(std::string_view text) {
  const auto url = boost::urls::parse_origin_form(boost::urls::string_view(text.data(), text.size()));
  if (!url) return Problem{400, tr({"the target is no path", "o alvo não é um caminho"}), {}};
  Target target;
  for (const auto& segment : url->segments()) target.segments.emplace_back(segment);
  for (const auto& parameter : url->params()) target.query[parameter.key] = parameter.value;
  return target;
}

Parsed<FiscalBody> parse_fiscal(Fiscal function, std::string_view text) {
  Fields fields(text);
  FiscalBody body;
  body.request.function = function;
  if (function == Fiscal::cancellation) {
    body.request.cancels = fields.text("chaveConsulta");
    if (!AccessKey::parse(body.request.cancels)) {
      fields.fail(wrong("chaveConsulta", {"is no access key", "não é uma chave de acesso"}));
    }
    body.request.body = fields.document("dadosCancelamento");
  } else {
    body.request.body = fields.document("dadosVenda");
  }
  body.request.session = fields.session();
  body.request.attempt = fields.number("tentativa", 1, kMostAttempts).value_or(1);
  body.request.patience = std::chrono::seconds(fields.number("paciencia", 1, kLongestPatience).value_or(60));
  body.wait = std::chrono::seconds(fields.number("espera", 0, kLongestWait).value_or(kLongestWait));
  return result(fields, std::move(body));
}

Parsed<FunctionRequest> parse_function(const satctl::Function& function, std::string_view text) {
  Fields fields(text.empty() ? "{}" : text);
  FunctionRequest request;
  request.function = &function;
  request.session = fields.session();
  for (const satctl::Parameter& parameter : function.parameters) {
    if (parameter.kind == satctl::ParameterKind::activation_code) continue;  // the hub's, never a till's
    request.values.push_back(value_of(fields, parameter));
  }
  return result(fields, std::move(request));
}

Parsed<Settlement> parse_settlement(std::string_view text) {
  Fields fields(text);
  Settlement settlement;
  const std::string decision = fields.text("decisao");
  if (decision == "issued") {
    settlement.decision = Decision::issued;
    settlement.receipt = fields.text("chaveConsulta");
  } else if (decision == "not-issued") {
    settlement.decision = Decision::not_issued;
  } else if (decision == "undecided") {
    settlement.decision = Decision::undecided;
  } else if (decision == "confirmed") {
    settlement.decision = Decision::confirmed;
  } else {
    fields.fail(wrong("decisao", {"must be issued, not-issued, undecided or confirmed",
                                  "deve ser issued, not-issued, undecided ou confirmed"}));
  }
  settlement.reason = fields.text("motivo");
  if (settlement.reason.empty() || settlement.reason.size() > kLongestText) {
    fields.fail(
        wrong("motivo", {"must say why, in 1000 characters", "deve dizer por quê, em 1000 caracteres"}));
  }
  return result(fields, std::move(settlement));
}

Parsed<ReceiptSearch> parse_receipt_search(const std::map<std::string, std::string>& query) {
  ReceiptSearch search;
  for (const auto& [name, value] : query) {
    if (name == "caixa") {
      search.till = value;
    } else if (name == "valor") {
      search.total = value;
    } else if (name == "de" || name == "ate") {
      const auto moment = moment_from(value);
      if (!moment) return wrong(name, {"must be a date, 2026-03-01", "deve ser uma data, 2026-03-01"});
      if (name == "de")
        search.from = *moment;
      else  // the whole of that day
        search.to = value.find('T') == std::string::npos ? *moment + kSecondsOfDay : *moment;
    } else {
      return Problem{400, fill({"there is no parameter {}", "não existe o parâmetro {}"}, {name}), name};
    }
  }
  return search;
}

Parsed<std::chrono::seconds> parse_wait(const std::map<std::string, std::string>& query) {
  const auto found = query.find("wait");
  if (found == query.end()) return std::chrono::seconds{0};
  int seconds = -1;
  const char* end = found->second.data() + found->second.size();
  const auto [stop, error] = std::from_chars(found->second.data(), end, seconds);
  if (error != std::errc{} || stop != end || seconds < 0 || seconds > kLongestWait) {
    return wrong("wait", {"must be 0 to 60 seconds", "deve ser de 0 a 60 segundos"});
  }
  return std::chrono::seconds{seconds};
}

}  // namespace hub
