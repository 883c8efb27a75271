// satctl log: trace and protocol logs, filtered, as calls, as decoded frames, followed.

#include <algorithm>
#include <memory>

#include "calls/call.h"
#include "log/log_follow.h"
#include "log/log_view.h"
#include "terminal/command.h"
#include "terminal/terminal.h"

namespace satctl {

namespace {

constexpr std::size_t kLinesBeforeFollowing = 10;

// Shows the last of the chosen ones, as many as the user wants.
template <typename Show>
void show_last(const GivenView& given, const std::vector<std::size_t>& chosen, Show show) {
  const std::size_t most = given.last >= 0 ? static_cast<std::size_t>(given.last)
                           : given.follow  ? kLinesBeforeFollowing
                                           : chosen.size();
  for (std::size_t i = chosen.size() - std::min(most, chosen.size()); i < chosen.size(); ++i) show(chosen[i]);
}

void show_calls(const JoinedLogs& logs, const GivenView& given, const LogFilter& filter,
                const LogView& view) {
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < logs.calls.size(); ++i) {
    if (filter.passes(logs.calls[i])) chosen.push_back(i);
  }
  show_last(given, chosen, [&](std::size_t i) { view.show(logs.calls[i]); });
}

void show_loaded(const JoinedLogs& logs, const GivenView& given, const LogFilter& filter, LogView& view) {
  for (const Record& record : logs.records) view.learn(record);
  if (given.calls) {
    show_calls(logs, given, filter, view);
    return;
  }
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < logs.records.size(); ++i) {
    if (filter.passes(logs.records[i], logs.call_at(i))) chosen.push_back(i);
  }
  show_last(given, chosen, [&](std::size_t i) { view.show(logs.records[i], logs.call_at(i)); });
}

[[noreturn]] void follow(const std::filesystem::path& folder, const Ends& ends, const JoinedLogs& joined,
                         const LogFilter& filter, LogView& view) {
  follow_logs(folder, ends, joined, [&](const JoinedLogs& logs) {
    for (const Record& record : logs.records) view.learn(record);
    for (std::size_t i = 0; i < logs.records.size(); ++i) {
      const bool fresh = !logs.records[i].shown;
      if (fresh && filter.passes(logs.records[i], logs.call_at(i)))
        view.show(logs.records[i], logs.call_at(i));
    }
  });
}

ExitStatus show_log(const GivenView& given, const Settings& settings) {
  const LogFilter filter(given);
  if (given.follow && (given.calls || !given.files.empty())) {
    throw UsageError(tr({"-f goes with the records or frames of the current logs only",
                         "-f só vale para os registros ou quadros dos logs atuais"}));
  }
  LogView view(given, settings);
  Ends ends;
  if (!given.files.empty()) {
    show_loaded(load(named_files(given.files), ends), given, filter, view);
    return ExitStatus::success;
  }
  enter(settings.folder);
  const std::filesystem::path folder = log_folder(settings);
  const auto files = chosen_files(given, folder);
  if (files.empty() && !given.follow) {
    print_error("satctl: " + fill({"no logs of that time in {}; LogMode=0 in SAT.ini switches them off",
                                   "nenhum log desse período em {}; LogMode=0 no SAT.ini os desliga"},
                                  {std::filesystem::absolute(folder).lexically_normal().string()}));
    return ExitStatus::refused;
  }
  ends = sizes_of(find_log_files(folder));
  const JoinedLogs logs = load(files, ends);
  show_loaded(logs, given, filter, view);
  if (given.follow) follow(folder, ends, logs, filter, view);
  return ExitStatus::success;
}

}  // namespace

void add_log_command(CommandLine& line) {
  CLI::App* command = add_command(line.app, "log", groups::kDiagnosis,
                                  {"read trace and protocol logs (default: the last day that has any)",
                                   "ler os logs de trace e de protocolo (padrão: o último dia com logs)"});
  const auto given = std::make_shared<GivenView>();
  const char* time_type = tr({"TIME", "HORÁRIO"});
  command
      ->add_option(
          "files", given->files,
          tr({"log files, instead of those of the till", "arquivos de log, em vez dos do aplicativo"}))
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name(tr(kFileType));
  command->add_flag("--calls", given->calls,
                    tr({"each call as a time line, with steps and durations",
                        "cada chamada como linha do tempo, com passos e durações"}));
  command->add_flag("--frames", given->frames,
                    tr({"frames, decoded into their fields", "quadros, decodificados em campos"}));
  command->add_option("--date", given->date, tr({"the day: YYYY-MM-DD", "o dia: AAAA-MM-DD"}))
      ->type_name(tr({"DATE", "DATA"}));
  command
      ->add_option("--days", given->days,
                   tr({"that many days, up to the chosen one", "tantos dias, até o escolhido"}))
      ->check(number_between(1, 100'000))
      ->type_name(tr(kNumberType));
  command->add_flag("--all", given->all, tr({"all days", "todos os dias"}));
  command
      ->add_option("--since", given->since,
                   tr({"from HH:MM[:SS] or YYYY-MM-DD[ HH:MM[:SS]] on",
                       "a partir de HH:MM[:SS] ou AAAA-MM-DD[ HH:MM[:SS]]"}))
      ->type_name(time_type);
  command->add_option("--until", given->until, tr({"up to this time", "até este horário"}))
      ->type_name(time_type);
  command
      ->add_option("--function", given->function,
                   tr({"calls of a SAT function, or messages of a library function",
                       "chamadas de uma função do SAT, ou mensagens de uma função "
                       "da biblioteca"}))
      ->type_name(tr(kTextType));
  command
      ->add_option("--sessao", given->session,
                   tr({"calls with this session number", "chamadas com este número de sessão"}))
      ->type_name(tr(kNumberType));
  command
      ->add_option("--level", given->level,
                   tr({"messages of this level or worse: ERR WRN INF TRC JNI DBG",
                       "mensagens deste nível ou pior: ERR WRN INF TRC JNI DBG"}))
      ->type_name(tr({"LEVEL", "NÍVEL"}));
  command
      ->add_option("-n,--last", given->last,
                   tr({"only the last so many records, frames or calls",
                       "só os últimos registros, quadros ou chamadas"}))
      ->type_name(tr(kNumberType));
  command->add_flag("-f,--follow", given->follow,
                    tr({"go on with what is written from now on", "continuar com o que for gravado"}));
  command->add_flag("--no-mask", given->no_mask,
                    tr({"show everything, activation codes and personal data too",
                        "mostrar tudo, também códigos de ativação e dados pessoais"}));
  when_chosen(line, command, [given, &line] { return show_log(*given, line.settings); });
}

}  // namespace satctl
