// Masking: a secret that is built into a command, a reply or a message at random is in nothing that is shown,
// and the recordings keep their lengths.

#include <cstdint>
#include <string>
#include <vector>

#include "fuzzing.h"
#include "masking/configuration.h"
#include "masking/masker.h"
#include "masking/same_length.h"
#include "masking/trace_message.h"

namespace {

using fuzzing::require;

// No piece of six bytes of it stands in any text of the library's own.
constexpr char kSecret[] = "zQxjWvk7#5299~82247@25Yp";
constexpr std::size_t kPiece = 6;

void require_none(const std::string& shown) {
  const std::string_view secret(kSecret);
  for (std::size_t at = 0; at + kPiece <= secret.size(); ++at)
    require(shown.find(secret.substr(at, kPiece)) == std::string::npos);
}

// A byte 0xFE stands for the secret.
std::string with_secret(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '\xFE')
      result += kSecret;
    else
      result += c;
  }
  return result;
}

void check_frame(const std::string& text, const masking::Masker& masker, const masking::LearnedCodes& codes) {
  for (const masking::Side side : {masking::Side::host, masking::Side::device}) {
    require_none(masking::masked_frame(text, side));
    require_none(masking::masked_logged_frame(text, side));
    require_none(masking::masked_quotation(text, side));
    require_none(masker.frame(text, side));
    std::size_t bytes = 0, fields = 0;
    for (const masking::RuledField& field : masking::take_apart(text, side)) {
      require_none(masker.field(field));
      bytes += field.value.size();
      ++fields;
    }
    require(bytes + fields - 1 == text.size());
    const std::string filled = masking::filled_frame(text, side, codes);
    require(filled.size() == text.size());
    require_none(filled);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = with_secret(fuzzing::Input(data, size).rest());
  masking::Masker masker;
  masking::LearnedCodes codes;
  check_frame(text, masker, codes);
  require_none(masking::masked_message(text));
  require_none(masking::masked_log_line(text));
  require_none(masking::masked_mark(text));
  masker.learn_message(text);
  masker.learn_frame(text);
  codes.learn_command(text);
  check_frame(text, masker, codes);
  require_none(masker.message(text));
  require_none(masking::masked_path(text));
  require_none(masking::masked_setting(text));
  require_none(masking::masked_configuration(text));
  require_none(masker.configuration("LogFileName=" + text));
  return 0;
}
