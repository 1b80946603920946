// Text to number: the grammar of the General Decimal Arithmetic specification.
//
//   numeric-string  [sign] digits [. [digits]] [exponent] | [sign] . digits [exponent]
//   special         [sign] Inf | Infinity | NaN [digits] | sNaN [digits]
//   exponent        E [sign] digits
//
// Letters count in either case. There is no white space, and nothing may follow.
#include "numeric/decimal/decimal.h"
#include "numeric/decimal/rounding.h"
#include "numeric/ossdigits.h"

namespace oss {
namespace {

// Reads up to eight digits at the text and returns how many there are.
inline int readEight(const char* text, uint64_t& digits) noexcept {
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i) {
    const uint32_t digit = decimalWorth(text[i]);
    if (digit > 9) return i;
    digits = digits << 4 | digit;
  }
  return 8;
}

// Takes digits as long as there is room, leading zeros needing none. Of those that find no room
// only how many they are counts, and whether there is another one than 0.
class DigitReader {
 public:
  // Returns the first character that is no digit.
  const char* read(const char* text) noexcept {
    int count = 8;
    while (count == 8) {
      if (!digits_.hasRoomForEight()) [[unlikely]]
        return skip(text);
      uint64_t eight = 0;
      count = readEight(text, eight);
      digits_.append(eight, count);
      text += count;
    }
    return text;
  }

  const Digits& digits() const noexcept { return digits_; }
  int64_t skipped() const noexcept { return skipped_; }
  bool hasTail() const noexcept { return hasTail_; }

 private:
  const char* skip(const char* text) noexcept {
    const char* const start = text;
    for (; isDecimalDigit(*text); ++text) hasTail_ |= *text != '0';
    skipped_ += text - start;
    return text;
  }

  Digits digits_;
  int64_t skipped_ = 0;
  bool hasTail_ = false;
};

constexpr char lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// Whether the text begins with the word, which is in lower case; then the text is behind it.
bool takeWord(const char*& text, const char* word) noexcept {
  const char* at = text;
  for (; *word != '\0'; ++word, ++at)
    if (lower(*at) != *word) return false;
  text = at;
  return true;
}

// Reads the exponent behind its letter; null when there is none.
inline const char* readExponent(const char* text, int64_t& exponent) noexcept {
  // No text is so long that its digits outweigh this exponent.
  constexpr int64_t kLargest = 1'000'000'000'000'000;

  const bool negative = *text == '-';
  if (negative || *text == '+') ++text;
  if (!isDecimalDigit(*text)) return nullptr;

  int64_t value = 0;
  for (; isDecimalDigit(*text); ++text)
    if (value < kLargest) value = value * 10 + decimalWorth(*text);
  exponent = negative ? -value : value;
  return text;
}

void setSpecial(DecimalNumber& number, uint8_t flags, const Digits& payload) noexcept {
  number.flags = flags;
  number.exponent = 0;
  setCoefficient(number, payload);
}

void refuse(DecimalContext& context, DecimalNumber& number) noexcept {
  context.status |= kConversionSyntax;
  setSpecial(number, kQuietNaN, Digits());
}

// The text behind the sign. A payload leaves room for the digit that an encoding does not have.
void readSpecial(const char* text, bool negative, DecimalContext& context,
                 DecimalNumber& number) noexcept {
  uint8_t flags = negative ? kNegative : kPositive;
  DigitReader payload;
  if (takeWord(text, "inf")) {
    takeWord(text, "inity");
    flags |= kInfinity;
  } else {
    flags |= lower(*text) == 's' ? kSignallingNaN : kQuietNaN;
    if ((flags & kSignallingNaN) != 0) ++text;
    if (!takeWord(text, "nan")) return refuse(context, number);
    text = payload.read(text);
  }

  const int32_t room = context.digits - context.clamp;
  const bool fits = payload.digits().count() <= room && payload.skipped() == 0;
  if (*text != '\0' || !fits) return refuse(context, number);
  setSpecial(number, flags, payload.digits());
}

}  // namespace

DecimalContext decimalContext(uint32_t format) noexcept {
  DecimalContext context;
  if (format == OSS_DECFLOAT_64)
    context = {.digits = 16, .emax = 384, .emin = -383, .clamp = 1, .encodedSize = 8, .bias = 398};
  else if (format == OSS_DECFLOAT_128)
    context = {
        .digits = 34, .emax = 6144, .emin = -6143, .clamp = 1, .encodedSize = 16, .bias = 6176};
  return context;
}

void toNumber(const char* text, DecimalContext& context, DecimalNumber& number) noexcept {
  if (text == nullptr) return refuse(context, number);
  const bool negative = *text == '-';
  if (negative || *text == '+') ++text;

  DigitReader reader;
  const char* at = reader.read(text);
  int64_t count = at - text;
  int64_t exponent = 0;
  if (*at == '.') {
    const char* const fraction = ++at;
    at = reader.read(fraction);
    count += at - fraction;
    exponent = fraction - at;
  }
  if (count == 0) [[unlikely]]
    return readSpecial(text, negative, context, number);

  if (*at == 'E' || *at == 'e') {
    int64_t written = 0;
    at = readExponent(at + 1, written);
    if (at == nullptr) return refuse(context, number);
    exponent += written;
  }
  if (*at != '\0') [[unlikely]]
    return refuse(context, number);

  setExact(number,
           {.digits = reader.digits(),
            .exponent = exponent + reader.skipped(),
            .hasTail = reader.hasTail(),
            .negative = negative},
           context);
}

}  // namespace oss
