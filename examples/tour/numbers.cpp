// Numbers: texts into sizes and truth values, 128 bits, ticks into time.
#include <cstdlib>

#include "ossnumeric.h"
#include "tour.h"

namespace tour {
namespace {

void showSize(const char* text, uint64_t unit, const char* name) {
  char* end = nullptr;
  const uint64_t count = ossStrToUint64(text, &end, 0);
  const Uint128 bytes = Uint128(count) * Uint128(unit);
  note("\"%s\" %s are %.0f bytes", text, name, static_cast<double>(bytes));
}

void showTicks() {
  OSSTickConversionFactor factor;
  factor.initialize();
  OSSTickDelta span;
  told("OSSTickDelta::initFromTimeValue, 2.5 ms", span.initFromTimeValue(factor, 2'500'000));

  unsigned int seconds = 0;
  unsigned int nanoseconds = 0;
  span.convertToTime(factor, seconds, nanoseconds);
  note("%llu ticks at %llu a second are %u s and %u ns", span.ticks, factor.ticksPerSecond, seconds,
       nanoseconds);
  expected("OSSTickDelta::initFromTimeValue, 1 s", span.initFromTimeValue(factor, 1'000'000'000),
           ECF_OSSTICK_TIME_VALUE_TOO_BIG);
}

void showTime() {
  OSSTimeUTC now;
  ossTimeGetUTC(&now);
  struct tm utc;
  ossTimeGmTime(now.seconds, &utc);
  note("it is %04d-%02d-%02d %02d:%02d:%02d.%03u UTC", utc.tm_year + 1900, utc.tm_mon + 1,
       utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, now.milliseconds);
}

}  // namespace

void convertNumbersAndTimes(const Stage&) {
  act("Sizes, words and times are converted");
  showSize("0x40", 1ULL << 30, "GiB");
  showSize("18446744073709551615", 4096, "pages");

  bool answer = false;
  told("ossStrToBoolean, \"Yes\"", ossStrToBoolean("Yes", &answer));
  expected("ossStrToBoolean, \"perhaps\"", ossStrToBoolean("perhaps", &answer),
           ECF_OSS_NOT_BOOLEAN_STRING);
  showTicks();
  showTime();
}

}  // namespace tour
