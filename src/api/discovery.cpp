#include "api/discovery.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "api/api_trace.h"
#include "api/link_codes.h"
#include "api/settings.h"
#include "api/usb_search.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/ini_file.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"

namespace {

constexpr char kFindSat[] = "findSat";
constexpr char kPortFile[] = "SAT.conf";
constexpr int kShortestFixedPort = 3;

// ---- The search -------------------------------------------------------------------------------------

// The last line wins.
void take_line(const UsbSearchLine& line, int number, UsbSearchLine& found) {
  memcpy(found, line, sizeof line);
  API_TRACE_IN(kFindSat, kInfo, "Lnx: rc[%06d]WR portNameFmt[%05d:%s]\n", number, length_field(strlen(found)),
               found);
}

// False when the search could not be started.
bool find_on_usb(UsbSearchLine& found) {
  if (!search_usb(take_line, found)) {
    API_TRACE_IN(kFindSat, kError, "Lnx: rc[%06d]:ER\n\t > popen[%s] fpComPorts[%08Xh]FAIL\n",
                 SAT_API_ERR_LNX_DEV_NOT_FOUND, kUsbSearchCommand, hex32(nullptr));
    return false;
  }
  trim_to_last_digit(found);
  return true;
}

// ---- The settings that override it ------------------------------------------------------------------

// A fixed port always wins; the labels of these lines are what technicians look for.
void prefer_fixed_port(int rc, UsbSearchLine& name) {
  UsbSearchLine fixed = {};
  const int result = GetFixedSerialPort(fixed);
  const int name_length = length_field(strlen(name));
  const int fixed_length = length_field(strlen(fixed));
  if (result < kShortestFixedPort) {
    API_TRACE_IN(
        kFindSat, kInfo,
        "Lnx: rc[%06d]WR\n\t portNameFmt[%05d:%s] <<     DEFAULT NO USER SET!!\n\t    FixedPort[%05d:%s]<DEFAULT>\n",
        rc, name_length, name, fixed_length, fixed);
    return;
  }
  if (name[0] == '\0') {
    API_TRACE_IN(
        kFindSat, kWarning,
        "Lnx: rc[%06d]ER\n\t portNameFmt[%05d:%s] << MISSMATCH FAIL  NO  PORT!!\n\t   FixedPort[%05d:%s] SAT MAY FAIL CUSTOMER PORT SET!!!\n",
        rc, name_length, name, fixed_length, fixed);
  } else if (strcmp(name, fixed) != 0) {
    API_TRACE_IN(
        kFindSat, kWarning,
        "Lnx: rc[%06d]WR\n\t portNameFmt[%05d:%s] << MISSMATCH FOUND SAT PORT!!\n\t   FixedPort[%05d:%s] SAT MAY FAIL CUSTOMER PORT SET!!!\n",
        rc, name_length, name, fixed_length, fixed);
  } else {
    API_TRACE_IN(
        kFindSat, kWarning,
        "Lnx: rc[%06d]ER\n\t portNameFmt[%05d:%s] <<     MATCH FOUND SAT PORT!!\n\t   FixedPort[%05d:%s] SAT MAY  WORK CUSTOMER PORT SET!!!\n",
        rc, name_length, name, fixed_length, fixed);
  }
  copy_text(name, fixed);
}

int use_emulator_port(UsbSearchLine& name) {
  char port[32] = {};
  const int rc = read_ini_value(kIniFileName, "SAT_EMULATOR", "SerialPortLinux", port, sizeof port);
  if (rc < 0 || port[0] == '\0') {
    API_TRACE_IN(kFindSat, kError, "Lnx:ER NO_SAT_DEVICE_FOUND and NO_EMULATOR_DEV_SET\n");
    return SAT_API_ERR_LNX_DEV_NOT_FOUND;
  }
  copy_text(name, port);
  API_TRACE_IN(kFindSat, kWarning, "Lnx:WR Port[%05d:%s]IOLK:USING_SAT_EMULATOR!!!\n",
               length_field(strlen(name)), name);
  return rc;
}

int give_up_search(UsbSearchLine& name) {
  copy_text(name, kNoDevice);
  API_TRACE_IN(kFindSat, kError, "Lnx:WR rc[%04d]ER\n\t Port[%05d:%s]NO_SAT_DEVICE_FOUND!!!!!\n",
               SAT_API_ERR_LNX_DEV_NOT_FOUND, length_field(strlen(name)), name);
  return SAT_API_ERR_LNX_DEV_NOT_FOUND;
}

// ---- The port file ----------------------------------------------------------------------------------

void empty(int file) {
  if (ftruncate(file, 0) != 0) return;  // no regular file, which is no matter
}

// The name becomes the file's whole content. One as long as the former is written over it: a file that is
// emptied first makes file systems write it to the disk at once, which takes longer than the rest of a call.
// Neither a write that fails nor a process that is killed leaves a name that was never chosen.
void replace_content(int file, const char* name, size_t length) {
  if (lseek(file, 0, SEEK_END) != static_cast<off_t>(length)) empty(file);
  lseek(file, 0, SEEK_SET);
  if (!write_whole_to_file(file, name, length)) empty(file);
}

// Once the name is saved it alone decides: anything but "/dev/ttyNONE" counts as found, an empty name too.
int save_port(const char* name, int rc) {
  const int length = length_field(strlen(name));
  const int file = open_file(kPortFile, O_RDWR | O_CREAT, 0666);
  if (file == -1) {
    API_TRACE_IN(
        kFindSat, kError,
        "Lnx:  rc[%06d]ER rc[%06d]SAT_API_ERR_LNX_DEV_NOT_FOUND \n\t Port[%05d:%s] Not Saved on file[%s]\n",
        rc, rc, length, name, kPortFile);
    return rc;
  }
  API_TRACE_IN(kFindSat, kInfo, "Lnx:WR Saving on File[%s] Port[%05d:%s]\n", kPortFile, length, name);
  replace_content(file, name, strlen(name));
  if (strcmp(name, kNoDevice) != 0) {
    rc = 0;
    API_TRACE_IN(kFindSat, kInfo, "Lnx: rc[%06d]OK \n\t Port[%05d:%s] Saved on file[%s]\n", rc, length, name,
                 kPortFile);
  } else {
    if (rc >= 0) rc = SAT_API_ERR_LNX_DEV_NOT_FOUND;
    API_TRACE_IN(kFindSat, kError, "Lnx: rc[%06d]ER \n\t Port[%05d:%s] Saved on file[%s]NO_SAT_FOUND!!!\n",
                 rc, length, name, kPortFile);
  }
  close(file);
  return rc;
}

}  // namespace

