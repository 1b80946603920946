// Amounts of memory, as records tell them.
#include "sysinfo/ossmemoryamounts.h"

#include <gtest/gtest.h>

using namespace oss;

namespace {

constexpr uint64_t kMebibyte = 1'048'576;

TEST(Mebibytes, AreRoundedUp) {
  EXPECT_EQ(mebibytes(0), 0u);
  EXPECT_EQ(mebibytes(1), 1u);
  EXPECT_EQ(mebibytes(kMebibyte - 1), 1u);
  EXPECT_EQ(mebibytes(kMebibyte), 1u);
  EXPECT_EQ(mebibytes(kMebibyte + 1), 2u);
  EXPECT_EQ(mebibytes(0 - kMebibyte), 0xFFFFFFFFFFFu);
  EXPECT_EQ(mebibytes(0 - 2 * kMebibyte), 0xFFFFFFFFFFEu);
}

// Deliberate: the sum wraps around.
TEST(Mebibytes, OfTheLastMebibyteBelowTheEndAreNone) {
  EXPECT_EQ(mebibytes(0 - kMebibyte + 1), 0u);
  EXPECT_EQ(mebibytes(~uint64_t{0}), 0u);
}

TEST(PhysicalMemory, UsableIsNoMoreThanTheAddressSpaceHasLeft) {
  for (const uint64_t left : {3 * kMebibyte, 5 * kMebibyte, 9 * kMebibyte}) {
    OSSPhysMemInfo info;
    info.usable.status = ECF_NOT_SUPPORTED;
    fillFrom({.totalPhysical = 8 * kMebibyte,
              .availablePhysical = 5 * kMebibyte,
              .totalPageFile = 0,
              .availablePageFile = 0,
              .totalVirtual = 100 * kMebibyte,
              .availableVirtual = left},
             info);
    EXPECT_EQ(info.total.value, 8);
    EXPECT_EQ(info.available.value, 5);
    EXPECT_EQ(info.usable.value, left < 5 * kMebibyte ? 3 : 5);
    EXPECT_EQ(info.usable.status, 0u);
    EXPECT_EQ(info.addressSpace.value, 100);
  }
}

// Deliberate: no clamp.
TEST(SwapSpace, BelowPhysicalMemoryWrapsAroundBeforeItIsRounded) {
  OSSPhysSwapInfo info;
  fillFrom({.totalPhysical = 8 * kMebibyte,
            .availablePhysical = 5 * kMebibyte,
            .totalPageFile = 6 * kMebibyte,
            .availablePageFile = 5 * kMebibyte - 1,
            .totalVirtual = 0,
            .availableVirtual = 0},
           info);
  EXPECT_EQ(info.total.value, 0xFFFFFFFFFFE);
  EXPECT_EQ(info.available.value, 0);
}

}  // namespace
