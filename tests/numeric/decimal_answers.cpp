// Answers decimal_oracle.py line by line: what the decimal core makes of a text or of an encoding.
//
//   text FORMAT ROUNDING HEX   the bytes of the text, or - for none
//   packed FORMAT HEX          an encoding
//
// An answer is: digits, exponent, flags, coefficient, status, scientific text, encoding; then
// "same" if the encoding reads back as the number it was made of.
#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "decimalnumber.h"

namespace {

using namespace oss;

std::vector<uint8_t> bytesOf(const char* hex) {
  std::vector<uint8_t> bytes;
  unsigned byte = 0;
  for (; std::sscanf(hex, "%2x", &byte) == 1; hex += 2) bytes.push_back(static_cast<uint8_t>(byte));
  return bytes;
}

void answer(const DecimalNumber& number, const DecimalContext& context) {
  const std::string packed = packedOf(number, context);
  DecimalNumber again;
  decode(bytesOf(packed.c_str()).data(), context, again);
  std::printf("%" PRId32 " %" PRId32 " %02x %s %" PRIx32 " %s %s %s\n", number.digits,
              number.exponent, unsigned{number.flags}, coefficientOf(number).c_str(),
              context.status, scientificOf(number).c_str(), packed.c_str(),
              isSame(again, number) ? "same" : "other");
}

void answerText(uint32_t format, uint32_t rounding, const char* hex) {
  const std::vector<uint8_t> bytes = bytesOf(hex);
  const std::string text(bytes.begin(), bytes.end());
  DecimalContext context = decimalContext(format);
  context.rounding = static_cast<OSSDecfloatRounding>(rounding);
  DecimalNumber number;
  toNumber(text.c_str(), context, number);
  answer(number, context);
}

void answerPacked(uint32_t format, const char* hex) {
  const DecimalContext context = decimalContext(format);
  DecimalNumber number;
  decode(bytesOf(hex).data(), context, number);
  answer(number, context);
}

}  // namespace

int main() {
  char line[4096];
  char hex[sizeof line];
  while (std::fgets(line, sizeof line, stdin) != nullptr) {
    uint32_t format = 0;
    uint32_t rounding = 0;
    if (std::sscanf(line, "text %" SCNu32 " %" SCNu32 " %4095s", &format, &rounding, hex) == 3)
      answerText(format, rounding, hex);
    else if (std::sscanf(line, "packed %" SCNu32 " %4095s", &format, hex) == 2)
      answerPacked(format, hex);
    else
      return 2;
  }
  return 0;
}
