#include "desk/options.h"

#include <CLI/CLI.hpp>

#include "desk/control.h"
#include "desk/faults.h"
#include "desk/profiles.h"
#include "desk/settings.h"
#include "documents/identifiers.h"
#include "line/tcp_port.h"

namespace emulator {

namespace {

template <typename Check>
CLI::Validator validator(Check check) {
  return CLI::Validator(
      [check](std::string& text) -> std::string {
        try {
          check(text);
          return {};
        } catch (const std::invalid_argument& error) {
          return error.what();
        }
      },
      "");
}

std::string row(const std::string& head, const std::string& text) {
  constexpr std::size_t kColumn = 32;
  std::string line = "  " + head;
  if (head.size() >= kColumn)
    line += "\n  " + std::string(kColumn, ' ');
  else
    line.append(kColumn - head.size(), ' ');
  return line + text + "\n";
}

std::string manual() {
  std::string text = R"(
Examples
  A device that is ready to sell, under a name that stays the same:
      sat-emulator --activated --link /tmp/ttySAT0
    and in the till's SAT.ini:
      [SAT_EMULATOR]
      SerialPortLinux=/tmp/ttySAT0
      Enable=1
  The same device tomorrow, receipts included:
      sat-emulator --activated --link /tmp/ttySAT0 --state sat.json
  Every byte the same in every run:
      sat-emulator --activated --seed 7 --clock 2026-03-01T10:00:00
  The reply of every third sale gets lost:
      sat-emulator --activated --fault "on EnviarDadosVenda every=3 do no-reply"
  Block the device while it runs:
      sat-emulator --activated --control /tmp/sat.sock &
      echo "block sefaz" | socat - UNIX-CONNECT:/tmp/sat.sock
  Record a day at the shop without anybody's data, play it on the desk:
      sat-emulator --activated --record day.txt --mask
      sat-emulator --replay day.txt --link /tmp/ttySAT0

Output
  Standard output: one line, the path of the port, as soon as the port can be opened.
  Standard error: one line per call and event (--json-log: JSON; --quiet: nothing).

Fault rules, one to a line (--faults FILE, --fault RULE, order "fault" of the control socket):
  on WHAT [CONDITION...] do ACTION [ARGUMENT...]
  WHAT       a function, fiscal (sales and cancellations) or any
  CONDITION  nth=N  every=N  from=N  times=N  chance=PERCENT  session=N
  REPLY      a whole reply with {session}, {date} and {key} where they differ from call to call
             --replies FILE holds lines of WHAT [CONDITION...] REPLY
)";
  for (const FaultAction& action : fault_actions()) {
    text += row(std::string(action.name) + (*action.usage != '\0' ? " " : "") + action.usage, action.effect);
  }
  text += "\nProfiles\n";
  for (const Profile& profile : profiles()) text += row(profile.name, profile.effect);
  text += "\nOrders of the control socket: a line of text, or JSON such as {\"latency\": 200}\n";
  for (const ControlOrder& order : Control::orders()) {
    text += row(std::string(order.name) + (*order.usage != '\0' ? " " : "") + order.usage, order.effect);
  }
  text += R"(
Exit codes
  0  ended by a signal or the order "quit", or the whole recording was played
  1  internal error
  2  wrong command line
  3  a rule file or recording cannot be read, understood or written
  4  the port, its link, the TCP port or the control socket cannot be made
  5  the state file cannot be read, understood or written, or another emulator uses it
  6  in a replay the till did something else than in the recording
)";
  return text;
}

// The options of one heading of the manual.
class Group {
 public:
  Group(CLI::App& app, std::string name) : app_(app), name_(std::move(name)) {}

  template <typename Target>
  CLI::Option* value(const char* option, const char* type, Target& target, const char* text) {
    return app_.add_option(option, target, text)->type_name(type)->group(name_);
  }
  CLI::Option* flag(const char* option, bool& target, const char* text) {
    return app_.add_flag(option, target, text)->group(name_);
  }

 private:
  CLI::App& app_;
  std::string name_;
};

CLI::Validator number_from(std::int64_t least, std::int64_t most) {
  return validator([=](const std::string& text) { number_within(text, least, most); });
}

void demand_digits(const std::string& text, std::size_t count) {
  if (text.size() != count || !all_digits(text)) {
    throw std::invalid_argument(std::to_string(count) + " digits");
  }
}

void demand_cnpj(const std::string& text) {
  if (!valid_cnpj(text)) throw std::invalid_argument("no CNPJ of 14 digits with the right check digits");
}

