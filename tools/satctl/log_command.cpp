// satctl log: trace and protocol logs, filtered, as calls, as decoded frames, followed.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <thread>

#include "call.h"
#include "command.h"
#include "ini_items.h"
#include "log_calls.h"
#include "masking.h"
#include "printable.h"
#include "terminal.h"

namespace satctl {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::size_t kValueShown = 200;
constexpr std::chrono::milliseconds kPollInterval{200};
constexpr std::size_t kLinesBeforeFollowing = 10;
constexpr const char* kHidden = "********";

struct GivenView {
  std::vector<std::string> files;
  std::string date, since, until, function, level;
  int session = -1;
  int days = 1;
  int last = -1;
  bool all = false, calls = false, frames = false, follow = false, no_mask = false;
};

// A moment of the user: "HH:MM[:SS]" on any day, or with a date in front.
struct Bound {
  LocalTime time;
  bool any_day;
};

std::optional<LocalTime> parse_clock(const std::string& text) {
  int hours = 0, minutes = 0, seconds = 0, used = 0;
  const int count = std::sscanf(text.c_str(), "%2d:%2d%n:%2d%n", &hours, &minutes, &used, &seconds, &used);
  const bool valid = count >= 2 && static_cast<std::size_t>(used) == text.size() && hours >= 0 &&
                     hours < 24 && minutes >= 0 && minutes < 60 && seconds >= 0 && seconds < 60;
  if (!valid) return std::nullopt;
  return ((hours * 60LL + minutes) * 60 + seconds) * 1000;
}

std::optional<Bound> parse_bound(const std::string& option, const std::string& text) {
  if (text.empty()) return std::nullopt;
  constexpr std::size_t kDateLength = 10;
  const bool with_date = text.size() > kDateLength;
  const auto date = with_date ? parse_date(text.substr(0, kDateLength)) : parse_date(text);
  const auto clock = with_date ? parse_clock(text.substr(kDateLength + 1)) : parse_clock(text);
  if (date && (clock || !with_date)) return Bound{start_of(*date) + clock.value_or(0), false};
  if (clock && !with_date) return Bound{*clock, true};
  throw UsageError(fill({"{} {}: a time is HH:MM[:SS] or YYYY-MM-DD[ HH:MM[:SS]]",
                         "{} {}: o horário é HH:MM[:SS] ou AAAA-MM-DD[ HH:MM[:SS]]"},
                        {option, text}));
}

class Filter {
 public:
  explicit Filter(const GivenView& given)
      : since_(parse_bound("--since", given.since)),
        until_(parse_bound("--until", given.until)),
        function_(find_function(given.function)),
        name_(given.function),
        session_(given.session) {
    if (given.level.empty()) return;
    level_ = parse_level(given.level);
    if (!level_) {
      throw UsageError(fill({"--level {}: a level is ERR, WRN, INF, TRC, JNI or DBG",
                             "--level {}: o nível é ERR, WRN, INF, TRC, JNI ou DBG"},
                            {given.level}));
    }
  }

  bool passes(const Record& record, const LoggedCall* call) const {
    return in_time(record.time) && in_level(record) && of_function(record, call) && of_session(record, call);
  }

  bool passes(const LoggedCall& call) const {
    return in_time(call.start) && (name_.empty() || (function_ != nullptr && call.function == function_)) &&
           (session_ < 0 || call.session == session_);
  }

 private:
  bool in_time(LocalTime time) const {
    const auto at = [time](const Bound& bound) { return bound.any_day ? time % kMillisecondsOfDay : time; };
    return (!since_ || at(*since_) >= since_->time) && (!until_ || at(*until_) <= until_->time);
  }

  bool in_level(const Record& record) const {
    const Level level = record.direction == Direction::none ? record.level : Level::info;
    return !level_ || level <= *level_;
  }

  bool of_function(const Record& record, const LoggedCall* call) const {
    if (name_.empty() || lower_case(record.function) == lower_case(name_)) return true;
    return call != nullptr && function_ != nullptr && call->function == function_;
  }

  bool of_session(const Record& record, const LoggedCall* call) const {
    if (session_ < 0) return true;
    if (record.direction != Direction::none && session_of(record) == session_) return true;
    return call != nullptr && call->session == session_;
  }

