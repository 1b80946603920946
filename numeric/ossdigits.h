// ossdigits.h - characters of numbers: white space, digits, and decimal digits eight at a time.
//
// Pure functions on bytes, in the C locale whatever the process has set: a text means the same
// number everywhere.
#pragma once

#include <cstdint>
#include <cstring>

namespace oss {

constexpr bool isSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The worth of a decimal digit; 10 or more for every other character.
constexpr uint32_t decimalWorth(char c) noexcept {
  return static_cast<unsigned char>(c) - uint32_t{'0'};
}

constexpr bool isDecimalDigit(char c) noexcept { return decimalWorth(c) <= 9; }

// Whether the next eight characters are decimal digits. Reads no further than the first that is
// not, so a text may end anywhere.
inline bool startsWithEightDigits(const char* text) noexcept {
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i)
    if (!isDecimalDigit(text[i])) return false;
  return true;
}

// The value of eight decimal digits: neighbours are joined to pairs, pairs to fours, fours to
// eight, each step on all parts of one word at once.
inline uint64_t valueOfEightDigits(const char* digits) noexcept {
  uint64_t word;  // the first digit is its lowest byte
  std::memcpy(&word, digits, sizeof word);
  word -= 0x3030303030303030;
  word = (word * 10 + (word >> 8)) & 0x00FF00FF00FF00FF;
  word = (word * 100 + (word >> 16)) & 0x0000FFFF0000FFFF;
  return (word * 10000 + (word >> 32)) & 0x00000000FFFFFFFF;
}

}  // namespace oss
