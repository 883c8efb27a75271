// The exported loop that a host may run on a thread of its own, to keep the logs in bounds while it makes no
// calls.
#include "api/api_trace.h"
#include "api/context.h"
#include "api/protocol_log.h"
#include "olk_sat_utils/sat_functions.h"
#include "olk_utils/system_clock.h"
#include "talvex/talvex.h"

// Kept: the library itself never sets it.
int gl_hComm = -1;

namespace {

bool is_held_back_while_running(const char* command) {
  const SatFunction* function = find_sat_function(command);
  return function != nullptr && function->holds_back_size_control;
}

}  // namespace

void LogSzCtlTherad(void) {
  constexpr unsigned kHandle = 0;  // of the loop's thread, which the library does not know
  constexpr int kSecondsPerCycle = 5;
  constexpr unsigned kSecond = 1000000;
  constexpr int kCyclesHeldBack = 19;

  API_PLAIN_TRACE(kWarning, " Entering hT[%08Xh]\n", kHandle);
  int cycles = 0;
  for (;;) {
    for (int second = 0; second < kSecondsPerCycle; ++second) pause_microseconds(kSecond);
    if (gl_hComm != 0 && gl_hComm != -1 && is_held_back_while_running(gl_tSat.CurSatCmdInProc)) {
      if (++cycles <= kCyclesHeldBack) continue;
      API_PLAIN_TRACE(kWarning, " hT[%08Xh] i[%02d] CurSatCmdInProc[%s]Running for Long Time!!!\n", kHandle,
                      cycles, gl_tSat.CurSatCmdInProc);
    }
    cycles = 0;
    TraleFileLogSzCtl();
    LogSATProtocolSzCtl();
  }
}
