// Numbers and words by hand, next to what the run-time writes.
#include "digits.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "clock.h"

using namespace oss::tool;

namespace {

template <class Put>
std::string written(Put put) {
  char text[64];
  return {text, put(text)};
}

// Every power of ten and of two, what lies beside them, and the largest.
std::vector<uint64_t> limits() {
  std::vector<uint64_t> values = {0, UINT64_MAX};
  for (uint64_t ten = 1; ten <= UINT64_MAX / 10; ten *= 10)
    for (const uint64_t value : {ten - 1, ten, ten + 1, ten * 9}) values.push_back(value);
  for (uint64_t two = 1; two != 0; two <<= 1)
    for (const uint64_t value : {two - 1, two, two + 1}) values.push_back(value);
  return values;
}

}  // namespace

TEST(TraceDigits, DecimalAndHexAreThoseOfTheRunTime) {
  for (const uint64_t value : limits()) {
    EXPECT_EQ(written([&](char* out) { return putDecimal(out, value); }), std::to_string(value));
    char hex[32];
    std::snprintf(hex, sizeof hex, "0x%X%08X", static_cast<unsigned>(value >> 32),
                  static_cast<unsigned>(value));
    if (value >> 32 == 0) std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(value));
    EXPECT_EQ(written([&](char* out) { return putHex(out, value); }), hex);
  }
}

TEST(TraceDigits, FixedWidthsHaveTheirZeros) {
  for (const uint32_t value : {0u, 1u, 10'001u, 123'456'789u, 900'000'000u, 999'999'999u}) {
    const std::string digits = std::to_string(value);
    EXPECT_EQ(written([&](char* out) { return put9Digits(out, value); }),
              std::string(9 - digits.size(), '0') + digits);
  }
  EXPECT_EQ(written([](char* out) { return put3Digits(out, 7); }), "007");
  EXPECT_EQ(written([](char* out) { return put3Digits(out, 999); }), "999");
}

TEST(TraceDigits, WordsOfEveryLengthAreCopiedWhole) {
  const std::string alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  for (size_t length = 0; length <= alphabet.size(); ++length) {
    const std::string word = alphabet.substr(0, length);
    EXPECT_EQ(written([&](char* out) { return putWord(out, word); }), word);
  }
}

TEST(TraceClock, IsExactForEveryFrequencyAndEveryOrderOfTimes) {
  for (const uint64_t frequency : {0ull, 1ull, 3'579'545ull, 10'000'000ull, 24'000'000'000ull}) {
    Clock clock(frequency);
    const uint64_t perSecond = frequency != 0 ? frequency : 1;
    for (const uint64_t ticks : {7ull, ~0ull, 0ull, 123'456'789'012ull, 123'456'789'011ull}) {
      const Moment moment = clock.at(ticks);
      EXPECT_EQ(moment.seconds, ticks / perSecond);
      const auto rest = static_cast<long double>(ticks % perSecond) * 1e9L;
      EXPECT_EQ(moment.nanoseconds,
                static_cast<uint32_t>(rest / static_cast<long double>(perSecond)));
    }
  }
}
