#include "masking/trace_message.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <vector>

#include "masking/field_rules.h"
#include "masking/frame_fields.h"
#include "masking/known_names.h"

namespace masking {

namespace {

// ---- formats

enum class PieceKind { literal, decimal, hexadecimal, byte, character, text };

struct Piece {
  PieceKind kind;
  std::string literal;
  Quoted quoted = Quoted::nothing;
};

struct Format {
  std::vector<Piece> pieces;
  Numbers numbers;
};

// "%" begins a conversion of the library: d, X, x, ld, lu, c, s, %.
class FormatReader {
 public:
  explicit FormatReader(const TraceLine& line) : rest_(line.format), line_(line) {}

  Format read() {
    while (!rest_.empty()) {
      const std::size_t percent = std::min(rest_.find('%'), rest_.size());
      add_literal(rest_.substr(0, percent));
      rest_.remove_prefix(percent);
      if (!rest_.empty()) read_conversion();
    }
    return {std::move(pieces_), line_.numbers};
  }

 private:
  void add_literal(std::string_view text) {
    if (text.empty()) return;
    if (pieces_.empty() || pieces_.back().kind != PieceKind::literal)
      pieces_.push_back({PieceKind::literal, {}});
    pieces_.back().literal += text;
  }

  void read_conversion() {
    const std::size_t end = rest_.find_first_of("dXxucs%", 1);
    const std::string_view conversion = rest_.substr(0, end + 1);
    rest_.remove_prefix(end + 1);
    switch (conversion.back()) {
      case '%':
        add_literal("%");
        break;
      case 's':
        pieces_.push_back({PieceKind::text, {}, line_.texts.at(texts_++)});
        break;
      case 'c':
        pieces_.push_back({PieceKind::character, {}});
        break;
      default:
        pieces_.push_back({kind_of_number(conversion), {}});
    }
  }

  static PieceKind kind_of_number(std::string_view conversion) {
    if (conversion == "%02X" || conversion == "%02x") return PieceKind::byte;
    return conversion.back() == 'X' ? PieceKind::hexadecimal : PieceKind::decimal;
  }

