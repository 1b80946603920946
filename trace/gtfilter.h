// gtfilter.h - which trace points the options let through: the filters in their order, inline for
// the trace points.
//
// The options are read while the controlling program may change them; a record that is judged by
// half of a change is right by neither.
#pragma once

#include "osstrace.h"
#include "osstracerecord.h"
#include "trace/gtmindex.h"

namespace oss {

// What a filter looks at.
struct TracePoint {
  uint64_t threadId;
  uint32_t processId;
  uint32_t funcId;
  uint16_t type;
  uint16_t probe;
};

constexpr uint32_t productOf(uint32_t funcId) noexcept { return funcId >> 27; }
constexpr uint32_t componentOf(uint32_t funcId) noexcept { return funcId >> 19 & 0xFF; }
constexpr uint32_t classOf(uint32_t funcId) noexcept { return funcId >> 16 & 0x7; }
constexpr uint32_t functionOf(uint32_t funcId) noexcept { return funcId & 0xFFFF; }

constexpr bool isErrorType(uint16_t type) noexcept {
  switch (type) {
    case GTRACE_EXIT:
    case GTRACE_ERROR:
    case GTRACE_STOP_ERROR:
    case GTRACE_ERROR_11:
    case GTRACE_ERROR_TRANSLATION: return true;
    default: return false;
  }
}

// Deliberate: the first entry with the process decides, also when its thread is another.
bool passesThreads(const GTraceOptions& options, TracePoint point) noexcept;

// Deliberate: a function number above 4,095 is looked up behind its bitmap, within the options.
inline bool passesBitmaps(const GTraceOptions& options, const TracePoint& point) noexcept {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&options);
  const GTMask& filter = options.filter;
  return hasBit(filter.products, productOf(point.funcId)) && point.type < kMaskTypes &&
         (filter.types >> point.type & 1) != 0 &&
         hasBit(filter.components, componentOf(point.funcId)) &&
         hasBit(bytes + offsetof(GTraceOptions, filter) + offsetof(GTMask, functions),
                functionOf(point.funcId)) &&
         hasBit(&filter.classes, classOf(point.funcId));
}

inline bool passesFilters(const GTraceOptions& options, uint32_t flags,
                          const TracePoint& point) noexcept {
  if ((flags & GTRACE_ERRORS_ONLY) != 0 && !isErrorType(point.type)) return false;
  if ((flags & GTRACE_FILTER_THREADS) != 0 && !passesThreads(options, point)) return false;
  if ((flags & GTRACE_FILTER_BITMAPS) != 0) return passesBitmaps(options, point);
  return (flags & GTRACE_FILTER_MASK) == 0 ||
         options.mask.gtmIsElemInMask(point.funcId, point.type, point.probe);
}

}  // namespace oss
