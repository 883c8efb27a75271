// Field-by-field account of a frame in the trace log, as the link stages use it: same lines as the
// exported SAT_API_CmdPktParcer and SAT_API_RspPktParcer, but next to no work while none of them is logged.
#pragma once

void trace_command_frame(const char* frame, int length);
void trace_response_frame(const char* frame, int length);
