// Result codes of device discovery, port and link.
#pragma once

enum LinkCode : int {
  SAT_API_ERR_LNX_DEV_NOT_FOUND = -2000,  // not found or not opened
  kLinkPortClosed = -2001,                // close failed, port closed or no buffer
  kLinkSettings = -2002,
  kLinkNoReply = -2003,
  kLinkNoStx = -2004,
  kLinkChecksum = -2005,
  kLinkWrite = -2006,         // sending: a write failed; also a command that does not fit
  kLinkReplyGap = -2006,      // receiving: the frame stopped arriving
  kLinkWriteStalled = -2007,  // sending
  kLinkRead = -2007,          // receiving
  kLinkAttemptsUsed = -2008,
  kLinkRefused = -2009,  // the fourth NAK
  kLinkLock = -2010,
  kLinkUnlock = -2011,
  kFixedPortNoBuffer = -5002,
};
