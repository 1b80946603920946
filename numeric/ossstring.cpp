// Numbers and truth values from text, and the bounded formatter.
#include "ossstring.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <type_traits>

#include "core/osssystem.h"
#include "numeric/ossdigits.h"
#include "numeric/ossformat.h"
#include "osscatalog.h"

// ---- Digits ----

namespace {

constexpr uint8_t kNoDigit = 0xFF;

// What each character is worth as a digit: 0 to 9, then 10 to 35 for a letter in either case.
constexpr auto kWorth = [] {
  std::array<uint8_t, 256> worth{};
  worth.fill(kNoDigit);
  for (uint8_t i = 0; i < 10; ++i) worth[size_t{'0'} + i] = i;
  for (uint8_t i = 0; i < 26; ++i)
    worth[size_t{'A'} + i] = worth[size_t{'a'} + i] = static_cast<uint8_t>(10 + i);
  return worth;
}();

uint8_t worthOf(char c) noexcept { return kWorth[static_cast<unsigned char>(c)]; }

// A run of digits, the first character behind it, and whether their value was seen to overflow.
struct Number {
  uint64_t value;
  const char* end;
  bool overflow = false;
};

// 0 to 9 and A to Z; a larger base has no more.
constexpr int64_t kDigits = 36;

// A base that the compiler knows, so that its multiplication becomes a shift or two.
template <int64_t kBase>
using Known = std::integral_constant<int64_t, kBase>;

template <class Base>
constexpr bool isDigit(uint8_t worth, Base base) noexcept {
  return worth < std::min(static_cast<int64_t>(base), kDigits);
}

// The first kFitting digits are known to fit 64 bits in this base, and so are not watched.
template <int kFitting, class Base>
[[gnu::always_inline]] inline Number readDigits(const char* text, Base base) noexcept {
  const auto factor = static_cast<uint64_t>(static_cast<int64_t>(base));
  uint64_t value = 0;
  uint8_t worth = 0;

  const char* const watched = text + kFitting;
  for (; text != watched; ++text) {
    if (!isDigit(worth = worthOf(*text), base)) return {value, text};
    value = value * factor + worth;
  }

  bool overflow = false;
  for (; isDigit(worth = worthOf(*text), base); ++text) {
    const uint64_t next = value * factor + worth;
    // Deliberate: a value that wraps and still grows goes unnoticed.
    if (overflow || value == ~uint64_t{0} || next < value)
      overflow = true;
    else
      value = next;
  }
  return {value, text, overflow};
}

// ---- Prefixes ----

bool startsWith0x(const char* text) noexcept {
  return text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

int64_t detectBase(const char* text) noexcept {
  if (text[0] != '0') return 10;
  return startsWith0x(text) ? 16 : 8;  // a 0 alone is 0 in either
}

[[gnu::always_inline]] inline Number readUnsigned(const char* text, int64_t base) noexcept {
  if (base == 0) base = detectBase(text);

  switch (base) {
    case 10: return readDigits<19>(text, Known<10>());
    case 16:
      if (startsWith0x(text)) {
        if (worthOf(text[2]) >= 16) return {0, text + 1};  // Deliberate: ends at the x.
        text += 2;
      }
      return readDigits<16>(text, Known<16>());
    case 8: return readDigits<21>(text, Known<8>());  // a leading 0 is a digit like any other
    default: return readDigits<0>(text, base);
  }
}

// ---- Signs ----

constexpr uint64_t kMostNegative = uint64_t{1} << 63;
constexpr uint64_t kLargestSigned = kMostNegative - 1;
constexpr uint64_t kLargestUnsigned = ~uint64_t{0};

struct Range {
  uint64_t largestNegative;  // as a magnitude
  uint64_t largestPositive;
  uint64_t onNegativeOverflow;
};
constexpr Range kSigned = {kMostNegative, kLargestSigned, kMostNegative};
constexpr Range kUnsigned = {kLargestUnsigned, kLargestUnsigned, kLargestUnsigned};

// The first character behind white space and a sign, and whether that is a minus.
struct Start {
  const char* at;
  bool isNegative = false;
};

Start skipSign(const char* text) noexcept {
  while (oss::isSpace(*text)) ++text;
  const bool isNegative = *text == '-';
  return {isNegative || *text == '+' ? text + 1 : text, isNegative};
}

template <Range kRange>
uint64_t signedValue(const Number& number, bool isNegative) noexcept {
  if (number.overflow ||
      number.value > (isNegative ? kRange.largestNegative : kRange.largestPositive)) {
    errno = ERANGE;
    return isNegative ? kRange.onNegativeOverflow : kRange.largestPositive;
  }
  return isNegative ? 0 - number.value : number.value;
}

template <Range kRange>
uint64_t readInteger(const char* text, char** end, int64_t base) noexcept {
  const char* stop = text;
  uint64_t result = 0;
  if (text != nullptr) {
    // Most texts begin with a digit.
    const Start start = isDigit(worthOf(*text), Known<10>()) ? Start{text} : skipSign(text);
    if (*start.at != '\0' && !oss::isSpace(*start.at)) {
      const Number number = readUnsigned(start.at, base);
      stop = number.end;
      result = signedValue<kRange>(number, start.isNegative);
    }
  }

  if (end != nullptr) *end = const_cast<char*>(stop);
  return result;
}

}  // namespace

int64_t ossStrToSint64(const char* text, char** end, int base) noexcept {
  return static_cast<int64_t>(readInteger<kSigned>(text, end, base));
}

uint64_t ossStrToUint64(const char* text, char** end, unsigned int base) noexcept {
  return readInteger<kUnsigned>(text, end, base);
}

// ---- Truth values ----

namespace {

constexpr char upperCase(char c) noexcept {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// `word` is in upper case.
bool isWord(const char* text, const char* word) noexcept {
  for (; *word != '\0'; ++text, ++word)
    if (upperCase(*text) != *word) return false;
  return *text == '\0';
}

struct BooleanWord {
  const char* word;
  bool value;
};
constexpr BooleanWord kBooleanWords[] = {
    {"1", true},  {"ON", true},   {"Y", true},  {"YES", true}, {"T", true},  {"TRUE", true},
    {"0", false}, {"OFF", false}, {"N", false}, {"NO", false}, {"F", false}, {"FALSE", false},
};

const BooleanWord* findBoolean(const char* text) noexcept {
  for (const BooleanWord& row : kBooleanWords)
    if (text != nullptr && isWord(text, row.word)) return &row;
  return nullptr;
}

}  // namespace

OSSErr ossStrToBoolean(const char* text, bool* value) noexcept {
  const BooleanWord* const found = findBoolean(text);
  if (value != nullptr) *value = found != nullptr && found->value;
  return found != nullptr ? ECF_OK : ECF_OSS_NOT_BOOLEAN_STRING;
}

// ---- The bounded formatter ----

uint64_t oss::formatText(char* buffer, size_t size, const char* format,
                         va_list arguments) noexcept {
  if (buffer == nullptr || size == 0 || format == nullptr) return 0;

  const int count = system::formatBounded(buffer, size, format, arguments);
  // Deliberate: an error of the formatter looks like a text that did not fit.
  const bool fits = count >= 0 && static_cast<size_t>(count) < size;
  const size_t length = fits ? static_cast<size_t>(count) : size - 1;
  buffer[length] = '\0';
  return length;
}

uint64_t ossSnprintf(char* buffer, size_t size, const char* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  const uint64_t length = oss::formatText(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}
