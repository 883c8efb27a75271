// A till: the driver library, loaded as a host program loads it, and an emulator for it to talk to.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "emulator/emulator_process.h"
#include "support/scratch_directory.h"
#include "support/text_files.h"

class Library {
 public:
  Library() : handle_(dlopen(TALVEX_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr) throw std::runtime_error(dlerror());
  }
  ~Library() { dlclose(handle_); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  template <typename... Arguments>
  std::string call(const char* function, int session, Arguments... arguments) const {
    auto* symbol = reinterpret_cast<char* (*)(int, Arguments...)>(dlsym(handle_, function));
    if (symbol == nullptr) throw std::runtime_error(dlerror());
    return symbol(session, arguments...);
  }

 private:
  void* handle_;
};

class TillWithEmulator : public testing::Test {
 protected:
  static constexpr const char* kCode = "12345678";

  // A hang must not outlive the test.
  explicit TillWithEmulator(unsigned alarm_seconds = 100) { alarm(alarm_seconds); }
  ~TillWithEmulator() override { alarm(0); }

  // The library takes an emulator's port of up to 31 characters that ends in a digit.
  std::string port_named(const std::string& name) const { return (scratch.path() / name).string(); }

  void use_port(const std::string& port) const {
    write_file("SAT.ini", "[SERIAL_PORT_CONFIG]\n[SAT_TIMEOUT]\n[SAT_EMULATOR]\nSerialPortLinux=" + port +
                              "\nEnable=1\n[ARVOLEN]\n[LOG]\nLogFilePath=Log\nLogMode=1\n");
  }

  void start(std::vector<std::string> options) {
    options.insert(options.end(), {"--quiet", "--activated", "--link", port_named("sat0")});
    emulator = std::make_unique<EmulatorProcess>(options);
    use_port(port_named("sat0"));
  }

  ScratchDirectory scratch;
  std::unique_ptr<EmulatorProcess> emulator;
  Library library;
};
