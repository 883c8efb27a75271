// Receiving a response frame: wait, read, verify, acknowledge.
#pragma once

#include <stdint.h>

// Leaves the response text, NUL-terminated, in pSatRspBuf, whose first uiBufSize bytes are cleared first.
// uiTimeout (seconds) bounds the wait for the first STX. Returns the text's length or a negative LinkCode.
int32_t cSerialReadBufW(char* pSatRspBuf, uint32_t uiBufSize, const int* phComm, uint32_t uiTimeout);

// Writes ACK (true) or NAK (false). 0 when the byte was written, else -1.
int32_t lSerialWriteAck(bool acknowledge);
