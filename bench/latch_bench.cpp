// Claim: through the DLL, an uncontended latch costs hardly more than the exchange and the store
// that it is made of behind two such calls, and less than any lock of the system. The other atomic
// primitives are one instruction and one call.
#include "bare.h"
#include "locks.h"
#include "osslatch.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 50'000;

OSS_BENCHMARK(getAndRelease<ByteLatch>);
OSS_BENCHMARK(getAndRelease<VersionedLatch>);
OSS_BENCHMARK(getAndRelease<BareLatchLikeImport>);
OSS_BENCHMARK(getAndRelease<BareLatch>);
OSS_BENCHMARK(getAndRelease<StdMutex>);
OSS_BENCHMARK(getAndRelease<CriticalSection>);
OSS_BENCHMARK(getAndRelease<SrwLock>);

void add(benchmark::State& state) {
  uint32_t target = 0;
  for (auto _ : state) benchmark::DoNotOptimize(ossWin32FetchAndAdd32Internal(&target, 3));
}

void addLikeImport(benchmark::State& state) {
  uint32_t target = 0;
  for (auto _ : state) benchmark::DoNotOptimize(likeImport<&bareFetchAndAdd>(&target, 3));
}

// Every other swap succeeds.
void swap(benchmark::State& state) {
  uint64_t target = 0;
  uint64_t desired = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        ossWindowsAMD64CompareSwapAndReturn64Internal(&target, desired ^= 1, 0));
}

void swapLikeImport(benchmark::State& state) {
  uint64_t target = 0;
  uint64_t desired = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(likeImport<&bareCompareAndSwap>(&target, desired ^= 1, 0));
}

OSS_BENCHMARK(add);
OSS_BENCHMARK(addLikeImport);
OSS_BENCHMARK(swap);
OSS_BENCHMARK(swapLikeImport);

constexpr Claim kRows[] = {
    {"getAndRelease<ByteLatch>", atMostTimes(1.2), "getAndRelease<BareLatchLikeImport>"},
    {"getAndRelease<ByteLatch>", atMostTimes(1), "getAndRelease<StdMutex>"},
    {"getAndRelease<ByteLatch>", atMostTimes(1), "getAndRelease<CriticalSection>"},
    {"getAndRelease<ByteLatch>", atMostTimes(1), "getAndRelease<SrwLock>"},
    {"getAndRelease<VersionedLatch>", atMostTimes(1.2), "getAndRelease<BareLatchLikeImport>"},
    {"getAndRelease<VersionedLatch>", atMostTimes(1), "getAndRelease<StdMutex>"},
    {"getAndRelease<VersionedLatch>", atMostTimes(1), "getAndRelease<CriticalSection>"},
    {"getAndRelease<VersionedLatch>", atMostTimes(1), "getAndRelease<SrwLock>"},
    {"add", atMostTimes(1), "addLikeImport"},
    {"swap", atMostTimes(1), "swapLikeImport"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
