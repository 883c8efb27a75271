#include "doctor/support_bundle.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "doctor/findings.h"
#include "log/log_files.h"
#include "masking/configuration.h"
#include "masking/masker.h"
#include "masking/trace_message.h"
#include "terminal/exit_status.h"
#include "terminal/settings.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostOfOneLog = 5'000'000;
constexpr int kDaysOfLogs = 7;
constexpr const char* kBundleFolder = "satctl-bundle";

struct BundleFile {
  std::string name, content;
};

// A log in its records, the last ones where it is long.
struct PackedLog {
  std::string name;
  std::size_t size = 0, used = 0, skipped = 0;
  std::vector<Record> records;
};

struct Gathered {
  std::vector<BundleFile> settings;
  std::vector<PackedLog> logs;
  std::vector<std::string> left_out;  // names of links and of files that cannot be read
};

PackedLog pack_log(const LogFile& file, const std::string& content) {
  PackedLog log{
      file.path.filename().string(), content.size(), std::min(content.size(), kMostOfOneLog), 0, {}};
  RecordReader reader(file.kind, file.date);
  log.records = reader.read(std::string_view(content).substr(content.size() - log.used));
  append(log.records, reader.finish());
  log.skipped = reader.skipped();
  return log;
}

Gathered gather(const Patient& patient) {
  Gathered gathered;
  std::error_code error;
  const auto read = [&gathered](const fs::path& path) {
    auto content = read_regular_file(path);
    if (!content) gathered.left_out.push_back(path.filename().string());
    return content;
  };
  for (const char* name : {kIniFile, kPortFile}) {
    if (!fs::exists(fs::symlink_status(patient.folder / name, error))) continue;
    if (const auto content = read(patient.folder / name)) gathered.settings.push_back({name, *content});
  }
  const LocalTime first = start_of(today()) - (kDaysOfLogs - 1) * kMillisecondsOfDay;
  for (const LogFile& log : find_log_files(patient.log_folder)) {
    if (start_of(log.date) < first) continue;
    if (const auto content = read(log.path)) gathered.logs.push_back(pack_log(log, *content));
  }
  return gathered;
}

void learn(masking::Masker& masker, const std::vector<PackedLog>& logs) {
  for (const PackedLog& log : logs) {
    for (const Record& record : log.records) {
      if (record.direction == Direction::none)
        masker.learn_message(record.body);
      else
        masker.learn_frame(record.body);
    }
  }
}

// A log's name is the till's choice: one that could hold a number of somebody, or a code, gets another.
void rename(const masking::Masker& masker, std::vector<PackedLog>& logs) {
  for (std::size_t i = 0; i < logs.size(); ++i) {
    std::string& name = logs[i].name;
    if (masker.path(name) != name) name = "log-" + std::to_string(i + 1) + ".txt";
  }
}

std::string masked_line(const masking::Masker& masker, const Record& record) {
  if (record.direction == Direction::none)
    return record.stamp + level_tag(record.level) + " " + masker.message(record.body) + "\n";
  const bool sent = record.direction == Direction::to_device;
  return record.stamp + (sent ? " PC->SAT >> [" : " SAT->PC << [") +
         masker.frame(record.body, sent ? masking::Side::host : masking::Side::device) + "]" +
         masker.mark(record.mark) + "\n";
}

std::vector<Finding> masked_findings(const masking::Masker& masker, std::vector<Finding> findings) {
  for (Finding& finding : findings) {
    const auto quoted = finding.quoted.empty() ? std::string::npos : finding.text.find(finding.quoted);
    if (quoted != std::string::npos) {
      const bool whole = finding.quoted == finding.text;
      finding.text.replace(
          quoted, finding.quoted.size(),
          whole ? masking::length_only(finding.quoted) : masking::masked_setting(finding.quoted));
    }
    finding.text = masker.own_text(finding.text);
    finding.remedy = masker.own_text(finding.remedy);
  }
  return findings;
}

std::string system_description(const World& world) {
  utsname name{};
  uname(&name);
  return std::string(name.sysname) + " " + name.release + " " + name.machine + "\n" +
         world.read("/etc/os-release").value_or("") + "satctl " SATCTL_VERSION "\n";
}

