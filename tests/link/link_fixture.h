// What the tests of the link share: a scripted device on a pseudo-terminal, a directory of their own, the
// trace lines by function, and an alarm, so that a hang ends the test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "api/acknowledgement.h"
#include "api/context.h"
#include "api/port_io.h"
#include "api/reception.h"
#include "api/serial_port.h"
#include "api/transmission.h"
#include "olk_utils/trace_log.h"
#include "support/file_status.h"
#include "support/prepared_call.h"
#include "support/printed.h"
#include "support/scratch_directory.h"
#include "support/scripted_device.h"
#include "support/text_files.h"

using Lines = std::vector<std::string>;

inline std::string times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

// The lines of one function of the SAT interface module: level tag, then the text behind "[function]".
inline Lines traced(const std::string& function) {
  const std::string prefix = "[] [../src/api/TALVEX] [" + function + "]";
  constexpr std::size_t kTag = 4;
  Lines lines;
  for (const std::string& message : trace_messages("SAT_api.log")) {
    if (message.compare(kTag, prefix.size(), prefix) == 0)
      lines.push_back(message.substr(0, kTag) + message.substr(kTag + prefix.size()));
  }
  return lines;
}

inline Lines with_text(const Lines& lines, const std::string& text) {
  Lines found;
  for (const std::string& line : lines) {
    if (line.find(text) != std::string::npos) found.push_back(line);
  }
  return found;
}

// Where no call has just failed, errno and its text are whatever they are.
inline Lines without_errno(Lines lines) {
  static const std::regex field(R"(errno\[\d{5}:[^\]]*\])");
  for (std::string& line : lines) line = std::regex_replace(line, field, "errno[]");
  return lines;
}

// Behind the text a buffer must hold nothing but zeros.
inline bool is_zero_behind_text(const char* buffer, std::size_t size) {
  const std::size_t length = std::strlen(buffer);
  return buffer[size - 1] == 0 && std::memcmp(buffer + length, buffer + length + 1, size - length - 1) == 0;
}

class LinkTest : public testing::Test {
 protected:
  explicit LinkTest(scripted::ScriptedDevice::Clock clock) : device_(std::move(clock)) {
    alarm(kAlarmSeconds);
    others_on_port_ = descriptors_on_port();
  }
  ~LinkTest() override { alarm(0); }

  scripted::ScriptedDevice& device() { return device_; }
  SerialPort& port() { return port_; }

  // Whether a whole call has closed what it opened.
  bool port_is_closed() const { return descriptors_on_port() == others_on_port_; }

  static void log_everything() { bDebugLogsEnabled = 1; }
  static void log_errors_only() {
    bDebugLogsEnabled = 0;
    bErrorLogsEnabled = 1;
  }

  // Opens the device's port as a transaction finds it after the settings.
  void open_port() {
    ASSERT_EQ(lSerialOpenW(port_, device_.path().c_str()), 0);
    ASSERT_EQ(lSerialSettingsL(port_), 0);
  }

  // One command through the open port.
  int transmit(const std::string& text, uint32_t seconds = 10) {
    Call call = prepared_call(kConsultarSAT, seconds, port_);
    put_command(call.packet, text);
    return lSerialWriteBufL(call);
  }

  // The device's answer to a command.
  int await_answer(uint32_t seconds = 10) {
    Call call = prepared_call(kConsultarSAT, seconds, port_);
    return cSerialReadAck(call);
  }

  // One reply, as the driver asks for it.
  int receive(uint32_t seconds = 10, SatFunctionIndex function = kConsultarSAT) {
    Call call = prepared_call(function, seconds, port_);
    return cSerialReadBufW(call);
  }

  // So that the port takes nothing until the device reads. Returns the number of bytes on the line.
  std::size_t fill_line() const {
    constexpr int kSettled = 200;  // the kernel moves bytes up the line in the background
    const std::string filling(4096, '-');
    pollfd line{port_.descriptor, POLLOUT, 0};
    std::size_t size = 0;
    do {
      for (ssize_t written; (written = write(port_.descriptor, filling.data(), filling.size())) > 0;) {
        size += static_cast<std::size_t>(written);
      }
    } while (poll(&line, 1, kSettled) > 0);
    return size;
  }

  // "%08Xh" of the open port.
  std::string handle() const { return printed("%08Xh", static_cast<unsigned>(port_.descriptor)); }

  // A configuration that leads to the scripted device. More lines can be added per section.
  static std::string configuration(const std::string& port, const std::string& more = "",
                                   const std::string& log_mode = "5") {
    return "[SERIAL_PORT_CONFIG]\nFixarPorta=" + port + "\n" + more +
           "[LOG]\nLogFilePath=Log\nLogMode=" + log_mode + "\n";
  }

 private:
  static constexpr unsigned kAlarmSeconds = 100;

  long descriptors_on_port() const { return open_descriptors(device_.path()); }

  ScratchDirectory scratch_;
  scripted::ScriptedDevice device_;
  SerialPort port_;
  long others_on_port_ = 0;
};
