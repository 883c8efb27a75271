// satctl doctor: the checks, as text, as JSON, and in a support bundle.

#include <spawn.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>

#include "call.h"
#include "command.h"
#include "doctor.h"
#include "log_files.h"
#include "masking.h"
#include "printable.h"
#include "terminal.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostOfOneLog = 5'000'000;
constexpr int kDaysOfLogs = 7;
constexpr const char* kBundleFolder = "satctl-bundle";

struct GivenDiagnosis {
  std::string root = "/", user, bundle;
};

Colour colour_of(Grade grade) {
  constexpr Colour kColours[] = {Colour::green, Colour::yellow, Colour::red};
  return kColours[static_cast<std::size_t>(grade)];
}

Grade worst(const std::vector<Finding>& findings) {
  Grade grade = Grade::ok;
  for (const Finding& finding : findings) grade = std::max(grade, finding.grade);
  return grade;
}

std::string as_text(const std::vector<Finding>& findings, bool in_colour) {
  std::string text;
  for (const Finding& finding : findings) {
    const std::string grade = padded(grade_name(finding.grade), 5);
    text += (in_colour ? coloured(colour_of(finding.grade), grade) : grade) +
            padded(finding.id.substr(0, finding.id.find('.')), 14) + " " + finding.text + "\n";
    if (!finding.remedy.empty()) text += "                     -> " + finding.remedy + "\n";
  }
  return text;
}

nlohmann::ordered_json as_json(const std::vector<Finding>& findings) {
  nlohmann::ordered_json object{{"worst", grade_name(worst(findings))},
                                {"checks", nlohmann::ordered_json::array()}};
  for (const Finding& finding : findings) {
    object["checks"].push_back({{"id", finding.id},
                                {"grade", grade_name(finding.grade)},
                                {"text", valid_utf8(finding.text)},
                                {"remedy", valid_utf8(finding.remedy)}});
  }
  return object;
}

std::string system_description(const World& world) {
  utsname name{};
  uname(&name);
  return std::string(name.sysname) + " " + name.release + " " + name.machine + "\n" +
         world.read("/etc/os-release").value_or("") + "satctl " SATCTL_VERSION "\n";
}

struct BundleFile {
  std::string name, content;
};

std::string last_part(std::string content) {
  if (content.size() <= kMostOfOneLog) return content;
  const std::size_t line = content.find('\n', content.size() - kMostOfOneLog);
  return "[...]\n" + content.substr(line == std::string::npos ? content.size() - kMostOfOneLog : line + 1);
}

bool starts_record(std::string_view line) {
  constexpr std::size_t kStampDigits = 14;
  return starts_with_digits(line, kStampDigits) ||
         (line.size() > 3 && line[0] == '[' && starts_with_digits(line.substr(1), 2) && line[3] == ':');
}

// Where a document or the device's network settings begin in a line.
std::size_t left_out_from(std::string_view line) {
  constexpr std::string_view kStatusReply = "|10000|", kStartMark = "<STX>", kReplyField = "<< R";
  std::size_t from = line.find(kStatusReply);
  if (from != std::string_view::npos) from += kStatusReply.size();
  for (std::size_t at = line.find('<'); at < std::min(from, line.size()); at = line.find('<', at + 1)) {
    const char next = at + 1 < line.size() ? line[at + 1] : ' ';
    const bool tag = std::isalpha(static_cast<unsigned char>(next)) != 0 || next == '?' || next == '!' ||
                     next == '/' || next == '&';
    if (tag && line.substr(at, kStartMark.size()) != kStartMark) return at;
  }
  const std::size_t field = line.find(kReplyField);
  const std::size_t number = field + kReplyField.size();
  const bool later_field = field != std::string_view::npos && starts_with_digits(line.substr(number), 2) &&
                           line.substr(number, 2) > "05";
  return later_field ? number + 2 : from;
}

// Documents, network settings and bytes that stand one to a line: nothing of them goes into a bundle.
std::string without_documents(const std::string& content) {
  constexpr std::string_view kByte = "Rcvd[";
  std::string kept;
  bool left_out = false;
  for (std::size_t at = 0; at < content.size();) {
    const std::size_t end = std::min(content.find('\n', at), content.size());
    std::string line = content.substr(at, end - at);
    at = end + 1;
    if (left_out && !starts_record(line)) continue;
    for (std::size_t byte = line.find(kByte); byte != std::string::npos; byte = line.find(kByte, byte + 1)) {
      const std::size_t value = byte + kByte.size();
      if (line.find(']', value) == value + 3) line.replace(value, 2, "--");
    }
    const std::size_t from = left_out_from(line);
    left_out = from < line.size();
    if (left_out) line = line.substr(0, from) + "[" + std::to_string(line.size() - from) + " left out]";
    kept += line + "\n";
  }
  return kept;
}

// Only what lies there itself: a link may lead to a file of somebody else.
std::optional<std::string> read_without_links(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(fs::symlink_status(path, error)) ? read_file(path) : std::nullopt;
}

