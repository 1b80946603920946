// Wall-clock time, from the C run-time.
#include "osstime.h"

#include <sys/timeb.h>

static_assert(sizeof(tm) == 36, "nine numbers of 32 bits");

int64_t ossTimeGetUTC(OSSTimeUTC* record) noexcept {
  __timeb64 now;
  ::_ftime64(&now);

  if (record != nullptr) {
    record->seconds = now.time;
    record->milliseconds = now.millitm;
    record->microseconds = uint32_t{now.millitm} * 1000;  // Deliberate: no finer than the clock.
  }
  return now.time;
}

namespace {

// The C run-time keeps its record for the thread and may refuse the moment with null.
tm* copied(const tm* source, tm* record) noexcept {
  *record = source != nullptr ? *source : tm{};
  return record;
}

}  // namespace

tm* ossTimeGmTime(int64_t seconds, tm* record) noexcept {
  const time_t moment = seconds;
  return record != nullptr ? copied(::gmtime(&moment), record) : nullptr;
}

tm* ossTimeLocalTime(int64_t seconds, tm* record) noexcept {
  const time_t moment = seconds;
  return record != nullptr ? copied(::localtime(&moment), record) : nullptr;
}
