#include "api/serial_port.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <initializer_list>

#include "api/link_codes.h"
#include "api/link_io.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/open_file.h"
#include "olk_utils/system_clock.h"
#include "olk_utils/trace_log.h"

int hComm;

namespace {

char gl_ComPortName[132];

// A call's result, with interruptions by signals left out.
template <typename Call>
int uninterrupted(Call call) {
  int result;
  do {
    result = call();
  } while (result == -1 && errno == EINTR);
  return result;
}

bool change_lock(int operation) {
  return uninterrupted([operation] { return flock(hComm, operation | LOCK_NB); }) == 0;
}

void raise_modem_lines() {
  for (int line : {TIOCM_DTR, TIOCM_RTS}) ioctl(hComm, TIOCMBIS, &line);
}

}  // namespace

int lSerialOpenW(const char* path) {
  if (path == nullptr) {
    API_TRACE(kError,
              "Lnx: rc[%06d]ER:SAT_API_ERR_LNX_DEV_NOT_FOUND\n\t pLnxSerialPortName[NULL]=hComm[%08Xh]\n",
              SAT_API_ERR_LNX_DEV_NOT_FOUND, hex32(hComm));
    return SAT_API_ERR_LNX_DEV_NOT_FOUND;
  }
  copy_text(gl_ComPortName, path);
  hComm = open_at_once(path, O_RDWR);
  if (hComm == -1) {
    API_TRACE(
        kError,
        "Lnx: rc[%06d]ER:SAT_API_ERR_LNX_DEV_NOT_FOUND\n\t pLnxSerialPortName[%s]=hComm[%08Xh]Open Fail\n",
        SAT_API_ERR_LNX_DEV_NOT_FOUND, path, hex32(hComm));
    return SAT_API_ERR_LNX_DEV_NOT_FOUND;
  }
  raise_modem_lines();
  return 0;
}

int lSerialLock() {
  if (change_lock(LOCK_EX)) return 0;
  API_TRACE(kError, "Lnx rc[%06d]ER: flock fail: hComm[%08Xh]\n", kLinkLock, hex32(hComm));
  return kLinkLock;
}

int lSerialUnlock() {
  if (change_lock(LOCK_UN)) return 0;
  API_TRACE(kError, "Lnx rc[%06d]ER: Unlock fail: hComm[%08Xh]\n", kLinkUnlock, hex32(hComm));
  return kLinkUnlock;
}

int lSerialSettingsL() {
  termios settings{};
  if (uninterrupted([&] { return tcgetattr(hComm, &settings); }) != 0) {
    API_TRACE(kError, "Lnx rc[%06d]ER hComm[%08Xh] ER:errno[:%d:%s]Fail to tcgetattr\n", kLinkSettings,
              hex32(hComm), errno, strerror(errno));
    return kLinkSettings;
  }
  settings.c_iflag = IGNPAR;
  settings.c_oflag = 0;
  settings.c_cflag = CS8 | CREAD | CLOCAL | CBAUD;
  settings.c_lflag = 0;
  cfmakeraw(&settings);
  if (uninterrupted([&] { return tcsetattr(hComm, TCSANOW, &settings); }) != 0) {
    API_TRACE(kError, "Lnx rc[%06d]ER hComm[%08Xh] ER:errno[:%d:%s]Fail to tcsetattr\n", kLinkSettings,
              hex32(hComm), errno, strerror(errno));
    return kLinkSettings;
  }
  // Kept: the record is not written again. The USB device ignores the line speed, and the port keeps the
  // whole speed field set.
  cfsetospeed(&settings, B115200);
  cfsetispeed(&settings, B115200);
  return lSerialFlushRx();
}

int lSerialFlushRx() {
  const timespec start = monotonic_now();
  char dropped[10];
  while (read_port(hComm, dropped, sizeof dropped) >= 1) {
    if (elapsed_ms(start, monotonic_now()) > kEndlessWaitMs) break;  // a port that never runs dry
  }
  return 0;
}

int lSerialCloseL() {
  const int unlocked = lSerialUnlock();
  if (unlocked != 0) API_TRACE(kError, "Lnx rc[%06d]ER: hComm[%08Xh]\n", unlocked, hex32(hComm));

  int rc = 0;
  if (hComm == -1) {
    API_TRACE(kWarning, "Lnx rc[%06d]WR: hComm[%08Xh]Already Closed!\n", rc, hex32(hComm));
  } else if (close(hComm) == -1 && errno != EINTR) {  // an interrupted close has closed
    rc = kLinkPortClosed;
    API_TRACE(kError, "Lnx rc[%06d]ER: hComm[%08Xh]\n", rc, hex32(hComm));
  }
  hComm = -1;
  return rc;
}
