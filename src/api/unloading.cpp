// What is left to do when the library is unloaded, or the process ends.
#include "api/protocol_log.h"
#include "api/usb_search.h"

namespace {

// Two descriptors stay open between two calls; a host that unloads the library gets them back.
__attribute__((destructor)) void unload() {
  close_protocol_log();
  close_event_count();
}

}  // namespace
