// gptrace.h - the trace points that the operation frame calls.
//
// A caller asks oss::tracing() (core/ossoperation.h) before each of them. The first argument is the
// calling thread's identifier, the second the operation's function identifier. Items are triples of
// 64-bit values: item type (0 for a block of memory), length in bytes, pointer.
#pragma once

#include "osstypes.h"

extern "C" {

void gtraceEntry(uint64_t threadId, uint32_t funcId) noexcept;
void gtraceExit(uint64_t threadId, uint32_t funcId, const uint64_t* rc, uint64_t extra) noexcept;
void gtraceErrorVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                    uint64_t extra, uint64_t count, ...) noexcept;
void gtraceVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type, uint64_t count,
               ...) noexcept;

}  // extern "C"
