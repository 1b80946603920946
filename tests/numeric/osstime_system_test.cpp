// Wall-clock time, sleeping, and the frequency of the performance counter, on the system itself.
#include <gmock/gmock.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "harness/childprocess.h"
#include "harness/importhook.h"
#include "harness/tempdir.h"
#include "osstime.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- UTC ----

TEST(TimeGetUTC, TellsTheCurrentSecondAndFillsTheRecord) {
  const int64_t before = std::time(nullptr);
  OSSTimeUTC record = {-1, 0xFFFF, 0xFFFFFFFF};
  const int64_t seconds = ossTimeGetUTC(&record);
  const int64_t after = std::time(nullptr);
  EXPECT_GE(seconds, before);
  EXPECT_LE(seconds, after);
  EXPECT_EQ(record.seconds, seconds);
  EXPECT_LT(record.milliseconds, 1000);
  EXPECT_EQ(record.microseconds, record.milliseconds * 1000u);
}

TEST(TimeGetUTC, NeedsNoRecord) {
  const int64_t before = std::time(nullptr);
  const int64_t seconds = ossTimeGetUTC(nullptr);
  EXPECT_GE(seconds, before);
  EXPECT_LE(seconds, std::time(nullptr));
}

// ---- Broken-down time ----

constexpr int64_t kMoments[] = {
    86'400,          // 1970-01-02
    951'782'399,     // before a leap day
    951'782'400,     // a leap day of a century
    1'711'846'800,   // a change to summer time
    2'147'483'648,   // past 32 bits
    32'000'000'000,  // year 2984
};

std::string textOf(const tm& time) {
  char text[64];
  std::snprintf(text, sizeof text, "%d-%d-%d %d:%d:%d, day %d of the week, %d of the year, dst %d",
                time.tm_year, time.tm_mon, time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec,
                time.tm_wday, time.tm_yday, time.tm_isdst);
  return text;
}

TEST(BrokenDownTime, IsThatOfTheCLibrary) {
  for (const time_t moment : kMoments) {
    tm record;
    EXPECT_EQ(ossTimeGmTime(moment, &record), &record);
    EXPECT_EQ(textOf(record), textOf(*std::gmtime(&moment)));
    EXPECT_EQ(ossTimeLocalTime(moment, &record), &record);
    EXPECT_EQ(textOf(record), textOf(*std::localtime(&moment)));
  }
}

TEST(BrokenDownTime, OfUtcIsKnown) {
  tm record;
  ossTimeGmTime(0, &record);
  EXPECT_EQ(textOf(record), "70-0-1 0:0:0, day 4 of the week, 0 of the year, dst 0");
  ossTimeGmTime(951'782'400, &record);
  EXPECT_EQ(textOf(record), "100-1-29 0:0:0, day 2 of the week, 59 of the year, dst 0");
}

TEST(BrokenDownTime, AMomentThatTheCLibraryRefusesGivesZeros) {
  for (const int64_t moment : {int64_t{-1}, INT64_MIN, INT64_MAX}) {
    tm record;
    std::memset(&record, 0xFF, sizeof record);
    EXPECT_EQ(ossTimeGmTime(moment, &record), &record);
    EXPECT_EQ(textOf(record), textOf(tm{}));
    std::memset(&record, 0xFF, sizeof record);
    EXPECT_EQ(ossTimeLocalTime(moment, &record), &record);
    EXPECT_EQ(textOf(record), textOf(tm{}));
  }
}

