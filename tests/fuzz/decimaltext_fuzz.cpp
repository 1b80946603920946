// Feeds texts to the decimal core in either format under every rounding. What must hold: the number
// is within its format; its text reads back as the same number without a condition; the text is
// written whole or not at all; the integers and the other format agree with the text.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "ossdecfloat.h"
#include "tests/fuzz/require.h"
#include "tests/numeric/decimalnumber.h"

namespace {

using namespace oss;

int32_t digitsIn(const DecimalNumber& number) {
  for (int32_t unit = kCoefficientUnits; unit-- != 0;)
    if (number.units[unit] != 0)
      return unit * 4 + static_cast<int32_t>(std::to_string(number.units[unit]).size());
  return 1;
}

void checkLimits(const DecimalNumber& number, const DecimalContext& context) {
  for (const uint16_t unit : number.units) require(unit < 10000);
  require(number.digits == digitsIn(number));
  require(number.digits <= context.digits);
  if ((number.flags & kSpecial) != 0) {
    require(number.exponent == 0);
    return;
  }
  require(number.exponent >= context.emin - (context.digits - 1));
  require(number.exponent <= context.emax - (context.digits - 1));
}

std::string textOf(const DecimalNumber& number) {
  char text[kDecimalTextBytes];
  const uint32_t length = toScientificText(number, text, sizeof text - 1);
  require(length < sizeof text && text[length] == '\0' && std::strlen(text) == length);

  const auto exact = std::make_unique<char[]>(length + 1);  // its bounds are watched
  require(toScientificText(number, exact.get(), length) == length &&
          text == std::string(exact.get()));
  const auto tight = std::make_unique<char[]>(length);
  require(toScientificText(number, tight.get(), length - 1) == length);
  return text;
}

void checkReadsBack(const DecimalNumber& number, DecimalContext context) {
  const uint32_t rounding = context.rounding;
  context = decimalContext(context.encodedSize * 8);
  context.rounding = static_cast<OSSDecfloatRounding>(rounding);
  DecimalNumber again;
  toNumber(textOf(number).c_str(), context, again);
  require(isSame(again, number));
  require((context.status & ~kSubnormal) == 0);
}

void checkInteger(const DecimalNumber& number) {
  if ((number.flags & kSpecial) != 0 || number.digits + number.exponent > 18) return;
  const auto point = textOf(number).find_first_of(".E");
  uint64_t value = 0;
  require(integerPart(number, value));
  if (number.exponent <= 0 && number.digits + number.exponent >= 1) {
    const std::string whole = textOf(number).substr(0, point);
    require(std::to_string(value) == whole.substr(whole[0] == '-' ? 1 : 0));
  }
}

void checkText(const char* text, uint32_t format, uint32_t rounding) {
  DecimalContext context = decimalContext(format);
  context.rounding = static_cast<OSSDecfloatRounding>(rounding);
  DecimalNumber number;
  toNumber(text, context, number);

  checkLimits(number, context);
  checkReadsBack(number, context);
  checkInteger(number);
  require((context.status & kConversionSyntax) == 0 || (number.flags & kNaN) != 0);
  if ((context.status & kInvalidContext) != 0) require(rounding == OSS_DECFLOAT_ROUND_NONE);
}

// The whole class: nothing it writes lies outside of its 43 bytes.
void checkClass(const char* text, OSSDecfloatRounding rounding) {
  const auto room = std::make_unique<char[]>(kDecimalTextBytes);
  OSSDecfloat34 wide(text, rounding);
  OSSDecfloat16 narrow;
  static_cast<void>(narrow.fromDecfloat34(wide, rounding));
  static_cast<void>(wide.toString(room.get(), kDecimalTextBytes - 1));
  static_cast<void>(narrow.toString(room.get(), kDecimalTextBytes - 1));

  double value = 0;
  int64_t integer = 1;
  static_cast<void>(narrow.toDouble(&value));
  const OSSErr rc = narrow.toSInt64(&integer);
  require(rc == 0 || integer == 0);
}

}  // namespace

// The first byte chooses the rounding, the rest is the text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint32_t rounding = data[0] & 7;
  const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
  const auto text = std::make_unique<char[]>(input.size() + 1);  // its bounds are watched
  std::memcpy(text.get(), input.c_str(), input.size() + 1);

  checkText(text.get(), OSS_DECFLOAT_64, rounding);
  checkText(text.get(), OSS_DECFLOAT_128, rounding);
  checkClass(text.get(), static_cast<OSSDecfloatRounding>(rounding));
  return 0;
}
