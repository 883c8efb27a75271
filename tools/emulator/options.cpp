#include "options.h"

#include <CLI/CLI.hpp>

#include "control.h"
#include "faults.h"
#include "identifiers.h"
#include "profiles.h"
#include "settings.h"

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
  if (head.size() >= kColumn) line += "\n  " + std::string(kColumn, ' ');
  else line.append(kColumn - head.size(), ' ');
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
  4  the port, its link or the control socket cannot be made
  5  the state file cannot be read, understood or written, or another emulator uses it
  6  in a replay the till did something else than in the recording
)";
  return text;
}

void add_port_options(CLI::App& app, Options& options) {
  const std::string group = "Port";
  app.add_option("--link", options.link, "Make a symbolic link PATH to the port; an existing file is left alone")
      ->type_name("PATH")->group(group);
  app.add_option("--latency", options.latency_ms, "Milliseconds between acknowledgement and reply")
      ->type_name("MS")->check(CLI::Range(0, static_cast<int>(kLongestDelay)))->group(group);
  app.add_option("--byte-delay", options.byte_delay_us, "Microseconds between two bytes to the till: a slow line")
      ->type_name("US")->check(CLI::Range(0, static_cast<int>(kLongestDelay)))->group(group);
  app.add_option("--control", options.control, "Take orders on this local socket")->type_name("SOCKET")->group(group);
}

void add_device_options(CLI::App& app, Options& options) {
  const std::string group = "Device (an existing state file wins over those marked *)";
  app.add_option("--state", options.state, "Remember everything in this JSON file")->type_name("FILE")->group(group);
  app.add_flag("--activated", options.activated, "Activated and a signature associated: ready to sell *")->group(group);
  app.add_option("--activation-code", options.activation_code, "Activation code of --activated (12345678) *")
      ->type_name("CODE")->group(group);
  app.add_option("--emergency-code", options.emergency_code, "Emergency code *")
      ->type_name("CODE")->capture_default_str()->group(group);
  app.add_option("--cnpj", options.cnpj, "The contributor's CNPJ; without it any issuer may sell *")
      ->type_name("DIGITS")->group(group)
      ->check(validator([](const std::string& text) {
        if (!valid_cnpj(text)) throw std::invalid_argument("no CNPJ of 14 digits with the right check digits");
      }));
  app.add_option("--uf", options.uf, "State, as number or letters (35) *")
      ->type_name("UF")->check(validator([](const std::string& text) { uf_code(text); }))->group(group);
  app.add_option("--serial", options.serial, "Serial number, nine digits (900000001) *")
      ->type_name("DIGITS")->group(group)
      ->check(validator([](const std::string& text) {
        if (text.size() != 9 || !all_digits(text)) throw std::invalid_argument("a serial number has nine digits");
      }));
  app.add_option("--seed", options.seed, "Same signing key, random digits and chances of fault in every run")
      ->type_name("N")->group(group);
  app.add_option("--clock", options.clock, "The clock stands still at this moment, e.g. 2026-03-01T10:00:00")
      ->type_name("MOMENT")->check(validator([](const std::string& text) { moment_of(text); }))->group(group);
  app.add_option("--battery", options.battery, "ALTO, MEDIO or BAIXO")
      ->check(validator([](const std::string& text) { battery_level(text); }))->capture_default_str()->group(group);
  app.add_option("--memory", options.memory, "Total memory, as reported")->capture_default_str()->group(group);
  app.add_option("--wrong-codes", options.wrong_codes, "Wrong activation codes in a row that lock the device")
      ->type_name("N")->check(CLI::Range(1, 1'000))->capture_default_str()->group(group);
  app.add_option("--sefaz-notice", options.sefaz_notice, "Notice in every reply: 1 to 5 or 999; 0: none")
      ->type_name("CODE")->group(group)
      ->check(validator([](const std::string& text) { notice_code(text); }));
  app.add_flag("--offline", options.offline, "The tax authority cannot be reached")->group(group);
}

void add_trouble_options(CLI::App& app, Options& options) {
  const std::string group = "Trouble";
  app.add_option("--profile", options.profiles, "Quirk of devices in the field (may be repeated)")
      ->type_name("NAME")->check(validator([](const std::string& text) { profile_called(text); }))->group(group);
  app.add_option("--faults", options.fault_files, "Fault rules of this file (may be repeated)")
      ->type_name("FILE")->group(group);
  app.add_option("--fault", options.faults, "One fault rule (may be repeated)")
      ->type_name("RULE")->group(group)
      ->check(validator([](const std::string& text) { FaultRules(0).add(text); }));
}

void add_traffic_options(CLI::App& app, Options& options) {
  const std::string group = "Traffic";
  auto* record = app.add_option("--record", options.record, "Write the line's traffic to this text file")
                     ->type_name("FILE")->group(group);
  app.add_flag("--mask", options.mask, "Keep personal data and activation codes out of the recording")
      ->needs(record)->group(group);
  auto* replay = app.add_option("--replay", options.replay, "Play a recording as the device, then end")
                     ->type_name("FILE")->group(group);
  app.add_flag("--as-recorded", options.as_recorded, "Replay with the recorded pauses")->needs(replay)->group(group);
  app.add_option("--mask-file", options.mask_files, "Mask an existing recording and end")
      ->type_name("IN OUT")->expected(2)->group(group);
}

}  // namespace

std::optional<Options> parse_options(int argc, char** argv, int& exit_code) {
  Options options;
  CLI::App app{"sat-emulator: a SAT device on a pseudo-terminal, for developing and testing tills.\n", "sat-emulator"};
  app.set_version_flag("--version", "sat-emulator " TALVEX_VERSION);
  app.option_defaults()->always_capture_default(false);
  app.get_formatter()->column_width(34);
  app.footer(manual);
  add_port_options(app, options);
  add_device_options(app, options);
  add_trouble_options(app, options);
  add_traffic_options(app, options);
  app.add_flag("--json-log", options.json_log, "One JSON object per event on standard error")->group("Output");
  app.add_flag("--quiet", options.quiet, "Nothing but errors on standard error")->group("Output");
  try {
    app.parse(argc, argv);
    return options;
  } catch (const CLI::ParseError& error) {
    exit_code = app.exit(error) == 0 ? kExitEnded : kExitUsage;
    return std::nullopt;
  }
}

}  // namespace emulator
