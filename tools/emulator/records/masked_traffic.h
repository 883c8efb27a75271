// Keeps activation codes and personal data out of recorded traffic. Lengths, frames, acknowledgements and
// checksums stay, right or wrong as they were, so that a masked recording can be replayed; what cannot be
// taken apart is filled whole.
#pragma once

#include <string>
#include <vector>

#include "masking/learned_codes.h"
#include "records/recorded_bytes.h"

namespace emulator {

class TrafficMask {
 public:
  // The records of whole frames; a frame that does not end is filled whole. Codes are remembered for the next
  // call.
  void apply(std::vector<RecordedBytes>& records);

 private:
  void learn(const std::string& stream);
  void mask_stream(std::string& stream, Direction direction) const;
  std::string masked_content(std::string_view content, Direction direction) const;

  masking::LearnedCodes codes_;
};

}  // namespace emulator