int findSat(const Settings& settings, char* deviceName) {
  auto* found = static_cast<UsbSearchLine*>(calloc(1, sizeof(UsbSearchLine)));
  if (found == nullptr) {
    API_TRACE(kError, "Lnx: rc[%06d]:ER:calloc()\n\t >> popen[%s] portNameFmt[%08Xh]=NULL\n",
              SAT_API_ERR_LNX_DEV_NOT_FOUND, kUsbSearchCommand, hex32(found));
    return SAT_API_ERR_LNX_DEV_NOT_FOUND;
  }
  UsbSearchLine& name = *found;
  int rc = SAT_API_ERR_LNX_DEV_NOT_FOUND;
  if (find_on_usb(name)) {
    rc = 0;
    prefer_fixed_port(rc, name);
    if (strstr(name, "/dev/") == nullptr) {
      rc = settings.lSatEmulatorOn ? use_emulator_port(name) : give_up_search(name);
    }
  }
  rc = save_port(name, rc);
  if (deviceName != nullptr) copy_text(deviceName, kDeviceNameSize, name);
  free(found);
  return rc;
}

int GetFixedSerialPort(char* value) {
  constexpr char kSection[] = "SERIAL_PORT_CONFIG";
  if (value == nullptr) {
    CONFIG_TRACE(kError, "rc[%04d]ER: Ini[%s]  Session[%s]  pFixedSerialPort=NULL\n", kFixedPortNoBuffer,
                 kIniFileName, "SERIAL_PORT_CONFIG\n");
    return kFixedPortNoBuffer;
  }
  memset(value, 0, kDeviceNameSize);
  if (read_ini_value(kIniFileName, kSection, "FixarPorta", value, kDeviceNameSize) < 0) {
    // Kept: the stray "]" behind the section's name.
    CONFIG_TRACE(kInfo, "rc[%04d]OK:\n\t     Ini[%s]\n\t Session[%s]\n\t    Item[%s]\n", 0, kIniFileName,
                 "SERIAL_PORT_CONFIG]", "FixarPorta= << NAO EXISTIR <DEFAULT>\n");
    return 0;
  }
  const int length = length_field(trim_to_last_digit(value));
  if (length == 0) {
    CONFIG_TRACE(kInfo, "rc[%04d]OK:\n\t     Ini[%s]\n\t Session[%s]\n\t    Item[%s]\n", 1, kIniFileName,
                 kSection, "FixarPorta= << SEM VALOR <NAO USAR>\n");
    return 1;
  }
  CONFIG_TRACE(kWarning, "rc[%04d]WR:\n\t     Ini[%s]\n\t Session[%s]\n\t    Item[%s%s]%s\n", length,
               kIniFileName, kSection, "FixarPorta=", value, "<< ADICIONADO MANUALMENTE PELO CLIENTE\n");
  return length;
}