  std::string_view rest_;
  const TraceLine& line_;
  std::vector<Piece> pieces_;
  std::size_t texts_ = 0;
};

// Those with the most text of their own come first: "pItem[%s] pNewValue[%s]" before "pItem[%s]".
std::vector<Format> formats_of(std::span<const TraceLine> lines) {
  std::vector<Format> formats;
  for (const TraceLine& line : lines) formats.push_back(FormatReader(line).read());
  const auto own_text = [](const Format& format) {
    std::size_t size = 0;
    for (const Piece& piece : format.pieces) size += piece.literal.size();
    return size;
  };
  std::stable_sort(formats.begin(), formats.end(),
                   [&](const Format& a, const Format& b) { return own_text(a) > own_text(b); });
  return formats;
}

// ---- values

bool may_stand_in(PieceKind number, char c) {
  if (c >= '0' && c <= '9') return true;
  if (number == PieceKind::decimal) return c == '-';
  return (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

bool is_number(PieceKind kind, std::string_view text) {
  constexpr std::size_t kDecimal = 10, kHexadecimal = 8;
  if (kind != PieceKind::decimal) return !text.empty() && text.size() <= kHexadecimal;
  if (text.starts_with('-')) text.remove_prefix(1);
  return text.size() <= kDecimal && is_digits(text);
}

// Device and host send nothing but text in the bytes from 20 on.
std::string masked_byte(std::string_view text) {
  static constexpr std::array<std::string_view, 6> kControls{"00", "02", "03", "04", "06", "15"};
  const bool control = std::find(kControls.begin(), kControls.end(), text) != kControls.end();
  return control ? std::string(text) : "**";
}

constexpr auto kConstants = std::to_array<std::string_view>({
    "TALVEX DLL Ver. 02.00",
    "23-JUL-2020",
    "Jul 27 2020-10:41:14",
    "SAT.ini",
    "SERIAL_PORT_CONFIG",
    "SERIAL_PORT_CONFIG\n",
    "SERIAL_PORT_CONFIG]",
    "FixarPorta=",
    "FixarPorta= << NAO EXISTIR <DEFAULT>\n",
    "FixarPorta= << SEM VALOR <NAO USAR>\n",
    "<< ADICIONADO MANUALMENTE PELO CLIENTE\n",
    "DISABLED!",
    "ERROR_LOGS_ENABLED",
    "WARNING_LOGS_ENABLED",
    "INFO_LOGS_ENABLED",
    "TRACE_LOGS_ENABLED",
    "DEBUG_LOGS_ENABLED",
    "ERROR_LOGS_ENABLED<DEFAULT>",
    "line too long",
    "value too long",
    "no place for the value",
});

bool is_constant(std::string_view text) {
  return std::find(kConstants.begin(), kConstants.end(), text) != kConstants.end();
}

bool is_error_text(std::string_view text) {
  constexpr int kMostErrors = 134;
  static const std::set<std::string, std::less<>> texts = [] {
    std::set<std::string, std::less<>> all;
    for (int error = 0; error < kMostErrors; ++error) all.insert(std::strerror(error));
    return all;
  }();
  return texts.contains(text);
}

std::string known_or_length(bool known, std::string_view text) {
  return known ? std::string(text) : length_only(text);
}

// Lengths and milliseconds have seven digits at most. The library reads a session number from whatever a
// device sends in its place.
bool is_short_number(std::string_view number) {
  constexpr std::size_t kMostDigits = 7;
  const auto first = std::min(number.find_first_not_of("-0"), number.size());
  return number.size() - first <= kMostDigits;
}

struct Place {
  long first_number = -1;   // of the message
  bool known_item = false;  // the last name in front is one of SAT.ini
};

std::string masked_argument(long place, std::string_view text) {
  constexpr long kFunction = 1, kSession = 2;
  if (place == kFunction) return shown(Rule::function, text);
  return place == kSession ? shown(Rule::session, text) : length_only(text);
}

std::string masked_answer(long place, std::string_view text) {
  static constexpr std::array kRules{Rule::session, Rule::return_code};
  const auto index = static_cast<std::size_t>(place - 1);
  if (place >= 1 && index < kRules.size()) return shown(kRules.at(index), text);
  const std::string alert = shown(Rule::notice_code, text);
  return alert == text ? alert : shown(Rule::message, text);
}

std::string masked_text(Quoted kind, const Place& place, std::string_view text) {
  switch (kind) {
    case Quoted::path:
      return masked_path(text);
    case Quoted::function:
      return known_or_length(is_library_function(text), text);
    case Quoted::name:
      return known_or_length(is_configuration_name(text), text);
    case Quoted::setting:
      return place.known_item ? masked_setting(text) : length_only(text);
    case Quoted::constant:
      return known_or_length(is_constant(text), text);
    case Quoted::error:
      return known_or_length(is_error_text(text), text);
    case Quoted::command:
      return masked_quotation(text, Side::host);
    case Quoted::reply:
    case Quoted::packet:
      return masked_quotation(text, Side::device);
    case Quoted::log_line:
      return masked_log_line(text);
    case Quoted::argument:
      return masked_argument(place.first_number, text);
    case Quoted::answer:
      return masked_answer(place.first_number, text);
    case Quoted::session:
      return shown(Rule::session, text);
    case Quoted::return_code:
      return shown(Rule::return_code, text);
    case Quoted::notice_code:
      return shown(Rule::notice_code, text);
    case Quoted::message:
      return shown(Rule::message, text);
    case Quoted::nothing:
    case Quoted::hidden:
      break;
  }
  return length_only(text);
}

// ---- matching

struct Match {
  const Format* format = nullptr;
  std::vector<std::string_view> values;  // one for each piece
};

// Literals and numbers are looked for from both ends up to the outermost texts; what stands between the first
// and the last text is cut where the literals between them first occur. Each byte is looked at a few times
// only.
class Matcher {
 public:
  Matcher(const Format& format, std::string_view message) : format_(format), rest_(message) {
    values_.resize(format.pieces.size());
  }

  std::optional<Match> match() {
    std::size_t first = 0, last = format_.pieces.size();
    for (; first < last && format_.pieces[first].kind != PieceKind::text; ++first) {
      if (!take_front(first)) return std::nullopt;
    }
    if (first == last) return rest_.empty() ? result() : std::nullopt;
    for (; format_.pieces[last - 1].kind != PieceKind::text; --last) {
      if (!take_back(last - 1)) return std::nullopt;
    }
    return take_middle(first, last - 1) ? result() : std::nullopt;
  }

 private:
  std::optional<Match> result() { return Match{&format_, std::move(values_)}; }

  static bool is_value(PieceKind kind, std::string_view text) {
    return kind == PieceKind::character ? text.size() == 1 : is_number(kind, text);
  }

  bool take_front(std::size_t index) {
    const Piece& piece = format_.pieces[index];
    std::size_t size = 0;
    if (piece.kind == PieceKind::literal) {
      if (!rest_.starts_with(piece.literal)) return false;
      size = piece.literal.size();
    } else if (piece.kind == PieceKind::character) {
      size = std::min<std::size_t>(1, rest_.size());
    } else {
      // Two numbers may follow one another.
      const bool alone =
          index + 1 == format_.pieces.size() || format_.pieces[index + 1].kind == PieceKind::literal;
      while (size < rest_.size() && may_stand_in(piece.kind, rest_[size]) && (alone || size == 0)) ++size;
    }
    values_[index] = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return piece.kind == PieceKind::literal || is_value(piece.kind, values_[index]);
  }

  bool take_back(std::size_t index) {
    const Piece& piece = format_.pieces[index];
    std::size_t size = 0;
    if (piece.kind == PieceKind::literal) {
      if (!rest_.ends_with(piece.literal)) return false;
      size = piece.literal.size();
    } else if (piece.kind == PieceKind::character) {
      size = std::min<std::size_t>(1, rest_.size());
    } else {
      const bool alone = format_.pieces[index - 1].kind == PieceKind::literal;
      while (size < rest_.size() && may_stand_in(piece.kind, rest_[rest_.size() - 1 - size]) &&
             (alone || size == 0))
        ++size;
    }
    values_[index] = rest_.substr(rest_.size() - size);
    rest_.remove_suffix(size);
    return piece.kind == PieceKind::literal || is_value(piece.kind, values_[index]);
  }

  bool take_middle(std::size_t first, std::size_t last) {
    for (std::size_t index = first; index < last; ++index) {
      if (format_.pieces[index].kind != PieceKind::text) {
        if (!take_front(index)) return false;
        continue;
      }
      const Piece& next = format_.pieces[index + 1];
      const std::size_t end =
          next.kind == PieceKind::literal ? rest_.find(next.literal) : size_of_constant(rest_);
      if (end == std::string_view::npos) return false;
      values_[index] = rest_.substr(0, end);
      rest_.remove_prefix(end);
    }
    values_[last] = rest_;
    return true;
  }

  // Of two texts without anything between them the first one is a constant.
  static std::size_t size_of_constant(std::string_view text) {
    std::size_t size = 0;
    for (const std::string_view constant : kConstants) {
      if (text.starts_with(constant)) size = std::max(size, constant.size());
    }
    return size;
  }

  const Format& format_;
  std::string_view rest_;
  std::vector<std::string_view> values_;
};

std::optional<Match> find_format(const std::vector<Format>& formats, std::string_view message) {
  for (const Format& format : formats) {
    const Piece& first = format.pieces.front();
    if (first.kind == PieceKind::literal && !message.starts_with(first.literal)) continue;
    if (auto match = Matcher(format, message).match()) return match;
  }
  return std::nullopt;
}

long first_number_of(const Match& match) {
  for (std::size_t i = 0; i < match.values.size(); ++i) {
    if (match.format->pieces[i].kind == PieceKind::decimal && is_digits(match.values[i]))
      return std::strtol(std::string(match.values[i]).c_str(), nullptr, 10);
  }
  return -1;
}

std::string rendered(const Match& match) {
  std::string text;
  Place place{first_number_of(match)};
  for (std::size_t i = 0; i < match.values.size(); ++i) {
    const Piece& piece = match.format->pieces[i];
    const std::string_view value = match.values[i];
    switch (piece.kind) {
      case PieceKind::literal:
        text += piece.literal;
        break;
      case PieceKind::decimal:
        text +=
            match.format->numbers == Numbers::hidden ? "**" : known_or_length(is_short_number(value), value);
        break;
      case PieceKind::hexadecimal:
        text += match.format->numbers == Numbers::shown ? std::string(value) : "**";
        break;
      case PieceKind::byte:
        text += masked_byte(value);
        break;
      case PieceKind::character:
        text += value == "|" ? "|" : "*";
        break;
      case PieceKind::text:
        text += masked_text(piece.quoted, place, value);
        if (piece.quoted == Quoted::name) place.known_item = is_configuration_name(value);
        if (piece.quoted == Quoted::constant) place.known_item = value == "FixarPorta=";
    }
  }
  return text;
}

const std::vector<Format>& message_formats() {
  static const std::vector<Format> formats = formats_of(trace_lines());
  return formats;
}

// ---- heads

std::string_view name_at(std::string_view text) {
  const auto is_name = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
  };
  return text.substr(
      0, static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), is_name) - text.begin()));
}

