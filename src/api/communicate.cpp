#include "api/communicate.h"

#include <errno.h>
#include <string.h>

#include "api/api_trace.h"
#include "api/discovery.h"
#include "api/link_codes.h"
#include "api/protocol_log.h"
#include "api/reception.h"
#include "api/serial_port.h"
#include "api/transmission.h"
#include "api/version.h"
#include "olk_sat_utils/return_codes.h"
#include "olk_utils/bounded_text.h"

namespace {

constexpr char kFunction[] = "Communicate";

// Kept: fixed numbers of these messages, known to support; they are not source lines.
enum MessageLine {
  kNotFoundLine = 2193,
  kNotOpenedLine = 2254,
  kLockLine = 2272,
  kSettingsLine = 2286,
  kSendLine = 2305,
  kReceiveLine = 2324
};

#define STEP_TRACE(level, text, ...) API_TRACE_IN(kFunction, level, text __VA_OPT__(, ) __VA_ARGS__)

int device_not_found(Call& call) {
  const int rc = SAT_API_ERR_LNX_DEV_NOT_FOUND;
  replace_text(call.packet, "SAT Erro[%06d]Lnx SAT Nao Encontrado L[%04d] F[%s] LibVer[%s]", rc,
               kNotFoundLine, kFunction, kLibraryDate);
  STEP_TRACE(kError, "Lnx:ER:STEP-02e rc[%06d]SAT Not Found!\n\t LibVer[%s] BuldDate[%s]\n", rc, kLibraryDate,
             kBuildStamp);
  return rc;
}

// The name as it is opened: its first line, up to its last digit.
void clean_device_name(char* device) {
  device[strcspn(device, "\n")] = '\0';
  trim_to_last_digit(device);
}

int open_port(Call& call, const char* device) {
  const int rc = lSerialOpenW(call.port, device);
  if (rc < 0) {
    replace_text(call.packet, "SAT Erro[%06d]Lnx SAT nao encontrado Dev[%s] L[%04d] F[%s]", rc, device,
                 kNotOpenedLine, kFunction);
    STEP_TRACE(kError, "Lnx:ER:STEP-04c rc[%06d]\n\t   Dev[%s]FAIL\n\t hComm[%08Xh]Not Openned\n", rc, device,
               hex32(call.port.descriptor));
    return rc;
  }
  STEP_TRACE(kInfo, "Lnx:OK:STEP-04a rc[%06d]\n\t   Dev[%s]\n\t hComm[%08Xh]Successfull Openned!\n", rc,
             device, hex32(call.port.descriptor));
  return rc;
}

int lock_port(Call& call, const char* device) {
  const char* text = call.packet.bytes;
  const auto [rc, error] = lSerialLock(call.port);
  if (rc == 0) {
    STEP_TRACE(kInfo, "Lnx:ER:STEP-05a rc[%06d]OK: Locked\n", rc);
    return rc;
  }
  // Kept: both lines print a backslash and an "n" before the tab and end in a plain "n".
  if (error == EAGAIN) {
    char reply[kBusyReplySize];
    generate_98_return(reply, call.session, call.function);
    replace_text(call.packet, "%s", reply);
    STEP_TRACE(kError,
               "Lnx:ER:STEP-05b rc[%06d] errno[%05d:%s]ER:EWOULDBLOCK\\n\t <<  SO->PC pBuffer[%05d:%s]n", rc,
               error, strerror(error), length_field(strlen(text)), text);
  } else {
    replace_text(call.packet, "SAT Erro[%06d]Lnx SAT  Dev[%s] ocupado L[%04d] F[%s]", rc, device, kLockLine,
                 kFunction);
    STEP_TRACE(kError,
               "Lnx:ER:STEP-05c rc[%06d]ER: errno[%05d:%s]ER:Fail to Lock\\n\t <<  SO->PC pBuffer[%05d:%s]n",
               rc, error, strerror(error), length_field(strlen(text)), text);
  }
  return rc;
}

int configure_port(Call& call, const char* device) {
  const int rc = lSerialSettingsL(call.port);
  if (rc != 0) {
    replace_text(call.packet, "SAT Erro[%06d]Lnx SAT  Dev[%s] falhou ao configurar L[%04d] F[%s]", rc, device,
                 kSettingsLine, kFunction);
    STEP_TRACE(kError, "Lnx:ER:STEP-06b rc[%06d] lSerialSettingsL\n\t   Dev[%s]\n", rc, device);
    return rc;
  }
  STEP_TRACE(kInfo, "Lnx:OK:STEP-06a rc[%06d]OK lSerialSettingsL\n\t   Dev[%s]\n", rc, device);
  return rc;
}

int send_command(Call& call, const char* device) {
  const int rc = lSerialWriteBufL(call);
  if (rc < 0) {
    replace_text(call.packet, "SAT Erro[%06d]Lnx Dev[%s] L[%04d] F[%s] >> CMD or << ACK LibVer[%s]", rc,
                 device, kSendLine, kFunction, kLibraryDate);
    STEP_TRACE(
        kError,
        "Lnx:ER:STEP-07b rc[%06d] SendCmd or RcvAck Fail\n\t   Dev[%s] Closing now!!! libVer[%s] BuildDate[%s]\n",
        rc, device, kLibraryDate, kBuildStamp);
    return rc;
  }
  STEP_TRACE(kInfo, "Lnx:OK:STEP-07a rc[%06d]\n\t   Dev[%s]\n", rc, device);
  return rc;
}

int receive_reply(Call& call, const char* device) {
  const int rc = cSerialReadBufW(call);
  if (rc < 0) {
    replace_text(call.packet,
                 "SAT Erro[%06d]Lnx SAT  Dev[%s] falhou na recepcao da resposta L[%04d] F[%s] LibVer[%s]", rc,
                 device, kReceiveLine, kFunction, kLibraryDate);
    STEP_TRACE(kError, "Lnx:ER:STEP-08b rc[%06d]ER:\n\t   Dev[%s] LibVer[%s] BuildDate[%s]\n", rc, device,
               kLibraryDate, kBuildStamp);
  }
  // Kept: the line says OK for a failed reception too.
  STEP_TRACE(kInfo, "Lnx:OK:STEP-08a rc[%06d]OK\n", rc);
  return rc;
}

}  // namespace

int Communicate(Call& call) {
  CreateSAT_ProtLogFile();
  char device[kDeviceNameSize] = {};
  if (findSat(call.settings, device) < 0) return device_not_found(call);
  clean_device_name(device);

  int rc = open_port(call, device);
  if (rc < 0) return rc;
  rc = lock_port(call, device);
  if (rc == 0) rc = configure_port(call, device);
  if (rc == 0) rc = send_command(call, device);
  if (rc >= 0) rc = receive_reply(call, device);
  lSerialCloseL(call.port);
  return rc;
}
