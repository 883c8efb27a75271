#include "doctor/doctor.h"

#include <sys/statvfs.h>
#include <sys/timex.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "library/exports.h"
#include "log/log_files.h"
#include "terminal/exit_status.h"
#include "terminal/printable.h"
#include "terminal/settings.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;
using Findings = std::vector<Finding>;

constexpr std::uintmax_t kMegabyte = 1'000'000;
constexpr std::uintmax_t kLeastSpace = 10 * kMegabyte, kComfortableSpace = 200 * kMegabyte;
constexpr std::uintmax_t kLargeLogs = 50 * kMegabyte;
constexpr const char* kModemManager = "ModemManager";

Finding good(const char* id, std::string text) {
  return {id, Grade::ok, std::move(text), {}};
}

Finding bad(Grade grade, const char* id, std::string text, std::string remedy) {
  return {id, grade, std::move(text), std::move(remedy)};
}

std::string program_and_pid(const Process& process) {
  return printable(process.program) + " (pid " + std::to_string(process.id) + ")";
}

std::string megabytes(std::uintmax_t bytes) {
  const std::uintmax_t tenths = bytes / (kMegabyte / 10);
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MB";
}

bool can_stat(const fs::path& path, struct stat& status) {
  return stat(path.c_str(), &status) == 0;
}

// Any shared library can be loaded; only ours reads SAT.ini.
bool can_read_ini(const Patient& patient) {
  return patient.library && patient.library->find("OLK_GetIniFileValue") != nullptr;
}

std::string setting(const Patient& patient, const char* section, const char* item) {
  return can_read_ini(patient) ? effective_value(*patient.library, section, item) : std::string();
}

bool emulator_enabled(const Patient& patient) {
  return setting(patient, "SAT_EMULATOR", "Enable").starts_with('1');
}

std::string up_to_last_digit(const std::string& name) {
  const auto last = name.find_last_of("0123456789");
  return last == std::string::npos ? std::string() : name.substr(0, last + 1);
}

std::string fixed_port(const Patient& patient) {
  const std::string port = up_to_last_digit(setting(patient, "SERIAL_PORT_CONFIG", "FixarPorta"));
  return port.size() < 3 ? std::string() : port;
}

std::vector<std::string> nodes_of(const std::vector<UsbDevice>& devices) {
  std::vector<std::string> nodes;
  for (const UsbDevice& device : devices) nodes.insert(nodes.end(), device.nodes.begin(), device.nodes.end());
  return nodes;
}

// In the order in which the library decides.
std::string port_in_use(const Patient& patient) {
  if (std::string fixed = fixed_port(patient); !fixed.empty()) return fixed;
  const auto nodes = nodes_of(patient.devices);
  if (!nodes.empty()) return nodes.back();
  return emulator_enabled(patient) ? setting(patient, "SAT_EMULATOR", "SerialPortLinux") : std::string();
}

std::string identity(const UsbDevice& device) {
  return device.bus_name + ": " + device.vendor + ":" + device.product + " " + printable(device.description);
}

Findings check_usb(const Patient& patient) {
  Findings findings;
  for (const UsbDevice& device : patient.devices) {
    if (device.nodes.empty()) {
      findings.push_back(
          bad(Grade::fail, "usb",
              fill({"{}: on the USB, but without a serial port", "{}: no USB, mas sem porta serial"},
                   {identity(device)}),
              tr({"load the driver: sudo modprobe cdc_acm; look into dmesg",
                  "carregue o driver: sudo modprobe cdc_acm; veja o dmesg"})));
      continue;
    }
    std::string text = identity(device);
    for (const std::string& node : device.nodes) text += " -> " + node;
    findings.push_back(good("usb", text));
  }
  if (nodes_of(patient.devices).size() > 1) {
    findings.push_back(bad(Grade::warn, "usb",
                           tr({"several devices: the library takes the last one that its search meets",
                               "vários equipamentos: a biblioteca usa o último que a busca encontra"}),
                           tr({"choose one: satctl ini set SERIAL_PORT_CONFIG FixarPorta /dev/ttyACM0",
                               "escolha um: satctl ini set SERIAL_PORT_CONFIG FixarPorta /dev/ttyACM0"})));
  }
  if (!findings.empty()) return findings;
  const std::string text = tr({"no device on the USB", "nenhum equipamento no USB"});
  if (!patient.port.empty()) {
    return {
        bad(Grade::warn, "usb",
            text + fill({"; {} is used as SAT.ini says", "; {} é usada, conforme o SAT.ini"}, {patient.port}),
            tr({"if a real device is meant: check cable and power, and SAT.ini",
                "se deveria ser um equipamento real: confira cabo, alimentação e o SAT.ini"}))};
  }
  return {bad(Grade::fail, "usb", text,
              tr({"check cable and power; lsusb should show it. Without a device: sat-emulator(1)",
                  "confira cabo e alimentação; lsusb deve mostrá-lo. Sem equipamento: sat-emulator(1)"}))};
}