  std::optional<Bound> since_, until_;
  std::optional<Level> level_;
  const Function* function_;
  std::string name_;
  int session_;
};

Colour colour_of(Level level) {
  return level == Level::error ? Colour::red : level == Level::warning ? Colour::yellow : Colour::plain;
}

const char* arrow(Direction direction) {
  return direction == Direction::to_device ? "PC->SAT" : "SAT->PC";
}

// How records, frames and calls look, as text and as JSON.
class View {
 public:
  View(const GivenView& given, const Settings& settings)
      : masker_(!given.no_mask), mask_(!given.no_mask), json_(settings.json), decode_(given.frames) {}

  void learn(const Record& record) { masker_.learn(record.body); }

  void show(const Record& record, const LoggedCall* call) const {
    if (decode_) {
      if (record.direction != Direction::none) show_frame(record, call);
    } else if (json_) {
      show_record_as_json(record, call);
    } else {
      show_record(record);
    }
  }

  void show(const LoggedCall& call) const {
    if (json_)
      show_call_as_json(call);
    else
      show_call_as_text(call);
  }

 private:
  void show_record(const Record& record) const {
    const std::string time = format_time(record.time, record.milliseconds_known);
    const bool frame = record.direction != Direction::none;
    const std::string kind = frame ? arrow(record.direction) : level_tag(record.level);
    std::string text = printable(masker_.mask(record.body), Layout::keep_lines);
    if (frame && !record.mark.empty()) text += "  " + printable(record.mark);
    print_line(coloured(Colour::dim, time) + " " +
               coloured(frame ? Colour::bold : colour_of(record.level), padded(kind, 8)) + indented(text));
  }

  void show_record_as_json(const Record& record, const LoggedCall* call) const {
    Json object{{"time", format_time(record.time, record.milliseconds_known)}};
    object["time"] = std::string(trimmed(object["time"].get<std::string>()));
    if (record.direction == Direction::none)
      object["level"] = level_tag(record.level);
    else
      object["direction"] = arrow(record.direction);
    if (!record.function.empty()) object["function"] = valid_utf8(record.function);
    if (call != nullptr && call->function != nullptr) object["call"] = call->function->name;
    if (call != nullptr && call->session >= 0) object["session"] = call->session;
    if (!record.mark.empty()) object["mark"] = valid_utf8(record.mark);
    object["text"] = valid_utf8(masker_.mask(record.body));
    print_object(object);
  }

  std::string shown_value(const NamedField& field) const {
    const bool hidden = field.kind == FieldKind::secret || field.kind == FieldKind::taxpayer;
    if (hidden && mask_) return field.value.empty() ? "" : kHidden;
    if (field.kind == FieldKind::document && mask_) {
      return fill({"({} characters of base64)", "({} caracteres de base64)"},
                  {std::to_string(field.value.size())});
    }
    return masker_.mask(field.value);
  }

  void show_frame(const Record& frame, const LoggedCall* call) const {
    const auto fields = fields_of(frame, call == nullptr ? nullptr : call->function);
    const std::string time(trimmed(format_time(frame.time, frame.milliseconds_known)));
    if (json_) {
      Json object{{"time", time},
                  {"direction", arrow(frame.direction)},
                  {"mark", valid_utf8(frame.mark)},
                  {"fields", Json::object()}};
      for (const NamedField& field : fields) object["fields"][field.name] = valid_utf8(shown_value(field));
      print_object(object);
      return;
    }
    print_line(coloured(Colour::dim, time) + " " + coloured(Colour::bold, arrow(frame.direction)) + "  " +
               printable(frame.mark));
    for (const NamedField& field : fields) {
      std::string value = printable(shown_value(field));
      if (value.size() > kValueShown) {
        value = printable(value.substr(0, kValueShown)) +
                fill({"... ({} characters)", "... ({} caracteres)"}, {std::to_string(field.value.size())});
      }
      print_line("    " + padded(field.name, 18) + value);
    }
  }

  static std::string seconds(LocalTime milliseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", static_cast<double>(milliseconds) / 1000);
    return text;
  }

  static std::string name_of(const LoggedCall& call) {
    return call.function == nullptr ? std::string("?") : std::string(call.function->name);
  }

