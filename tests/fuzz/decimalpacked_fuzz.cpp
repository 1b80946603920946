// Feeds encodings to the decimal core in either format. What must hold: every pattern is a number
// of its format; its encoding is a canonical one, which means the same number and is encoded as it
// is; the text of the number means it, too.
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/fuzz/require.h"
#include "tests/numeric/decimalnumber.h"

namespace {

using namespace oss;

void checkPattern(const uint8_t* data, uint32_t format) {
  DecimalContext context = decimalContext(format);
  DecimalNumber number;
  decode(data, context, number);
  for (const uint16_t unit : number.units) require(unit < 10000);
  require(number.digits >= 1 && number.digits <= context.digits);

  uint8_t canonical[16];
  encode(number, context, canonical);
  DecimalNumber again;
  decode(canonical, context, again);
  require(isSame(again, number));
  uint8_t repeated[16];
  encode(again, context, repeated);
  require(std::memcmp(canonical, repeated, context.encodedSize) == 0);
  require(canonical[0] >> 7 == data[0] >> 7);

  char text[kDecimalTextBytes];
  require(toScientificText(number, text, sizeof text - 1) < sizeof text);
  toNumber(text, context, again);
  require(isSame(again, number));
  require((context.status & ~kSubnormal) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size >= 8) checkPattern(data + size - 8, OSS_DECFLOAT_64);
  if (size >= 16) checkPattern(data + size - 16, OSS_DECFLOAT_128);
  return 0;
}
