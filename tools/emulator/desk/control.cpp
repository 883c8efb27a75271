#include "desk/control.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "desk/settings.h"
#include "device/function_call.h"
#include "device/messages.h"

namespace emulator {

using nlohmann::json;

namespace {

constexpr int kDeepest = 4;  // of a JSON object with orders

}  // namespace

const std::vector<Control::Row>& Control::table() {
  static const std::vector<Row> rows{
      {{"state", "", "shows the state"}, &Control::show_state},
      {{"receipts", "", "lists the receipts, oldest first"}, &Control::show_receipts},
      {{"help", "", "lists the orders"}, &Control::show_help},
      {{"fault", "RULE | clear", "adds a fault rule, or removes all"}, &Control::change_faults},
      {{"profile", "NAME... | none", "sets the quirks"}, &Control::change_profile},
      {{"latency", "MS", "time between acknowledgement and reply"}, &Control::change_latency},
      {{"byte-delay", "US", "time between two bytes to the till"}, &Control::change_byte_delay},
      {{"clock", "MOMENT | +DURATION", "stops the clock at a moment, or sets it ahead (31m, 2h, 3d)"},
       &Control::change_clock},
      {{"block", "none|sefaz|contributor|autonomous|deactivation", "blocks or unblocks the device"},
       &Control::change_block},
      {{"certificate", "valid | expired", "renews the certificate, or lets it expire"},
       &Control::change_certificate},
      {{"battery", "ALTO | MEDIO | BAIXO", "battery level"}, &Control::change_battery},
      {{"sefaz", "up | down", "whether the tax authority can be reached"}, &Control::change_sefaz},
      {{"notice", "CODE", "the tax authority's notice in every reply; 0: none"}, &Control::change_notice},
      {{"unlock", "", "forgets wrong activation codes"}, &Control::unlock},
      {{"hangup", "[back=MS] [as=NAME]", "unplugs the device and plugs it in again"}, &Control::hang_up},
      {{"quit", "", "ends the emulator"}, &Control::quit},
  };
  return rows;
}

const std::vector<ControlOrder>& Control::orders() {
  static const std::vector<ControlOrder> orders = [] {
    std::vector<ControlOrder> list;
    for (const Row& row : table()) list.push_back(row.order);
    return list;
  }();
  return orders;
}

std::string Control::execute(const std::string& line) {
  json answer{{"ok", true}};
  try {
    const auto start = line.find_first_not_of(kBlanks);
    if (start != std::string::npos && line[start] == '{')
      execute_json(line, answer);
    else
      execute_text(line, answer);
  } catch (const std::exception& error) {
    answer = {{"ok", false}, {"error", error.what()}};
  }
  answer["state"] = state();
  return answer.dump(-1, ' ', false, json::error_handler_t::replace);
}

void Control::execute_json(const std::string& line, json& answer) {
  const json orders = json::parse(line, [](int depth, json::parse_event_t, json&) {
    if (depth > kDeepest) throw std::invalid_argument("orders are not nested that deep");
    return true;
  });
  for (const auto& [name, value] : orders.items()) {
    apply(name, value.is_string() ? value.get<std::string>() : value.dump(), answer);
  }
}

void Control::execute_text(const std::string& line, json& answer) {
  std::istringstream words(line);
  std::string name, argument;
  words >> name >> std::ws;
  std::getline(words, argument);
  apply(name, argument.substr(0, argument.find_last_not_of(kBlanks) + 1), answer);
}

void Control::apply(const std::string& name, const std::string& argument, json& answer) {
  // A fault rule may be given as it stands in a file.
  if (name == "on") return change_faults("on " + argument, answer);
  const auto& rows = table();
  const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return name == r.order.name; });
  if (row == rows.end()) throw std::invalid_argument("no order is called \"" + name + "\"; try help");
  (this->*row->handler)(argument, answer);
}

