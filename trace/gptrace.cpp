// Nothing in the library formats a control block so far: g_pGTCB stays null unless a host sets it,
// and then there is no ring to write into.
#include "trace/gptrace.h"

#include "osstrace.h"

GTraceControlBlock* g_pGTCB = nullptr;

void gtraceEntry(uint64_t, uint32_t) noexcept {}
void gtraceExit(uint64_t, uint32_t, const uint64_t*, uint64_t) noexcept {}
void gtraceErrorVar(uint64_t, uint32_t, uint16_t, uint16_t, uint64_t, uint64_t, ...) noexcept {}
void gtraceVar(uint64_t, uint32_t, uint16_t, uint16_t, uint64_t, ...) noexcept {}
