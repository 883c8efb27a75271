#include "log/log_calls.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>

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
constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

int session_number(const std::string& text) {
  constexpr std::size_t kMostDigits = 6;
  return !text.empty() && all_digits(text) && text.size() <= kMostDigits ? std::stoi(text) : -1;
}

std::string return_code_of(const std::vector<std::string>& values) {
  return values[1].size() == 5 && all_digits(values[1]) ? values[1] : "?";
}

LocalTime second_of(LocalTime time) {
  return time - time % kSecond;
}

bool tells_of_frame(const Record& message) {
  return (message.function == "lSerialWriteBufL" && message.body.find("PC->SAT") != std::string::npos) ||
         (message.function == "cSerialReadBufW" && message.body.find("SAT->SO  Recv[") != std::string::npos);
}

// Name and session of a command, session and code of a reply: enough to know a frame again.
std::string_view beginning_of(std::string_view text) {
  const auto first = text.find('|');
  const auto second = first == std::string_view::npos ? first : text.find('|', first + 1);
  return text.substr(0, second);
}

// For each frame the message that tells of it, if there is one; the frame takes over its time.
std::vector<std::size_t> announce(std::vector<Record>& frames, const std::vector<Record>& messages) {
  constexpr std::size_t kLookedAt = 2000;  // a second with more messages is none of a till
  std::vector<std::size_t> announcements;
  std::size_t next = 0;
  for (Record& frame : frames) {
    const std::string_view function =
        frame.direction == Direction::to_device ? "lSerialWriteBufL" : "cSerialReadBufW";
    const std::string_view beginning = beginning_of(frame.body);
    while (next < messages.size() && messages[next].time < frame.time) ++next;
    std::size_t i = next;
    const std::size_t last = std::min(messages.size(), next + kLookedAt);
    const auto in_second = [&] { return i < last && messages[i].time < frame.time + kSecond; };
    const auto tells = [&](const Record& message) {
      return message.function == function && tells_of_frame(message) &&
             message.body.find(beginning) != std::string::npos;
    };
    while (in_second() && !tells(messages[i])) ++i;
    announcements.push_back(in_second() ? i : kNone);
    if (!in_second()) continue;
    frame.time = messages[i].time;
    frame.milliseconds_known = true;
    next = i + 1;
  }
  return announcements;
}

// What the trace log tells of one call.
struct Story {
  std::vector<std::size_t> messages;
  const Function* function = nullptr;
  std::string failure;           // code of the library's failure
  std::size_t exchange = kNone;  // the one that the story is about
  bool opened = false, finished = false, closed = false;
  bool without_command = false;  // it ended before anything was sent
  bool told_frames = false;
};

// What the protocol log tells of one call: a command, written once or several times, and its reply.
struct Exchange {
  std::vector<std::size_t> frames;
  const Function* function = nullptr;
  int session = -1;
  std::string code;
  bool answered = false, told = false;
};

class Joiner {
 public:
  Joiner(std::vector<Record> messages, std::vector<Record> frames)
      : messages_(std::move(messages)), frames_(std::move(frames)) {}

  JoinedLogs join() {
    for (std::size_t i = 0; i < messages_.size(); ++i) read_message(i);
    for (const Story& story : stories_) {
      if (!story.failure.empty()) failures_[story.function].push_back(end_of(story));
    }
    for (std::size_t i = 0; i < frames_.size(); ++i) read_frame(i);
    // Whole seconds still stand in all frames here.
    for (std::size_t i = 0; i < stories_.size(); ++i) match(i);
    announcements_ = announce(frames_, messages_);
    make_calls();
    return put_in_order();
  }

 private:
  // ---- the trace log alone

  Story& story_for(const Record& message, const StepRow* step) {
    const bool opens =
        contains(kOpening, message.function) || (step != nullptr && step->progress == CallStage::opened);
    const bool begins = stories_.empty() || stories_.back().closed ||
                        (opens && stories_.back().told_frames) ||
                        ((opens || step != nullptr) && stories_.back().finished);
    if (begins) stories_.emplace_back();
    return stories_.back();
  }

