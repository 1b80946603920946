// decimalnumber.h - numbers of the decimal core as tests compare and show them.
#pragma once

#include <cstring>
#include <string>

#include "numeric/decimal/decimal.h"

inline bool isSame(const oss::DecimalNumber& x, const oss::DecimalNumber& y) {
  return x.digits == y.digits && x.exponent == y.exponent && x.flags == y.flags &&
         std::memcmp(x.units, y.units, sizeof x.units) == 0;
}

// All 36 digits of the units.
inline std::string coefficientOf(const oss::DecimalNumber& number) {
  std::string text;
  for (int i = oss::kCoefficientUnits; i-- != 0;) {
    const std::string unit = std::to_string(number.units[i]);
    text += std::string(4 - unit.size(), '0') + unit;
  }
  return text;
}

inline std::string scientificOf(const oss::DecimalNumber& number) {
  char text[oss::kDecimalTextBytes];
  oss::toScientificText(number, text, sizeof text - 1);
  return text;
}

inline std::string packedOf(const oss::DecimalNumber& number, const oss::DecimalContext& context) {
  uint8_t bytes[16];
  oss::encode(number, context, bytes);
  std::string text;
  for (uint32_t i = 0; i < context.encodedSize; ++i) {
    text += "0123456789abcdef"[bytes[i] >> 4];
    text += "0123456789abcdef"[bytes[i] & 0xF];
  }
  return text;
}
