// The network configuration that a till sends.
#pragma once

#include <optional>
#include <string_view>

#include "device/device_state.h"

namespace emulator {

// <config> with tipoLan DHCP, PPPoE or IPFIX; IPFIX brings its addresses. Nothing when it is none.
std::optional<Network> read_network_settings(std::string_view xml, const Network& former);

}  // namespace emulator
