// clock.h - ticks of a dump as nanoseconds. Exact, rounded down, for every number of ticks whose
// nanoseconds fit 64 bits.
#pragma once

#include <cstdint>

namespace oss::tool {

struct Moment {
  uint64_t seconds;
  uint32_t nanoseconds;
};

class Clock {
 public:
  // 0, which no counter has, counts as 1.
  explicit Clock(uint64_t ticksPerSecond)
      : perSecond_(ticksPerSecond != 0 ? ticksPerSecond : 1),
        nanosecondsPerTick_(kBillion % perSecond_ == 0 ? kBillion / perSecond_ : 0) {}

  // Times that follow each other mostly lie in one second: only a new one costs a division.
  Moment at(uint64_t ticks) {
    if (ticks < secondStart_ || ticks - secondStart_ >= perSecond_) [[unlikely]] {
      second_ = ticks / perSecond_;
      secondStart_ = second_ * perSecond_;
    }
    return {second_, fraction(ticks - secondStart_)};
  }

  uint64_t nanoseconds(uint64_t ticks) {
    const Moment moment = at(ticks);
    return moment.seconds * kBillion + moment.nanoseconds;
  }

 private:
  static constexpr uint64_t kBillion = 1'000'000'000;

  uint32_t fraction(uint64_t ticks) const {
    if (nanosecondsPerTick_ != 0) [[likely]]
      return static_cast<uint32_t>(ticks * nanosecondsPerTick_);
    __extension__ using Wide = unsigned __int128;
    return static_cast<uint32_t>(static_cast<Wide>(ticks) * kBillion / perSecond_);
  }

  uint64_t perSecond_;
  uint64_t nanosecondsPerTick_;  // 0: not whole
  uint64_t second_ = 0;
  uint64_t secondStart_ = 0;
};

}  // namespace oss::tool