void add_port_options(CLI::App& app, Options& o) {
  const auto delay = number_from(0, kLongestDelay);
  Group port(app, "Port");
  port.value("--link", "PATH", o.link, "Make a symbolic link to the port; an existing file is left alone");
  port.value("--latency", "MS", o.latency_ms, "Time between acknowledgement and reply")->check(delay);
  port.value("--byte-delay", "US", o.byte_delay_us, "Time between two bytes to the till: a slow line")
      ->check(delay);
  port.value("--encoding", "NAME", o.encoding, "Texts of replies in utf8 (the default) or latin1")
      ->check(CLI::IsMember({"utf8", "latin1"}));
  port.value("--tcp", "ADDRESS:PORT", o.tcp, "The port over TCP too; PORT alone: on the loopback")
      ->check(validator(tcp_address));
  port.value("--control", "SOCKET", o.control, "Take orders on this local socket");
}

void add_device_options(CLI::App& app, Options& o) {
  Group device(app, "Device (an existing state file wins over those marked *)");
  device.value("--state", "FILE", o.state, "Remember everything in this JSON file");
  device.flag("--activated", o.activated, "Activated and a signature associated: ready to sell *");
  device.value("--activation-code", "CODE", o.activation_code, "Activation code of --activated (12345678) *");
  device.value("--emergency-code", "CODE", o.emergency_code, "Emergency code (emergencia) *");
  device.value("--cnpj", "DIGITS", o.cnpj, "The contributor's CNPJ; without it any issuer may sell *")
      ->check(validator(demand_cnpj));
  device.value("--uf", "UF", o.uf, "State, as number or letters (35) *")->check(validator(uf_code));
  device.value("--serial", "DIGITS", o.serial, "Serial number, nine digits (900000001) *")
      ->check(validator([](const std::string& text) { demand_digits(text, 9); }));
  device.value("--seed", "N", o.seed, "Same signing key, random digits and chances of fault in every run");
  device.value("--clock", "MOMENT", o.clock, "The clock stands still, e.g. at 2026-03-01T10:00:00")
      ->check(validator(moment_of));
  device.value("--battery", "LEVEL", o.battery, "ALTO, MEDIO or BAIXO")->check(validator(battery_level));
  device.value("--memory", "TEXT", o.memory, "Total memory, as reported (1 Gbytes)");
  device
      .value("--wrong-codes", "N", o.wrong_codes, "Wrong activation codes in a row that lock the device (5)")
      ->check(number_from(1, 1'000));
  device.value("--sefaz-notice", "CODE", o.sefaz_notice, "Notice in every reply: 1 to 5 or 999; 0: none")
      ->check(validator(notice_code));
  device.flag("--offline", o.offline, "The tax authority cannot be reached");
  device.flag("--strict", o.strict, "Refuse documents that do not keep to the layout; log every violation");
}

void add_trouble_options(CLI::App& app, Options& o) {
  Group trouble(app, "Trouble (each may be repeated)");
  trouble.value("--profile", "NAME", o.profiles, "Quirk of devices in the field")
      ->allow_extra_args(false)
      ->check(validator(profile_called));
  trouble.value("--replies", "FILE", o.reply_files, "Whole replies of this file")->allow_extra_args(false);
  trouble.value("--faults", "FILE", o.fault_files, "Fault rules of this file")->allow_extra_args(false);
  trouble.value("--fault", "RULE", o.faults, "One fault rule")
      ->allow_extra_args(false)
      ->check(validator([](const std::string& text) { FaultRules(0).add(text); }));
}

void add_traffic_options(CLI::App& app, Options& o) {
  Group traffic(app, "Traffic");
  auto* record = traffic.value("--record", "FILE", o.record, "Write the line's traffic to this text file");
  traffic.flag("--mask", o.mask, "Keep personal data and activation codes out of it")->needs(record);
  auto* replay = traffic.value("--replay", "FILE", o.replay, "Play a recording as the device, then end");
  traffic.flag("--as-recorded", o.as_recorded, "Replay with the recorded pauses")->needs(replay);
  traffic.value("--mask-file", "IN OUT", o.mask_files, "Mask an existing recording and end")->expected(2);
}

void add_output_options(CLI::App& app, Options& o) {
  Group output(app, "Output");
  output.flag("--json-log", o.json_log, "One JSON object per event on standard error");
  output.flag("--quiet", o.quiet, "Nothing but errors on standard error");
}

}  // namespace

std::optional<Options> parse_options(int argc, char** argv, int& exit_code) {
  Options options;
  CLI::App app{"sat-emulator: a SAT device on a pseudo-terminal, for developing and testing tills.\n",
               "sat-emulator"};
  app.set_version_flag("--version", "sat-emulator " TALVEX_VERSION);
  app.get_formatter()->column_width(34);
  app.footer(manual);
  add_port_options(app, options);
  add_device_options(app, options);
  add_trouble_options(app, options);
  add_traffic_options(app, options);
  add_output_options(app, options);
  try {
    app.parse(argc, argv);
    return options;
  } catch (const CLI::ParseError& error) {
    exit_code = app.exit(error) == 0 ? kExitEnded : kExitUsage;
    return std::nullopt;
  }
}

}  // namespace emulator
