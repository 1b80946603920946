// Control blocks: formatting, attaching, switching, options.
#include <windows.h>

#include <cstring>

#include "numeric/ossatomic.h"
#include "osscatalog.h"
#include "osstime.h"
#include "osstracedump.h"
#include "trace/gptrace.h"
#include "trace/gtcallstack.h"

GTraceControlBlock* g_pGTCB = nullptr;

namespace oss {

constinit TraceProcess g_traceProcess;

namespace {

// What the library adds to the flags of a block of that mode.
constexpr uint32_t flagsOf(uint32_t mode) noexcept {
  return ((mode & GTRACE_FUNCTION_COUNT) != 0 ? GTRACE_COUNTING : 0) |
         ((mode & GTRACE_PERTURB) != 0 ? GTRACE_PERTURBING : 0);
}

// The ring's mode; 0 for none.
constexpr int32_t ringModeOf(uint32_t mode) noexcept {
  if ((mode & GTRACE_CHUNKED) != 0) return RAMBO_CHUNKED;
  if ((mode & GTRACE_CIRCULAR) != 0) return RAMBO_CIRCULAR;
  return (mode & (GTRACE_FILL_ONCE | GTRACE_PERTURB)) != 0 ? RAMBO_FILL_ONCE : 0;
}

bool isCounting(const GTraceControlBlock& block) noexcept {
  return (block.options.mode & GTRACE_FUNCTION_COUNT) != 0;
}

void clearTable(GTraceControlBlock& block, uint32_t size) noexcept {
  std::memset(static_cast<void*>(&block + 1), 0, size);
}

void clearFixedPart(GTraceControlBlock& block) noexcept {
  std::memset(static_cast<void*>(&block), 0, sizeof block);
}

// The block is whole once it says so.
void finish(GTraceControlBlock& block, const GTraceOptions& options, uint32_t counter) noexcept {
  block.options = options;
  block.options.flags |= flagsOf(options.mode);
  block.stopCounter = counter;
  std::atomic_ref(block.initialized).store(1, std::memory_order_release);
}

// The current block, or why there is none to work on.
struct Current {
  GTraceControlBlock* block = currentBlock();
  OSSErr rc = block == nullptr          ? ECF_GTRACE_NOT_ATTACHED
              : block->initialized == 0 ? ECF_GTRACE_NOT_INITIALIZED
                                        : ECF_OK;
};

void setEnabled(GTraceControlBlock& block, uint32_t word) noexcept {
  std::atomic_ref(block.enabled).store(word, std::memory_order_relaxed);
}

}  // namespace
}  // namespace oss

using namespace oss;

uint32_t gtraceGetAllocSize(uint32_t bufferSize) noexcept {
  const uint32_t ring = ramboGetAllocSize(bufferSize);
  return ring != 0 ? ring + static_cast<uint32_t>(sizeof(GTraceControlBlock)) : 0;
}

OSSErr gtraceInitialize(void* block, const GTraceOptions* options) noexcept {
  constexpr uint32_t kFirstStop = 1;
  if (options == nullptr) return ECF_INVALID_PARAMETER;
  // Deliberate: too large is reported as too small.
  if (options->bufferSize < RAMBO_SMALLEST_BUFFER || options->bufferSize > RAMBO_LARGEST_BUFFER)
    return ECF_GTRACE_INVALID_BUFFER_SIZE;
  if (block == nullptr) return ECF_INVALID_PARAMETER;

  auto& formatted = *static_cast<GTraceControlBlock*>(block);
  if ((options->mode & GTRACE_FUNCTION_COUNT) != 0) {
    clearFixedPart(formatted);
    clearTable(formatted, options->bufferSize);
    finish(formatted, *options, 0);
    return ECF_OK;
  }

  const int32_t ringMode = ringModeOf(options->mode);
  if (ringMode == 0) return ECF_INVALID_PARAMETER;
  clearFixedPart(formatted);
  if (const OSSErr rc = ramboInitialize(&formatted + 1, options->bufferSize, ringMode)) return rc;
  finish(formatted, *options, kFirstStop);
  return ECF_OK;
}

