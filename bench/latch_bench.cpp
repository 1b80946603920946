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

void add(benchmark::State& state) { addTo<ossWin32FetchAndAdd32Internal>(state); }
void addLikeImport(benchmark::State& state) { addTo<likeImport<&bareFetchAndAdd>>(state); }
void swap(benchmark::State& state) { swapIn<ossWindowsAMD64CompareSwapAndReturn64Internal>(state); }
void swapLikeImport(benchmark::State& state) { swapIn<likeImport<&bareCompareAndSwap>>(state); }
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
