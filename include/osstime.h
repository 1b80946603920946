// osstime.h - ticks of the performance counter as spans of time, wall-clock time, and sleeping.
//
// A tick is one step of the system's performance counter. Callers read the counter themselves; what
// stands here converts between ticks and seconds with nanoseconds. Any thread may use everything at
// any time, a record one thread at a time. No operation traces or logs.
#pragma once

#include <ctime>

#include "osstypes.h"

// ---- Ticks --------------------------------------------------------------------------------------

/// How many ticks make a second. 0, which no counter has, converts as 1.
struct OSS_API OSSTickConversionFactor {
  uint64_t ticksPerSecond = 0;

  /// Fills in the frequency of the system's counter, or 1 when the system does not tell. It is
  /// asked once per process.
  void initialize() noexcept;
};
OSS_LAYOUT(OSSTickConversionFactor, 8);
OSS_FIELD(OSSTickConversionFactor, ticksPerSecond, 0, 8);

/// A span of time.
struct OSS_API OSSTickDelta {
  uint64_t ticks = 0;

  /// The span as whole seconds and the nanoseconds beyond them, truncated. Exact for every number
  /// of ticks; seconds keep their lower 32 bits.
  void convertToTime(const OSSTickConversionFactor& factor, unsigned int& seconds,
                     unsigned int& nanoseconds) const noexcept;

  /// Sets the ticks to a span of less than a second, rounded down.
  /// \param nanoseconds  1000 to 999,999,999
  /// \retval 0                                 the ticks are set
  /// \retval ECF_OSSTICK_TIME_VALUE_TOO_BIG    a second or more; the ticks are 0
  /// \retval ECF_OSSTICK_TIME_VALUE_TOO_SMALL  below 1000, or less than one tick; the ticks are 0
  OSSErr initFromTimeValue(const OSSTickConversionFactor& factor, uint64_t nanoseconds) noexcept;
};
OSS_LAYOUT(OSSTickDelta, 8);
OSS_FIELD(OSSTickDelta, ticks, 0, 8);

/// A point in time, as the reading of the counter. It converts like a span.
struct OSS_API OSSTick {
  uint64_t ticks = 0;

  void convertToTime(const OSSTickConversionFactor& factor, unsigned int& seconds,
                     unsigned int& nanoseconds) const noexcept;
  OSSErr initFromTimeValue(const OSSTickConversionFactor& factor, uint64_t nanoseconds) noexcept;
};
OSS_LAYOUT(OSSTick, 8);
OSS_FIELD(OSSTick, ticks, 0, 8);

// ---- Wall clock ---------------------------------------------------------------------------------

/// A moment in Coordinated Universal Time.
struct OSSTimeUTC {
  int64_t seconds = 0;        ///< since 1970-01-01
  uint16_t milliseconds = 0;  ///< beyond the seconds
  uint32_t microseconds = 0;  ///< beyond the seconds: the milliseconds x 1000, never finer
};
OSS_LAYOUT(OSSTimeUTC, 16);
OSS_FIELD(OSSTimeUTC, seconds, 0, 8);
OSS_FIELD(OSSTimeUTC, milliseconds, 8, 2);
OSS_FIELD(OSSTimeUTC, microseconds, 12, 4);

extern "C" {

/// The current time. \param record  receives it in full; may be null
/// \return the seconds since 1970-01-01 UTC
OSS_API int64_t ossTimeGetUTC(OSSTimeUTC* record) noexcept;

/// Breaks seconds since 1970 down into a date and time of day, in UTC or in local time.
/// \param record  receives it; all zeros when the C library cannot convert (before 1970)
/// \return record, so also null
OSS_API struct tm* ossTimeGmTime(int64_t seconds, struct tm* record) noexcept;
OSS_API struct tm* ossTimeLocalTime(int64_t seconds, struct tm* record) noexcept;

// ---- Sleeping -----------------------------------------------------------------------------------

/// Suspends the calling thread. \param milliseconds  0 gives up the rest of its time slice
/// \return 0, when it runs again
OSS_API OSSErr ossSleep(uint32_t milliseconds) noexcept;
/// Suspends the calling thread for 1 ms.
OSS_API void ossYield() noexcept;

}  // extern "C"
