#include "records/masking.h"

#include <algorithm>
#include <cctype>

#include "device/crypto.h"
#include "device/functions.h"
#include "line/frame.h"

namespace emulator {

namespace {

// Elements whose whole text is personal, wherever it stands below them. The QR signature covers the
// buyer's number and would let it be guessed.
constexpr const char* kPersonalElements[] = {"dest", "entrega", "infAdic", "assinaturaQRCODE"};

void fill(std::string& text) {
  for (char& c : text) {
    if (std::isdigit(static_cast<unsigned char>(c)) != 0)
      c = '0';
    else if (std::isspace(static_cast<unsigned char>(c)) == 0)
      c = 'X';
  }
}

// Masks what stands between tags; `from` lies in a tag.
void fill_between_tags(std::string& xml, std::size_t from, std::size_t to) {
  bool in_tag = true;
  for (std::size_t i = from; i < to; ++i) {
    if (xml[i] == '<') in_tag = true;
    if (!in_tag && std::isspace(static_cast<unsigned char>(xml[i])) == 0) {
      xml[i] = std::isdigit(static_cast<unsigned char>(xml[i])) != 0 ? '0' : 'X';
    }
    if (xml[i] == '>') in_tag = false;
  }
}

void mask_xml(std::string& xml) {
  for (const std::string name : kPersonalElements) {
    for (std::size_t at = 0; (at = xml.find("<" + name, at)) != std::string::npos; ++at) {
      const std::size_t end = std::min(xml.find("</" + name + ">", at), xml.size());
      fill_between_tags(xml, at, end);
    }
  }
}

// Line breaks stay where they are.
void mask_base64_xml(std::string& text) {
  auto xml = base64_decode(text);
  if (!xml) return fill(text);
  mask_xml(*xml);
  const std::string masked = base64_encode(*xml);
  auto next = masked.begin();
  for (char& c : text) {
    if (std::isspace(static_cast<unsigned char>(c)) == 0 && next != masked.end()) c = *next++;
  }
}

// Places of activation codes among a function's arguments.
std::vector<std::size_t> code_arguments(const Function& function) {
  switch (function.id) {
    case FunctionId::ativar_sat:
      return {1};
    case FunctionId::trocar_codigo_de_ativacao:
      return {0, 2, 3};
    case FunctionId::consultar_sat:
      return {};
    default:
      return {0};
  }
}

struct PersonalFields {
  const char* code;  // of the reply
  std::size_t base64_xml;
  std::vector<std::size_t> filled;
};

std::string mask_segment(const std::string& text, Direction direction) {
  return direction == Direction::from_till ? mask_command(text) : mask_reply(text);
}

// A frame that broke off may be followed by another one before any ETX: each part is masked by itself.
std::string mask_text(const std::string& text, Direction direction) {
  std::string masked;
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t end = std::min(text.find(static_cast<char>(kStx), from), text.size());
    masked += mask_segment(text.substr(from, end - from), direction);
    if (end < text.size()) masked += static_cast<char>(kStx);
    from = end + 1;
  }
  return masked;
}

// Frame bytes without STX and ETX: text and checksum. What was wrong stays wrong.
std::string mask_content(const std::string& content, Direction direction) {
  if (content.empty()) return content;
  const std::string text = content.substr(0, content.size() - 1);
  const std::string masked = mask_text(text, direction);
  const std::string frame = make_frame(masked);
  const bool was_right = static_cast<unsigned char>(content.back()) == checksum(text);
  return (was_right ? frame : spoil_checksum(frame)).substr(1, content.size());
}

void mask_stream(std::string& stream, Direction direction) {
  for (std::size_t at = 0; (at = stream.find(static_cast<char>(kStx), at)) != std::string::npos; ++at) {
    const std::size_t end = stream.find(static_cast<char>(kEtx), at);
    if (end == std::string::npos) {
      std::fill(stream.begin() + static_cast<std::ptrdiff_t>(at) + 1, stream.end(), 'x');
      return;
    }
    const std::string masked = mask_content(stream.substr(at + 1, end - at - 1), direction);
    stream.replace(at + 1, masked.size(), masked);
    at = end;
  }
}

}  // namespace

std::string mask_command(const std::string& text) {
  Command command = parse_command(text);
  if (command.function == nullptr) return text;
  for (const std::size_t index : code_arguments(*command.function)) {
    if (index >= command.arguments.size()) continue;
    std::string& code = command.arguments[index];
    std::fill(code.begin(), code.end(), 'x');
  }
  for (std::string& argument : command.arguments) mask_xml(argument);
  std::vector<std::string> fields{command.name, command.session};
  fields.insert(fields.end(), command.arguments.begin(), command.arguments.end());
  // A command of nothing but its name has no session either.
  return text.find('|') == std::string::npos ? text : join_fields(fields);
}

std::string mask_reply(const std::string& text) {
  static const std::vector<PersonalFields> table{
      {"06000", 6, {10, 11}},
      {"07000", 6, {10, 11}},
      {"09000", 5, {}},
      // A device may write anything into its log.
      {"15000", 99, {5}},
  };
  auto fields = split_fields(text);
  for (const PersonalFields& row : table) {
    if (fields.size() < 2 || fields[1] != row.code) continue;
    if (row.base64_xml < fields.size()) mask_base64_xml(fields[row.base64_xml]);
    for (const std::size_t field : row.filled) {
      if (field < fields.size()) fill(fields[field]);
    }
  }
  return join_fields(fields);
}

void mask_personal_data(std::vector<RecordedBytes>& records) {
  for (const Direction direction : {Direction::from_till, Direction::to_till}) {
    std::string stream;
    for (const auto& record : records) {
      if (record.direction == direction) stream += record.bytes;
    }
    mask_stream(stream, direction);
    std::size_t at = 0;
    for (auto& record : records) {
      if (record.direction != direction) continue;
      record.bytes = stream.substr(at, record.bytes.size());
      at += record.bytes.size();
    }
  }
}

}  // namespace emulator
