// Tests of the interchange encodings of decimal floating point.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "decfloattext.h"
#include "numeric/decimal/decimal.h"
#include "numeric/decimal/declets.h"

namespace {

using Bytes8 = std::array<uint8_t, 8>;
using Bytes16 = std::array<uint8_t, 16>;

template <size_t kSize>
std::string hex(const std::array<uint8_t, kSize>& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    text += "0123456789ABCDEF"[byte >> 4];
    text += "0123456789ABCDEF"[byte & 0xF];
  }
  return text;
}

template <size_t kSize>
std::array<uint8_t, kSize> bytesOf(const std::string& hex) {
  std::array<uint8_t, kSize> bytes{};
  for (size_t i = 0; i < kSize; ++i)
    bytes[i] = static_cast<uint8_t>(std::stoul(hex.substr(2 * i, 2), nullptr, 16));
  return bytes;
}

std::string pack16(const char* text) {
  Bytes8 packed{};
  EXPECT_EQ(OSSDecfloat16(text).toDecPacked(packed.data(), 8), ECF_OK);
  return hex(packed);
}

std::string pack34(const char* text) {
  Bytes16 packed{};
  EXPECT_EQ(OSSDecfloat34(text).toDecPacked(packed.data(), 16), ECF_OK);
  return hex(packed);
}

std::string unpack16(const std::string& hex) {
  OSSDecfloat16 number;
  EXPECT_EQ(number.fromDecPacked(bytesOf<8>(hex).data(), 8), ECF_OK);
  return textOf(number);
}

std::string unpack34(const std::string& hex) {
  OSSDecfloat34 number;
  EXPECT_EQ(number.fromDecPacked(bytesOf<16>(hex).data(), 16), ECF_OK);
  return textOf(number);
}

// ---- Declets ----

// Three digits to ten bits by the equations that define the encoding the other way round than the
// library's rules do. The digits' bits are abcd efgh ijkm.
uint32_t decletByEquations(uint32_t digits) {
  const auto bit = [digits](int index) { return (digits >> (11 - index) & 1) != 0; };
  const bool a = bit(0), b = bit(1), c = bit(2), d = bit(3);
  const bool e = bit(4), f = bit(5), g = bit(6), h = bit(7);
  const bool i = bit(8), j = bit(9), k = bit(10), m = bit(11);
  const bool bits[] = {b || (a && j) || (a && f && i),
                       c || (a && k) || (a && g && i),
                       d,
                       (f && (!a || !i)) || (!a && e && j) || (e && i),
                       g || (!a && e && k) || (a && i),
                       h,
                       a || e || i,
                       a || (e && i) || (!e && j),
                       e || (a && i) || (!a && k),
                       m};
  uint32_t declet = 0;
  for (const bool one : bits) declet = declet << 1 | (one ? 1 : 0);
  return declet;
}

uint32_t packedDigits(uint32_t number) {
  return number / 100 << 8 | number / 10 % 10 << 4 | number % 10;
}

TEST(Declets, EveryTripleOfDigitsHasItsDecletAndTheDecletHasTheTriple) {
  for (uint32_t number = 0; number < 1000; ++number) {
    const uint32_t digits = packedDigits(number);
    const uint32_t declet = decletByEquations(digits);
    ASSERT_EQ(oss::kDecletOfDigits[digits], declet) << number;
    ASSERT_EQ(oss::kDigitsOfDeclet[declet], digits) << number;
  }
}

TEST(Declets, TheTwentyFourThatAreNotCanonicalAreReadAllTheSame) {
  uint32_t notCanonical = 0;
  for (uint32_t declet = 0; declet < oss::kDeclets; ++declet) {
    const uint32_t digits = oss::kDigitsOfDeclet[declet];
    ASSERT_LE(digits & 0xF, 9u);
    ASSERT_LE(digits >> 4 & 0xF, 9u);
    ASSERT_LE(digits >> 8, 9u);
    const uint32_t canonical = oss::kDecletOfDigits[digits];
    if (declet == canonical) continue;
    ++notCanonical;
    ASSERT_EQ(declet & 0xFF, canonical);  // its upper two bits are free
    ASSERT_EQ(canonical >> 8, 0u);
  }
  EXPECT_EQ(notCanonical, 24u);
}

