// Texts in English and Portuguese; the locale decides which is shown.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace satctl {

// Both languages stand side by side, so that neither can be forgotten.
struct Text {
  const char* en;
  const char* pt;
};

enum class Language { english, portuguese };

// By LC_ALL, LC_MESSAGES, LANG, in this order, as gettext does.
Language language_of_locale();

const char* tr(const Text& text);

// The text with each "{}" replaced by the next value.
std::string fill(const Text& text, std::initializer_list<std::string_view> values);

std::string lower_case(std::string_view text);
bool starts_with_digits(std::string_view text, std::size_t count);
bool all_digits(std::string_view text);
std::string_view trimmed(std::string_view text);
std::string padded(std::string_view text, std::size_t width);  // by characters, not bytes

}  // namespace satctl
