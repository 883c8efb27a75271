#include "device/reply_template.h"

#include <array>
#include <stdexcept>

#include "device/functions.h"
#include "documents/identifiers.h"

namespace emulator {

namespace {

struct Place {
  const char* name;
  std::string ReplyPlaces::*value;
};
constexpr std::array kPlaces{Place{"{session}", &ReplyPlaces::session}, Place{"{date}", &ReplyPlaces::date},
                             Place{"{key}", &ReplyPlaces::key}};

}  // namespace

std::string fill_in(const std::string& text, const ReplyPlaces& places) {
  std::string reply = text;
  for (const Place& place : kPlaces) {
    const std::string name = place.name;
    const std::string& value = places.*place.value;
    for (auto at = reply.find(name); at != std::string::npos; at = reply.find(name, at + value.size())) {
      reply.replace(at, name.size(), value);
    }
  }
  return reply;
}

void check_reply_template(const std::string& text) {
  const auto fields = split_fields(text);
  if (fields.size() < 2 || fields[1].size() != 5 || !all_digits(fields[1])) {
    throw std::invalid_argument("a reply reads SESSION|EEEEE|...");
  }
  if (text.find_first_of("\x02\x03") != std::string::npos) {
    throw std::invalid_argument("a reply holds no STX or ETX");
  }
  if (fill_in(text, {}).find_first_of("{}") != std::string::npos) {
    throw std::invalid_argument("the places of a reply are {session}, {date} and {key}");
  }
}

}  // namespace emulator
