// Every fault at every stage of a transaction where it can happen, as data. A test plays each cell; the table
// in docs/reliability.md is printed from the same cells.
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

// What happens around the call, beside the line and its system calls.
enum class Surroundings {
  kNormal,
  kNoPort,    // the port's name leads nowhere
  kPortGone,  // the device is removed; another one comes after the call
  kPortHeld,  // another process has the lock
  kNoPortConfigured,
  kFullDisk,
  kReadOnlyFolder,
  kLogFolderRemoved,  // while the device answers
  kClockBackwards,    // likewise
  kTimeZoneChange,    // likewise
  kEndlessGarbage,    // each look at the clock takes its time
  kMidnight,          // between the call before and this one
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
