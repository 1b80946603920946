// ossint128.h - integers of 128 bits: Uint128, unsigned, and Sint128, in two's complement.
//
//   127.....64 63......0
//  [   high   |   low   ]   the low word lies first in memory; bit 127 is the sign of a Sint128
//
// Values are plain words: they copy freely, own nothing, and no operation on them fails. Arithmetic
// is inline and runs on the processor's own 64 x 64 -> 128 bit multiplication and 128 / 64 -> 64
// bit division. An operand of another type is converted where it is written, `n * Uint128(2)`:
// plain `n * 2` could as well mean a double, and the compiler refuses it. There is no sum and no
// order: `n + 1` and `n < m` compile, but as doubles.
#pragma once

#include "osstypes.h"

/// What both classes share: the bits and the conversion from and to decimal text.
class OSS_API int128 {
 public:
  /// Zero.
  constexpr int128() noexcept = default;
  /// The bits themselves.
  constexpr int128(uint64_t low, uint64_t high) noexcept : low_(low), high_(high) {}
  /// A signed value is extended into the high word by its sign, an unsigned one by zeros.
  constexpr int128(uint32_t value) noexcept : low_(value) {}
  constexpr int128(uint64_t value) noexcept : low_(value) {}
  constexpr int128(int32_t value) noexcept : int128(int64_t{value}) {}
  constexpr int128(int64_t value) noexcept
      : low_(static_cast<uint64_t>(value)), high_(value < 0 ? ~uint64_t{0} : 0) {}

  constexpr uint64_t low() const noexcept { return low_; }
  constexpr uint64_t high() const noexcept { return high_; }

  /// True when all 128 bits are equal; whether they are signed plays no part.
  constexpr bool operator==(const int128&) const noexcept = default;

 protected:
  /// Writes the value as decimal text.
  /// \param out       receives the digits, after a `-` for a negative value, and a NUL
  /// \param size      bytes at `out`; 40 hold every unsigned value, 41 every signed one
  /// \param asSigned  whether bit 127 is a sign
  /// \return the characters written without the NUL; -1 when they do not fit or `out` is null: then
  ///         the `-` of a negative value stands at `out` alone, without a NUL, if `size` is not 0
  int tostr(char* out, size_t size, bool asSigned) const noexcept;

  /// Reads decimal text: white space, an optional `+`, then an optional `-`, digits. Digits beyond
  /// 128 bits wrap. The value ends at the first character that is no digit; a `-` counts only when
  /// nothing follows the digits, so "-42" is -42 and "-42 " is 42. Null reads as 0.
  static int128 strToInt128(const char* text) noexcept;

 private:
  uint64_t low_ = 0;
  uint64_t high_ = 0;
};
OSS_LAYOUT(int128, 16);

/// An unsigned integer of 128 bits.
class OSS_API Uint128 : public int128 {
 public:
  using int128::int128;
  constexpr Uint128() noexcept = default;
  /// The same bits, read as unsigned.
  constexpr explicit Uint128(const int128& bits) noexcept : int128(bits) {}

  /// The integer part. Negative values give 0; 2^128 and more, also infinity, give all ones. A NaN
  /// counts as infinity of its sign.
  Uint128(float value) noexcept;
  Uint128(double value) noexcept;

  /// The nearest double toward zero: bits below the upper 53 are dropped, not rounded.
  operator double() const noexcept;
};
OSS_LAYOUT(Uint128, 16);

/// A signed integer of 128 bits in two's complement.
class OSS_API Sint128 : public int128 {
 public:
  using int128::int128;
  constexpr Sint128() noexcept = default;
  /// The same bits, read as signed.
  constexpr explicit Sint128(const int128& bits) noexcept : int128(bits) {}

  /// The integer part. What lies outside the range gives its end on that side, so also infinity; a
  /// NaN counts as infinity of its sign.
  Sint128(float value) noexcept;
  Sint128(double value) noexcept;

  /// The nearest double toward zero: bits below the upper 53 of the magnitude are dropped.
  operator double() const noexcept;

  /// Divides as operator/ does.
  inline Sint128& operator/=(unsigned int divisor) noexcept;
};
OSS_LAYOUT(Sint128, 16);

/// The product modulo 2^128.
Uint128 operator*(const Uint128& x, const Uint128& y) noexcept;
Sint128 operator*(const Sint128& x, const Sint128& y) noexcept;

/// The quotient, truncated toward zero. Division by zero does not fault: it gives the end of the
/// range that the quotient runs to, all ones for a Uint128; for a Sint128 the largest value, or the
/// most negative one when the dividend is negative. The most negative value by -1 is itself.
Uint128 operator/(const Uint128& dividend, const Uint128& divisor) noexcept;
Sint128 operator/(const Sint128& dividend, const Sint128& divisor) noexcept;

// ---- End of the public interface ----------------------------------------------------------------