Findings check_port(const Patient& patient) {
  if (patient.port.empty()) {
    return {bad(Grade::fail, "port", tr({"no port to use", "nenhuma porta a usar"}),
                tr({"connect the device", "conecte o equipamento"}))};
  }
  const char* source = !fixed_port(patient).empty() ? tr({"fixed in SAT.ini", "fixada no SAT.ini"})
                       : nodes_of(patient.devices).empty()
                           ? tr({"the emulator's, from SAT.ini", "do emulador, do SAT.ini"})
                           : tr({"found on the USB", "encontrada no USB"});
  const std::string text = patient.port + " (" + source + ")";
  if (up_to_last_digit(patient.port) == patient.port) return {good("port", text)};
  return {bad(Grade::fail, "port", text,
              tr({"the port's name must end in a digit", "o nome da porta deve terminar em dígito"}))};
}

std::string permissions(const Patient& patient, const struct stat& node) {
  char mode[8];
  std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(node.st_mode & 07777));
  return user_name(patient.world, node.st_uid) + ":" + group_name(patient.world, node.st_gid) + " " + mode;
}

std::string remedy_for_node(const Patient& patient, const struct stat& node) {
  constexpr mode_t kGroupReadsAndWrites = S_IRGRP | S_IWGRP;
  const bool group_may = (node.st_mode & kGroupReadsAndWrites) == kGroupReadsAndWrites && node.st_gid != 0;
  const std::string group = group_name(patient.world, node.st_gid);
  if (group_may) {
    return fill({"{} is not in the group {}: sudo usermod -aG {} {}; then log in again",
                 "{} não está no grupo {}: sudo usermod -aG {} {}; depois entre de novo na sessão"},
                {patient.user.name, group, group, patient.user.name});
  }
  return fill(
      {"give the port to a group with a udev rule (group dialout, mode 0660), or for now: sudo chmod a+rw {}",
       "dê a porta a um grupo com uma regra udev (grupo dialout, modo 0660), ou por ora: sudo chmod a+rw {}"},
      {patient.port});
}

Findings check_node(const Patient& patient) {
  if (patient.port.empty()) return {};
  struct stat node {};
  if (!can_stat(patient.world.path(patient.port), node)) {
    return {bad(
        Grade::fail, "node", patient.port + ": " + std::strerror(errno),
        tr({"connect the device, or start the emulator", "conecte o equipamento, ou inicie o emulador"}))};
  }
  if (patient.world.is_real() && !S_ISCHR(node.st_mode)) {
    return {bad(Grade::fail, "node", fill({"{} is no device", "{} não é um dispositivo"}, {patient.port}),
                tr({"remove it and connect the device again", "remova-o e conecte o equipamento de novo"}))};
  }
  const std::string text = patient.port + " " + permissions(patient, node) + ", " +
                           fill({"user {}", "usuário {}"}, {patient.user.name});
  if (patient.user.may(node, R_OK | W_OK)) return {good("node", text)};
  const auto by_files = find_user(patient.world, patient.user.name);
  if (by_files && by_files->may(node, R_OK | W_OK)) {
    return {bad(
        Grade::warn, "node", text,
        tr({"the new group counts from the next login on", "o novo grupo vale a partir do próximo login"}))};
  }
  return {bad(Grade::fail, "node", text, remedy_for_node(patient, node))};
}

