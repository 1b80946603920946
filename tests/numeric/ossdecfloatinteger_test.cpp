// Tests of the conversions between decimal floating point and integers.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "decfloattext.h"
#include "native128.h"

namespace {

constexpr uint64_t kMax64 = std::numeric_limits<uint64_t>::max();
constexpr int64_t kLeast64 = std::numeric_limits<int64_t>::min();

OSSErr convert(const OSSDecfloat& number, uint32_t* value) { return number.toUInt32(value); }
OSSErr convert(const OSSDecfloat& number, int32_t* value) { return number.toSInt32(value); }
OSSErr convert(const OSSDecfloat& number, uint64_t* value) { return number.toUInt64(value); }
OSSErr convert(const OSSDecfloat& number, int64_t* value) { return number.toSInt64(value); }

template <class Integer>
struct Converted {
  OSSErr rc;
  Integer value;
  bool operator==(const Converted&) const = default;
};
template <class Integer>
void PrintTo(const Converted<Integer>& converted, std::ostream* out) {
  *out << std::hex << converted.rc << ", " << std::dec << converted.value;
}

template <class Integer>
Converted<Integer> to(const OSSDecfloat& number) {
  Converted<Integer> result = {0, 77};
  result.rc = convert(number, &result.value);
  return result;
}

template <class Integer>
Converted<Integer> to(const std::string& text) {
  return to<Integer>(OSSDecfloat34(text.c_str()));
}

template <class Integer>
Converted<Integer> refused(OSSErr rc) {
  return {rc, 0};
}

// ---- From integers ----

TEST(DecfloatFromInteger, ThirtyTwoBitsArriveWithTheZerosOfFifteenDigits) {
  OSSDecfloat16 number;
  EXPECT_EQ(number.fromUInt32(7), ECF_OK);
  EXPECT_EQ(textOf(number), "7.00000000000000");
  EXPECT_EQ(number.fromUInt32(0), ECF_OK);
  EXPECT_EQ(textOf(number), "0E-14");
  EXPECT_EQ(number.fromUInt32(4294967295U), ECF_OK);
  EXPECT_EQ(textOf(number), "4294967295.00000");
  EXPECT_EQ(number.fromSInt32(std::numeric_limits<int32_t>::min()), ECF_OK);
  EXPECT_EQ(textOf(number), "-2147483648.00000");
  EXPECT_EQ(number.fromSInt32(-1), ECF_OK);
  EXPECT_EQ(textOf(number), "-1.00000000000000");
}

TEST(DecfloatFromInteger, SixtyFourBitsArriveExactlyAndWithoutZeros) {
  OSSDecfloat34 number;
  EXPECT_EQ(number.fromUInt64(7), ECF_OK);
  EXPECT_EQ(textOf(number), "7");
  EXPECT_EQ(number.fromUInt64(0), ECF_OK);
  EXPECT_EQ(textOf(number), "0");
  EXPECT_EQ(number.fromUInt64(kMax64), ECF_OK);
  EXPECT_EQ(textOf(number), "18446744073709551615");
  EXPECT_EQ(number.fromSInt64(kLeast64), ECF_OK);
  EXPECT_EQ(textOf(number), "-9223372036854775808");
  EXPECT_EQ(number.fromSInt64(-1), ECF_OK);
  EXPECT_EQ(textOf(number), "-1");
}

TEST(DecfloatFromInteger, SixtyFourBitsAreRoundedToTheDigitsOfTheFormat) {
  OSSDecfloat16 number;
  EXPECT_EQ(number.fromUInt64(kMax64), ECF_OK);
  EXPECT_EQ(textOf(number), "1.844674407370955E+19");
  EXPECT_EQ(number.setRoundingMode(OSS_DECFLOAT_ROUND_UP), ECF_OK);
  EXPECT_EQ(number.fromSInt64(kLeast64), ECF_OK);
  EXPECT_EQ(textOf(number), "-9.223372036854776E+18");
}

// ---- To integers ----

TEST(DecfloatToInteger, WhatIsBehindThePointIsCutOff) {
  EXPECT_EQ(to<int32_t>("-0.9"), (Converted<int32_t>{ECF_OK, 0}));
  EXPECT_EQ(to<int32_t>("-1.9"), (Converted<int32_t>{ECF_OK, -1}));
  EXPECT_EQ(to<uint32_t>("4294967295.999"), (Converted<uint32_t>{ECF_OK, 4294967295U}));
  EXPECT_EQ(to<uint64_t>("0.99999999999999999999999999"), (Converted<uint64_t>{ECF_OK, 0}));
  EXPECT_EQ(to<int64_t>("1E-6000"), (Converted<int64_t>{ECF_OK, 0}));
}

TEST(DecfloatToInteger, NoNegativeNumberIsUnsignedNotEvenMinusZero) {
  for (const char* text : {"-0", "-0.5", "-0E-100", "-1"}) {
    EXPECT_EQ(to<uint32_t>(text), refused<uint32_t>(ECF_DECFLOAT_OUT_OF_RANGE)) << text;
    EXPECT_EQ(to<uint64_t>(text), refused<uint64_t>(ECF_DECFLOAT_OUT_OF_RANGE)) << text;
  }
  EXPECT_EQ(to<int32_t>("-0"), (Converted<int32_t>{ECF_OK, 0}));
  EXPECT_EQ(to<int64_t>("-0"), (Converted<int64_t>{ECF_OK, 0}));
}

TEST(DecfloatToInteger, SpecialValuesAreRefused) {
  for (const char* text : {"Infinity", "-Infinity", "NaN", "-sNaN", "junk"}) {
    EXPECT_EQ(to<uint32_t>(text), refused<uint32_t>(ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR)) << text;
    EXPECT_EQ(to<int32_t>(text), refused<int32_t>(ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR)) << text;
    EXPECT_EQ(to<uint64_t>(text), refused<uint64_t>(ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR)) << text;
    EXPECT_EQ(to<int64_t>(text), refused<int64_t>(ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR)) << text;
  }
}

TEST(DecfloatToInteger, AnObjectWithoutAValueIsZero) {
  EXPECT_EQ(to<uint32_t>(OSSDecfloat16()), (Converted<uint32_t>{ECF_OK, 0}));
  EXPECT_EQ(to<int64_t>(OSSDecfloat34()), (Converted<int64_t>{ECF_OK, 0}));
}

// The range is tested by the digits before the point, of which a zero with an exponent has many.
TEST(DecfloatToInteger, AZeroIsOutOfRangeWhenItsExponentMakesItTooLong) {
  EXPECT_EQ(to<uint32_t>("0E+9"), (Converted<uint32_t>{ECF_OK, 0}));
  EXPECT_EQ(to<uint32_t>("0E+10"), refused<uint32_t>(ECF_DECFLOAT_OUT_OF_RANGE));
  EXPECT_EQ(to<int32_t>("0E+9"), (Converted<int32_t>{ECF_OK, 0}));
  EXPECT_EQ(to<int32_t>("0E+10"), refused<int32_t>(ECF_DECFLOAT_OUT_OF_RANGE));
  EXPECT_EQ(to<uint64_t>("0E+19"), (Converted<uint64_t>{ECF_OK, 0}));
  EXPECT_EQ(to<uint64_t>("0E+20"), refused<uint64_t>(ECF_DECFLOAT_OUT_OF_RANGE));
  EXPECT_EQ(to<int64_t>("0E+18"), (Converted<int64_t>{ECF_OK, 0}));
  EXPECT_EQ(to<int64_t>("0E+19"), refused<int64_t>(ECF_DECFLOAT_OUT_OF_RANGE));
}

TEST(DecfloatToInteger, NumbersLongerThanTheTypeAreOutOfRange) {
  EXPECT_EQ(to<uint64_t>("100000000000000000000"), refused<uint64_t>(ECF_DECFLOAT_OUT_OF_RANGE));
  EXPECT_EQ(to<uint64_t>("1E+6144"), refused<uint64_t>(ECF_DECFLOAT_OUT_OF_RANGE));
  EXPECT_EQ(to<int32_t>("-1E+369"), refused<int32_t>(ECF_DECFLOAT_OUT_OF_RANGE));
}

// A number given by its digits, with every exponent that leaves its worth what it is: units are
// multiplied, taken as they are, and divided, with up to all of the digits behind the point.
template <class Integer>
void expectInEveryAlignment(bool negative, Native magnitude) {
  using Limits = std::numeric_limits<Integer>;
  const Native limit = static_cast<Native>(Limits::max()) + (negative && Limits::is_signed ? 1 : 0);
  const bool fits = magnitude <= limit && (!negative || Limits::is_signed);
  const Converted<Integer> expected =
      fits ? Converted<Integer>{ECF_OK, static_cast<Integer>(negative ? 0 - magnitude : magnitude)}
           : refused<Integer>(ECF_DECFLOAT_OUT_OF_RANGE);

  const std::string digits = (negative ? "-" : "") + decimalText(magnitude);
  std::string scaled = digits;
  for (int zeros = 0; scaled.size() <= 34; ++zeros, scaled += '0') {
    const std::string down = "E-" + std::to_string(zeros);
    ASSERT_EQ(to<Integer>(scaled + down), expected) << scaled << down;
    if (zeros == 0) continue;
    // A fraction of nines does not round up.
    ASSERT_EQ(to<Integer>(digits + std::string(static_cast<size_t>(zeros), '9') + down), expected)
        << digits << zeros;
  }
  for (int up = 1; magnitude % 10 == 0 && magnitude != 0; ++up) {
    magnitude /= 10;
    const std::string text =
        (negative ? "-" : "") + decimalText(magnitude) + "E+" + std::to_string(up);
    ASSERT_EQ(to<Integer>(text), expected) << text;
  }
}

template <class Integer>
class DecfloatToEveryInteger : public testing::Test {};
using Integers = testing::Types<uint32_t, int32_t, uint64_t, int64_t>;
TYPED_TEST_SUITE(DecfloatToEveryInteger, Integers);

TYPED_TEST(DecfloatToEveryInteger, TheEndsOfTheRangeAreReachedAndNotPassed) {
  using Limits = std::numeric_limits<TypeParam>;
  const auto largest = static_cast<Native>(Limits::max());
  for (const Native magnitude : {largest - 1, largest, largest + 1, largest + 2}) {
    expectInEveryAlignment<TypeParam>(false, magnitude);
    expectInEveryAlignment<TypeParam>(true, magnitude);
  }
}

TYPED_TEST(DecfloatToEveryInteger, EveryPowerOfTenAndOfTwoIsConvertedInEveryAlignment) {
  Native power = 1;
  for (int i = 0; i <= 20; ++i, power *= 10) {
    for (const Native magnitude : {power - 1, power, power + 1, power * 4294967295 / 1000000000}) {
      expectInEveryAlignment<TypeParam>(false, magnitude);
      expectInEveryAlignment<TypeParam>(true, magnitude);
    }
  }
  for (int bit = 0; bit <= 65; ++bit) expectInEveryAlignment<TypeParam>(false, Native{1} << bit);
}

// As many digits as the longest number of the type has pass the first test of the range.
TYPED_TEST(DecfloatToEveryInteger, NinesOfTheTypesLengthAreOutOfRange) {
  const std::string nines(std::numeric_limits<TypeParam>::digits10 + 1, '9');
  EXPECT_EQ(to<TypeParam>(nines), refused<TypeParam>(ECF_DECFLOAT_OUT_OF_RANGE));
}

}  // namespace