std::vector<BundleFile> gather(const Patient& patient, const std::vector<Finding>& findings) {
  constexpr int kIndent = 2;
  std::vector<BundleFile> files{
      {"doctor.txt", as_text(findings, false)},
      {"doctor.json",
       as_json(findings).dump(kIndent, ' ', false, nlohmann::ordered_json::error_handler_t::replace)},
      {"system.txt", system_description(patient.world)}};
  for (const char* name : {kIniFile, kPortFile}) {
    if (const auto content = read_without_links(patient.folder / name)) files.push_back({name, *content});
  }
  const LocalTime first = start_of(today()) - (kDaysOfLogs - 1) * kMillisecondsOfDay;
  for (const LogFile& log : find_log_files(patient.log_folder)) {
    if (start_of(log.date) < first) continue;
    if (auto content = read_without_links(log.path))
      files.push_back({log.path.filename().string(), std::move(*content)});
  }
  Masker masker;
  for (const BundleFile& file : files) masker.learn(file.content);
  for (BundleFile& file : files) {
    if (log_file(file.name)) file.content = without_documents(file.content);
  }
  for (BundleFile& file : files) file.content = masker.mask(last_part(std::move(file.content)));
  return files;
}

bool run_tar(const fs::path& folder, const fs::path& target) {
  const std::string from = folder.string(), to = target.string();
  const char* arguments[] = {"tar", "-C", from.c_str(), "-czf", to.c_str(), "--", kBundleFolder, nullptr};
  pid_t child = 0;
  if (posix_spawnp(&child, "tar", nullptr, nullptr, const_cast<char**>(arguments), environ) != 0)
    return false;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void write_bundle(const std::vector<BundleFile>& files, const fs::path& target) {
  std::string scratch = (fs::temp_directory_path() / "satctl.XXXXXX").string();
  if (mkdtemp(scratch.data()) == nullptr) throw UsageError(scratch + ": " + std::strerror(errno));
  const fs::path folder = fs::path(scratch) / kBundleFolder;
  const mode_t mask = umask(S_IRWXG | S_IRWXO);
  std::error_code error;
  bool done = fs::create_directory(folder, error);
  for (const BundleFile& file : files) done = done && replace_file(folder / file.name, file.content);
  done = done && run_tar(scratch, target);
  umask(mask);
  fs::remove_all(scratch, error);
  if (!done) {
    throw UsageError(fill({"the bundle {} could not be written", "não foi possível gravar o pacote {}"},
                          {target.string()}));
  }
}

User chosen_user(const World& world, const std::string& name) {
  if (name.empty()) return current_user(world);
  const auto user = find_user(world, name);
  if (user) return *user;
  throw UsageError(fill({"--user {}: no such user", "--user {}: usuário desconhecido"}, {name}));
}

ExitStatus doctor(const GivenDiagnosis& given, const Settings& settings) {
  const fs::path target = given.bundle.empty() ? fs::path() : fs::absolute(given.bundle);
  const World world(fs::absolute(given.root).lexically_normal());
  const User user = chosen_user(world, given.user);
  enter(settings.folder);
  const Patient patient = examine(world, user, settings.library);
  const auto findings = diagnose(patient);
  if (settings.json)
    print_json(as_json(findings));
  else
    print(as_text(findings, true));
  if (!target.empty()) {
    write_bundle(gather(patient, findings), target);
    print_error("satctl: " +
                fill({"bundle for the support, without activation codes, documents, network settings: {}",
                      "pacote para o suporte, sem códigos de ativação, documentos, "
                      "configuração de rede: {}"},
                     {target.string()}));
  }
  return worst(findings) == Grade::fail ? ExitStatus::refused : ExitStatus::success;
}

}  // namespace

void add_doctor_command(CommandLine& line) {
  CLI::App* command =
      add_command(line.app, "doctor", groups::kDiagnosis,
                  {"check device, port, permissions, configuration, logs, clock, library",
                   "conferir equipamento, porta, permissões, configuração, logs, relógio, biblioteca"});
  const auto given = std::make_shared<GivenDiagnosis>();
  command
      ->add_option("--bundle", given->bundle,
                   tr({"also write a support bundle (tar.gz); secrets are masked",
                       "gravar também um pacote para o suporte (tar.gz); segredos são mascarados"}))
      ->type_name(tr(kFileType));
  command
      ->add_option("--user", given->user,
                   tr({"check for this user, the one that the till runs as (default: you)",
                       "conferir para este usuário, o do aplicativo (padrão: você)"}))
      ->type_name(tr(kTextType));
  command
      ->add_option("--root", given->root,
                   tr({"look at /sys, /proc, /dev, /run and /etc under this folder",
                       "examinar /sys, /proc, /dev, /run e /etc sob esta pasta"}))
      ->type_name(tr(kFolderType));
  when_chosen(line, command, [given, &line] { return doctor(*given, line.settings); });
}

}  // namespace satctl
