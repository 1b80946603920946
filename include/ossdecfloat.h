// ossdecfloat.h - decimal floating point: OSSDecfloat and its two formats.
//
// An object is a plain value: one number, and the context that governs it (format, rounding, the
// conditions met by the last conversion from text). A decimal64 object holds 16 digits, a
// decimal128 object 34; a number keeps the zeros at its end, so that 7.00 and 7 are equal in worth
// but not in text. Nothing allocates, and no operation traces or logs: each returns its code and
// nothing else. After a failure the object holds whatever number the failed step produced. A null
// pointer is refused as ECF_INVALID_PARAMETER, but a null text is bad text.
//
// One thread changes an object at a time; different objects share nothing.
#pragma once

#include "ossdecimal.h"

class OSSDecfloat16;
class OSSDecfloat34;

class OSS_API OSSDecfloat {
 public:
  /// Constructs a decimal64 object that holds no value.
  OSSDecfloat() noexcept;
  /// Constructs an object that holds no value.
  /// \param format  OSS_DECFLOAT_64 or OSS_DECFLOAT_128, here and below. Any other leaves the
  ///                context unset; such an object must not be used
  explicit OSSDecfloat(uint32_t format) noexcept;

  /// Constructs an object and converts the value as the operation does that takes it. The code of
  /// the conversion is dropped: the number tells. With a rounding that is refused it is 0.
  OSSDecfloat(const char* text, uint32_t format) noexcept;
  OSSDecfloat(const char* text, OSSDecfloatRounding rounding, uint32_t format) noexcept;
  OSSDecfloat(double value, uint32_t format) noexcept;
  OSSDecfloat(uint32_t value, uint32_t format) noexcept;
  OSSDecfloat(int32_t value, uint32_t format) noexcept;
  OSSDecfloat(uint64_t value, uint32_t format) noexcept;
  OSSDecfloat(int64_t value, uint32_t format) noexcept;

  /// Chooses the rounding of the conversions from text that follow.
  /// \retval 0                                   done; with OSS_DECFLOAT_ROUND_NONE, too
  /// \retval ECF_DECFLOAT_INVALID_ROUNDING_MODE  beyond OSS_DECFLOAT_ROUND_NONE; nothing changed
  OSSErr setRoundingMode(OSSDecfloatRounding rounding) noexcept;

  /// Reads a number by the grammar of the General Decimal Arithmetic: an optional sign, digits with
  /// an optional point, an optional exponent ("-12.50", "1E+3"); or "Inf", "Infinity", "NaN",
  /// "sNaN", the last two also with digits behind them. Letters count in either case; white space
  /// is an error. More digits than the format holds are rounded without a code.
  /// \retval 0                               converted
  /// \retval ECF_DECFLOAT_NOT_A_NUMBER       a NaN, or no number at all, or null: then a NaN, too
  /// \retval ECF_DECFLOAT_POSITIVE_INFINITY  an infinity, or a number that is too large
  /// \retval ECF_DECFLOAT_NEGATIVE_INFINITY  the same, negative
  /// \retval ECF_DECFLOAT_OUT_OF_RANGE       too large, but rounded to the largest number; or so
  ///                                         small that the format holds it with fewer digits, if
  ///                                         at all
  OSSErr fromString(const char* text) noexcept;
  /// The same after setRoundingMode, whose refusal is returned; then the text is not read.
  OSSErr fromString(const char* text, OSSDecfloatRounding rounding) noexcept;

  /// Converts through a double, so to 15 significant digits: 7 becomes 7.00000000000000, and 0
  /// becomes 0E-14.
  /// \return as fromString
  OSSErr fromUInt32(uint32_t value) noexcept;
  OSSErr fromSInt32(int32_t value) noexcept;

  /// Converts exactly, but for rounding to the format's digits: 7 becomes 7.
  /// \return as fromString
  OSSErr fromUInt64(uint64_t value) noexcept;
  OSSErr fromSInt64(int64_t value) noexcept;

  /// Converts 15 significant digits of the value, all of them written: 0.1 becomes
  /// 0.100000000000000.
  /// \return as fromString, also for infinities and NaN
  OSSErr fromDouble(double value) noexcept;

  /// Writes the number in the scientific form of the General Decimal Arithmetic ("0.10", "1.5E+9",
  /// "Infinity") with a NUL. A NaN is "NaN" or "sNaN", without its sign and payload.
  /// \param out   receives at most 43 bytes
  /// \param size  characters at `out` without the NUL, which is written behind them: a text of
  ///              `size` characters takes size + 1 bytes. Special values do not regard it
  /// \retval 0                                      written
  /// \retval ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR  the last fromString met bad text; "NaN" is
  ///                                                written
  /// \retval ECF_DECFLOAT_NOT_A_NUMBER              there is no value; nothing is written
  /// \retval ECF_DECFLOAT_INVALID_STRING_LENGTH     longer than `size`; nothing is written
  OSSErr toString(char* out, uint64_t size) const noexcept;