  void read_message(std::size_t index) {
    const Record& message = messages_[index];
    const StepRow* step = step_in(message.body);
    const Function* function = find_function(message.function);
    const bool ended = stories_.empty() || stories_.back().closed || stories_.back().finished;
    const bool of_call = step != nullptr || function != nullptr || works_on_link(message.function) ||
                         contains(kOpening, message.function);
    const bool behind_end =
        !stories_.empty() && !stories_.back().closed && contains(kClosing, message.function);
    const bool told_frames = !stories_.empty() && stories_.back().told_frames;
    if (!of_call && !behind_end && (ended || (told_frames && prepares_call(message.function)))) return;

    Story& story = story_for(message, step);
    story.messages.push_back(index);
    story.told_frames = story.told_frames || tells_of_frame(message);
    if (step != nullptr) {
      story.opened = story.opened || step->progress == CallStage::opened;
      story.finished = story.finished || step->progress == CallStage::finished;
      story.without_command = story.without_command || ends_without_command(*step);
    }
    if (function == nullptr) return;
    story.function = function;
    story.failure = failure_code(message.body);
    story.closed = story.finished || !story.failure.empty() || message.level == Level::error;
  }

  static bool ends_without_command(const StepRow& step) {
    constexpr std::array kBeforeCommand{"STEP-02e", "STEP-04c", "STEP-05b", "STEP-05c", "STEP-06b"};
    return contains(kBeforeCommand, step.piece);
  }

  // ---- the protocol log alone

  void read_frame(std::size_t index) {
    const Record& frame = frames_[index];
    const int session = session_of(frame);
    if (frame.direction == Direction::to_device) {
      const Function* function = find_function(frame.function);
      const bool again = !exchanges_.empty() && !exchanges_.back().answered &&
                         exchanges_.back().function == function && exchanges_.back().session == session &&
                         !failed_before(exchanges_.back(), frame.time);
      if (!again) exchanges_.push_back({{}, function, session, {}, false, false});
      exchanges_.back().frames.push_back(index);
      return;
    }
    if (exchanges_.empty()) return;
    Exchange& exchange = answered_by(session);
    const auto values = split_fields(frame.body);
    if (values.size() > 1) exchange.code = return_code_of(values);
    exchange.answered = true;
    exchange.frames.push_back(index);
  }

  // A command that is written after its call has failed is a call of its own.
  bool failed_before(const Exchange& exchange, LocalTime time) const {
    const auto failures = failures_.find(exchange.function);
    if (failures == failures_.end()) return false;
    const auto failure = std::lower_bound(failures->second.begin(), failures->second.end(), end_of(exchange));
    return failure != failures->second.end() && *failure < time;
  }

  // The newest call that waits for such a reply: several tills may write into one log.
  Exchange& answered_by(int session) {
    constexpr std::size_t kTills = 8;
    const std::size_t last = exchanges_.size();
    for (std::size_t back = 1; back <= std::min(kTills, last); ++back) {
      Exchange& exchange = exchanges_[last - back];
      if (!exchange.answered && may_get(exchange, session)) return exchange;
    }
    return exchanges_.back();
  }

  bool may_get(const Exchange& exchange, int session) const {
    if (exchange.session == session || exchange.function == nullptr) return exchange.session == session;
    switch (exchange.function->reply_session) {
      case ReplySession::own:
        return false;
      case ReplySession::asked:
        return session_number(split_fields(frames_[exchange.frames.front()].body).back()) == session;
      case ReplySession::any:
        return true;
    }
    return false;
  }

  // ---- both

  LocalTime start_of(const Story& story) const { return messages_[story.messages.front()].time; }
  LocalTime end_of(const Story& story) const { return messages_[story.messages.back()].time; }
  LocalTime start_of(const Exchange& exchange) const { return frames_[exchange.frames.front()].time; }
  LocalTime end_of(const Exchange& exchange) const { return frames_[exchange.frames.back()].time; }

  // Whether the story tells of this very command.
  bool quotes(const Story& story, const Exchange& exchange) const {
    const std::string_view beginning = beginning_of(frames_[exchange.frames.front()].body);
    return std::any_of(story.messages.begin(), story.messages.end(), [&](std::size_t i) {
      return tells_of_frame(messages_[i]) && messages_[i].body.find(beginning) != std::string::npos;
    });
  }

  bool can_belong(const Story& story, const Exchange& exchange) const {
    if (start_of(exchange) > end_of(story)) return false;
    if (exchange.answered && second_of(start_of(story)) > end_of(exchange)) return false;
    if (story.told_frames) return quotes(story, exchange);
    if (story.function != nullptr && story.function != exchange.function) return false;
    return story.failure.empty() || !exchange.answered;
  }

  // A call is over when the next one has begun.
  bool was_over(const Story& story, std::size_t exchange) const {
    return exchange + 1 < exchanges_.size() &&
           start_of(exchanges_[exchange + 1]) < second_of(start_of(story));
  }

  std::size_t begun_by(LocalTime time) const {
    const auto later =
        std::partition_point(exchanges_.begin(), exchanges_.end(),
                             [&](const Exchange& exchange) { return start_of(exchange) <= time; });
    return static_cast<std::size_t>(later - exchanges_.begin());
  }