std::string how_it_is_masked() {
  return tr(
      {"Masked: only what is known to be harmless is shown. Session numbers, return codes, times, totals,\n"
       "lengths, the words of the standard's messages, names of ports, folders and functions.\n"
       "  ********           an activation code or another secret; from six characters on also wherever else it\n"
       "                     stands\n"
       "  *17*               17 bytes that are not shown: addresses, numbers of taxpayers, free texts,\n"
       "                     network settings, long numbers in names of folders, everything without a known\n"
       "                     structure\n"
       "  *5120 1a2b3c4d*    a document of 5120 bytes; within this bundle equal documents have equal marks\n"
       "  CFe352603***4564   an access key: state, month and the last four digits\n"
       "  Rcvd[**h], <-->    a byte, a checksum\n"
       "Of SAT.ini known items are shown, of SAT.conf the port. doctor.txt, doctor.json and system.txt name users,\n"
       "groups, programs, folders, the device on the USB and the system.\n",
       "Mascarado: só aparece o que se sabe inofensivo. Números de sessão, códigos de retorno, horários, totais,\n"
       "tamanhos, as palavras das mensagens do padrão, nomes de portas, pastas e funções.\n"
       "  ********           código de ativação ou outro segredo; a partir de seis caracteres também onde mais\n"
       "                     ele aparecer\n"
       "  *17*               17 bytes que não são mostrados: endereços, números de contribuintes, textos\n"
       "                     livres, configuração de rede, números longos em nomes de pastas, tudo o que não\n"
       "                     tem estrutura conhecida\n"
       "  *5120 1a2b3c4d*    documento de 5120 bytes; neste pacote documentos iguais têm marcas iguais\n"
       "  CFe352603***4564   chave de acesso: estado, mês e os quatro últimos dígitos\n"
       "  Rcvd[**h], <-->    um byte, um checksum\n"
       "Do SAT.ini aparecem os itens conhecidos, do SAT.conf a porta. doctor.txt, doctor.json e system.txt citam\n"
       "usuários, grupos, programas, pastas, o equipamento na USB e o sistema.\n"});
}

std::string contents(const masking::Masker& masker, const Gathered& gathered) {
  std::string text(tr({"Left out:\n", "Deixado de fora:\n"}));
  const std::size_t empty = text.size();
  for (const std::string& name : gathered.left_out) {
    text += fill({"  {}: a link, or not readable\n", "  {}: é um link, ou não pode ser lido\n"},
                 {masker.path(name)});
  }
  for (const PackedLog& log : gathered.logs) {
    if (log.used < log.size) {
      text += fill({"  {}: the first {} bytes\n", "  {}: os primeiros {} bytes\n"},
                   {log.name, std::to_string(log.size - log.used)});
    }
    if (log.skipped > 0) {
      text += fill({"  {}: {} bytes that belong to no record\n",
                    "  {}: {} bytes que não pertencem a nenhum registro\n"},
                   {log.name, std::to_string(log.skipped)});
    }
  }
  if (text.size() == empty) text += tr({"  nothing else\n", "  nada mais\n"});
  return text;
}

std::vector<BundleFile> masked_files(const Patient& patient, const std::vector<Finding>& findings) {
  constexpr int kIndent = 2;
  Gathered gathered = gather(patient);
  masking::Masker masker;
  learn(masker, gathered.logs);
  rename(masker, gathered.logs);
  const auto shown = masked_findings(masker, findings);
  std::vector<BundleFile> files{
      {"README.txt", "satctl " SATCTL_VERSION ", " + format_date(today()) + "\n\n" + how_it_is_masked() +
                         "\n" + contents(masker, gathered)},
      {"doctor.txt", as_text(shown, false)},
      {"doctor.json",
       as_json(shown).dump(kIndent, ' ', false, nlohmann::ordered_json::error_handler_t::replace)},
      {"system.txt", masker.own_text(system_description(patient.world))}};
  for (const BundleFile& file : gathered.settings)
    files.push_back(
        {file.name, file.name == kIniFile ? masker.configuration(file.content) : masker.path(file.content)});
  for (PackedLog& log : gathered.logs) {
    std::string content;
    for (const Record& record : log.records) content += masked_line(masker, record);
    files.push_back({log.name, std::move(content)});
    log.records.clear();
  }
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

void write_files(const std::vector<BundleFile>& files, const fs::path& target) {
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

}  // namespace

void write_support_bundle(const Patient& patient, const std::vector<Finding>& findings,
                          const fs::path& target) {
  write_files(masked_files(patient, findings), target);
}

}  // namespace satctl