OSSErr gtraceAttach(void* block, uint32_t processId, GTraceRecordCallback recordCallback,
                    GTraceDisableCallback disableCallback) noexcept {
  if (block == nullptr) return ECF_INVALID_PARAMETER;

  auto* const attached = static_cast<GTraceControlBlock*>(block);
  g_traceProcess.processId = processId;
  g_traceProcess.recordCallback = recordCallback;
  g_traceProcess.disableCallback = disableCallback;
  ramboSetCallBack(gtraceDisable);
  if (isCounting(*attached) && (attached->options.flags & GTRACE_CALL_STACKS) != 0)
    prepareCallStacks();
  std::atomic_ref(g_pGTCB).store(attached, std::memory_order_release);
  return ECF_OK;
}

OSSErr gtraceDetach() noexcept {
  std::atomic_ref(g_pGTCB).store(nullptr, std::memory_order_release);
  g_traceProcess.recordCallback = nullptr;
  g_traceProcess.disableCallback = nullptr;
  return ECF_OK;
}

OSSErr gtraceEnable() noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;

  setEnabled(*current.block, 1);
  return ECF_OK;
}

OSSErr gtraceDisable() noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;

  setEnabled(*current.block, 0);
  if (const GTraceDisableCallback callback = g_traceProcess.disableCallback)
    callback(0, current.block);
  return ECF_OK;
}

OSSErr gtraceGetOptions(GTraceOptions* options) noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  if (options == nullptr) return ECF_INVALID_PARAMETER;

  *options = current.block->options;
  return ECF_OK;
}

OSSErr gtraceGetOptionsPtr(GTraceOptions** options) noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  if (options == nullptr) return ECF_INVALID_PARAMETER;

  *options = &current.block->options;
  return ECF_OK;
}

OSSErr gtraceSetOptions(GTraceOptions* options) noexcept {
  constexpr size_t kBehindFlags = offsetof(GTraceOptions, reserved);
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  if (options == nullptr) return ECF_INVALID_PARAMETER;

  GTraceOptions& own = current.block->options;
  // Deliberate: cleared in the caller's own record.
  if (isCounting(*current.block)) options->flags &= ~(GTRACE_STAMP | GTRACE_CALL_STACKS);
  // The caller's record may be the block's own.
  std::memmove(reinterpret_cast<char*>(&own) + kBehindFlags,
               reinterpret_cast<const char*>(options) + kBehindFlags, sizeof own - kBehindFlags);
  // In one piece: to a trace point that misses the library's flags, a table is a ring.
  std::atomic_ref(own.flags).store(options->flags | flagsOf(own.mode), std::memory_order_release);
  return ECF_OK;
}

OSSErr gtraceClear() noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  if (!isCounting(*current.block)) return ramboNewSequence(&ringOf(*current.block));

  clearTable(*current.block, current.block->options.bufferSize);
  return ECF_OK;
}

OSSErr gtraceAutoDumpEnabled(bool enabled) noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  return ramboAutoDumpEnabled(&ringOf(*current.block), enabled);
}

void gtraceSetProcessID(uint32_t processId) noexcept { g_traceProcess.processId = processId; }
void gtraceSetFixedData1(uint32_t value) noexcept { g_traceProcess.fixedData1 = value; }
void gtraceSetFixedData2(uint32_t value) noexcept { g_traceProcess.fixedData2 = value; }

// ---- Dumps --------------------------------------------------------------------------------------

OSSErr gtraceGetDumpHeaderBuffer(bool instantaneous, void* header, void** data,
                                 uint32_t* size) noexcept {
  constexpr char kMagic[8] = "GTDUMP1";
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  if (header == nullptr || data == nullptr || size == nullptr) return ECF_INVALID_PARAMETER;

  auto& out = *static_cast<GTraceDumpHeader*>(header);
  OSSTickConversionFactor factor;
  factor.initialize();
  std::memcpy(out.magic, kMagic, sizeof kMagic);
  out.options = current.block->options;
  out.ticksPerSecond = factor.ticksPerSecond;
  if (!isCounting(*current.block))
    return ramboGetDumpHeaderBuffer(&ringOf(*current.block), instantaneous, &out.ring, data, size);

  *data = current.block + 1;
  *size = current.block->options.bufferSize;
  return ECF_OK;
}

OSSErr gtraceGetDumpTail(RamboDumpTail* tail) noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  return isCounting(*current.block) ? ECF_OK : ramboGetDumpTail(&ringOf(*current.block), tail);
}

OSSErr gtraceInitializeChunkWalker(RamboChunkWalker* walker) noexcept {
  const Current current;
  if (current.rc != ECF_OK) return current.rc;
  return ramboInitializeChunkWalker(&ringOf(*current.block), walker);
}