bool skip(std::string_view& text, std::string_view expected) {
  if (!text.starts_with(expected)) return false;
  text.remove_prefix(expected.size());
  return true;
}

struct HeadForm {
  std::string_view before_path, before_name, behind_name;
  bool has_path;
};
constexpr std::array kHeadForms{HeadForm{" [", "] [", "]", true}, HeadForm{"  ", "  ", "  ", true},
                                HeadForm{" ", " ", "", true}, HeadForm{" ", "", "", false}};

// How long the head is: "[0061] [../src/api/TALVEX] [lSerialLock]", "[0138]  path  name  ", "[0138] path
// name",
// "[0139] name"; 0 for anything else.
std::size_t head_size(std::string_view message) {
  constexpr std::size_t kMostDigits = 6;
  std::string_view rest = message;
  if (!skip(rest, "[")) return 0;
  const std::size_t digits = std::min(rest.find(']'), rest.size());
  if (digits > kMostDigits || !is_digits(rest.substr(0, digits))) return 0;
  rest.remove_prefix(std::min(digits + 1, rest.size()));
  for (const HeadForm& form : kHeadForms) {
    std::string_view text = rest;
    if (!skip(text, form.before_path)) continue;
    if (form.has_path) {
      const std::string_view path = text.substr(0, text.find_first_of(" ]"));
      if (!is_source_path(path)) continue;
      text.remove_prefix(path.size());
    }
    if (!skip(text, form.before_name)) continue;
    const std::string_view name = name_at(text);
    text.remove_prefix(name.size());
    if (is_library_function(name) && skip(text, form.behind_name)) return message.size() - text.size();
  }
  return 0;
}

