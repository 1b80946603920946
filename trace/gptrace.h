// gptrace.h - what the control operations set and the trace points use, one copy for the process.
//
// Any thread reads them at any time; the controlling program writes them, each on its own.
#pragma once

#include <atomic>

#include "osstrace.h"
#include "trace/gtcount.h"

namespace oss {

struct TraceProcess {
  std::atomic<uint32_t> processId = 0xFFFFFFFF;
  std::atomic<uint32_t> fixedData1 = 0xFFFFFFFF;
  std::atomic<uint32_t> fixedData2 = 0xFFFFFFFF;
  std::atomic<GTraceRecordCallback> recordCallback = nullptr;
  std::atomic<GTraceDisableCallback> disableCallback = nullptr;
};
extern TraceProcess g_traceProcess;

inline GTraceControlBlock* currentBlock() noexcept {
  return std::atomic_ref(g_pGTCB).load(std::memory_order_acquire);
}

// What lies behind the fixed part of a block: its ring, or in the function-count mode its table.
inline RamboControlBlock& ringOf(GTraceControlBlock& block) noexcept {
  return *reinterpret_cast<RamboControlBlock*>(&block + 1);
}
inline FunctionCounts tableOf(GTraceControlBlock& block) noexcept {
  return {reinterpret_cast<GTraceFunctionCount*>(&block + 1),
          block.options.bufferSize / sizeof(GTraceFunctionCount)};
}

}  // namespace oss
