// What is left to do when the library is unloaded, or the process ends.
#include "api/protocol_log.h"

namespace {

// The protocol log stays open between two calls; a host that unloads the library gets its descriptor back.
__attribute__((destructor)) void unload() {
  close_protocol_log();
}

}  // namespace
