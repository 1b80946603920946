// Tests of the sleeping helpers.
#include <gtest/gtest.h>

#include <chrono>

#include "osscatalog.h"
#include "osstime.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

TEST(Sleep, ReturnsZeroWhenTheThreadRunsAgain) {
  EXPECT_EQ(ossSleep(0), ECF_OK);
  EXPECT_EQ(ossSleep(1), ECF_OK);
}

// Half the time is far beyond what the clocks of the two may differ by, and no load makes it less.
TEST(Sleep, CountsInMilliseconds) {
  const auto start = Clock::now();
  ossSleep(20);
  EXPECT_GE(Clock::now() - start, milliseconds(10));
}

// One yield alone may be cut short by the system's own tick.
TEST(Yield, SuspendsTheThread) {
  const auto start = Clock::now();
  for (int i = 0; i < 10; ++i) ossYield();
  EXPECT_GE(Clock::now() - start, milliseconds(5));
}

}  // namespace
