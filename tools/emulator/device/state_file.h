// The device's memory on disk.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "device/device_state.h"

namespace emulator {

class StateError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A JSON file that is replaced as a whole: written beside, flushed to the disk, renamed. Whenever the
// process or the machine dies, the file holds one complete state.
class StateFile {
 public:
  // An empty path: nothing is kept. One emulator at a time may use a file; throws StateError if another
  // one does.
  explicit StateFile(std::string path);
  ~StateFile();
  StateFile(const StateFile&) = delete;
  StateFile& operator=(const StateFile&) = delete;

  bool keeps() const { return !path_.empty(); }
  // Nothing when there is no file yet. Throws StateError when it cannot be read or understood.
  std::optional<DeviceState> load() const;
  // Throws StateError; the former state is then still in the file.
  void save(const DeviceState& state) const;

 private:
  void claim();

  std::string path_;
  int claim_ = -1;
};

}  // namespace emulator
