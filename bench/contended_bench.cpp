// Claim: where two threads want it, the latch is no slower than a critical section. Each thread
// runs on a core of its own: alone of all programs of claims, this one takes two.
#include "cores.h"
#include "locks.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 30'000;

// The lock and what it guards share a cache line, as they do where a latch lies in its record.
template <class Latch>
struct alignas(64) Guarded {
  Latch latch;
  uint64_t count = 0;
};
template <class Latch>
Guarded<Latch> g_guarded;

// Some 100 ns that touch nothing shared.
void workAlone() {
  uint32_t steps = 400;
  __asm__ volatile("1: subl $1, %0\n\tjnz 1b" : "+r"(steps) : : "cc");
}

// The time of a turn is that of one get and release by either thread.
template <class Latch, bool kWorksBetween>
void takeTurns(benchmark::State& state) {
  auto& [latch, count] = g_guarded<Latch>;
  const uint64_t before = count;
  if (!takeCore(state.thread_index())) state.SkipWithError("there is no core for each thread");

  for (auto _ : state) {
    latch.get();
    ++count;
    latch.release();
    if constexpr (kWorksBetween) workAlone();
  }

  // The loop ends when it has ended for both.
  const auto turns = static_cast<uint64_t>(state.iterations() * state.threads());
  if (state.thread_index() == 0 && count - before != turns)
    state.SkipWithError("two threads held the latch at once");
}

template <class Latch>
void tight(benchmark::State& state) {
  takeTurns<Latch, false>(state);
}
template <class Latch>
void spaced(benchmark::State& state) {
  takeTurns<Latch, true>(state);
}
OSS_BENCHMARK(tight<VersionedLatch>)->Threads(2);
OSS_BENCHMARK(tight<CriticalSection>)->Threads(2);
OSS_BENCHMARK(tight<StdMutex>)->Threads(2);
OSS_BENCHMARK(tight<SrwLock>)->Threads(2);
OSS_BENCHMARK(spaced<VersionedLatch>)->Threads(2);
OSS_BENCHMARK(spaced<CriticalSection>)->Threads(2);
OSS_BENCHMARK(spaced<StdMutex>)->Threads(2);
OSS_BENCHMARK(spaced<SrwLock>)->Threads(2);

constexpr Claim kRows[] = {
    {"tight<VersionedLatch>", atMostTimes(1), "tight<CriticalSection>"},
    {"tight<VersionedLatch>", atMostTimes(1), "tight<StdMutex>"},
    {"tight<VersionedLatch>", atMostTimes(1), "tight<SrwLock>"},
    {"spaced<VersionedLatch>", atMostTimes(1), "spaced<CriticalSection>"},
    {"spaced<VersionedLatch>", atMostTimes(1), "spaced<StdMutex>"},
    {"spaced<VersionedLatch>", atMostTimes(1), "spaced<SrwLock>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
