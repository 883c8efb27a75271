// What is left to do when the library is unloaded, or the process ends.
#include <unistd.h>

#include "api/protocol_log.h"

namespace {

// The protocol log stays open between two calls; a host that unloads the library gets its descriptor back.
__attribute__((destructor)) void close_protocol_log() {
  if (gl_iFd > 0) close(gl_iFd);
  gl_iFd = 0;
}

}  // namespace
