// The decimal core against answers that Python's decimal module has given; decimal_oracle.py makes
// them, and asks for many more.
#include <gtest/gtest.h>

#include <string>

#include "decimalnumber.h"

namespace {

using namespace oss;

struct Sample {
  uint32_t format;
  uint32_t rounding;
  const char* text;

  int32_t digits;
  int32_t exponent;
  uint8_t flags;
  const char* coefficient;  // all 36 digits of the units
  uint32_t status;
  const char* scientific;
  const char* packed;
};

constexpr Sample kSamples[] = {
#define DECIMAL(...) {__VA_ARGS__},
#include "decimal_sample.def"
#undef DECIMAL
};

TEST(DecimalCore, NumbersConditionsTextsAndEncodingsAreThoseOfTheOracle) {
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(std::to_string(sample.format) + ' ' + std::to_string(sample.rounding) + ' ' +
                 sample.text);
    DecimalContext context = decimalContext(sample.format);
    context.rounding = static_cast<OSSDecfloatRounding>(sample.rounding);
    DecimalNumber number;
    toNumber(sample.text, context, number);

    EXPECT_EQ(number.digits, sample.digits);
    EXPECT_EQ(number.exponent, sample.exponent);
    EXPECT_EQ(number.flags, sample.flags);
    EXPECT_EQ(coefficientOf(number), sample.coefficient);
    EXPECT_EQ(context.status, sample.status);
    EXPECT_EQ(scientificOf(number), sample.scientific);
    EXPECT_EQ(packedOf(number, context), sample.packed);
  }
}

}  // namespace
