// The library's state: one context record and a few large buffers, all static and process-wide.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

inline constexpr char kIniFileName[] = "SAT.ini";

inline constexpr size_t kPacketBufferSize = size_t{10} * 1024 * 1024;
inline constexpr size_t kReplyLimit = size_t{5} * 1024 * 1024;

struct SatContext {
  uint8_t ucInitMark;  // 0xAA and 0x55 in ucInitTail: the record is set up
  int64_t lSatEmulatorOn;
  int64_t lResultFilesOn;
  // Stored and logged, read by no stage.
  int32_t iReadIntervalTimeout;
  int32_t iReadTotalTimeoutMultiplier;
  int32_t iReadTotalTimeoutConstant;
  int32_t iWriteTotalTimeoutMultiplier;
  int32_t iWriteTotalTimeoutConstant;
  char strResultPathWindows[128];
  char strResultPathLinux[128];
  char strSatProtLogFilePath[200];
  char strSatProtLogFileName[200];
  char CurSatCmdInProc[64];
  char strFixedPort[32];
  char strSerialPortConfig[60];
  time_t tIniFileTime;
  uint32_t hT;
  uint8_t aucReserved[32];
  uint8_t ucInitTail;
};
extern SatContext gl_tSat;

// A missing "FixarPorta" clears this many bytes from strFixedPort on. Kept: tIniFileTime goes with it, so
// that the call after the first one reads the configuration once more.
inline constexpr size_t kFixedPortClearing = 128;
static_assert(offsetof(SatContext, strFixedPort) + kFixedPortClearing > offsetof(SatContext, hT));
static_assert(offsetof(SatContext, strFixedPort) + kFixedPortClearing <= offsetof(SatContext, ucInitTail));

extern char gl_sSatPkt[kPacketBufferSize];  // command out, reply in, returned to the caller
extern char gl_TmpBuf[kPacketBufferSize];   // scratch of the send, receive and protocol-log stages

// Returns 1 when the library was already set up, 0 when it has just been.
int init_global_sat_struct();

bool context_is_set_up();

// Makes the first size bytes of a buffer zero. Whole pages of gl_sSatPkt are given back to the kernel, which
// hands them out as zeros again when they are next touched; what packet_buffer_ends_at vouched for is left
// alone.
void clear_buffer(char* buffer, size_t size);

// Vouches that everything behind the first bytes of gl_sSatPkt is zero already: the next clearing touches
// no more than those. It holds for that one clearing only.
void packet_buffer_ends_at(size_t bytes);
