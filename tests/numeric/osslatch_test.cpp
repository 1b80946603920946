// Tests of the latch: its guard, the conflict wait, the texts of its states, the versioned latch.
#include "osslatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "harness/startline.h"
#include "numeric/osslatchguard.h"
#include "numeric/ossspintuning.h"
#include "osscatalog.h"

using osse_test::StartLine;

namespace {

uint8_t byteOf(const volatile uint8_t& latch) { return __atomic_load_n(&latch, __ATOMIC_RELAXED); }

// ---- The guard ----

TEST(LatchGuard, HoldsTheLatchForItsScope) {
  uint8_t latch = 0;
  {
    oss::LatchGuard guard(latch);
    EXPECT_EQ(byteOf(latch), 0x80);
  }
  EXPECT_EQ(latch, 0);
}

TEST(LatchGuard, AnEarlyReleaseIsTheOnlyOne) {
  uint8_t latch = 0;
  {
    oss::LatchGuard guard(latch);
    guard.release();
    EXPECT_EQ(byteOf(latch), 0);
    latch = 0x80;  // somebody else holds it now
  }
  EXPECT_EQ(latch, 0x80);
}

TEST(LatchGuard, AnAbandonedLatchStaysHeld) {
  uint8_t latch = 0;
  {
    oss::LatchGuard guard(latch);
    guard.abandon();
  }
  EXPECT_EQ(latch, 0x80);
}

// The mark of waiters disappears when the guard tries its exchange: it waits from there on.
TEST(LatchGuard, WaitsForTheHolder) {
  uint8_t latch = 0xC0;
  int guarded = 0;
  int seen = 0;
  std::thread waiter([&] {
    oss::LatchGuard guard(latch);
    seen = guarded;
  });

  while (byteOf(latch) != 0x80) std::this_thread::yield();
  for (int i = 0; i < 1000; ++i) guarded = i;
  ossWin32Lock8ReleaseInternal(&latch);
  waiter.join();

  EXPECT_EQ(seen, 999);
  EXPECT_EQ(latch, 0);
}

// ---- The conflict wait ----

// Each way that a wait can take: sleep at once as on a single processor, spin without a delay, spin
// long, and sleep ever longer.
class ConflictWait : public testing::TestWithParam<OSSSpinTune> {
 protected:
  void SetUp() override {
    OSSLatch::getSpinCounts(atLoad_);
    OSSLatch::updateSpinCounts(GetParam());
  }
  void TearDown() override { OSSLatch::updateSpinCounts(atLoad_); }

 private:
  OSSSpinTune atLoad_;
};

INSTANTIATE_TEST_SUITE_P(
    Tuned, ConflictWait,
    testing::Values(OSSSpinTune{}, OSSSpinTune{.spinCount = 10, .spinDelay = 50},
                    OSSSpinTune{.spinCount = 3}, OSSSpinTune{.spinCount = 3, .spinDelay = 1},
                    OSSSpinTune{.spinCount = 100'000, .spinDelay = 10},
                    OSSSpinTune{.spinCount = 1, .spinDelay = 2, .sleepIncrement = 1}));

TEST_P(ConflictWait, AFreeLatchIsTakenAtOnce) {
  uint8_t latch = 0;
  ossLockGetConflict(&latch);
  EXPECT_EQ(latch, 0x80);
}

// The waiter must find what the holder wrote before it released.
TEST_P(ConflictWait, AWaiterGetsTheLatchAfterItsHolderReleasedIt) {
  uint8_t latch = 0x80;
  int guarded = 0;
  std::atomic<bool> waiting = false;
  int seen = 0;
  std::thread waiter([&] {
    waiting = true;
    ossLockGetConflict(&latch);
    seen = guarded;
  });

  while (!waiting) std::this_thread::yield();
  for (int i = 0; i < 1000; ++i) guarded = i;
  ossWin32Lock8ReleaseInternal(&latch);
  waiter.join();

  EXPECT_EQ(seen, 999);
  EXPECT_EQ(latch, 0x80);
}

TEST_P(ConflictWait, AMarkOfWaitersIsWaitedForLikeAHeldLatch) {
  uint8_t latch = 0xC0;
  int guarded = 0;
  int seen = 0;
  std::thread waiter([&] {
    ossLockGetConflict(&latch);
    seen = guarded;
  });

  guarded = 1;
  ossWin32Lock8ReleaseInternal(&latch);
  waiter.join();

  EXPECT_EQ(seen, 1);
  EXPECT_EQ(latch, 0x80);
}

// A corrupt byte below 0x80 becomes a held latch that nobody holds: the wait goes on until somebody
// releases it.
TEST_P(ConflictWait, ACorruptByteIsOverwrittenButNotTaken) {
  uint8_t latch = 0x40;
  int guarded = 0;
  int seen = 0;
  std::thread waiter([&] {
    ossLockGetConflict(&latch);
    seen = guarded;
  });

  while (byteOf(latch) != 0x80) std::this_thread::yield();
  guarded = 1;
  ossWin32Lock8ReleaseInternal(&latch);
  waiter.join();

  EXPECT_EQ(seen, 1);
}

TEST_P(ConflictWait, NoUpdateUnderTheLatchIsLost) {
  constexpr int kThreads = 4;
  constexpr int kUpdates = 20'000;  // long enough for the threads to overlap
  uint8_t latch = 0;
  int counter = 0;
  int inside = 0;
  int mostInside = 0;
  StartLine start(kThreads);

  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      start.pass();
      for (int update = 0; update < kUpdates; ++update) {
        oss::LatchGuard guard(latch);
        mostInside = std::max(mostInside, ++inside);
        ++counter;
        --inside;
      }
    });
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(counter, kThreads * kUpdates);
  EXPECT_EQ(mostInside, 1);
  EXPECT_EQ(latch, 0);
}

