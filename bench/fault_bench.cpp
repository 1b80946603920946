// Claim: collecting 16 return addresses takes at most 1.2 times as long as a walk by hand that
// takes the same mutexes, each around the same function. What the mutexes cost is shown by a walk
// by hand that holds none but the walker's own. The full trap file has no peer; its time is told.
#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include <cstdio>
#include <string>

#include "ossfault.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

constexpr int64_t kTurns = 1;
constexpr uint64_t kAddresses = 16;

// ---- The peer: walks by hand ----

// The mutex of a function, as the library's other users take it.
class Mutex {
 public:
  explicit Mutex(const char* function)
      : handle_(::CreateMutexA(
            nullptr, FALSE, (function + ("-" + std::to_string(::GetCurrentProcessId()))).c_str())) {
  }

  void take() const { ::WaitForSingleObject(handle_, INFINITE); }
  void give() const { ::ReleaseMutex(handle_); }

 private:
  HANDLE handle_;
};

const Mutex& walkMutex() {
  static const Mutex mutex("StackWalk64");
  return mutex;
}

PVOID CALLBACK guardedAccess(HANDLE process, DWORD64 address) {
  static const Mutex mutex("SymFunctionTableAccess64");
  mutex.take();
  void* const entry = ::SymFunctionTableAccess64(process, address);
  mutex.give();
  return entry;
}

DWORD64 CALLBACK guardedBase(HANDLE process, DWORD64 address) {
  static const Mutex mutex("SymGetModuleBase64");
  mutex.take();
  const DWORD64 base = ::SymGetModuleBase64(process, address);
  mutex.give();
  return base;
}

[[gnu::noinline]] void walkByHand(uint64_t* addresses, PFUNCTION_TABLE_ACCESS_ROUTINE64 access,
                                  PGET_MODULE_BASE_ROUTINE64 base) {
  CONTEXT context;
  ::RtlCaptureContext(&context);
  STACKFRAME64 frame = {};
  frame.AddrPC = {context.Rip, 0, AddrModeFlat};
  frame.AddrFrame = {context.Rbp, 0, AddrModeFlat};
  frame.AddrStack = {context.Rsp, 0, AddrModeFlat};
  // The first frame is this function's own.
  for (uint64_t i = 0; i <= kAddresses; ++i) {
    walkMutex().take();
    const BOOL found =
        ::StackWalk64(IMAGE_FILE_MACHINE_AMD64, ::GetCurrentProcess(), ::GetCurrentThread(), &frame,
                      &context, nullptr, access, base, nullptr);
    walkMutex().give();
    if (!found) break;
    if (i > 0) addresses[i - 1] = frame.AddrPC.Offset;
  }
}

// ---- Both, below 20 frames ----

using Walk = void(uint64_t* addresses);

void collect(uint64_t* addresses) { ossWalkStackCollect(0, addresses, kAddresses); }
void sameMutexes(uint64_t* addresses) { walkByHand(addresses, guardedAccess, guardedBase); }
void walkersMutex(uint64_t* addresses) {
  walkByHand(addresses, ::SymFunctionTableAccess64, ::SymGetModuleBase64);
}

[[gnu::noinline]] int below(int frames, Walk* walk, uint64_t* addresses) {
  volatile int left = frames;
  if (frames == 0)
    walk(addresses);
  else
    below(frames - 1, walk, addresses);
  return left;
}

void run(benchmark::State& state, Walk* walk) {
  uint64_t addresses[kAddresses] = {};
  ossWalkStackCollect(0, addresses, 1);  // symbols are initialised once
  for (auto _ : state) benchmark::DoNotOptimize(below(20, walk, addresses));
  if (addresses[kAddresses - 1] == 0) state.SkipWithError("the walk is short");
}

void Collect16(benchmark::State& state) { run(state, collect); }
OSS_BENCHMARK(Collect16);

void WalkByHand16(benchmark::State& state) { run(state, sameMutexes); }
OSS_BENCHMARK(WalkByHand16);

void WalkByHandOneMutex16(benchmark::State& state) { run(state, walkersMutex); }
OSS_BENCHMARK(WalkByHandOneMutex16);

// ---- The trap file ----

void FullTrapFile(benchmark::State& state) {
  constexpr char kPath[] = "osse_bench.trap";
  CONTEXT context;
  ::RtlCaptureContext(&context);
  EXCEPTION_RECORD exception = {};
  for (auto _ : state) {
    OSSTrapFile file;
    if (file.open(kPath, OSS_PRIMITIVE_OPEN_ALWAYS) != 0) state.SkipWithError("no file");
    file.initialize(0, &exception, &context, nullptr);
    file.dump(OSS_TRAP_ALL, 0, &exception, &context);
    file.close();
    std::remove(kPath);
  }
}
OSS_BENCHMARK(FullTrapFile);

constexpr Claim kAll[] = {{"Collect16", atMostTimes(1.2), "WalkByHand16"}};

}  // namespace

const std::span<const Claim> oss::bench::kClaims = kAll;