  void show_call_as_text(const LoggedCall& call) const {
    const std::string code = call.return_code.empty() ? tr({"no reply", "sem resposta"}) : call.return_code;
    const bool good = !call.return_code.empty() && all_digits(code) && is_success_code(std::stoi(code));
    const std::string session = call.session < 0 ? "?" : std::to_string(call.session);
    print_line(coloured(Colour::dim, format_time(call.start, call.milliseconds_known)) + " " +
               coloured(Colour::bold, name_of(call)) + "  " + fill({"session {}", "sessão {}"}, {session}) +
               "  => " + coloured(good ? Colour::green : Colour::red, printable(code)) + "  " +
               seconds(call.end - call.start) + " s");
    LocalTime before = call.start;
    for (const Step& step : call.steps) {
      const std::string text = printable(masker_.mask(step.what));
      print_line("    +" + padded(seconds(step.time - call.start), 9) + " " +
                 padded("(" + seconds(step.time - before) + ")", 11) +
                 coloured(step.is_error ? Colour::red : Colour::plain, text));
      before = step.time;
    }
  }

  void show_call_as_json(const LoggedCall& call) const {
    Json object{{"start", std::string(trimmed(format_time(call.start, call.milliseconds_known)))},
                {"function", name_of(call)},
                {"session", call.session},
                {"code", valid_utf8(call.return_code)},
                {"milliseconds", call.end - call.start},
                {"steps", Json::array()}};
    for (const Step& step : call.steps) {
      object["steps"].push_back({{"offset", step.time - call.start},
                                 {"what", valid_utf8(masker_.mask(step.what))},
                                 {"error", step.is_error}});
    }
    print_object(object);
  }

  // One object to a line, so that a pipe can take them as they come.
  static void print_object(const Json& object) {
    print_line(object.dump(-1, ' ', false, Json::error_handler_t::replace));
  }

  // Further lines of a record stand under its text.
  static std::string indented(const std::string& text) {
    std::string shown;
    for (const char c : text) {
      shown += c;
      if (c == '\n') shown += "        ";
    }
    return shown;
  }

  Masker masker_;
  bool mask_, json_, decode_;
};

fs::path log_folder(const Settings& settings) {
  const Library library(settings.library);
  const fs::path configured = effective_value(library, "LOG", "LogFilePath");
  std::error_code error;
  return fs::is_directory(configured, error) ? configured : fs::path(".");
}

std::vector<LogFile> named_files(const std::vector<std::string>& names) {
  std::vector<LogFile> files;
  for (const std::string& name : names) {
    const auto file = log_file(name);
    if (!file) {
      throw UsageError(fill({"{}: no trace or protocol log, or not readable",
                             "{}: não é log de trace nem de protocolo, ou não pode ser lido"},
                            {name}));
    }
    files.push_back(*file);
  }
  return files;
}

// The days that the user chose; without a choice the last day that has a log.
std::vector<LogFile> chosen_files(const GivenView& given, const fs::path& folder) {
  auto files = find_log_files(folder);
  if (given.all || files.empty()) return files;
  const auto wanted = given.date.empty() ? std::optional(files.back().date) : parse_date(given.date);
  if (!wanted) {
    throw UsageError(
        fill({"--date {}: a date is YYYY-MM-DD", "--date {}: a data é AAAA-MM-DD"}, {given.date}));
  }
  const LocalTime first = start_of(*wanted) - (given.days - 1) * kMillisecondsOfDay;
  std::erase_if(files,
                [&](const LogFile& file) { return start_of(file.date) < first || file.date > *wanted; });
  return files;
}

void append(std::vector<Record>& records, std::vector<Record> more) {
  std::move(more.begin(), more.end(), std::back_inserter(records));
}

// How far each file has been read.
using Ends = std::map<fs::path, std::size_t>;

JoinedLogs load(const std::vector<LogFile>& files, Ends& ends) {
  std::vector<Record> messages, frames;
  for (const LogFile& file : files) {
    const auto content = read_file(file.path);
    if (!content) {
      print_error("satctl: " + fill({"{} cannot be read", "{} não pode ser lido"}, {file.path.string()}));
      continue;
    }
    ends[file.path] = content->size();
    RecordReader reader(file.kind, file.date);
    auto& records = file.kind == LogKind::trace ? messages : frames;
    append(records, reader.read(*content));
    append(records, reader.finish());
  }
  const auto by_time = [](const Record& a, const Record& b) { return a.time < b.time; };
  std::stable_sort(messages.begin(), messages.end(), by_time);
  std::stable_sort(frames.begin(), frames.end(), by_time);
  return join_logs(std::move(messages), std::move(frames));
}

Ends sizes_of(const std::vector<LogFile>& files) {
  Ends ends;
  std::error_code error;
  for (const LogFile& file : files)
    ends[file.path] = static_cast<std::size_t>(fs::file_size(file.path, error));
  return ends;
}

const LoggedCall* call_at(const JoinedLogs& logs, std::size_t record) {
  const int call = logs.call_of[record];
  return call == kNoCall ? nullptr : &logs.calls[static_cast<std::size_t>(call)];
}

// Shows the last of the chosen ones, as many as the user wants.
template <typename Show>
void show_last(const GivenView& given, const std::vector<std::size_t>& chosen, Show show) {
  const std::size_t most = given.last >= 0 ? static_cast<std::size_t>(given.last)
                           : given.follow  ? kLinesBeforeFollowing
                                           : chosen.size();
  for (std::size_t i = chosen.size() - std::min(most, chosen.size()); i < chosen.size(); ++i) show(chosen[i]);
}

void show_calls(const JoinedLogs& logs, const GivenView& given, const Filter& filter, const View& view) {
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < logs.calls.size(); ++i) {
    if (filter.passes(logs.calls[i])) chosen.push_back(i);
  }
  show_last(given, chosen, [&](std::size_t i) { view.show(logs.calls[i]); });
}

