// sat-emulator: a SAT device on a pseudo-terminal.

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <random>

#include "desk/control.h"
#include "desk/control_socket.h"
#include "desk/emulated_device.h"
#include "desk/options.h"
#include "desk/settings.h"
#include "device/state_file.h"
#include "line/conversation.h"
#include "line/tcp_port.h"
#include "records/masked_traffic.h"
#include "records/replay.h"

namespace {

using namespace emulator;

// An error whose cause lies outside the program, with the exit code that says where.
class Failure : public std::runtime_error {
 public:
  Failure(int exit_code, const std::string& text) : std::runtime_error(text), exit_code_(exit_code) {}
  int exit_code() const { return exit_code_; }

 private:
  int exit_code_;
};

template <typename Action>
auto failing_with(int exit_code, Action action) {
  try {
    return action();
  } catch (const std::exception& error) {
    throw Failure(exit_code, error.what());
  }
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw Failure(kExitInputFile, "cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<RecordedBytes> read_recording(const std::string& path) {
  try {
    return parse_recording(read_file(path));
  } catch (const std::runtime_error& error) {
    throw Failure(kExitInputFile, path + ": " + error.what());
  }
}

void mask_file(const std::string& from, const std::string& to) {
  auto records = read_recording(from);
  TrafficMask().apply(records);
  std::ofstream file(to, std::ios::binary | std::ios::trunc);
  for (const RecordedBytes& record : records) file << to_recording_line(record) << '\n';
  if (!file.flush()) throw Failure(kExitInputFile, "cannot write " + to);
}

FaultRules read_rules(const Options& options, std::uint64_t seed) {
  FaultRules rules(seed);
  const auto add_file = [&](const std::string& path, void (FaultRules::*add)(const std::string& text)) {
    try {
      (rules.*add)(read_file(path));
    } catch (const FaultSyntaxError& error) {
      throw Failure(kExitInputFile, path + ": " + error.what());
    }
  };
  for (const std::string& path : options.reply_files) add_file(path, &FaultRules::add_replies);
  for (const std::string& path : options.fault_files) add_file(path, &FaultRules::add);
  for (const std::string& rule : options.faults) rules.add(rule);
  return rules;
}

DeviceState new_state(const Options& options, Moment now) {
  DeviceState state;
  state.emergency_code = options.emergency_code;
  if (options.cnpj) state.cnpj = *options.cnpj;
  if (options.uf) state.uf = uf_code(*options.uf);
  if (options.serial) state.serial = *options.serial;
  if (options.activated) make_ready_to_sell(state, options.activation_code.value_or("12345678"), now);
  return state;
}

Surroundings surroundings_of(const Options& options) {
  Surroundings surroundings;
  if (!options.clock.empty()) surroundings.clock.stop_at(moment_of(options.clock));
  surroundings.sefaz_reachable = !options.offline;
  surroundings.sefaz_notice = options.sefaz_notice;
  surroundings.battery = options.battery;
  surroundings.memory_total = options.memory;
  surroundings.wrong_code_limit = options.wrong_codes;
  return surroundings;
}

EventLog::Form log_form(const Options& options) {
  if (options.quiet) return EventLog::Form::silent;
  return options.json_log ? EventLog::Form::json_lines : EventLog::Form::text;
}

std::uint64_t random_seed() {
  std::random_device source;
  return (static_cast<std::uint64_t>(source()) << 32) | source();
}

// The port with everything that hangs on it. From here on signals end the program in an orderly way, where it
// waits for the till; whatever may wait for something else comes before.
struct Port {
  Port(const Options& options, Recorder* recorder) : line(terminal, link, waiter) {
    if (!options.link.empty()) link.create(options.link, terminal.path());
    line.set_byte_delay(std::chrono::microseconds(options.byte_delay_us));
    if (recorder == nullptr) return;
    line.observe(
        [recorder](Direction direction, std::string_view bytes) { recorder->record(direction, bytes); });
  }

  Waiter waiter;
  PseudoTerminal terminal;
  PortLink link;
  Line line;
};

void announce(const PseudoTerminal& terminal) {
  std::printf("%s\n", terminal.path().c_str());
  std::fflush(stdout);
}

std::unique_ptr<Port> open_port(const Options& options, Recorder* recorder) {
  return failing_with(kExitPort, [&] { return std::make_unique<Port>(options, recorder); });
}

void play(const Options& options, Recorder* recorder, const EventLog& log) {
  const auto recording = read_recording(options.replay);
  const auto port = open_port(options, recorder);
  announce(port->terminal);
  Replay(recording, port->line, log).run(options.as_recorded);
}

void serve_tills(const Options& options, Recorder* recorder, const EventLog& log) {
  const std::uint64_t seed = options.seed ? *options.seed : random_seed();
  FaultRules rules = read_rules(options, seed);
  const auto file = failing_with(kExitState, [&] { return std::make_unique<StateFile>(options.state); });
  const Surroundings surroundings = surroundings_of(options);
  auto device = failing_with(kExitState, [&] {
    auto state = file->load();
    return Device(state ? std::move(*state) : new_state(options, surroundings.clock.now()), *file, seed);
  });
  device.surroundings() = surroundings;

  EmulatedDevice emulated(device, rules, log);
  emulated.set_latency(Milliseconds(options.latency_ms));
  if (options.encoding == "latin1") emulated.send_latin1();
  if (options.strict) emulated.demand_layout();
  std::vector<const Profile*> profiles;
  for (const std::string& name : options.profiles) profiles.push_back(&profile_called(name));
  emulated.set_profiles(std::move(profiles));

  const auto port = open_port(options, recorder);
  Control control(device, emulated, rules, port->line);
  std::optional<ControlSocket> socket;
  if (!options.control.empty()) {
    failing_with(kExitPort, [&] {
      socket.emplace(options.control, [&](const std::string& line) { return control.execute(line); });
    });
    port->waiter.attach(&*socket);
  }
  std::optional<TcpPort> tcp;
  if (!options.tcp.empty()) {
    failing_with(kExitPort,
                 [&] { tcp.emplace(tcp_address(options.tcp), [&port] { return port->terminal.path(); }); });
    port->waiter.attach(&*tcp);
    log.note("listening on " + tcp->address());
  }
  announce(port->terminal);
  Conversation(port->line, emulated).run();
}

bool library_takes(const std::string& link) {
  constexpr std::size_t kLongestPort = 31;
  return link.empty() || (link.size() <= kLongestPort && link.back() >= '0' && link.back() <= '9');
}

void run(const Options& options) {
  if (!options.mask_files.empty()) return mask_file(options.mask_files[0], options.mask_files[1]);
  const EventLog log(log_form(options));
  if (!library_takes(options.link)) {
    log.note("the driver library takes no port called " + options.link +
             ": up to 31 characters, the last one a digit");
  }
  std::optional<Recorder> recorder;
  if (!options.record.empty()) {
    failing_with(kExitInputFile, [&] { recorder.emplace(options.record, options.mask); });
  }
  Recorder* used = recorder ? &*recorder : nullptr;
  return options.replay.empty() ? serve_tills(options, used, log) : play(options, used, log);
}

int fail(int exit_code, const char* text) {
  std::fprintf(stderr, "sat-emulator: %s\n", text);
  return exit_code;
}

}  // namespace

int main(int argc, char** argv) {
  int exit_code = kExitEnded;
  try {
    const auto options = parse_options(argc, argv, exit_code);
    if (options) run(*options);
    return exit_code;
  } catch (const Stopped&) {
    return kExitEnded;
  } catch (const Departed& departed) {
    return fail(kExitDeparted, departed.what());
  } catch (const Failure& failure) {
    return fail(failure.exit_code(), failure.what());
  } catch (const std::exception& error) {
    return fail(kExitInternal, error.what());
  }
}
