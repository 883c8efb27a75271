#include "api/serial_port.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <initializer_list>

#include "api/api_trace.h"
#include "api/link_codes.h"
#include "api/port_io.h"
#include "api/time_limits.h"
#include "olk_utils/open_file.h"
#include "olk_utils/system_clock.h"

namespace {

// A call's result, with interruptions by signals left out.
template <typename SystemCall>
int uninterrupted(SystemCall call) {
  int result;
  do {
    result = call();
  } while (result == -1 && errno == EINTR);
  return result;
}

bool change_lock(const SerialPort& port, int operation) {
  return uninterrupted([&] { return flock(port.descriptor, operation | LOCK_NB); }) == 0;
}

void raise_modem_lines(const SerialPort& port) {
  for (int line : {TIOCM_DTR, TIOCM_RTS}) ioctl(port.descriptor, TIOCMBIS, &line);
}

}  // namespace

int lSerialOpenW(SerialPort& port, const char* path) {
  if (path == nullptr) {
    API_TRACE(kError,
              "Lnx: rc[%06d]ER:SAT_API_ERR_LNX_DEV_NOT_FOUND\n\t pLnxSerialPortName[NULL]=hComm[%08Xh]\n",
              SAT_API_ERR_LNX_DEV_NOT_FOUND, hex32(port.descriptor));
    return SAT_API_ERR_LNX_DEV_NOT_FOUND;
  }
  port.descriptor = open_at_once(path, O_RDWR);
  if (port.descriptor == kClosedPort) {
    API_TRACE(
        kError,
        "Lnx: rc[%06d]ER:SAT_API_ERR_LNX_DEV_NOT_FOUND\n\t pLnxSerialPortName[%s]=hComm[%08Xh]Open Fail\n",
        SAT_API_ERR_LNX_DEV_NOT_FOUND, path, hex32(port.descriptor));
    return SAT_API_ERR_LNX_DEV_NOT_FOUND;
  }
  raise_modem_lines(port);
  return 0;
}

PortResult lSerialLock(const SerialPort& port) {
  if (change_lock(port, LOCK_EX)) return {};
  const int error = errno;
  API_TRACE(kError, "Lnx rc[%06d]ER: flock fail: hComm[%08Xh]\n", kLinkLock, hex32(port.descriptor));
  return {kLinkLock, error};
}

int lSerialUnlock(const SerialPort& port) {
  if (change_lock(port, LOCK_UN)) return 0;
  API_TRACE(kError, "Lnx rc[%06d]ER: Unlock fail: hComm[%08Xh]\n", kLinkUnlock, hex32(port.descriptor));
  return kLinkUnlock;
}

int lSerialSettingsL(SerialPort& port) {
  termios settings{};
  if (uninterrupted([&] { return tcgetattr(port.descriptor, &settings); }) != 0) {
    API_TRACE(kError, "Lnx rc[%06d]ER hComm[%08Xh] ER:errno[:%d:%s]Fail to tcgetattr\n", kLinkSettings,
              hex32(port.descriptor), errno, strerror(errno));
    return kLinkSettings;
  }
  settings.c_iflag = IGNPAR;
  settings.c_oflag = 0;
  settings.c_cflag = CS8 | CREAD | CLOCAL | CBAUD;
  settings.c_lflag = 0;
  cfmakeraw(&settings);
  if (uninterrupted([&] { return tcsetattr(port.descriptor, TCSANOW, &settings); }) != 0) {
    API_TRACE(kError, "Lnx rc[%06d]ER hComm[%08Xh] ER:errno[:%d:%s]Fail to tcsetattr\n", kLinkSettings,
              hex32(port.descriptor), errno, strerror(errno));
    return kLinkSettings;
  }
  // Kept: the record is not written again. The USB device ignores the line speed, and the port keeps the
  // whole speed field set.
  cfsetospeed(&settings, B115200);
  cfsetispeed(&settings, B115200);
  return lSerialFlushRx(port);
}

int lSerialFlushRx(SerialPort& port) {
  const timespec start = monotonic_now();
  char dropped[10];
  while (read_port(port, dropped, sizeof dropped) >= 1) {
    if (elapsed_ms(start, monotonic_now()) > kEndlessWaitMs) break;  // a port that never runs dry
  }
  return 0;
}

int lSerialCloseL(SerialPort& port) {
  const int unlocked = lSerialUnlock(port);
  if (unlocked != 0) API_TRACE(kError, "Lnx rc[%06d]ER: hComm[%08Xh]\n", unlocked, hex32(port.descriptor));

  int rc = 0;
  if (port.descriptor == kClosedPort) {
    API_TRACE(kWarning, "Lnx rc[%06d]WR: hComm[%08Xh]Already Closed!\n", rc, hex32(port.descriptor));
  } else if (close(port.descriptor) == -1 && errno != EINTR) {  // an interrupted close has closed
    rc = kLinkPortClosed;
    API_TRACE(kError, "Lnx rc[%06d]ER: hComm[%08Xh]\n", rc, hex32(port.descriptor));
  }
  port.descriptor = kClosedPort;
  return rc;
}
