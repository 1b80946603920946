// The latch of the DLL: between processes, and how a wait for it spends its time.
#include <gtest/gtest.h>
#include <windows.h>

#include <thread>
#include <vector>

#include "harness/childprocess.h"
#include "harness/importhook.h"
#include "harness/sharedobjects.h"
#include "osslatch.h"

using namespace osse_test;

namespace {

constexpr int kThreads = 4;    // of each of two processes
constexpr int kRounds = 5000;  // of each thread

// What the latches protect is a plain number: a lost update shows in the total.
struct Guarded {
  uint8_t latch;
  volatile uint64_t count;
  OSSVLatch versionedLatch;
  volatile uint64_t versionedCount;
};

// Not one step on purpose: a second thread between the two statements loses an update.
void increment(volatile uint64_t& count) {
  const uint64_t before = count;
  ossWasteTime(20);
  count = before + 1;
}

void hammerLatch(Guarded* shared) {
  for (int round = 0; round < kRounds; ++round) {
    if (ossWin32Lock8ExchangeInternal(&shared->latch) != 0) ossLockGetConflict(&shared->latch);
    increment(shared->count);
    ossWin32Lock8ReleaseInternal(&shared->latch);
  }
}

void hammerVersionedLatch(Guarded* shared) {
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_EQ(ossVLatchGet(&shared->versionedLatch), 0u);
    increment(shared->versionedCount);
    EXPECT_EQ(ossVLatchRelease(&shared->versionedLatch), 0u);
  }
}

void hammerFromThreads(Guarded* shared, void (*hammer)(Guarded*)) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(hammer, shared);
  for (std::thread& thread : threads) thread.join();
}

CHILD_ROLE(hammerLatches) {
  SharedBlock<Guarded> shared(arguments.at(0));
  Event ready(arguments.at(1));
  Event next(arguments.at(2));
  for (const auto hammer : {hammerLatch, hammerVersionedLatch}) {
    ready.set();
    EXPECT_TRUE(next.wait());
    hammerFromThreads(&*shared, hammer);
  }
  return 0;
}

TEST(LatchOfTwoProcesses, NoUpdateIsLost) {
  SharedBlock<Guarded> shared;
  ASSERT_EQ(ossVLatchInit(&shared->versionedLatch), 0u);
  Event ready;
  Event next;
  Child child = startChild("hammerLatches", {shared.name(), ready.name(), next.name()});
  for (const auto hammer : {hammerLatch, hammerVersionedLatch}) {
    ASSERT_TRUE(ready.wait());
    next.set();
    hammerFromThreads(&*shared, hammer);
  }
  EXPECT_EQ(child.wait(), 0u);

  constexpr uint64_t kTotal = uint64_t{2} * kThreads * kRounds;
  EXPECT_EQ(shared->count, kTotal);
  EXPECT_EQ(shared->versionedCount, kTotal);
  EXPECT_EQ(shared->latch, 0);
  EXPECT_EQ(shared->versionedLatch.latch, 0);
}

// Nothing records who holds a latch.
CHILD_ROLE(takeLatchAndEnd) {
  SharedBlock<Guarded> shared(arguments.at(0));
  EXPECT_EQ(ossWin32Lock8ExchangeInternal(&shared->latch), 0);
  return 0;
}

TEST(LatchOfTwoProcesses, AHolderThatEndsLeavesItHeld) {
  SharedBlock<Guarded> shared;
  EXPECT_EQ(runChild("takeLatchAndEnd", {shared.name()}), 0u);
  EXPECT_EQ(shared->latch, 0x80);
  EXPECT_EQ(ossWin32Lock8ReleaseAndReturnInternal(&shared->latch), 0x80);
  EXPECT_EQ(ossWin32Lock8ExchangeInternal(&shared->latch), 0);
}

// ---- Spinning and sleeping ----

OSSSpinTune currentTune() {
  OSSSpinTune tune;
  OSSLatch::getSpinCounts(tune);
  return tune;
}

// The library has read the number of processors while it was loaded.
TEST(SpinTuningAtLoad, FollowsTheNumberOfProcessors) {
  SYSTEM_INFO system;
  ::GetSystemInfo(&system);
  const DWORD processors = system.dwNumberOfProcessors;
  const OSSSpinTune tune = currentTune();
  EXPECT_EQ(tune.reserved0, processors == 1 ? 0u : processors == 2 ? 2u : 5u);
  EXPECT_EQ(tune.spinCount, processors == 1   ? 0u
                            : processors == 2 ? 10u
                            : processors <= 4 ? 20u
                                              : 30u);
  EXPECT_EQ(tune.spinDelay, processors == 1 ? 0u : 50u);
  EXPECT_EQ(tune.reserved3, 0u);
  EXPECT_EQ(tune.sleepIncrement, 0u);
}

// How long a wait sleeps each time, when the latch is released in the last of so many sleeps.
std::vector<DWORD> sleepsOfAWait(const OSSSpinTune& tune, size_t count) {
  const OSSSpinTune atLoad = currentTune();
  OSSLatch::updateSpinCounts(tune);
  uint8_t latch = 0x80;
  std::vector<DWORD> sleeps;
  {
    ImportHook hook("Sleep", [&](Call& call) {
      sleeps.push_back(call.argument<DWORD>(0));
      if (sleeps.size() == count) ossWin32Lock8ReleaseInternal(&latch);
    });
    ossLockGetConflict(&latch);
  }
  OSSLatch::updateSpinCounts(atLoad);
  EXPECT_EQ(latch, 0x80);
  return sleeps;
}

TEST(SleepsOfAWait, AreOneMillisecondEachWithoutAnIncrement) {
  EXPECT_EQ(sleepsOfAWait({}, 1), (std::vector<DWORD>{1}));
  EXPECT_EQ(sleepsOfAWait({}, 5), (std::vector<DWORD>{1, 1, 1, 1, 1}));
  EXPECT_EQ(sleepsOfAWait({.spinCount = 10, .spinDelay = 50}, 4), (std::vector<DWORD>{1, 1, 1, 1}));
}

TEST(SleepsOfAWait, GrowByTheIncrementAndStartAnewBehindEightOfThem) {
  EXPECT_EQ(sleepsOfAWait({.spinCount = 2, .spinDelay = 5, .sleepIncrement = 5}, 11),
            (std::vector<DWORD>{1, 6, 11, 16, 21, 26, 31, 36, 1, 6, 11}));
}

// A wait that spins finds a release between its tries, and so does not sleep.
TEST(SleepsOfAWait, AreNoneWhenTheLatchIsFreeAtATry) {
  CallCounter sleeps("Sleep");
  for (const uint32_t spinCount : {0u, 1u, 30u}) {
    const OSSSpinTune atLoad = currentTune();
    OSSLatch::updateSpinCounts({.spinCount = spinCount, .spinDelay = 50});
    uint8_t latch = 0;
    ossLockGetConflict(&latch);
    OSSLatch::updateSpinCounts(atLoad);
    EXPECT_EQ(latch, 0x80);
  }
  EXPECT_EQ(sleeps.calls(), 0);
}

}  // namespace