Findings check_lock(const Patient& patient) {
  struct stat node {};
  if (patient.port.empty() || !can_stat(patient.world.path(patient.port), node)) return {};
  Findings findings;
  // The emulator keeps its own port open.
  const bool emulated = patient.devices.empty() && emulator_enabled(patient);
  const auto holders = lock_holders(patient.world, node);
  for (const Process& holder : holders) {
    findings.push_back(
        bad(Grade::warn, "lock",
            fill({"the port is locked by {}", "a porta está reservada por {}"}, {program_and_pid(holder)}),
            fill({"a call is running; calls of others get the busy reply. If it never ends: kill {}",
                  "há uma chamada em curso; as outras recebem a resposta de ocupado. Se nunca "
                  "terminar: kill {}"},
                 {std::to_string(holder.id)})));
  }
  for (const Process& opener : openers(patient.world, patient.port)) {
    const bool holds = std::any_of(holders.begin(), holders.end(),
                                   [&opener](const Process& holder) { return holder.id == opener.id; });
    if (holds || emulated) continue;
    findings.push_back(
        bad(Grade::warn, "lock",
            fill({"the port is open in {}, without a lock", "a porta está aberta em {}, sem reserva"},
                 {program_and_pid(opener)}),
            tr({"two readers steal each other's bytes: end that program",
                "dois leitores roubam bytes um do outro: encerre esse programa"})));
  }
  if (findings.empty())
    findings.push_back(good("lock", tr({"nobody holds the port", "ninguém ocupa a porta"})));
  return findings;
}

Findings check_modem_manager(const Patient& patient) {
  const auto ids = process_ids(patient.world);
  const auto running = std::find_if(ids.begin(), ids.end(), [&patient](int id) {
    return process(patient.world, id).program == kModemManager;
  });
  const std::string rule = modem_manager_rule(patient.world, patient.devices);
  if (!rule.empty()) {
    return {good("modem-manager", fill({"a udev rule keeps ModemManager off the device ({})",
                                        "uma regra udev afasta o ModemManager do equipamento ({})"},
                                       {rule}))};
  }
  if (running == ids.end()) {
    return {good("modem-manager", tr({"ModemManager does not run", "o ModemManager não está em execução"}))};
  }
  return {
      bad(Grade::fail, "modem-manager",
          fill({"ModemManager runs (pid {}) and no udev rule keeps it off the device",
                "o ModemManager está em execução (pid {}) e nenhuma regra udev o afasta do equipamento"},
               {std::to_string(*running)}),
          tr({"install the udev rule with ENV{ID_MM_DEVICE_IGNORE}=\"1\" that comes with the library, or: "
              "sudo systemctl disable --now ModemManager",
              "instale a regra udev com ENV{ID_MM_DEVICE_IGNORE}=\"1\" que acompanha a biblioteca, ou: "
              "sudo systemctl disable --now ModemManager"}))};
}

Finding ini_item_finding(const IniFinding& item) {
  const std::string id = std::string("ini.") + item.item->section + "." + item.item->name;
  const std::string value = printable(item.value.value_or(tr({"(missing)", "(ausente)"})));
  const std::string standard = fill({"default {}", "padrão {}"}, {item.item->standard});
  const std::string text =
      std::string("[") + item.item->section + "] " + item.item->name + "=" + value + " (" + standard + ")";
  if (item.grade == Grade::ok) return {id, Grade::ok, text + ": " + item.note, {}, item.value.value_or("")};
  return {id, item.grade, text, item.note, item.value.value_or("")};
}

Findings check_ini(const Patient& patient) {
  struct stat file {};
  const std::string path = (patient.folder / kIniFile).string();
  if (!can_stat(path, file)) {
    return {bad(
        Grade::warn, "ini", path + ": " + std::strerror(errno),
        tr({"the library writes it with defaults at its first call; --dir tells which folder the till runs in",
            "a biblioteca o grava com os padrões na primeira chamada; --dir diz em que pasta o aplicativo "
            "roda"}))};
  }
  if (!patient.user.may(file, R_OK) || !read_file(path)) {
    return {bad(Grade::fail, "ini",
                fill({"{} cannot be read by {}", "{} não pode ser lido por {}"}, {path, patient.user.name}),
                fill({"sudo chmod a+r {}", "sudo chmod a+r {}"}, {path}))};
  }
  Findings findings{good("ini", path)};
  if (!can_read_ini(patient)) return findings;
  for (const IniFinding& item : check_items(*patient.library)) findings.push_back(ini_item_finding(item));
  for (const std::string& line : stray_lines(*read_file(path))) {
    findings.push_back(bad(Grade::warn, "ini.stray", printable(line),
                           tr({"correct or remove the line", "corrija ou remova a linha"})));
    findings.back().quoted = findings.back().text;
  }
  return findings;
}

