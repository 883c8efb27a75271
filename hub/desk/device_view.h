// What is known of the device, for whoever asks: no question is sent to it for that.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "hub/queue/queue.h"

namespace hub {

enum class DeviceState {
  absent,       // no port, or another program has it
  silent,       // a port, but nobody says which device it is
  no_code,      // the activation code is missing, or the device refused it
  other,        // not the device of the settings
  finding_out,  // an operation's outcome is not known
  undecided,    // a supervisor has to decide
  ready,
};

struct DeviceView {
  DeviceState state = DeviceState::absent;
  std::string serial;
  std::string trouble;              // in words, while it is not ready
  std::vector<std::string> status;  // the fields of the last ConsultarStatusOperacional
  std::optional<Instant> status_read;
};

}  // namespace hub
