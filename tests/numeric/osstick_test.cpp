// Tests of the tick conversions and of the cache of the counter's frequency.
#include "numeric/osstick.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/osssystem.h"
#include "native128.h"
#include "osscatalog.h"
#include "osstime.h"

namespace {

constexpr OSSTickConversionFactor kTenMegahertz{10'000'000};

struct Time {
  unsigned int seconds;
  unsigned int nanoseconds;
  bool operator==(const Time&) const = default;
};
void PrintTo(const Time& time, std::ostream* out) {
  *out << time.seconds << " s " << time.nanoseconds << " ns";
}

// Converts as a span, and checks that a point in time agrees.
Time timeOf(uint64_t ticks, const OSSTickConversionFactor& factor) {
  Time span{~0u, ~0u};
  Time point{~0u, ~0u};
  OSSTickDelta{ticks}.convertToTime(factor, span.seconds, span.nanoseconds);
  OSSTick{ticks}.convertToTime(factor, point.seconds, point.nanoseconds);
  EXPECT_EQ(point, span);
  return span;
}

struct Ticks {
  OSSErr rc;
  uint64_t ticks;
  bool operator==(const Ticks&) const = default;
};
void PrintTo(const Ticks& result, std::ostream* out) {
  *out << std::hex << result.rc << std::dec << ", " << result.ticks << " ticks";
}

Ticks ticksOf(uint64_t nanoseconds, const OSSTickConversionFactor& factor) {
  OSSTickDelta span{12345};
  OSSTick point{12345};
  const OSSErr rc = span.initFromTimeValue(factor, nanoseconds);
  EXPECT_EQ(point.initFromTimeValue(factor, nanoseconds), rc);
  EXPECT_EQ(point.ticks, span.ticks);
  return {rc, span.ticks};
}

constexpr Ticks kTooBig{ECF_OSSTICK_TIME_VALUE_TOO_BIG, 0};
constexpr Ticks kTooSmall{ECF_OSSTICK_TIME_VALUE_TOO_SMALL, 0};

// ---- Ticks to time ----

TEST(TicksToTime, AreSecondsAndTheNanosecondsBeyondThem) {
  EXPECT_EQ(timeOf(25'000'000, kTenMegahertz), (Time{2, 500'000'000}));
  EXPECT_EQ(timeOf(0, kTenMegahertz), (Time{0, 0}));
  EXPECT_EQ(timeOf(1, kTenMegahertz), (Time{0, 100}));
  EXPECT_EQ(timeOf(9'999'999, kTenMegahertz), (Time{0, 999'999'900}));
}

TEST(TicksToTime, FractionsOfANanosecondAreDropped) {
  EXPECT_EQ(timeOf(2, {3}), (Time{0, 666'666'666}));
  EXPECT_EQ(timeOf(3'579'544, {3'579'545}), (Time{0, 999'999'720}));
}

TEST(TicksToTime, AFactorOfOneMakesATickASecond) {
  EXPECT_EQ(timeOf(1, {1}), (Time{1, 0}));
  EXPECT_EQ(timeOf(0xFFFFFFFF, {1}), (Time{0xFFFFFFFF, 0}));
}

TEST(TicksToTime, SecondsKeepTheirLower32Bits) {
  EXPECT_EQ(timeOf(0x100000007, {1}), (Time{7, 0}));
  EXPECT_EQ(timeOf(~uint64_t{0}, {2}), (Time{0xFFFFFFFF, 500'000'000}));
}

TEST(TicksToTime, AFactorThatWasNeverFilledCountsAsOne) {
  EXPECT_EQ(timeOf(5, OSSTickConversionFactor()), (Time{5, 0}));
}

TEST(TicksToTime, NoNumberOfTicksOverflows) {
  Random random(1);
  for (int i = 0; i < 100'000; ++i) {
    const auto ticks = static_cast<uint64_t>(random.wide());
    const uint64_t frequency = static_cast<uint64_t>(random.wide()) | 1;
    const Native nanoseconds = Native{ticks} * 1'000'000'000 / frequency;
    ASSERT_EQ(timeOf(ticks, {frequency}),
              (Time{static_cast<unsigned int>(nanoseconds / 1'000'000'000),
                    static_cast<unsigned int>(nanoseconds % 1'000'000'000)}))
        << ticks << " at " << frequency;
  }
}

// ---- Time to ticks ----

TEST(TimeToTicks, ASecondIsTooBigAndLessIsNot) {
  EXPECT_EQ(ticksOf(1'000'000'000, kTenMegahertz), kTooBig);
  EXPECT_EQ(ticksOf(~uint64_t{0}, kTenMegahertz), kTooBig);
  EXPECT_EQ(ticksOf(999'999'999, kTenMegahertz), (Ticks{ECF_OK, 9'999'999}));
}

TEST(TimeToTicks, LessThanAMicrosecondIsTooSmallWhateverTheFrequency) {
  EXPECT_EQ(ticksOf(1000, kTenMegahertz), (Ticks{ECF_OK, 10}));
  EXPECT_EQ(ticksOf(999, kTenMegahertz), kTooSmall);
  EXPECT_EQ(ticksOf(999, {4'000'000'000}), kTooSmall);
  EXPECT_EQ(ticksOf(0, kTenMegahertz), kTooSmall);
}

TEST(TimeToTicks, LessThanATickIsTooSmall) {
  EXPECT_EQ(ticksOf(1000, {1000}), kTooSmall);
  EXPECT_EQ(ticksOf(1'000'000, {1000}), (Ticks{ECF_OK, 1}));
  EXPECT_EQ(ticksOf(999'999'999, {1}), kTooSmall);
}

// The reference span of 999,999,999 ticks is then shorter than a nanosecond.
TEST(TimeToTicks, AFrequencyBeyondEveryCounterIsTooSmall) {
  EXPECT_EQ(ticksOf(999'999'999, {~uint64_t{0}}), kTooSmall);
  EXPECT_EQ(ticksOf(1000, {1'000'000'000'000'000'000}), kTooSmall);
}

// In 64 bits by way of the reference span, and its nanoseconds are whole: from 10 GHz on that
// shows.
TEST(TimeToTicks, AreRoundedByTheWholeNanosecondsOfTheReferenceSpan) {
  EXPECT_EQ(ticksOf(500'000'000, {3'579'545}), (Ticks{ECF_OK, 1'789'772}));
  EXPECT_EQ(ticksOf(1000, {1'000'000'000}), (Ticks{ECF_OK, 1000}));
  EXPECT_EQ(ticksOf(1000, {10'000'000'000}), (Ticks{ECF_OK, 10'000}));
  EXPECT_EQ(ticksOf(999'999'999, {10'000'000'000'000'000}),
            (Ticks{ECF_OK, 10'101'010'080'808'080}));
}

// ---- The frequency ----

std::atomic<int> queries;

uint64_t answered() noexcept {
  ++queries;
  return 14'318'180;
}

uint64_t failed() noexcept {
  ++queries;
  return 0;
}

TEST(TickFrequency, IsAskedForOnce) {
  queries = 0;
  oss::TickFrequency frequency;
  EXPECT_EQ(frequency.get(answered), 14'318'180u);
  EXPECT_EQ(frequency.get(failed), 14'318'180u);
  EXPECT_EQ(queries, 1);
}

TEST(TickFrequency, IsOneForGoodWhenItsQueryFailed) {
  queries = 0;
  oss::TickFrequency frequency;
  EXPECT_EQ(frequency.get(failed), 1u);
  EXPECT_EQ(frequency.get(answered), 1u);
  EXPECT_EQ(queries, 1);
}

TEST(TickFrequency, IsAskedForByOneOfManyThreads) {
  queries = 0;
  oss::TickFrequency frequency;
  std::vector<uint64_t> answers(4);
  std::vector<std::thread> threads;
  for (uint64_t& answer : answers)
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) answer = frequency.get(answered);
    });
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(answers, std::vector<uint64_t>(4, 14'318'180));
  EXPECT_EQ(queries, 1);
}

TEST(TickFrequency, OfAFactorIsThatOfTheSystemsCounter) {
  OSSTickConversionFactor first;
  OSSTickConversionFactor second{77};
  first.initialize();
  second.initialize();
  EXPECT_EQ(first.ticksPerSecond, oss::system::tickFrequency());
  EXPECT_EQ(second.ticksPerSecond, oss::system::tickFrequency());
  EXPECT_GT(first.ticksPerSecond, 1u);
}

TEST(TickFrequency, OfARealCounterConvertsAlmostASecond) {
  OSSTickConversionFactor factor;
  factor.initialize();
  const Ticks result = ticksOf(999'999'999, factor);
  EXPECT_EQ(result.rc, ECF_OK);
  EXPECT_EQ(result.ticks, 999'999'999 * factor.ticksPerSecond / 1'000'000'000);
}

}  // namespace
