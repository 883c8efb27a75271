// The device itself: what it remembers, the rules that hold for every call, and its memory on disk.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "device/crypto.h"
#include "device/device_clock.h"
#include "device/device_state.h"
#include "device/functions.h"
#include "device/state_file.h"
#include "documents/strict.h"

namespace emulator {

struct Reply {
  int code = 0;
  std::vector<std::string> fields;

  std::string text() const { return join_fields(fields); }
};

// What surrounds the device. It is not remembered: options and the control socket set it.
struct Surroundings {
  DeviceClock clock;
  bool sefaz_reachable = true;
  int sefaz_notice = 0;  // 0: none
  std::string battery = "ALTO";
  std::string memory_total = "1 Gbytes";
  int wrong_code_limit = 5;
  bool last_sale_only = false;  // no other can be cancelled
  // Set: sales and cancellations must keep to their layout, and this is told what is wrong with one.
  std::function<void(const std::vector<Violation>&)> strict;
  // Gives a finished reply the quirks of a device in the field, before it is stored.
  std::function<void(const Function&, Reply&)> shape;
};

// A reply of a fault rule's choice.
struct ImposedReturn {
  int code = 0;
  int cccc = 0;
  std::string message;       // empty: the code's own
  std::string whole;         // a template that takes the place of all these; empty: none
  bool carried_out = false;  // the call takes place all the same
  bool stored = false;       // and yet this is what ConsultarNumeroSessao finds
};

// What a fault rule makes of one call.
struct FiscalFaults {
  bool processing = false;
  std::optional<ImposedReturn> imposed;
  std::optional<Block> block;
  bool certificate_expired = false;
};

class Device {
 public:
  // `seed` makes the signing key, if the state holds none, and the random part of access keys.
  Device(DeviceState state, const StateFile& file, std::uint64_t seed);

  // Carries one command out. When this returns, state and reply are on the disk.
  Reply execute(const Command& command, const FiscalFaults& faults);

  // Changes made from outside, stored like those of a call.
  template <typename Change>
  void change(Change change) {
    DeviceState next = state_;
    change(next);
    commit(std::move(next));
  }

  const DeviceState& state() const { return state_; }
  Surroundings& surroundings() { return surroundings_; }
  const SigningKey& signing_key();
  std::uint64_t seed() const { return seed_; }

 private:
  void commit(DeviceState next);

  DeviceState state_;
  const StateFile& file_;
  std::uint64_t seed_;
  Surroundings surroundings_;
  std::optional<SigningKey> key_;
};

// A certificate of five years.
void start_certificate(DeviceState& state, Moment now);
// A device that is activated, with a signature associated: ready to sell.
void make_ready_to_sell(DeviceState& state, const std::string& activation_code, Moment now);

}  // namespace emulator
