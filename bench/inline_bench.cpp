// Claim: what the library inlines for itself is the bare instruction. The guard of a latch is one
// exchange and one store, and an atomic step is one locked instruction.
#include "bare.h"
#include "locks.h"
#include "numeric/ossatomic.h"
#include "numeric/osslatchguard.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 50'000;

void latchGuard(benchmark::State& state) {
  uint8_t latch = 0;
  for (auto _ : state) oss::LatchGuard guard(latch);
}
OSS_BENCHMARK(latchGuard);
OSS_BENCHMARK(getAndRelease<BareLatch>);
OSS_BENCHMARK(getAndRelease<StdMutex>);
OSS_BENCHMARK(getAndRelease<CriticalSection>);
OSS_BENCHMARK(getAndRelease<SrwLock>);

void add(benchmark::State& state) {
  uint32_t target = 0;
  for (auto _ : state) benchmark::DoNotOptimize(oss::fetchAndAdd<uint32_t>(&target, 3));
}

void addBare(benchmark::State& state) {
  uint32_t target = 0;
  for (auto _ : state) benchmark::DoNotOptimize(bareFetchAndAdd(&target, 3));
}

// Every other swap succeeds.
void swap(benchmark::State& state) {
  uint64_t target = 0;
  uint64_t desired = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(oss::compareAndSwap<uint64_t>(&target, desired ^= 1, 0));
}

void swapBare(benchmark::State& state) {
  uint64_t target = 0;
  uint64_t desired = 0;
  for (auto _ : state) benchmark::DoNotOptimize(bareCompareAndSwap(&target, desired ^= 1, 0));
}

OSS_BENCHMARK(add);
OSS_BENCHMARK(addBare);
OSS_BENCHMARK(swap);
OSS_BENCHMARK(swapBare);

constexpr Claim kRows[] = {
    {"latchGuard", atMostTimes(1.2), "getAndRelease<BareLatch>"},
    {"latchGuard", atMostTimes(1), "getAndRelease<StdMutex>"},
    {"latchGuard", atMostTimes(1), "getAndRelease<CriticalSection>"},
    {"latchGuard", atMostTimes(1), "getAndRelease<SrwLock>"},
    {"add", atMostTimes(1), "addBare"},
    {"swap", atMostTimes(1), "swapBare"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
