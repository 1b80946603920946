// Claims: where two write into one ring at once, they lose no more time than two who do nothing but
// the locked add that no writer can avoid; or that and the filling of a slot, whose line comes from
// the other core every other time. The two are threads, or threads of two processes.
//
// The time of a turn is that of one record of either writer. Writers run on cores of their own.
#include <windows.h>

#include <cstring>
#include <memory>
#include <string>

#include "bare.h"
#include "cores.h"
#include "osstrace.h"
#include "osstracepoint.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 20'000;

constexpr uint64_t kThread = 1234;
constexpr uint32_t kFunction = 0x081A0007;
constexpr uint32_t kBuffer = 0x80000;
constexpr char kSection[] = "tracecontended_bench";
constexpr char kParentVariable[] = "OSSE_BENCH_PARENT";

// What the second process does meanwhile.
enum class Work : uint32_t { kRest, kTrace, kAdd, kFill };

struct alignas(64) Shared {
  volatile Work asked;
  volatile Work taken;
  alignas(64) volatile uint32_t counter;
  alignas(64) GTraceControlBlock block;  // the ring follows
};

Shared& shared() {
  static Shared* const view = [] {
    HANDLE const section = ::CreateFileMappingA(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
        static_cast<DWORD>(sizeof(Shared)) + gtraceGetAllocSize(kBuffer), kSection);
    auto* const mapped =
        static_cast<Shared*>(::MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    gtraceAttach(&mapped->block, ::GetCurrentProcessId(), nullptr, nullptr);
    return mapped;
  }();
  return *view;
}

void formatOnce() {
  static const bool formatted = [] {
    auto options = std::make_unique<GTraceOptions>();
    std::memset(static_cast<void*>(options.get()), 0, sizeof(GTraceOptions));
    options->bufferSize = kBuffer;
    options->mode = GTRACE_CIRCULAR;
    return gtraceInitialize(&shared().block, options.get()) == 0 && gtraceEnable() == 0;
  }();
  static_cast<void>(formatted);
}

void traceOnce() { gtraceEntry(kThread, kFunction); }
void addOnce() { likeImport<&bareFetchAndAdd>(&shared().counter, 1); }

void fillOnce() {
  auto& ring = *reinterpret_cast<RamboControlBlock*>(&shared().block + 1);
  const uint32_t index = bareFetchAndAdd(&ring.counter, 1) & ring.indexMask;
  char* const slot =
      reinterpret_cast<char*>(&ring) + ring.slotOffset + uint64_t{index} * RAMBO_SLOT;
  std::memset(slot, 1, RAMBO_SLOT);
}

// ---- The second process ----

// Works as it is asked until its parent has ended.
[[noreturn]] void serve(DWORD parentId) {
  HANDLE const parent = ::OpenProcess(SYNCHRONIZE, FALSE, parentId);
  Shared& memory = shared();
  takeCore(1);
  for (uint32_t turn = 0;; ++turn) {
    const Work work = memory.asked;
    memory.taken = work;
    switch (work) {
      case Work::kRest: break;
      case Work::kTrace: traceOnce(); break;
      case Work::kAdd: addOnce(); break;
      case Work::kFill: fillOnce(); break;
    }
    constexpr uint32_t kTurnsBetweenLooks = 1 << 20;
    const bool rests = work == Work::kRest;
    if ((rests || turn % kTurnsBetweenLooks == 0) &&
        ::WaitForSingleObject(parent, rests ? 1 : 0) != WAIT_TIMEOUT)
      ::ExitProcess(0);
  }
}

// This program runs once more, in a role that keeps it from its main.
class SecondProcess {
 public:
  SecondProcess() {
    char own[MAX_PATH + 1];
    ::GetModuleFileNameA(nullptr, own, sizeof own);
    ::SetEnvironmentVariableA(kParentVariable, std::to_string(::GetCurrentProcessId()).c_str());
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    runs_ = ::CreateProcessA(own, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                             &process_);
    ::SetEnvironmentVariableA(kParentVariable, nullptr);
  }
  SecondProcess(const SecondProcess&) = delete;
  SecondProcess& operator=(const SecondProcess&) = delete;

  // False when the process has ended instead.
  bool ask(Work work) const {
    shared().asked = work;
    while (runs_ && shared().taken != work)
      if (::WaitForSingleObject(process_.hProcess, 0) == WAIT_OBJECT_0) return false;
    return runs_ != FALSE;
  }

 private:
  BOOL runs_ = FALSE;
  PROCESS_INFORMATION process_ = {};
};

const SecondProcess& secondProcess() {
  static const SecondProcess second;
  return second;
}

const bool g_isSecond = [] {
  char parent[16];
  if (::GetEnvironmentVariableA(kParentVariable, parent, sizeof parent) != 0)
    serve(static_cast<DWORD>(std::stoul(parent)));
  return false;
}();

// ---- Two writers ----

using Step = void();

template <Step* kStep>
void alone(benchmark::State& state) {
  formatOnce();
  takeCore(0);
  for (auto _ : state) kStep();
}

template <Step* kStep>
void twoThreads(benchmark::State& state) {
  formatOnce();
  if (!takeCore(state.thread_index())) state.SkipWithError("there is no core for each thread");
  for (auto _ : state) kStep();
}

template <Step* kStep, Work kWork>
void twoProcesses(benchmark::State& state) {
  formatOnce();
  const SecondProcess& second = secondProcess();
  if (!takeCore(0) || !second.ask(kWork)) state.SkipWithError("the second process does not run");
  for (auto _ : state) kStep();
  second.ask(Work::kRest);
}

OSS_BENCHMARK(alone<traceOnce>);
OSS_BENCHMARK(alone<addOnce>);
OSS_BENCHMARK(alone<fillOnce>);
OSS_BENCHMARK(twoThreads<traceOnce>)->Threads(2);
OSS_BENCHMARK(twoThreads<addOnce>)->Threads(2);
OSS_BENCHMARK(twoThreads<fillOnce>)->Threads(2);
OSS_BENCHMARK(twoProcesses<traceOnce, Work::kTrace>);
OSS_BENCHMARK(twoProcesses<addOnce, Work::kAdd>);
OSS_BENCHMARK(twoProcesses<fillOnce, Work::kFill>);

constexpr Claim kRows[] = {
    {"twoThreads<traceOnce>", atMostTimes(1), "twoThreads<addOnce>"},
    {"twoThreads<traceOnce>", atMostTimes(1), "twoThreads<fillOnce>"},
    {"twoProcesses<traceOnce, Work::kTrace>", atMostTimes(1), "twoProcesses<addOnce, Work::kAdd>"},
    {"twoProcesses<traceOnce, Work::kTrace>", atMostTimes(1),
     "twoProcesses<fillOnce, Work::kFill>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
