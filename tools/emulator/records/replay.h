// Plays a recording as the device.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "line/frame.h"
#include "line/line.h"
#include "records/event_log.h"
#include "records/recording.h"

namespace emulator {

// The till does something else than in the recording: another kind of step, not merely another text.
class Departed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Replay {
 public:
  Replay(std::vector<RecordedBytes> records, Line& line, const EventLog& log)
      : records_(std::move(records)), line_(line), log_(log) {}

  // Returns when the whole recording has been played and the till has read it. Throws Departed.
  void run(bool as_recorded);

 private:
  void follow_till(const RecordedBytes& record);
  void send(const RecordedBytes& record, double pause_seconds);
  // What the till completes next, with the text of its frame.
  Arrival next_arrival(std::string& text);

  std::vector<RecordedBytes> records_;
  Line& line_;
  const EventLog& log_;
  FrameReader live_;
  FrameReader recorded_;
};

}  // namespace emulator
