// Masks what satctl shows of logs. Learning comes first where the whole input is at hand; a log that is
// followed is learned from as it comes.
#pragma once

#include <string>
#include <string_view>

#include "masking/frame_fields.h"
#include "masking/learned_codes.h"

namespace masking {

class Masker {
 public:
  // A message of the trace log behind time and level; the text of a frame of the protocol log.
  void learn_message(std::string_view message);
  void learn_frame(std::string_view text) { codes_.learn_command(text); }

  std::string message(std::string_view message) const;
  std::string frame(std::string_view text, Side side) const;
  std::string field(const RuledField& field) const;
  std::string mark(std::string_view mark) const;
  std::string configuration(std::string_view text) const;  // SAT.ini
  std::string path(std::string_view text) const;           // SAT.conf, a file's name
  // What satctl itself has found out: without learned codes and long numbers.
  std::string own_text(std::string_view text) const;

 private:
  LearnedCodes codes_;
  std::string dissected_;  // the command whose arguments the trace log shows one by one
};

}  // namespace masking