  /// Converts the integer part.
  /// \param value  receives it; 0 on failure
  /// \retval 0                                      converted; 0 also when there is no value
  /// \retval ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR  an infinity or a NaN
  /// \retval ECF_DECFLOAT_OUT_OF_RANGE              not in the type's range; or, for the unsigned
  ///                                                ones, negative: also -0 and -0.5; or a zero
  ///                                                whose exponent makes it longer than the type's
  ///                                                longest number, such as 0E+20
  OSSErr toUInt32(uint32_t* value) const noexcept;
  OSSErr toSInt32(int32_t* value) const noexcept;
  OSSErr toUInt64(uint64_t* value) const noexcept;
  OSSErr toSInt64(int64_t* value) const noexcept;

  /// Converts the text of the number with the C library's strtod, which also decides what special
  /// values become. Changes errno.
  /// \retval ECF_DECFLOAT_OUT_OF_RANGE  strtod finds it too large or too small
  /// \return otherwise toString's code, with which nothing is stored
  OSSErr toDouble(double* value) const noexcept;

  /// Writes the interchange encoding of IEEE 754-2008 with densely packed decimal digits, the byte
  /// with the sign first. An object without a value is encoded as 0.
  /// \param out   receives 8 bytes from a decimal64 object, 16 from a decimal128 object
  /// \param size  16 for a decimal128 object; any other number means 8 bytes, for a decimal64 one
  /// \retval 0                                written
  /// \retval ECF_DECFLOAT_INVALID_ARRAY_SIZE  the size is the other format's; nothing is written
  OSSErr toDecPacked(uint8_t* out, uint32_t size) const noexcept;

  /// Reads such an encoding, also one that is not canonical. A fromString that met bad text is not
  /// forgotten: toString goes on to refuse.
  /// \return as toDecPacked
  OSSErr fromDecPacked(const uint8_t* in, uint32_t size) noexcept;

  /// Converts by text: this object's toString, the other object's fromString with the rounding of
  /// whichever receives it. fromDecfloat34 sets this object's rounding first, which stays.
  /// \retval ECF_DECFLOAT_INVALID_ROUNDING_MODE  that is refused; nothing is converted
  /// \return otherwise the first code that is not 0
  OSSErr toDecfloat34(OSSDecfloat34& target) const noexcept;
  OSSErr toDecfloat16(OSSDecfloat16& target) const noexcept;
  OSSErr fromDecfloat34(const OSSDecfloat34& source, OSSDecfloatRounding rounding) noexcept;
  OSSErr fromDecfloat16(const OSSDecfloat16& source) noexcept;

 private:
  friend struct OSSDecfloatLayout;

  oss::DecimalContext context_;
  oss::DecimalNumber number_;
};

/// A decimal64 object. Its constructors are the base's without the format.
class OSSDecfloat16 : public OSSDecfloat {
 public:
  OSSDecfloat16() noexcept : OSSDecfloat(OSS_DECFLOAT_64) {}
  explicit OSSDecfloat16(const char* text) noexcept : OSSDecfloat(text, OSS_DECFLOAT_64) {}
  OSSDecfloat16(const char* text, OSSDecfloatRounding rounding) noexcept
      : OSSDecfloat(text, rounding, OSS_DECFLOAT_64) {}
  explicit OSSDecfloat16(double value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_64) {}
  explicit OSSDecfloat16(uint32_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_64) {}
  explicit OSSDecfloat16(int32_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_64) {}
  explicit OSSDecfloat16(uint64_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_64) {}
  explicit OSSDecfloat16(int64_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_64) {}
};

/// A decimal128 object. Its constructors are the base's without the format.
class OSSDecfloat34 : public OSSDecfloat {
 public:
  OSSDecfloat34() noexcept : OSSDecfloat(OSS_DECFLOAT_128) {}
  explicit OSSDecfloat34(const char* text) noexcept : OSSDecfloat(text, OSS_DECFLOAT_128) {}
  OSSDecfloat34(const char* text, OSSDecfloatRounding rounding) noexcept
      : OSSDecfloat(text, rounding, OSS_DECFLOAT_128) {}
  explicit OSSDecfloat34(double value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_128) {}
  explicit OSSDecfloat34(uint32_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_128) {}
  explicit OSSDecfloat34(int32_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_128) {}
  explicit OSSDecfloat34(uint64_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_128) {}
  explicit OSSDecfloat34(int64_t value) noexcept : OSSDecfloat(value, OSS_DECFLOAT_128) {}
};

struct OSSDecfloatLayout {
  OSS_LAYOUT(OSSDecfloat, 68);
  OSS_FIELD(OSSDecfloat, context_, 0, 40);
  OSS_FIELD(OSSDecfloat, number_, 40, 28);
  OSS_LAYOUT(OSSDecfloat16, 68);
  OSS_LAYOUT(OSSDecfloat34, 68);
};
