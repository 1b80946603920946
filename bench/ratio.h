// ratio.h - claims: what the library reaches next to a peer that is measured beside it.
//
// A program of benchmarks lists its claims; ratio.cpp is its main and its reporter. It runs every
// benchmark many times in random order, so that whatever disturbs the machine disturbs all alike,
// and prints the medians and then, claim by claim, how they relate. A claim that is missed is
// printed as missed and fails nothing.
#pragma once

#include <benchmark/benchmark.h>

#include <span>

// Registers a benchmark, timed by the clock: what the thread waits for counts. The second form
// passes an argument on and is named "function/argument".
#define OSS_BENCHMARK(...) BENCHMARK(__VA_ARGS__)->UseRealTime()
#define OSS_BENCHMARK_OF(function, argument) \
  BENCHMARK_CAPTURE(function, argument, argument)->UseRealTime()

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

// Every program defines its own.
extern const std::span<const Claim> kClaims;

}  // namespace oss::bench
