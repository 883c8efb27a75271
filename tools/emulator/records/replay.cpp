#include "records/replay.h"

#include <string_view>

namespace emulator {

namespace {

const char* name_of(Arrival arrival) {
  switch (arrival) {
    case Arrival::nothing:
      return "nothing";
    case Arrival::block:
      return "a full block";
    case Arrival::frame:
      return "a frame";
    case Arrival::broken_frame:
      return "a broken frame";
    case Arrival::ack:
      return "ACK";
    case Arrival::nak:
      return "NAK";
  }
  return "";
}

}  // namespace

void Replay::run(bool as_recorded) {
  double former = records_.empty() ? 0 : records_.front().seconds;
  for (const RecordedBytes& record : records_) {
    const double pause = as_recorded ? record.seconds - former : 0;
    former = record.seconds;
    if (record.direction == Direction::from_till)
      follow_till(record);
    else
      send(record, pause);
  }
  line_.wait_until_read();
}

// The till's bytes need not come in the same pieces, only in the same steps.
void Replay::follow_till(const RecordedBytes& record) {
  for (const char c : record.bytes) {
    const Arrival expected = recorded_.feed(static_cast<unsigned char>(c));
    if (expected == Arrival::nothing) continue;
    std::string text;
    const Arrival seen = next_arrival(text);
    if (seen != expected) {
      throw Departed(std::string("the till sends ") + name_of(seen) + " where the recording has " +
                     name_of(expected));
    }
    if (expected == Arrival::frame && recorded_.take_text() != text) {
      log_.note("the till's command differs from the recorded one");
    }
  }
}

Arrival Replay::next_arrival(std::string& text) {
  for (;;) {
    const auto byte = line_.peek(Clock::time_point::max());
    if (!byte) continue;
    line_.take();
    const Arrival arrival = live_.feed(*byte);
    if (arrival == Arrival::nothing) continue;
    if (arrival == Arrival::frame) text = live_.take_text();
    return arrival;
  }
}

void Replay::send(const RecordedBytes& record, double pause_seconds) {
  if (pause_seconds > 0) {
    line_.pause(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(pause_seconds)));
  }
  line_.write(record.bytes);
}

}  // namespace emulator