// ---- Numbers ----

TEST(DecfloatPacked, TheFirstByteHoldsTheSign) {
  EXPECT_EQ(pack16("1"), "2238000000000001");
  EXPECT_EQ(pack16("-7.50"), "A2300000000003D0");
  EXPECT_EQ(pack16("12345"), "22380000000049C5");
  EXPECT_EQ(pack34("1"), "22080000000000000000000000000001");
  EXPECT_EQ(pack34("-7.50"), "A20780000000000000000000000003D0");
}

TEST(DecfloatPacked, TheLimitsOfEachFormatHaveTheirPatterns) {
  EXPECT_EQ(pack16("9.999999999999999E+384"), "77FCFF3FCFF3FCFF");
  EXPECT_EQ(pack16("-9.999999999999999E+384"), "F7FCFF3FCFF3FCFF");
  EXPECT_EQ(pack16("1E-398"), "0000000000000001");
  EXPECT_EQ(pack16("1.000000000000000E-383"), "0400000000000000");
  EXPECT_EQ(pack16("1E+384"), "47FC000000000000");
  EXPECT_EQ(pack34("9.999999999999999999999999999999999E+6144"),
            "77FFCFF3FCFF3FCFF3FCFF3FCFF3FCFF");
  EXPECT_EQ(pack34("1E-6176"), "00000000000000000000000000000001");
}

TEST(DecfloatPacked, AnObjectWithoutAValueIsZero) {
  Bytes8 packed{};
  EXPECT_EQ(OSSDecfloat16().toDecPacked(packed.data(), 8), ECF_OK);
  EXPECT_EQ(hex(packed), "2238000000000000");
}

TEST(DecfloatPacked, InfinitiesAndNaNKeepSignAndPayload) {
  EXPECT_EQ(pack16("Infinity"), "7800000000000000");
  EXPECT_EQ(pack16("-Infinity"), "F800000000000000");
  EXPECT_EQ(pack16("NaN"), "7C00000000000000");
  EXPECT_EQ(pack16("-NaN"), "FC00000000000000");
  EXPECT_EQ(pack16("sNaN12"), "7E00000000000012");
  EXPECT_EQ(pack16("NaN999999999999999"), "7C00FF3FCFF3FCFF");
  EXPECT_EQ(pack34("-sNaN12"), "FE000000000000000000000000000012");
  for (const char* text : {"7C00000000000012", "FE00FF3FCFF3FCFF", "F800000000000000"}) {
    OSSDecfloat16 number;
    Bytes8 again{};
    EXPECT_EQ(number.fromDecPacked(bytesOf<8>(text).data(), 8), ECF_OK);
    EXPECT_EQ(number.toDecPacked(again.data(), 8), ECF_OK);
    EXPECT_EQ(hex(again), text);
  }
}

TEST(DecfloatPacked, WhatIsNotCanonicalIsReadForWhatItMeans) {
  EXPECT_EQ(unpack16("78FFFFFFFFFFFFFF"), "Infinity");  // nothing else counts
  EXPECT_EQ(unpack16("7DFFFFFFFFFFFFFF"), "NaN");
  EXPECT_EQ(unpack16("FFFFFFFFFFFFFFFF"), "sNaN");
  EXPECT_EQ(unpack16("77FFFFFFFFFFFFFF"), "9.999999999999999E+384");  // all declets 0x3FF
  EXPECT_EQ(unpack16("22380000000003FF"), "999");
  EXPECT_EQ(unpack16("22380000000000FF"), "999");
  EXPECT_EQ(unpack34("78FFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"), "Infinity");
  EXPECT_EQ(unpack34("7DFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"), "NaN");
  EXPECT_EQ(unpack34("FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"), "sNaN");
  EXPECT_EQ(unpack34("77FFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"),
            "9.999999999999999999999999999999999E+6144");
  EXPECT_EQ(unpack34("220800000000000000000000000003FF"), "999");
  EXPECT_EQ(unpack34("220800000000000000000000000000FF"), "999");
  EXPECT_EQ(unpack34("220800000000000000000000000001FF"), "999");
}

