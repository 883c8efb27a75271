#include "desk/emulated_device.h"

#include <algorithm>
#include <cctype>

#include "device/function_call.h"
#include "documents/encoding.h"

namespace emulator {

namespace {

// The name of a field that the till has made up may hold anything; a log line holds letters and digits.
std::string printable(const std::string& field) {
  constexpr std::size_t kMost = 120;
  std::string clean = field.substr(0, kMost);
  std::replace_if(
      clean.begin(), clean.end(), [](unsigned char c) { return std::isprint(c) == 0 || c > 0x7E; }, '?');
  return clean;
}

}  // namespace

EmulatedDevice::EmulatedDevice(Device& device, FaultRules& rules, const EventLog& log)
    : device_(device), rules_(rules), log_(log) {}

void EmulatedDevice::set_profiles(std::vector<const Profile*> profiles) {
  profiles_ = std::move(profiles);
  device_.surroundings().last_sale_only = uses(kLastSaleOnlyProfile);
  device_.surroundings().shape = [this](const Function& function, Reply& reply) {
    for (const Profile* profile : profiles_) {
      if (profile->shape != nullptr) profile->shape(function, reply);
    }
  };
}

void EmulatedDevice::demand_layout() {
  device_.surroundings().strict = [this](const std::vector<Violation>& found) { log_violations(found); };
}

void EmulatedDevice::log_violations(const std::vector<Violation>& violations) const {
  constexpr std::size_t kMostLines = 1'000;
  const std::size_t lines = std::min(violations.size(), kMostLines);
  for (std::size_t i = 0; i < lines; ++i) {
    const auto& [rule, cause, field, expected] = violations[i];
    log_.note("strict: " + printable(field) + ": " + std::string(rule) +
              (expected.empty() ? "" : ": " + expected));
  }
  if (violations.size() > lines) {
    log_.note("strict: and " + std::to_string(violations.size() - lines) + " more");
  }
}

bool EmulatedDevice::uses(std::string_view profile) const {
  return std::any_of(profiles_.begin(), profiles_.end(),
                     [profile](const Profile* used) { return used->name == profile; });
}

Reply EmulatedDevice::static_reply(const Command& command) {
  Reply reply = canned_reply(command);
  if (command.function != nullptr) device_.surroundings().shape(*command.function, reply);
  return reply;
}

LinkFaults EmulatedDevice::link_faults(const std::string& text) {
  const Command command = parse_command(text);
  plan_ = rules_.plan(command);
  plan_.link.delay += latency_;
  if (plan_.link.ignore_command) {
    log_.call({command.name, command.session, "", plan_.names, Milliseconds(0)});
  }
  return plan_.link;
}

std::string EmulatedDevice::reply(const std::string& text) {
  const auto start = Clock::now();
  const Command command = parse_command(text);
  const Reply reply = uses(kStaticProfile) && !plan_.fiscal.imposed ? static_reply(command)
                                                                    : device_.execute(command, plan_.fiscal);
  std::string answer = latin1_ ? to_latin1(reply.text()) : reply.text();
  if (plan_.previous_reply && !former_reply_.empty())
    std::swap(answer, former_reply_);
  else
    former_reply_ = answer;
  if (answer.size() < plan_.reply_size) {
    answer += '|';
    answer.resize(std::max(answer.size(), plan_.reply_size), 'X');
  }
  const auto duration = std::chrono::duration_cast<Milliseconds>(Clock::now() - start);
  log_.call({command.name, command.session, padded(reply.code, 5), plan_.names, duration});
  return answer;
}

void EmulatedDevice::delivered(bool acknowledged) {
  if (!acknowledged) log_.note("the till did not acknowledge the reply");
}

void EmulatedDevice::hung_up(const std::string& complaint) {
  if (!complaint.empty()) log_.note(complaint);
}

}  // namespace emulator
