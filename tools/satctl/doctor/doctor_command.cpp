// satctl doctor: the checks, as text, as JSON, and in a support bundle.

#include <memory>

#include "calls/call.h"
#include "doctor/doctor.h"
#include "doctor/findings.h"
#include "doctor/support_bundle.h"
#include "terminal/command.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;

struct GivenDiagnosis {
  std::string root = "/", user, bundle;
};

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
    write_support_bundle(patient, findings, target);
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
                   tr({"also write a support bundle (tar.gz) that shows only what is known to be harmless",
                       "gravar também um pacote para o suporte (tar.gz) que só mostra o que é inofensivo"}))
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