bool is_wanted(const JoinedLogs& logs, std::size_t i, const GivenView& given, const Filter& filter) {
  const bool visible = !given.frames || logs.records[i].direction != Direction::none;
  return visible && filter.passes(logs.records[i], call_at(logs, i));
}

void show_loaded(const JoinedLogs& logs, const GivenView& given, const Filter& filter, View& view) {
  for (const Record& record : logs.records) view.learn(record);
  if (given.calls) {
    show_calls(logs, given, filter, view);
    return;
  }
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < logs.records.size(); ++i) {
    if (is_wanted(logs, i, given, filter)) chosen.push_back(i);
  }
  show_last(given, chosen, [&](std::size_t i) { view.show(logs.records[i], call_at(logs, i)); });
}

// A log file that grows; a rotated one is read to its end before its successor is opened.
class GrowingFile {
 public:
  GrowingFile(const LogFile& file, std::size_t end) : file_(file), reader_(file.kind, file.date) {
    open_again();
    if (descriptor_ >= 0) lseek(descriptor_, static_cast<off_t>(end), SEEK_SET);
  }
  GrowingFile(GrowingFile&& other) noexcept
      : file_(std::move(other.file_)),
        reader_(std::move(other.reader_)),
        descriptor_(other.descriptor_),
        inode_(other.inode_) {
    other.descriptor_ = -1;
  }
  GrowingFile(const GrowingFile&) = delete;
  GrowingFile& operator=(const GrowingFile&) = delete;
  ~GrowingFile() { shut(); }

  std::vector<Record> new_records() {
    struct stat now {};
    const bool replaced = stat(file_.path.c_str(), &now) == 0 && now.st_ino != inode_;
    auto records = read_rest();
    if (replaced) {
      append(records, reader_.finish());
      open_again();
      append(records, read_rest());
    }
    return records;
  }

 private:
  void shut() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
  }

  void open_again() {
    shut();
    descriptor_ = open(file_.path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat opened {};
    if (descriptor_ >= 0 && fstat(descriptor_, &opened) == 0) inode_ = opened.st_ino;
  }

  // The library writes each record at once: what the last look brought is whole when nothing follows.
  std::vector<Record> read_rest() {
    std::string piece(65536, '\0');
    std::vector<Record> records;
    bool grown = false;
    for (ssize_t count = 0; (count = read(descriptor_, piece.data(), piece.size())) > 0; grown = true) {
      append(records, reader_.read(std::string_view(piece).substr(0, static_cast<std::size_t>(count))));
    }
    if (!grown) append(records, reader_.finish());
    return records;
  }

  LogFile file_;
  RecordReader reader_;
  int descriptor_ = -1;
  ino_t inode_ = 0;
};

