// sat-emulator: a SAT device on a pseudo-terminal.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "conversation.h"
#include "device.h"
#include "options.h"

namespace {

using namespace emulator;

class EmulatedDevice : public Service {
 public:
  explicit EmulatedDevice(const Options& options) : options_(options), device_(options) {}

  LinkFaults link_faults(const std::string&) override {
    LinkFaults faults;
    faults.delay = Milliseconds(options_.latency_ms);
    return faults;
  }
  std::string reply(const std::string& command) override { return device_.execute(parse_command(command)); }
  void delivered(bool) override {}

 private:
  Options options_;
  Device device_;
};

void run(const Options& options) {
  Waiter waiter;
  PseudoTerminal terminal;
  PortLink link;
  if (!options.link.empty()) link.create(options.link, terminal.path());
  Line line(terminal, link, waiter);
  EmulatedDevice device(options);
  std::printf("%s\n", terminal.path().c_str());
  std::fflush(stdout);
  Conversation(line, device).run();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"A SAT device on a pseudo-terminal"};
  app.add_option("--link", options.link, "Also make a symbolic link PATH to the port");
  app.add_option("--activation-code", options.activation_code, "Activation code of an activated device");
  app.add_option("--latency", options.latency_ms, "Milliseconds between acknowledgement and reply");
  app.add_flag("--activated", options.activated, "Start activated and ready to sell");
  CLI11_PARSE(app, argc, argv);
  try {
    run(options);
  } catch (const Stopped&) {
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "sat-emulator: %s\n", error.what());
    return 1;
  }
}