json Control::state() const {
  json state = summary(device_.state());
  Surroundings& surroundings = device_.surroundings();
  state["port"] = line_.port();
  state["link"] = line_.link_name();
  state["clock"] = format_moment(surroundings.clock.now());
  state["battery"] = surroundings.battery;
  state["sefaz_reachable"] = surroundings.sefaz_reachable;
  state["sefaz_notice"] = surroundings.sefaz_notice;
  state["latency_ms"] = emulated_.latency().count();
  state["faults"] = rules_.lines();
  state["profiles"] = json::array();
  for (const Profile* profile : emulated_.active_profiles()) state["profiles"].push_back(profile->name);
  return state;
}

void Control::show_receipts(const std::string&, json& answer) {
  answer["receipts"] = json::array();
  for (const auto& receipt : device_.state().receipts)
    answer["receipts"].push_back(json::parse(receipt->json()));
}

void Control::show_help(const std::string&, json& answer) {
  for (const ControlOrder& order : orders()) {
    answer["orders"][std::string(order.name) + (*order.usage != '\0' ? " " : "") + order.usage] =
        order.effect;
  }
}

void Control::change_faults(const std::string& argument, json&) {
  if (argument == "clear")
    rules_.clear();
  else
    rules_.add(argument);
}

void Control::change_profile(const std::string& argument, json&) {
  std::vector<const Profile*> profiles;
  std::istringstream words(argument);
  for (std::string name; words >> name;) {
    if (name != "none") profiles.push_back(&profile_called(name));
  }
  emulated_.set_profiles(std::move(profiles));
}

void Control::change_latency(const std::string& argument, json&) {
  emulated_.set_latency(Milliseconds(number_within(argument, 0, kLongestDelay)));
}

void Control::change_byte_delay(const std::string& argument, json&) {
  line_.set_byte_delay(std::chrono::microseconds(number_within(argument, 0, kLongestDelay)));
}

void Control::change_clock(const std::string& argument, json&) {
  DeviceClock& clock = device_.surroundings().clock;
  if (argument.starts_with('+'))
    clock.advance(duration_of(argument.substr(1)));
  else
    clock.stop_at(moment_of(argument));
}

void Control::change_block(const std::string& argument, json&) {
  const Block block = block_called(argument);
  device_.change([&](DeviceState& state) { state.block = block; });
}

void Control::change_certificate(const std::string& argument, json&) {
  constexpr Moment kDay = 86'400;
  const Moment now = device_.surroundings().clock.now();
  if (argument != "valid" && argument != "expired") throw std::invalid_argument("valid or expired");
  device_.change([&](DeviceState& state) {
    start_certificate(state, now);
    if (argument == "expired") state.certificate_expires = format_date(now - kDay);
  });
}

void Control::change_battery(const std::string& argument, json&) {
  device_.surroundings().battery = battery_level(argument);
}

// Once the authority can be reached again, the pending receipts go out.
void Control::change_sefaz(const std::string& argument, json&) {
  if (argument != "up" && argument != "down") throw std::invalid_argument("up or down");
  Surroundings& surroundings = device_.surroundings();
  surroundings.sefaz_reachable = argument == "up";
  if (!surroundings.sefaz_reachable) return;
  const std::string now = format_moment(surroundings.clock.now());
  device_.change([&](DeviceState& state) { transmit_pending(state, now); });
}

void Control::change_notice(const std::string& argument, json&) {
  device_.surroundings().sefaz_notice = notice_code(argument);
}

void Control::unlock(const std::string&, json&) {
  device_.change([](DeviceState& state) {
    state.wrong_codes = 0;
    state.code_locked = false;
  });
}

void Control::hang_up(const std::string& argument, json&) {
  const ActionArguments arguments(argument);
  arguments.check_names({"back", "as"});
  line_.request_absence(absence_of(arguments));
}

void Control::quit(const std::string&, json&) {
  throw Stopped{};
}

}  // namespace emulator
