// The latch between processes.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "harness/childprocess.h"
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

}  // namespace