// An encoding with this declet in that place, counted from the last; the other bits stay.
template <size_t kSize>
std::array<uint8_t, kSize> withDeclet(std::array<uint8_t, kSize> bytes, size_t place,
                                      uint32_t declet) {
  for (size_t bit = 0; bit < 10; ++bit) {
    const size_t at = 10 * place + bit;
    const auto one = static_cast<uint8_t>(1 << at % 8);
    uint8_t& byte = bytes[kSize - 1 - at / 8];
    byte = static_cast<uint8_t>(declet >> bit & 1 ? byte | one : byte & ~one);
  }
  return bytes;
}

// Every declet in every place of a zero, the 24 that are not canonical among them. \return how many
// encodings came back otherwise than they were
template <class Number, size_t kSize>
size_t expectEveryDecletInEveryPlace(size_t places, const std::string& zero) {
  size_t changed = 0;
  for (size_t place = 0; place < places; ++place)
    for (uint32_t declet = 0; declet < oss::kDeclets; ++declet) {
      const auto packed = withDeclet(bytesOf<kSize>(zero), place, declet);
      const uint32_t digits = oss::kDigitsOfDeclet[declet];
      const uint32_t value = (digits >> 8) * 100 + (digits >> 4 & 0xF) * 10 + (digits & 0xF);
      Number number;
      EXPECT_EQ(number.fromDecPacked(packed.data(), kSize), ECF_OK);
      const std::string text = std::to_string(value) + std::string(3 * place, '0');
      EXPECT_EQ(textOf(number), value == 0 ? "0" : text) << place << ' ' << declet;

      std::array<uint8_t, kSize> again{};
      EXPECT_EQ(number.toDecPacked(again.data(), kSize), ECF_OK);
      EXPECT_EQ(again, withDeclet(packed, place, oss::kDecletOfDigits[digits]));
      if (again != packed) ++changed;
    }
  return changed;
}

TEST(DecfloatPacked, EveryPlaceReadsEveryDecletAndWritesTheCanonicalOne) {
  const size_t narrow = expectEveryDecletInEveryPlace<OSSDecfloat16, 8>(5, "2238000000000000");
  const size_t wide =
      expectEveryDecletInEveryPlace<OSSDecfloat34, 16>(11, "22080000000000000000000000000000");
  EXPECT_EQ(narrow, 5u * 24);
  EXPECT_EQ(wide, 11u * 24);
}

// The text of what comes back from a number's encoding.
template <class Number, size_t kSize>
std::string textFromPacked(const Number& number) {
  std::array<uint8_t, kSize> packed{};
  EXPECT_EQ(number.toDecPacked(packed.data(), kSize), ECF_OK);
  Number again;
  EXPECT_EQ(again.fromDecPacked(packed.data(), kSize), ECF_OK);
  return textOf(again);
}

template <class Number, size_t kSize>
void expectZerosOfEveryExponent(int32_t least, int32_t most) {
  for (int32_t exponent = least; exponent <= most; ++exponent) {
    for (const char* sign : {"", "-"}) {
      const Number zero((sign + std::string("0E") + std::to_string(exponent)).c_str());
      ASSERT_EQ((textFromPacked<Number, kSize>(zero)), textOf(zero));
    }
  }
}

TEST(DecfloatPacked, ZerosOfEitherSignComeBackWithEveryExponent) {
  expectZerosOfEveryExponent<OSSDecfloat16, 8>(-398, 369);
  expectZerosOfEveryExponent<OSSDecfloat34, 16>(-6176, 6111);
}

