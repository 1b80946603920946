// digits.h - numbers and short texts, written by hand: each function writes at `out` and returns
// where it ended. The caller has made room (output.h).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace oss::tool {

// The room that any number takes at most.
inline constexpr size_t kLongestNumber = 20;

inline constexpr auto kPairsOfDigits = [] {
  struct {
    char text[200];
  } pairs{};
  for (size_t i = 0; i < 100; ++i) {
    pairs.text[2 * i] = static_cast<char>('0' + i / 10);
    pairs.text[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

// Copies a name or a word. A call of the run-time's copy would cost more than the copy: two words
// that overlap take 8 to 16 bytes, two pairs of them up to 32.
inline char* putWord(char* out, std::string_view name) {
  const size_t size = name.size();
  const char* const from = name.data();
  const auto copy8 = [&](size_t at) { std::memcpy(out + at, from + at, 8); };
  if (size > 32) [[unlikely]] {
    std::memcpy(out, from, size);
  } else if (size < 4) {
    for (size_t i = 0; i < size; ++i) out[i] = from[i];
  } else if (size < 8) {
    std::memcpy(out, from, 4);
    std::memcpy(out + size - 4, from + size - 4, 4);
  } else {
    copy8(0);
    if (size > 16) {
      copy8(8);
      copy8(size - 16);
    }
    copy8(size - 8);
  }
  return out + size;
}

inline char* putText(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

inline char* putChar(char* out, char c) {
  *out = c;
  return out + 1;
}

inline void putPair(char* out, size_t below100) {
  std::memcpy(out, kPairsOfDigits.text + 2 * below100, 2);
}

inline uint32_t countDigits(uint64_t value) {
  uint32_t digits = 1;
  for (;;) {
    if (value < 10) return digits;
    if (value < 100) return digits + 1;
    if (value < 1000) return digits + 2;
    if (value < 10000) return digits + 3;
    value /= 10000;
    digits += 4;
  }
}

inline char* putDecimal(char* out, uint64_t value) {
  char* const end = out + countDigits(value);
  char* digit = end;
  while (value >= 100) {
    digit -= 2;
    putPair(digit, value % 100);
    value /= 100;
  }
  if (value >= 10)
    putPair(digit - 2, value);
  else
    digit[-1] = static_cast<char>('0' + value);
  return end;
}

// Three digits, with zeros in front.
inline char* put3Digits(char* out, uint32_t below1000) {
  *out = static_cast<char>('0' + below1000 / 100);
  putPair(out + 1, below1000 % 100);
  return out + 3;
}

// Nine digits, with zeros in front.
inline char* put9Digits(char* out, uint32_t below1e9) {
  const uint32_t low4 = below1e9 % 10000;
  const uint32_t high5 = below1e9 / 10000;
  const uint32_t middle4 = high5 % 10000;
  *out = static_cast<char>('0' + high5 / 10000);
  putPair(out + 1, middle4 / 100);
  putPair(out + 3, middle4 % 100);
  putPair(out + 5, low4 / 100);
  putPair(out + 7, low4 % 100);
  return out + 9;
}

// "0x" and as many digits as the value has.
inline char* putHex(char* out, uint64_t value) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const int digits = value == 0 ? 1 : (67 - std::countl_zero(value)) / 4;
  *out++ = '0';
  *out++ = 'x';
  for (int i = digits - 1; i >= 0; --i) {
    out[i] = kDigits[value & 0xF];
    value >>= 4;
  }
  return out + digits;
}

}  // namespace oss::tool
