// Number to text: to-scientific-string of the General Decimal Arithmetic specification.
//
// Digits become characters sixteen at a time. The point's place is made while they are digits
// still. What is written is exactly the text, in pieces of one size that may overlap.
#include <algorithm>
#include <array>

#include "numeric/decimal/decimal.h"
#include "numeric/decimal/digits.h"

namespace oss {
namespace {

// A number whose first digit counts less than 10^-6 has an exponent in its text.
constexpr int32_t kLeastPlainExponent = -6;

// ---- Digits to characters ----

using Characters [[gnu::vector_size(16)]] = uint8_t;

// The sixteen digits of a word, the most significant one first.
inline Characters charactersOf(uint64_t digits) noexcept {
  const Words word = {__builtin_bswap64(digits), 0};
  const auto odd = std::bit_cast<Characters>(word >> 4) & 0x0F;
  const auto even = std::bit_cast<Characters>(word) & 0x0F;
  return '0' +
         __builtin_shufflevector(odd, even, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}

template <class Piece>
inline void store(char* out, Piece piece) noexcept {
  std::memcpy(out, &piece, sizeof piece);
}

// Writes the last `length` digits of a word, at least 1.
inline void writeFew(char* out, uint64_t digits, int32_t length) noexcept {
  const Characters all = charactersOf(digits << (kDigitsInWord - length) * 4);
  const uint64_t first = std::bit_cast<Words>(all)[0];

  if (length >= 8) {
    store(out, first);
    store(out + length - 8, std::bit_cast<Words>(charactersOf(digits))[1]);
  } else if (length >= 4) {
    store(out, static_cast<uint32_t>(first));
    store(out + length - 4, static_cast<uint32_t>(first >> (length - 4) * 8));
  } else {
    store(out, static_cast<uint8_t>(first));
    store(out + length / 2, static_cast<uint8_t>(first >> length / 2 * 8));
    store(out + length - 1, static_cast<uint8_t>(first >> (length - 1) * 8));
  }
}

// The same for more than a word of them.
inline void writeMany(char* out, const Digits& digits, int32_t length) noexcept {
  char* const last = out + length - kDigitsInWord;
  if (length < 2 * kDigitsInWord) {
    store(out, charactersOf(shiftedDown(digits.word[1], digits.word[0], length - kDigitsInWord)));
  } else {
    store(out,
          charactersOf(shiftedDown(digits.word[2], digits.word[1], length - 2 * kDigitsInWord)));
    store(last - kDigitsInWord, charactersOf(digits.word[1]));
  }
  store(last, charactersOf(digits.word[0]));
}

// ---- The point's place ----

// A mask of the last `count` digits of a word, which may be less than none or more than all.
constexpr uint64_t lastDigits(int32_t count) noexcept {
  if (count <= 0) return 0;
  return count < kDigitsInWord ? (uint64_t{1} << count * 4) - 1 : ~uint64_t{0};
}

// The digits behind the point stay, those before it move up by one place. There is room for it.
constexpr uint64_t parted(uint64_t digits, int32_t fraction) noexcept {
  const uint64_t behind = digits & lastDigits(fraction);
  return (digits ^ behind) << 4 | behind;
}

constexpr Digits parted(const Digits& digits, int32_t fraction) noexcept {
  const uint64_t behind[3] = {digits.word[0] & lastDigits(fraction),
                              digits.word[1] & lastDigits(fraction - kDigitsInWord),
                              digits.word[2] & lastDigits(fraction - 2 * kDigitsInWord)};
  Digits moved = {
      {digits.word[0] ^ behind[0], digits.word[1] ^ behind[1], digits.word[2] ^ behind[2]}};
  moved.append(0, 1);
  return {{moved.word[0] | behind[0], moved.word[1] | behind[1], moved.word[2] | behind[2]}};
}

// ---- Finite numbers ----

// In the plain form all digits before the point are written, at least one, and as many behind it as
// the exponent asks for; in the other form one digit is before the point.
struct Shape {
  int32_t adjusted;  // exponent of the first digit
  bool plain;
  int32_t fraction;  // digits behind the point
  int32_t digits;    // all of them

  explicit Shape(const DecimalNumber& number) noexcept
      : adjusted(number.exponent + number.digits - 1),
        plain(number.exponent <= 0 && adjusted >= kLeastPlainExponent),
        fraction(plain ? -number.exponent : number.digits - 1),
        digits(std::max(number.digits, fraction + 1)) {}

  uint32_t exponentSize() const noexcept { return static_cast<uint32_t>(std::abs(adjusted)); }
  int32_t exponentDigits() const noexcept {
    const uint32_t size = exponentSize();
    return 1 + (size > 9) + (size > 99) + (size > 999);
  }
  int32_t length() const noexcept {
    return digits + (fraction != 0) + (plain ? 0 : 2 + exponentDigits());
  }
};

// "E+5": as many digits as the exponent has.
inline char* writeExponent(char* out, const Shape& shape) noexcept {
  *out++ = 'E';
  *out++ = shape.adjusted < 0 ? '-' : '+';
  const int32_t count = shape.exponentDigits();
  uint32_t rest = shape.exponentSize();
  for (int32_t i = count; i-- != 0; rest /= 10) out[i] = static_cast<char>('0' + rest % 10);
  return out + count;
}

inline void writeFinite(char* out, const DecimalNumber& number, const Shape& shape) noexcept {
  const bool pointed = shape.fraction != 0;
  const int32_t length = shape.digits + pointed;
  const Digits digits = digitsOf(number);
  if (length <= kDigitsInWord)
    writeFew(out, pointed ? parted(digits.word[0], shape.fraction) : digits.word[0], length);
  else
    writeMany(out, pointed ? parted(digits, shape.fraction) : digits, length);

  out += length;
  if (pointed) *(out - shape.fraction - 1) = '.';
  if (!shape.plain) out = writeExponent(out, shape);
  *out = '\0';
}

// ---- Infinities and NaN ----

uint32_t writeSpecial(char* out, const DecimalNumber& number, uint64_t size) noexcept {
  char text[8 + Digits::kCapacity];
  char* at = text;
  if ((number.flags & kNegative) != 0) *at++ = '-';
  for (const char* name = (number.flags & kInfinity) != 0        ? "Infinity"
                          : (number.flags & kSignallingNaN) != 0 ? "sNaN"
                                                                 : "NaN";
       *name != '\0'; ++name)
    *at++ = *name;

  const Digits payload = digitsOf(number);
  for (int i = payload.isZero() ? 0 : payload.count(); i-- != 0;)
    *at++ = static_cast<char>('0' + payload.at(i));
  *at = '\0';

  const auto length = static_cast<uint32_t>(at - text);
  if (length <= size) std::memcpy(out, text, length + 1);
  return length;
}

}  // namespace

uint32_t toScientificText(const DecimalNumber& number, char* out, uint64_t size) noexcept {
  if ((number.flags & kSpecial) != 0) [[unlikely]]
    return writeSpecial(out, number, size);

  const Shape shape(number);
  const uint32_t negative = number.flags >> 7;
  const uint32_t length = static_cast<uint32_t>(shape.length()) + negative;
  if (length > size) return length;

  *out = '-';
  writeFinite(out + negative, number, shape);
  return length;
}

}  // namespace oss
