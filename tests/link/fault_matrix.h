// Every fault at every stage of a transaction, as data: a cell for each way in which it can happen there, or
// the reason why it cannot. A test plays each cell; docs/tables/faults.md is printed from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/fault_calls.h"
#include "support/scripted_device.h"

namespace fault_matrix {

enum class Stage {
  kFound,
  kOpened,
  kLocked,
  kConfigured,
  kFirstBlockSent,
  kNextBlockSent,
  kFirstAckAwaited,
  kNextAckAwaited,
  kStxAwaited,
  kFirstBlockReceived,
  kNextBlockReceived,
  kFinalAck,
  kClosed,
  kWholeCall,
};
inline constexpr const char* kStageNames[] = {
    "found",
    "opened",
    "locked",
    "configured",
    "first block sent",
    "next block sent",
    "first ACK awaited",
    "next ACK awaited",
    "STX awaited",
    "first block received",
    "next block received",
    "final ACK",
    "closed",
    "whole call",
};

// The faults of the matrix; each has one label or more in the cells.
struct Family {
  const char* name;
  std::vector<std::string> labels;
};
const std::vector<Family>& families();

// The family of a label; nullptr for what goes wrong at one stage only.
const Family* family_of(const std::string& label);

// Why these faults cannot happen, or mean nothing of their own, at these stages.
struct Reason {
  const char* why;
  std::vector<std::string> families;
  std::vector<Stage> stages;
};
const std::vector<Reason>& reasons();

// What the call returns.
enum class Outcome {
  kReply,
  kLateReply,  // of an earlier session, which had come too late for its own call
  kNotFound,
  kNotOpened,
  kBusy,
  kNotLocked,
  kNotConfigured,
  kNotSent,
  kNotReceived,
};

// What happens around the call, beside the line and its system calls. "In the middle" is where a fault of the
// cell is an event; without any other meaning that event lets the script go on behind await_release.
enum class Surroundings {
  kNormal,
  kNoPort,            // the port's name leads nowhere
  kPortGone,          // the device is removed before the call, and comes back behind it
  kPortBack,          // the device is removed in the middle, and at once another one has its name
  kPortHeld,          // another process has the lock
  kLineFull,          // in the middle: the device takes nothing more, and the line holds all it can
  kNoPortConfigured,  // and none is found
  kSearched,          // the port's name comes from the search, which signals interrupt
  kSearchedGone,      // likewise, while the device is away; it comes back behind the call
  kSearchFails,
  kFullDisk,
  kReadOnlyFolder,
  kLogFolderRemoved,  // in the middle
  kClockBackwards,    // likewise
  kTimeZoneChange,    // likewise
  kMidnight,          // between the call before and this one
  kEndlessGarbage,    // each look at the clock takes its time, so that the end is not sharp
};

struct Cell {
  std::string fault;
  Stage stage;
  std::string detail;  // of this cell, where the fault's name does not say it all
  scripted::Script script;
  std::vector<fault_calls::Fault> calls;
  Outcome outcome = Outcome::kReply;
  int code = 0;         // in the failure text
  std::int64_t ms = 0;  // how long the call takes
  Surroundings surroundings = Surroundings::kNormal;

  bool ends_sharply() const { return surroundings != Surroundings::kEndlessGarbage; }
};

const std::vector<Cell>& cells();

// The transaction of every cell: a sale of two blocks, answered by a reply of two blocks.
inline constexpr int kSession = 42;
inline constexpr char kActivationCode[] = "12345678";
inline constexpr std::size_t kSaleLength = 20000;
const std::string& sale();
const std::string& reply();
const std::string& late_reply();
scripted::Script right_exchange();

}  // namespace fault_matrix
