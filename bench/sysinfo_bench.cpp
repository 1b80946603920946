// Claim: a record of the physical memory costs hardly more than the system's own call.
#include <windows.h>

#include "osscatalog.h"
#include "osssysinfo.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

// The call reads several files of the system underneath: a millisecond is a few turns.
constexpr int64_t kTurns = 50;

void rawMemoryStatus(benchmark::State& state) {
  MEMORYSTATUSEX status;
  status.dwLength = sizeof status;
  for (auto _ : state)
    if (!::GlobalMemoryStatusEx(&status)) state.SkipWithError("no memory status");
}
OSS_BENCHMARK(rawMemoryStatus);

void physicalMemory(benchmark::State& state) {
  OSSPhysMemInfo info;
  for (auto _ : state)
    if (ossGetPhysMemInfo(&info) != ECF_OK) state.SkipWithError("no record");
}
OSS_BENCHMARK(physicalMemory);

constexpr Claim kRows[] = {{"physicalMemory", atMostTimes(1.2), "rawMemoryStatus"}};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
