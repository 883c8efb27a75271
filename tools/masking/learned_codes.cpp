#include "masking/learned_codes.h"

#include <algorithm>

#include "masking/frame_fields.h"

namespace masking {

namespace {

// The network settings hold secrets of their own.
constexpr std::string_view kSecretElements[] = {"codigo", "senha", "proxy_senha", "usuario", "proxy_user"};

template <typename Use>
void for_each_element(std::string_view xml, Use use) {
  for (std::size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at + 1)) {
    for (const std::string_view name : kSecretElements) {
      const std::size_t value = at + 1 + name.size() + 1;
      if (value > xml.size() || xml.substr(at + 1, name.size()) != name || xml[value - 1] != '>') continue;
      use(xml.substr(value, xml.substr(value, 256).find('<')));
    }
  }
}

}  // namespace

void LearnedCodes::add(std::string_view code) {
  if (code.size() < shortest_) return;
  by_length_[std::min(code.size(), kLongest)].emplace(code.substr(0, kLongest));
  beginnings_.emplace(code.substr(0, shortest_));
}

void LearnedCodes::learn_command(std::string_view text) {
  const auto fields = take_apart(text, Side::host);
  for (const RuledField& field : fields) {
    if (field.rule == Rule::secret) add(field.value);
  }
  if (!fields.empty() && fields.front().value == "ConfigurarInterfaceDeRede")
    for_each_element(text, [this](std::string_view value) { add(value); });
}

std::size_t LearnedCodes::longest_at(std::string_view text) const {
  if (!beginnings_.contains(text.substr(0, shortest_))) return 0;
  for (const auto& [length, codes] : by_length_) {
    if (length <= text.size() && codes.contains(text.substr(0, length))) return length;
  }
  return 0;
}

std::string LearnedCodes::without_codes(std::string_view text) const {
  std::string kept;
  std::size_t done = 0;
  for_each(text, [&](std::size_t start, std::size_t length) {
    kept += text.substr(done, start - done);
    kept += "********";
    done = start + length;
  });
  return kept + std::string(text.substr(done));
}

}  // namespace masking
