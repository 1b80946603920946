// Tests of the atomic primitives, internal and exported, and of the versioned counter.
#include "numeric/ossatomic.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

#include "osscatalog.h"
#include "osslatch.h"

namespace {

constexpr int kThreads = 4;

// Runs the same work on several threads at once.
template <class Work>
void onAllThreads(const Work& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
}

// ---- Every width ----

template <class T>
class AtomicOfEveryWidth : public testing::Test {
 protected:
  static constexpr T kPattern = static_cast<T>(0x9182736455463728);  // bit 7 is clear

  // The neighbours tell whether an operation keeps to its width.
  T before_ = kPattern;
  T word_ = kPattern;
  T after_ = kPattern;

  void TearDown() override {
    EXPECT_EQ(before_, kPattern);
    EXPECT_EQ(after_, kPattern);
  }
};
using Widths = testing::Types<uint8_t, uint16_t, uint32_t, uint64_t, int32_t>;
TYPED_TEST_SUITE(AtomicOfEveryWidth, Widths);

TYPED_TEST(AtomicOfEveryWidth, AnExchangeReturnsTheOldValue) {
  EXPECT_EQ(oss::exchange(&this->word_, 17), this->kPattern);
  EXPECT_EQ(this->word_, TypeParam{17});
}

TYPED_TEST(AtomicOfEveryWidth, AFetchAndAddReturnsTheOldValueAndWraps) {
  EXPECT_EQ(oss::fetchAndAdd(&this->word_, static_cast<TypeParam>(-1)), this->kPattern);
  EXPECT_EQ(this->word_, static_cast<TypeParam>(this->kPattern - 1));

  this->word_ = std::numeric_limits<TypeParam>::max();
  EXPECT_EQ(oss::fetchAndAdd(&this->word_, 1), std::numeric_limits<TypeParam>::max());
  EXPECT_EQ(this->word_, std::numeric_limits<TypeParam>::min());
}

TYPED_TEST(AtomicOfEveryWidth, ACompareAndSwapStoresOnlyOverTheExpectedValue) {
  EXPECT_EQ(oss::compareAndSwap(&this->word_, 17, 18), this->kPattern);
  EXPECT_EQ(this->word_, this->kPattern);
  EXPECT_EQ(oss::compareAndSwap(&this->word_, 17, this->kPattern), this->kPattern);
  EXPECT_EQ(this->word_, TypeParam{17});
}

TYPED_TEST(AtomicOfEveryWidth, ALatchIsTakenFoundHeldAndFreed) {
  this->word_ = 0;
  EXPECT_EQ(oss::exchangeHeld(&this->word_), TypeParam{0});
  EXPECT_EQ(oss::exchangeHeld(&this->word_), static_cast<TypeParam>(0x80));
  EXPECT_EQ(oss::exchangeFree(&this->word_), static_cast<TypeParam>(0x80));
  EXPECT_EQ(this->word_, TypeParam{0});

  this->word_ = this->kPattern;
  oss::storeZero(&this->word_);
  EXPECT_EQ(this->word_, TypeParam{0});
}

TYPED_TEST(AtomicOfEveryWidth, ATestAndSetChangesBit7Alone) {
  EXPECT_FALSE(oss::testAndSetHeld(&this->word_));
  EXPECT_EQ(this->word_, static_cast<TypeParam>(this->kPattern | static_cast<TypeParam>(0x80)));
  EXPECT_TRUE(oss::testAndSetHeld(&this->word_));
}

TYPED_TEST(AtomicOfEveryWidth, NoAdditionOfConcurrentThreadsIsLost) {
  constexpr int kAdditions = 20'000;
  this->word_ = 0;
  onAllThreads([&] {
    for (int i = 0; i < kAdditions; ++i) oss::fetchAndAdd(&this->word_, 3);
  });
  EXPECT_EQ(this->word_, static_cast<TypeParam>(3 * kThreads * kAdditions));
}

TYPED_TEST(AtomicOfEveryWidth, NoCompareAndSwapOfConcurrentThreadsIsLost) {
  constexpr int kAdditions = 5'000;
  this->word_ = 0;
  onAllThreads([&] {
    for (int i = 0; i < kAdditions; ++i) {
      TypeParam seen = __atomic_load_n(&this->word_, __ATOMIC_RELAXED);
      for (;;) {
        const TypeParam old =
            oss::compareAndSwap(&this->word_, static_cast<TypeParam>(seen + 1), seen);
        if (old == seen) break;
        seen = old;
        oss::pause();
      }
    }
  });
  EXPECT_EQ(this->word_, static_cast<TypeParam>(kThreads * kAdditions));
}

// Both ways of taking a latch let one thread in at a time. What they guard is a plain number.
TYPED_TEST(AtomicOfEveryWidth, NoUpdateUnderALatchIsLost) {
  constexpr int kUpdates = 2'000;
  const auto countWith = [this](auto isRefused) {
    this->word_ = 0;
    int count = 0;
    onAllThreads([&] {
      for (int i = 0; i < kUpdates; ++i) {
        while (isRefused(&this->word_)) std::this_thread::yield();
        ++count;
        oss::storeZero(&this->word_);
      }
    });
    return count;
  };
  EXPECT_EQ(countWith([](volatile TypeParam* latch) { return oss::testAndSetHeld(latch); }),
            kThreads * kUpdates);
  EXPECT_EQ(countWith([](volatile TypeParam* latch) { return oss::exchangeHeld(latch) != 0; }),
            kThreads * kUpdates);
}

// ---- The exported primitives ----

TEST(AtomicPrimitive, ALatchByteIsExchangedWithHeldAndReturnsWhatItWas) {
  for (const int old : {0x00, 0x40, 0x80, 0xC0}) {
    auto latch = static_cast<uint8_t>(old);
    EXPECT_EQ(ossWin32Lock8ExchangeInternal(&latch), old);
    EXPECT_EQ(latch, 0x80);
  }
}

TEST(AtomicPrimitive, AReleaseStoresZeroAndAReturningOneTellsWhatWasThere) {
  uint8_t latch = 0xC0;
  ossWin32Lock8ReleaseInternal(&latch);
  EXPECT_EQ(latch, 0);

  latch = 0xC0;
  EXPECT_EQ(ossWin32Lock8ReleaseAndReturnInternal(&latch), 0xC0);
  EXPECT_EQ(latch, 0);
}

// The one refusal that is no catalogued code, and the one latch operation that keeps the other
// bits.
TEST(AtomicPrimitive, ATestAndGetTestsBit7OfAWordOf32Bits) {
  alignas(4) uint8_t bytes[4] = {0x40, 0xFF, 0x00, 0xFF};
  EXPECT_EQ(ossWin32Lock8TestGetInternal(bytes), 0u);
  EXPECT_EQ(bytes[0], 0xC0);
  EXPECT_EQ(ossWin32Lock8TestGetInternal(bytes), 0x870F0035u);
  EXPECT_EQ(bytes[0], 0xC0);
  EXPECT_EQ(bytes[1], 0xFF);
  EXPECT_EQ(bytes[2], 0x00);
  EXPECT_EQ(bytes[3], 0xFF);
}

TEST(AtomicPrimitive, ExchangesReturnTheOldValueOfTheirWidth) {
  uint8_t byte = 0xAB;
  uint32_t word = 0xABCDEF01;
  uint64_t wide = 0xABCDEF0123456789;
  EXPECT_EQ(ossWin32AtomicExchange8Internal(&byte, 0x12), 0xAB);
  EXPECT_EQ(ossWin32AtomicExchange32Internal(&word, 0x12345678), 0xABCDEF01u);
  EXPECT_EQ(ossWindowsAMD64AtomicExchange64Internal(&wide, 0x123456789ABCDEF0),
            0xABCDEF0123456789u);
  EXPECT_EQ(byte, 0x12);
  EXPECT_EQ(word, 0x12345678u);
  EXPECT_EQ(wide, 0x123456789ABCDEF0u);
}

TEST(AtomicPrimitive, AnAdditionReturnsTheValueBeforeAndWraps) {
  uint32_t word = 0xFFFFFFFE;
  EXPECT_EQ(ossWin32FetchAndAdd32Internal(&word, 5), 0xFFFFFFFEu);
  EXPECT_EQ(word, 3u);
}

TEST(AtomicPrimitive, ACompareAndSwapReturnsTheExpectedValueExactlyWhenItStored) {
  uint8_t byte = 0xAB;
  EXPECT_EQ(ossWin32CompareSwapAndReturn8Internal(&byte, 1, 2), 0xAB);
  EXPECT_EQ(byte, 0xAB);
  EXPECT_EQ(ossWin32CompareSwapAndReturn8Internal(&byte, 1, 0xAB), 0xAB);
  EXPECT_EQ(byte, 1);

  uint16_t half = 0xABCD;
  EXPECT_EQ(ossWin32CompareSwapAndReturn16Internal(&half, 1, 2), 0xABCD);
  EXPECT_EQ(half, 0xABCD);
  EXPECT_EQ(ossWin32CompareSwapAndReturn16Internal(&half, 1, 0xABCD), 0xABCD);
  EXPECT_EQ(half, 1);

  uint32_t word = 0xABCDEF01;
  EXPECT_EQ(ossWin32CompareSwapAndReturn32Internal(&word, 1, 2), 0xABCDEF01u);
  EXPECT_EQ(word, 0xABCDEF01u);
  EXPECT_EQ(ossWin32CompareSwapAndReturn32Internal(&word, 1, 0xABCDEF01), 0xABCDEF01u);
  EXPECT_EQ(word, 1u);

  uint64_t wide = 0xABCDEF0123456789;
  EXPECT_EQ(ossWindowsAMD64CompareSwapAndReturn64Internal(&wide, 1, 2), 0xABCDEF0123456789u);
  EXPECT_EQ(wide, 0xABCDEF0123456789u);
  EXPECT_EQ(ossWindowsAMD64CompareSwapAndReturn64Internal(&wide, 1, 0xABCDEF0123456789),
            0xABCDEF0123456789u);
  EXPECT_EQ(wide, 1u);
}

TEST(AtomicPrimitive, ALoopMayPause) {
  uint32_t rounds = 0;
  while (ossWin32FetchAndAdd32Internal(&rounds, 1) < 9) ossWindowsAMD64EmitPause();
  EXPECT_EQ(rounds, 10u);
}

// ---- The versioned counter ----

OSSVAtomicSigned32 counterHolding(int32_t value) {
  OSSVAtomicSigned32 counter;
  EXPECT_EQ(counter.init(value, 0), ECF_OK);
  return counter;
}

TEST(VersionedCounter, InitStampsTheVersionAndStoresTheValue) {
  const OSSVAtomicSigned32 counter = counterHolding(-5);
  EXPECT_EQ(counter.version, 0x09010007u);
  EXPECT_EQ(counter.value, -5);
  EXPECT_EQ(counter.size(), 4u);
}

TEST(VersionedCounter, InitWithTheKeepFlagLeavesTheValue) {
  OSSVAtomicSigned32 counter = counterHolding(9);
  counter.version = 0;
  EXPECT_EQ(counter.init(5, 2), ECF_OK);
  EXPECT_EQ(counter.value, 9);
  EXPECT_EQ(counter.version, 0x09010007u);

  EXPECT_EQ(counter.init(6, 0xFFFFFFFF), ECF_OK);
  EXPECT_EQ(counter.value, 9);
}

TEST(VersionedCounter, FlagsOtherThanKeepAreIgnored) {
  OSSVAtomicSigned32 counter = counterHolding(9);
  EXPECT_EQ(counter.init(5, ~2u), ECF_OK);
  EXPECT_EQ(counter.value, 5);
}

TEST(VersionedCounter, ChangesReportTheValueBeforeThem) {
  OSSVAtomicSigned32 counter = counterHolding(10);
  int32_t old = 0;

  EXPECT_EQ(counter.add(-15, &old), ECF_OK);
  EXPECT_EQ(old, 10);
  EXPECT_EQ(counter.increment(&old), ECF_OK);
  EXPECT_EQ(old, -5);
  EXPECT_EQ(counter.decrement(&old), ECF_OK);
  EXPECT_EQ(old, -4);
  EXPECT_EQ(counter.swap(100, &old), ECF_OK);
  EXPECT_EQ(old, -5);
  EXPECT_EQ(counter.peek(&old), ECF_OK);
  EXPECT_EQ(old, 100);
  EXPECT_EQ(counter.poke(7), ECF_OK);
  EXPECT_EQ(counter.value, 7);
}

TEST(VersionedCounter, AnIncrementOfTheLargestValueWrapsToTheMostNegative) {
  OSSVAtomicSigned32 counter = counterHolding(0x7FFFFFFF);
  int32_t old = 0;

  EXPECT_EQ(counter.increment(&old), ECF_OK);
  EXPECT_EQ(old, 0x7FFFFFFF);
  EXPECT_EQ(counter.value, std::numeric_limits<int32_t>::min());

  EXPECT_EQ(counter.decrement(&old), ECF_OK);
  EXPECT_EQ(old, std::numeric_limits<int32_t>::min());
  EXPECT_EQ(counter.value, 0x7FFFFFFF);
}

TEST(VersionedCounter, ACompareAndSwapFailsOverAnotherValue) {
  OSSVAtomicSigned32 counter = counterHolding(-1);
  EXPECT_EQ(counter.compareAndSwap(1, 2), ECF_FAILED);
  EXPECT_EQ(counter.value, -1);
  EXPECT_EQ(counter.compareAndSwap(-1, 2), ECF_OK);
  EXPECT_EQ(counter.value, 2);
}

// What every operation answers, in the order of their declaration.
std::vector<OSSErr> answersOf(OSSVAtomicSigned32& counter, int32_t* out) {
  return {counter.peek(out),
          counter.poke(1),
          counter.add(1, out),
          counter.increment(out),
          counter.decrement(out),
          counter.swap(1, out),
          counter.compareAndSwap(counter.value, 1)};
}

TEST(VersionedCounter, ARecordThatIsTooOldRejectsEveryOperationUntouched) {
  for (const uint32_t version : {0u, 20040701u}) {
    OSSVAtomicSigned32 counter = counterHolding(9);
    counter.version = version;
    int32_t out = 77;

    EXPECT_EQ(answersOf(counter, &out), std::vector<OSSErr>(7, ECF_INVALID_VERSION));
    EXPECT_EQ(counter.value, 9);
    EXPECT_EQ(out, 77);
    EXPECT_EQ(counter.size(), 4u);
  }
}

TEST(VersionedCounter, TheOldestVersionIsAccepted) {
  OSSVAtomicSigned32 counter = counterHolding(9);
  counter.version = 20040702;
  int32_t out = 0;
  EXPECT_EQ(answersOf(counter, &out), std::vector<OSSErr>(7, ECF_OK));
}

TEST(VersionedCounter, AnOperationWithoutAPlaceForItsResultChangesNothing) {
  OSSVAtomicSigned32 counter = counterHolding(9);
  EXPECT_EQ(counter.peek(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(counter.add(1, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(counter.increment(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(counter.decrement(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(counter.swap(1, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(counter.value, 9);
}

TEST(VersionedCounter, ConcurrentThreadsEachSeeAnotherValue) {
  constexpr int kIncrements = 10'000;
  OSSVAtomicSigned32 counter = counterHolding(0);
  std::vector<uint8_t> seen(kThreads * kIncrements);

  onAllThreads([&] {
    int32_t old = 0;
    for (int i = 0; i < kIncrements; ++i) {
      counter.increment(&old);
      ++seen[static_cast<size_t>(old)];  // nobody else gets this one
    }
  });

  EXPECT_EQ(counter.value, kThreads * kIncrements);
  EXPECT_EQ(seen, std::vector<uint8_t>(kThreads * kIncrements, 1));
}

}  // namespace
