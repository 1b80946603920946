// osstrace.h - tracing: the control block, its options, and the trace points.
//
// A controlling program asks gtraceGetAllocSize for the size of a control block, takes the memory
// where it likes (shared memory, when several processes trace into one buffer), formats it with
// gtraceInitialize and switches it with gtraceEnable. Each process that is to be traced attaches
// it.
//
//   head | options | ring buffer (ossrambo.h)
//   16     182,880   ramboGetAllocSize(bufferSize)
//
// Tracing is active in a process while g_pGTCB points to a block whose enable word is not zero. The
// caller of a trace point asks both anew each time it is reached; that question is all that tracing
// costs while it is off. A block holds offsets only, so each process may see it at another address.
//
// Trace points may be reached by any thread of any process at any time, and take no lock. The other
// operations belong to the controlling program, one thread at a time; what they change is read
// without a lock. None of them is traced or logged. How a dump is written and read again:
// osstracedump.h.
#pragma once

#include "ossgtmmask.h"
#include "ossrambo.h"
#include "osstypes.h"

// ---- Options ------------------------------------------------------------------------------------

/// Bits of GTraceOptions::mode. Of several, function-count wins, then chunked, then circular.
inline constexpr uint32_t GTRACE_CIRCULAR = 0x1;   ///< old records are overwritten
inline constexpr uint32_t GTRACE_FILL_ONCE = 0x2;  ///< tracing is disabled when the buffer is full
inline constexpr uint32_t GTRACE_CHUNKED = 0x4;    ///< circular, and dumped while it is written
inline constexpr uint32_t GTRACE_FUNCTION_COUNT = 0x8;  ///< calls are counted, not recorded
inline constexpr uint32_t GTRACE_PERTURB = 0x10;  ///< trace points sleep at random, write nothing

/// Bits of GTraceOptions::flags. While none of GTRACE_CHECKED is set, a trace point asks nothing
/// and writes at once.
inline constexpr uint32_t GTRACE_STAMP = 0x2;            ///< records carry the time
inline constexpr uint32_t GTRACE_FILTER_BITMAPS = 0x4;   ///< GTraceOptions::filter decides
inline constexpr uint32_t GTRACE_FILTER_THREADS = 0x20;  ///< GTraceOptions::threads decides
inline constexpr uint32_t GTRACE_COUNT_STOPS = 0x40;     ///< count towards stop-on-error
inline constexpr uint32_t GTRACE_STOP_ON_EXIT = 0x80;    ///< exits with the stop code count, too
inline constexpr uint32_t GTRACE_CALLBACK = 0x100;       ///< call the record callback
inline constexpr uint32_t GTRACE_COUNTING = 0x200;       ///< set in the function-count mode
inline constexpr uint32_t GTRACE_CALL_STACKS = 0x400;    ///< the function-count mode times calls
inline constexpr uint32_t GTRACE_PERTURBING = 0x800;     ///< set in the timing-perturbation mode
inline constexpr uint32_t GTRACE_FILTER_MASK = 0x2000;   ///< GTraceOptions::mask decides
inline constexpr uint32_t GTRACE_ERRORS_ONLY = 0x4000;   ///< error types, and exits that failed
inline constexpr uint32_t GTRACE_CHECKED = 0x6A3E;

/// Bits of GTraceThreadFilter::flags.
inline constexpr uint32_t GTRACE_MATCH_PROCESS = 1;
inline constexpr uint32_t GTRACE_MATCH_THREAD = 2;

/// Of the entries in use, the first that matches the process decides, whatever its thread says.
struct GTraceThreadFilter {
  uint32_t flags;
  uint32_t processId;
  uint64_t threadId;
};
OSS_LAYOUT(GTraceThreadFilter, 16);
OSS_FIELD(GTraceThreadFilter, flags, 0, 4);
OSS_FIELD(GTraceThreadFilter, processId, 4, 4);
OSS_FIELD(GTraceThreadFilter, threadId, 8, 8);

/// Start from all zeros.
struct GTraceOptions {
  uint32_t bufferSize;  ///< bytes: a power of two from RAMBO_SMALLEST_ to RAMBO_LARGEST_BUFFER
  uint32_t mode;        ///< GTRACE_CIRCULAR ... GTRACE_PERTURB
  uint8_t ringFile[8];  ///< any byte not 0: an auto-dump file is written round and round
  uint32_t flags;       ///< GTRACE_STAMP ... GTRACE_ERRORS_ONLY
  uint8_t reserved[8];
  uint32_t stopCount;      ///< hits of stop-on-error after which tracing is disabled
  uint32_t stopCode;       ///< the return code that is a hit
                           ///< (GTRACE_PERTURB: trace points between two sleeps)
  uint32_t threadFilters;  ///< entries of `threads` in use
  GTraceThreadFilter threads[5];
  GTMask filter;  ///< as gtmReplicateMask writes it
  GTM_TRC_MASK mask;
};
OSS_LAYOUT(GTraceOptions, 182880);
OSS_FIELD(GTraceOptions, bufferSize, 0, 4);
OSS_FIELD(GTraceOptions, mode, 4, 4);
OSS_FIELD(GTraceOptions, ringFile, 8, 8);
OSS_FIELD(GTraceOptions, flags, 16, 4);
OSS_FIELD(GTraceOptions, reserved, 20, 8);
OSS_FIELD(GTraceOptions, stopCount, 28, 4);
OSS_FIELD(GTraceOptions, stopCode, 32, 4);
OSS_FIELD(GTraceOptions, threadFilters, 36, 4);
OSS_FIELD(GTraceOptions, threads, 40, 80);
OSS_FIELD(GTraceOptions, filter, 120, 552);
OSS_FIELD(GTraceOptions, mask, 672, 182208);

