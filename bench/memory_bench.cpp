// Claims: with debugging off, a block costs hardly more than the run-time's own; in full debugging
// its cost does not grow with the number of live blocks.
//
// What an area's list costs grows with its free chunks; that is published, not claimed.
#include <cstdlib>
#include <random>
#include <vector>

#include "osscatalog.h"
#include "ossmemory.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 10'000;

// ---- Allocators ----

struct RunTime {
  static void* allocate(uint64_t size) { return std::malloc(size); }
  static void release(void* block) { std::free(block); }
};

// The library in the mode that OSSEMEMDBG would choose.
template <uint32_t kEyeCatcher, uint32_t kFlags, uint32_t kPads>
struct Library {
  Library() { ossMemSetDebug(kFlags, kEyeCatcher, kPads, kPads); }
  ~Library() { ossMemSetDebug(0, OSS_MEM_DEBUG_OFF, 0, 0); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  static void* allocate(uint64_t size) {
    void* block = nullptr;
    ossMemAlloc(&block, nullptr, size, 0, __FILE__, __LINE__);
    return block;
  }
  static void release(void* block) { ossMemFree(&block, nullptr, 0, __FILE__, __LINE__); }
};
using Off = Library<OSS_MEM_DEBUG_OFF, 0, 0>;
using Light = Library<OSS_MEM_DEBUG_LIGHT, 0x0B, 2>;
using Full = Library<OSS_MEM_DEBUG_FULL, 0x0F, 2>;

// ---- Blocks ----

template <class Allocator>
void pair64(benchmark::State& state) {
  const Allocator allocator;
  for (auto _ : state) {
    void* const block = allocator.allocate(64);
    benchmark::DoNotOptimize(block);
    allocator.release(block);
  }
}
OSS_BENCHMARK(pair64<RunTime>);
OSS_BENCHMARK(pair64<Off>);
OSS_BENCHMARK(pair64<Light>);
OSS_BENCHMARK(pair64<Full>);

// Which of the live blocks goes, and how large the one is that takes its place.
struct Step {
  uint32_t slot;
  uint32_t size;
};

std::vector<Step> randomSteps(uint32_t slots) {
  std::mt19937 random(1);
  std::uniform_int_distribution<uint32_t> slot(0, slots - 1);
  std::uniform_int_distribution<uint32_t> size(16, 512);
  std::vector<Step> steps(1 << 15);
  for (Step& step : steps) step = {slot(random), size(random)};
  return steps;
}

template <class Allocator, uint32_t kLive>
void replaceAtRandom(benchmark::State& state) {
  const Allocator allocator;
  const std::vector<Step> steps = randomSteps(kLive);
  std::vector<void*> live(kLive);
  for (uint32_t i = 0; i < kLive; ++i) live[i] = allocator.allocate(steps[i % steps.size()].size);

  size_t at = 0;
  for (auto _ : state) {
    const Step& step = steps[at++ % steps.size()];
    allocator.release(live[step.slot]);
    live[step.slot] = allocator.allocate(step.size);
  }
  for (void* const block : live) allocator.release(block);
}
OSS_BENCHMARK(replaceAtRandom<RunTime, 1000>);
OSS_BENCHMARK(replaceAtRandom<Off, 1000>);
OSS_BENCHMARK(replaceAtRandom<Light, 1000>);
OSS_BENCHMARK(replaceAtRandom<Full, 1000>);
OSS_BENCHMARK(replaceAtRandom<RunTime, 100>);
OSS_BENCHMARK(replaceAtRandom<RunTime, 100000>);
OSS_BENCHMARK(replaceAtRandom<Full, 100>);
OSS_BENCHMARK(replaceAtRandom<Full, 100000>);

// ---- Areas ----

// An area whose free list is `chunks` long and ends with a chunk that only the smallest size takes:
// both the taking and the giving back walk all of it.
class FragmentedArea {
 public:
  explicit FragmentedArea(uint64_t chunks)
      : memory_((sizeof(OSSMemArea) + kUnit * 3 * chunks) / sizeof(uint64_t)) {
    ossMemAreaInit(area(), memory_.size() * sizeof(uint64_t));

    // All of it is taken at once, and given back in pieces that do not touch.
    void* nowhere = nullptr;
    ossMemAlloc(&nowhere, area(), area()->usableSize, 0, __FILE__, __LINE__);
    giveBack(0, kUnit);
    for (uint64_t i = 1; i < chunks; ++i) giveBack(i * 3 * kUnit, 2 * kUnit);
  }

  // False when another chunk than the last of the list was taken.
  bool takeAndGiveBackTheLast() {
    void* nowhere = nullptr;
    ossMemAlloc(&nowhere, area(), kUnit, 0, __FILE__, __LINE__);
    return giveBack(0, kUnit);
  }

 private:
  static constexpr uint64_t kUnit = sizeof(OSSMemChunk);

  OSSMemArea* area() { return reinterpret_cast<OSSMemArea*>(memory_.data()); }
  bool giveBack(uint64_t offset, uint64_t size) {
    void* chunk = reinterpret_cast<char*>(area() + 1) + offset;
    return ossMemFree(&chunk, area(), size, __FILE__, __LINE__) == ECF_OK;
  }

  std::vector<uint64_t> memory_;
};

// Each area is made once: that takes a time that grows with the square of its chunks.
template <uint64_t kChunks>
void areaPair(benchmark::State& state) {
  static FragmentedArea area(kChunks);
  for (auto _ : state)
    if (!area.takeAndGiveBackTheLast()) state.SkipWithError("another chunk was taken");
}
OSS_BENCHMARK(areaPair<10>);
OSS_BENCHMARK(areaPair<1000>)->Iterations(500);
OSS_BENCHMARK(areaPair<100000>)->Iterations(2);

constexpr Claim kRows[] = {
    {"pair64<Off>", atMostTimes(1.45), "pair64<RunTime>"},
    {"replaceAtRandom<Off, 1000>", atMostTimes(1.2), "replaceAtRandom<RunTime, 1000>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
