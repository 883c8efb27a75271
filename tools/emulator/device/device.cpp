#include "device/device.h"

#include "device/function_call.h"
#include "device/messages.h"

namespace emulator {

namespace {

// A command that no device knows; there is no family of codes for it.
Reply unknown_command(const Command& command) {
  return {99099, {command.session, "99099", "Comando desconhecido", "", ""}};
}

// The device's memory failed. Nothing of the call has happened.
Reply memory_failure(const Command& command) {
  const int code = command.function->code(99);
  Reply reply{code, {command.session, std::to_string(100'000 + code).substr(1)}};
  if (command.function->fiscal) reply.fields.emplace_back("0000");
  reply.fields.insert(reply.fields.end(), {std::string(return_code_message(code)), "", ""});
  return reply;
}

}  // namespace

Device::Device(DeviceState state, const StateFile& file, std::uint64_t seed)
    : state_(std::move(state)), file_(file), seed_(seed) {
  if (!file_.keeps()) return;
  if (state_.signing_key.empty()) state_.signing_key = signing_key().pem();
  file_.save(state_);
}

Reply Device::execute(const Command& command, const FiscalFaults& faults) {
  if (command.function == nullptr) return unknown_command(command);
  // Without a memory on disk there is nothing that can fail half-way, and no copy to fall back on.
  if (!file_.keeps()) return FunctionCall(*this, state_, command, faults).run();
  DeviceState next = state_;
  Reply reply = FunctionCall(*this, next, command, faults).run();
  try {
    commit(std::move(next));
  } catch (const StateError&) {
    return memory_failure(command);
  }
  return reply;
}

void Device::commit(DeviceState next) {
  file_.save(next);
  state_ = std::move(next);
}

const SigningKey& Device::signing_key() {
  if (!key_) {
    key_ =
        state_.signing_key.empty() ? SigningKey::from_seed(seed_) : SigningKey::from_pem(state_.signing_key);
  }
  return *key_;
}

void start_certificate(DeviceState& state, Moment now) {
  constexpr Moment kFiveYears = Moment{5} * 365 * 86'400;
  state.certificate_issued = format_date(now);
  state.certificate_expires = format_date(now + kFiveYears);
}

void make_ready_to_sell(DeviceState& state, const std::string& activation_code, Moment now) {
  state.activation = Activation::active;
  state.activation_code = activation_code;
  state.associated = true;
  start_certificate(state, now);
  state.last_communication = format_moment(now);
}

}  // namespace emulator