  void match(std::size_t index) {
    constexpr std::size_t kLookedBack = 64;
    if (stories_[index].without_command) return;
    const Story& story = stories_[index];
    const bool names = story.function != nullptr || story.told_frames;
    std::size_t chosen = kNone;
    const std::size_t begun = begun_by(end_of(story));
    for (std::size_t i = begun - std::min(begun, kLookedBack); i < begun; ++i) {
      if ((names && exchanges_[i].told) || !can_belong(story, exchanges_[i])) continue;
      const bool better = chosen == kNone || was_over(story, chosen);
      if (better) chosen = i;
      if (better && !was_over(story, i)) break;
    }
    if (chosen == kNone) return;
    take(index, chosen);
  }

  void take(std::size_t index, std::size_t chosen) {
    Story& story = stories_[index];
    story.exchange = chosen;
    const bool names = story.function != nullptr || story.told_frames;
    exchanges_[chosen].told = exchanges_[chosen].told || names;
    if (!names || story.told_frames) return;
    split_earlier_messages(index, start_of(exchanges_[chosen]));
  }

  // Where only errors are logged, those of an earlier call that went well in the end stand in front.
  void split_earlier_messages(std::size_t index, LocalTime start) {
    auto& messages = stories_[index].messages;
    const auto own = std::find_if(messages.begin(), messages.end(),
                                  [&](std::size_t message) { return messages_[message].time >= start; });
    if (own == messages.begin() || own == messages.end()) return;
    Story earlier;
    earlier.messages.assign(messages.begin(), own);
    messages.erase(messages.begin(), own);
    earlier_.push_back(std::move(earlier));
  }

  // ---- calls

  struct Event {
    LocalTime time;
    bool is_frame;
    std::size_t index;
  };

