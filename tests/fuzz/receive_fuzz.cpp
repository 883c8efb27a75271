// A transaction with a device that sends whatever it likes: the wait for the acknowledgement, then the
// reception of the reply. First byte: bits 0 to 1 the function, 2 to 3 how much a read delivers, 4 whether
// everything is logged.
#include <cstring>

#include "api/reception.h"
#include "api/transmission.h"
#include "fuzz/fuzzing.h"
#include "fuzz/sandbox.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/trace_log.h"
#include "support/prepared_call.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using fuzzing::require;
  static const bool ready = (fuzzing::enter_own_folder(), true);
  require(ready);
  static constexpr SatFunctionIndex kFunctions[] = {kConsultarSAT, kEnviarDadosVenda, kAtivarSAT,
                                                    kBloquearSAT};
  static constexpr std::size_t kReads[] = {1, 7, 4095, 1 << 20};
  static constexpr unsigned kTimeouts[] = {10, 30, 1800, 300};

  fuzzing::Input input(data, size);
  const unsigned mode = input.byte();
  const unsigned timeout = kTimeouts[mode & 3];
  bDebugLogsEnabled = (mode >> 4) & 1;
  const std::string bytes = input.rest();
  sandbox::feed(bytes, kReads[(mode >> 2) & 3]);
  SerialPort port;
  port.descriptor = sandbox::kDescriptor;
  Call call = prepared_call(kFunctions[mode & 3], timeout, port);
  static constexpr char kCommand[] = "ConsultarSAT|000042";
  static constexpr int kFrameLength = sizeof kCommand - 1 + 3;
  put_command(call.packet, kCommand);
  const timespec start = monotonic_now();
  const int sent = lSerialWriteBufL(call);
  require(sent == kFrameLength || sent == -2 || sent == -3 || sent == -4 || sent == -2009);
  if (sent >= 0) {
    const int length = cSerialReadBufW(call);
    if (length >= 0) {
      require(static_cast<std::size_t>(length) <= bytes.size());
      require(gl_sSatPkt[length] == '\0');
    } else {
      require(length >= -2008 && length <= -2003);
    }
  }
  // Every wait has its limit, however much comes in.
  const auto limit =
      static_cast<int64_t>(timeout) * 1000 * 4 + 600000 + static_cast<int64_t>(bytes.size()) * 10;
  require(elapsed_ms(start, monotonic_now()) < limit);
  return 0;
}
