// The interchange encodings decimal64 and decimal128 of IEEE 754-2008, 3.5.2.
//
//   sign  combination  exponent continuation  declets
//     1        5             8 or 12          5 or 11, three digits each
//
// The combination holds what does not fit the rest: the upper two bits of the biased exponent,
// which are never 11, and the first digit; or that the number is none.
#include <array>

#include "numeric/decimal/decimal.h"
#include "numeric/decimal/declets.h"
#include "numeric/decimal/digits.h"

namespace oss {
namespace {

constexpr uint32_t kInfinite = 0b11110;
constexpr uint32_t kNotANumber = 0b11111;

struct Combination {
  uint8_t exponent;
  uint8_t digit;
};

constexpr auto kCombinations = [] {
  std::array<Combination, kInfinite> all{};
  for (uint32_t bits = 0; bits < kInfinite; ++bits) {
    const bool largeDigit = bits >> 3 == 0b11;
    const uint32_t exponent = largeDigit ? bits >> 1 & 0b11 : bits >> 3;
    const uint32_t digit = largeDigit ? 8 + (bits & 1) : bits & 0b111;
    all[bits] = {static_cast<uint8_t>(exponent), static_cast<uint8_t>(digit)};
  }
  return all;
}();

constexpr uint32_t combinationOf(uint32_t exponent, uint32_t digit) noexcept {
  return digit < 8 ? exponent << 3 | digit : 0b11000 | exponent << 1 | (digit & 1);
}

// ---- Declets ----

constexpr uint64_t digitsAt(uint64_t bits, int declet) noexcept {
  return kDigitsOfDeclet[bits >> (10 * declet) & 0x3FF];
}

constexpr uint64_t decletAt(uint64_t digits, int declet) noexcept {
  return kDecletOfDigits[digits >> (12 * declet) & 0xFFF];
}

// Fifteen digits and five declets, the lower bits of a word each; what lies above plays no part.
constexpr uint64_t digitsOfFive(uint64_t bits) noexcept {
  return digitsAt(bits, 0) | digitsAt(bits, 1) << 12 | digitsAt(bits, 2) << 24 |
         digitsAt(bits, 3) << 36 | digitsAt(bits, 4) << 48;
}

constexpr uint64_t decletsOfFive(uint64_t digits) noexcept {
  return decletAt(digits, 0) | decletAt(digits, 1) << 10 | decletAt(digits, 2) << 20 |
         decletAt(digits, 3) << 30 | decletAt(digits, 4) << 40;
}

// ---- Both formats ----

struct Bits {
  uint64_t low;
  uint64_t high;
};

struct Decimal64 {
  static constexpr int kContinuationBits = 8;
  static constexpr int kTrailingDigits = 15;

  // The word that begins with the sign, and the one after it.
  static Bits load(const uint8_t* in) noexcept {
    uint64_t word;
    std::memcpy(&word, in, sizeof word);
    return {.low = 0, .high = __builtin_bswap64(word)};
  }

  static void store(Bits bits, uint8_t* out) noexcept {
    const uint64_t word = __builtin_bswap64(bits.high);
    std::memcpy(out, &word, sizeof word);
  }

  static Digits trailingDigits(Bits bits) noexcept { return {{digitsOfFive(bits.high), 0, 0}}; }

  static Bits declets(const Digits& digits) noexcept {
    return {.low = 0, .high = decletsOfFive(digits.word[0])};
  }
};

struct Decimal128 {
  static constexpr int kContinuationBits = 12;
  static constexpr int kTrailingDigits = 33;

  static Bits load(const uint8_t* in) noexcept {
    uint64_t words[2];
    std::memcpy(words, in, sizeof words);
    return {.low = __builtin_bswap64(words[1]), .high = __builtin_bswap64(words[0])};
  }

  static void store(Bits bits, uint8_t* out) noexcept {
    const uint64_t swapped[2] = {__builtin_bswap64(bits.high), __builtin_bswap64(bits.low)};
    std::memcpy(out, swapped, sizeof swapped);
  }

