// Tests of the conversions from text, and of the bounded formatter.
#include "ossstring.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "native128.h"
#include "numeric/ossformat.h"
#include "osscatalog.h"

namespace {

constexpr int64_t kMostNegative = std::numeric_limits<int64_t>::min();
constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
constexpr uint64_t kAllOnes64 = ~uint64_t{0};
constexpr int kUntouchedErrno = 7;

// What a conversion gives: the value, how much of the text it used, and errno.
template <class T>
struct Parsed {
  T value;
  ptrdiff_t used;
  int error = kUntouchedErrno;
  bool operator==(const Parsed&) const = default;
};
template <class T>
void PrintTo(const Parsed<T>& parsed, std::ostream* out) {
  *out << parsed.value << ", " << parsed.used << " used, errno " << parsed.error;
}
using Signed = Parsed<int64_t>;
using Unsigned = Parsed<uint64_t>;

Signed parseSigned(const std::string& text, int base) {
  char* end = nullptr;
  errno = kUntouchedErrno;
  const int64_t value = ossStrToSint64(text.c_str(), &end, base);
  return {value, end - text.c_str(), errno};
}

Unsigned parseUnsigned(const std::string& text, unsigned base) {
  char* end = nullptr;
  errno = kUntouchedErrno;
  const uint64_t value = ossStrToUint64(text.c_str(), &end, base);
  return {value, end - text.c_str(), errno};
}

// ---- White space and signs ----

TEST(StrToInteger, WhiteSpaceAndASignComeFirst) {
  EXPECT_EQ(parseSigned("  -0x1F", 0), (Signed{-31, 7}));
  EXPECT_EQ(parseSigned(" \t\n\v\f\r+12 ", 10), (Signed{12, 9}));
  EXPECT_EQ(parseUnsigned("\t+12x", 10), (Unsigned{12, 4}));
}

TEST(StrToInteger, NothingButWhiteSpaceUsesNothing) {
  for (const int base : {0, 8, 10, 16, 36}) {
    EXPECT_EQ(parseSigned("   ", base), (Signed{0, 0}));
    EXPECT_EQ(parseSigned("", base), (Signed{0, 0}));
    EXPECT_EQ(parseSigned("  -", base), (Signed{0, 0}));
    EXPECT_EQ(parseSigned("+ 5", base), (Signed{0, 0}));
    EXPECT_EQ(parseUnsigned(" -\t5", static_cast<unsigned>(base)), (Unsigned{0, 0}));
  }
}

TEST(StrToInteger, TextWithoutDigitsEndsAtItsFirstCharacterAfterBlanksAndSign) {
  EXPECT_EQ(parseSigned("abc", 10), (Signed{0, 0}));
  EXPECT_EQ(parseSigned("  abc", 10), (Signed{0, 2}));
  EXPECT_EQ(parseSigned("  -abc", 10), (Signed{0, 3}));
  EXPECT_EQ(parseSigned("+-5", 10), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("--5", 0), (Signed{0, 1}));
}

TEST(StrToInteger, TheEndMayGoUnasked) {
  EXPECT_EQ(ossStrToSint64("-5x", nullptr, 10), -5);
  EXPECT_EQ(ossStrToUint64("5x", nullptr, 10), 5u);
}

TEST(StrToInteger, ANullTextIsZeroAndEndsAtNull) {
  char dummy = 0;
  char* end = &dummy;
  EXPECT_EQ(ossStrToSint64(nullptr, &end, 10), 0);
  EXPECT_EQ(end, nullptr);
  end = &dummy;
  EXPECT_EQ(ossStrToUint64(nullptr, &end, 0), 0u);
  EXPECT_EQ(end, nullptr);
  EXPECT_EQ(ossStrToUint64(nullptr, nullptr, 0), 0u);
}

// ---- Bases ----

TEST(StrToInteger, BaseZeroDetectsTheBase) {
  EXPECT_EQ(parseSigned("0", 0), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("017", 0), (Signed{15, 3}));
  EXPECT_EQ(parseSigned("0x1f", 0), (Signed{31, 4}));
  EXPECT_EQ(parseSigned("0X1F", 0), (Signed{31, 4}));
  EXPECT_EQ(parseSigned("19", 0), (Signed{19, 2}));
  EXPECT_EQ(parseSigned("0 ", 0), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("-010", 0), (Signed{-8, 4}));
}

TEST(StrToInteger, ALeadingZeroMakesAnEightEndTheNumber) {
  EXPECT_EQ(parseSigned("08", 0), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("0178", 0), (Signed{15, 3}));
  EXPECT_EQ(parseSigned("08", 10), (Signed{8, 2}));
}

TEST(StrToInteger, Base16AcceptsItsPrefixOnlyBeforeADigit) {
  EXPECT_EQ(parseSigned("1F", 16), (Signed{31, 2}));
  EXPECT_EQ(parseSigned("0x1F", 16), (Signed{31, 4}));
  EXPECT_EQ(parseSigned("0xg", 16), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("0x", 16), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("-0Xg", 0), (Signed{0, 2}));
  EXPECT_EQ(parseSigned("0x0x1", 16), (Signed{0, 3}));
  EXPECT_EQ(parseUnsigned("00x1", 16), (Unsigned{0, 2}));
}

TEST(StrToInteger, Base8SkipsOneZero) {
  EXPECT_EQ(parseSigned("0", 8), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("017", 8), (Signed{15, 3}));
  EXPECT_EQ(parseSigned("17", 8), (Signed{15, 2}));
  EXPECT_EQ(parseSigned("0x17", 8), (Signed{0, 1}));
}

TEST(StrToInteger, OtherBasesAreUsedAsTheyAreWithoutAPrefix) {
  EXPECT_EQ(parseSigned("0x1", 10), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("0x1", 36), (Signed{33 * 36 + 1, 3}));
  EXPECT_EQ(parseSigned("1012", 2), (Signed{5, 3}));
  EXPECT_EQ(parseSigned("zZ", 36), (Signed{35 * 36 + 35, 2}));
  EXPECT_EQ(parseSigned("zZ", 100), (Signed{35 * 100 + 35, 2}));
  EXPECT_EQ(parseUnsigned("Z0", 0xFFFFFFFF), (Unsigned{uint64_t{35} * 0xFFFFFFFF, 2}));
}

TEST(StrToInteger, ABaseOfOneHasZerosOnlyAndANegativeOneNothing) {
  EXPECT_EQ(parseSigned("0001", 1), (Signed{0, 3}));
  EXPECT_EQ(parseSigned("-1", 1), (Signed{0, 1}));
  EXPECT_EQ(parseSigned("00", -5), (Signed{0, 0}));
  EXPECT_EQ(parseSigned("zz", std::numeric_limits<int>::min()), (Signed{0, 0}));
}

TEST(StrToInteger, OnlyLettersAndDecimalDigitsAreDigits) {
  for (int character = 1; character <= 0xFF; ++character) {
    const std::string text = {'1', static_cast<char>(character), '1'};
    const bool decimal = character >= '0' && character <= '9';
    const int folded = character | 0x20;
    const bool letter = character < 0x80 && folded >= 'a' && folded <= 'z';
    const int64_t worth = decimal ? character - '0' : folded - 'a' + 10;
    EXPECT_EQ(parseSigned(text, 36),
              decimal || letter ? (Signed{36 * 36 + worth * 36 + 1, 3}) : (Signed{1, 1}))
        << character;
  }
}

// ---- Ranges ----

TEST(StrToSint64, BothEndsOfTheRangeAreReached) {
  EXPECT_EQ(parseSigned("9223372036854775807", 10), (Signed{kLargest, 19}));
  EXPECT_EQ(parseSigned("-9223372036854775808", 10), (Signed{kMostNegative, 20}));
  EXPECT_EQ(parseSigned("-0x8000000000000000", 0), (Signed{kMostNegative, 19}));
}

TEST(StrToSint64, WhatIsOutOfRangeIsTheEndOfTheRangeAndErrno34) {
  EXPECT_EQ(parseSigned("9223372036854775808", 10), (Signed{kLargest, 19, 34}));
  EXPECT_EQ(parseSigned("-9223372036854775809", 10), (Signed{kMostNegative, 20, 34}));
  EXPECT_EQ(parseSigned("99999999999999999999999x", 10), (Signed{kLargest, 23, 34}));
  EXPECT_EQ(parseSigned("-99999999999999999999999", 10), (Signed{kMostNegative, 24, 34}));
}

TEST(StrToUint64, ANegativeNumberIsItsTwosComplement) {
  EXPECT_EQ(parseUnsigned("-1", 10), (Unsigned{kAllOnes64, 2}));
  EXPECT_EQ(parseUnsigned("-18446744073709551615", 10), (Unsigned{1, 21}));
  EXPECT_EQ(parseUnsigned("18446744073709551615", 10), (Unsigned{kAllOnes64, 20}));
}

TEST(StrToUint64, WhatIsOutOfRangeIsAllOnesWithEitherSign) {
  EXPECT_EQ(parseUnsigned("18446744073709551616", 10), (Unsigned{kAllOnes64, 20, 34}));
  EXPECT_EQ(parseUnsigned("-18446744073709551616", 10), (Unsigned{kAllOnes64, 21, 34}));
  EXPECT_EQ(parseUnsigned("0xFFFFFFFFFFFFFFFF0", 0), (Unsigned{kAllOnes64, 19, 34}));
  EXPECT_EQ(parseUnsigned("02000000000000000000000", 0), (Unsigned{kAllOnes64, 23, 34}));
  EXPECT_EQ(parseUnsigned("2000000000000000000000", 8), (Unsigned{kAllOnes64, 22, 34}));
  EXPECT_EQ(parseUnsigned("3w5e11264sgsg", 36), (Unsigned{kAllOnes64, 13, 34}));
}

// One digit more and the value would be all ones again, which is not smaller.
TEST(StrToUint64, NoDigitFollowsAllOnes) {
  EXPECT_EQ(parseUnsigned("184467440737095516159", 10), (Unsigned{kAllOnes64, 21, 34}));
  EXPECT_EQ(parseUnsigned("FFFFFFFFFFFFFFFFF", 16), (Unsigned{kAllOnes64, 17, 34}));
}

TEST(StrToUint64, TheDigitsBehindAnOverflowAreUsedUp) {
  EXPECT_EQ(parseUnsigned("184467440737095516160000000000000000000000.5", 10),
            (Unsigned{kAllOnes64, 42, 34}));
}

TEST(StrToUint64, AnOverflowThatComesOutLargerIsNotNoticed) {
  EXPECT_EQ(parseUnsigned("30000000000000000000", 10), (Unsigned{11553255926290448384u, 20}));
  EXPECT_EQ(parseUnsigned("1FFFFFFFFFFFFFFFF", 16), (Unsigned{kAllOnes64, 17}));
  EXPECT_EQ(parseUnsigned("1FFFFFFFFFFFFFFFF0", 16), (Unsigned{kAllOnes64, 18, 34}));
}

TEST(StrToSint64, AnOverflowThatComesOutLargerCountsAsTheNumberItCameTo) {
  EXPECT_EQ(parseSigned("30000000000000000000", 10), (Signed{kLargest, 20, 34}));
  EXPECT_EQ(parseSigned("-30000000000000000000", 10), (Signed{kMostNegative, 21, 34}));
}

TEST(StrToInteger, ErrnoIsNotClearedBySuccess) {
  errno = ERANGE;
  EXPECT_EQ(ossStrToUint64("-1", nullptr, 10), kAllOnes64);
  EXPECT_EQ(errno, 34);
}

// ---- Against the standard library, where the two agree ----

TEST(StrToInteger, NumbersOfEveryBaseAreReadAsTheyWereWritten) {
  Random random(1);
  for (int i = 0; i < 100'000; ++i) {
    const auto value = static_cast<uint64_t>(random.wide());
    const int base = 2 + static_cast<int>(random.below(35));
    char digits[65];
    const auto written = std::to_chars(digits, digits + 64, value, base);
    *written.ptr = '\0';
    const std::string text = digits;

    const auto length = static_cast<ptrdiff_t>(text.size());
    ASSERT_EQ(parseUnsigned(text, static_cast<unsigned>(base)), (Unsigned{value, length}))
        << text << " in base " << base;

    const auto half = static_cast<int64_t>(value);
    const std::string inSigned =
        (half < 0 ? "-" : "") +
        std::string(digits,
                    std::to_chars(digits, digits + 64, half < 0 ? 0 - value : value, base).ptr);
    ASSERT_EQ(parseSigned(inSigned, base), (Signed{half, static_cast<ptrdiff_t>(inSigned.size())}))
        << inSigned << " in base " << base;
  }
}

// Numbers of at most 64 bits, with prefixes, signs and trailing text as they come.
TEST(StrToInteger, TextsAreReadLikeTheStandardLibrarysWithinTheRange) {
  constexpr const char* kBeginnings[] = {"", " ", "-", "\t +", "0x", "-0X", "0", "+0"};
  constexpr const char* kEndings[] = {"", " ", "z", "-", ".5", "0"};
  constexpr int kBases[] = {0, 8, 10, 16};
  Random random(2);
  for (int i = 0; i < 100'000; ++i) {
    const uint64_t value = static_cast<uint64_t>(random.wide()) >> 8;
    const std::string text =
        kBeginnings[random.below(8)] + std::to_string(value) + kEndings[random.below(6)];
    const int base = kBases[random.below(4)];

    errno = kUntouchedErrno;
    char* end = nullptr;
    const uint64_t expected = std::strtoull(text.c_str(), &end, base);
    const int error = errno;
    if (error == ERANGE) continue;      // the standard library notices every overflow,
    if (end == text.c_str()) continue;  // and without digits it goes back to the blanks

    ASSERT_EQ(parseUnsigned(text, static_cast<unsigned>(base)),
              (Unsigned{expected, end - text.c_str(), error}))
        << '"' << text << "\" in base " << base;
  }
}

// ---- Truth values ----

TEST(StrToBoolean, TwelveWordsAreRecognisedInEitherCase) {
  const struct {
    const char* text;
    bool value;
  } kRows[] = {
      {"1", true},    {"ON", true},     {"on", true},     {"y", true},    {"Y", true},
      {"YES", true},  {"yes", true},    {"yEs", true},    {"t", true},    {"T", true},
      {"TRUE", true}, {"True", true},   {"0", false},     {"OFF", false}, {"oFf", false},
      {"n", false},   {"N", false},     {"NO", false},    {"No", false},  {"f", false},
      {"F", false},   {"FALSE", false}, {"false", false},
  };
  for (const auto& row : kRows) {
    bool value = !row.value;
    EXPECT_EQ(ossStrToBoolean(row.text, &value), ECF_OK) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
  }
}

TEST(StrToBoolean, NothingIsTrimmedAndNothingIsGuessed) {
  for (const char* text :
       {" yes", "yes ", "", " ", "ye", "yess", "2", "01", "10", "tru", "O", "enabled",
        "\xF9"
        "es"}) {
    bool value = true;
    EXPECT_EQ(ossStrToBoolean(text, &value), 0x900003F1u) << '"' << text << '"';
    EXPECT_FALSE(value) << '"' << text << '"';
  }
}

TEST(StrToBoolean, NullIsNoTruthValueAndTheValueMayGoUnasked) {
  bool value = true;
  EXPECT_EQ(ossStrToBoolean(nullptr, &value), ECF_OSS_NOT_BOOLEAN_STRING);
  EXPECT_FALSE(value);
  EXPECT_EQ(ossStrToBoolean("yes", nullptr), ECF_OK);
  EXPECT_EQ(ossStrToBoolean("maybe", nullptr), ECF_OSS_NOT_BOOLEAN_STRING);
}

// ---- The bounded formatter ----

// Eight bytes, of which the formatter may write the first few.
struct Buffer {
  char bytes[8];
  Buffer() { std::memset(bytes, '#', sizeof bytes); }
  std::string all() const { return std::string(bytes, sizeof bytes); }
};

std::string exactly(const char (&text)[9]) { return std::string(text, 8); }

// By way of the argument list, where the compiler checks neither a null format nor the dialect of
// the C run-time.
uint64_t format(char* buffer, size_t size, const char* text, ...) {
  va_list arguments;
  va_start(arguments, text);
  const uint64_t length = oss::formatText(buffer, size, text, arguments);
  va_end(arguments);
  return length;
}

TEST(Snprintf, ATextThatFitsIsTerminatedAndCounted) {
  Buffer buffer;
  EXPECT_EQ(ossSnprintf(buffer.bytes, 4, "%s", "ab"), 2u);
  EXPECT_EQ(buffer.all(), exactly("ab\0#####"));
  EXPECT_EQ(ossSnprintf(buffer.bytes, 4, "%s", "abc"), 3u);
  EXPECT_EQ(buffer.all(), exactly("abc\0####"));
  EXPECT_EQ(ossSnprintf(buffer.bytes, 4, "%s", ""), 0u);
  EXPECT_STREQ(buffer.bytes, "");
}

TEST(Snprintf, ATextThatDoesNotFitIsCutAndTerminated) {
  for (const char* text : {"abcd", "abcdef", "abcdefghijklmnopqrstuvwxyz"}) {
    Buffer buffer;
    EXPECT_EQ(ossSnprintf(buffer.bytes, 4, "%s", text), 3u);
    EXPECT_EQ(buffer.all(), exactly("abc\0####")) << text;
  }
}

TEST(Snprintf, OneByteHoldsTheTerminator) {
  Buffer buffer;
  EXPECT_EQ(ossSnprintf(buffer.bytes, 1, "%s", "abc"), 0u);
  EXPECT_EQ(buffer.all(), exactly("\0#######"));
}

TEST(Snprintf, WithoutABufferAFormatOrASizeNothingIsWritten) {
  Buffer buffer;
  EXPECT_EQ(ossSnprintf(buffer.bytes, 0, "%s", "abc"), 0u);
  EXPECT_EQ(ossSnprintf(nullptr, 8, "%s", "abc"), 0u);
  EXPECT_EQ(format(buffer.bytes, 8, nullptr), 0u);
  EXPECT_EQ(buffer.all(), exactly("########"));
}

// A character that the C locale cannot express ends the formatting with an error.
TEST(Snprintf, AnErrorOfTheFormatterLooksLikeATextThatDidNotFit) {
  Buffer buffer;
  EXPECT_EQ(ossSnprintf(buffer.bytes, 7, "ab%ls", L"\u4E00"), 6u);
  EXPECT_EQ(buffer.bytes[6], '\0');
  EXPECT_EQ(buffer.bytes[7], '#');
}

// I64 is 64 bits wide everywhere.
TEST(Snprintf, ANumberOf64BitsIsWrittenWhole) {
  char buffer[64];
  EXPECT_EQ(format(buffer, sizeof buffer, "%I64u %I64d 0x%016I64X", kAllOnes64, kMostNegative,
                   uint64_t{0xABCDEF}),
            60u);
  EXPECT_STREQ(buffer, "18446744073709551615 -9223372036854775808 0x0000000000ABCDEF");
}

}  // namespace