// The newest records of a log that is followed: enough to know to which calls those that come next belong.
class RecentRecords {
 public:
  void add(std::vector<Record> messages, std::vector<Record> frames) {
    append(messages_, std::move(messages));
    append(frames_, std::move(frames));
  }

  JoinedLogs join() {
    for (auto* records : {&messages_, &frames_}) forget_old(*records);
    JoinedLogs logs = join_logs(messages_, frames_);
    for (auto* records : {&messages_, &frames_}) {
      for (Record& record : *records) record.shown = true;
    }
    return logs;
  }

 private:
  static void forget_old(std::vector<Record>& records) {
    constexpr std::size_t kMostRecords = 2000, kMostBytes = 32'000'000;
    std::size_t kept = 0, bytes = 0;
    while (kept < records.size()) {
      const Record& record = records[records.size() - 1 - kept];
      bytes += record.body.size();
      if (record.shown && (kept >= kMostRecords || bytes > kMostBytes)) break;
      ++kept;
    }
    records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(kept));
  }

  std::vector<Record> messages_, frames_;
};

RecentRecords recent_of(const JoinedLogs& logs) {
  std::vector<Record> messages, frames;
  for (const Record& record : logs.records) {
    auto& records = record.direction == Direction::none ? messages : frames;
    records.push_back(record);
    records.back().shown = true;
  }
  RecentRecords recent;
  recent.add(std::move(messages), std::move(frames));
  return recent;
}

[[noreturn]] void follow(const GivenView& given, const fs::path& folder, const Ends& ends,
                         const Filter& filter, View& view, RecentRecords recent) {
  std::map<fs::path, GrowingFile> files;
  while (true) {
    std::vector<Record> messages, frames;
    for (const LogFile& file : find_log_files(folder)) {
      const bool current = file.kind == LogKind::protocol || file.path.extension() == ".log";
      if (!current || file.path.string().find(".log_bkp_") != std::string::npos) continue;
      const auto end = ends.find(file.path);
      auto& growing = files.try_emplace(file.path, file, end == ends.end() ? 0 : end->second).first->second;
      auto& records = file.kind == LogKind::trace ? messages : frames;
      append(records, growing.new_records());
    }
    if (!messages.empty() || !frames.empty()) {
      recent.add(std::move(messages), std::move(frames));
      const JoinedLogs logs = recent.join();
      for (const Record& record : logs.records) view.learn(record);
      for (std::size_t i = 0; i < logs.records.size(); ++i) {
        if (!logs.records[i].shown && is_wanted(logs, i, given, filter))
          view.show(logs.records[i], call_at(logs, i));
      }
    }
    std::this_thread::sleep_for(kPollInterval);
  }
}

ExitStatus show_log(const GivenView& given, const Settings& settings) {
  const Filter filter(given);
  if (given.follow && (given.calls || !given.files.empty())) {
    throw UsageError(tr({"-f goes with the records or frames of the current logs only",
                         "-f só vale para os registros ou quadros dos logs atuais"}));
  }
  View view(given, settings);
  Ends ends;
  if (!given.files.empty()) {
    show_loaded(load(named_files(given.files), ends), given, filter, view);
    return ExitStatus::success;
  }
  enter(settings.folder);
  const fs::path folder = log_folder(settings);
  const auto files = chosen_files(given, folder);
  if (files.empty() && !given.follow) {
    print_error("satctl: " + fill({"no logs of that time in {}; LogMode=0 in SAT.ini switches them off",
                                   "nenhum log desse período em {}; LogMode=0 no SAT.ini os desliga"},
                                  {fs::absolute(folder).lexically_normal().string()}));
    return ExitStatus::refused;
  }
  ends = sizes_of(find_log_files(folder));
  const JoinedLogs logs = load(files, ends);
  show_loaded(logs, given, filter, view);
  if (given.follow) follow(given, folder, ends, filter, view, recent_of(logs));
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
                    tr({"show activation codes, CPF and CNPJ", "mostrar códigos de ativação, CPF e CNPJ"}));
  when_chosen(line, command, [given, &line] { return show_log(*given, line.settings); });
}

}  // namespace satctl
