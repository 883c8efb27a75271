#include "configuration/ini_items.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>

#include "terminal/settings.h"

namespace satctl {

namespace {

using enum ItemForm;
using enum ItemUse;

constexpr std::size_t kLongestPort = 31;
constexpr const char* kPort = "SERIAL_PORT_CONFIG";
constexpr const char* kLimits = "SAT_TIMEOUT";

constexpr std::array kItems{
    IniItem{kPort, "FixarPorta", "", fixed_port, applied},
    IniItem{kPort, "SerialPortConfig", "115200,8,N,1", text, not_applied},
    IniItem{kPort, "ReadIntervalTimeout", "10", text, not_applied},
    IniItem{kPort, "ReadTotalTimeoutMultiplier", "1", text, not_applied},
    IniItem{kPort, "ReadTotalTimeoutConstant", "1", text, not_applied},
    IniItem{kPort, "WriteTotalTimeoutMultiplier", "1", text, not_applied},
    IniItem{kPort, "WriteTotalTimeoutConstant", "1000", text, not_applied},
    IniItem{kLimits, "AtivarSAT", "1800", seconds, applied},
    IniItem{kLimits, "ComunicarCertificadoICPBRASIL", "300", seconds, applied},
    IniItem{kLimits, "EnviarDadosVenda", "30", seconds, applied},
    IniItem{kLimits, "CancelarUltimaVenda", "30", seconds, applied},
    IniItem{kLimits, "ConsultarSAT", "10", seconds, applied},
    IniItem{kLimits, "TesteFimAFim", "20", seconds, applied},
    IniItem{kLimits, "ConsultarStatusOperacional", "10", seconds, applied},
    IniItem{kLimits, "ConsultarNumeroSessao", "20", seconds, not_applied},
    IniItem{kLimits, "ConfigurarInterfaceDeRede", "20", seconds, not_applied},
    IniItem{kLimits, "AssociarAssinatura", "1800", seconds, not_applied},
    IniItem{kLimits, "AtualizarSoftwareSAT", "1800", seconds, not_applied},
    IniItem{kLimits, "ExtrairLogs", "30", seconds, not_applied},
    IniItem{kLimits, "BloquearSAT", "300", seconds, not_applied},
    IniItem{kLimits, "DesbloquearSAT", "20", seconds, not_applied},
    IniItem{kLimits, "TrocarCodigoDeAtivacao", "30", seconds, not_applied},
    IniItem{kLimits, "ConsultarUltimaSessaoFiscal", "20", seconds, not_applied},
    IniItem{"SAT_EMULATOR", "SerialPortWindows", "CNCA0", text, other_platform},
    IniItem{"SAT_EMULATOR", "SerialPortLinux", "/dev/ttyVSP0", emulator_port, applied, ""},
    IniItem{"SAT_EMULATOR", "Enable", "0", switch_on_1, applied},
    IniItem{"ARVOLEN", "PathWindows", "C:\\ProgramData\\Arvolen\\Cupons\\New", text, other_platform},
    IniItem{"ARVOLEN", "PathLinux", "/etc/Arvolen/Cupons/New", text, applied},
    IniItem{"ARVOLEN", "Enable", "0", switch_on_1, applied},
    IniItem{"LOG", "LogFilePath", "Log", text, applied},
    IniItem{"LOG", "LogFileName", "", text, applied, "SAT_api.log"},
    IniItem{"LOG", "LogFileMaxSize", "1300000", file_size, applied, "800000"},
    IniItem{"LOG", "LogMode", "1", log_mode, applied},
};

struct Judgement {
  Grade grade;
  const Text* note;
};

std::string value_without(const IniItem& item) {
  return item.when_missing != nullptr ? item.when_missing : item.standard;
}

constexpr Text kApplied{"applied", "aplicado"};
constexpr Text kDefaultUsed{"not set: {} holds", "não definido: vale {}"};
constexpr Text kNothingUsed{"not set: nothing is used", "não definido: nada é usado"};
constexpr Text kNoEffect{"read, but without effect", "lido, mas sem efeito"};
constexpr Text kWindows{"for Windows only", "só para Windows"};
constexpr Text kNotSeconds{"no number above 0: the default holds", "não é número maior que 0: vale o padrão"};
constexpr Text kSwitchedOn{"on", "ligado"};
constexpr Text kSwitchedOff{"off", "desligado"};
constexpr Text kOddSwitch{"off: only a value that begins with 1 switches it on",
                          "desligado: só um valor que começa com 1 liga"};
constexpr Text kUnknownMode{"no digit from 0 to 5: counts as 1", "não é dígito de 0 a 5: vale 1"};
constexpr Text kPortEnd{"a port's name must end in a digit", "o nome da porta deve terminar em dígito"};
constexpr Text kPortLength{"a port's name may have 31 characters: not read",
                           "o nome da porta pode ter 31 caracteres: não é lido"};
constexpr Text kShortPort{"shorter than three characters: no port is fixed",
                          "menos de três caracteres: nenhuma porta é fixada"};
constexpr Text kFixedPort{"applied: always used, whatever device is found",
                          "aplicado: sempre usada, seja qual for o equipamento encontrado"};
constexpr Text kNotSet{"not set, as usual", "não definido, como é normal"};

bool ends_in_digit(const std::string& value) {
  return !value.empty() && all_digits(value.substr(value.size() - 1));
}

Judgement judge_port(const std::string& value, std::size_t longest, const Text& good) {
  if (value.size() > longest) return {Grade::fail, &kPortLength};
  if (!ends_in_digit(value)) return {Grade::fail, &kPortEnd};
  return {Grade::ok, &good};
}

Judgement judge_form(ItemForm form, const std::string& value) {
  switch (form) {
    case text:
      return {Grade::ok, &kApplied};
    case switch_on_1:
      if (value.starts_with('1')) return {Grade::ok, &kSwitchedOn};
      return value == "0" ? Judgement{Grade::ok, &kSwitchedOff} : Judgement{Grade::warn, &kOddSwitch};
    case seconds:
    case file_size:
      return std::atoi(value.c_str()) > 0 ? Judgement{Grade::ok, &kApplied}
                                          : Judgement{Grade::warn, &kNotSeconds};
    case log_mode:
      return value[0] >= '0' && value[0] <= '5' ? Judgement{Grade::ok, &kApplied}
                                                : Judgement{Grade::warn, &kUnknownMode};
    case emulator_port:
      return judge_port(value, kLongestPort, kApplied);
    case fixed_port:
      return value.size() < 3 ? Judgement{Grade::warn, &kShortPort}
                              : judge_port(value, kLongestIniValue, kFixedPort);
  }
  return {Grade::ok, &kApplied};
}

Judgement judge(const IniItem& item, const std::optional<std::string>& value) {
  if (!value || value->empty()) {
    if (item.form == fixed_port) return {Grade::ok, &kNotSet};
    return {Grade::ok, value_without(item).empty() ? &kNothingUsed : &kDefaultUsed};
  }
  if (item.use == other_platform) return {Grade::ok, &kWindows};
  if (item.use == not_applied) return {*value == item.standard ? Grade::ok : Grade::warn, &kNoEffect};
  return judge_form(item.form, *value);
}

}  // namespace

const char* grade_name(Grade grade) {
  constexpr std::array kNames{"OK", "WARN", "FAIL"};
  return kNames[static_cast<std::size_t>(grade)];
}

std::span<const IniItem> ini_items() {
  return kItems;
}

const IniItem* find_ini_item(const std::string& section, const std::string& name) {
  const auto found = std::find_if(kItems.begin(), kItems.end(), [&](const IniItem& item) {
    return item.section == section && item.name == name;
  });
  return found == kItems.end() ? nullptr : &*found;
}

std::vector<IniFinding> check_items(const Library& library) {
  std::vector<IniFinding> findings;
  for (const IniItem& item : kItems) {
    auto value = library.ini_value(kIniFile, item.section, item.name);
    const Judgement judgement = judge(item, value);
    findings.push_back(
        {&item, std::move(value), judgement.grade, fill(*judgement.note, {value_without(item)})});
  }
  return findings;
}

std::vector<std::string> stray_lines(const std::string& content) {
  std::vector<std::string> stray;
  std::set<std::pair<std::string, std::string>> seen;
  std::string section;
  std::size_t start = 0;
  for (int number = 1; start < content.size(); ++number) {
    const std::size_t end = std::min(content.find('\n', start), content.size());
    const std::string line(trimmed(std::string_view(content).substr(start, end - start)));
    start = end + 1;
    if (line.empty() || line[0] == '#' || line[0] == ';') continue;
    if (line[0] == '[') {
      section = line.substr(1, line.find(']') - 1);
      continue;
    }
    const std::string name(trimmed(line.substr(0, line.find('='))));
    const bool known = find_ini_item(section, name) != nullptr;
    const bool first = seen.emplace(section, name).second;
    const Text why = known ? Text{"second occurrence, not read", "segunda ocorrência, não é lida"}
                           : Text{"unknown item, not read", "item desconhecido, não é lido"};
    if (!known || !first) {
      stray.push_back(
          fill({"line {}: [{}] {}: ", "linha {}: [{}] {}: "}, {std::to_string(number), section, name}) +
          tr(why));
    }
  }
  return stray;
}

std::string effective_value(const Library& library, const std::string& section, const std::string& name) {
  const auto value = library.ini_value(kIniFile, section, name);
  const IniItem* item = find_ini_item(section, name);
  if ((value && !value->empty()) || item == nullptr) return value.value_or("");
  return value_without(*item);
}

}  // namespace satctl
