// Claim: a waitpost without a message costs hardly more than the event that it is made of.
//
// Both sides set and consume the same automatic event within one thread, so that no switch between
// threads hides what the library adds.
#include <windows.h>

#include "osscatalog.h"
#include "ossipcwaitpost.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

// A turn is two calls of the system's server.
constexpr int64_t kTurns = 64;

// An unnamed waitpost, there as long as the program.
class BenchWaitpost {
 public:
  static OSSHIPCWaitpost& get() {
    static BenchWaitpost bench;
    return bench.waitpost_;
  }

 private:
  BenchWaitpost() {
    OSSIPCWaitpostCreateParam param;
    param.controlBlock = &block_;
    param.type = OSS_WAITPOST_AUTOMATIC;
    static_cast<void>(waitpost_.create(&param));  // the first turn finds out
  }
  ~BenchWaitpost() { static_cast<void>(waitpost_.destroy()); }

  OSSIPCWaitpostControlBlock block_;
  OSSHIPCWaitpost waitpost_;
};

void postAndWait(benchmark::State& state) {
  OSSHIPCWaitpost& waitpost = BenchWaitpost::get();
  OSSIPCWaitpostWaitParam forever;
  forever.timeout = OSS_WAITPOST_FOREVER;
  for (auto _ : state)
    if (waitpost.post(nullptr) != ECF_OK || waitpost.wait(&forever, nullptr) != ECF_OK)
      state.SkipWithError("the waitpost does not work");
}

void setAndWait(benchmark::State& state) {
  static const HANDLE event = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
  for (auto _ : state)
    if (!::SetEvent(event) || ::WaitForSingleObject(event, INFINITE) != WAIT_OBJECT_0)
      state.SkipWithError("the event does not work");
}

OSS_BENCHMARK(postAndWait);
OSS_BENCHMARK(setAndWait);

constexpr Claim kRows[] = {
    {"postAndWait", atMostTimes(1.05), "setAndWait"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
