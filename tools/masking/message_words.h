// The words of the messages that the standard gives to return codes, rejections and notices.
#pragma once

#include <string>
#include <string_view>

namespace masking {

// The message with "*length*" in place of each run of other words. Numbers are no words.
std::string known_words_of(std::string_view message);

}  // namespace masking
