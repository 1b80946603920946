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

void add(benchmark::State& state) { addTo<oss::fetchAndAdd<uint32_t>>(state); }
void addBare(benchmark::State& state) { addTo<bareFetchAndAdd>(state); }
void swap(benchmark::State& state) { swapIn<oss::compareAndSwap<uint64_t>>(state); }
void swapBare(benchmark::State& state) { swapIn<bareCompareAndSwap>(state); }
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
