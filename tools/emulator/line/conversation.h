// One device's side of the link protocol: commands in, acknowledgements, replies out.
#pragma once

#include <string>

#include "line/frame.h"
#include "line/line.h"

namespace emulator {

// What the link does wrong in one transaction; the defaults do nothing wrong.
struct LinkFaults {
  int naks = 0;                                          // transmissions of the command that are rejected
  bool ignore_command = false;                           // neither answered nor carried out
  std::string acknowledgement{static_cast<char>(kAck)};  // what the till gets of the ACK to the command
  bool no_reply = false;                                 // carried out and acknowledged, but never answered
  Milliseconds delay{0};                                 // before the reply
  int wrong_checksums = 0;                               // transmissions of the reply that are spoilt
  std::string stray_bytes;                               // in front of the reply's STX
  std::vector<Cut> cuts;       // within the reply's frame, in the order of their places
  std::size_t piece_size = 0;  // the frame goes out in pieces of this size
  Milliseconds piece_pause{0};
  Absence absence;         // for a cut that unplugs the device
  bool duplicate = false;  // the reply's frame twice
};

// The device behind the link.
class Service {
 public:
  virtual ~Service() = default;
  // Asked once per command, before it is acknowledged.
  virtual LinkFaults link_faults(const std::string& command) = 0;
  // Carries the command out; called once per command, after it was acknowledged. What the reply tells the
  // till is stored when this returns.
  virtual std::string reply(const std::string& command) = 0;
  // The till acknowledged the reply (true), or it was given up.
  virtual void delivered(bool acknowledged) = 0;
  // The port was unplugged and is back; the complaint is empty if all is well.
  virtual void hung_up(const std::string& complaint) = 0;
};

class Conversation {
 public:
  Conversation(Line& line, Service& service) : line_(line), service_(service) {}

  // Serves one till after the other until the process is told to stop.
  [[noreturn]] void run();

 private:
  enum class Outcome { acknowledged, rejected, given_up };

  void serve_next_command();
  std::string receive_command();
  bool deliver(const std::string& reply, LinkFaults& faults);
  Outcome send_frame(const std::string& frame, const LinkFaults& faults);
  Outcome await_answer();
  void answer(unsigned char byte);

  Line& line_;
  Service& service_;
  FrameReader reader_;
  std::string pending_command_;  // received while another one was being rejected
};

}  // namespace emulator