Finding check_folder(const Patient& patient, const char* id, const fs::path& folder) {
  struct stat status {};
  if (!can_stat(folder, status)) {
    return bad(Grade::fail, id, folder.string() + ": " + std::strerror(errno),
               fill({"mkdir {}", "mkdir {}"}, {folder.string()}));
  }
  if (S_ISDIR(status.st_mode) && patient.user.may(status, W_OK | X_OK)) {
    return good(id, fill({"{} is writable", "{} permite gravação"}, {folder.string()}));
  }
  return bad(
      Grade::fail, id,
      fill({"{} cannot write in {}", "{} não pode gravar em {}"}, {patient.user.name, folder.string()}),
      fill({"sudo chown {} {}", "sudo chown {} {}"}, {patient.user.name, folder.string()}));
}

// The current files of today and their sizes.
std::vector<LogFile> todays_logs(const Patient& patient) {
  auto files = find_log_files(patient.log_folder);
  std::erase_if(files, [](const LogFile& file) { return file.date != today(); });
  return files;
}

Findings check_folders(const Patient& patient) {
  Findings findings{check_folder(patient, "folder", patient.folder)};
  if (patient.log_folder != patient.folder)
    findings.push_back(check_folder(patient, "log-folder", patient.log_folder));
  for (const LogFile& file : todays_logs(patient)) {
    struct stat status {};
    if (!can_stat(file.path, status) || patient.user.may(status, W_OK)) continue;
    findings.push_back(
        bad(Grade::fail, "log-file",
            fill({"{} belongs to {}; {} cannot write it", "{} pertence a {}; {} não pode gravar nele"},
                 {file.path.string(), user_name(patient.world, status.st_uid), patient.user.name}),
            fill({"sudo chown {} {}", "sudo chown {} {}"}, {patient.user.name, file.path.string()})));
  }
  return findings;
}

Findings check_space(const Patient& patient) {
  struct statvfs system {};
  if (statvfs(patient.folder.c_str(), &system) != 0) return {};
  const std::uintmax_t space = static_cast<std::uintmax_t>(system.f_bavail) * system.f_frsize;
  const std::string text = fill({"{} free", "{} livres"}, {megabytes(space)});
  if (space >= kComfortableSpace) return {good("space", text)};
  return {bad(space < kLeastSpace ? Grade::fail : Grade::warn, "space", text,
              tr({"make room: without it logs and result files are lost",
                  "libere espaço: sem ele perdem-se logs e arquivos de resultado"}))};
}

Findings check_log_size(const Patient& patient) {
  std::uintmax_t size = 0;
  std::error_code error;
  const auto files = todays_logs(patient);
  for (const LogFile& file : files) size += fs::file_size(file.path, error);
  const std::string mode = setting(patient, "LOG", "LogMode");
  const std::string text =
      fill({"today's logs: {} files, {} (LogMode={})", "logs de hoje: {} arquivos, {} (LogMode={})"},
           {std::to_string(files.size()), megabytes(size), mode});
  if (size < kLargeLogs) return {good("log-size", text)};
  return {bad(Grade::warn, "log-size", text,
              tr({"LogMode=1 logs errors only: satctl ini set LOG LogMode 1",
                  "LogMode=1 registra só erros: satctl ini set LOG LogMode 1"}))};
}

bool clock_synchronised(const World& world) {
  std::error_code error;
  if (fs::exists(world.path("/run/systemd/timesync/synchronized"), error)) return true;
  timex state{};
  return world.is_real() && adjtimex(&state) != TIME_ERROR;
}

