// Tests of the 128-bit integers against the compiler's own.
#include "ossint128.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include "native128.h"

namespace {

constexpr int kRandomPairs = 10'000'000;
constexpr int kRandomNumbers = 10'000'000;
constexpr int kRandomTexts = 1'000'000;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

const Uint128 kUnsignedLimit(fromNative(kAllOnes));
const Sint128 kMostNegative(fromNative(kSignBit));
const Sint128 kLargest(fromNative(kSignBit - 1));

Uint128 asUnsigned(Native bits) { return Uint128(fromNative(bits)); }
Sint128 asSigned(Native bits) { return Sint128(fromNative(bits)); }

// ---- Bits ----

TEST(Int128, IsTwoWordsWithTheLowOneFirst) {
  const int128 value(0x0123456789ABCDEF, 0xFEDCBA9876543210);
  uint64_t words[2];
  static_assert(sizeof words == sizeof value);
  std::memcpy(words, &value, sizeof value);

  EXPECT_EQ(words[0], 0x0123456789ABCDEFu);
  EXPECT_EQ(words[1], 0xFEDCBA9876543210u);
  EXPECT_TRUE(std::is_trivially_copyable_v<Uint128> && std::is_trivially_copyable_v<Sint128>);
}

TEST(Int128, ASignedIntegerIsExtendedByItsSignAndAnUnsignedOneByZeros) {
  EXPECT_EQ(toNative(Sint128(int32_t{-2})), kAllOnes - 1);
  EXPECT_EQ(toNative(Sint128(int64_t{-2})), kAllOnes - 1);
  EXPECT_EQ(toNative(Uint128(int32_t{-2})), kAllOnes - 1);
  EXPECT_EQ(toNative(Sint128(std::numeric_limits<int64_t>::max())), Native{0x7FFFFFFFFFFFFFFF});
  EXPECT_EQ(toNative(Sint128(uint32_t{0xFFFFFFFF})), Native{0xFFFFFFFF});
  EXPECT_EQ(toNative(Sint128(uint64_t{0xFFFFFFFFFFFFFFFF})), Native{0xFFFFFFFFFFFFFFFF});
  EXPECT_EQ(toNative(Uint128()), Native{0});
}

TEST(Int128, ValuesAreEqualWhenAllTheirBitsAre) {
  EXPECT_EQ(Uint128(uint64_t{5}), asUnsigned(5));
  EXPECT_NE(asUnsigned(5), asUnsigned(5 + (Native{1} << 64)));
  EXPECT_NE(asUnsigned((Native{1} << 53) + 1), asUnsigned(Native{1} << 53));  // equal as doubles
}

// ---- To decimal text ----

// The buffer after a conversion, up to where it was not touched.
struct Written {
  int result;
  std::string buffer;
  bool operator==(const Written&) const = default;
};
void PrintTo(const Written& written, std::ostream* out) {
  *out << written.result << ", " << testing::PrintToString(written.buffer);
}

constexpr char kUntouched = '#';

Written write(Native bits, size_t size, bool asSigned) {
  char buffer[64];
  std::memset(buffer, kUntouched, sizeof buffer);
  const int result = DecimalText(fromNative(bits)).write(buffer, size, asSigned);
  return {result, std::string(buffer, std::string(buffer, sizeof buffer).find(kUntouched))};
}

Written whole(const std::string& text) {
  return {static_cast<int>(text.size()), text + std::string(1, '\0')};
}

Written refused(const std::string& left) { return {-1, left}; }

TEST(Int128ToText, ZeroNeedsRoomForItsDigitAndTheTerminator) {
  EXPECT_EQ(write(0, 0, false), refused(""));
  EXPECT_EQ(write(0, 1, false), refused(""));
  EXPECT_EQ(write(0, 2, false), whole("0"));
  EXPECT_EQ(write(0, 2, true), whole("0"));
}

TEST(Int128ToText, AllOnesIsMinusOneAsSignedAndTheLargestNumberAsUnsigned) {
  EXPECT_EQ(write(kAllOnes, 3, true), whole("-1"));
  EXPECT_EQ(write(kAllOnes, 40, false), whole("340282366920938463463374607431768211455"));
  EXPECT_EQ(write(kAllOnes, 39, false), refused(""));
}

TEST(Int128ToText, TheMostNegativeValueHasNoPositiveCounterpartAndIsWrittenAllTheSame) {
  EXPECT_EQ(write(kSignBit, 41, true), whole("-170141183460469231731687303715884105728"));
  EXPECT_EQ(write(kSignBit, 40, true), refused("-"));
  EXPECT_EQ(write(kSignBit, 40, false), whole("170141183460469231731687303715884105728"));
}

TEST(Int128ToText, ANegativeValueThatDoesNotFitLeavesItsSignInTheBuffer) {
  EXPECT_EQ(write(0 - Native{42}, 4, true), whole("-42"));
  EXPECT_EQ(write(0 - Native{42}, 3, true), refused("-"));
  EXPECT_EQ(write(0 - Native{42}, 1, true), refused("-"));
  EXPECT_EQ(write(0 - Native{42}, 0, true), refused(""));
}

TEST(Int128ToText, NullHasNoRoom) {
  EXPECT_EQ(DecimalText(int128(uint32_t{7})).write(nullptr, 40, false), -1);
}

// Around each power of ten the number of digits changes, and with it the room that is needed.
TEST(Int128ToText, EveryPowerOfTenAndItsNeighboursAreWrittenWhole) {
  Native power = 1;
  for (int exponent = 0; exponent <= 38; ++exponent, power *= 10) {
    for (const Native value : {power - 1, power, power + 1}) {
      const std::string text = decimalText(value);
      ASSERT_EQ(write(value, text.size() + 1, false), whole(text));
      ASSERT_EQ(write(value, text.size(), false), refused(""));
      ASSERT_EQ(write(0 - value, 41, true), whole(signedDecimalText(0 - value)));
    }
  }
}

TEST(Int128ToText, RandomValuesAreWrittenAsRepeatedDivisionByTenWritesThem) {
  Random random(1);
  for (int i = 0; i < kRandomTexts; ++i) {
    const Native value = random.wide();
    ASSERT_EQ(write(value, 41, false), whole(decimalText(value)));
    ASSERT_EQ(write(value, 41, true), whole(signedDecimalText(value)));
  }
}

// ---- From decimal text ----

Native read(const char* text) { return toNative(DecimalText::read(text)); }
Native minus(uint64_t value) { return 0 - Native{value}; }

TEST(Int128FromText, WhiteSpaceAndLeadingZerosAreSkipped) {
  EXPECT_EQ(read("  -0042"), minus(42));
  EXPECT_EQ(read(" \t\n\v\f\r7"), Native{7});
  EXPECT_EQ(read("0000000000000000000000000000000000000000000000000009"), Native{9});
}

TEST(Int128FromText, TextAfterTheDigitsTakesTheSignAway) {
  EXPECT_EQ(read("-42"), minus(42));
  EXPECT_EQ(read("-42 "), Native{42});
  EXPECT_EQ(read("-12x"), Native{12});
  EXPECT_EQ(read("-12345678x"), Native{12345678});
  EXPECT_EQ(read("12x"), Native{12});
}

TEST(Int128FromText, APlusMayStandBeforeAMinusButNotBehindIt) {
  EXPECT_EQ(read("+5"), Native{5});
  EXPECT_EQ(read("+-5"), minus(5));
  EXPECT_EQ(read("-+5"), Native{0});
  EXPECT_EQ(read("--5"), Native{0});
  EXPECT_EQ(read("- 5"), Native{0});
}

TEST(Int128FromText, NothingButZerosAndSignsIsZero) {
  for (const char* text : {"", "   ", "+", "-", "+-", "0", "-0", "+-000", "x", "-x"})
    EXPECT_EQ(read(text), Native{0}) << '"' << text << '"';
  EXPECT_EQ(DecimalText::read(nullptr), int128());
}

// The neighbours of the decimal digits, and characters above 127.
TEST(Int128FromText, OnlyDecimalDigitsAreDigits) {
  for (const char* text : {"12/3", "12:3",
                           "12\xB2"
                           "3",
                           "12\xFF"
                           "3",
                           "12a3"})
    EXPECT_EQ(read(text), Native{12}) << text;
}

TEST(Int128FromText, DigitsBeyond128BitsWrap) {
  EXPECT_EQ(read("340282366920938463463374607431768211455"), kAllOnes);
  EXPECT_EQ(read("340282366920938463463374607431768211456"), Native{0});
  EXPECT_EQ(read("-340282366920938463463374607431768211456"), Native{0});
  EXPECT_EQ(read("340282366920938463463374607431768211499"), Native{43});
  EXPECT_EQ(read("-170141183460469231731687303715884105728"), kSignBit);
}

TEST(Int128FromText, DigitsOfAnyNumberAreReadAsOneByOne) {
  Random random(2);
  for (int i = 0; i < kRandomTexts; ++i) {
    std::string text;
    Native expected = 0;
    for (uint32_t left = random.below(60); left != 0; --left) {
      const uint32_t digit = random.below(10);
      text += static_cast<char>('0' + digit);
      expected = expected * 10 + digit;
    }
    ASSERT_EQ(read(text.c_str()), expected) << text;
    ASSERT_EQ(read(("-" + text).c_str()), 0 - expected) << text;
    ASSERT_EQ(read(("-" + text + ".").c_str()), expected) << text;
  }
}

// ---- From binary floating point ----

TEST(Uint128FromDouble, TheFractionIsDroppedAndNegativeNumbersAreZero) {
  EXPECT_EQ(Uint128(3.7), asUnsigned(3));
  EXPECT_EQ(Uint128(3.7f), asUnsigned(3));
  EXPECT_EQ(Uint128(0.999), asUnsigned(0));
  EXPECT_EQ(Uint128(-3.7), asUnsigned(0));
  EXPECT_EQ(Uint128(-0.5), asUnsigned(0));
  EXPECT_EQ(Uint128(-0.0), asUnsigned(0));
  EXPECT_EQ(Uint128(-1e30f), asUnsigned(0));
  EXPECT_EQ(Uint128(std::numeric_limits<double>::denorm_min()), asUnsigned(0));
}

TEST(Uint128FromDouble, WhatIsTooLargeIsAllOnes) {
  EXPECT_EQ(Uint128(std::ldexp(1.0, 127)), asUnsigned(kSignBit));
  EXPECT_EQ(Uint128(std::ldexp(1.0, 128)), kUnsignedLimit);
  EXPECT_EQ(Uint128(std::ldexp(1.0, 130)), kUnsignedLimit);
  EXPECT_EQ(Uint128(kInfinity), kUnsignedLimit);
  EXPECT_EQ(Uint128(-kInfinity), asUnsigned(0));
  EXPECT_EQ(Uint128(std::numeric_limits<float>::infinity()), kUnsignedLimit);
}

TEST(Uint128FromDouble, ANanGoesByItsSign) {
  EXPECT_EQ(Uint128(std::copysign(kNan, 1.0)), kUnsignedLimit);
  EXPECT_EQ(Uint128(std::copysign(kNan, -1.0)), asUnsigned(0));
}

TEST(Uint128FromDouble, TheLargestFloatIsExact) {
  EXPECT_EQ(Uint128(std::numeric_limits<float>::max()), asUnsigned(Native{0xFFFFFF} << 104));
}

TEST(Sint128FromDouble, TheFractionIsDroppedTowardZero) {
  EXPECT_EQ(Sint128(3.7), Sint128(3));
  EXPECT_EQ(Sint128(-3.7), Sint128(-3));
  EXPECT_EQ(Sint128(-3.7f), Sint128(-3));
  EXPECT_EQ(Sint128(-0.999), Sint128(0));
  EXPECT_EQ(Sint128(-std::ldexp(1.0, 126)), asSigned(0 - (Native{1} << 126)));
}

TEST(Sint128FromDouble, WhatIsOutOfRangeIsTheEndOfTheRangeOnThatSide) {
  EXPECT_EQ(Sint128(std::ldexp(1.0, 127)), kLargest);
  EXPECT_EQ(Sint128(std::ldexp(1.0, 130)), kLargest);
  EXPECT_EQ(Sint128(-std::ldexp(1.0, 127)), kMostNegative);
  EXPECT_EQ(Sint128(-std::ldexp(1.0, 130)), kMostNegative);
  EXPECT_EQ(Sint128(std::numeric_limits<float>::infinity()), kLargest);
  EXPECT_EQ(Sint128(-kInfinity), kMostNegative);
  EXPECT_EQ(Sint128(std::copysign(kNan, 1.0)), kLargest);
  EXPECT_EQ(Sint128(std::copysign(kNan, -1.0)), kMostNegative);
}

TEST(Int128FromDouble, RandomNumbersInRangeConvertLikeTheCompilersOwnTypes) {
  const double kTwoTo127 = std::ldexp(1.0, 127);
  Random random(3);
  for (int i = 0; i < kRandomNumbers; ++i) {
    const double fraction = 1.0 + std::ldexp(static_cast<double>(random.next() >> 12), -52);
    const double number = std::ldexp(fraction, static_cast<int>(random.below(130)) - 3);
    const auto single =
        static_cast<float>(std::ldexp(fraction, static_cast<int>(random.below(120))));

    if (toNative(Uint128(number)) != static_cast<Native>(number)) FAIL() << number;
    if (toNative(Uint128(single)) != static_cast<Native>(single)) FAIL() << single;
    if (toNative(Sint128(-single)) != 0 - static_cast<Native>(single)) FAIL() << -single;
    if (number < kTwoTo127 && toNative(Sint128(-number)) != 0 - static_cast<Native>(number))
      FAIL() << -number;
  }
}

// ---- To double ----

TEST(Int128ToDouble, BitsBelowTheUpper53AreDroppedAndNotRounded) {
  const Native odd = (Native{1} << 53) + 1;
  EXPECT_EQ(static_cast<double>(asUnsigned(odd)), std::ldexp(1.0, 53));
  EXPECT_EQ(static_cast<double>(asUnsigned((Native{1} << 54) + 3)), std::ldexp(1.0, 54));
  EXPECT_EQ(static_cast<double>(kUnsignedLimit), std::ldexp(1.0, 128) - std::ldexp(1.0, 75));
  EXPECT_EQ(static_cast<double>(asSigned(0 - odd)), -std::ldexp(1.0, 53));
}

TEST(Int128ToDouble, SmallNumbersAreExact) {
  EXPECT_EQ(static_cast<double>(Uint128()), 0.0);
  EXPECT_EQ(static_cast<double>(Uint128(uint32_t{1})), 1.0);
  EXPECT_EQ(static_cast<double>(Sint128(-7)), -7.0);
  EXPECT_EQ(static_cast<double>(kMostNegative), -std::ldexp(1.0, 127));
}

TEST(Int128ToDouble, RandomValuesKeepTheirUpper53Bits) {
  Random random(4);
  for (int i = 0; i < kRandomNumbers; ++i) {
    const Native value = random.wide();
    int dropped = 0;
    Native kept = value;
    for (; kept >> 53 != 0; kept >>= 1) ++dropped;
    const double expected = std::ldexp(static_cast<double>(static_cast<uint64_t>(kept)), dropped);

    if (static_cast<double>(asUnsigned(value)) != expected) FAIL() << decimalText(value);
    if (!isNegative(value) && static_cast<double>(asSigned(0 - value)) != -expected)
      FAIL() << '-' << decimalText(value);
  }
}

// ---- Multiplication ----

TEST(Uint128, MultipliesLikeTheCompilersOwnType) {
  Random random(5);
  for (int i = 0; i < kRandomPairs; ++i) {
    const Native x = random.wide(), y = random.wide();
    if (toNative(asUnsigned(x) * asUnsigned(y)) != x * y)
      FAIL() << decimalText(x) << " * " << decimalText(y);
  }
}

// The magnitudes are multiplied, and the product takes the sign.
TEST(Sint128, MultipliesLikeTheCompilersOwnType) {
  Random random(6);
  for (int i = 0; i < kRandomPairs; ++i) {
    const Native x = random.wide(), y = random.wide();
    const Native product = magnitude(x) * magnitude(y);
    const Native expected = isNegative(x) != isNegative(y) ? 0 - product : product;
    if (toNative(asSigned(x) * asSigned(y)) != expected)
      FAIL() << signedDecimalText(x) << " * " << signedDecimalText(y);
  }
}

// ---- Division ----

Native expectedQuotient(Native dividend, Native divisor) {
  return divisor != 0 ? dividend / divisor : kAllOnes;
}

Native expectedSignedQuotient(Native dividend, Native divisor) {
  if (divisor == 0) return isNegative(dividend) ? kSignBit : kSignBit - 1;
  const Native quotient = magnitude(dividend) / magnitude(divisor);
  return isNegative(dividend) != isNegative(divisor) ? 0 - quotient : quotient;
}

TEST(Uint128, DividesLikeTheCompilersOwnType) {
  Random random(7);
  for (int i = 0; i < kRandomPairs; ++i) {
    const Native x = random.wide(), y = random.wide();
    if (toNative(asUnsigned(x) / asUnsigned(y)) != expectedQuotient(x, y))
      FAIL() << decimalText(x) << " / " << decimalText(y);
  }
}

// A product, and the values beside it, lie where a quotient changes: there a trial that is one too
// large must be noticed.
TEST(Uint128, DividesProductsAndTheirNeighbours) {
  Random random(8);
  for (int i = 0; i < kRandomPairs; ++i) {
    const Native y = random.wide();
    const Native x = random.wide() * y - 1 + random.below(3);
    if (toNative(asUnsigned(x) / asUnsigned(y)) != expectedQuotient(x, y))
      FAIL() << decimalText(x) << " / " << decimalText(y);
  }
}

TEST(Sint128, DividesLikeTheCompilersOwnType) {
  Random random(9);
  for (int i = 0; i < kRandomPairs; ++i) {
    const Native x = random.wide(), y = random.wide();
    if (toNative(asSigned(x) / asSigned(y)) != expectedSignedQuotient(x, y))
      FAIL() << signedDecimalText(x) << " / " << signedDecimalText(y);
  }
}

TEST(Sint128, DividesInPlaceByAnUnsignedDivisor) {
  Random random(10);
  for (int i = 0; i < kRandomPairs; ++i) {
    const Native x = random.wide();
    const auto y = static_cast<uint32_t>(random.wide());
    Sint128 value = asSigned(x);
    value /= y;
    if (toNative(value) != expectedSignedQuotient(x, y))
      FAIL() << signedDecimalText(x) << " /= " << y;
  }
}

TEST(Sint128, DividesInPlaceAndGivesItself) {
  Sint128 value(-100);
  EXPECT_EQ(&(value /= 7u), &value);
  EXPECT_EQ(value, Sint128(-14));
  EXPECT_EQ(value /= 0x80000000u, Sint128(0));
}

TEST(Int128, DivisionTruncatesTowardZero) {
  EXPECT_EQ(Sint128(-7) / Sint128(2), Sint128(-3));
  EXPECT_EQ(Sint128(7) / Sint128(-2), Sint128(-3));
  EXPECT_EQ(Sint128(-7) / Sint128(-2), Sint128(3));
  EXPECT_EQ(Uint128(7) / Uint128(8), Uint128(0));
}

TEST(Int128, DivisionByZeroGivesTheEndOfTheRangeAndDoesNotFault) {
  for (const Native dividend : {Native{0}, Native{1}, Native{1} << 64, kAllOnes})
    EXPECT_EQ(asUnsigned(dividend) / Uint128(), kUnsignedLimit);

  EXPECT_EQ(Sint128(0) / Sint128(), kLargest);
  EXPECT_EQ(Sint128(1) / Sint128(), kLargest);
  EXPECT_EQ(Sint128(-1) / Sint128(), kMostNegative);
  EXPECT_EQ(kMostNegative / Sint128(), kMostNegative);

  Sint128 value(-5);
  EXPECT_EQ(value /= 0u, kMostNegative);
}

TEST(Sint128, TheMostNegativeValueByMinusOneIsItself) {
  EXPECT_EQ(kMostNegative / Sint128(-1), kMostNegative);
  EXPECT_EQ(kMostNegative * Sint128(-1), kMostNegative);
  EXPECT_EQ(kLargest / Sint128(-1), asSigned(kSignBit + 1));
}

}  // namespace
