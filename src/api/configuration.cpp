#include "api/configuration.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "api/api_trace.h"
#include "api/default_configuration.h"
#include "api/version.h"
#include "olk_sat_utils/sat_functions.h"
#include "olk_utils/bounded_text.h"
#include "olk_utils/file_helpers.h"
#include "olk_utils/ini_file.h"

namespace {

constexpr char kUpdate[] = "UpdateTalvexConfiguration";

enum class Outcome { kMissing, kEmpty, kPresent };

struct Lookup {
  Outcome outcome;
  int rc;  // as shown in the item's line
  const char* value;
};

struct Item {
  const char* section;
  const char* name;
  void (*apply)(const Item&, Lookup&, Settings&) = nullptr;  // null: read and logged only
  void (*trace)(const Item&, const Lookup&, int step) = nullptr;
  bool shares_step = false;        // with the item before
  bool Settings::*flag = nullptr;  // of a switch
  SatFunctionIndex function = {};  // of a time-out
};

#define ITEM_TRACE(level, text) \
  CONFIG_TRACE_IN(kUpdate, level, text, lookup.rc, step, kIniFileName, item.section, item.name, lookup.value)

bool is_on(const Lookup& lookup) {
  return lookup.value[0] == '1';
}

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
      if (is_on(lookup)) {
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

// The log takes its settings itself; here its directory is made to exist.
void apply_log_path(const Item&, Lookup& lookup, Settings&) {
  if (lookup.outcome != Outcome::kPresent || tLog.ucModeMask == 0) return;
  if (OLK_Exist(lookup.value) != 1) OLK_CreateDir(lookup.value);
  API_TRACE_IN(kUpdate, kWarning,
               "\n\t   Version[%s - %s]\n\t BuildDate[%s]\n\t   This Is[%02d Bits] Platform\n", kVersionText,
               kLibraryDate, kBuildStamp, kPlatformBits);
}

// The port is looked up whenever it is needed. Kept: a file without one is read once more by the next call.
void apply_fixed_port(const Item&, Lookup& lookup, Settings& settings) {
  switch (lookup.outcome) {
    case Outcome::kMissing:
      lookup.rc = 0;
      settings.tIniFileTime = 0;
      break;
    case Outcome::kEmpty:
      lookup.rc = 1;
      break;
    case Outcome::kPresent:
      break;
  }
}

void apply_result_path(const Item&, Lookup& lookup, Settings& settings) {
  const bool present = lookup.outcome == Outcome::kPresent;
  copy_text(settings.strResultPathLinux, present ? lookup.value : "/etc/Arvolen/Cupons/New");
}

void apply_timeout(const Item& item, Lookup& lookup, Settings& settings) {
  if (lookup.outcome != Outcome::kPresent || !kSatFunctions[item.function].takes_timeout) return;
  lookup.rc = decimal_value(lookup.value);
  if (lookup.rc > 0) settings.timeout_s[item.function] = static_cast<uint32_t>(lookup.rc);
}

void apply_switch(const Item& item, Lookup& lookup, Settings& settings) {
  settings.*item.flag = is_on(lookup);
}

constexpr char kLog[] = "LOG";
constexpr char kSerialPort[] = "SERIAL_PORT_CONFIG";
constexpr char kTimeouts[] = "SAT_TIMEOUT";
constexpr char kResultFiles[] = "ARVOLEN";
constexpr char kEmulator[] = "SAT_EMULATOR";

constexpr Item kItemsBeforeTimeouts[] = {
    {.section = kLog, .name = "LogFilePath", .apply = apply_log_path, .trace = trace_log_path},
    {.section = kLog, .name = "LogFileName"},
    {.section = kLog, .name = "LogFileMaxSize"},
    {.section = kLog, .name = "LogMode"},
    {.section = kSerialPort,
     .name = "FixarPorta",
     .apply = apply_fixed_port,
     .trace = trace_fixed_port,
     .shares_step = true},
    // The line's settings are fixed.
    {.section = kSerialPort, .name = "SerialPortConfig"},
    {.section = kSerialPort, .name = "ReadIntervalTimeout"},
    {.section = kSerialPort, .name = "ReadTotalTimeoutMultiplier"},
    {.section = kSerialPort, .name = "ReadTotalTimeoutConstant"},
    {.section = kSerialPort, .name = "WriteTotalTimeoutMultiplier"},
    {.section = kSerialPort, .name = "WriteTotalTimeoutConstant"},
};

constexpr Item kItemsAfterTimeouts[] = {
    {.section = kResultFiles, .name = "PathWindows"},
    {.section = kResultFiles, .name = "PathLinux", .apply = apply_result_path},
    {.section = kResultFiles, .name = "Enable", .apply = apply_switch, .flag = &Settings::lResultFilesOn},
    {.section = kEmulator,
     .name = "Enable",
     .apply = apply_switch,
     .trace = trace_emulator_switch,
     .flag = &Settings::lSatEmulatorOn},
};

constexpr size_t kItemCount =
    std::size(kItemsBeforeTimeouts) + kSatFunctionCount + std::size(kItemsAfterTimeouts);

// In reading order, with a time-out for each SAT function.
constexpr std::array<Item, kItemCount> kItems = [] {
  std::array<Item, kItemCount> items{};
  auto next = std::copy(std::begin(kItemsBeforeTimeouts), std::end(kItemsBeforeTimeouts), items.begin());
  for (uint32_t row = 0; row < kSatFunctionCount; ++row) {
    *next++ = {.section = kTimeouts,
               .name = kSatFunctions[row].name,
               .apply = apply_timeout,
               .function = static_cast<SatFunctionIndex>(row)};
  }
  std::copy(std::begin(kItemsAfterTimeouts), std::end(kItemsAfterTimeouts), next);
  return items;
}();

void read_item(const Item& item, int step, Settings& settings) {
  char value[128] = {};
  const int rc = read_ini_value(kIniFileName, item.section, item.name, value, sizeof value);
  const Outcome outcome = rc < 0 ? Outcome::kMissing : value[0] == '\0' ? Outcome::kEmpty : Outcome::kPresent;
  if (outcome == Outcome::kMissing) value[0] = '\0';
  Lookup lookup{outcome, rc, value};
  if (item.apply != nullptr) item.apply(item, lookup, settings);
  (item.trace != nullptr ? item.trace : trace_item)(item, lookup, step);
}

}  // namespace

int UpdateTalvexConfiguration(Settings& settings, bool reading_again) {
  int step = 0;
  int rc = existing_file_size(kIniFileName);
  if (rc < 0) rc = CreateFile_TalvexIni();
  if (rc < 0) {
    CONFIG_TRACE(kError, "rc[%04d]ER:FAIL  STEP%02db  TalvexIniFileName[%s]Could  Not  Be  Created!!\n", rc,
                 step, kIniFileName);
    return rc;
  }
  if (reading_again) {
    CONFIG_TRACE(kInfo, "rc[%04d]OK:PASS  STEP%02da  TalvexIniFileName[%s]OK\n", rc, step, kIniFileName);
  }
  for (const Item& item : kItems) {
    if (!item.shares_step) ++step;
    read_item(item, step, settings);
  }
  return step;
}
