// ratio.h - claims: what the library reaches next to a peer that is measured beside it.
//
// A program of benchmarks lists its claims; ratio.cpp is its main and its reporter. It runs every
// benchmark a hundred times in random order, so that whatever disturbs the machine disturbs all
// alike, and prints the medians and then, claim by claim, how they relate. A claim that is missed
// is printed as missed and fails nothing.
//
// Each run takes about a millisecond, less than the system's time slice, and begins with a new one:
// most runs are undisturbed by other programs, so the median is that of an idle machine also where
// a core is shared.
#pragma once

#include <benchmark/benchmark.h>

#include <span>

// Registers a benchmark, timed by the clock: what the thread waits for counts. kTurns is the
// program's own: how many turns of its loops make a millisecond. The second form passes an argument
// on and is named "function/argument".
#define OSS_BENCHMARK(...) OSS_BENCHMARK_RUN(BENCHMARK(__VA_ARGS__))
#define OSS_BENCHMARK_OF(function, argument) \
  OSS_BENCHMARK_RUN(BENCHMARK_CAPTURE(function, argument, argument))
#define OSS_BENCHMARK_RUN(registered) \
  registered->Iterations(kTurns)->Setup(oss::bench::beginTimeSlice)->UseRealTime()

namespace oss::bench {

// How long the measured may take next to its peer: so many times as long, and a little more.
struct Reach {
  double times = 1.0;
  double nanoseconds = 0.0;
};

constexpr Reach atMostTimes(double times) noexcept { return {.times = times}; }
constexpr Reach atMostNanosecondsOver(double nanoseconds) noexcept {
  return {.nanoseconds = nanoseconds};
}

// Both sides are named as their benchmarks are registered.
struct Claim {
  const char* measured;
  Reach reach;
  const char* peer;
};

// Gives up the processor for a moment.
void beginTimeSlice(const benchmark::State& state);

// Every program defines its own.
extern const std::span<const Claim> kClaims;

}  // namespace oss::bench
