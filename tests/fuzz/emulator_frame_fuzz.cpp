// The emulator's reader of frames: whatever a till sends, the reader's rules hold, and what the device and
// the masking of recordings make of an accepted text stays within bounds.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "device/device.h"
#include "line/frame.h"
#include "records/masked_traffic.h"

namespace {

using namespace emulator;

void require(bool rule) {
  if (!rule) std::abort();
}

Device& device() {
  static const StateFile no_file("");
  static Device ready = [] {
    DeviceState state;
    make_ready_to_sell(state, "12345678", 0);
    return Device(std::move(state), no_file, 1);
  }();
  return ready;
}

void carry_out(const std::string& text) {
  const std::string reply = device().execute(parse_command(text), {}).text();
  require(!reply.empty());
  for (const Direction direction : {Direction::from_till, Direction::to_till}) {
    std::vector<RecordedBytes> records{{0, direction, make_frame(text)}};
    TrafficMask().apply(records);
    require(records[0].bytes.size() == text.size() + 3);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FrameReader reader;
  std::size_t held = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const bool was_in_frame = reader.in_frame();
    held = was_in_frame || data[i] == kStx ? held + 1 : 0;
    const Arrival arrival = reader.feed(data[i]);
    require((arrival == Arrival::block) == (reader.in_frame() && held % kBlockSize == 0 && held > 0));
    require(arrival != Arrival::frame || (was_in_frame && data[i] == kEtx));
    require(arrival != Arrival::ack || (!was_in_frame && data[i] == kAck));
    if (arrival == Arrival::frame) {
      const std::string text = reader.take_text();
      require(text.size() + 3 == held);
      // The bytes were those of a frame as the emulator itself would build it.
      const std::string frame(reinterpret_cast<const char*>(data) + i + 1 - held, held);
      require(make_frame(text) == frame);
      carry_out(text);
    }
    if (!reader.in_frame()) held = 0;
  }
  return 0;
}
