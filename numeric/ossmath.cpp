// Integer helpers: divisors, multiples, inverses.
#include "ossmath.h"

#include <bit>

uint64_t ossComputeGCD(uint64_t a, uint64_t b) noexcept {
  while (b != 0) {
    const uint64_t remainder = a % b;
    a = b;
    b = remainder;
  }
  return a;
}

uint64_t ossComputeLCM(uint64_t a, uint64_t b) noexcept {
  const uint64_t divisor = ossComputeGCD(a, b);
  // Deliberate: the product is formed first, and wraps where the multiple itself would not.
  return divisor != 0 ? a * b / divisor : 0;
}

uint32_t ossComputeMontgomeryInverse32(uint32_t d) noexcept {
  if (d == 0) return 0;
  d >>= std::countr_zero(d);

  // Bit by bit, x is chosen so that d * x ends in ones.
  uint32_t x = 1;
  uint32_t product = d;
  for (int bit = 1; bit < 32; ++bit) {
    if ((product >> bit & 1) != 0) continue;
    product += d << bit;
    x |= uint32_t{1} << bit;
  }
  return x;
}
