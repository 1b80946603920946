// Tests of the rounding of decimal floating point, and of the mode that is accepted and rounds
// nothing.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "decfloattext.h"
#include "decimalnumber.h"

namespace {

constexpr OSSDecfloatRounding kAllRoundings[] = {
    OSS_DECFLOAT_ROUND_HALF_EVEN, OSS_DECFLOAT_ROUND_HALF_UP, OSS_DECFLOAT_ROUND_DOWN,
    OSS_DECFLOAT_ROUND_CEILING,   OSS_DECFLOAT_ROUND_FLOOR,   OSS_DECFLOAT_ROUND_HALF_DOWN,
    OSS_DECFLOAT_ROUND_UP,        OSS_DECFLOAT_ROUND_NONE};

// The last digit that is kept, under each rounding in the order of their numbers.
std::string lastDigits(const char* text) {
  std::string digits;
  for (const OSSDecfloatRounding rounding : kAllRoundings) {
    const Read number = read16(text, rounding);
    EXPECT_EQ(number.rc, ECF_OK);
    digits += number.text.back();
  }
  return digits;
}

TEST(DecfloatRounding, EachModeGoesItsWayFromBelowAtAndAboveTheHalf) {
  EXPECT_EQ(lastDigits("1000000000000001.4"), "11121121");
  EXPECT_EQ(lastDigits("1000000000000001.5"), "22121121");
  EXPECT_EQ(lastDigits("1000000000000001.6"), "22121221");
  EXPECT_EQ(lastDigits("-1000000000000001.4"), "11112121");
  EXPECT_EQ(lastDigits("-1000000000000001.5"), "22112121");
  EXPECT_EQ(lastDigits("-1000000000000001.6"), "22112221");
  EXPECT_EQ(lastDigits("1000000000000002.5"), "23232232");
  EXPECT_EQ(lastDigits("1000000000000002.0"), "22222222");
}

TEST(DecfloatRounding, ModesZeroToSevenAreAcceptedAndNoOther) {
  OSSDecfloat16 number;
  for (const OSSDecfloatRounding rounding : kAllRoundings)
    EXPECT_EQ(number.setRoundingMode(rounding), ECF_OK);
  for (const uint32_t value : {8U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    EXPECT_EQ(number.setRoundingMode(static_cast<OSSDecfloatRounding>(value)),
              ECF_DECFLOAT_INVALID_ROUNDING_MODE);
}

TEST(DecfloatRounding, ARefusedModeLeavesModeAndNumber) {
  OSSDecfloat16 number("1.5");
  EXPECT_EQ(number.setRoundingMode(OSS_DECFLOAT_ROUND_UP), ECF_OK);
  EXPECT_EQ(number.fromString("2.5", static_cast<OSSDecfloatRounding>(8)),
            ECF_DECFLOAT_INVALID_ROUNDING_MODE);
  EXPECT_EQ(textOf(number), "1.5");
  EXPECT_EQ(number.fromString("10000000000000001"), ECF_OK);
  EXPECT_EQ(textOf(number), "1.000000000000001E+16");
}

TEST(DecfloatRounding, AModeHoldsForTheConversionsThatFollow) {
  OSSDecfloat16 number;
  EXPECT_EQ(number.fromString("1", OSS_DECFLOAT_ROUND_UP), ECF_OK);
  EXPECT_EQ(number.fromUInt64(10000000000000001U), ECF_OK);
  EXPECT_EQ(textOf(number), "1.000000000000001E+16");
}

// ---- The rounding that is none ----

// What it leaves of a text: the number, and the conditions in the status of the context.
struct Unrounded {
  std::string text;
  uint32_t status;
  bool operator==(const Unrounded&) const = default;
};
void PrintTo(const Unrounded& unrounded, std::ostream* out) {
  *out << unrounded.text << ", status 0x" << std::hex << unrounded.status;
}

Unrounded unrounded(uint32_t format, const char* text) {
  oss::DecimalContext context = oss::decimalContext(format);
  context.rounding = OSS_DECFLOAT_ROUND_NONE;
  oss::DecimalNumber number;
  oss::toNumber(text, context, number);
  return {scientificOf(number), context.status};
}
Unrounded unrounded16(const char* text) { return unrounded(OSS_DECFLOAT_64, text); }
Unrounded unrounded34(const char* text) { return unrounded(OSS_DECFLOAT_128, text); }

constexpr uint32_t kLost = oss::kInvalidContext;
constexpr uint32_t kTiny = oss::kSubnormal;
constexpr uint32_t kLostTiny = oss::kInvalidContext | oss::kSubnormal | oss::kUnderflow;
constexpr uint32_t kLostHuge = oss::kInvalidContext | oss::kOverflow;

TEST(DecfloatUnrounded, DigitsThatAreLostAreCutOffAndMakeTheContextInvalid) {
  EXPECT_EQ(unrounded16("1234567890123456"), (Unrounded{"1234567890123456", 0}));
  EXPECT_EQ(unrounded16("12345678901234560"), (Unrounded{"1.234567890123456E+16", 0}));
  EXPECT_EQ(unrounded16("12345678901234561"), (Unrounded{"1.234567890123456E+16", kLost}));
  EXPECT_EQ(unrounded16("-99999999999999999"), (Unrounded{"-9.999999999999999E+16", kLost}));
  EXPECT_EQ(unrounded34("99999999999999999999999999999999999"),
            (Unrounded{"9.999999999999999999999999999999999E+34", kLost}));
}

TEST(DecfloatUnrounded, ASubnormalNumberIsCutOffToo) {
  EXPECT_EQ(unrounded16("1E-398"), (Unrounded{"1E-398", kTiny}));
  EXPECT_EQ(unrounded16("1.230E-397"), (Unrounded{"1.2E-397", kLostTiny}));
  EXPECT_EQ(unrounded16("1.20E-397"), (Unrounded{"1.2E-397", kTiny}));  // a zero is no loss
  EXPECT_EQ(unrounded16("1.999E-398"), (Unrounded{"1E-398", kLostTiny}));
  EXPECT_EQ(unrounded16("9.999E-399"), (Unrounded{"0E-398", kLostTiny}));
  EXPECT_EQ(unrounded16("-1E-999999"), (Unrounded{"-0E-398", kLostTiny}));
  // It stays below the least normal number, however near it comes.
  EXPECT_EQ(unrounded16("9.9999999999999999E-384"),
            (Unrounded{"9.99999999999999E-384", kLostTiny}));
  EXPECT_EQ(unrounded34("-1.999E-6176"), (Unrounded{"-1E-6176", kLostTiny}));
  EXPECT_EQ(unrounded34("9E-6177"), (Unrounded{"0E-6176", kLostTiny}));
}

TEST(DecfloatUnrounded, AnOverflowIsTheLargestNumberOfItsSign) {
  EXPECT_EQ(unrounded16("9.9999999999999999E+384"), (Unrounded{"9.999999999999999E+384", kLost}));
  EXPECT_EQ(unrounded16("1E+385"), (Unrounded{"9.999999999999999E+384", kLostHuge}));
  EXPECT_EQ(unrounded16("-1E+999999"), (Unrounded{"-9.999999999999999E+384", kLostHuge}));
  EXPECT_EQ(unrounded34("1E+6145"),
            (Unrounded{"9.999999999999999999999999999999999E+6144", kLostHuge}));
  EXPECT_EQ(unrounded34("-12345678901234567890123456789012345678E+6144"),
            (Unrounded{"-9.999999999999999999999999999999999E+6144", kLostHuge}));
}

// Of the conditions, those of the range have a code; that of the context has none.
TEST(DecfloatUnrounded, OnlyTheRangeIsToldByTheCode) {
  constexpr OSSDecfloatRounding kNone = OSS_DECFLOAT_ROUND_NONE;
  EXPECT_EQ(read16("12345678901234561", kNone), (Read{ECF_OK, "1.234567890123456E+16"}));
  EXPECT_EQ(read16("1.230E-397", kNone), (Read{ECF_DECFLOAT_OUT_OF_RANGE, "1.2E-397"}));
  EXPECT_EQ(read34("9E-6177", kNone), (Read{ECF_DECFLOAT_OUT_OF_RANGE, "0E-6176"}));
  EXPECT_EQ(read16("-1E+385", kNone), (Read{ECF_DECFLOAT_OUT_OF_RANGE, "-9.999999999999999E+384"}));
}

}  // namespace