  // Declets 0 to 5 lie in the low word, 7 to 10 in the high one, and 6 in both.
  static Digits trailingDigits(Bits bits) noexcept {
    const uint64_t upper = bits.high << 14 | bits.low >> 50;  // declets 5 to 9, and more
    const uint64_t lowDigits = digitsOfFive(bits.low);
    const uint64_t middleDigits = digitsOfFive(upper);
    const uint64_t topDigits = digitsAt(bits.high >> 36, 0);
    return {{lowDigits | middleDigits << 60, middleDigits >> 4 | topDigits << 56, topDigits >> 8}};
  }

  static Bits declets(const Digits& digits) noexcept {
    const uint64_t lowDeclets = decletsOfFive(digits.word[0]);
    const uint64_t upper = digits.word[1] << 4 | digits.word[0] >> 60;
    const uint64_t middleDeclets = decletsOfFive(upper);
    const uint64_t topDeclet = decletAt(digits.word[2] << 8 | digits.word[1] >> 56, 0);
    return {.low = lowDeclets | middleDeclets << 50, .high = middleDeclets >> 14 | topDeclet << 36};
  }
};

constexpr int kCombinationAt = 58;
constexpr int kSignallingAt = 57;  // the first bit of a NaN's continuation

template <class Format>
void decodeAs(const uint8_t* in, int32_t bias, DecimalNumber& number) noexcept {
  constexpr int kContinuationAt = kCombinationAt - Format::kContinuationBits;
  const Bits bits = Format::load(in);
  const auto combination = static_cast<uint32_t>(bits.high >> kCombinationAt) & 0x1F;
  Digits digits = Format::trailingDigits(bits);

  number.exponent = 0;
  number.flags = bits.high >> 63 != 0 ? kNegative : kPositive;
  if (combination >= kInfinite) [[unlikely]] {
    if (combination == kInfinite) digits = Digits();
    const bool signalling = (bits.high >> kSignallingAt & 1) != 0;
    number.flags |= combination == kInfinite ? kInfinity : signalling ? kSignallingNaN : kQuietNaN;
  } else {
    const auto [exponent, digit] = kCombinations[combination];
    const auto continuation = static_cast<uint32_t>(bits.high >> kContinuationAt) &
                              ((1U << Format::kContinuationBits) - 1);
    number.exponent =
        static_cast<int32_t>(uint32_t{exponent} << Format::kContinuationBits | continuation) - bias;
    digits.word[Format::kTrailingDigits / kDigitsInWord] |=
        uint64_t{digit} << (Format::kTrailingDigits % kDigitsInWord * 4);
  }
  setCoefficient(number, digits);
}

template <class Format>
void encodeAs(const DecimalNumber& number, int32_t bias, uint8_t* out) noexcept {
  constexpr int kContinuationAt = kCombinationAt - Format::kContinuationBits;
  const Digits digits = digitsOf(number);

  uint64_t head;
  if ((number.flags & kSpecial) != 0) [[unlikely]] {
    const bool signalling = (number.flags & kSignallingNaN) != 0;
    head = uint64_t{(number.flags & kInfinity) != 0 ? kInfinite : kNotANumber} << kCombinationAt |
           uint64_t{signalling} << kSignallingAt;
  } else {
    const auto exponent = static_cast<uint32_t>(number.exponent + bias);
    const uint32_t digit = digits.at(Format::kTrailingDigits);
    const uint32_t continuation = exponent & ((1U << Format::kContinuationBits) - 1);
    head = uint64_t{combinationOf(exponent >> Format::kContinuationBits, digit)} << kCombinationAt |
           uint64_t{continuation} << kContinuationAt;
  }
  head |= uint64_t{number.flags} >> 7 << 63;

  Bits bits = Format::declets(digits);
  bits.high |= head;
  Format::store(bits, out);
}

}  // namespace

void encode(const DecimalNumber& number, const DecimalContext& context, uint8_t* out) noexcept {
  if (context.encodedSize == sizeof(uint64_t))
    encodeAs<Decimal64>(number, context.bias, out);
  else
    encodeAs<Decimal128>(number, context.bias, out);
}

void decode(const uint8_t* in, const DecimalContext& context, DecimalNumber& number) noexcept {
  if (context.encodedSize == sizeof(uint64_t))
    decodeAs<Decimal64>(in, context.bias, number);
  else
    decodeAs<Decimal128>(in, context.bias, number);
}

}  // namespace oss
