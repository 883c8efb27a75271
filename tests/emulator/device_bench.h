// A device on the bench: no line, no file, a clock that stands still.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/device.h"
#include "device/function_call.h"
#include "emulator/sale_data.h"

namespace emulator {

class DeviceBench : public testing::Test {
 protected:
  static constexpr const char* kCode = "12345678";

  DeviceBench() : DeviceBench(ready_state()) {}
  explicit DeviceBench(DeviceState state) : device(std::move(state), no_file, 7) {
    set_clock("2026-03-01T10:00:00");
  }

  static DeviceState ready_state() {
    DeviceState state;
    make_ready_to_sell(state, kCode, *parse_moment("2026-03-01"));
    return state;
  }

  void set_clock(const std::string& moment) { device.surroundings().clock.stop_at(*parse_moment(moment)); }

  // The fields of the reply; each call has a session number of its own.
  std::vector<std::string> call(const std::string& function, const std::vector<std::string>& arguments,
                                const FiscalFaults& faults = {}) {
    ++session;
    return call_in(session, function, arguments, faults);
  }
  std::vector<std::string> call_in(int number, const std::string& function,
                                   const std::vector<std::string>& arguments,
                                   const FiscalFaults& faults = {}) {
    std::vector<std::string> fields{function, padded(number, 6)};
    fields.insert(fields.end(), arguments.begin(), arguments.end());
    last_reply = device.execute(parse_command(join_fields(fields)), faults).text();
    return split_fields(last_reply);
  }
  std::string code_of(const std::string& function, const std::vector<std::string>& arguments) {
    return call(function, arguments)[1];
  }
  std::vector<std::string> sell() { return call("EnviarDadosVenda", {kCode, SaleData().xml()}); }
  std::vector<std::string> cancel(const std::string& key) {
    return call("CancelarUltimaVenda", {kCode, key, cancellation_xml(key)});
  }

  StateFile no_file{""};
  Device device;
  int session = 0;
  std::string last_reply;
};

}  // namespace emulator
