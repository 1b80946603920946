// native128.h - the compiler's own 128-bit integers, against which ours are tested.
#pragma once

#include <bit>
#include <cstdint>
#include <ostream>
#include <string>

#include "ossint128.h"

__extension__ typedef unsigned __int128 Native;
__extension__ typedef __int128 SignedNative;

constexpr Native kAllOnes = ~Native{0};
constexpr Native kSignBit = Native{1} << 127;

constexpr Native toNative(const int128& value) { return Native{value.high()} << 64 | value.low(); }

constexpr int128 fromNative(Native value) {
  return int128(static_cast<uint64_t>(value), static_cast<uint64_t>(value >> 64));
}

constexpr bool isNegative(Native bits) { return (bits & kSignBit) != 0; }
constexpr Native magnitude(Native bits) { return isNegative(bits) ? 0 - bits : bits; }

// Digit by digit, least significant first.
inline std::string decimalText(Native value) {
  std::string text;
  do text.insert(text.begin(), static_cast<char>('0' + static_cast<int>(value % 10)));
  while ((value /= 10) != 0);
  return text;
}

inline std::string signedDecimalText(Native bits) {
  return (isNegative(bits) ? "-" : "") + decimalText(magnitude(bits));
}

// Reaches the conversions that the classes keep to those that derive from them.
struct DecimalText : int128 {
  explicit DecimalText(const int128& value) : int128(value) {}
  int write(char* out, size_t size, bool asSigned) const { return tostr(out, size, asSigned); }
  static int128 read(const char* text) { return strToInt128(text); }
};

// How a failing test shows a value.
inline void PrintTo(const int128& value, std::ostream* out) {
  *out << decimalText(toNative(value)) << " (as signed " << signedDecimalText(toNative(value))
       << ")";
}
inline void PrintTo(const Uint128& value, std::ostream* out) {
  *out << decimalText(toNative(value));
}
inline void PrintTo(const Sint128& value, std::ostream* out) {
  *out << signedDecimalText(toNative(value));
}

// Pseudo-random words: xoshiro256** of David Blackman and Sebastiano Vigna, "Scrambled Linear
// Pseudorandom Number Generators" (2018). The same seed gives the same words everywhere.
class Random {
 public:
  explicit Random(uint64_t seed) {
    for (uint64_t& word : state_) {  // SplitMix64 spreads the seed
      uint64_t mixed = seed += 0x9E3779B97F4A7C15;
      mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
      mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
      word = mixed ^ mixed >> 31;
    }
  }

  uint64_t next() {
    const uint64_t result = std::rotl(state_[1] * 5, 7) * 9;
    const uint64_t shifted = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= shifted;
    state_[3] = std::rotl(state_[3], 45);
    return result;
  }

  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(next() >> 32) % bound; }

  // Every length from 0 to 128 bits is as likely, and one value in eight is an edge: a power of
  // two, or one beside it, or the complement of one.
  Native wide() {
    const uint64_t choice = next();
    const auto length = static_cast<unsigned>(choice >> 8) % 129;
    if (choice % 8 == 0) {
      const Native power = length < 128 ? Native{1} << length : 0;
      const Native beside = power - 1 + static_cast<unsigned>(choice >> 40) % 3;
      return (choice >> 62 & 1) != 0 ? ~beside : beside;
    }
    const Native word = Native{next()} << 64 | next();
    return length == 0 ? 0 : word >> (128 - length);
  }

 private:
  uint64_t state_[4];
};
