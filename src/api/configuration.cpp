#include "api/configuration.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "api/context.h"
#include "api/version.h"
#include "olk_sat_utils/return_codes.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/file_helpers.h"
#include "olk_utils/ini_file.h"
#include "olk_utils/open_file.h"
#include "olk_utils/output.h"
#include "olk_utils/trace_log.h"

namespace {

constexpr char kUpdate[] = "UpdateTalvexConfiguration";

// ---- The default file -------------------------------------------------------------------------------

constexpr size_t kWorkBufferSize = 8192;

// An empty line ends a block; each block is written at once. No comment below the first header names an
// item of the section above it, because a lookup would match there.
constexpr const char* kDefaultFile[] = {
    "#",
    "# IMPORTANTE: Para fixar a porta adicione >> FixarPorta=<NomeDaPorta>",
    "#",
    "[SERIAL_PORT_CONFIG]",
    "SerialPortConfig=115200,8,N,1",
    "ReadIntervalTimeout=10",
    "ReadTotalTimeoutMultiplier=1",
    "ReadTotalTimeoutConstant=1",
    "WriteTotalTimeoutMultiplier=1",
    "WriteTotalTimeoutConstant=1000",
    "",
    "#",
    "# Define o timeout em Segundos de resposta para as funcaes do SAT",
    "#",
    "[SAT_TIMEOUT]",
    "AtivarSAT                     =1800",
    "ComunicarCertificadoICPBRASIL = 300",
    "EnviarDadosVenda              =  30",
    "CancelarUltimaVenda           =  30",
    "ConsultarSAT                  =  10",
    "TesteFimAFim                  =  20",
    "ConsultarStatusOperacional    =  10",
    "ConsultarNumeroSessao         =  20",
    "ConfigurarInterfaceDeRede     =  20",
    "AssociarAssinatura            =1800",
    "AtualizarSoftwareSAT          =1800",
    "ExtrairLogs                   =  30",
    "BloquearSAT                   = 300",
    "DesbloquearSAT                =  20",
    "TrocarCodigoDeAtivacao        =  30",
    "ConsultarUltimaSessaoFiscal   =  20",
    "",
    "#",
    "# SAT_EMULATOR <default>0=Disable",
    "#",
    "[SAT_EMULATOR]",
    "SerialPortWindows=CNCA0",
    "SerialPortLinux=/dev/ttyVSP0",
    "Enable=0",
    "",
    "#",
    "# Arvolen <default>0=Disable",
    "#",
    "[ARVOLEN]",
    "PathWindows=C:\\ProgramData\\Arvolen\\Cupons\\New",
    "PathLinux=/etc/Arvolen/Cupons/New",
    "Enable=0",
    "",
    "#",
    "# LogMode 0=Disable, 1=Error, 2=Warning, 3=Info, 4=Trace, 5=Debug",
    "#",
    "[LOG]",
    "LogFilePath=Log",
    "LogFileName=",
    "LogFileMaxSize=1300000",
    "LogMode=1",
    "",
};

// Whatever has content is left alone, also when it has only just been made; the file that a link names is
// made if it is missing.
int open_for_default_file() {
  const int made = open_file(kIniFileName, O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (made != -1 || errno != EEXIST) return made;
  const int found = open_file(kIniFileName, O_WRONLY | O_CREAT, 0666);
  struct stat status {};
  if (found == -1 || (fstat(found, &status) == 0 && status.st_size == 0)) return found;
  close(found);
  return -1;
}

void write_default_file(int file, char* block) {
  size_t length = 0;
  for (const char* line : kDefaultFile) {
    length += copy_text(block + length, kWorkBufferSize - length - 1, line);
    block[length++] = '\n';
    if (line[0] != '\0') continue;
    write_whole(file, block, length);
    length = 0;
  }
}

// ---- The items --------------------------------------------------------------------------------------

enum class Outcome { kMissing, kEmpty, kPresent };

struct Lookup {
  Outcome outcome;
  int rc;  // as shown in the item's line
  const char* value;
};

struct Item {
  const char* section;
  const char* name;
  void (*apply)(const Item&, Lookup&);
  void (*trace)(const Item&, const Lookup&, int step) = nullptr;
  bool shares_step = false;  // with the item before
  // What apply works on; each rule uses its own.
  char* text = nullptr;
  size_t text_size = 0;
  int32_t* number = nullptr;
  int64_t* flag = nullptr;
  uint32_t row = 0;  // of tRetCode98
  const char* keyword = nullptr;
  const char* fallback_text = nullptr;
  int32_t fallback_number = 0;
};

#define ITEM_TRACE(level, text) \
  CONFIG_TRACE_IN(kUpdate, level, text, lookup.rc, step, kIniFileName, item.section, item.name, lookup.value)

void trace_fail(const Item& item, const Lookup& lookup, int step) {
  ITEM_TRACE(kError, "rc[%04d]ER:FAIL  STEP%02dc  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]\n");
}

void trace_warning(const Item& item, const Lookup& lookup, int step) {
  ITEM_TRACE(kWarning,
             "rc[%04d]WR:WARN  STEP%02db  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]\n");
}

void trace_item(const Item& item, const Lookup& lookup, int step) {
  switch (lookup.outcome) {
    case Outcome::kMissing:
      return trace_fail(item, lookup, step);
    case Outcome::kEmpty:
      return trace_warning(item, lookup, step);
    case Outcome::kPresent:
      ITEM_TRACE(kInfo,
                 "rc[%04d]OK:PASS  STEP%02da  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]\n");
  }
}

void trace_log_path(const Item& item, const Lookup& lookup, int step) {
  // Kept: a log path that is present has no line of its own, the version banner stands for it.
  if (lookup.outcome != Outcome::kPresent) trace_item(item, lookup, step);
}

void trace_fixed_port(const Item& item, const Lookup& lookup, int step) {
  switch (lookup.outcome) {
    case Outcome::kMissing:
      ITEM_TRACE(
          kInfo,
          "rc[%04d]OK:PASS  STEP%02dc  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]NORMAL_NAO_EXISTIR!!!\n");
      break;
    case Outcome::kEmpty:
      ITEM_TRACE(
          kInfo,
          "rc[%04d]OK:PASS  STEP%02db  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]NORMAL_NAO_EXISTIR!!!\n");
      break;
    case Outcome::kPresent:
      ITEM_TRACE(
          kWarning,
          "rc[%04d]WR:WARN  STEP%02da  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]PARAMETRO ADICIONADO MANUALMENTE PELO CLIENTE!!!\n");
  }
}

void trace_emulator_switch(const Item& item, const Lookup& lookup, int step) {
  switch (lookup.outcome) {
    case Outcome::kMissing:
      ITEM_TRACE(
          kError,
          "rc[%04d]ER:FAIL  STEP%02dc  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]SAT_EMU=OFF\n");
      break;
    case Outcome::kEmpty:
      ITEM_TRACE(
          kWarning,
          "rc[%04d]WR:WARN  STEP%02db  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]SAT_EMU=OFF\n");
      break;
    case Outcome::kPresent:
      if (*item.flag != 0) {
        ITEM_TRACE(
            kInfo,
            "rc[%04d]OK:PASS  STEP%02da  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]SAT_EMU=ON\n");
      } else {
        ITEM_TRACE(
            kInfo,
            "rc[%04d]OK:PASS  STEP%02da  TalvexIniFileName[%s]  strSessionName[%s]  item[%s=%s]SAT_EMU=OFF\n");
      }
  }
}

void apply_nothing(const Item&, Lookup&) {}

// The log takes its settings itself; here its directory is made to exist.
void apply_log_path(const Item&, Lookup& lookup) {
  if (lookup.outcome != Outcome::kPresent || tLog.ucModeMask == 0) return;
  if (OLK_Exist(lookup.value) != 1) OLK_CreateDir(lookup.value);
  API_TRACE_IN(kUpdate, kWarning,
               "\n\t   Version[%s - %s]\n\t BuildDate[%s]\n\t   This Is[%02d Bits] Platform\n", kVersionText,
               kLibraryDate, kBuildStamp, kPlatformBits);
}

void apply_fixed_port(const Item& item, Lookup& lookup) {
  switch (lookup.outcome) {
    case Outcome::kMissing:
      lookup.rc = 0;
      memset(reinterpret_cast<char*>(&gl_tSat) + offsetof(SatContext, strFixedPort), 0, kFixedPortClearing);
      break;
    case Outcome::kEmpty:
      lookup.rc = 1;
      break;
    case Outcome::kPresent:
      copy_text(item.text, item.text_size, lookup.value);
  }
}

void apply_text(const Item& item, Lookup& lookup) {
  const bool present = lookup.outcome == Outcome::kPresent;
  copy_text(item.text, item.text_size, present ? lookup.value : item.fallback_text);
}

// Kept: only the keyword itself is taken as a number, and reads as 0; any number gives the fallback.
void apply_unless_keyword(const Item& item, Lookup& lookup) {
  const bool is_keyword = lookup.outcome == Outcome::kPresent && strcmp(lookup.value, item.keyword) == 0;
  *item.number = is_keyword ? decimal_value(lookup.value) : item.fallback_number;
}

void apply_number(const Item& item, Lookup& lookup) {
  const bool present = lookup.outcome == Outcome::kPresent;
  *item.number = present ? decimal_value(lookup.value) : item.fallback_number;
}

void apply_timeout(const Item& item, Lookup& lookup) {
  if (lookup.outcome != Outcome::kPresent) return;
  lookup.rc = decimal_value(lookup.value);
  if (lookup.rc > 0) tRetCode98[item.row].timeoutSeconds = static_cast<uint32_t>(lookup.rc);
}

void apply_switch(const Item& item, Lookup& lookup) {
  *item.flag = lookup.value[0] == '1' ? 1 : 0;
}

constexpr char kLog[] = "LOG";
constexpr char kSerialPort[] = "SERIAL_PORT_CONFIG";
constexpr char kTimeouts[] = "SAT_TIMEOUT";
constexpr char kResultFiles[] = "ARVOLEN";
constexpr char kEmulator[] = "SAT_EMULATOR";

constexpr int32_t kMaxDword = -1;          // 0xFFFFFFFF
constexpr int32_t kMaxDwordLessTen = -11;  // 0xFFFFFFF5

// In reading order. Kept: the last nine time-outs are read and logged but never applied.
constexpr Item kItems[] = {
    {.section = kLog, .name = "LogFilePath", .apply = apply_log_path, .trace = trace_log_path},
    {.section = kLog, .name = "LogFileName", .apply = apply_nothing},
    {.section = kLog, .name = "LogFileMaxSize", .apply = apply_nothing},
    {.section = kLog, .name = "LogMode", .apply = apply_nothing},
    {.section = kSerialPort,
     .name = "FixarPorta",
     .apply = apply_fixed_port,
     .trace = trace_fixed_port,
     .shares_step = true,
     .text = gl_tSat.strFixedPort,
     .text_size = sizeof gl_tSat.strFixedPort},
    {.section = kSerialPort,
     .name = "SerialPortConfig",
     .apply = apply_text,
     .text = gl_tSat.strSerialPortConfig,
     .text_size = sizeof gl_tSat.strSerialPortConfig,
     .fallback_text = "115200,8,n,1"},
    {.section = kSerialPort,
     .name = "ReadIntervalTimeout",
     .apply = apply_unless_keyword,
     .number = &gl_tSat.iReadIntervalTimeout,
     .keyword = "MAXDWORD",
     .fallback_number = kMaxDword},
    {.section = kSerialPort,
     .name = "ReadTotalTimeoutMultiplier",
     .apply = apply_unless_keyword,
     .number = &gl_tSat.iReadTotalTimeoutMultiplier,
     .keyword = "MAXDWORD",
     .fallback_number = kMaxDword},
    {.section = kSerialPort,
     .name = "ReadTotalTimeoutConstant",
     .apply = apply_unless_keyword,
     .number = &gl_tSat.iReadTotalTimeoutConstant,
     .keyword = "MAXDWORD-10",
     .fallback_number = kMaxDwordLessTen},
    {.section = kSerialPort,
     .name = "WriteTotalTimeoutMultiplier",
     .apply = apply_number,
     .number = &gl_tSat.iWriteTotalTimeoutMultiplier,
     .fallback_number = 1},
    {.section = kSerialPort,
     .name = "WriteTotalTimeoutConstant",
     .apply = apply_number,
     .number = &gl_tSat.iWriteTotalTimeoutConstant,
     .fallback_number = 1},
    {.section = kTimeouts, .name = "AtivarSAT", .apply = apply_timeout, .row = kAtivarSAT},
    {.section = kTimeouts,
     .name = "ComunicarCertificadoICPBRASIL",
     .apply = apply_timeout,
     .row = kComunicarCertificadoICPBRASIL},
    {.section = kTimeouts, .name = "EnviarDadosVenda", .apply = apply_timeout, .row = kEnviarDadosVenda},
    {.section = kTimeouts,
     .name = "CancelarUltimaVenda",
     .apply = apply_timeout,
     .row = kCancelarUltimaVenda},
    {.section = kTimeouts, .name = "ConsultarSAT", .apply = apply_timeout, .row = kConsultarSAT},
    {.section = kTimeouts, .name = "TesteFimAFim", .apply = apply_timeout, .row = kTesteFimAFim},
    {.section = kTimeouts,
     .name = "ConsultarStatusOperacional",
     .apply = apply_timeout,
     .row = kConsultarStatusOperacional},
    {.section = kTimeouts, .name = "ConsultarNumeroSessao", .apply = apply_nothing},
    {.section = kTimeouts, .name = "ConfigurarInterfaceDeRede", .apply = apply_nothing},
    {.section = kTimeouts, .name = "AssociarAssinatura", .apply = apply_nothing},
    {.section = kTimeouts, .name = "AtualizarSoftwareSAT", .apply = apply_nothing},
    {.section = kTimeouts, .name = "ExtrairLogs", .apply = apply_nothing},
    {.section = kTimeouts, .name = "BloquearSAT", .apply = apply_nothing},
    {.section = kTimeouts, .name = "DesbloquearSAT", .apply = apply_nothing},
    {.section = kTimeouts, .name = "TrocarCodigoDeAtivacao", .apply = apply_nothing},
    {.section = kTimeouts, .name = "ConsultarUltimaSessaoFiscal", .apply = apply_nothing},
    {.section = kResultFiles,
     .name = "PathWindows",
     .apply = apply_text,
     .text = gl_tSat.strResultPathWindows,
     .text_size = sizeof gl_tSat.strResultPathWindows,
     .fallback_text = "C:\\ProgramData\\Arvolen\\Cupons\\New"},
    {.section = kResultFiles,
     .name = "PathLinux",
     .apply = apply_text,
     .text = gl_tSat.strResultPathLinux,
     .text_size = sizeof gl_tSat.strResultPathLinux,
     .fallback_text = "/etc/Arvolen/Cupons/New"},
    {.section = kResultFiles, .name = "Enable", .apply = apply_switch, .flag = &gl_tSat.lResultFilesOn},
    {.section = kEmulator,
     .name = "Enable",
     .apply = apply_switch,
     .trace = trace_emulator_switch,
     .flag = &gl_tSat.lSatEmulatorOn},
};

void read_item(const Item& item, int step) {
  char value[128] = {};
  const int rc = read_ini_value(kIniFileName, item.section, item.name, value, sizeof value);
  const Outcome outcome = rc < 0 ? Outcome::kMissing : value[0] == '\0' ? Outcome::kEmpty : Outcome::kPresent;
  if (outcome == Outcome::kMissing) value[0] = '\0';
  Lookup lookup{outcome, rc, value};
  item.apply(item, lookup);
  (item.trace != nullptr ? item.trace : trace_item)(item, lookup, step);
}

}  // namespace

int CreateFile_TalvexIni() {
  const int existing = existing_file_size(kIniFileName);
  if (existing > 0) {
    API_TRACE(kInfo, " rc[%06d]OK file[%s]Already Exist!\n", existing, kIniFileName);
    return existing;
  }
  const int file = open_for_default_file();
  if (file == -1) {
    API_TRACE(kError, " rc[%06d]ER file[%s]Could not be Created!!!\n", existing, kIniFileName);
    return existing;
  }
  char* block = static_cast<char*>(calloc(1, kWorkBufferSize));
  if (block == nullptr) {
    API_TRACE(kError, " rc[%06d]ER file[%s] calloc fail!!!\n", existing, kIniFileName);
    close(file);
    return existing;
  }
  write_default_file(file, block);
  close(file);
  free(block);

  const int created = existing_file_size(kIniFileName);
  if (created < 0) {
    API_TRACE(kError, " rc[%06d]ER file[%s]Could not be Created!!!\n", created, kIniFileName);
  } else {
    API_TRACE(kWarning, " rc[%06d]OK file[%s]Successfull Created!!!\n", created, kIniFileName);
  }
  return created;
}

int UpdateTalvexConfiguration() {
  int step = 0;
  int rc = existing_file_size(kIniFileName);
  if (rc < 0) rc = CreateFile_TalvexIni();
  if (rc < 0) {
    CONFIG_TRACE(kError, "rc[%04d]ER:FAIL  STEP%02db  TalvexIniFileName[%s]Could  Not  Be  Created!!\n", rc,
                 step, kIniFileName);
    return rc;
  }
  if (context_is_set_up()) {
    CONFIG_TRACE(kInfo, "rc[%04d]OK:PASS  STEP%02da  TalvexIniFileName[%s]OK\n", rc, step, kIniFileName);
  }
  for (const Item& item : kItems) {
    if (!item.shares_step) ++step;
    read_item(item, step);
  }
  return step;
}
