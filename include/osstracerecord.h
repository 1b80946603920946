// osstracerecord.h - what a trace record holds. A record lies in the ring buffer behind its slot
// header (ossrambo.h) and is what the parser of a dump returns (osstracedump.h).
#pragma once

#include "osstypes.h"

/// Record types. Callers may use others below 16.
inline constexpr uint16_t GTRACE_ENTRY = 1;
inline constexpr uint16_t GTRACE_EXIT = 2;
inline constexpr uint16_t GTRACE_DATA = 3;
inline constexpr uint16_t GTRACE_ERROR = 4;
inline constexpr uint16_t GTRACE_STOP_ERROR = 5;  ///< an error that counts towards stop-on-error
inline constexpr uint16_t GTRACE_ERROR_11 = 11;   ///< an error of a meaning of the caller's own
inline constexpr uint16_t GTRACE_CORRELATOR = 12;
inline constexpr uint16_t GTRACE_ERROR_TRANSLATION = 13;

/// A record's payload. One of one slot ends behind the return code; which fields it does not write,
/// and so leaves as they were, the trace points below say.
struct GTraceRecord {
  uint64_t timestamp;  ///< ticks of the performance counter; 0 without GTRACE_STAMP
  uint64_t threadId;
  uint32_t processId;
  uint32_t funcId;
  uint32_t fixedData1;
  uint32_t fixedData2;
  uint16_t type;
  uint16_t flags;  ///< GTRACE_MARKED
  uint16_t probe;
  uint16_t dataLength;  ///< bytes behind itemCount: descriptors and items
  uint64_t extra1;
  uint32_t returnCode;  ///< a correlator record's correlator
  uint32_t itemCount;
};
OSS_LAYOUT(GTraceRecord, 56);
OSS_FIELD(GTraceRecord, timestamp, 0, 8);
OSS_FIELD(GTraceRecord, threadId, 8, 8);
OSS_FIELD(GTraceRecord, processId, 16, 4);
OSS_FIELD(GTraceRecord, funcId, 20, 4);
OSS_FIELD(GTraceRecord, fixedData1, 24, 4);
OSS_FIELD(GTraceRecord, fixedData2, 28, 4);
OSS_FIELD(GTraceRecord, type, 32, 2);
OSS_FIELD(GTraceRecord, flags, 34, 2);
OSS_FIELD(GTraceRecord, probe, 36, 2);
OSS_FIELD(GTraceRecord, dataLength, 38, 2);
OSS_FIELD(GTraceRecord, extra1, 40, 8);
OSS_FIELD(GTraceRecord, returnCode, 48, 4);
OSS_FIELD(GTraceRecord, itemCount, 52, 4);

/// A bit of GTraceRecord::flags, and the bit of a marker's type argument that sets it.
inline constexpr uint16_t GTRACE_MARKED = 2;
inline constexpr uint32_t GTRACE_MARK = 0x10000;

/// Item types. The others are the caller's own meaning of a block of memory.
inline constexpr uint32_t GTRACE_ITEM_BLOCK = 0;
inline constexpr uint32_t GTRACE_ITEM_VALUE_1 = 1;  ///< the argument itself, as far as 8 bytes go
inline constexpr uint32_t GTRACE_ITEM_VALUE_2 = 2;
inline constexpr uint32_t GTRACE_ITEM_TRUNCATED = 4;      ///< cut because the record was full
inline constexpr uint32_t GTRACE_NULL_ITEM = 0xFFFFFFFF;  ///< the length of a null pointer's item

/// Describes an item. All descriptors stand in front of the items, which are packed.
struct GTraceItem {
  uint32_t type;
  uint32_t length;
};
OSS_LAYOUT(GTraceItem, 8);
OSS_FIELD(GTraceItem, type, 0, 4);
OSS_FIELD(GTraceItem, length, 4, 4);

/// What a caller passes for one item.
struct GTraceItemArgument {
  uint64_t type;
  uint64_t length;
  uint64_t value;  ///< or a pointer
};
OSS_LAYOUT(GTraceItemArgument, 24);
