// Ticks: the conversions, and the cache of the counter's frequency.
#include "numeric/osstick.h"

#include "core/osssystem.h"
#include "numeric/osslatchguard.h"
#include "osscatalog.h"
#include "ossint128.h"
#include "osstime.h"

namespace oss {

uint64_t TickFrequency::get(Query& query) noexcept {
  LatchGuard guard(latch_);
  if (!cached_) {
    ticksPerSecond_ = query();
    if (ticksPerSecond_ == 0) ticksPerSecond_ = 1;
    cached_ = true;
  }
  return ticksPerSecond_;
}

namespace {

constexpr uint64_t kNanosecondsPerSecond = 1'000'000'000;

constinit TickFrequency g_tickFrequency;

struct Span {
  uint32_t seconds;
  uint32_t nanoseconds;
};

// Runs over 128 bits, so that the product of ticks and nanoseconds has room.
Span spanOf(uint64_t ticks, const OSSTickConversionFactor& factor) noexcept {
  const uint64_t frequency = factor.ticksPerSecond != 0 ? factor.ticksPerSecond : 1;
  const Uint128 total = Uint128(ticks) * Uint128(kNanosecondsPerSecond) / Uint128(frequency);
  const Uint128 seconds = total / Uint128(kNanosecondsPerSecond);
  const Uint128 whole = seconds * Uint128(kNanosecondsPerSecond);
  return {static_cast<uint32_t>(seconds.low()), static_cast<uint32_t>(total.low() - whole.low())};
}

// By the rule of three from a reference span, in 64 bits: both factors stay below 10^9.
OSSErr ticksFrom(uint64_t nanoseconds, const OSSTickConversionFactor& factor,
                 uint64_t& ticks) noexcept {
  constexpr uint64_t kShortest = 1000;
  constexpr uint64_t kReferenceTicks = 999'999'999;

  ticks = 0;
  if (nanoseconds >= kNanosecondsPerSecond) return ECF_OSSTICK_TIME_VALUE_TOO_BIG;
  if (nanoseconds < kShortest) return ECF_OSSTICK_TIME_VALUE_TOO_SMALL;

  const Span span = spanOf(kReferenceTicks, factor);
  const uint64_t reference = span.seconds * kNanosecondsPerSecond + span.nanoseconds;
  if (reference == 0) return ECF_OSSTICK_TIME_VALUE_TOO_SMALL;

  ticks = kReferenceTicks * nanoseconds / reference;
  return ticks != 0 ? ECF_OK : ECF_OSSTICK_TIME_VALUE_TOO_SMALL;
}

}  // namespace
}  // namespace oss

void OSSTickConversionFactor::initialize() noexcept {
  ticksPerSecond = oss::g_tickFrequency.get(oss::system::tickFrequency);
}

void OSSTickDelta::convertToTime(const OSSTickConversionFactor& factor, unsigned int& seconds,
                                 unsigned int& nanoseconds) const noexcept {
  const oss::Span span = oss::spanOf(ticks, factor);
  seconds = span.seconds;
  nanoseconds = span.nanoseconds;
}

OSSErr OSSTickDelta::initFromTimeValue(const OSSTickConversionFactor& factor,
                                       uint64_t nanoseconds) noexcept {
  return oss::ticksFrom(nanoseconds, factor, ticks);
}

void OSSTick::convertToTime(const OSSTickConversionFactor& factor, unsigned int& seconds,
                            unsigned int& nanoseconds) const noexcept {
  OSSTickDelta{ticks}.convertToTime(factor, seconds, nanoseconds);
}

OSSErr OSSTick::initFromTimeValue(const OSSTickConversionFactor& factor,
                                  uint64_t nanoseconds) noexcept {
  return oss::ticksFrom(nanoseconds, factor, ticks);
}
