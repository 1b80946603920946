// rounding.h - how digits of any number and an exponent of any size become a number of a context.
#pragma once

#include <cstdint>

#include "numeric/decimal/digits.h"

namespace oss {

// What a text says, exactly: digits x 10^exponent, and something less than one more of its last
// digit when there is a tail; then the digits are more than a coefficient can hold.
struct ExactDecimal {
  Digits digits;
  int64_t exponent = 0;
  bool hasTail = false;
  bool negative = false;
};

constexpr int64_t leastExponent(const DecimalContext& context) noexcept {
  return int64_t{context.emin} - (context.digits - 1);
}

constexpr int64_t largestFullExponent(const DecimalContext& context) noexcept {
  return int64_t{context.emax} - (context.digits - 1);
}

inline void setFinite(DecimalNumber& number, bool negative, const Digits& digits,
                      int64_t exponent) noexcept {
  number.flags = negative ? kNegative : kPositive;
  number.exponent = static_cast<int32_t>(exponent);
  setCoefficient(number, digits);
}

// Makes the number of a context that stands for it, with the conditions overflow, subnormal,
// underflow and invalid context as they arise.
void round(const ExactDecimal& exact, DecimalContext& context, DecimalNumber& number) noexcept;

// The same, at once for a number that is in the context as it is and far from its limits.
inline void setExact(DecimalNumber& number, const ExactDecimal& exact,
                     DecimalContext& context) noexcept {
  if (exact.digits.count() <= context.digits && exact.exponent >= context.emin &&
      exact.exponent <= largestFullExponent(context)) [[likely]]
    setFinite(number, exact.negative, exact.digits, exact.exponent);
  else
    round(exact, context, number);
}

}  // namespace oss
