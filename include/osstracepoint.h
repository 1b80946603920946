// osstracepoint.h - the trace points: each writes one record.
//
// A caller reaches one only while g_pGTCB is set and enabled (osstrace.h). The first argument is
// the calling thread's identifier, the second a function identifier. A record that the options
// filter out, and one that finds a full fill-once buffer, is not written; nobody is told. In the
// function-count mode entries and exits are counted and all others return at once.
//
// A ...Var trace point ends with `count` items, each three arguments of 64 bits: item type, length
// in bytes, and the value itself (types 1 and 2) or a pointer. Descriptors and items of a record
// have room for 65,535 bytes: an item that does not fit is cut and the ones behind it are dropped.
// A null pointer writes GTRACE_NULL_ITEM as its length and no bytes.
//
// Any thread, any time, without a lock. Nothing is kept of what a pointer names.
#pragma once

#include "osstracerecord.h"
#include "osstypes.h"

extern "C" {

// A record has `extra1`, `returnCode` and `probe` where its trace point has such an argument, and
// leaves them as they were in the slot otherwise; one with items says 0 instead.
OSS_API void gtraceEntry(uint64_t threadId, uint32_t funcId) noexcept;
OSS_API void gtraceEntryVar(uint64_t threadId, uint32_t funcId, uint64_t count, ...) noexcept;

/// \param rc  the return code in 64 bits; null counts as 0
OSS_API void gtraceExit(uint64_t threadId, uint32_t funcId, const uint64_t* rc,
                        uint64_t extra) noexcept;
OSS_API void gtraceExitVar(uint64_t threadId, uint32_t funcId, const uint64_t* rc, uint64_t extra,
                           uint64_t count, ...) noexcept;

/// \param typeAndFlags  the record type, with GTRACE_MARK or without
OSS_API void gtraceMarker(uint64_t threadId, uint32_t funcId, uint16_t probe,
                          uint32_t typeAndFlags) noexcept;
OSS_API void gtraceMarkerVar(uint64_t threadId, uint32_t funcId, uint16_t probe,
                             uint32_t typeAndFlags, uint64_t count, ...) noexcept;

OSS_API void gtraceVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                       uint64_t count, ...) noexcept;

/// \param type  GTRACE_ERROR; GTRACE_STOP_ERROR counts towards stop-on-error
OSS_API void gtraceError(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                         uint64_t extra) noexcept;
OSS_API void gtraceErrorVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                            uint64_t extra, uint64_t count, ...) noexcept;

/// Two slots: `extra2` lies behind itemCount, which is not written. The ...Var form has its items
/// there and does not keep `extra2`.
OSS_API void gtraceErrorRc(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                           uint64_t extra1, uint32_t rc, uint64_t extra2) noexcept;
OSS_API void gtraceErrorRcVar(uint64_t threadId, uint32_t funcId, uint16_t probe, uint16_t type,
                              uint64_t extra1, uint32_t rc, uint64_t extra2, uint64_t count,
                              ...) noexcept;

/// An error that was translated into another; two slots, as gtraceErrorRc.
OSS_API void gtraceErrorTrans(uint64_t threadId, uint32_t funcId, uint16_t probe, uint64_t extra1,
                              uint64_t extra2) noexcept;

OSS_API void gtraceCorrelatorVar(uint64_t threadId, uint32_t funcId, uint16_t probe,
                                 uint32_t correlator, uint64_t extra, uint64_t count, ...) noexcept;

}  // extern "C"
