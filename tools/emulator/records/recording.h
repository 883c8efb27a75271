// The traffic of the line in a text file:
//
//   0.001532 PC->SAT \x02ConsultarSAT|000042E\x03
//   0.001733 SAT->PC \x06
//
// Seconds since the start, direction, bytes. A backslash begins "\\" or "\xNN"; every other byte is a
// printable ASCII character. "#" begins a comment line.
#pragma once

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/masked_traffic.h"
#include "records/recorded_bytes.h"

namespace emulator {

std::string to_recording_line(const RecordedBytes& record);
// Throws std::runtime_error naming the line.
std::vector<RecordedBytes> parse_recording(const std::string& text);

class Recorder {
 public:
  // Throws std::runtime_error. With `masked`, personal data never reach the file: lines are held back until
  // the frames in them are complete.
  Recorder(const std::string& path, bool masked);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  void record(Direction direction, std::string_view bytes);

 private:
  void write(const std::vector<RecordedBytes>& records);

  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Closer> file_;
  bool masked_;
  TrafficMask mask_;
  Clock::time_point start_ = Clock::now();
  std::vector<RecordedBytes> held_back_;
  std::array<bool, 2> in_frame_{};
};

}  // namespace emulator
