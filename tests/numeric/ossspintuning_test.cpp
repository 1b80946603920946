// Tests of the spin tuning: its table by processors, its copies, the length of sleeps.
#include "numeric/ossspintuning.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

namespace {

using Fields = std::array<uint32_t, 5>;

Fields fieldsOf(const OSSSpinTune& tune) {
  return {tune.reserved0, tune.spinCount, tune.spinDelay, tune.reserved3, tune.sleepIncrement};
}

Fields currentFields() {
  OSSSpinTune tune{99, 99, 99, 99, 99};
  OSSLatch::getSpinCounts(tune);
  return fieldsOf(tune);
}

// Read before any test, and before anybody could have initialised the layer.
const Fields kAtLoad = currentFields();
const oss::SpinState kStateAtLoad = oss::g_spinState;

class SpinTuning : public testing::Test {
 protected:
  void TearDown() override { oss::g_spinState = kStateAtLoad; }
};

TEST_F(SpinTuning, IsZeroUntilTheLibraryHasLoaded) {
  EXPECT_EQ(kAtLoad, (Fields{0, 0, 0, 0, 0}));
  EXPECT_EQ(kStateAtLoad.processors, 0u);
  EXPECT_EQ(kStateAtLoad.initialized, 0u);
}

TEST_F(SpinTuning, FollowsTheNumberOfProcessors) {
  const struct {
    uint32_t processors;
    Fields fields;
  } kRows[] = {
      {0, {0, 0, 0, 0, 0}},   {1, {0, 0, 0, 0, 0}},      {2, {2, 10, 50, 0, 0}},
      {3, {5, 20, 50, 0, 0}}, {4, {5, 20, 50, 0, 0}},    {5, {5, 30, 50, 0, 0}},
      {6, {5, 30, 50, 0, 0}}, {1024, {5, 30, 50, 0, 0}},
  };
  for (const auto& row : kRows) {
    OSSLatch::updateSpinCounts({9, 9, 9, 9, 9});
    oss::initializeSpinTuning(row.processors);
    EXPECT_EQ(currentFields(), row.fields) << row.processors;
    EXPECT_EQ(oss::g_spinState.processors, row.processors);
    EXPECT_EQ(oss::g_spinState.initialized, 1u);
  }
}

TEST_F(SpinTuning, AllFiveFieldsAreCopiedInAndOut) {
  OSSLatch::updateSpinCounts({1, 2, 3, 4, 5});
  EXPECT_EQ(currentFields(), (Fields{1, 2, 3, 4, 5}));
  EXPECT_EQ(fieldsOf(oss::g_spinState.tune), (Fields{1, 2, 3, 4, 5}));
}

// No lock guards an update: a reader sees each field whole, but perhaps of different updates.
TEST_F(SpinTuning, AConcurrentReaderSeesWholeFieldsOfOldOrNewUpdates) {
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int i = 0; i < 20'000; ++i) {
      OSSLatch::updateSpinCounts({1, 1, 1, 1, 1});
      OSSLatch::updateSpinCounts({0xABABABAB, 0xABABABAB, 0xABABABAB, 0xABABABAB, 0xABABABAB});
    }
    done = true;
  });

  int torn = 0;
  do {
    for (const uint32_t field : currentFields())
      torn += field != 0 && field != 1 && field != 0xABABABAB;
  } while (!done);
  writer.join();

  EXPECT_EQ(torn, 0);
  EXPECT_EQ(currentFields(), (Fields{0xABABABAB, 0xABABABAB, 0xABABABAB, 0xABABABAB, 0xABABABAB}));
}

// ---- Sleeps ----

std::vector<uint32_t> firstSleeps(uint32_t increment, size_t count) {
  std::vector<uint32_t> sleeps{1};
  while (sleeps.size() < count) sleeps.push_back(oss::nextSleep(sleeps.back(), increment));
  return sleeps;
}

TEST(SleepOfAWait, WithoutAnIncrementIsAlwaysOneMillisecond) {
  EXPECT_EQ(firstSleeps(0, 5), (std::vector<uint32_t>{1, 1, 1, 1, 1}));
}

TEST(SleepOfAWait, GrowsByTheIncrementAndStartsAnewAfterEightOfThem) {
  EXPECT_EQ(firstSleeps(5, 11), (std::vector<uint32_t>{1, 6, 11, 16, 21, 26, 31, 36, 1, 6, 11}));
  EXPECT_EQ(firstSleeps(1, 10), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7, 8, 1, 2}));
}

}  // namespace
