#include "masking/frame_fields.h"

#include <algorithm>
#include <array>
#include <span>

#include "masking/trace_message.h"

namespace masking {

namespace {

using enum Rule;

constexpr char kSeparator = '|', kStx = '\x02', kEtx = '\x03';

// ---- layouts

constexpr std::array kActivation{digit, secret, hidden, two_digits};
constexpr std::array kCodeAndDocument{secret, document};
constexpr std::array kCancellation{secret, access_key, document};
constexpr std::array kCodeOnly{secret};
constexpr std::array kSessionQuery{secret, session};
constexpr std::array kAssociation{secret, hidden, document};
constexpr std::array kCodeChange{secret, digit, secret, secret};

struct CommandRow {
  std::string_view name;
  std::span<const Rule> arguments;
};
constexpr std::array kCommands{
    CommandRow{"AtivarSAT", kActivation},
    CommandRow{"ComunicarCertificadoICPBRASIL", kCodeAndDocument},
    CommandRow{"EnviarDadosVenda", kCodeAndDocument},
    CommandRow{"CancelarUltimaVenda", kCancellation},
    CommandRow{"ConsultarSAT", {}},
    CommandRow{"TesteFimAFim", kCodeAndDocument},
    CommandRow{"ConsultarStatusOperacional", kCodeOnly},
    CommandRow{"ConsultarNumeroSessao", kSessionQuery},
    CommandRow{"ConfigurarInterfaceDeRede", kCodeAndDocument},
    CommandRow{"AssociarAssinatura", kAssociation},
    CommandRow{"AtualizarSoftwareSAT", kCodeOnly},
    CommandRow{"ExtrairLogs", kCodeOnly},
    CommandRow{"BloquearSAT", kCodeOnly},
    CommandRow{"DesbloquearSAT", kCodeOnly},
    CommandRow{"TrocarCodigoDeAtivacao", kCodeChange},
    CommandRow{"ConsultarUltimaSessaoFiscal", kCodeOnly},
};

// Behind session and code: message, notice and its text, then what the function adds.
constexpr std::array kCommon{message, notice_code, message};
constexpr std::array kCertificateRequest{document};
constexpr std::array kReceipt{document, moment, access_key, total, hidden, document};
constexpr std::array kTest{document, moment, number, access_key};
// The device's serial number and addresses stay hidden.
constexpr std::array kStatus{hidden, network_kind, hidden,     hidden,     hidden,         hidden,
                             hidden, hidden,       link_state, battery,    memory_size,    memory_size,
                             moment, number,       number,     access_key, access_key,     access_key,
                             moment, moment,       moment,     moment,     operating_state};
constexpr std::array kDeviceLog{document};

struct ReplyRow {
  std::string_view family;  // the first two digits of the return code
  bool has_alert;
  std::span<const Rule> more;
};
constexpr std::array kReplies{
    ReplyRow{"04", false, kCertificateRequest},
    ReplyRow{"06", true, kReceipt},
    ReplyRow{"07", true, kReceipt},
    ReplyRow{"09", false, kTest},
    ReplyRow{"10", false, kStatus},
    ReplyRow{"15", false, kDeviceLog},
};

const CommandRow* find_command(std::string_view name) {
  const auto row = std::find_if(kCommands.begin(), kCommands.end(),
                                [name](const CommandRow& each) { return each.name == name; });
  return row == kCommands.end() ? nullptr : &*row;
}

// Up to the next separator, which is dropped; `more` says whether there was one.
std::string_view next_field(std::string_view& text, bool& more) {
  const auto bar = text.find(kSeparator);
  more = bar != std::string_view::npos;
  const std::string_view field = text.substr(0, bar);
  text.remove_prefix(more ? bar + 1 : text.size());
  return field;
}

std::vector<RuledField> whole(std::string_view text) {
  return {{hidden, text}};
}

// A document may hold separators and comes last. Where none does, one separator too many means that a code
// holds it, and nothing behind the session is where it should be.
void add_arguments(std::span<const Rule> rules, std::string_view text, std::vector<RuledField>& fields) {
  const auto separators = static_cast<std::size_t>(std::count(text.begin(), text.end(), kSeparator));
  const bool takes_rest = !rules.empty() && rules.back() == document;
  const bool fits = takes_rest ? separators + 1 >= rules.size() : separators + 1 == rules.size();
  if (!fits) {
    fields.push_back({rules.empty() ? hidden : secret, text});
    return;
  }
  for (std::size_t i = 0; i < rules.size(); ++i) {
    bool more = false;
    const bool last = i + 1 == rules.size();
    fields.push_back({rules[i], last ? text : next_field(text, more)});
  }
}

std::vector<RuledField> command_fields(const CommandRow& row, std::string_view text) {
  bool more = false;
  std::vector<RuledField> fields{{function, next_field(text, more)}};
  if (!more) return fields;
  fields.push_back({session, next_field(text, more)});
  if (more) add_arguments(row.arguments, text, fields);
  return fields;
}

std::span<const Rule> more_of(const ReplyRow* row) {
  return row == nullptr ? std::span<const Rule>() : row->more;
}

std::vector<RuledField> reply_fields(std::string_view text) {
  bool more = false;
  std::string_view rest = text;
  std::vector<RuledField> fields{{session, next_field(rest, more)}};
  if (!more) return whole(text);
  const std::string_view code = rest.substr(0, rest.find(kSeparator));
  if (shown(return_code, code) != code || code.empty()) {
    fields.push_back({hidden, rest});
    return fields;
  }
  fields.push_back({return_code, next_field(rest, more)});

  const auto row = std::find_if(kReplies.begin(), kReplies.end(), [code](const ReplyRow& each) {
    return each.family == code.substr(0, each.family.size());
  });
  const ReplyRow* layout = row == kReplies.end() ? nullptr : &*row;
  std::vector<Rule> rules(kCommon.begin(), kCommon.end());
  rules.insert(rules.end(), more_of(layout).begin(), more_of(layout).end());
  for (std::size_t i = 0; more; ++i) {
    const std::string_view value = next_field(rest, more);
    // A refusal may come without the alert code.
    const bool alert = fields.size() == 2 && layout != nullptr && layout->has_alert && !value.empty() &&
                       shown(alert_code, value) == value;
    if (alert) rules.insert(rules.begin(), alert_code);
    fields.push_back({i < rules.size() ? rules[i] : hidden, value});
  }
  return fields;
}

struct Quotation {
  bool starts = false;
  std::string_view text;
  std::string_view end;     // what is shown behind it
  std::string_view behind;  // what is left of the line
};

Quotation read_quotation(std::string_view text) {
  constexpr std::array<std::string_view, 2> kGaps{"...**BIGPKG SLL-SAT**....", "....***BIG_RSP_PKT***...."};
  Quotation quotation;
  quotation.starts = text.starts_with(kStx);
  if (quotation.starts) text.remove_prefix(1);
  quotation.text = text;
  for (const std::string_view gap : kGaps) {
    const auto at = text.find(gap);
    if (at >= quotation.text.size()) continue;
    quotation = {quotation.starts, text.substr(0, at), gap, text.substr(at + gap.size())};
  }
  // The checksum in front of it tells of what it was made from.
  const auto etx = quotation.end.empty() ? text.find(kEtx) : std::string_view::npos;
  if (etx != std::string_view::npos)
    quotation = {quotation.starts, text.substr(0, etx - (etx > 0 ? 1 : 0)), "<--><03>", text.substr(etx + 1)};
  return quotation;
}

std::string joined(const std::vector<RuledField>& fields) {
  std::string text;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) text += kSeparator;
    text += shown(fields[i].rule, fields[i].value);
  }
  return text;
}

}  // namespace

