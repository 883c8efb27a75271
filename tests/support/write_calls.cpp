#include "support/write_calls.h"

#include <sys/types.h>

#include <cerrno>

namespace {
bool reluctant = false;
bool interrupted = false;
write_calls::Recorder* recorder = nullptr;
}  // namespace

namespace write_calls {

Reluctant::Reluctant() {
  reluctant = true;
  interrupted = false;
}
Reluctant::~Reluctant() {
  reluctant = false;
}

Recorder::Recorder() {
  recorder = this;
}
Recorder::~Recorder() {
  recorder = nullptr;
}

}  // namespace write_calls

extern "C" {
ssize_t __real_write(int descriptor, const void* bytes, std::size_t length);
ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t length);

ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t length) {
  if (recorder != nullptr) recorder->add(static_cast<const char*>(bytes), length);
  if (!reluctant) return __real_write(descriptor, bytes, length);
  interrupted = !interrupted;
  if (!interrupted) return __real_write(descriptor, bytes, length < 1 ? length : 1);
  errno = EINTR;
  return -1;
}
}
