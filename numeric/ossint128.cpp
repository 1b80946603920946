// 128-bit integers: decimal text, and the conversions from and to binary floating point.
//
// A double is taken apart and put together as bits, so the results do not depend on the rounding
// mode of the thread:
//
//   63   62......52 51......0     value = 1.fraction x 2^(exponent - 1023)
//  [sign| exponent | fraction]
#include "ossint128.h"

#include <array>
#include <bit>

#include "numeric/ossdigits.h"

namespace {

using oss::isDecimalDigit;
using oss::isNegative;
using oss::magnitude;
using oss::negated;

static_assert(std::bit_cast<std::array<uint64_t, 2>>(int128(1, 2)) == std::array<uint64_t, 2>{1, 2},
              "the low word lies first");

// ---- To decimal text ----

constexpr uint64_t kTen19 = 10'000'000'000'000'000'000u;  // the largest power of ten in one word
constexpr unsigned kPieceDigits = 19;

constexpr auto kDigitPairs = [] {
  std::array<char, 200> pairs{};
  for (size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

constexpr auto kPowersOfTen = [] {
  std::array<uint64_t, kPieceDigits + 1> powers{1};
  for (size_t i = 1; i < powers.size(); ++i) powers[i] = powers[i - 1] * 10;
  return powers;
}();

// 1 for 0. 1233 / 4096 is log10(2), near enough to be at most one too small.
unsigned countDigits(uint64_t value) noexcept {
  const unsigned atLeast = static_cast<unsigned>(std::bit_width(value | 1)) * 1233 >> 12;
  return atLeast + (value >= kPowersOfTen[atLeast] || value == 0);
}

// Writes exactly `count` digits, with leading zeros, from the last one backwards.
void writeDigits(char* out, uint64_t value, unsigned count) noexcept {
  for (; count >= 2; count -= 2, value /= 100)
    std::memcpy(out + count - 2, &kDigitPairs[2 * (value % 100)], 2);
  if (count != 0) *out = static_cast<char>('0' + value);
}

// A value as up to three pieces of 19 digits, the most significant first.
struct Pieces {
  uint64_t piece[3];
  unsigned count = 0;

  explicit Pieces(const int128& value) noexcept {
    if (value.high() == 0) {
      add(value.low());
      return;
    }

    uint64_t last;
    const uint64_t above = oss::divideWords(value.high() % kTen19, value.low(), kTen19, last);
    const uint64_t carried = value.high() / kTen19;  // 0 or 1: the third word of the quotient
    uint64_t middle;
    const uint64_t first = oss::divideWords(carried, above, kTen19, middle);

    if (first != 0) add(first);
    add(middle);
    add(last);
  }

  void add(uint64_t digits) noexcept { piece[count++] = digits; }
};

}  // namespace

int int128::tostr(char* out, size_t size, bool asSigned) const noexcept {
  if (out == nullptr || size == 0) return -1;

  const bool negative = asSigned && isNegative(*this);
  if (negative) *out = '-';  // stays there when the digits do not fit

  const Pieces pieces(negative ? negated(*this) : *this);
  const unsigned leading = countDigits(pieces.piece[0]);
  const unsigned digits = leading + (pieces.count - 1) * kPieceDigits;
  if (digits >= size - negative) return -1;

  char* at = out + negative;
  writeDigits(at, pieces.piece[0], leading);
  at += leading;
  for (unsigned i = 1; i < pieces.count; ++i, at += kPieceDigits)
    writeDigits(at, pieces.piece[i], kPieceDigits);

  *at = '\0';
  return static_cast<int>(at - out);
}

// ---- From decimal text ----

namespace {

// value * factor + addend modulo 2^128.
int128 multiplyAdd(const int128& value, uint64_t factor, uint64_t addend) noexcept {
  const int128 scaled = oss::product(value, factor);
  const uint64_t low = scaled.low() + addend;
  return int128(low, scaled.high() + (low < addend));
}

}  // namespace

int128 int128::strToInt128(const char* text) noexcept {
  if (text == nullptr) return int128();

  while (oss::isSpace(*text)) ++text;
  if (*text == '+') ++text;
  const bool negative = *text == '-';
  if (negative) ++text;
  while (*text == '0') ++text;

  int128 value;
  for (; oss::startsWithEightDigits(text); text += 8)
    value = multiplyAdd(value, 100'000'000, oss::valueOfEightDigits(text));

  uint64_t factor = 1;
  uint64_t rest = 0;
  for (; isDecimalDigit(*text); ++text, factor *= 10) rest = rest * 10 + oss::decimalWorth(*text);
  value = multiplyAdd(value, factor, rest);

  // Deliberate: text after the digits takes the sign away.
  return negative && *text == '\0' ? negated(value) : value;
}

// ---- Binary floating point ----

namespace {

constexpr int kFractionBits = 52;
constexpr int kBias = 1023;
constexpr uint64_t kImplicitBit = uint64_t{1} << kFractionBits;

struct Double {
  bool negative;
  int exponent;       // of the leading bit; 1024 for infinity and NaN
  uint64_t mantissa;  // with the leading bit; a denormal gains one, but is below 1 all the same

  explicit Double(double value) noexcept {
    const auto bits = std::bit_cast<uint64_t>(value);
    negative = bits >> 63 != 0;
    exponent = static_cast<int>(bits >> kFractionBits & 0x7FF) - kBias;
    mantissa = (bits & (kImplicitBit - 1)) | kImplicitBit;
  }
};

constexpr int128 shiftedLeft(uint64_t word, int count) noexcept {
  if (count == 0) return word;
  return count < 64 ? int128(word << count, word >> (64 - count)) : int128(0, word << (count - 64));
}

// The integer part of a magnitude whose exponent is 0 to 127.
int128 integerPart(const Double& number) noexcept {
  const int shift = number.exponent - kFractionBits;
  return shift < 0 ? int128(number.mantissa >> -shift) : shiftedLeft(number.mantissa, shift);
}

// Deliberate: truncates. Bits below the upper 53 are dropped, where the processor would round.
double toDouble(const int128& value) noexcept {
  if (value == int128()) return 0.0;

  const int width =
      value.high() != 0 ? 128 - std::countl_zero(value.high()) : 64 - std::countl_zero(value.low());
  const int drop = width - (kFractionBits + 1);
  uint64_t mantissa;
  if (drop <= 0)
    mantissa = value.low() << -drop;
  else if (drop < 64)
    mantissa = value.low() >> drop | value.high() << 1 << (63 - drop);
  else
    mantissa = value.high() >> (drop - 64);

  const auto exponent = static_cast<uint64_t>(int64_t{width} - 1 + kBias);
  return std::bit_cast<double>(exponent << kFractionBits | (mantissa & (kImplicitBit - 1)));
}

int128 unsignedFrom(const Double& number) noexcept {
  if (number.negative || number.exponent < 0) return int128();
  return number.exponent < 128 ? integerPart(number) : int128(~uint64_t{0}, ~uint64_t{0});
}

int128 signedFrom(const Double& number) noexcept {
  if (number.exponent < 0) return int128();
  if (number.exponent >= 127) return oss::signedLimit(number.negative);
  return number.negative ? negated(integerPart(number)) : integerPart(number);
}

}  // namespace

// A float is a double of fewer bits, so it takes the same way.
Uint128::Uint128(float value) noexcept : Uint128(double{value}) {}
Uint128::Uint128(double value) noexcept : int128(unsignedFrom(Double(value))) {}

Sint128::Sint128(float value) noexcept : Sint128(double{value}) {}
Sint128::Sint128(double value) noexcept : int128(signedFrom(Double(value))) {}

Uint128::operator double() const noexcept { return toDouble(*this); }

Sint128::operator double() const noexcept {
  return isNegative(*this) ? -toDouble(magnitude(*this)) : toDouble(*this);
}
