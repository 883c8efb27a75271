#include "calls/reply.h"

#include <algorithm>
#include <cstdlib>

namespace satctl {

namespace {

constexpr std::string_view kFailureStart = "SAT Erro[";
constexpr std::size_t kCodeDigits = 5;

constexpr Text kUnsettled{"the device does not say what became of the call",
                          "o equipamento não diz o que houve com a chamada"};

// What the library's own failures mean; any other code is a failure of the link.
struct FailureRow {
  int code;
  ExitStatus status;
};
constexpr FailureRow kFailures[] = {
    {-2000, ExitStatus::no_device},
    {-2010, ExitStatus::busy},
    // The library has no busy reply for ConsultarUltimaSessaoFiscal and says this instead.
    {-3000, ExitStatus::busy},
};

ExitStatus status_of_failure(int code) {
  for (const FailureRow& row : kFailures) {
    if (row.code == code) return row.status;
  }
  return ExitStatus::link_failure;
}

bool is_alert_code(const std::string& text) {
  return text.size() == 4 && all_digits(text);
}

}  // namespace

std::vector<std::string> split_fields(std::string_view text) {
  std::vector<std::string> fields;
  while (true) {
    const auto bar = text.find('|');
    fields.emplace_back(text.substr(0, bar));
    if (bar == std::string_view::npos) return fields;
    text.remove_prefix(bar + 1);
  }
}

std::vector<NamedField> name_fields(const Function* layout, const std::vector<std::string>& values) {
  std::vector<NamedField> fields;
  const std::span<const Field> names = layout != nullptr ? layout->fields : std::span<const Field>{};
  std::size_t next_name = 0;
  for (const std::string& value : values) {
    // A refusal may come without the alert code.
    if (next_name < names.size() && std::string_view(names[next_name].name) == "CCCC" &&
        !is_alert_code(value)) {
      ++next_name;
    }
    if (next_name < names.size())
      fields.push_back({names[next_name].name, names[next_name].kind, value});
    else
      fields.push_back({"campo" + std::to_string(next_name + 1), FieldKind::plain, value});
    ++next_name;
  }
  return fields;
}

std::optional<int> library_failure(std::string_view text) {
  if (!text.starts_with(kFailureStart)) return std::nullopt;
  return std::atoi(std::string(text.substr(kFailureStart.size(), 8)).c_str());
}

Reply::Reply(const Request& request, std::string raw) : request_(request), raw_(std::move(raw)) {
  read_fields();
  status_ = judge();
}

void Reply::read_fields() {
  if (const auto failure = library_failure(raw_)) {
    number_ = *failure;
    return;
  }
  const auto values = split_fields(raw_);
  if (values.size() < 3) return;
  if (values[1].size() == kCodeDigits && all_digits(values[1])) {
    return_code_ = values[1];
    number_ = std::stoi(return_code_);
  }
  const Function* layout = find_function_by_code(return_code_);
  fields_ = name_fields(layout != nullptr ? layout : request_.function, values);
}

std::string_view Reply::field(std::string_view name) const {
  const auto found = std::find_if(fields_.begin(), fields_.end(),
                                  [name](const NamedField& field) { return field.name == name; });
  return found == fields_.end() ? std::string_view() : std::string_view(found->value);
}

int Reply::session() const {
  const std::string_view text = field("numeroSessao");
  return all_digits(text) && text.size() <= 9 ? std::stoi(std::string(text)) : -1;
}

Evidence Reply::evidence() const {
  return {field("numeroSessao"), return_code_, field("chaveConsulta")};
}

bool Reply::session_fits() const {
  const int session = this->session();
  if (session < 0) return false;
  if (session == request_.session) return true;
  switch (request_.function->reply_session) {
    case ReplySession::own:
      return false;
    case ReplySession::asked:
      return session == request_.asked_session;
    case ReplySession::any:
      return true;
  }
  return false;
}

// Whether the code speaks of this call, and not of the earlier one that the call asked for.
bool Reply::answers_itself() const {
  return number_ / 1000 == request_.function->code_prefix / 10 ||
         request_.function->reply_session == ReplySession::own;
}

ExitStatus Reply::judge() const {
  constexpr int kBusy = 98;
  if (number_ < 0) return status_of_failure(number_);
  if (return_code_.empty()) return ExitStatus::link_failure;
  if (!session_fits()) return ExitStatus::other_session;
  if (!answers_itself()) return ExitStatus::success;
  if (request_.function->effect == Effect::fiscal) return judge_fiscal();
  if (number_ % 1000 == kBusy) return ExitStatus::busy;
  return is_success_code(number_) ? ExitStatus::success : ExitStatus::refused;
}

ExitStatus Reply::judge_fiscal() const {
  switch (settlement_of(request_.function->code_prefix, request_.session, evidence())) {
    case Settlement::issued:
    case Settlement::cancelled:
      return ExitStatus::success;
    case Settlement::refused:
      return ExitStatus::refused;
    case Settlement::not_sent:
      return ExitStatus::busy;
    case Settlement::unknown:
      return ExitStatus::link_failure;
  }
  return ExitStatus::link_failure;
}

bool Reply::unsettled() const {
  return status_ == ExitStatus::link_failure && !return_code_.empty();
}

std::string_view Reply::outcome() const {
  if (unsettled()) return kUnsettledName;
  return status_ == ExitStatus::refused ? refusal_class(return_code_).name : row_of(status_).name;
}

std::string Reply::meaning() const {
  if (unsettled()) return tr(kUnsettled);
  return tr(status_ == ExitStatus::refused ? refusal_class(return_code_).meaning : row_of(status_).meaning);
}

const NamedField* Reply::document() const {
  const auto found = std::find_if(fields_.begin(), fields_.end(), [](const NamedField& field) {
    return field.kind == FieldKind::document && !field.value.empty();
  });
  return found == fields_.end() ? nullptr : &*found;
}

}  // namespace satctl
