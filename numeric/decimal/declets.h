// declets.h - densely packed decimal: three digits in ten bits, by IEEE 754-2008, 3.5.2.
//
// The tables are made from the standard's rules when the library is compiled. Digits are packed, a
// digit in four bits.
#pragma once

#include <array>
#include <cstdint>

namespace oss {

inline constexpr uint32_t kDeclets = 1024;

// The three digits of a declet. The standard numbers its bits b0 to b9 from the most significant
// one. A digit below 8 keeps three bits, 8 and 9 keep one; b6 to b8, b3 and b4 tell which are
// which.
constexpr uint16_t digitsOfDecletByRule(uint32_t declet) noexcept {
  const auto bit = [declet](int index) { return declet >> (9 - index) & 1; };
  const auto small = [&](int b4, int b2, int b1) { return bit(b4) * 4 + bit(b2) * 2 + bit(b1); };
  const auto large = [&](int b1) { return 8 + bit(b1); };
  const auto join = [](uint32_t d1, uint32_t d2, uint32_t d3) {
    return static_cast<uint16_t>(d1 << 8 | d2 << 4 | d3);
  };

  if (bit(6) == 0) return join(small(0, 1, 2), small(3, 4, 5), small(7, 8, 9));
  switch (bit(7) * 2 + bit(8)) {
    case 0: return join(small(0, 1, 2), small(3, 4, 5), large(9));
    case 1: return join(small(0, 1, 2), large(5), small(3, 4, 9));
    case 2: return join(large(2), small(3, 4, 5), small(0, 1, 9));
    default: break;
  }
  switch (bit(3) * 2 + bit(4)) {
    case 0: return join(large(2), large(5), small(0, 1, 9));
    case 1: return join(large(2), small(0, 1, 5), large(9));
    case 2: return join(small(0, 1, 2), large(5), large(9));
    default: return join(large(2), large(5), large(9));
  }
}

inline constexpr auto kDigitsOfDeclet = [] {
  std::array<uint16_t, kDeclets> digits{};
  for (uint32_t declet = 0; declet < kDeclets; ++declet)
    digits[declet] = digitsOfDecletByRule(declet);
  return digits;
}();

// The declet of three packed digits. 24 triples have four declets each; the one whose free bits are
// 0, so the least, is canonical.
inline constexpr auto kDecletOfDigits = [] {
  std::array<uint16_t, 0x1000> declets{};
  for (uint32_t declet = kDeclets; declet-- != 0;)
    declets[digitsOfDecletByRule(declet)] = static_cast<uint16_t>(declet);
  return declets;
}();

}  // namespace oss