// Each place of the coefficient takes each digit, alone and among others.
template <class Number, size_t kSize>
void expectEveryDigitInEveryPlace(size_t digits) {
  for (const char other : {'0', '9', '7'}) {
    for (size_t place = 0; place < digits; ++place) {
      for (char digit = '0'; digit <= '9'; ++digit) {
        std::string text(digits, other);
        text[place] = digit;
        const size_t zeros = text.find_first_not_of('0');
        ASSERT_EQ((textFromPacked<Number, kSize>(Number(text.c_str()))),
                  zeros == std::string::npos ? "0" : text.substr(zeros));
      }
    }
  }
}

TEST(DecfloatPacked, EveryPlaceOfTheCoefficientTakesEveryDigit) {
  expectEveryDigitInEveryPlace<OSSDecfloat16, 8>(16);
  expectEveryDigitInEveryPlace<OSSDecfloat34, 16>(34);
}

// ---- Sizes ----

TEST(DecfloatPacked, SixteenBytesAreForTheWideFormatAndAnyOtherSizeForTheNarrowOne) {
  uint8_t bytes[16] = {};
  OSSDecfloat16 narrow("1");
  OSSDecfloat34 wide("1");
  for (const uint32_t size : {0U, 7U, 8U, 15U, 17U, 0xFFFFFFFFU}) {
    EXPECT_EQ(narrow.toDecPacked(bytes, size), ECF_OK) << size;
    EXPECT_EQ(narrow.fromDecPacked(bytes, size), ECF_OK) << size;
    EXPECT_EQ(wide.toDecPacked(bytes, size), ECF_DECFLOAT_INVALID_ARRAY_SIZE) << size;
    EXPECT_EQ(wide.fromDecPacked(bytes, size), ECF_DECFLOAT_INVALID_ARRAY_SIZE) << size;
  }
  EXPECT_EQ(wide.toDecPacked(bytes, 16), ECF_OK);
  EXPECT_EQ(wide.fromDecPacked(bytes, 16), ECF_OK);
  EXPECT_EQ(narrow.toDecPacked(bytes, 16), ECF_DECFLOAT_INVALID_ARRAY_SIZE);
  EXPECT_EQ(narrow.fromDecPacked(bytes, 16), ECF_DECFLOAT_INVALID_ARRAY_SIZE);
}

TEST(DecfloatPacked, OnlyTheBytesOfTheFormatAreWritten) {
  uint8_t bytes[24];
  std::memset(bytes, '#', sizeof bytes);
  EXPECT_EQ(OSSDecfloat16("1").toDecPacked(bytes, 24), ECF_OK);
  EXPECT_EQ(bytes[7], 1);
  EXPECT_EQ(bytes[8], '#');
  EXPECT_EQ(OSSDecfloat34("1").toDecPacked(bytes, 16), ECF_OK);
  EXPECT_EQ(bytes[15], 1);
  EXPECT_EQ(bytes[16], '#');
  EXPECT_EQ(OSSDecfloat34("1").toDecPacked(bytes + 16, 8), ECF_DECFLOAT_INVALID_ARRAY_SIZE);
  EXPECT_EQ(bytes[16], '#');
}

// ---- The status ----

TEST(DecfloatPacked, AnEncodingDoesNotMakeUpForBadText) {
  const Bytes8 one = bytesOf<8>("2238000000000001");
  OSSDecfloat16 number("junk");
  EXPECT_EQ(number.fromDecPacked(one.data(), 8), ECF_OK);
  EXPECT_EQ(show(number), (Shown{ECF_DECFLOAT_SPECIAL_CONVERSION_ERROR, std::string("NaN\0", 4)}));

  Bytes8 packed{};
  EXPECT_EQ(number.toDecPacked(packed.data(), 8), ECF_OK);
  EXPECT_EQ(packed, one);
}

}  // namespace
