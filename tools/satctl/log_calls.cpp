#include "log_calls.h"

#include <algorithm>
#include <array>
#include <limits>

namespace satctl {

namespace {

// What a message of the trace log tells about the call, by a piece of its text.
enum class CallStage { none, opened, finished };

struct StepRow {
  const char* piece;
  CallStage progress;
  bool is_error;
  Text what;
};

constexpr std::array kSteps{
    StepRow{"STEP-02e", CallStage::finished, true, {"no device found", "nenhum equipamento encontrado"}},
    StepRow{"STEP-04a", CallStage::opened, false, {"port opened", "porta aberta"}},
    StepRow{
        "STEP-04c", CallStage::finished, true, {"the port cannot be opened", "a porta não pôde ser aberta"}},
    StepRow{"STEP-05a", CallStage::opened, false, {"port locked", "porta reservada"}},
    StepRow{"STEP-05b",
            CallStage::finished,
            true,
            {"busy: another process holds the port", "ocupado: outro processo usa a porta"}},
    StepRow{"STEP-05c",
            CallStage::finished,
            true,
            {"the port cannot be locked", "a porta não pôde ser reservada"}},
    StepRow{"STEP-06a", CallStage::opened, false, {"port set up", "porta configurada"}},
    StepRow{"STEP-06b",
            CallStage::finished,
            true,
            {"the port cannot be set up", "a porta não pôde ser configurada"}},
    StepRow{"Rcvd[06h]ACK", CallStage::none, false, {"device: ACK", "equipamento: ACK"}},
    StepRow{"Rcvd[15h]NAK",
            CallStage::none,
            true,
            {"device: NAK, the command is sent again", "equipamento: NAK, o comando é reenviado"}},
    StepRow{"STEP-07a", CallStage::none, false, {"command acknowledged", "comando confirmado"}},
    StepRow{"STEP-07b", CallStage::finished, true, {"command not acknowledged", "comando não confirmado"}},
    StepRow{"Sent[06h]ACK", CallStage::none, false, {"ACK sent", "ACK enviado"}},
    StepRow{"Sent[15h]ACK",
            CallStage::none,
            true,
            {"NAK sent: the reply is wanted again", "NAK enviado: a resposta é pedida de novo"}},
    StepRow{"ERRO CHECKSUM",
            CallStage::none,
            true,
            {"reply with a wrong checksum", "resposta com checksum errado"}},
    StepRow{"STEP-08b", CallStage::none, true, {"no reply received", "resposta não recebida"}},
    StepRow{"STEP-08a", CallStage::finished, false, {"port closed", "porta fechada"}},
};

// Functions of the library at the beginning of a call, before the port is open.
constexpr std::array kOpening{"CreateSAT_ProtLogFile", "GetFixedSerialPort", "findSat"};
// ... and behind its end.
constexpr std::array kClosing{"write_operation_result"};

// What the library does before every call; of the logs' messages these come in front of the frames.
constexpr std::array kPreparing{
    "CreateSAT_ProtLogFile",     "GetFixedSerialPort",   "findSat",
    "UpdateTalvexConfiguration", "CreateFile_TalvexIni", "init_global_sat_struct"};

template <typename Table>
bool contains(const Table& table, const std::string& name) {
  return std::find(table.begin(), table.end(), name) != table.end();
}

const StepRow* step_in(const std::string& body) {
  const auto found = std::find_if(kSteps.begin(), kSteps.end(), [&body](const StepRow& row) {
    return body.find(row.piece) != std::string::npos;
  });
  return found == kSteps.end() ? nullptr : &*found;
}

std::string first_line(const std::string& body) {
  return body.substr(0, body.find('\n'));
}

// "... rc[-02004]ER" behind the failure text of a finished call
std::string failure_code(const std::string& body) {
  const auto start = body.find("SAT Erro[");
  if (start == std::string::npos) return {};
  return std::to_string(library_failure(std::string_view(body).substr(start)).value_or(0));
}

// An error on the link belongs into the time line; one of the configuration reader does not.
bool works_on_link(const std::string& function) {
  return function == "Communicate" || function == "findSat" || function.starts_with("lSerial") ||
         function.starts_with("cSerial");
}

bool prepares_call(const std::string& function) {
  return contains(kPreparing, function) || function.starts_with("OLK_");
}

constexpr LocalTime kSecond = 1000;
constexpr std::size_t kUnannounced = std::numeric_limits<std::size_t>::max();

// For each frame the message of the trace log that tells of it, if there is one; the frame takes over its
// time.
std::vector<std::size_t> announce(std::vector<Record>& frames, const std::vector<Record>& messages) {
  std::vector<std::size_t> announcements;
  std::size_t next = 0;
  for (Record& frame : frames) {
    const bool sent = frame.direction == Direction::to_device;
    const std::string_view function = sent ? "lSerialWriteBufL" : "cSerialReadBufW";
    const std::string_view piece = sent ? "PC->SAT" : "SAT->SO  Recv[";
    while (next < messages.size() && messages[next].time < frame.time) ++next;
    std::size_t i = next;
    const auto in_second = [&] { return i < messages.size() && messages[i].time < frame.time + kSecond; };
    while (in_second() &&
           (messages[i].function != function || messages[i].body.find(piece) == std::string::npos))
      ++i;
    announcements.push_back(in_second() ? i : kUnannounced);
    if (!in_second()) continue;
    frame.time = messages[i].time;
    frame.milliseconds_known = true;
    next = i + 1;
  }
  return announcements;
}

}  // namespace

LoggedCall* CallGrouper::current() {
  return calls_.empty() ? nullptr : &calls_.back();
}

LoggedCall& CallGrouper::begin(const Record& record) {
  LoggedCall call;
  call.start = record.time;
  call.milliseconds_known = record.milliseconds_known;
  calls_.push_back(std::move(call));
  return calls_.back();
}

int CallGrouper::join(LoggedCall& call, const Record& record) {
  call.end = std::max(call.end, record.time);
  return static_cast<int>(calls_.size()) - 1;
}

int CallGrouper::add(const Record& record) {
  return record.direction == Direction::none ? add_message(record) : add_frame(record);
}

int CallGrouper::add_message(const Record& record) {
  LoggedCall* call = current();
  const StepRow* step = step_in(record.body);
  const bool opens =
      contains(kOpening, record.function) || (step != nullptr && step->progress == CallStage::opened);
  const bool at_once_over =
      record.body.find("STEP-02e") != std::string::npos || record.body.find("STEP-04c") != std::string::npos;
  const bool ended = call == nullptr || call->finished || call->answered;
  if (ended && (opens || at_once_over)) call = &begin(record);
  if (call == nullptr) return kNoCall;

  const Function* function = find_function(record.function);
  if (call->finished && function == nullptr && !contains(kClosing, record.function)) return kNoCall;
  if (call->answered && prepares_call(record.function)) return kNoCall;
  if (function != nullptr && call->function == nullptr) call->function = function;
  if (function != nullptr && call->return_code.empty()) call->return_code = failure_code(record.body);
  if (step != nullptr) {
    call->steps.push_back({record.time, true, tr(step->what), step->is_error});
    call->finished = call->finished || step->progress == CallStage::finished;
  } else if (record.level == Level::error && !call->finished && works_on_link(record.function)) {
    call->steps.push_back({record.time, true, first_line(record.body), true});
  }
  return join(*call, record);
}

int CallGrouper::add_frame(const Record& record) {
  LoggedCall* call = current();
  const int session = session_of(record);
  if (record.direction == Direction::to_device) {
    const Function* function = find_function(record.function);
    const bool same = call != nullptr && !call->answered && !call->finished &&
                      (!call->sent || (call->function == function && call->session == session));
    if (!same) call = &begin(record);
    const bool again = call->sent;
    call->function = function;
    call->session = session;
    call->sent = true;
    const std::string size = std::to_string(record.body.size());
    call->steps.push_back({record.time, record.milliseconds_known,
                           fill(again ? Text{"command written on or again, {} bytes in all",
                                             "comando continuado ou repetido, {} bytes ao todo"}
                                      : Text{"command sent, {} bytes", "comando enviado, {} bytes"},
                                {size}),
                           false});
    return join(*call, record);
  }
  if (call == nullptr) return kNoCall;
  const auto values = split_fields(record.body);
  if (values.size() > 1) call->return_code = values[1];
  call->answered = true;
  call->steps.push_back({record.time, record.milliseconds_known,
                         fill({"reply received, {} bytes: {}", "resposta recebida, {} bytes: {}"},
                              {std::to_string(record.body.size()), call->return_code}),
                         false});
  return join(*call, record);
}

std::vector<Record> merge(std::vector<Record> messages, std::vector<Record> frames) {
  const std::vector<std::size_t> announcements = announce(frames, messages);
  std::vector<Record> merged;
  merged.reserve(messages.size() + frames.size());
  std::size_t next = 0;
  const auto add_frame = [&] { merged.push_back(std::move(frames[next++])); };
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const bool preparing = prepares_call(messages[i].function);
    const auto comes_first = [&](const Record& frame) {
      return frame.time + (preparing ? kSecond : 0) <= messages[i].time;
    };
    while (next < frames.size() && announcements[next] == kUnannounced && comes_first(frames[next]))
      add_frame();
    merged.push_back(std::move(messages[i]));
    while (next < frames.size() && announcements[next] == i) add_frame();
  }
  while (next < frames.size()) add_frame();
  return merged;
}