TEST(ConflictWaitOnNull, ReturnsAtOnce) {
  ossLockGetConflict(nullptr);
  uint8_t latch = 0;
  ossLockGetConflict(&latch);
  EXPECT_EQ(latch, 0x80);
}

// ---- States ----

std::string textOf(uint8_t byte) {
  const char* state = byte == 0x00   ? "unlocked"
                      : byte == 0x80 ? "locked"
                      : byte == 0xC0 ? "locked;waiting"
                                     : "corrupt";
  char text[64];
  std::snprintf(text, sizeof text, "{ 0x%02X [ %s ] }", byte, state);
  return text;
}

TEST(LatchState, ACorruptByteIsWrittenAndReported) {
  const uint8_t latch = 0x40;
  char text[64];
  EXPECT_EQ(ossLockToString(&latch, text, sizeof text), ECF_OSSLOCK_CORRUPT);
  EXPECT_STREQ(text, "{ 0x40 [ corrupt ] }");
}

TEST(LatchState, OnlyThreeBytesAreValid) {
  std::set<int> valid;
  for (int byte = 0; byte <= 0xFF; ++byte) {
    const auto latch = static_cast<uint8_t>(byte);
    char text[64];
    const OSSErr rc = ossLockToString(&latch, text, sizeof text);
    if (rc == ECF_OK) valid.insert(byte);

    EXPECT_EQ(text, textOf(latch));
    EXPECT_TRUE(rc == ECF_OK || rc == ECF_OSSLOCK_CORRUPT) << rc;
    EXPECT_EQ(ossLockToString(&latch, nullptr, 0), rc);
    EXPECT_EQ(ossLockVerify(&latch, 1), rc);
  }
  EXPECT_EQ(valid, (std::set<int>{0x00, 0x80, 0xC0}));
}

TEST(LatchState, ATextThatDoesNotFitIsCut) {
  const uint8_t latch = 0xC0;
  char text[8] = "#######";
  EXPECT_EQ(ossLockToString(&latch, text, 5), ECF_OK);
  EXPECT_EQ(std::string(text, sizeof text), std::string("{ 0x\0##\0", sizeof text));
  EXPECT_EQ(ossLockToString(&latch, text, 0), ECF_OK);
  EXPECT_EQ(std::string(text, sizeof text), std::string("{ 0x\0##\0", sizeof text));
}

TEST(LatchState, EveryStateButTwoAcceptsEachValidByte) {
  for (const uint8_t latch : {uint8_t{0x00}, uint8_t{0x80}, uint8_t{0xC0}})
    for (const uint64_t state : {uint64_t{0}, uint64_t{1}, uint64_t{3}, ~uint64_t{0}})
      EXPECT_EQ(ossLockVerify(&latch, state), ECF_OK) << int{latch} << " " << state;
}

TEST(LatchState, StateTwoAcceptsNoByteAtAll) {
  for (int byte = 0; byte <= 0xFF; ++byte) {
    const auto latch = static_cast<uint8_t>(byte);
    EXPECT_EQ(ossLockVerify(&latch, 2), ECF_OSSLOCK_CORRUPT) << byte;
  }
}

