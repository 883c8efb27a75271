// Removes personal data from recorded traffic: activation codes, buyers, addresses, free texts. Lengths and
// checksums are kept, so that a masked recording can still be replayed.
#pragma once

#include <string>
#include <vector>

#include "records/recording.h"

namespace emulator {

void mask_personal_data(std::vector<RecordedBytes>& records);

// The text of one frame.
std::string mask_command(const std::string& text);
std::string mask_reply(const std::string& text);

}  // namespace emulator
