// ossdecimal.h - the records of decimal floating point: a number, and the context that governs it.
//
// A number is (-1)^sign x coefficient x 10^exponent, or an infinity, or a NaN whose coefficient is
// its payload. Both records are plain values. Clients hold them inside an OSSDecfloat only.
#pragma once

#include "osstypes.h"

/// The formats, by the bits of their interchange encodings.
inline constexpr uint32_t OSS_DECFLOAT_64 = 64;    ///< 16 digits, decimal64 of IEEE 754-2008
inline constexpr uint32_t OSS_DECFLOAT_128 = 128;  ///< 34 digits, decimal128

/// Where a number goes that has more digits than its format.
enum OSSDecfloatRounding : uint32_t {
  OSS_DECFLOAT_ROUND_HALF_EVEN = 0,  ///< to the nearest; from halfway to the even digit
  OSS_DECFLOAT_ROUND_HALF_UP = 1,    ///< to the nearest; from halfway away from zero
  OSS_DECFLOAT_ROUND_DOWN = 2,       ///< toward zero
  OSS_DECFLOAT_ROUND_CEILING = 3,    ///< toward positive infinity
  OSS_DECFLOAT_ROUND_FLOOR = 4,      ///< toward negative infinity
  OSS_DECFLOAT_ROUND_HALF_DOWN = 5,  ///< to the nearest; from halfway toward zero
  OSS_DECFLOAT_ROUND_UP = 6,         ///< away from zero
  OSS_DECFLOAT_ROUND_NONE = 7,  ///< digits are cut off, and the context notes that it is invalid
};

// ---- End of the public interface ----------------------------------------------------------------

namespace oss {

// The conditions that a context's status collects, those of the General Decimal Arithmetic that
// something asks for. It does not hold that a result was rounded, inexact or clamped.
inline constexpr uint32_t kConversionSyntax = 0x1;
inline constexpr uint32_t kInvalidContext = 0x40;
inline constexpr uint32_t kOverflow = 0x200;
inline constexpr uint32_t kSubnormal = 0x1000;
inline constexpr uint32_t kUnderflow = 0x2000;

struct DecimalContext {
  int32_t digits = 0;  // of the largest coefficient
  int32_t emax = 0;    // largest and least exponent of a number's first digit
  int32_t emin = 0;
  OSSDecfloatRounding rounding = OSS_DECFLOAT_ROUND_HALF_EVEN;
  uint32_t traps = 0;  // none: conditions only collect
  uint32_t status = 0;
  int32_t specials = 0;      // 1: a special value is a result like any other
  int32_t clamp = 0;         // 1: a large exponent is lowered by zeros behind the digits
  uint32_t encodedSize = 0;  // bytes
  int32_t bias = 0;          // of the encoded exponent
};
OSS_LAYOUT(DecimalContext, 40);
OSS_FIELD(DecimalContext, digits, 0, 4);
OSS_FIELD(DecimalContext, emax, 4, 4);
OSS_FIELD(DecimalContext, emin, 8, 4);
OSS_FIELD(DecimalContext, rounding, 12, 4);
OSS_FIELD(DecimalContext, traps, 16, 4);
OSS_FIELD(DecimalContext, status, 20, 4);
OSS_FIELD(DecimalContext, specials, 24, 4);
OSS_FIELD(DecimalContext, clamp, 28, 4);
OSS_FIELD(DecimalContext, encodedSize, 32, 4);
OSS_FIELD(DecimalContext, bias, 36, 4);

inline constexpr uint8_t kNegative = 0x80;
inline constexpr uint8_t kPositive = 0;
inline constexpr uint8_t kInfinity = 0x40;
inline constexpr uint8_t kQuietNaN = 0x20;
inline constexpr uint8_t kSignallingNaN = 0x10;
inline constexpr uint8_t kNaN = kQuietNaN | kSignallingNaN;
inline constexpr uint8_t kSpecial = kInfinity | kNaN;

inline constexpr int32_t kCoefficientUnits = 9;

struct DecimalNumber {
  int32_t digits = 0;  // in the coefficient, 1 for zero; 0 while there is no value
  int32_t exponent = 0;
  uint8_t flags = 0;
  // Four decimal digits a unit, the least significant unit first; units above the digits are 0.
  uint16_t units[kCoefficientUnits] = {};
};
OSS_LAYOUT(DecimalNumber, 28);
OSS_FIELD(DecimalNumber, digits, 0, 4);
OSS_FIELD(DecimalNumber, exponent, 4, 4);
OSS_FIELD(DecimalNumber, flags, 8, 1);
OSS_FIELD(DecimalNumber, units, 10, 18);

}  // namespace oss
