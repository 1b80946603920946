// Claim: decimal numbers of either format, short and full, go to and from text faster than with
// Intel's decimal library, which keeps a binary coefficient, and to and from the packed encoding
// within the time that its other form of number leaves.
//
// A native program: the peer is a package of this system.
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ossdecfloat.h"
#include "ratio.h"

#define DECIMAL_CALL_BY_REFERENCE 0
#define DECIMAL_GLOBAL_ROUNDING 0
#define DECIMAL_GLOBAL_EXCEPTION_FLAGS 0
#include <bid_conf.h>
#include <bid_functions.h>

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 100;
constexpr size_t kNumbers = 256;
constexpr size_t kTextBytes = 64;

// ---- Both libraries, both formats ----

struct Ours64 {
  using Number = OSSDecfloat16;
  struct Packed {
    uint8_t bytes[8];
  };
  static constexpr size_t kDigits = 16;
};

struct Ours128 {
  using Number = OSSDecfloat34;
  struct Packed {
    uint8_t bytes[16];
  };
  static constexpr size_t kDigits = 34;
};

template <class Peer>
struct Ours : Peer {
  using typename Peer::Number;
  using typename Peer::Packed;

  static void read(Number& number, const std::string& text) { number.fromString(text.c_str()); }
  static void write(const Number& number, char* text) { number.toString(text, 43); }
  static void pack(const Number& number, Packed& packed) {
    number.toDecPacked(packed.bytes, sizeof packed);
  }
  static void unpack(const Packed& packed, Number& number) {
    number.fromDecPacked(packed.bytes, sizeof packed);
  }
};
using Oss64 = Ours<Ours64>;
using Oss128 = Ours<Ours128>;

// Its text is not const, though it is only read.
char* unconst(const std::string& text) { return const_cast<char*>(text.c_str()); }

struct Intel64 {
  using Number = BID_UINT64;
  using Packed = BID_UINT64;
  static constexpr size_t kDigits = 16;

  static void read(Number& number, const std::string& text) {
    _IDEC_flags flags = 0;
    number = bid64_from_string(unconst(text), BID_ROUNDING_TO_NEAREST, &flags);
  }
  static void write(const Number& number, char* text) {
    _IDEC_flags flags = 0;
    bid64_to_string(text, number, &flags);
  }
  static void pack(const Number& number, Packed& packed) { packed = bid_to_dpd64(number); }
  static void unpack(const Packed& packed, Number& number) { number = bid_dpd_to_bid64(packed); }
};

struct Intel128 {
  using Number = BID_UINT128;
  using Packed = BID_UINT128;
  static constexpr size_t kDigits = 34;

  static void read(Number& number, const std::string& text) {
    _IDEC_flags flags = 0;
    number = bid128_from_string(unconst(text), BID_ROUNDING_TO_NEAREST, &flags);
  }
  static void write(const Number& number, char* text) {
    _IDEC_flags flags = 0;
    bid128_to_string(text, number, &flags);
  }
  static void pack(const Number& number, Packed& packed) { packed = bid_to_dpd128(number); }
  static void unpack(const Packed& packed, Number& number) { number = bid_dpd_to_bid128(packed); }
};

// ---- Inputs, the same in every run ----

enum class Length { kShort, kFull };
constexpr Length kShort = Length::kShort;  // amounts: 3 to 9 digits, two behind the point
constexpr Length kFull = Length::kFull;  // all digits of the format, two out of three with a point

std::vector<std::string> texts(Length length, size_t fullDigits) {
  std::mt19937_64 random(754);
  const auto below = [&random](size_t limit) { return random() % limit; };
  std::vector<std::string> texts(kNumbers);
  for (std::string& text : texts) {
    const size_t digits = length == kShort ? 3 + below(7) : fullDigits;
    text = static_cast<char>('1' + below(9));
    for (size_t i = 1; i < digits; ++i) text += static_cast<char>('0' + below(10));
    const size_t fraction = length == kShort ? 2 : below(3) * below(digits);
    if (fraction != 0 && fraction < digits) text.insert(text.size() - fraction, ".");
    if (below(2) == 0) text.insert(0, "-");
  }
  return texts;
}

template <class Library>
std::vector<typename Library::Number> numbers(Length length) {
  std::vector<typename Library::Number> numbers;
  for (const std::string& text : texts(length, Library::kDigits))
    Library::read(numbers.emplace_back(), text);
  return numbers;
}

// ---- The four conversions ----

