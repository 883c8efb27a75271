// A host program that looks for the device with all trace lines on, and prints findSat's result and name:
// once, and again after each shell command that it is given.
#include <cstdio>
#include <cstdlib>

#include "olk_utils/trace_log.h"
#include "support/find_sat.h"

namespace {

void search() {
  char name[kDeviceNameSize] = "";
  const int rc = findSat(name);
  std::printf("%d %s\n", rc, name);
}

}  // namespace

int main(int count, char** arguments) {
  bTraceLogsEnabled = 1;
  search();
  for (int i = 1; i < count; ++i) {
    if (std::system(arguments[i]) != 0) return 1;
    search();
  }
  return 0;
}
