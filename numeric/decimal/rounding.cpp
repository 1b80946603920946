// Rounding and the limits of the exponent, by the General Decimal Arithmetic specification.
//
//   emin - (digits - 1)  least exponent of any number, reached by losing digits: subnormal numbers
//   emax - (digits - 1)  largest exponent of a full coefficient; of any number in a clamped context
//   emax                 largest exponent of a number's first digit
#include "numeric/decimal/rounding.h"

#include <algorithm>

namespace oss {
namespace {

void setZero(DecimalNumber& number, const ExactDecimal& exact,
             const DecimalContext& context) noexcept {
  const int64_t largest = context.clamp != 0 ? largestFullExponent(context) : context.emax;
  setFinite(number, exact.negative, Digits(),
            std::max(leastExponent(context), std::min(exact.exponent, largest)));
}

// What lies below the last digit that is kept, in halves of that digit.
enum class Remainder { kNone, kLessThanHalf, kHalf, kMoreThanHalf };

Remainder remainderOf(const ExactDecimal& exact, int64_t dropped) noexcept {
  const uint32_t first = exact.digits.at(dropped - 1);
  const bool more = exact.hasTail || exact.digits.anyBelow(dropped - 1);
  if (first == 0 && !more) return Remainder::kNone;
  if (first == 5 && !more) return Remainder::kHalf;
  return first < 5 ? Remainder::kLessThanHalf : Remainder::kMoreThanHalf;
}

// Whether a magnitude with a remainder goes up to the next one.
bool roundsUp(OSSDecfloatRounding rounding, Remainder remainder, bool odd, bool negative) noexcept {
  switch (rounding) {
    case OSS_DECFLOAT_ROUND_HALF_EVEN:
      return remainder > Remainder::kHalf || (remainder == Remainder::kHalf && odd);
    case OSS_DECFLOAT_ROUND_HALF_UP: return remainder >= Remainder::kHalf;
    case OSS_DECFLOAT_ROUND_HALF_DOWN: return remainder > Remainder::kHalf;
    case OSS_DECFLOAT_ROUND_UP: return true;
    case OSS_DECFLOAT_ROUND_CEILING: return !negative;
    case OSS_DECFLOAT_ROUND_FLOOR: return negative;
    default: return false;
  }
}

// Deliberate: a context without a rounding cuts off, as down does, and notes that it is invalid.
void noteRounding(DecimalContext& context) noexcept {
  if (context.rounding == OSS_DECFLOAT_ROUND_NONE) context.status |= kInvalidContext;
}

// Infinity, or the largest number if the rounding does not lead away from zero.
void overflow(DecimalNumber& number, bool negative, DecimalContext& context) noexcept {
  context.status |= kOverflow;
  noteRounding(context);
  if (roundsUp(context.rounding, Remainder::kMoreThanHalf, true, negative)) {
    setFinite(number, negative, Digits(), 0);
    number.flags |= kInfinity;
    return;
  }

  Digits nines;
  for (int32_t i = 0; i < context.digits; ++i) nines.append(9, 1);
  setFinite(number, negative, nines, largestFullExponent(context));
}

// Drops the last digits. True when the number changed by that.
bool dropDigits(ExactDecimal& exact, int64_t dropped, DecimalContext& context) noexcept {
  const Remainder remainder = remainderOf(exact, dropped);
  exact.digits.shiftDown(dropped);
  exact.exponent += dropped;
  if (remainder == Remainder::kNone) return false;

  noteRounding(context);
  const bool odd = (exact.digits.word[0] & 1) != 0;
  if (roundsUp(context.rounding, remainder, odd, exact.negative)) exact.digits.increment();
  if (exact.digits.count() > context.digits) {  // all nines became a one and zeros
    exact.digits.shiftDown(1);
    ++exact.exponent;
  }
  return true;
}

}  // namespace

void round(const ExactDecimal& exact, DecimalContext& context, DecimalNumber& number) noexcept {
  if (exact.digits.isZero()) return setZero(number, exact, context);

  ExactDecimal result = exact;
  const int count = exact.digits.count();
  const int64_t adjusted = exact.exponent + count - 1;
  const bool subnormal = adjusted < context.emin;
  if (subnormal) context.status |= kSubnormal;

  const int64_t lowest = std::max(exact.exponent + count - context.digits, leastExponent(context));
  if (adjusted <= context.emax && exact.exponent < lowest) {
    const bool changed = dropDigits(result, lowest - exact.exponent, context);
    if (changed && subnormal) context.status |= kUnderflow;
  }

  if (result.exponent + result.digits.count() - 1 > context.emax)
    return overflow(number, exact.negative, context);

  const int64_t excess = result.exponent - largestFullExponent(context);
  if (context.clamp != 0 && excess > 0) {
    result.digits.shiftUp(static_cast<int>(excess));
    result.exponent -= excess;
  }
  setFinite(number, result.negative, result.digits, result.exponent);
}

}  // namespace oss