// Runs the operation on each of the inputs in every turn; the result is looked at each time.
template <class Result, class Inputs, class Operation>
void forEach(benchmark::State& state, const Inputs& inputs, Operation operation) {
  Result result = {};
  for (auto _ : state) {
    for (const auto& input : inputs) {
      operation(input, result);
      benchmark::DoNotOptimize(&result);
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(inputs.size()));
}

template <class Library, Length kLength>
void read(benchmark::State& state) {
  forEach<typename Library::Number>(
      state, texts(kLength, Library::kDigits),
      [](const auto& text, auto& number) { Library::read(number, text); });
}

struct Text {
  char bytes[kTextBytes];
};

template <class Library, Length kLength>
void write(benchmark::State& state) {
  forEach<Text>(state, numbers<Library>(kLength),
                [](const auto& number, auto& text) { Library::write(number, text.bytes); });
}

template <class Library, Length kLength>
void pack(benchmark::State& state) {
  forEach<typename Library::Packed>(state, numbers<Library>(kLength), Library::pack);
}

template <class Library, Length kLength>
void unpack(benchmark::State& state) {
  std::vector<typename Library::Packed> encodings;
  for (const auto& number : numbers<Library>(kLength))
    Library::pack(number, encodings.emplace_back());
  forEach<typename Library::Number>(state, encodings, Library::unpack);
}

#define DECIMAL_BENCHMARKS(conversion)         \
  OSS_BENCHMARK(conversion<Oss64, kShort>);    \
  OSS_BENCHMARK(conversion<Intel64, kShort>);  \
  OSS_BENCHMARK(conversion<Oss64, kFull>);     \
  OSS_BENCHMARK(conversion<Intel64, kFull>);   \
  OSS_BENCHMARK(conversion<Oss128, kShort>);   \
  OSS_BENCHMARK(conversion<Intel128, kShort>); \
  OSS_BENCHMARK(conversion<Oss128, kFull>);    \
  OSS_BENCHMARK(conversion<Intel128, kFull>)

DECIMAL_BENCHMARKS(read);
DECIMAL_BENCHMARKS(write);
DECIMAL_BENCHMARKS(pack);
DECIMAL_BENCHMARKS(unpack);

// ---- Published without a peer ----

template <Length kLength>
void toUInt64(benchmark::State& state) {
  forEach<uint64_t>(state, numbers<Oss64>(kLength),
                    [](const OSSDecfloat& number, uint64_t& value) { number.toUInt64(&value); });
}

template <Length kLength>
void toDouble(benchmark::State& state) {
  forEach<double>(state, numbers<Oss64>(kLength),
                  [](const OSSDecfloat& number, double& value) { number.toDouble(&value); });
}

OSS_BENCHMARK(toUInt64<kShort>);
OSS_BENCHMARK(toUInt64<kFull>);
OSS_BENCHMARK(toDouble<kShort>);
OSS_BENCHMARK(toDouble<kFull>);

constexpr Claim kRows[] = {
    {"read<Oss64, kShort>", atMostTimes(1.0), "read<Intel64, kShort>"},
    {"read<Oss64, kFull>", atMostTimes(1.0), "read<Intel64, kFull>"},
    {"read<Oss128, kShort>", atMostTimes(1.0), "read<Intel128, kShort>"},
    {"read<Oss128, kFull>", atMostTimes(1.0), "read<Intel128, kFull>"},
    {"write<Oss64, kShort>", atMostTimes(1.0), "write<Intel64, kShort>"},
    {"write<Oss64, kFull>", atMostTimes(1.0), "write<Intel64, kFull>"},
    {"write<Oss128, kShort>", atMostTimes(1.0), "write<Intel128, kShort>"},
    {"write<Oss128, kFull>", atMostTimes(1.0), "write<Intel128, kFull>"},
    {"pack<Oss64, kShort>", atMostTimes(1.3), "pack<Intel64, kShort>"},
    {"pack<Oss64, kFull>", atMostTimes(1.3), "pack<Intel64, kFull>"},
    {"pack<Oss128, kShort>", atMostTimes(0.33), "pack<Intel128, kShort>"},
    {"pack<Oss128, kFull>", atMostTimes(0.33), "pack<Intel128, kFull>"},
    {"unpack<Oss64, kShort>", atMostTimes(1.3), "unpack<Intel64, kShort>"},
    {"unpack<Oss64, kFull>", atMostTimes(1.3), "unpack<Intel64, kFull>"},
    {"unpack<Oss128, kShort>", atMostTimes(1.0), "unpack<Intel128, kShort>"},
    {"unpack<Oss128, kFull>", atMostTimes(1.0), "unpack<Intel128, kFull>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
