// Feeds pairs of operands and decimal texts to the 128-bit integers, and compares every result with
// the compiler's own 128-bit types.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/fuzz/require.h"
#include "tests/numeric/native128.h"

namespace {

void checkArithmetic(Native x, Native y) {
  const Uint128 ux(fromNative(x)), uy(fromNative(y));
  require(toNative(ux * uy) == x * y);
  require(toNative(ux / uy) == (y != 0 ? x / y : kAllOnes));

  const Sint128 sx(fromNative(x)), sy(fromNative(y));
  const bool negative = isNegative(x) != isNegative(y);
  require(toNative(sx * sy) == x * y);
  if (y == 0) {
    require(toNative(sx / sy) == (isNegative(x) ? kSignBit : kSignBit - 1));
  } else {
    const Native quotient = magnitude(x) / magnitude(y);
    require(toNative(sx / sy) == (negative ? 0 - quotient : quotient));
  }

  Sint128 inPlace = sx;
  const auto divisor = static_cast<uint32_t>(y);
  inPlace /= divisor;
  require(inPlace == sx / Sint128(divisor));
}

void checkFloating(Native value, double number) {
  Native kept = value;
  int dropped = 0;
  for (; kept >> 53 != 0; kept >>= 1) ++dropped;
  require(static_cast<double>(Uint128(fromNative(value))) ==
          std::ldexp(static_cast<double>(static_cast<uint64_t>(kept)), dropped));

  const bool inRange = number > -1.0 && number < std::ldexp(1.0, 128);
  const Native converted = inRange                ? static_cast<Native>(number)
                           : std::signbit(number) ? Native{0}
                                                  : kAllOnes;
  require(toNative(Uint128(number)) == converted);

  const double limit = std::ldexp(1.0, 127);
  const Native convertedSigned = number > -limit && number < limit
                                     ? static_cast<Native>(static_cast<SignedNative>(number))
                                     : (std::signbit(number) ? kSignBit : kSignBit - 1);
  require(toNative(Sint128(number)) == convertedSigned);
}

void checkWriting(Native value, size_t size, bool asSigned) {
  const std::string text = asSigned ? signedDecimalText(value) : decimalText(value);
  char* const out = new char[size];  // its bounds are watched
  const int length = DecimalText(fromNative(value)).write(out, size, asSigned);
  if (text.size() < size) {
    require(length == static_cast<int>(text.size()) && text == out);
    require(toNative(DecimalText::read(out)) == value);
  } else {
    require(length == -1);
  }
  delete[] out;
}

void checkReading(const std::string& text) {
  const char* at = text.c_str();
  while (*at != '\0' && std::strchr(" \t\n\v\f\r", *at) != nullptr) ++at;
  if (*at == '+') ++at;
  const bool negative = *at == '-';
  if (negative) ++at;

  Native value = 0;
  for (; *at >= '0' && *at <= '9'; ++at) value = value * 10 + static_cast<unsigned>(*at - '0');
  if (negative && *at == '\0') value = 0 - value;
  require(toNative(DecimalText::read(text.c_str())) == value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  struct {
    Native x, y;
    double number;
    uint8_t room;
    bool asSigned() const { return (room & 0x80) != 0; }
  } input = {};
  std::memcpy(&input.x, data, size < 16 ? size : 16);
  if (size > 16) std::memcpy(&input.y, data + 16, size < 32 ? size - 16 : 16);
  if (size >= 40) std::memcpy(&input.number, data + 32, 8);
  if (size > 40) input.room = data[40];

  checkArithmetic(input.x, input.y);
  checkFloating(input.x, input.number);
  checkWriting(input.x, input.room & 0x3F, input.asSigned());
  checkReading(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
