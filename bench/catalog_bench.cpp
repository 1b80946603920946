// Claim: every look-up by number, of the catalog and of the error mapping, takes at most 3 ns more
// than one load from a table of as many rows, the call into the DLL included.
#include <iterator>
#include <random>
#include <vector>

#include "osscatalog.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 500;

// Runs the operation on each of the numbers in every turn. They come in an order that a processor
// does not learn.
template <class Operation>
void forEach(benchmark::State& state, uint32_t (*make)(uint32_t random), Operation operation) {
  std::mt19937_64 random(20040702);
  std::vector<uint32_t> numbers(1024);
  for (uint32_t& number : numbers) number = make(static_cast<uint32_t>(random()));

  for (auto _ : state)
    for (const uint32_t number : numbers) benchmark::DoNotOptimize(operation(number));
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(numbers.size()));
}

// ---- The catalog ----

constexpr uint32_t kCodes = 1322;

uint32_t makeCode(uint32_t random) { return OSS_ERR_FLAG | OSS_ERR_SET_1 | (1 + random % kCodes); }

uint32_t makeOperation(uint32_t random) {
  return oss::makeFunctionId(1, 3, oss::FunctionKind::Operation, 1 + random % 173);
}

void nameOfCode(benchmark::State& state, const char* (*lookUp)(OSSErr)) {
  forEach(state, makeCode, lookUp);
}

void nameOfFunction(benchmark::State& state, const char* (*lookUp)(uint32_t)) {
  forEach(state, makeOperation, lookUp);
}

// The peer: a row by its index, unchecked.
struct Row {
  uint64_t number;
  const char* text;
};
Row g_rows[kCodes + 1];

void tableLoad(benchmark::State& state) {
  for (Row& row : g_rows) row.text = "text";
  forEach(state, makeCode, [](uint32_t code) { return g_rows[code & OSS_ERR_INDEX_MASK].text; });
}

OSS_BENCHMARK_OF(nameOfCode, ecfErrorGetCodeName);
OSS_BENCHMARK_OF(nameOfCode, ecfErrorGetDescription);
OSS_BENCHMARK_OF(nameOfCode, ecfErrorGetProductName);
OSS_BENCHMARK_OF(nameOfCode, ecfErrorGetComponentName);
OSS_BENCHMARK_OF(nameOfFunction, ecfGetFunctionName);
OSS_BENCHMARK_OF(nameOfFunction, ecfGetComponentName);
OSS_BENCHMARK_OF(nameOfFunction, ecfGetProductName);
OSS_BENCHMARK(tableLoad);

// ---- System errors ----

// Errors that the mapping knows, and a few that it does not.
constexpr uint32_t kErrors[] = {2,   3,   5,   6,   8,   18,  21,  32,  33,  38,  80, 87,
                                112, 122, 123, 126, 127, 145, 183, 206, 234, 267, 1,  1400};

uint32_t makeError(uint32_t random) { return kErrors[random % std::size(kErrors)]; }

constexpr uint32_t kOperation = static_cast<uint32_t>(oss::Func::OSSHFile_open);
constexpr uint32_t kSystemCall = static_cast<uint32_t>(oss::SysCall::CreateFileA);

void mapError(benchmark::State& state) {
  forEach(state, makeError, [](uint32_t error) {
    uint64_t level;
    const OSSErr rc = ossErrorMapSystem(kOperation, 280, kSystemCall, error, &level);
    benchmark::DoNotOptimize(level);
    return rc;
  });
}

void nameError(benchmark::State& state) {
  forEach(state, makeError,
          [](uint32_t error) { return ossErrorNameMapSystem(kSystemCall, error); });
}

struct Mapping {
  OSSErr code;
  uint32_t level;
};
Mapping g_mappings[1500];

void mappingLoad(benchmark::State& state) {
  for (Mapping& mapping : g_mappings) mapping = {ECF_UNKNOWN, OSS_LOG_ERROR};
  forEach(state, makeError, [](uint32_t error) {
    const Mapping mapping = g_mappings[error];
    benchmark::DoNotOptimize(mapping.level);
    return mapping.code;
  });
}

OSS_BENCHMARK(mapError);
OSS_BENCHMARK(nameError);
OSS_BENCHMARK(mappingLoad);

constexpr Claim kRows[] = {
    {"nameOfCode/ecfErrorGetCodeName", atMostNanosecondsOver(3), "tableLoad"},
    {"nameOfCode/ecfErrorGetDescription", atMostNanosecondsOver(3), "tableLoad"},
    {"nameOfCode/ecfErrorGetProductName", atMostNanosecondsOver(3), "tableLoad"},
    {"nameOfCode/ecfErrorGetComponentName", atMostNanosecondsOver(3), "tableLoad"},
    {"nameOfFunction/ecfGetFunctionName", atMostNanosecondsOver(3), "tableLoad"},
    {"nameOfFunction/ecfGetComponentName", atMostNanosecondsOver(3), "tableLoad"},
    {"nameOfFunction/ecfGetProductName", atMostNanosecondsOver(3), "tableLoad"},
    {"mapError", atMostNanosecondsOver(3), "mappingLoad"},
    {"nameError", atMostNanosecondsOver(3), "mappingLoad"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
