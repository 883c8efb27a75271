// A whole reply as somebody wrote it down, with places for what differs from call to call:
//
//   {session}|06000|0000|Emitido com sucesso|||PENGZS8+|{date}|{key}|10.00||QUJD
#pragma once

#include <string>

namespace emulator {

// Throws std::invalid_argument if this cannot be a reply or names a place that there is not.
void check_reply_template(const std::string& text);

struct ReplyPlaces {
  std::string session;
  std::string date;  // yyyymmddHHMMSS
  std::string key;   // "CFe" and 44 digits
};
std::string fill_in(const std::string& text, const ReplyPlaces& places);

}  // namespace emulator