int session_of(const Record& frame) {
  const auto values = split_fields(frame.body);
  const std::size_t place = frame.direction == Direction::to_device ? 1 : 0;
  const bool usable = values.size() > place && all_digits(values[place]) && values[place].size() <= 6;
  return usable ? std::stoi(values[place]) : -1;
}

std::vector<NamedField> fields_of(const Record& frame, const Function* function) {
  const auto values = split_fields(frame.body);
  if (frame.direction == Direction::from_device) {
    const Function* layout = values.size() > 1 ? find_function_by_code(values[1]) : nullptr;
    return name_fields(layout != nullptr ? layout : function, values);
  }
  std::vector<NamedField> fields;
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::string name = i == 0 ? "NomeDoComando" : "numeroSessao";
    FieldKind kind = FieldKind::plain;
    if (i >= 2) {
      const bool known = function != nullptr && i - 2 < function->parameters.size();
      const Parameter* parameter = known ? &function->parameters[i - 2] : nullptr;
      name = known ? parameter->name : "campo" + std::to_string(i + 1);
      const bool secret = known && (parameter->kind == ParameterKind::activation_code ||
                                    parameter->kind == ParameterKind::secret);
      if (secret)
        kind = FieldKind::secret;
      else if (known && parameter->kind == ParameterKind::taxpayer)
        kind = FieldKind::taxpayer;
    }
    fields.push_back({name, kind, values[i]});
  }
  return fields;
}

}  // namespace satctl
