// Claims: a trace point costs little more than what nobody can avoid, one locked add and the
// filling of its slots; what is checked, stamped or carried along adds its own cost and no more.
//
// The limits write into the same ring, behind the same call into the DLL, and make no record.
#include <windows.h>

#include <cstring>
#include <memory>

#include "bare.h"

#include "ossprocess.h"
#include "osstrace.h"
#include "osstracepoint.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 20'000;

constexpr uint64_t kThread = 1234;
constexpr uint32_t kFunction = 0x081A0007;
constexpr uint32_t kBuffer = 0x80000;

// ---- A block to trace into ----

class Traced {
 public:
  explicit Traced(uint32_t flags) : memory_(new Line[gtraceGetAllocSize(kBuffer) / 64 + 1]) {
    auto options = std::make_unique<GTraceOptions>();
    std::memset(static_cast<void*>(options.get()), 0, sizeof(GTraceOptions));
    options->bufferSize = kBuffer;
    options->mode = GTRACE_CIRCULAR;
    options->flags = flags;
    std::memset(&options->filter, 0xFF, sizeof options->filter);
    options->mask.gtmClearMask();
    options->mask.gtmSetMask(GTM_ALL, GTM_ALL, GTM_ALL, GTM_ALL, 0, 0);
    gtraceInitialize(memory_.get(), options.get());
    gtraceAttach(memory_.get(), 1, nullptr, nullptr);
    gtraceEnable();
  }
  ~Traced() { gtraceDetach(); }
  Traced(const Traced&) = delete;
  Traced& operator=(const Traced&) = delete;

  RamboControlBlock& ring() const {
    return *reinterpret_cast<RamboControlBlock*>(
        reinterpret_cast<GTraceControlBlock*>(memory_.get()) + 1);
  }

 private:
  struct alignas(64) Line {
    char bytes[64];
  };

  std::unique_ptr<Line[]> memory_;
};

// ---- The limits ----

template <uint32_t kSlots>
char* bareRecord(RamboControlBlock& ring, uint64_t first) {
  const uint32_t index = bareFetchAndAdd(&ring.counter, kSlots) & ring.indexMask;
  char* const slot = reinterpret_cast<char*>(&ring) + ring.slotOffset + uint64_t{index} * 64;
  uint64_t words[8 * kSlots];
  for (uint64_t& word : words) word = first;
  std::memcpy(slot, words, sizeof words);
  return slot;
}

uint64_t bareStamp() {
  LARGE_INTEGER ticks;
  ::QueryPerformanceCounter(&ticks);
  return static_cast<uint64_t>(ticks.QuadPart);
}

void limit(benchmark::State& state) {
  const Traced traced(0);
  for (auto _ : state) likeImport<&bareRecord<1>>(traced.ring(), kThread);
}

void limitStamped(benchmark::State& state) {
  const Traced traced(0);
  for (auto _ : state) likeImport<&bareRecord<1>>(traced.ring(), bareStamp());
}

// Three items of 64 bytes in all: three slots.
char g_block[64];
volatile size_t g_blockBytes = sizeof g_block;

void limitItems(benchmark::State& state) {
  const Traced traced(0);
  for (auto _ : state) {
    char* const slot = likeImport<&bareRecord<3>>(traced.ring(), kThread);
    std::memcpy(slot + 88, g_block, g_blockBytes);
  }
}

// ---- Trace points ----

void entry(benchmark::State& state, uint32_t flags) {
  const Traced traced(flags);
  for (auto _ : state) gtraceEntry(kThread, kFunction);
}
constexpr uint32_t plain = 0;
constexpr uint32_t stamped = GTRACE_STAMP;
constexpr uint32_t bitmaps = GTRACE_FILTER_BITMAPS;
constexpr uint32_t mask = GTRACE_FILTER_MASK;

void items(benchmark::State& state) {
  const Traced traced(0);
  for (auto _ : state)
    gtraceVar(kThread, kFunction, 10, GTRACE_DATA, 3, uint64_t{0}, uint64_t{8}, &g_block[0],
              uint64_t{0}, uint64_t{24}, &g_block[8], uint64_t{0}, uint64_t{32}, &g_block[32]);
}

OSS_BENCHMARK(limit);
OSS_BENCHMARK(limitStamped);
OSS_BENCHMARK(limitItems);
OSS_BENCHMARK_OF(entry, plain);
OSS_BENCHMARK_OF(entry, stamped);
OSS_BENCHMARK_OF(entry, bitmaps);
OSS_BENCHMARK_OF(entry, mask);
OSS_BENCHMARK(items);

// ---- A whole operation ----

// A short one: it stores a pointer in thread-specific data.
class Slot {
 public:
  Slot() { slot_.create(); }
  ~Slot() { slot_.destroy(); }
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  void set() { slot_.set(this); }

 private:
  OSSHThreadSpecificData slot_;
};

void operationTraced(benchmark::State& state) {
  Slot slot;
  const Traced traced(0);
  for (auto _ : state) slot.set();
}

void operationAndTwoLimits(benchmark::State& state) {
  Slot slot;
  const Traced traced(0);
  gtraceDisable();
  for (auto _ : state) {
    likeImport<&bareRecord<1>>(traced.ring(), kThread);
    slot.set();
    likeImport<&bareRecord<1>>(traced.ring(), kThread);
  }
}
OSS_BENCHMARK(operationTraced);
OSS_BENCHMARK(operationAndTwoLimits);

// ---- Switched off ----

// What a program has that traces: a question in its loop. The peer asks one that is as easy.
volatile bool g_never = false;

void disabledPoint(benchmark::State& state) {
  for (auto _ : state)
    if (g_pGTCB != nullptr && g_pGTCB->enabled != 0) gtraceEntry(kThread, kFunction);
}
void predictedBranch(benchmark::State& state) {
  for (auto _ : state)
    if (g_never) gtraceEntry(kThread, kFunction);
}
OSS_BENCHMARK(disabledPoint)->Iterations(1'000'000);
OSS_BENCHMARK(predictedBranch)->Iterations(1'000'000);

constexpr Claim kRows[] = {
    {"disabledPoint", atMostNanosecondsOver(0.5), "predictedBranch"},
    {"entry/plain", atMostTimes(1.5), "limit"},
    {"operationTraced", atMostTimes(1.6), "operationAndTwoLimits"},
    {"entry/stamped", atMostTimes(1.15), "limitStamped"},
    {"items", atMostTimes(2), "limitItems"},
    {"entry/bitmaps", atMostNanosecondsOver(6), "entry/plain"},
    {"entry/mask", atMostNanosecondsOver(12), "entry/plain"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