// ---- The control block --------------------------------------------------------------------------

struct GTraceControlBlock {
  uint32_t initialized;  ///< 1 once the block is formatted
  uint32_t enabled;      ///< not 0: trace points write records
  uint32_t stopCounter;  ///< from 1, the hits of stop-on-error; function-count: from 0, lost calls
  uint32_t reserved;     ///< 0
  GTraceOptions options;
};
OSS_LAYOUT(GTraceControlBlock, 182896);
OSS_FIELD(GTraceControlBlock, initialized, 0, 4);
OSS_FIELD(GTraceControlBlock, enabled, 4, 4);
OSS_FIELD(GTraceControlBlock, stopCounter, 8, 4);
OSS_FIELD(GTraceControlBlock, reserved, 12, 4);
OSS_FIELD(GTraceControlBlock, options, 16, 182880);

/// An entry of the function-count mode's table, which takes the place of the ring buffer.
struct GTraceFunctionCount {
  uint32_t calls;   ///< may miss some that came at once
  uint32_t funcId;  ///< 0 for a free entry
  uint64_t ticks;   ///< spent in the function, with GTRACE_CALL_STACKS
};
OSS_LAYOUT(GTraceFunctionCount, 16);
OSS_FIELD(GTraceFunctionCount, calls, 0, 4);
OSS_FIELD(GTraceFunctionCount, funcId, 4, 4);
OSS_FIELD(GTraceFunctionCount, ticks, 8, 8);

// ---- Operations ---------------------------------------------------------------------------------

/// Called after a record was sealed, on the thread that traced, with GTRACE_CALLBACK.
/// \param rc     the exit's or error's return code, or null
/// \param items  `count` items as the caller passed them, or null
using GTraceRecordCallback = void (*)(uint16_t type, uint32_t funcId, uint16_t probe,
                                      const uint64_t* rc, uint64_t count, const void* items);
/// Called when tracing is disabled, on the thread that disabled it; `reason` is 0.
using GTraceDisableCallback = void (*)(uint32_t reason, void* block);

extern "C" {

/// The process's current control block; null while none is attached.
extern OSS_API GTraceControlBlock* g_pGTCB;

/// Bytes of a control block with that buffer; 0 when the size is not a power of two from
/// RAMBO_SMALLEST_BUFFER to RAMBO_LARGEST_BUFFER. In the function-count mode, whose buffer may have
/// any size between these, a block takes sizeof(GTraceControlBlock) + bufferSize.
OSS_API uint32_t gtraceGetAllocSize(uint32_t bufferSize) noexcept;

/// Formats a block: disabled, with a copy of the options.
/// \param block    the caller's memory, aligned to 8; 64 is faster
/// \param options  every mode but function-count needs a power of two as the buffer size
/// \retval 0                               formatted
/// \retval ECF_INVALID_PARAMETER           `options` or `block` is null, or no mode is chosen
/// \retval ECF_GTRACE_INVALID_BUFFER_SIZE  the buffer is too small, or too large
/// \retval ECF_RAMBO_INVALID_BUFFER_SIZE   it is no power of two
OSS_API OSSErr gtraceInitialize(void* block, const GTraceOptions* options) noexcept;

/// Makes the block the process's current one, in place of another. Never enables it.
/// \param processId  goes into every record
/// \retval 0                      attached
/// \retval ECF_INVALID_PARAMETER  `block` is null
OSS_API OSSErr gtraceAttach(void* block, uint32_t processId, GTraceRecordCallback recordCallback,
                            GTraceDisableCallback disableCallback) noexcept;

/// Leaves the process without a block, and without callbacks. The block is not touched; trace
/// points that run meanwhile may still write into it. \return 0
OSS_API OSSErr gtraceDetach() noexcept;

// Each of the following works on the current block and fails, beside what it says, with
//   ECF_GTRACE_NOT_ATTACHED     there is none
//   ECF_GTRACE_NOT_INITIALIZED  it is not formatted
//   ECF_INVALID_PARAMETER       an argument is null
// and returns 0 otherwise.

OSS_API OSSErr gtraceEnable() noexcept;
/// A full fill-once buffer and stop-on-error do this, too.
OSS_API OSSErr gtraceDisable() noexcept;

OSS_API OSSErr gtraceGetOptions(GTraceOptions* options) noexcept;
/// \param options  receives the address of the options inside the block
OSS_API OSSErr gtraceGetOptionsPtr(GTraceOptions** options) noexcept;
/// Replaces the options from `flags` on: size and mode of a block never change. In the
/// function-count mode GTRACE_STAMP and GTRACE_CALL_STACKS are first cleared in *options.
OSS_API OSSErr gtraceSetOptions(GTraceOptions* options) noexcept;

/// Forgets what was recorded or counted.
/// \retval ECF_NOT_SUPPORTED  the buffer is chunked
OSS_API OSSErr gtraceClear() noexcept;

/// As ramboAutoDumpEnabled, and with its codes.
OSS_API OSSErr gtraceAutoDumpEnabled(bool enabled) noexcept;

/// Values that go into every record of this process; all ones until set. Any time.
OSS_API void gtraceSetProcessID(uint32_t processId) noexcept;
OSS_API void gtraceSetFixedData1(uint32_t value) noexcept;
OSS_API void gtraceSetFixedData2(uint32_t value) noexcept;

}  // extern "C"
