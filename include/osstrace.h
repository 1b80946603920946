// osstrace.h - the trace control block as every trace point sees it.
//
// Tracing is active in a process while g_pGTCB points to a control block whose enable word is not
// zero. A trace point asks both anew each time it is reached, since tracing may be switched while
// an operation runs; that question is all that tracing costs while it is off.
#pragma once

#include "osstypes.h"

/// The head of a trace control block. The options record and the ring buffer follow it in the same
/// region, which the controlling program owns; it may be memory that several processes share.
struct GTraceControlBlock {
  uint32_t initialized;  ///< 1 once the block is formatted
  uint32_t enabled;      ///< not 0: trace points write records
  uint32_t stopCounter;  ///< counts the hits of stop-on-error
  uint32_t reserved;     ///< 0
};
OSS_LAYOUT(GTraceControlBlock, 16);
OSS_FIELD(GTraceControlBlock, initialized, 0, 4);
OSS_FIELD(GTraceControlBlock, enabled, 4, 4);
OSS_FIELD(GTraceControlBlock, stopCounter, 8, 4);
OSS_FIELD(GTraceControlBlock, reserved, 12, 4);

/// The process's current control block; null while none is attached.
extern "C" OSS_API GTraceControlBlock* g_pGTCB;