std::vector<RuledField> take_apart(std::string_view text, Side side) {
  if (const CommandRow* row = find_command(text.substr(0, text.find(kSeparator))))
    return command_fields(*row, text);
  return side == Side::device ? reply_fields(text) : whole(text);
}

std::string masked_frame(std::string_view text, Side side) {
  if (auto own = masked_failure_text(text)) return *own;
  return joined(take_apart(text, side));
}

std::string_view unmarked(std::string_view text) {
  constexpr std::string_view kStart = "<02>", kEnd = "<03>";
  constexpr std::size_t kMark = 4;
  if (text.starts_with(kStart)) text.remove_prefix(kStart.size());
  const bool ends = text.ends_with(kEnd) && text.size() >= 2 * kMark && text[text.size() - 2 * kMark] == '<';
  if (ends) text.remove_suffix(2 * kMark);
  return text;
}

std::string masked_logged_frame(std::string_view text, Side side) {
  const std::string_view inner = unmarked(text);
  const bool starts = inner.data() != text.data();
  const bool ends = inner.size() + (starts ? 4 : 0) != text.size();
  return std::string(starts ? "<02>" : "") + masked_frame(inner, side) + (ends ? "<--><03>" : "");
}

std::string masked_quotation(std::string_view text, Side side) {
  const Quotation quotation = read_quotation(text);
  return (quotation.starts ? "<02>" : "") + masked_frame(quotation.text, side) + std::string(quotation.end) +
         length_only(quotation.behind);
}

std::string_view quoted_text(std::string_view text) {
  return read_quotation(text).text;
}

bool is_secret_argument(std::string_view function, std::size_t index) {
  const CommandRow* row = find_command(function);
  return row != nullptr && index < row->arguments.size() && row->arguments[index] == secret;
}

}  // namespace masking
