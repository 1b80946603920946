// OSSDecfloat: the decimal core with the return codes of its clients around it.
#include "ossdecfloat.h"

#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "numeric/decimal/decimal.h"
#include "osscatalog.h"
#include "ossint128.h"
#include "ossstring.h"

using namespace oss;

namespace {

constexpr int kOutOfRange = 34;  // ERANGE of the C run-time, whichever that is

// Opens the conversion to text, which is for deriving classes.
struct WideInteger : int128 {
  using int128::int128;
  using int128::tostr;
};

}  // namespace

// ---- Construction ----

OSSDecfloat::OSSDecfloat() noexcept : OSSDecfloat(OSS_DECFLOAT_64) {}

OSSDecfloat::OSSDecfloat(uint32_t format) noexcept : context_(decimalContext(format)) {}

OSSDecfloat::OSSDecfloat(const char* text, uint32_t format) noexcept : OSSDecfloat(format) {
  fromString(text);
}

OSSDecfloat::OSSDecfloat(const char* text, OSSDecfloatRounding rounding, uint32_t format) noexcept
    : OSSDecfloat(format) {
  number_.digits = 1;  // 0, should the rounding be refused
  fromString(text, rounding);
}

OSSDecfloat::OSSDecfloat(double value, uint32_t format) noexcept : OSSDecfloat(format) {
  fromDouble(value);
}

OSSDecfloat::OSSDecfloat(uint32_t value, uint32_t format) noexcept : OSSDecfloat(format) {
  fromUInt32(value);
}

OSSDecfloat::OSSDecfloat(int32_t value, uint32_t format) noexcept : OSSDecfloat(format) {
  fromSInt32(value);
}

OSSDecfloat::OSSDecfloat(uint64_t value, uint32_t format) noexcept : OSSDecfloat(format) {
  fromUInt64(value);
}

OSSDecfloat::OSSDecfloat(int64_t value, uint32_t format) noexcept : OSSDecfloat(format) {
  fromSInt64(value);
}

// ---- Text ----

OSSErr OSSDecfloat::setRoundingMode(OSSDecfloatRounding rounding) noexcept {
  if (static_cast<uint32_t>(rounding) > OSS_DECFLOAT_ROUND_NONE)
    return ECF_DECFLOAT_INVALID_ROUNDING_MODE;
  context_.rounding = rounding;
  return ECF_OK;
}

OSSErr OSSDecfloat::fromString(const char* text) noexcept {
  context_.status = 0;
  toNumber(text, context_, number_);

  if ((number_.flags & kSpecial) != 0 && context_.specials != 1) {
    if ((number_.flags & kNaN) != 0) return ECF_DECFLOAT_NOT_A_NUMBER;
    return (number_.flags & kNegative) != 0 ? ECF_DECFLOAT_NEGATIVE_INFINITY
                                            : ECF_DECFLOAT_POSITIVE_INFINITY;
  }
  const bool outOfRange = (context_.status & (kOverflow | kUnderflow | kSubnormal)) != 0;
  return outOfRange ? ECF_DECFLOAT_OUT_OF_RANGE : ECF_OK;
}

OSSErr OSSDecfloat::fromString(const char* text, OSSDecfloatRounding rounding) noexcept {
  if (const OSSErr rc = setRoundingMode(rounding)) return rc;
  return fromString(text);
}

OSSErr OSSDecfloat::toString(char* out, uint64_t size) const noexcept {
  if (out == nullptr) return ECF_INVALID_PARAMETER;
  if ((context_.status & kConversionSyntax) != 0) {
    std::memcpy(out, "NaN", sizeof "NaN");
    return ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR;
  }

  const char* name = nullptr;
  if ((number_.flags & kSpecial) != 0) {
    if ((number_.flags & kSignallingNaN) != 0)
      name = "sNaN";
    else if ((number_.flags & kQuietNaN) != 0)
      name = "NaN";
    else
      name = (number_.flags & kNegative) != 0 ? "-Infinity" : "Infinity";
    // Deliberate: a special value does not regard the size.
    std::memcpy(out, name, std::strlen(name) + 1);
    return ECF_OK;
  }
  if (number_.digits == 0) return ECF_DECFLOAT_NOT_A_NUMBER;

  // Deliberate: the bound does not count the NUL.
  const bool written = toScientificText(number_, out, size) <= size;
  return written ? ECF_OK : ECF_DECFLOAT_INVALID_STRING_LENGTH;
}

// ---- Integers and doubles ----

// Deliberate: through a double, so with the zeros of 15 digits.
OSSErr OSSDecfloat::fromUInt32(uint32_t value) noexcept { return fromDouble(value); }
OSSErr OSSDecfloat::fromSInt32(int32_t value) noexcept { return fromDouble(value); }

OSSErr OSSDecfloat::fromUInt64(uint64_t value) noexcept {
  char text[kDecimalTextBytes];
  WideInteger(value).tostr(text, sizeof text, false);
  return fromString(text);
}

