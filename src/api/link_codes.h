// Result codes of device discovery, port and link, by the stage that gives them.
#pragma once

#include "talvex/talvex.h"

enum LinkCode : int {
  SAT_API_ERR_LNX_DEV_NOT_FOUND = TALVEX_LINK_DEVICE_NOT_FOUND,  // not found or not opened
  kLinkPortClosed = TALVEX_LINK_PORT_CLOSED,                     // close failed, port closed or no buffer
  kLinkSettings = TALVEX_LINK_SETTINGS_FAILED,
  kLinkNoReply = TALVEX_LINK_NO_REPLY,
  kLinkNoStx = TALVEX_LINK_NO_REPLY_START,
  kLinkChecksum = TALVEX_LINK_BAD_CHECKSUM,
  kLinkWrite = TALVEX_LINK_BROKEN_OFF,           // sending: a write failed
  kLinkCommandTooLong = TALVEX_LINK_BROKEN_OFF,  // nothing was sent
  kLinkReplyGap = TALVEX_LINK_BROKEN_OFF,        // receiving: the frame stopped arriving
  kLinkWriteStalled = TALVEX_LINK_STALLED,       // sending
  kLinkRead = TALVEX_LINK_STALLED,               // receiving
  kLinkAttemptsUsed = TALVEX_LINK_ATTEMPTS_USED,
  kLinkRefused = TALVEX_LINK_REFUSED,  // the fourth NAK
  kLinkLock = TALVEX_LINK_LOCK_FAILED,
  kLinkUnlock = TALVEX_LINK_UNLOCK_FAILED,
  kFixedPortNoBuffer = -5002,
};