Findings check_clock(const Patient& patient) {
  constexpr int kEarliestYear = 2024 - 1900;
  constexpr long kHour = 3600, kWestmost = -5 * kHour, kEastmost = -2 * kHour;
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z (%Z)", &local);

  Findings findings;
  if (local.tm_year < kEarliestYear) {
    findings.push_back(bad(Grade::fail, "clock", text,
                           tr({"set the clock: sudo timedatectl set-time ...",
                               "acerte o relógio: sudo timedatectl set-time ..."})));
  } else if (!clock_synchronised(patient.world)) {
    findings.push_back(
        bad(Grade::warn, "clock",
            text + std::string(tr({", not kept right by the network", ", sem sincronização pela rede"})),
            tr({"sudo timedatectl set-ntp true", "sudo timedatectl set-ntp true"})));
  } else {
    findings.push_back(good("clock", text));
  }
  const bool in_brazil = local.tm_gmtoff >= kWestmost && local.tm_gmtoff <= kEastmost;
  std::strftime(text, sizeof text, "%Z, UTC%z", &local);
  if (in_brazil)
    findings.push_back(good("time-zone", text));
  else {
    findings.push_back(bad(
        Grade::warn, "time-zone", fill({"{}: no time zone of Brazil", "{}: não é um fuso do Brasil"}, {text}),
        tr({"logs and result files carry local time: sudo timedatectl set-timezone America/Sao_Paulo",
            "logs e arquivos de resultado usam a hora local: sudo timedatectl set-timezone "
            "America/Sao_Paulo"})));
  }
  return findings;
}

// The library sets itself up at the call, with files in the current folder: a folder of its own.
std::string version_in_scratch_folder(const Library& library) {
  std::string scratch = (fs::temp_directory_path() / "satctl.XXXXXX").string();
  std::error_code error;
  const fs::path back = fs::current_path(error);
  if (mkdtemp(scratch.data()) == nullptr || chdir(scratch.c_str()) != 0) return "?";
  std::string version = library.version();
  fs::current_path(back, error);
  fs::remove_all(scratch, error);
  return version;
}

// The last check: from its call on the library logs.
Findings check_library(const Patient& patient) {
  if (!patient.library) {
    return {bad(Grade::fail, "library", patient.library_error,
                tr({"install the package libtalvex2, or give --library",
                    "instale o pacote libtalvex2, ou informe --library"}))};
  }
  Findings findings;
  std::string missing;
  for (const char* name : kExports) {
    if (patient.library->find(name) == nullptr) missing += std::string(missing.empty() ? "" : ", ") + name;
  }
  const bool has_version = patient.library->find("VersaoDllTalvex") != nullptr;
  const std::string version = has_version ? version_in_scratch_folder(*patient.library) : "?";
  findings.push_back(good("library", printable(version) + ", " + patient.library->path().string()));
  if (missing.empty()) {
    findings.push_back(
        good("exports", fill({"all {} functions and variables", "todas as {} funções e variáveis"},
                             {std::to_string(kExports.size())})));
  } else {
    findings.push_back(bad(Grade::fail, "exports", fill({"missing: {}", "faltam: {}"}, {missing}),
                           tr({"this is another library, or a damaged one: install it again",
                               "é outra biblioteca, ou está danificada: reinstale"})));
  }
  return findings;
}

constexpr std::array kChecks{check_usb,           check_port,  check_node,    check_lock,
                             check_modem_manager, check_ini,   check_folders, check_space,
                             check_log_size,      check_clock, check_library};

}  // namespace

Patient examine(const World& world, const User& user, const std::string& library_path) {
  Patient patient{world, user, fs::current_path(), {}, {}, find_devices(world), {}, {}};
  try {
    patient.library.emplace(library_path);
  } catch (const UsageError& error) {
    patient.library_error = error.what();
  }
  patient.port = port_in_use(patient);
  std::error_code error;
  const fs::path logs = setting(patient, "LOG", "LogFilePath");
  patient.log_folder = fs::is_directory(logs, error) ? fs::absolute(logs) : patient.folder;
  return patient;
}

Findings diagnose(const Patient& patient) {
  Findings findings;
  for (const auto check : kChecks) {
    for (Finding& finding : check(patient)) findings.push_back(std::move(finding));
  }
  return findings;
}

}  // namespace satctl