TEST(BrokenDownTime, OfANullRecordIsNull) {
  EXPECT_EQ(ossTimeGmTime(86'400, nullptr), nullptr);
  EXPECT_EQ(ossTimeLocalTime(86'400, nullptr), nullptr);
}

// Prints two moments of the same time of day: one in winter, one in summer.
CHILD_ROLE(printLocalTime) {
  tm record;
  for (const int64_t moment : {1'705'320'000, 1'721'044'800})
    std::printf("%s\n", textOf(*ossTimeLocalTime(moment, &record)).c_str());
  return 0;
}

TEST(BrokenDownTime, OfLocalTimeFollowsTheTimeZone) {
  TempDirectory dir;
  EXPECT_EQ(runChild("printLocalTime", {},
                     {.environment = {{"TZ", "EST5EDT"}}, .outputFile = dir.file("output")}),
            0u);
  EXPECT_EQ(readFile(dir.file("output")),
            "124-0-15 7:0:0, day 1 of the week, 14 of the year, dst 0\r\n"
            "124-6-15 8:0:0, day 1 of the week, 196 of the year, dst 1\r\n");
}

// ---- Sleeping ----

TEST(Sleep, HandsItsMillisecondsToTheSystemAndSucceeds) {
  std::vector<DWORD> slept;
  ImportHook hook("Sleep", [&](Call& call) { slept.push_back(call.argument<DWORD>(0)); });
  EXPECT_EQ(ossSleep(0), 0u);
  EXPECT_EQ(ossSleep(1), 0u);
  EXPECT_EQ(ossSleep(100), 0u);
  EXPECT_EQ(ossSleep(0xFFFFFFFF), 0u);
  EXPECT_THAT(slept, ElementsAre(0u, 1u, 100u, 0xFFFFFFFFu));
}

TEST(Sleep, AYieldSleepsOneMillisecond) {
  std::vector<DWORD> slept;
  ImportHook hook("Sleep", [&](Call& call) { slept.push_back(call.argument<DWORD>(0)); });
  ossYield();
  EXPECT_THAT(slept, ElementsAre(1u));
}

// ---- The counter's frequency ----

uint64_t initializedFactor() {
  OSSTickConversionFactor factor;
  factor.initialize();
  return factor.ticksPerSecond;
}

// Each needs a process that has not asked for the frequency before.
CHILD_ROLE(askForTheFrequency) {
  LARGE_INTEGER frequency;
  EXPECT_TRUE(::QueryPerformanceFrequency(&frequency));
  CallCounter queries("QueryPerformanceFrequency");
  for (int round = 0; round < 100; ++round)
    EXPECT_EQ(initializedFactor(), static_cast<uint64_t>(frequency.QuadPart));
  EXPECT_EQ(queries.calls(), 1);
  return 0;
}

CHILD_ROLE(askForAFrequencyThatIsRefused) {
  FailingCall fails("QueryPerformanceFrequency", ERROR_NOT_SUPPORTED);
  for (int round = 0; round < 100; ++round) EXPECT_EQ(initializedFactor(), 1u);
  EXPECT_EQ(fails.calls(), 1);

  OSSTickConversionFactor factor;
  factor.initialize();
  unsigned int seconds = 0;
  unsigned int nanoseconds = 77;
  OSSTickDelta{3}.convertToTime(factor, seconds, nanoseconds);
  EXPECT_EQ(seconds, 3u);
  EXPECT_EQ(nanoseconds, 0u);
  return 0;
}

CHILD_ROLE(askForTheFrequencyFromFourThreads) {
  std::atomic<int> started{0};
  ImportHook query("QueryPerformanceFrequency", [&](Call& call) {
    // The first query takes until all threads are on their way.
    while (started < 4) std::this_thread::yield();
    call.argument<LARGE_INTEGER*>(0)->QuadPart = 1234;
    return TRUE;
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      ++started;
      for (int round = 0; round < 100; ++round) EXPECT_EQ(initializedFactor(), 1234u);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(query.calls(), 1);
  return 0;
}

TEST(TickFrequency, IsThatOfTheSystemAndAskedForOnce) {
  EXPECT_EQ(runChild("askForTheFrequency"), 0u);
}

TEST(TickFrequency, IsOneWhenTheSystemRefuses) {
  EXPECT_EQ(runChild("askForAFrequencyThatIsRefused"), 0u);
}

TEST(TickFrequency, IsAskedForOnceByManyThreads) {
  EXPECT_EQ(runChild("askForTheFrequencyFromFourThreads"), 0u);
}

}  // namespace
