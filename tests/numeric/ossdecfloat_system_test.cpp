// Decimal floating point as a client of the DLL uses it.
#include <gtest/gtest.h>

#include <array>
#include <clocale>

#include "decfloattext.h"
#include "ossnumeric.h"

namespace {

TEST(DecfloatProduct, AnAmountGoesThroughTextEncodingIntegerDoubleAndTheOtherFormat) {
  OSSDecfloat16 amount;
  ASSERT_EQ(amount.fromString("-1234567.89", OSS_DECFLOAT_ROUND_HALF_UP), ECF_OK);
  EXPECT_EQ(textOf(amount), "-1234567.89");

  std::array<uint8_t, 8> packed{};
  OSSDecfloat16 again;
  ASSERT_EQ(amount.toDecPacked(packed.data(), packed.size()), ECF_OK);
  ASSERT_EQ(again.fromDecPacked(packed.data(), packed.size()), ECF_OK);
  EXPECT_EQ(textOf(again), "-1234567.89");

  int32_t whole = 0;
  double approximate = 0;
  EXPECT_EQ(again.toSInt32(&whole), ECF_OK);
  EXPECT_EQ(whole, -1234567);
  EXPECT_EQ(again.toDouble(&approximate), ECF_OK);
  EXPECT_EQ(approximate, -1234567.89);

  OSSDecfloat34 wide;
  EXPECT_EQ(again.toDecfloat34(wide), ECF_OK);
  EXPECT_EQ(textOf(wide), "-1234567.89");
  EXPECT_EQ(textOf(OSSDecfloat34(approximate)), "-1234567.89000000");
}

TEST(DecfloatProduct, ANumberThatADoubleCannotReachIsOutOfRangeUnderThisRunTime) {
  double value = 1;
  EXPECT_EQ(OSSDecfloat34("1E-400").toDouble(&value), ECF_DECFLOAT_OUT_OF_RANGE);
  EXPECT_EQ(OSSDecfloat34("1E+400").toDouble(&value), ECF_DECFLOAT_OUT_OF_RANGE);
}

// The DLL and its host share the run-time, and with it the locale.
TEST(DecfloatProduct, AHostThatWritesACommaChangesNothing) {
  ASSERT_NE(std::setlocale(LC_NUMERIC, "German"), nullptr);
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  double value = 0;
  EXPECT_EQ(OSSDecfloat16("1.5").toDouble(&value), ECF_OK);
  EXPECT_EQ(value, 1.5);
  EXPECT_EQ(textOf(OSSDecfloat16(-1.5)), "-1.50000000000000");
  EXPECT_EQ(textOf(OSSDecfloat34(1.5)), "1.50000000000000");
  std::setlocale(LC_NUMERIC, "C");
}

}  // namespace