// ---- paths

constexpr std::string_view kDigits = "0123456789", kBetweenDigits = "/\\._-:";

// From the digit in front up to the last one that only punctuation separates from it.
std::string_view number_at(std::string_view text) {
  std::size_t end = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (kDigits.find(text[at]) != std::string_view::npos)
      end = at + 1;
    else if (kBetweenDigits.find(text[at]) == std::string_view::npos)
      break;
  }
  return text.substr(0, end);
}

// Too few digits for a telephone or a taxpayer, whatever separates them, or a date with a short number.
bool may_stand_in_path(std::string_view number) {
  constexpr std::size_t kMostInARun = 5, kMost = 7, kDate = 8, kMostWithDate = kDate + 2;
  std::size_t digits = 0;
  bool has_date = false;
  while (!number.empty()) {
    const std::size_t size = std::min(number.find_first_not_of(kDigits), number.size());
    const bool date = is_date(number.substr(0, size));
    if (size > kMostInARun && !date) return false;
    has_date = has_date || date;
    digits += size;
    number.remove_prefix(std::min(number.find_first_of(kDigits, size), number.size()));
  }
  return digits <= (has_date ? kMostWithDate : kMost);
}

}  // namespace

std::string masked_path(std::string_view path) {
  constexpr std::size_t kLongest = 255;
  const auto usual = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view("/\\._-:").find(c) != std::string_view::npos;
  };
  if (path.size() > kLongest || !std::all_of(path.begin(), path.end(), usual)) return length_only(path);
  std::string text;
  while (!path.empty()) {
    const std::size_t others = std::min(path.find_first_of(kDigits), path.size());
    text += path.substr(0, others);
    path.remove_prefix(others);
    const std::string_view number = number_at(path);
    text += known_or_length(may_stand_in_path(number), number);
    path.remove_prefix(number.size());
  }
  return text;
}

