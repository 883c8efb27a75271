// Secrets in logs: activation codes, CPF and CNPJ.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace satctl {

class Masker {
 public:
  explicit Masker(bool enabled = true) : enabled_(enabled) {}

  // Remembers the activation codes of the commands in the text: they are masked wherever they stand.
  void learn(std::string_view text);

  // The text with asterisks in place of activation codes, CPF and CNPJ (bare, formatted, in XML, in access
  // keys), and without base64 in which they could hide.
  std::string mask(std::string_view text) const;

 private:
  bool enabled_;
  std::set<std::string, std::less<>> codes_;
};

}  // namespace satctl