OSSErr OSSDecfloat::fromSInt64(int64_t value) noexcept {
  char text[kDecimalTextBytes];
  WideInteger(value).tostr(text, sizeof text, true);
  return fromString(text);
}

namespace {

// The longest number of the type has one digit more than the type can hold of any.
template <class Integer>
OSSErr toInteger(const DecimalNumber& number, Integer* value) noexcept {
  using Limits = std::numeric_limits<Integer>;
  constexpr int32_t kLongest = Limits::digits10 + 1;

  if (value == nullptr) return ECF_INVALID_PARAMETER;
  *value = 0;
  if ((number.flags & kSpecial) != 0) return ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR;

  const bool negative = (number.flags & kNegative) != 0;
  const int32_t length = number.digits + number.exponent;
  if (length > kLongest) return ECF_DECFLOAT_OUT_OF_RANGE;
  // Deliberate: no negative number is unsigned, also none that would be cut to 0.
  if (negative && !Limits::is_signed) return ECF_DECFLOAT_OUT_OF_RANGE;
  if (length < 1) return ECF_OK;

  uint64_t magnitude = 0;
  const uint64_t limit = static_cast<uint64_t>(Limits::max()) + negative;
  if (!integerPart(number, magnitude) || magnitude > limit) return ECF_DECFLOAT_OUT_OF_RANGE;
  *value = static_cast<Integer>(negative ? 0 - magnitude : magnitude);
  return ECF_OK;
}

}  // namespace

OSSErr OSSDecfloat::toUInt32(uint32_t* value) const noexcept { return toInteger(number_, value); }
OSSErr OSSDecfloat::toSInt32(int32_t* value) const noexcept { return toInteger(number_, value); }
OSSErr OSSDecfloat::toUInt64(uint64_t* value) const noexcept { return toInteger(number_, value); }
OSSErr OSSDecfloat::toSInt64(int64_t* value) const noexcept { return toInteger(number_, value); }

OSSErr OSSDecfloat::fromDouble(double value) noexcept {
  // The run-times spell these in their own ways.
  if (std::isnan(value)) return fromString("NaN");
  if (std::isinf(value)) return fromString(value < 0 ? "-Infinity" : "Infinity");

  char text[kDecimalTextBytes];
  ossSnprintf(text, sizeof text, "%1.14E", value);
  text[text[0] == '-' ? 2 : 1] = '.';  // the run-time's point is that of the locale
  return fromString(text);
}

OSSErr OSSDecfloat::toDouble(double* value) const noexcept {
  if (value == nullptr) return ECF_INVALID_PARAMETER;
  char text[kDecimalTextBytes];
  if (const OSSErr rc = toString(text, sizeof text - 1)) return rc;

  // The run-time's point is that of the locale.
  if (char* const point = std::strchr(text, '.')) *point = *std::localeconv()->decimal_point;
  errno = 0;
  *value = std::strtod(text, nullptr);
  return errno == kOutOfRange ? ECF_DECFLOAT_OUT_OF_RANGE : ECF_OK;
}

// ---- Encodings ----

namespace {

// Deliberate: every size but 16 means 8.
bool isEncodedIn(uint32_t size, const DecimalContext& context) noexcept {
  return context.encodedSize == (size == 16 ? 16 : 8);
}

}  // namespace

OSSErr OSSDecfloat::toDecPacked(uint8_t* out, uint32_t size) const noexcept {
  if (out == nullptr) return ECF_INVALID_PARAMETER;
  if (!isEncodedIn(size, context_)) return ECF_DECFLOAT_INVALID_ARRAY_SIZE;
  encode(number_, context_, out);
  return ECF_OK;
}

OSSErr OSSDecfloat::fromDecPacked(const uint8_t* in, uint32_t size) noexcept {
  if (in == nullptr) return ECF_INVALID_PARAMETER;
  if (!isEncodedIn(size, context_)) return ECF_DECFLOAT_INVALID_ARRAY_SIZE;
  decode(in, context_, number_);
  return ECF_OK;
}

// ---- The other format ----

namespace {

OSSErr convert(const OSSDecfloat& source, OSSDecfloat& target) noexcept {
  char text[kDecimalTextBytes];
  if (const OSSErr rc = source.toString(text, sizeof text - 1)) return rc;
  return target.fromString(text);
}

}  // namespace

OSSErr OSSDecfloat::toDecfloat34(OSSDecfloat34& target) const noexcept {
  return convert(*this, target);
}

OSSErr OSSDecfloat::toDecfloat16(OSSDecfloat16& target) const noexcept {
  return convert(*this, target);
}

OSSErr OSSDecfloat::fromDecfloat34(const OSSDecfloat34& source,
                                   OSSDecfloatRounding rounding) noexcept {
  if (const OSSErr rc = setRoundingMode(rounding)) return rc;
  return convert(source, *this);
}

OSSErr OSSDecfloat::fromDecfloat16(const OSSDecfloat16& source) noexcept {
  return convert(source, *this);
}
