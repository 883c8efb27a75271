// Changes while the emulator runs: one line, text or JSON, is one order; the answer is one line of JSON with
// the state that the order has left.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "desk/emulated_device.h"
#include "desk/faults.h"
#include "device/device.h"
#include "line/line.h"

namespace emulator {

struct ControlOrder {
  const char* name;
  const char* usage;
  const char* effect;
};

class Control {
 public:
  Control(Device& device, EmulatedDevice& emulated, FaultRules& rules, Line& line)
      : device_(device), emulated_(emulated), rules_(rules), line_(line) {}

  // "latency 200" or {"latency": 200}. Throws Stopped for "quit".
  std::string execute(const std::string& line);
  static const std::vector<ControlOrder>& orders();

 private:
  using Handler = void (Control::*)(const std::string& argument, nlohmann::json& answer);
  struct Row {
    ControlOrder order;
    Handler handler;
  };
  static const std::vector<Row>& table();

  void execute_json(const std::string& line, nlohmann::json& answer);
  void execute_text(const std::string& line, nlohmann::json& answer);
  void apply(const std::string& name, const std::string& argument, nlohmann::json& answer);
  nlohmann::json state() const;

  void show_state(const std::string&, nlohmann::json&) {}
  void show_receipts(const std::string&, nlohmann::json& answer);
  void show_help(const std::string&, nlohmann::json& answer);
  void change_faults(const std::string& argument, nlohmann::json& answer);
  void change_profile(const std::string& argument, nlohmann::json&);
  void change_latency(const std::string& argument, nlohmann::json&);
  void change_byte_delay(const std::string& argument, nlohmann::json&);
  void change_clock(const std::string& argument, nlohmann::json&);
  void change_block(const std::string& argument, nlohmann::json&);
  void change_certificate(const std::string& argument, nlohmann::json&);
  void change_battery(const std::string& argument, nlohmann::json&);
  void change_sefaz(const std::string& argument, nlohmann::json&);
  void change_notice(const std::string& argument, nlohmann::json&);
  void unlock(const std::string&, nlohmann::json&);
  void hang_up(const std::string& argument, nlohmann::json&);
  void quit(const std::string&, nlohmann::json&);

  Device& device_;
  EmulatedDevice& emulated_;
  FaultRules& rules_;
  Line& line_;
};

}  // namespace emulator