std::string masked_setting(std::string_view value) {
  if (shown(Rule::number, value) == value || value == "115200,8,N,1") return std::string(value);
  // Seven digits are a file's size.
  constexpr std::size_t kMostDigits = 7;
  if (is_digits(value)) return value.size() <= kMostDigits ? std::string(value) : length_only(value);
  return masked_path(value);
}

std::string masked_mark(std::string_view mark) {
  static constexpr std::array<std::string_view, 7> kMarks{
      "OK:a", "OK:c", "WR:d", "WR:CKSUM=00h", "WR:CKSUM=0x00--", "WR:CKS=0x00", "InvalidSatPkg"};
  return known_or_length(std::find(kMarks.begin(), kMarks.end(), mark) != kMarks.end(), mark);
}

std::string masked_log_line(std::string_view line) {
  constexpr std::size_t kStamp = 14;
  constexpr std::string_view kSent = " PC->SAT >> [", kReceived = " SAT->PC << [";
  const std::string_view stamp = line.substr(0, kStamp);
  const std::string_view rest = line.substr(stamp.size());
  const bool sent = rest.starts_with(kSent);
  const auto bracket = rest.rfind(']');
  if (shown(Rule::moment, stamp) != stamp || (!sent && !rest.starts_with(kReceived)) ||
      bracket == std::string_view::npos || bracket < kSent.size()) {
    return length_only(line);
  }
  std::string_view text = rest.substr(kSent.size(), bracket - kSent.size());
  std::string_view mark = rest.substr(bracket + 1);
  const bool feed = mark.ends_with('\n');
  if (feed) mark.remove_suffix(1);
  return std::string(stamp) + std::string(sent ? kSent : kReceived) +
         masked_logged_frame(text, sent ? Side::host : Side::device) + "]" + masked_mark(mark) +
         (feed ? "\n" : "");
}

std::string masked_message(std::string_view message) {
  const std::size_t head = head_size(message);
  const auto match = find_format(message_formats(), message.substr(head));
  const std::string shown_head(message.substr(0, head));
  if (head == 0) return length_only(message);
  return shown_head + (match ? rendered(*match) : length_only(message.substr(head)));
}

std::optional<std::string> masked_failure_text(std::string_view text) {
  static const std::vector<Format> formats = formats_of(failure_texts());
  const auto match = find_format(formats, text);
  return match ? std::optional(rendered(*match)) : std::nullopt;
}

void for_each_quotation(std::string_view message, const QuotationUse& use) {
  const auto match = find_format(message_formats(), message.substr(head_size(message)));
  if (!match) return;
  const long place = first_number_of(*match);
  for (std::size_t i = 0; i < match->values.size(); ++i) {
    const Piece& piece = match->format->pieces[i];
    if (piece.kind == PieceKind::text) use(piece.quoted, place, match->values[i]);
  }
}

}  // namespace masking
