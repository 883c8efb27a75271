// The device together with what is wrong with it: fault rules, quirks and delays.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "desk/faults.h"
#include "desk/profiles.h"
#include "device/device.h"
#include "line/conversation.h"
#include "records/event_log.h"

namespace emulator {

class EmulatedDevice : public Service {
 public:
  EmulatedDevice(Device& device, FaultRules& rules, const EventLog& log);

  void set_latency(Milliseconds latency) { latency_ = latency; }
  Milliseconds latency() const { return latency_; }
  void set_profiles(std::vector<const Profile*> profiles);
  const std::vector<const Profile*>& active_profiles() const { return profiles_; }
  // Replies go out in code page 1252 instead of UTF-8.
  void send_latin1() { latin1_ = true; }
  // Sales and cancellations must keep to their layout; the log names whatever does not.
  void demand_layout();

  LinkFaults link_faults(const std::string& command) override;
  std::string reply(const std::string& command) override;
  void delivered(bool acknowledged) override;
  void hung_up(const std::string& complaint) override;

 private:
  void log_violations(const std::vector<Violation>& violations) const;
  bool uses(std::string_view profile) const;
  Reply static_reply(const Command& command);

  Device& device_;
  FaultRules& rules_;
  const EventLog& log_;
  Milliseconds latency_{0};
  bool latin1_ = false;
  std::vector<const Profile*> profiles_;
  CallPlan plan_;
  std::string former_reply_;
};

}  // namespace emulator
