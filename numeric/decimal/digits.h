// digits.h - a coefficient as packed digits, the form that every conversion passes through.
//
// Four bits hold a decimal digit, so a unit of four digits is 16 bits wide here as it is in a
// number, where it holds a value below 10,000. Text, declets and rounding see digits; a shift by
// four bits multiplies or divides by ten; the number of digits is the number of bits, by four.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "ossdecimal.h"

namespace oss {

static_assert(std::endian::native == std::endian::little, "units lie in a word as digits do");

inline constexpr int kDigitsInWord = 16;

// Without leading zeros, but at least 1.
constexpr int countIn(uint64_t word) noexcept {
  const int topBit = 63 ^ std::countl_zero(word | 1);
  return (topBit >> 2) + 1;
}

// The word above shifted down into the word below, by less than a word.
constexpr uint64_t shiftedDown(uint64_t above, uint64_t below, int digits) noexcept {
  return below >> digits * 4 | above << 1 << (63 - digits * 4);
}

// 48 digits, the least significant ones in word[0].
struct Digits {
  static constexpr int kCapacity = 3 * kDigitsInWord;

  uint64_t word[3] = {};

  constexpr bool isZero() const noexcept { return (word[0] | word[1] | word[2]) == 0; }

  // Without leading zeros; 1 for zero.
  constexpr int count() const noexcept {
    if (word[2] != 0) return 2 * kDigitsInWord + countIn(word[2]);
    return word[1] != 0 ? kDigitsInWord + countIn(word[1]) : countIn(word[0]);
  }

  // The digit that counts 10^index, which may be anything.
  constexpr uint32_t at(int64_t index) const noexcept {
    if (index < 0 || index >= kCapacity) return 0;
    return word[index / kDigitsInWord] >> (index % kDigitsInWord * 4) & 0xF;
  }

  // Appends less than a word of digits. The top ones fall out when there is no room.
  constexpr void append(uint64_t digits, int count) noexcept {
    const int bits = count * 4;
    word[2] = word[2] << bits | word[1] >> 1 >> (63 - bits);
    word[1] = word[1] << bits | word[0] >> 1 >> (63 - bits);
    word[0] = word[0] << bits | digits;
  }

  constexpr bool hasRoomForEight() const noexcept { return word[2] >> 32 == 0; }

  // Multiplies by 10^count; the top digits fall out when there is no room.
  constexpr void shiftUp(int count) noexcept {
    for (; count >= kDigitsInWord; count -= kDigitsInWord) {
      word[2] = word[1];
      word[1] = word[0];
      word[0] = 0;
    }
    append(0, count);
  }

  // Divides by 10^count, which may exceed the capacity.
  constexpr void shiftDown(int64_t count) noexcept {
    if (count >= kCapacity) {
      *this = Digits();
      return;
    }
    for (; count >= kDigitsInWord; count -= kDigitsInWord) {
      word[0] = word[1];
      word[1] = word[2];
      word[2] = 0;
    }
    const auto rest = static_cast<int>(count);
    word[0] = shiftedDown(word[1], word[0], rest);
    word[1] = shiftedDown(word[2], word[1], rest);
    word[2] >>= rest * 4;
  }

  // Whether any of the `count` last digits is not 0.
  constexpr bool anyBelow(int64_t count) const noexcept {
    for (const uint64_t part : word) {
      if (count >= kDigitsInWord ? part != 0 : part << 1 << (63 - 4 * count) != 0) return true;
      count -= kDigitsInWord;
      if (count <= 0) break;
    }
    return false;
  }

  // Adds 1: the nines at the end become zeros, the digit before them grows.
  constexpr void increment() noexcept {
    int index = 0;
    for (; at(index) == 9; ++index)
      word[index / kDigitsInWord] &= ~(uint64_t{0xF} << (index % kDigitsInWord * 4));
    word[index / kDigitsInWord] += uint64_t{1} << (index % kDigitsInWord * 4);
  }
};

// Eight units or two words, in one of the processor's vectors.
using Units [[gnu::vector_size(16)]] = uint16_t;
using Words [[gnu::vector_size(16)]] = uint64_t;

// Digits are joined to pairs, pairs to fours: a part that held 16 a + b is to hold 10 a + b, then
// one that held 256 a + b is to hold 100 a + b.
inline Units unitsOf(Units digits) noexcept {
  digits -= (digits >> 4 & 0x0F0F) * 6;
  return digits - (digits >> 8) * 156;
}

// The way back: fours are parted into pairs, pairs into digits.
inline Units digitsOf(Units units) noexcept {
  units += units / 100 * 156;
  const Units upper = units >> 8;
  const Units lower = units & 0xFF;
  return units + lower / 10 * 6 + (upper / 10 * 6 << 8);
}

inline Digits digitsOf(const DecimalNumber& number) noexcept {
  Units units;
  std::memcpy(&units, number.units, sizeof units);
  const auto words = std::bit_cast<Words>(digitsOf(units));
  const uint32_t top = number.units[8];  // two digits at most
  return {{words[0], words[1], top + top / 10 * 6}};
}

// Sets coefficient and count; digits are 34 at most.
inline void setCoefficient(DecimalNumber& number, const Digits& digits) noexcept {
  const Words words = {digits.word[0], digits.word[1]};
  const Units units = unitsOf(std::bit_cast<Units>(words));
  std::memcpy(number.units, &units, sizeof units);
  number.units[8] = static_cast<uint16_t>(digits.word[2] - 6 * (digits.word[2] >> 4));
  number.digits = digits.count();
}

}  // namespace oss
