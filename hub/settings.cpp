#include "hub/settings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "hub/text.h"
#include "hub/toml.h"

namespace hub {

namespace {

constexpr const char* kCredential = "activation-code";

std::filesystem::path variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::filesystem::path() : std::filesystem::path(value);
}

// systemd's folder for the service, or the user's own.
std::filesystem::path default_state() {
  for (const auto& [name, below] :
       {std::pair{"STATE_DIRECTORY", ""}, std::pair{"XDG_STATE_HOME", "talvex-hub"},
        std::pair{"HOME", ".local/state/talvex-hub"}}) {
    const auto folder = variable(name);
    if (!folder.empty()) return *below == '\0' ? folder : folder / below;
  }
  return "/var/lib/talvex-hub";
}

std::filesystem::path default_socket(const std::filesystem::path& state) {
  for (const char* name : {"RUNTIME_DIRECTORY", "XDG_RUNTIME_DIR"}) {
    const auto folder = variable(name);
    if (!folder.empty()) return folder / "talvex-hub.sock";
  }
  return state / "hub.sock";
}

std::filesystem::path default_code_file(const std::filesystem::path& state) {
  const auto credentials = variable("CREDENTIALS_DIRECTORY");
  return credentials.empty() ? state / kCredential : credentials / kCredential;
}

void complete(Settings& settings) {
  if (settings.state.empty()) settings.state = default_state();
  settings.state = std::filesystem::absolute(settings.state);
  if (settings.socket.empty()) settings.socket = default_socket(settings.state);
  if (settings.device.activation_code_file.empty()) {
    settings.device.activation_code_file = default_code_file(settings.state);
  }
}

std::string text_in(const toml::node& node, const std::string& name) {
  const auto value = node.value<std::string>();
  if (!value) throw SettingsError(fill({"{} must be a text", "{} deve ser um texto"}, {name}));
  return *value;
}

[[noreturn]] void refuse_unknown(const std::string& name) {
  throw SettingsError(fill({"there is no setting {}", "não existe a configuração {}"}, {name}));
}

void read_listen(const toml::table& table, Settings& settings) {
  for (const auto& [key, node] : table) {
    const std::string name = "listen." + std::string(key.str());
    if (key == "socket") {
      settings.socket = text_in(node, name);
    } else if (key == "http" && node.is_array()) {
      settings.http.clear();
      for (const auto& address : *node.as_array()) settings.http.push_back(text_in(address, name));
    } else {
      refuse_unknown(name);
    }
  }
}

void read_device(const toml::table& table, DeviceSettings& device) {
  for (const auto& [key, node] : table) {
    const std::string name = "device." + std::string(key.str());
    if (key == "port" || key == "emulator")
      device.port = text_in(node, name);
    else if (key == "serial")
      device.serial = text_in(node, name);
    else if (key == "activation_code_file")
      device.activation_code_file = text_in(node, name);
    else
      refuse_unknown(name);
  }
}

const toml::table& only_device(const toml::node& node) {
  const auto* devices = node.as_array();
  if (devices == nullptr || devices->size() != 1 || !devices->front().is_table()) {
    throw SettingsError(tr({"there must be one [[device]]", "deve haver um [[device]]"}));
  }
  return *devices->front().as_table();
}

}  // namespace

Settings read_settings(std::string_view text, const Settings& defaults) {
  Settings settings = defaults;
  toml::table root;
  try {
    root = toml::parse(text);
  } catch (const toml::parse_error& error) {
    throw SettingsError(std::string(error.description()) + " (" + std::to_string(error.source().begin.line) +
                        ":" + std::to_string(error.source().begin.column) + ")");
  }
  for (const auto& [key, node] : root) {
    if (key == "state")
      settings.state = text_in(node, "state");
    else if (key == "locks")
      settings.locks = text_in(node, "locks");
    else if (key == "library")
      settings.library = text_in(node, "library");
    else if (key == "listen" && node.is_table())
      read_listen(*node.as_table(), settings);
    else if (key == "device")
      read_device(only_device(node), settings.device);
    else
      refuse_unknown(std::string(key.str()));
  }
  return settings;
}

Settings load_settings(const std::filesystem::path& file, const std::filesystem::path& state) {
  Settings settings;
  if (!file.empty()) {
    std::ifstream stream(file);
    if (!stream) throw SettingsError(fill({"{} cannot be read", "não foi possível ler {}"}, {file.string()}));
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    try {
      settings = read_settings(text, settings);
    } catch (const SettingsError& error) {
      throw SettingsError(file.string() + ": " + error.what());
    }
  }
  if (!state.empty()) settings.state = state;
  complete(settings);
  return settings;
}

std::optional<ActivationCode> read_activation_code(const std::filesystem::path& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) return std::nullopt;
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw SettingsError(fill({"{} may be read by others; chmod 400 puts it right",
                              "{} pode ser lido por outros; chmod 400 resolve"},
                             {file.string()}));
  }
  std::ifstream stream(file);
  std::string code;
  std::getline(stream, code);
  while (!code.empty() && (code.back() == '\r' || code.back() == ' ')) code.pop_back();
  if (code.empty()) return std::nullopt;
  return ActivationCode{code, std::to_string(status.st_ino) + ":" + std::to_string(status.st_mtim.tv_sec) +
                                  "." + std::to_string(status.st_mtim.tv_nsec)};
}

}  // namespace hub
