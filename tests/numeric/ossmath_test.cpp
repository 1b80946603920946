// Tests of the integer helpers, against wide integers.
#include "ossmath.h"

#include <gtest/gtest.h>

#include <limits>

#include "native128.h"

namespace {

constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
constexpr int kRandomPairs = 200'000;

// By subtraction of halves, so not the way the library goes.
uint64_t greatestDivisor(uint64_t a, uint64_t b) {
  if (a == 0 || b == 0) return a | b;
  int twos = 0;
  for (; ((a | b) & 1) == 0; a >>= 1, b >>= 1) ++twos;
  while ((a & 1) == 0) a >>= 1;
  while (b != 0) {
    while ((b & 1) == 0) b >>= 1;
    if (a > b) std::swap(a, b);
    b -= a;
  }
  return a << twos;
}

TEST(Math, TheGreatestCommonDivisorOfANumberAndZeroIsTheNumber) {
  EXPECT_EQ(ossComputeGCD(12, 18), 6u);
  EXPECT_EQ(ossComputeGCD(7, 0), 7u);
  EXPECT_EQ(ossComputeGCD(0, 5), 5u);
  EXPECT_EQ(ossComputeGCD(0, 0), 0u);
  EXPECT_EQ(ossComputeGCD(kMax, kMax), kMax);
  EXPECT_EQ(ossComputeGCD(kMax, 1), 1u);
  EXPECT_EQ(ossComputeGCD(uint64_t{1} << 63, uint64_t{1} << 40), uint64_t{1} << 40);
  EXPECT_EQ(ossComputeGCD(12200160415121876738U, 7540113804746346429U), 1u);  // Fibonacci
}

TEST(Math, TheLeastCommonMultipleOfZeroAndANumberIsZero) {
  EXPECT_EQ(ossComputeLCM(4, 6), 12u);
  EXPECT_EQ(ossComputeLCM(0, 0), 0u);
  EXPECT_EQ(ossComputeLCM(0, 5), 0u);
  EXPECT_EQ(ossComputeLCM(5, 0), 0u);
}

TEST(Math, TheProductWrapsBeforeItIsDivided) {
  EXPECT_EQ(ossComputeLCM(uint64_t{1} << 33, uint64_t{1} << 33), 0u);  // the multiple fits
  EXPECT_EQ(ossComputeLCM(6'000'000'000, 6'000'000'000),
            (6'000'000'000 * uint64_t{6'000'000'000}) / 6'000'000'000);
  EXPECT_EQ(ossComputeLCM(kMax, kMax), 1 / kMax);
  EXPECT_EQ(ossComputeLCM(kMax, 2), kMax - 1);
}

TEST(Math, DivisorsAndMultiplesAreThoseOfWideIntegers) {
  Random random(3);
  for (int i = 0; i < kRandomPairs; ++i) {
    const Native wide = random.wide();
    const auto common = static_cast<uint64_t>(wide >> (i % 128)) | 1;
    const uint64_t a = static_cast<uint64_t>(wide) >> (i % 64) << (i % 7);
    const uint64_t b = static_cast<uint64_t>(wide >> 64) % common * (common % 1000);

    const uint64_t divisor = greatestDivisor(a, b);
    ASSERT_EQ(ossComputeGCD(a, b), divisor) << a << ' ' << b;
    ASSERT_EQ(ossComputeGCD(b, a), divisor) << a << ' ' << b;
    const Native product = Native{a} * b;
    const uint64_t multiple = divisor != 0 ? static_cast<uint64_t>(product) / divisor : 0;
    ASSERT_EQ(ossComputeLCM(a, b), multiple) << a << ' ' << b;
    if (divisor != 0 && product >> 64 == 0) {
      ASSERT_EQ(Native{multiple}, product / divisor) << a << ' ' << b;
    }
  }
}

TEST(Math, TheMontgomeryInverseIsTheNegativeInverseOfTheOddPart) {
  EXPECT_EQ(ossComputeMontgomeryInverse32(1), 0xFFFFFFFFu);
  EXPECT_EQ(ossComputeMontgomeryInverse32(3), 0x55555555u);
  EXPECT_EQ(ossComputeMontgomeryInverse32(12), ossComputeMontgomeryInverse32(3));
  EXPECT_EQ(ossComputeMontgomeryInverse32(0x80000000u), ossComputeMontgomeryInverse32(1));
  EXPECT_EQ(ossComputeMontgomeryInverse32(0xFFFFFFFFu), 1u);
}

TEST(Math, TheMontgomeryInverseOfZeroIsZero) { EXPECT_EQ(ossComputeMontgomeryInverse32(0), 0u); }

TEST(Math, ANumberTimesItsMontgomeryInverseIsMinusOne) {
  Random random(4);
  for (int i = 0; i < kRandomPairs; ++i) {
    const auto odd = static_cast<uint32_t>(random.wide()) | 1;
    const uint64_t product = uint64_t{odd} * ossComputeMontgomeryInverse32(odd);
    ASSERT_EQ(product % (uint64_t{1} << 32), 0xFFFFFFFFu) << odd;
    ASSERT_EQ(ossComputeMontgomeryInverse32(odd << (i % 32)),
              ossComputeMontgomeryInverse32((odd << (i % 32)) >> __builtin_ctz(odd << (i % 32))));
  }
}

}  // namespace
