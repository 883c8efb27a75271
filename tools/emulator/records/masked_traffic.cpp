#include "records/masked_traffic.h"

#include <algorithm>

#include "line/frame.h"
#include "masking/same_length.h"

namespace emulator {

namespace {

constexpr char kFill = 'x';
constexpr auto kFrameStart = static_cast<char>(kStx), kFrameEnd = static_cast<char>(kEtx);

// Calls use(begin, end) for what stands between each STX and its ETX; end is npos where none follows.
template <typename Use>
void for_each_frame(const std::string& stream, Use use) {
  for (std::size_t at = 0; (at = stream.find(kFrameStart, at)) != std::string::npos;) {
    const std::size_t end = stream.find(kFrameEnd, at);
    use(at + 1, end);
    if (end == std::string::npos) return;
    at = end + 1;
  }
}

// A frame that broke off may be followed by another one before any ETX: calls use(part) for each.
template <typename Use>
void for_each_part(std::string_view text, Use use) {
  while (true) {
    const std::size_t end = text.find(kFrameStart);
    use(text.substr(0, end));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

void fill(std::string& stream, std::size_t begin, std::size_t end) {
  const auto at = [&stream](std::size_t index) {
    return stream.begin() + static_cast<std::ptrdiff_t>(index);
  };
  std::replace_if(
      at(begin), at(std::min(end, stream.size())),
      [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte != kAck && byte != kNak;
      },
      kFill);
}

}  // namespace

void TrafficMask::learn(const std::string& stream) {
  for_each_frame(stream, [&](std::size_t begin, std::size_t end) {
    const std::string_view content =
        std::string_view(stream).substr(begin, std::min(end, stream.size()) - begin);
    if (content.empty()) return;
    for_each_part(content.substr(0, content.size() - 1),
                  [this](std::string_view part) { codes_.learn_command(part); });
  });
}

// Text and checksum. What was wrong stays wrong.
std::string TrafficMask::masked_content(std::string_view content, Direction direction) const {
  if (content.empty()) return {};
  const std::string_view text = content.substr(0, content.size() - 1);
  const auto side = direction == Direction::from_till ? masking::Side::host : masking::Side::device;
  std::string masked;
  masked.reserve(content.size());
  for_each_part(text, [&](std::string_view part) {
    if (part.data() != text.data()) masked += kFrameStart;
    masked += masking::filled_frame(part, side, codes_);
  });
  const std::string frame = make_frame(masked);
  const bool was_right = static_cast<unsigned char>(content.back()) == checksum(text);
  return (was_right ? frame : spoil_checksum(frame)).substr(1, content.size());
}

void TrafficMask::mask_stream(std::string& stream, Direction direction) const {
  const std::string original = stream;
  std::size_t done = 0;
  for_each_frame(original, [&](std::size_t begin, std::size_t end) {
    fill(stream, done, begin - 1);
    done = std::min(end, stream.size() - 1) + 1;
    if (end == std::string::npos) {
      std::fill(stream.begin() + static_cast<std::ptrdiff_t>(begin), stream.end(), kFill);
      return;
    }
    const std::string masked =
        masked_content(std::string_view(original).substr(begin, end - begin), direction);
    std::copy(masked.begin(), masked.end(), stream.begin() + static_cast<std::ptrdiff_t>(begin));
  });
  fill(stream, done, stream.size());
}

void TrafficMask::apply(std::vector<RecordedBytes>& records) {
  std::string streams[2];
  for (const RecordedBytes& record : records)
    streams[static_cast<std::size_t>(record.direction)] += record.bytes;
  for (const std::string& stream : streams) learn(stream);
  for (const Direction direction : {Direction::from_till, Direction::to_till}) {
    std::string& stream = streams[static_cast<std::size_t>(direction)];
    mask_stream(stream, direction);
    std::size_t at = 0;
    for (RecordedBytes& record : records) {
      if (record.direction != direction) continue;
      record.bytes = stream.substr(at, record.bytes.size());
      at += record.bytes.size();
    }
  }
}

}  // namespace emulator