TEST(LatchState, NullIsRefused) {
  char text[8] = "#######";
  EXPECT_EQ(ossLockToString(nullptr, text, sizeof text), ECF_INVALID_PARAMETER);
  EXPECT_STREQ(text, "#######");
  EXPECT_EQ(ossLockVerify(nullptr, 2), ECF_INVALID_PARAMETER);
}

TEST(WasteTime, AddsMultiplesOfTheNumberTo77) {
  EXPECT_EQ(ossWasteTime(0), 77u);
  EXPECT_EQ(ossWasteTime(1), 77u);
  EXPECT_EQ(ossWasteTime(2), 79u);
  EXPECT_EQ(ossWasteTime(3), 86u);  // 77 + 3 + 6
  EXPECT_EQ(ossWasteTime(4), 101u);
  EXPECT_EQ(ossWasteTime(100'000), static_cast<uint32_t>(77 + 100'000ull * 100'000 * 99'999 / 2));
}

// ---- The versioned latch ----

TEST(VersionedLatch, InitStampsTheVersionAndFreesTheLatch) {
  OSSVLatch vlatch{.version = 0, .latch = 0x55};
  EXPECT_EQ(ossVLatchInit(&vlatch), ECF_OK);
  EXPECT_EQ(vlatch.version, 0x09010007u);
  EXPECT_EQ(vlatch.latch, 0);
}

TEST(VersionedLatch, IsTakenFoundHeldAndReleased) {
  OSSVLatch vlatch;
  ossVLatchInit(&vlatch);

  EXPECT_EQ(ossVLatchGet(&vlatch), ECF_OK);
  EXPECT_EQ(vlatch.latch, 0x80);
  EXPECT_EQ(ossVLatchTestGet(&vlatch), ECF_FAILED);
  EXPECT_EQ(ossVLatchRelease(&vlatch), ECF_OK);
  EXPECT_EQ(vlatch.latch, 0);
  EXPECT_EQ(ossVLatchTestGet(&vlatch), ECF_OK);
  EXPECT_EQ(vlatch.latch, 0x80);
}

TEST(VersionedLatch, ATestAndAReleaseDropTheMarkOfWaiters) {
  OSSVLatch vlatch{.version = 20040702, .latch = 0xC0};
  EXPECT_EQ(ossVLatchTestGet(&vlatch), ECF_FAILED);
  EXPECT_EQ(vlatch.latch, 0x80);

  vlatch.latch = 0xC0;
  EXPECT_EQ(ossVLatchRelease(&vlatch), ECF_OK);
  EXPECT_EQ(vlatch.latch, 0);
}

TEST(VersionedLatch, AReleaseOfAFreeLatchSucceeds) {
  OSSVLatch vlatch{.version = 20040702, .latch = 0};
  EXPECT_EQ(ossVLatchRelease(&vlatch), ECF_OK);
  EXPECT_EQ(vlatch.latch, 0);
}

TEST(VersionedLatch, ARecordThatIsTooOldIsRefusedUntouched) {
  for (const uint32_t version : {0u, 20040701u}) {
    OSSVLatch vlatch{.version = version, .latch = 0xC0};
    EXPECT_EQ(ossVLatchGet(&vlatch), ECF_INVALID_VERSION);
    EXPECT_EQ(ossVLatchTestGet(&vlatch), ECF_INVALID_VERSION);
    EXPECT_EQ(ossVLatchRelease(&vlatch), ECF_INVALID_VERSION);
    EXPECT_EQ(vlatch.latch, 0xC0);
    EXPECT_EQ(vlatch.version, version);
  }
}

TEST(VersionedLatch, NullIsRefused) {
  EXPECT_EQ(ossVLatchInit(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossVLatchGet(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossVLatchTestGet(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossVLatchRelease(nullptr), ECF_INVALID_PARAMETER);
}

// The mark of waiters disappears when the waiter tries its exchange: it is waiting from there on.
TEST(VersionedLatch, AGetWaitsForTheHolder) {
  OSSVLatch vlatch{.version = OSS_LATCH_VERSION, .latch = 0xC0};
  int guarded = 0;
  int seen = 0;
  std::thread waiter([&] {
    EXPECT_EQ(ossVLatchGet(&vlatch), ECF_OK);
    seen = guarded;
    ossVLatchRelease(&vlatch);
  });

  while (byteOf(vlatch.latch) != 0x80) std::this_thread::yield();
  for (int i = 0; i < 1000; ++i) guarded = i;
  ossVLatchRelease(&vlatch);
  waiter.join();

  EXPECT_EQ(seen, 999);
  EXPECT_EQ(vlatch.latch, 0);
}

}  // namespace
