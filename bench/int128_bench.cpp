// Claim: 128-bit integers multiply and divide at least as fast as the compiler's own type, within a
// tenth, whatever the operands are.
#include <random>
#include <vector>

#include "ossint128.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 500;

__extension__ typedef unsigned __int128 NativeUint;
__extension__ typedef __int128 NativeSint;

// ---- Either type, from and to its words ----

template <class Integer>
Integer fromWords(uint64_t low, uint64_t high) {
  if constexpr (std::is_base_of_v<int128, Integer>)
    return Integer(low, high);
  else
    return static_cast<Integer>(NativeUint{high} << 64 | low);
}

template <class Integer>
uint64_t bothWords(const Integer& value) {
  if constexpr (std::is_base_of_v<int128, Integer>)
    return value.low() ^ value.high();
  else
    return static_cast<uint64_t>(value) ^ static_cast<uint64_t>(value >> 64);
}

// ---- Operands ----

// How wide the right operand is. The left one always has all 128 bits.
struct Bits {
  unsigned least;
  unsigned most;
};
constexpr Bits kSmall = {2, 31};
constexpr Bits kWord = {32, 64};
constexpr Bits kTwoWords = {65, 127};
constexpr Bits kAny = {2, 127};

template <class Integer>
struct Pair {
  Integer left;
  Integer right;
};

// The same for every type, so that all divide the same numbers.
template <class Integer>
std::vector<Pair<Integer>> operands(Bits bits) {
  std::mt19937_64 random(20040702);
  std::vector<Pair<Integer>> pairs(256);
  for (auto& [left, right] : pairs) {
    left = fromWords<Integer>(random(), random() | uint64_t{1} << 62);
    const auto width = bits.least + static_cast<unsigned>(random() % (bits.most - bits.least + 1));
    const NativeUint top = NativeUint{1} << (width - 1);
    const NativeUint value =
        top | (random() & (top - 1)) | ((NativeUint{random()} << 64) & (top - 1));
    right = fromWords<Integer>(static_cast<uint64_t>(value), static_cast<uint64_t>(value >> 64));
  }
  return pairs;
}

// ---- Operations ----

template <class Integer, class Operation>
void run(benchmark::State& state, Bits bits, Operation operation) {
  const auto pairs = operands<Integer>(bits);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (const auto& [left, right] : pairs) sum ^= bothWords<Integer>(operation(left, right));
    benchmark::DoNotOptimize(sum);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(pairs.size()));
}

template <class Integer>
void multiply(benchmark::State& state) {
  run<Integer>(state, kTwoWords, [](const auto& x, const auto& y) { return x * y; });
}

template <class Integer, Bits kDivisor>
void divide(benchmark::State& state) {
  run<Integer>(state, kDivisor, [](const auto& x, const auto& y) { return x / y; });
}

OSS_BENCHMARK(multiply<Uint128>);
OSS_BENCHMARK(multiply<NativeUint>);
OSS_BENCHMARK(multiply<Sint128>);
OSS_BENCHMARK(multiply<NativeSint>);
OSS_BENCHMARK(divide<Uint128, kSmall>);
OSS_BENCHMARK(divide<NativeUint, kSmall>);
OSS_BENCHMARK(divide<Uint128, kWord>);
OSS_BENCHMARK(divide<NativeUint, kWord>);
OSS_BENCHMARK(divide<Uint128, kTwoWords>);
OSS_BENCHMARK(divide<NativeUint, kTwoWords>);
OSS_BENCHMARK(divide<Uint128, kAny>);
OSS_BENCHMARK(divide<NativeUint, kAny>);
OSS_BENCHMARK(divide<Sint128, kSmall>);
OSS_BENCHMARK(divide<NativeSint, kSmall>);
OSS_BENCHMARK(divide<Sint128, kWord>);
OSS_BENCHMARK(divide<NativeSint, kWord>);
OSS_BENCHMARK(divide<Sint128, kTwoWords>);
OSS_BENCHMARK(divide<NativeSint, kTwoWords>);

constexpr Claim kRows[] = {
    {"multiply<Uint128>", atMostTimes(1.1), "multiply<NativeUint>"},
    {"multiply<Sint128>", atMostTimes(1.1), "multiply<NativeSint>"},
    {"divide<Uint128, kSmall>", atMostTimes(1.1), "divide<NativeUint, kSmall>"},
    {"divide<Uint128, kWord>", atMostTimes(1.1), "divide<NativeUint, kWord>"},
    {"divide<Uint128, kTwoWords>", atMostTimes(1.1), "divide<NativeUint, kTwoWords>"},
    {"divide<Uint128, kAny>", atMostTimes(1.1), "divide<NativeUint, kAny>"},
    {"divide<Sint128, kSmall>", atMostTimes(1.1), "divide<NativeSint, kSmall>"},
    {"divide<Sint128, kWord>", atMostTimes(1.1), "divide<NativeSint, kWord>"},
    {"divide<Sint128, kTwoWords>", atMostTimes(1.1), "divide<NativeSint, kTwoWords>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