namespace oss {

// Returns the low word of x * y.
inline uint64_t multiplyWords(uint64_t x, uint64_t y, uint64_t& high) noexcept {
  uint64_t low;
  __asm__("mulq %3" : "=a"(low), "=d"(high) : "%0"(x), "r"(y) : "cc");
  return low;
}

// Divides [high|low] by the divisor. The quotient must fit one word, that is high < divisor; the
// processor faults otherwise.
inline uint64_t divideWords(uint64_t high, uint64_t low, uint64_t divisor,
                            uint64_t& remainder) noexcept {
  uint64_t quotient;
  __asm__("divq %4" : "=a"(quotient), "=d"(remainder) : "0"(low), "1"(high), "r"(divisor) : "cc");
  return quotient;
}

constexpr bool isNegative(const int128& value) noexcept { return value.high() >> 63 != 0; }

constexpr int128 negated(const int128& value) noexcept {
  return int128(0 - value.low(), ~value.high() + (value.low() == 0));
}

constexpr int128 magnitude(const int128& value) noexcept {
  return isNegative(value) ? negated(value) : value;
}

inline int128 product(const int128& x, const int128& y) noexcept {
  uint64_t high;
  const uint64_t low = multiplyWords(x.low(), y.low(), high);
  return int128(low, high + x.low() * y.high() + x.high() * y.low());
}

// The divisor has two words, so the quotient has one. Normalised long division (Knuth, The Art of
// Computer Programming, vol. 2, 4.3.1, algorithm D): shift both until the divisor's top bit is set,
// divide the upper two of three words by the divisor's upper word, and correct that trial by the
// divisor's lower word. The shift leaves at most `shift` bits in the third word, hence the trial is
// too large by one at most.
inline uint64_t quotientByTwoWords(const int128& dividend, const int128& divisor) noexcept {
  if (dividend.high() < divisor.high()) return 0;
  const int shift = __builtin_clzll(divisor.high());
  if (shift == 0) return dividend.high() > divisor.high() || dividend.low() >= divisor.low();

  const int rest = 64 - shift;
  const uint64_t divisorHigh = divisor.high() << shift | divisor.low() >> rest;
  const uint64_t divisorLow = divisor.low() << shift;
  const uint64_t dividendTop = dividend.high() >> rest;
  const uint64_t dividendHigh = dividend.high() << shift | dividend.low() >> rest;
  const uint64_t dividendLow = dividend.low() << shift;

  uint64_t remainder;
  const uint64_t trial = divideWords(dividendTop, dividendHigh, divisorHigh, remainder);
  uint64_t owedHigh;
  const uint64_t owedLow = multiplyWords(trial, divisorLow, owedHigh);
  const bool tooLarge = owedHigh > remainder || (owedHigh == remainder && owedLow > dividendLow);
  return trial - tooLarge;
}

inline int128 quotient(const int128& dividend, const int128& divisor) noexcept {
  if (divisor.high() != 0) return quotientByTwoWords(dividend, divisor);

  uint64_t remainder;
  if (dividend.high() < divisor.low())
    return divideWords(dividend.high(), dividend.low(), divisor.low(), remainder);
  if (divisor.low() == 0) return int128(~uint64_t{0}, ~uint64_t{0});

  const uint64_t high = dividend.high() / divisor.low();
  return int128(
      divideWords(dividend.high() % divisor.low(), dividend.low(), divisor.low(), remainder), high);
}

// The end of the signed range on that side.
constexpr int128 signedLimit(bool negative) noexcept {
  constexpr uint64_t kSign = uint64_t{1} << 63;
  return negative ? int128(0, kSign) : int128(~uint64_t{0}, kSign - 1);
}

inline int128 signedQuotient(const int128& dividend, const int128& divisor) noexcept {
  if (divisor == int128()) return signedLimit(isNegative(dividend));

  const int128 result = quotient(magnitude(dividend), magnitude(divisor));
  return isNegative(dividend) != isNegative(divisor) ? negated(result) : result;
}

}  // namespace oss

inline Uint128 operator*(const Uint128& x, const Uint128& y) noexcept {
  return Uint128(oss::product(x, y));
}

// Modulo 2^128 the product of the bits is the product of the magnitudes with its sign.
inline Sint128 operator*(const Sint128& x, const Sint128& y) noexcept {
  return Sint128(oss::product(x, y));
}

inline Uint128 operator/(const Uint128& dividend, const Uint128& divisor) noexcept {
  return Uint128(oss::quotient(dividend, divisor));
}

inline Sint128 operator/(const Sint128& dividend, const Sint128& divisor) noexcept {
  return Sint128(oss::signedQuotient(dividend, divisor));
}

inline Sint128& Sint128::operator/=(unsigned int divisor) noexcept {
  return *this = Sint128(oss::signedQuotient(*this, divisor));
}
