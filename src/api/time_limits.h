// How long a call waits for what, in milliseconds, and what that adds up to.
#pragma once

#include <stdint.h>

#include <algorithm>

// Sending: the port takes no byte.
inline constexpr int kWriteStallMs = 2000;

// The answer to a command, or to a block of one. The waits belong to one answer.
inline constexpr int kAckWaitMs = 3000;
inline constexpr int kAckWaits = 4;
// Reads of a port that is said to be readable find nothing.
inline constexpr int kAckEmptyReadsMs = 2000;
inline constexpr int kBadDescriptorGraceMs = 1000;

// The beginning of the reply. The waits belong to the call.
inline constexpr int kReplyWaitMs = 3000;
inline constexpr int kLongReplyWaitMs = 120000;
inline constexpr int kReplyWaits = 3;

// Inside a frame: the longest gap, and the limit that the attempt behind one begins with.
inline constexpr int kGapLimitMs = 100;
inline constexpr int kLimitAfterGapMs = 300;

inline constexpr int kAckWriteLimitMs = 100;

// No wait goes on for ever: one that garbage or repeated silence would prolong without end is over once it
// has lasted longer than this and longer than three times the function's time-out.
inline constexpr int64_t kEndlessWaitMs = 60000;

constexpr int64_t longest_wait_ms(uint32_t reply_timeout_s) {
  return std::max<int64_t>(kEndlessWaitMs, int64_t{3} * 1000 * reply_timeout_s);
}

// When a device is given up that says nothing at all, and one that is silent behind its acknowledgement.
inline constexpr int kSilentDeviceMs = kAckWaits * kAckWaitMs;
inline constexpr int kNoReplyMs = kReplyWaits * kReplyWaitMs;
