// Tests of decimal floating point: construction, text, doubles, the two formats.
#include "ossdecfloat.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <string>

#include "decfloattext.h"

namespace {

constexpr double kInfiniteDouble = std::numeric_limits<double>::infinity();

// ---- Construction ----

TEST(Decfloat, ANewObjectHoldsNoValueSoThereIsNoText) {
  const Shown nothing = {ECF_DECFLOAT_NOT_A_NUMBER, ""};
  EXPECT_EQ(show(OSSDecfloat()), nothing);
  EXPECT_EQ(show(OSSDecfloat(OSS_DECFLOAT_64)), nothing);
  EXPECT_EQ(show(OSSDecfloat(OSS_DECFLOAT_128)), nothing);
  EXPECT_EQ(show(OSSDecfloat16()), nothing);
  EXPECT_EQ(show(OSSDecfloat34()), nothing);
}

TEST(Decfloat, AConstructorTellsItsFormatByTheSizeOfTheEncoding) {
  uint8_t packed[16];
  EXPECT_EQ(OSSDecfloat().toDecPacked(packed, 8), ECF_OK);
  EXPECT_EQ(OSSDecfloat(OSS_DECFLOAT_64).toDecPacked(packed, 8), ECF_OK);
  EXPECT_EQ(OSSDecfloat(OSS_DECFLOAT_128).toDecPacked(packed, 16), ECF_OK);
  EXPECT_EQ(OSSDecfloat16().toDecPacked(packed, 8), ECF_OK);
  EXPECT_EQ(OSSDecfloat34().toDecPacked(packed, 16), ECF_OK);
}

TEST(Decfloat, AnyOtherFormatLeavesTheContextUnsetAndNoEncodingFits) {
  uint8_t packed[16];
  for (const uint32_t format : {0U, 8U, 16U, 63U, 65U, 0xFFFFFFFFU}) {
    EXPECT_EQ(OSSDecfloat(format).toDecPacked(packed, 8), ECF_DECFLOAT_INVALID_ARRAY_SIZE);
    EXPECT_EQ(OSSDecfloat(format).toDecPacked(packed, 16), ECF_DECFLOAT_INVALID_ARRAY_SIZE);
  }
}

// Such objects must not be used; making one does no harm.
TEST(Decfloat, AnyOtherFormatMayBeGivenWithAValue) {
  uint8_t packed[16];
  for (const char* const text : {"0", "12.5", "1E+400", "NaN", "x"})
    EXPECT_EQ(OSSDecfloat(text, 63).toDecPacked(packed, 8), ECF_DECFLOAT_INVALID_ARRAY_SIZE);
  EXPECT_EQ(OSSDecfloat(uint32_t{0}, 63).toDecPacked(packed, 8), ECF_DECFLOAT_INVALID_ARRAY_SIZE);
}

TEST(Decfloat, NullPointersAreRefused) {
  OSSDecfloat16 number("1");
  EXPECT_EQ(number.toString(nullptr, 43), ECF_INVALID_PARAMETER);
  EXPECT_EQ(number.toUInt32(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(number.toSInt32(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(number.toUInt64(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(number.toSInt64(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(number.toDouble(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(number.toDecPacked(nullptr, 8), ECF_INVALID_PARAMETER);
  EXPECT_EQ(number.fromDecPacked(nullptr, 8), ECF_INVALID_PARAMETER);
  EXPECT_EQ(textOf(number), "1");
}

TEST(Decfloat, AConstructorConvertsItsValueAsTheOperationDoes) {
  EXPECT_EQ(textOf(OSSDecfloat("12.50", OSS_DECFLOAT_64)), "12.50");
  EXPECT_EQ(textOf(OSSDecfloat("12345678901234565", OSS_DECFLOAT_ROUND_UP, OSS_DECFLOAT_64)),
            "1.234567890123457E+16");
  EXPECT_EQ(textOf(OSSDecfloat(0.5, OSS_DECFLOAT_128)), "0.500000000000000");
  EXPECT_EQ(textOf(OSSDecfloat(uint32_t{7}, OSS_DECFLOAT_64)), "7.00000000000000");
  EXPECT_EQ(textOf(OSSDecfloat(int32_t{-7}, OSS_DECFLOAT_64)), "-7.00000000000000");
  EXPECT_EQ(textOf(OSSDecfloat(uint64_t{7}, OSS_DECFLOAT_64)), "7");
  EXPECT_EQ(textOf(OSSDecfloat(int64_t{-7}, OSS_DECFLOAT_64)), "-7");

  EXPECT_EQ(textOf(OSSDecfloat16("-1E+3")), "-1E+3");
  EXPECT_EQ(textOf(OSSDecfloat16("12345678901234565", OSS_DECFLOAT_ROUND_UP)),
            "1.234567890123457E+16");
  EXPECT_EQ(textOf(OSSDecfloat34("12345678901234567")), "12345678901234567");
  EXPECT_EQ(textOf(OSSDecfloat16(0.25)), "0.250000000000000");
  EXPECT_EQ(textOf(OSSDecfloat34(uint32_t{9})), "9.00000000000000");
  EXPECT_EQ(textOf(OSSDecfloat34(int32_t{-9})), "-9.00000000000000");
  EXPECT_EQ(textOf(OSSDecfloat34(uint64_t{18446744073709551615U})), "18446744073709551615");
  EXPECT_EQ(textOf(OSSDecfloat34(std::numeric_limits<int64_t>::min())), "-9223372036854775808");
}

TEST(Decfloat, AConstructorDropsTheCodeOfItsConversion) {
  EXPECT_EQ(show(OSSDecfloat("junk", OSS_DECFLOAT_64)).rc, ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR);
  EXPECT_EQ(textOf(OSSDecfloat("1E+999", OSS_DECFLOAT_64)), "Infinity");
}

TEST(Decfloat, AConstructorWhoseRoundingIsRefusedLeavesZero) {
  const auto refused = static_cast<OSSDecfloatRounding>(8);
  EXPECT_EQ(textOf(OSSDecfloat("12.50", refused, OSS_DECFLOAT_64)), "0");
}

// ---- From text ----

TEST(DecfloatFromText, DigitsPointAndExponentAreKeptAsTheyAreWritten) {
  EXPECT_EQ(read16("0"), (Read{ECF_OK, "0"}));
  EXPECT_EQ(read16("-0"), (Read{ECF_OK, "-0"}));
  EXPECT_EQ(read16("+12.50"), (Read{ECF_OK, "12.50"}));
  EXPECT_EQ(read16(".5"), (Read{ECF_OK, "0.5"}));
  EXPECT_EQ(read16("5."), (Read{ECF_OK, "5"}));
  EXPECT_EQ(read16("000123e-2"), (Read{ECF_OK, "1.23"}));
  EXPECT_EQ(read16("123E+5"), (Read{ECF_OK, "1.23E+7"}));
  EXPECT_EQ(read16("123E3"), (Read{ECF_OK, "1.23E+5"}));
  EXPECT_EQ(read16("0.00"), (Read{ECF_OK, "0.00"}));
  EXPECT_EQ(read16("0E+7"), (Read{ECF_OK, "0E+7"}));
}

TEST(DecfloatFromText, TheTextHasAnExponentOnlyWhenItIsPositiveOrTheNumberIsBelowAMillionth) {
  EXPECT_EQ(read16("0.000001"), (Read{ECF_OK, "0.000001"}));
  EXPECT_EQ(read16("0.0000001"), (Read{ECF_OK, "1E-7"}));
  EXPECT_EQ(read16("0.00000123"), (Read{ECF_OK, "0.00000123"}));
  EXPECT_EQ(read16("0.000000123"), (Read{ECF_OK, "1.23E-7"}));
  EXPECT_EQ(read16("0E-6"), (Read{ECF_OK, "0.000000"}));
  EXPECT_EQ(read16("0E-7"), (Read{ECF_OK, "0E-7"}));
  EXPECT_EQ(read34("1234567890123456789012345678901234E-39"),
            (Read{ECF_OK, "0.000001234567890123456789012345678901234"}));
  EXPECT_EQ(read34("1234567890123456789012345678901234E-40"),
            (Read{ECF_OK, "1.234567890123456789012345678901234E-7"}));
  EXPECT_EQ(read34("-1234567890123456789012345678901234E-6176"),
            (Read{ECF_OK, "-1.234567890123456789012345678901234E-6143"}));
}

TEST(DecfloatFromText, WhatBreaksTheSyntaxIsANaNThatToStringRefuses) {
  for (const char* text :
       {"abc",   "",      " ",     " 1",      "1 ",        "1\n",      "+",    "-",     ".",
        "-.",    "+-1",   "1.2.3", "1e",      "1e+",       "e5",       ".e5",  "1_000", "1,5",
        "0x10",  "1e5.0", "1e5 ",  "Infinit", "Infinityx", "In",       "Inf1", "NaNx",  "NaN-1",
        "NaN 1", "ssNaN", "s",     "sInf",    "--1",       "\xD9\xA3", "1\xB2"}) {
    OSSDecfloat16 number;
    EXPECT_EQ(number.fromString(text), ECF_DECFLOAT_NOT_A_NUMBER) << text;
    EXPECT_EQ(show(number), (Shown{ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR, std::string("NaN\0", 4)}))
        << text;
  }
}

TEST(DecfloatFromText, NullIsBadTextToo) {
  OSSDecfloat34 number;
  EXPECT_EQ(number.fromString(nullptr), ECF_DECFLOAT_NOT_A_NUMBER);
  EXPECT_EQ(show(number).rc, ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR);
}

TEST(DecfloatFromText, BadTextIsForgottenByTheNextGoodOne) {
  OSSDecfloat16 number("junk");
  EXPECT_EQ(number.fromString("1.5"), ECF_OK);
  EXPECT_EQ(textOf(number), "1.5");
}

TEST(DecfloatFromText, SpecialValuesAreReadInEitherCaseAndToldByTheirCodes) {
  for (const char* text : {"Infinity", "inf", "+INF", "iNfInItY"})
    EXPECT_EQ(read16(text), (Read{ECF_DECFLOAT_POSITIVE_INFINITY, "Infinity"})) << text;
  for (const char* text : {"-Infinity", "-inf"})
    EXPECT_EQ(read16(text), (Read{ECF_DECFLOAT_NEGATIVE_INFINITY, "-Infinity"})) << text;
  for (const char* text : {"NaN", "-nan", "nan123", "NAN000"})
    EXPECT_EQ(read16(text), (Read{ECF_DECFLOAT_NOT_A_NUMBER, "NaN"})) << text;
  for (const char* text : {"sNaN", "-SNAN", "snan42"})
    EXPECT_EQ(read16(text), (Read{ECF_DECFLOAT_NOT_A_NUMBER, "sNaN"})) << text;
}

// One digit of the coefficient is not in the encoding of a NaN.
TEST(DecfloatFromText, APayloadHasOneDigitLessThanANumber) {
  EXPECT_EQ(read16("NaN123456789012345"), (Read{ECF_DECFLOAT_NOT_A_NUMBER, "NaN"}));
  EXPECT_EQ(read16("NaN000000123456789012345"), (Read{ECF_DECFLOAT_NOT_A_NUMBER, "NaN"}));

  OSSDecfloat16 number;
  EXPECT_EQ(number.fromString("NaN1234567890123456"), ECF_DECFLOAT_NOT_A_NUMBER);
  EXPECT_EQ(show(number).rc, ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR);
}

TEST(DecfloatFromText, ADigitTooManyIsRoundedWithoutACode) {
  EXPECT_EQ(read16("12345678901234567"), (Read{ECF_OK, "1.234567890123457E+16"}));
  EXPECT_EQ(read34("12345678901234567890123456789012345"),
            (Read{ECF_OK, "1.234567890123456789012345678901234E+34"}));
}

TEST(DecfloatFromText, NinesThatAreRoundedUpBecomeAOneAndZeros) {
  EXPECT_EQ(read16("99999999999999995"), (Read{ECF_OK, "1.000000000000000E+17"}));
  EXPECT_EQ(read16("0.99999999999999999"), (Read{ECF_OK, "1.000000000000000"}));
  EXPECT_EQ(read34("99999999999999999999999999999999999"),
            (Read{ECF_OK, "1.000000000000000000000000000000000E+35"}));
}

TEST(DecfloatFromText, WhatIsTooLargeReportsTheInfinityNotTheOverflow) {
  EXPECT_EQ(read16("1E+385"), (Read{ECF_DECFLOAT_POSITIVE_INFINITY, "Infinity"}));
  EXPECT_EQ(read16("-1E+385"), (Read{ECF_DECFLOAT_NEGATIVE_INFINITY, "-Infinity"}));
  EXPECT_EQ(read16("9.9999999999999995E+384"), (Read{ECF_DECFLOAT_POSITIVE_INFINITY, "Infinity"}));
  EXPECT_EQ(read34("1E+6145"), (Read{ECF_DECFLOAT_POSITIVE_INFINITY, "Infinity"}));
  EXPECT_EQ(read34("1E+99999999999999999999999999"),
            (Read{ECF_DECFLOAT_POSITIVE_INFINITY, "Infinity"}));
}

TEST(DecfloatFromText, AnOverflowThatIsRoundedDownIsTheLargestNumberAndOutOfRange) {
  const Read largest = {ECF_DECFLOAT_OUT_OF_RANGE, "9.999999999999999E+384"};
  EXPECT_EQ(read16("1E+385", OSS_DECFLOAT_ROUND_DOWN), largest);
  EXPECT_EQ(read16("1E+385", OSS_DECFLOAT_ROUND_FLOOR), largest);
  EXPECT_EQ(read16("1E+385", OSS_DECFLOAT_ROUND_NONE), largest);
  EXPECT_EQ(read16("-1E+385", OSS_DECFLOAT_ROUND_CEILING),
            (Read{ECF_DECFLOAT_OUT_OF_RANGE, "-9.999999999999999E+384"}));
  EXPECT_EQ(read16("1E+385", OSS_DECFLOAT_ROUND_CEILING).rc, ECF_DECFLOAT_POSITIVE_INFINITY);
  EXPECT_EQ(read16("9.999999999999999E+384"), (Read{ECF_OK, "9.999999999999999E+384"}));
}

TEST(DecfloatFromText, ALargeExponentIsLoweredByZerosBehindTheDigits) {
  EXPECT_EQ(read16("1E+384"), (Read{ECF_OK, "1.000000000000000E+384"}));
  EXPECT_EQ(read16("12E+370"), (Read{ECF_OK, "1.20E+371"}));
  EXPECT_EQ(read16("1E+369"), (Read{ECF_OK, "1E+369"}));
  EXPECT_EQ(read16("0E+400"), (Read{ECF_OK, "0E+369"}));
  EXPECT_EQ(read34("1E+6144"), (Read{ECF_OK, "1.000000000000000000000000000000000E+6144"}));
}

TEST(DecfloatFromText, ASubnormalNumberIsKeptAndOutOfRange) {
  EXPECT_EQ(read16("1E-398"), (Read{ECF_DECFLOAT_OUT_OF_RANGE, "1E-398"}));
  EXPECT_EQ(read16("1.234567890123456E-384"),
            (Read{ECF_DECFLOAT_OUT_OF_RANGE, "1.23456789012346E-384"}));
  EXPECT_EQ(read16("1E-399"), (Read{ECF_DECFLOAT_OUT_OF_RANGE, "0E-398"}));
  EXPECT_EQ(read16("5.1E-399"), (Read{ECF_DECFLOAT_OUT_OF_RANGE, "1E-398"}));
  EXPECT_EQ(read16("-1E-999999", OSS_DECFLOAT_ROUND_FLOOR),
            (Read{ECF_DECFLOAT_OUT_OF_RANGE, "-1E-398"}));
  EXPECT_EQ(read16("1.000000000000000E-383"), (Read{ECF_OK, "1.000000000000000E-383"}));
  EXPECT_EQ(read34("1E-6176"), (Read{ECF_DECFLOAT_OUT_OF_RANGE, "1E-6176"}));
}

// Whether a number is subnormal is asked before it is rounded.
TEST(DecfloatFromText, ASubnormalNumberThatIsRoundedToANormalOneIsOutOfRange) {
  OSSDecfloat16 narrow;
  EXPECT_EQ(narrow.fromString("9.9999999999999995E-384"), ECF_DECFLOAT_OUT_OF_RANGE);
  EXPECT_EQ(textOf(narrow), "1.000000000000000E-383");
  OSSDecfloat34 wide;
  EXPECT_EQ(wide.fromString("9.9999999999999999999999999999999995E-6144"),
            ECF_DECFLOAT_OUT_OF_RANGE);
  EXPECT_EQ(textOf(wide), "1.000000000000000000000000000000000E-6143");
}

TEST(DecfloatFromText, AZeroIsNeverOutOfRange) {
  EXPECT_EQ(read16("0E-999"), (Read{ECF_OK, "0E-398"}));
  EXPECT_EQ(read16("-0.000E+9999999999999999999"), (Read{ECF_OK, "-0E+369"}));
  EXPECT_EQ(read34("0E-99999"), (Read{ECF_OK, "0E-6176"}));
}

TEST(DecfloatFromText, DigitsOfAnyNumberCountDownToTheLast) {
  const std::string half = "1234567890123456" + std::string("5") + std::string(200, '0');
  EXPECT_EQ(read16((half + "E-201").c_str()), (Read{ECF_OK, "1234567890123456"}));
  EXPECT_EQ(read16((half + "1E-202").c_str()), (Read{ECF_OK, "1234567890123457"}));
  const std::string zeros(300, '0');
  EXPECT_EQ(read16((zeros + "7." + zeros).c_str()).text, "7.000000000000000");
  EXPECT_EQ(read16(("0." + zeros + "7E+301").c_str()), (Read{ECF_OK, "7"}));
}

// ---- To text ----

TEST(DecfloatToText, TheSizeDoesNotCountTheTerminator) {
  const OSSDecfloat16 number("12345");
  EXPECT_EQ(show(number, 6), written("12345"));
  EXPECT_EQ(show(number, 5), written("12345"));  // six bytes
  EXPECT_EQ(show(number, 4), (Shown{ECF_DECFLOAT_INVALID_STRING_LENGTH, ""}));
  EXPECT_EQ(show(number, 0), (Shown{ECF_DECFLOAT_INVALID_STRING_LENGTH, ""}));
}

TEST(DecfloatToText, SpecialValuesDoNotRegardTheSize) {
  EXPECT_EQ(show(OSSDecfloat16("Infinity"), 0), written("Infinity"));
  EXPECT_EQ(show(OSSDecfloat16("-Infinity"), 0), written("-Infinity"));
  EXPECT_EQ(show(OSSDecfloat16("-NaN17"), 0), written("NaN"));
  EXPECT_EQ(show(OSSDecfloat16("-sNaN17"), 0), written("sNaN"));
  EXPECT_EQ(show(OSSDecfloat16("junk"), 0),
            (Shown{ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR, std::string("NaN\0", 4)}));
}

// Every length of a text, with and without sign, point and exponent: nothing but the text and its
// NUL is written, and a size that is one too small is refused.
TEST(DecfloatToText, ExactlyTheTextIsWrittenWhateverItsLength) {
  const std::string digits = "1234567890123456789012345678901234";
  for (const char* sign : {"", "-"}) {
    for (size_t count = 1; count <= digits.size(); ++count) {
      const std::string whole = sign + digits.substr(0, count);
      for (size_t point = 0; point < count + 6; ++point) {
        const OSSDecfloat34 number((whole + "E-" + std::to_string(point)).c_str());
        std::string text = digits.substr(0, count);
        if (point >= count) text.insert(0, point - count + 1, '0');
        if (point != 0) text.insert(text.size() - point, ".");
        text.insert(0, sign);
        ASSERT_EQ(show(number, text.size()), written(text));
        ASSERT_EQ(show(number, text.size() - 1), (Shown{ECF_DECFLOAT_INVALID_STRING_LENGTH, ""}));
      }

      std::string text = whole;
      if (count > 1) text.insert(text.size() - count + 1, ".");
      for (const char* exponent : {"E+35", "E+6143", "E-7", "E-999"}) {
        const OSSDecfloat34 number((text + exponent).c_str());
        if (std::string(exponent) == "E+6143" && count < 34) continue;  // more zeros: see above
        ASSERT_EQ(show(number, text.size() + std::strlen(exponent)), written(text + exponent));
      }
    }
  }
}

TEST(DecfloatToText, TheLongestTextHas42Characters) {
  const std::string longest = "-1.234567890123456789012345678901234E-6143";
  EXPECT_EQ(show(OSSDecfloat34(longest.c_str()), 42), written(longest));
  EXPECT_EQ(longest.size(), 42u);
}

// ---- Doubles ----

TEST(DecfloatFromDouble, EveryNumberHasFifteenDigits) {
  EXPECT_EQ(textOf(OSSDecfloat16(1.0)), "1.00000000000000");
  EXPECT_EQ(textOf(OSSDecfloat16(0.1)), "0.100000000000000");
  EXPECT_EQ(textOf(OSSDecfloat16(-1e100)), "-1.00000000000000E+100");
  EXPECT_EQ(textOf(OSSDecfloat16(1e-9)), "1.00000000000000E-9");
  EXPECT_EQ(textOf(OSSDecfloat16(123456789.0)), "123456789.000000");
  EXPECT_EQ(textOf(OSSDecfloat34(1.0 / 3.0)), "0.333333333333333");
  EXPECT_EQ(textOf(OSSDecfloat34(2.0 / 3.0)), "0.666666666666667");
}

TEST(DecfloatFromDouble, ZeroKeepsItsScaleAndItsSign) {
  EXPECT_EQ(textOf(OSSDecfloat16(0.0)), "0E-14");
  EXPECT_EQ(textOf(OSSDecfloat16(-0.0)), "-0E-14");
}

TEST(DecfloatFromDouble, TheLimitsOfADoubleAreNumbersInEitherFormat) {
  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(textOf(OSSDecfloat16(Limits::max())), "1.79769313486232E+308");
  EXPECT_EQ(textOf(OSSDecfloat16(Limits::lowest())), "-1.79769313486232E+308");
  EXPECT_EQ(textOf(OSSDecfloat16(Limits::min())), "2.22507385850720E-308");
  EXPECT_EQ(textOf(OSSDecfloat34(Limits::denorm_min())), "4.94065645841247E-324");
}

TEST(DecfloatFromDouble, InfinitiesAndNaNAreToldByTheirCodes) {
  OSSDecfloat16 number;
  EXPECT_EQ(number.fromDouble(kInfiniteDouble), ECF_DECFLOAT_POSITIVE_INFINITY);
  EXPECT_EQ(textOf(number), "Infinity");
  EXPECT_EQ(number.fromDouble(-kInfiniteDouble), ECF_DECFLOAT_NEGATIVE_INFINITY);
  EXPECT_EQ(textOf(number), "-Infinity");
  EXPECT_EQ(number.fromDouble(std::numeric_limits<double>::quiet_NaN()), ECF_DECFLOAT_NOT_A_NUMBER);
  EXPECT_EQ(textOf(number), "NaN");
}

struct AsDouble {
  OSSErr rc;
  double value;
  bool operator==(const AsDouble&) const = default;
};

AsDouble toDouble(const OSSDecfloat& number) {
  AsDouble result = {0, 12345.0};
  result.rc = number.toDouble(&result.value);
  return result;
}

TEST(DecfloatToDouble, TheNearestDoubleIsTaken) {
  EXPECT_EQ(toDouble(OSSDecfloat34("0.1")), (AsDouble{ECF_OK, 0.1}));
  EXPECT_EQ(toDouble(OSSDecfloat34("-123.4560")), (AsDouble{ECF_OK, -123.456}));
  EXPECT_EQ(toDouble(OSSDecfloat34("9007199254740993")), (AsDouble{ECF_OK, 9007199254740992.0}));
  EXPECT_TRUE(std::signbit(toDouble(OSSDecfloat16("-0")).value));
}

TEST(DecfloatToDouble, WhatADoubleCannotReachIsOutOfRange) {
  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(toDouble(OSSDecfloat34("1.7976931348623157E+308")), (AsDouble{ECF_OK, Limits::max()}));
  EXPECT_EQ(toDouble(OSSDecfloat34("1.8E+308")),
            (AsDouble{ECF_DECFLOAT_OUT_OF_RANGE, kInfiniteDouble}));
  EXPECT_EQ(toDouble(OSSDecfloat34("-1E+6000")),
            (AsDouble{ECF_DECFLOAT_OUT_OF_RANGE, -kInfiniteDouble}));
  EXPECT_EQ(toDouble(OSSDecfloat34("2.2250738585072014E-308")), (AsDouble{ECF_OK, Limits::min()}));
  EXPECT_EQ(toDouble(OSSDecfloat34("1E-400")), (AsDouble{ECF_DECFLOAT_OUT_OF_RANGE, 0.0}));
}

TEST(DecfloatToDouble, AStaleErrorOfTheRunTimeDoesNotCount) {
  errno = 34;
  EXPECT_EQ(toDouble(OSSDecfloat16("1.5")), (AsDouble{ECF_OK, 1.5}));
}

TEST(DecfloatToDouble, TheRefusalOfToStringIsReturnedAndNothingIsStored) {
  EXPECT_EQ(toDouble(OSSDecfloat16()), (AsDouble{ECF_DECFLOAT_NOT_A_NUMBER, 12345.0}));
  EXPECT_EQ(toDouble(OSSDecfloat16("junk")),
            (AsDouble{ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR, 12345.0}));
}

TEST(DecfloatToDouble, SpecialValuesAreWhatTheRunTimeMakesOfTheirTexts) {
  for (const char* text : {"NaN", "sNaN", "Infinity", "-Infinity"}) {
    const AsDouble result = toDouble(OSSDecfloat16(text));
    const double expected = std::strtod(text, nullptr);
    EXPECT_EQ(result.rc, ECF_OK) << text;
    EXPECT_TRUE(std::isnan(expected) ? std::isnan(result.value) : result.value == expected) << text;
  }
}

// ---- The other format ----

TEST(DecfloatFormats, TheWiderFormatTakesEveryNumberAsItIs) {
  for (const char* text : {"12.50", "-0E+369", "9.999999999999999E+384", "1E-398", "0"}) {
    OSSDecfloat34 wide;
    EXPECT_EQ(OSSDecfloat16(text).toDecfloat34(wide), ECF_OK);
    EXPECT_EQ(textOf(wide), text);
    EXPECT_EQ(wide.fromDecfloat16(OSSDecfloat16(text)), ECF_OK);
    EXPECT_EQ(textOf(wide), text);
  }
}

TEST(DecfloatFormats, TheNarrowerFormatRoundsByItsOwnModeOrTheOneThatIsGiven) {
  const OSSDecfloat34 wide("12345678901234567");
  OSSDecfloat16 narrow;
  EXPECT_EQ(wide.toDecfloat16(narrow), ECF_OK);
  EXPECT_EQ(textOf(narrow), "1.234567890123457E+16");

  EXPECT_EQ(narrow.setRoundingMode(OSS_DECFLOAT_ROUND_DOWN), ECF_OK);
  EXPECT_EQ(wide.toDecfloat16(narrow), ECF_OK);
  EXPECT_EQ(textOf(narrow), "1.234567890123456E+16");

  EXPECT_EQ(narrow.fromDecfloat34(wide, OSS_DECFLOAT_ROUND_UP), ECF_OK);
  EXPECT_EQ(textOf(narrow), "1.234567890123457E+16");
}

TEST(DecfloatFormats, TheNarrowerFormatReportsWhatItCannotHold) {
  OSSDecfloat16 narrow;
  EXPECT_EQ(OSSDecfloat34("1E+385").toDecfloat16(narrow), ECF_DECFLOAT_POSITIVE_INFINITY);
  EXPECT_EQ(textOf(narrow), "Infinity");
  EXPECT_EQ(narrow.fromDecfloat34(OSSDecfloat34("1E-400"), OSS_DECFLOAT_ROUND_UP),
            ECF_DECFLOAT_OUT_OF_RANGE);
  EXPECT_EQ(textOf(narrow), "1E-398");
}

TEST(DecfloatFormats, SpecialValuesAreToldByTheirCodesAgain) {
  OSSDecfloat34 wide;
  EXPECT_EQ(OSSDecfloat16("-Infinity").toDecfloat34(wide), ECF_DECFLOAT_NEGATIVE_INFINITY);
  EXPECT_EQ(textOf(wide), "-Infinity");
  EXPECT_EQ(wide.fromDecfloat16(OSSDecfloat16("sNaN")), ECF_DECFLOAT_NOT_A_NUMBER);
  EXPECT_EQ(textOf(wide), "sNaN");
}

TEST(DecfloatFormats, WhatHasNoTextLeavesTheTargetAsItIs) {
  OSSDecfloat34 wide("1.5");
  EXPECT_EQ(OSSDecfloat16().toDecfloat34(wide), ECF_DECFLOAT_NOT_A_NUMBER);
  EXPECT_EQ(wide.fromDecfloat16(OSSDecfloat16("junk")), ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR);
  EXPECT_EQ(textOf(wide), "1.5");
}

TEST(DecfloatFormats, TheModeThatIsGivenStays) {
  OSSDecfloat16 target;
  const OSSDecfloat34 source("1"), empty;
  EXPECT_EQ(target.fromDecfloat34(source, OSS_DECFLOAT_ROUND_UP), ECF_OK);
  EXPECT_EQ(target.fromString("1.0000000000000001"), ECF_OK);
  EXPECT_EQ(textOf(target), "1.000000000000001");
  EXPECT_EQ(target.fromDecfloat34(empty, OSS_DECFLOAT_ROUND_DOWN), ECF_DECFLOAT_NOT_A_NUMBER);
  EXPECT_EQ(target.fromString("1.0000000000000009"), ECF_OK);
  EXPECT_EQ(textOf(target), "1.000000000000000");
}

TEST(DecfloatFormats, AModeThatIsRefusedStopsTheConversion) {
  OSSDecfloat16 narrow("1.5");
  EXPECT_EQ(narrow.fromDecfloat34(OSSDecfloat34("2"), static_cast<OSSDecfloatRounding>(9)),
            ECF_DECFLOAT_INVALID_ROUNDING_MODE);
  EXPECT_EQ(textOf(narrow), "1.5");
}

}  // namespace