  void make_calls() {
    for (Story& story : earlier_) stories_.push_back(std::move(story));
    for (std::size_t i = stories_.size() - earlier_.size(); i < stories_.size(); ++i) match(i);
    std::vector<std::vector<Event>> events(exchanges_.size());
    std::vector<const Story*> teller(exchanges_.size(), nullptr);
    for (const Story& story : stories_) {
      std::size_t place = story.exchange;
      if (place == kNone) {
        if (!is_call(story)) continue;
        place = events.size();
        events.emplace_back();
        teller.push_back(nullptr);
      }
      if (story.function != nullptr) teller[place] = &story;
      for (const std::size_t message : story.messages)
        events[place].push_back({messages_[message].time, false, message});
    }
    for (std::size_t i = 0; i < exchanges_.size(); ++i) add_frames(exchanges_[i], events[i]);

    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < events.size(); ++i) order.push_back(i);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
      return events[a].front().time < events[b].front().time;
    });
    call_of_message_.assign(messages_.size(), kNoCall);
    call_of_frame_.assign(frames_.size(), kNoCall);
    for (const std::size_t i : order) {
      add_call(i < exchanges_.size() ? &exchanges_[i] : nullptr, teller[i], events[i]);
    }
  }

  static bool is_call(const Story& story) {
    return story.function != nullptr || story.opened || story.without_command || story.finished;
  }

  // Frames that nothing announces have whole seconds: a reply stands behind what happened in its second.
  void add_frames(const Exchange& exchange, std::vector<Event>& events) const {
    for (const std::size_t frame : exchange.frames) {
      LocalTime time = frames_[frame].time;
      const bool reply = frames_[frame].direction != Direction::to_device;
      const bool announced = announcements_[frame] != kNone;
      auto place = events.begin();
      const auto stands_before = [&](const Event& event) {
        if (event.time < time) return true;
        if (event.is_frame) return event.time == time;
        if (announced) return event.index <= announcements_[frame];
        const bool same_second = event.time < time + kSecond;
        return same_second && (reply || opens_call(messages_[event.index]));
      };
      while (place != events.end() && stands_before(*place)) ++place;
      if (place != events.begin()) time = std::max(time, std::prev(place)->time);
      events.insert(place, {time, true, frame});
    }
  }

  static bool opens_call(const Record& message) {
    const StepRow* step = step_in(message.body);
    return contains(kOpening, message.function) || prepares_call(message.function) ||
           (step != nullptr && step->progress == CallStage::opened);
  }

  void add_call(const Exchange* exchange, const Story* story, const std::vector<Event>& events) {
    const int number = static_cast<int>(calls_.size());
    LoggedCall call;
    call.start = events.front().time;
    call.end = events.back().time;
    call.milliseconds_known = !events.front().is_frame || frames_[events.front().index].milliseconds_known;
    call.function = exchange != nullptr ? exchange->function : story != nullptr ? story->function : nullptr;
    if (exchange != nullptr) call.session = exchange->session;
    if (exchange != nullptr) call.return_code = exchange->code;
    if (story != nullptr && call.return_code.empty()) call.return_code = story->failure;
    bool written = false;
    for (const Event& event : events) {
      if (event.is_frame) {
        call_of_frame_[event.index] = number;
        call.steps.push_back(step_of_frame(frames_[event.index], event.time, written));
        written = written || frames_[event.index].direction == Direction::to_device;
      } else {
        call_of_message_[event.index] = number;
        add_step(call, messages_[event.index]);
      }
    }
    calls_.push_back(std::move(call));
  }

  static void add_step(LoggedCall& call, const Record& message) {
    if (const StepRow* step = step_in(message.body))
      call.steps.push_back({message.time, true, tr(step->what), step->is_error});
    else if (message.level == Level::error && works_on_link(message.function))
      call.steps.push_back({message.time, true, message.body, true, true});
  }

  static Step step_of_frame(const Record& frame, LocalTime time, bool written) {
    const std::string size = std::to_string(frame.body.size());
    if (frame.direction == Direction::to_device) {
      return {time, frame.milliseconds_known,
              fill(written ? Text{"command written on or again, {} bytes in all",
                                  "comando continuado ou repetido, {} bytes ao todo"}
                           : Text{"command sent, {} bytes", "comando enviado, {} bytes"},
                   {size}),
              false};
    }
    const auto values = split_fields(frame.body);
    return {time, frame.milliseconds_known,
            fill({"reply received, {} bytes: {}", "resposta recebida, {} bytes: {}"},
                 {size, values.size() > 1 ? return_code_of(values) : std::string()}),
            false};
  }

  // ---- records

  // Whether a frame that nothing announces stands in front of the message.
  bool comes_first(std::size_t frame, std::size_t message) const {
    const LocalTime time = frames_[frame].time;
    if (time > messages_[message].time) return false;
    if (time + kSecond <= messages_[message].time) return true;
    const int of_frame = call_of_frame_[frame], of_message = call_of_message_[message];
    if (of_message == kNoCall) return !prepares_call(messages_[message].function);
    if (of_message != of_frame) return of_message > of_frame;
    return frames_[frame].direction == Direction::to_device && !opens_call(messages_[message]);
  }

  JoinedLogs put_in_order() {
    JoinedLogs joined;
    std::size_t next = 0;
    const auto add_frame = [&] {
      joined.call_of.push_back(call_of_frame_[next]);
      joined.records.push_back(std::move(frames_[next++]));
    };
    for (std::size_t i = 0; i < messages_.size(); ++i) {
      while (next < frames_.size() && announcements_[next] == kNone && comes_first(next, i)) add_frame();
      joined.call_of.push_back(call_of_message_[i]);
      joined.records.push_back(std::move(messages_[i]));
      while (next < frames_.size() && announcements_[next] == i) add_frame();
    }
    while (next < frames_.size()) add_frame();
    joined.calls = std::move(calls_);
    return joined;
  }

  std::vector<Record> messages_, frames_;
  std::vector<Story> stories_, earlier_;
  std::vector<Exchange> exchanges_;
  std::map<const Function*, std::vector<LocalTime>> failures_;
  std::vector<std::size_t> announcements_;
  std::vector<int> call_of_message_, call_of_frame_;
  std::vector<LoggedCall> calls_;
};

}  // namespace

JoinedLogs join_logs(std::vector<Record> messages, std::vector<Record> frames) {
  return Joiner(std::move(messages), std::move(frames)).join();
}

int session_of(const Record& frame) {
  const auto values = split_fields(frame.body);
  const std::size_t place = frame.direction == Direction::to_device ? 1 : 0;
  return values.size() > place ? session_number(values[place]) : -1;
}

std::vector<std::string> names_of(const Record& frame, const Function* function,
                                  const std::vector<std::string>& values) {
  std::vector<std::string> names;
  if (frame.direction == Direction::from_device) {
    const Function* layout = values.size() > 1 ? find_function_by_code(values[1]) : nullptr;
    for (const NamedField& field : name_fields(layout != nullptr ? layout : function, values))
      names.push_back(field.name);
    return names;
  }
  constexpr std::size_t kHead = 2;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const bool known = i >= kHead && function != nullptr && i - kHead < function->parameters.size();
    names.push_back(i == 0   ? "NomeDoComando"
                    : i == 1 ? "numeroSessao"
                    : known  ? function->parameters[i - kHead].name
                             : "campo" + std::to_string(i + 1));
  }
  return names;
}

}  // namespace satctl
