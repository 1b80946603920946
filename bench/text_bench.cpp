// Claim: numbers become text and text becomes numbers at most half as slow again as with the
// standard library's bare conversions, which know no white space, prefix, base detection or NUL.
#include <charconv>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ossint128.h"
#include "ossstring.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 200;

// Opens the conversions, which are for deriving classes.
struct Number128 : Uint128 {
  using int128::strToInt128;
  using int128::tostr;
  using Uint128::Uint128;
};

constexpr size_t kNumbers = 256;

// How wide the numbers are.
struct Bits {
  unsigned least;
  unsigned most;
};
constexpr Bits kShort = {1, 16};  // 1 to 5 digits
constexpr Bits kLong = {61, 64};  // 19 or 20 digits
constexpr Bits kAny = {1, 64};    // 1 to 20 digits

// The same numbers in every run.
std::vector<uint64_t> numbers(Bits bits) {
  std::mt19937_64 random(20040702);
  std::vector<uint64_t> numbers(kNumbers);
  for (uint64_t& number : numbers) {
    const auto width = bits.least + static_cast<unsigned>(random() % (bits.most - bits.least + 1));
    const uint64_t top = uint64_t{1} << (width - 1);
    number = top | (random() & (top - 1));
  }
  return numbers;
}

std::vector<std::string> texts(Bits bits, const char* prefix, int base) {
  std::vector<std::string> texts;
  for (const uint64_t number : numbers(bits)) {
    char digits[65];
    const auto end = std::to_chars(digits, std::end(digits), number, base).ptr;
    texts.push_back(prefix + std::string(digits, end));
  }
  return texts;
}

// Runs the operation on each of the inputs in every turn.
template <class Inputs, class Operation>
void forEach(benchmark::State& state, const Inputs& inputs, Operation operation) {
  for (auto _ : state)
    for (const auto& input : inputs) benchmark::DoNotOptimize(operation(input));
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(inputs.size()));
}

// ---- To text ----

template <Bits kBits>
void tostr(benchmark::State& state) {
  char text[40];
  forEach(state, numbers(kBits),
          [&](uint64_t number) { return Number128(number).tostr(text, sizeof text, false); });
}

template <Bits kBits>
void toChars(benchmark::State& state) {
  char text[40];
  forEach(state, numbers(kBits),
          [&](uint64_t number) { return std::to_chars(text, std::end(text), number).ptr; });
}

// 38 or 39 digits, next to two numbers of 19 or 20.
void tostrOfTwoWords(benchmark::State& state) {
  char text[40];
  forEach(state, numbers(kLong), [&](uint64_t number) {
    return Number128(~number, number).tostr(text, sizeof text, false);
  });
}

void toCharsTwice(benchmark::State& state) {
  char text[40];
  forEach(state, numbers(kLong), [&](uint64_t number) {
    char* const middle = std::to_chars(text, std::end(text), number).ptr;
    return std::to_chars(middle, std::end(text), number | uint64_t{1} << 63).ptr;
  });
}

OSS_BENCHMARK(tostr<kShort>);
OSS_BENCHMARK(toChars<kShort>);
OSS_BENCHMARK(tostr<kAny>);
OSS_BENCHMARK(toChars<kAny>);
OSS_BENCHMARK(tostr<kLong>);
OSS_BENCHMARK(toChars<kLong>);
OSS_BENCHMARK(tostrOfTwoWords);
OSS_BENCHMARK(toCharsTwice);

// ---- From text ----

uint64_t readChars(const char* first, const char* last, int base) {
  uint64_t value = 0;
  benchmark::DoNotOptimize(std::from_chars(first, last, value, base).ptr);
  return value;
}

template <Bits kBits>
void strToUint64(benchmark::State& state) {
  forEach(state, texts(kBits, "", 10), [](const std::string& text) {
    char* end;
    return ossStrToUint64(text.c_str(), &end, 0);
  });
}

template <Bits kBits>
void fromChars(benchmark::State& state) {
  forEach(state, texts(kBits, "", 10), [](const std::string& text) {
    return readChars(text.data(), text.data() + text.size(), 10);
  });
}

void hexStrToUint64(benchmark::State& state) {
  forEach(state, texts(kAny, "0x", 16), [](const std::string& text) {
    char* end;
    return ossStrToUint64(text.c_str(), &end, 0);
  });
}

void hexFromChars(benchmark::State& state) {
  forEach(state, texts(kAny, "", 16), [](const std::string& text) {
    return readChars(text.data(), text.data() + text.size(), 16);
  });
}

// As many digits as two numbers of one word have.
void strToInt128(benchmark::State& state) {
  forEach(state, texts(kLong, "1234567890123456789", 10),
          [](const std::string& text) { return Number128::strToInt128(text.c_str()).low(); });
}

void fromCharsTwice(benchmark::State& state) {
  forEach(state, texts(kLong, "1234567890123456789", 10), [](const std::string& text) {
    const char* const middle = text.data() + 19;
    return readChars(text.data(), middle, 10) ^ readChars(middle, text.data() + text.size(), 10);
  });
}

OSS_BENCHMARK(strToUint64<kShort>);
OSS_BENCHMARK(fromChars<kShort>);
OSS_BENCHMARK(strToUint64<kAny>);
OSS_BENCHMARK(fromChars<kAny>);
OSS_BENCHMARK(strToUint64<kLong>);
OSS_BENCHMARK(fromChars<kLong>);
OSS_BENCHMARK(hexStrToUint64);
OSS_BENCHMARK(hexFromChars);
OSS_BENCHMARK(strToInt128);
OSS_BENCHMARK(fromCharsTwice);

constexpr Claim kRows[] = {
    {"tostr<kShort>", atMostTimes(1.5), "toChars<kShort>"},
    {"tostr<kAny>", atMostTimes(1.5), "toChars<kAny>"},
    {"tostr<kLong>", atMostTimes(1.5), "toChars<kLong>"},
    {"tostrOfTwoWords", atMostTimes(1.5), "toCharsTwice"},
    {"strToUint64<kShort>", atMostTimes(1.5), "fromChars<kShort>"},
    {"strToUint64<kAny>", atMostTimes(1.5), "fromChars<kAny>"},
    {"strToUint64<kLong>", atMostTimes(1.5), "fromChars<kLong>"},
    {"hexStrToUint64", atMostTimes(1.5), "hexFromChars"},
    {"strToInt128", atMostTimes(1.5), "fromCharsTwice"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
