// The modes in which trace points write no records: function-count and timing perturbation.
#include <windows.h>

#include <thread>

#include "harness/childprocess.h"
#include "harness/importhook.h"
#include "harness/loadedlibrary.h"
#include "trace/tracefixture.h"

using namespace osse_test;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

constexpr uint64_t kTid = 77;
constexpr uint32_t kFunc = 0x081A0003;
constexpr uint32_t kOther = 0x081A0058;
constexpr uint64_t kRc = 0;
// Their places in a table of 32,768 entries.
constexpr size_t kPlace = 1'557, kOtherPlace = 19'019;

// ---- Function-count -----------------------------------------------------------------------------

struct Count {
  uint32_t calls;
  uint32_t funcId;
  uint64_t ticks;

  bool operator==(const Count&) const = default;
  friend void PrintTo(const Count& count, std::ostream* out) {
    *out << count.calls << " of " << std::hex << count.funcId << std::dec << ", " << count.ticks;
  }
};

class FunctionCountTest : public TraceTest {
 protected:
  FunctionCountTest() {
    // Nothing that belongs to a ring follows the table.
    std::memset(memory_.get(), kStale, memory_.size());
  }

  void startCounting(uint32_t flags = 0) {
    attach(flags);
    ASSERT_EQ(gtraceEnable(), ECF_OK);
  }
  void attach(uint32_t flags) {
    ASSERT_EQ(gtraceInitialize(memory_.get(), optionsOf(GTRACE_FUNCTION_COUNT, flags).get()),
              ECF_OK);
    ASSERT_EQ(gtraceAttach(memory_.get(), kProcess, nullptr, nullptr), ECF_OK);
  }

  Count countAt(size_t place) const {
    return wordAt<Count>(memory_.get(), kFixedPart + 16 * place);
  }
  void occupy(size_t place) {
    const Count other = {0, 0xFFFFFFFF, 0};
    std::memcpy(memory_.at(kFixedPart + 16 * place), &other, sizeof other);
  }

  // Every entry of the table that is not all zero.
  std::vector<Count> counts() const {
    std::vector<Count> found;
    for (size_t place = 0; place < 32'768; ++place)
      if (countAt(place) != Count{}) found.push_back(countAt(place));
    return found;
  }

  void expectNothingBehindTheTable() const {
    EXPECT_THAT(memory_.bytes(kFixedPart + kBuffer, kBlock - kFixedPart - kBuffer), Each(kStale));
  }
};

TEST_F(FunctionCountTest, CountsEntriesInTheFunctionsPlace) {
  startCounting();
  gtraceEntry(kTid, kFunc);
  gtraceEntry(kTid, kOther);
  gtraceEntryVar(kTid, kFunc, uint64_t{1}, uint64_t{1}, uint64_t{4}, uint64_t{7});
  EXPECT_EQ(countAt(kPlace), (Count{2, kFunc, 0}));
  EXPECT_EQ(countAt(kOtherPlace), (Count{1, kOther, 0}));
  EXPECT_EQ(counts().size(), 2u);
  expectNothingBehindTheTable();
}

TEST_F(FunctionCountTest, NothingButAnEntryHasAnEffect) {
  startCounting(GTRACE_CALLBACK | GTRACE_COUNT_STOPS | GTRACE_STOP_ON_EXIT);
  options().stopCount = 0;
  const std::string before = memory_.bytes(0, kBlock);
  gtraceExit(kTid, kFunc, &kRc, 0);
  gtraceExitVar(kTid, kFunc, &kRc, 0, uint64_t{0});
  gtraceMarker(kTid, kFunc, 10, 3);
  gtraceMarkerVar(kTid, kFunc, 10, 3, uint64_t{0});
  gtraceError(kTid, kFunc, 10, 5, 0);
  gtraceErrorVar(kTid, kFunc, 10, 5, 0, uint64_t{0});
  gtraceErrorRc(kTid, kFunc, 10, 5, 0, 0, 0);
  gtraceErrorRcVar(kTid, kFunc, 10, 5, 0, 0, 0, uint64_t{0});
  gtraceErrorTrans(kTid, kFunc, 10, 0, 0);
  gtraceVar(kTid, kFunc, 10, 3, uint64_t{0});
  gtraceCorrelatorVar(kTid, kFunc, 10, 1, 0, uint64_t{0});
  EXPECT_TRUE(memory_.bytes(0, kBlock) == before);
}

TEST_F(FunctionCountTest, ATypeMakesNoEntryOrExit) {
  startCounting(GTRACE_CALL_STACKS);
  gtraceMarker(kTid, kFunc, 10, GTRACE_ENTRY);
  gtraceMarkerVar(kTid, kFunc, 10, GTRACE_ENTRY, uint64_t{0});
  gtraceError(kTid, kFunc, 10, GTRACE_ENTRY, 0);
  gtraceVar(kTid, kFunc, 10, GTRACE_ENTRY, uint64_t{0});
  EXPECT_THAT(counts(), IsEmpty());
}

TEST_F(FunctionCountTest, LostCallsAreCountedInTheStopCounter) {
  startCounting();
  // Ten places, each a step of the identifier modulo a prime further.
  for (uint64_t j = 0; j < 10; ++j) occupy((kPlace + j * (kFunc % 988'927)) % 32'768);
  gtraceEntry(kTid, kFunc);
  gtraceEntry(kTid, kFunc);
  EXPECT_EQ(stopCounter(), 2u);
  EXPECT_EQ(counts().size(), 10u);

  startCounting();
  for (uint64_t j = 0; j < 9; ++j) occupy((kPlace + j * (kFunc % 988'927)) % 32'768);
  gtraceEntry(kTid, kFunc);
  EXPECT_EQ(stopCounter(), 0u);
  EXPECT_EQ(countAt((kPlace + 9 * (uint64_t{kFunc} % 988'927)) % 32'768), (Count{1, kFunc, 0}));
}

TEST_F(FunctionCountTest, EntriesAreFiltered) {
  for (const uint32_t flag : {GTRACE_FILTER_THREADS, GTRACE_FILTER_BITMAPS, GTRACE_FILTER_MASK}) {
    startCounting(flag);
    gtraceEntry(kTid, kFunc);
    EXPECT_THAT(counts(), IsEmpty()) << flag;
  }

  const auto options = optionsOf(0, GTRACE_FILTER_MASK);
  options->mask.gtmClearMask();
  ASSERT_TRUE(options->mask.gtmSetMask(1, 3, 3, GTRACE_ENTRY, 0, 0));
  ASSERT_EQ(gtraceSetOptions(options.get()), ECF_OK);
  gtraceEntry(kTid, kFunc);
  gtraceEntry(kTid, kOther);
  EXPECT_THAT(counts(), ElementsAre(Count{1, kFunc, 0}));
}

// Deliberate: that filter alone does not lead to the filters.
TEST_F(FunctionCountTest, ErrorsOnlyAloneStillCounts) {
  startCounting(GTRACE_ERRORS_ONLY);
  gtraceEntry(kTid, kFunc);
  EXPECT_THAT(counts(), ElementsAre(Count{1, kFunc, 0}));

  startCounting(GTRACE_ERRORS_ONLY | GTRACE_STAMP);
  gtraceEntry(kTid, kFunc);
  EXPECT_THAT(counts(), IsEmpty());
}

TEST_F(FunctionCountTest, ClearForgetsTheCounts) {
  startCounting();
  gtraceEntry(kTid, kFunc);
  EXPECT_EQ(gtraceClear(), ECF_OK);
  EXPECT_THAT(counts(), IsEmpty());
  gtraceEntry(kTid, kFunc);
  EXPECT_THAT(counts(), ElementsAre(Count{1, kFunc, 0}));
}

// ---- Call stacks ----

// The time as a test sets it.
class Clock {
 public:
  std::atomic<uint64_t> now = 1'000;

  int reads() const { return hook_.calls(); }

 private:
  ImportHook hook_{"QueryPerformanceCounter", [this](Call& call) {
                     *call.argument<uint64_t*>(0) = now;
                     return TRUE;
                   }};
};

class CallTimesTest : public FunctionCountTest {
 protected:
  ~CallTimesTest() override {
    // The thread's stack outlives the test.
    gtraceExit(kTid, kFunc, &kRc, 0);
    gtraceExit(kTid, kOther, &kRc, 0);
  }

  void startTiming() { startCounting(GTRACE_CALL_STACKS); }
  uint64_t ticks() const { return countAt(kPlace).ticks; }
};

TEST_F(CallTimesTest, ACallsTimeIsAddedAtItsExit) {
  startTiming();
  Clock clock;
  gtraceEntry(kTid, kFunc);
  clock.now = 1'030;
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(countAt(kPlace), (Count{1, kFunc, 30}));

  gtraceEntryVar(kTid, kFunc, uint64_t{0});
  clock.now = 1'035;
  gtraceExitVar(kTid, kFunc, &kRc, 0, uint64_t{0});
  EXPECT_EQ(countAt(kPlace), (Count{2, kFunc, 35}));
  EXPECT_EQ(clock.reads(), 4);
}

TEST_F(CallTimesTest, RecursionAddsEveryFramesTimeAtTheFirstExit) {
  startTiming();
  Clock clock;
  gtraceEntry(kTid, kFunc);
  clock.now = 1'010;
  gtraceEntry(kTid, kOther);
  gtraceEntry(kTid, kFunc);
  clock.now = 1'100;
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(countAt(kPlace), (Count{2, kFunc, 190}));

  gtraceExit(kTid, kOther, &kRc, 0);
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(countAt(kPlace), (Count{2, kFunc, 190}));
  EXPECT_EQ(countAt(kOtherPlace), (Count{1, kOther, 0}));
}

TEST_F(CallTimesTest, FramesBeyond512AreCountedButNotTimed) {
  startTiming();
  Clock clock;
  for (int i = 0; i < 512; ++i) gtraceEntry(kTid, kOther);
  gtraceEntry(kTid, kFunc);
  clock.now = 1'001;
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(countAt(kPlace), (Count{1, kFunc, 0}));
  gtraceExit(kTid, kOther, &kRc, 0);
  EXPECT_EQ(countAt(kOtherPlace), (Count{512, kOther, 512}));
}

TEST_F(CallTimesTest, AnUnreadableClockCountsNoTime) {
  startTiming();
  {
    Clock clock;
    gtraceEntry(kTid, kFunc);
  }
  FailingCall fails("QueryPerformanceCounter", ERROR_NOT_SUPPORTED);
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(countAt(kPlace), (Count{1, kFunc, 0}));
}

TEST_F(CallTimesTest, EachThreadHasItsOwnCalls) {
  startTiming();
  Clock clock;
  gtraceEntry(kTid, kFunc);
  clock.now = 1'050;
  std::thread([&] {
    gtraceExit(kTid, kFunc, &kRc, 0);
    EXPECT_EQ(ticks(), 0u);
    gtraceEntry(kTid, kFunc);
    clock.now = 1'060;
    gtraceExit(kTid, kFunc, &kRc, 0);
    EXPECT_EQ(ticks(), 10u);
  }).join();
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(countAt(kPlace), (Count{2, kFunc, 70}));
}

TEST_F(CallTimesTest, TheLastErrorSurvivesATracePoint) {
  startTiming();
  gtraceEntry(kTid, kFunc);
  ::SetLastError(4711);
  gtraceEntry(kTid, kFunc);
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(::GetLastError(), 4711u);
}

TEST_F(CallTimesTest, ALostCallIsTimedForNobody) {
  startTiming();
  for (uint64_t j = 0; j < 10; ++j) occupy((kPlace + j * (kFunc % 988'927)) % 32'768);
  gtraceEntry(kTid, kFunc);
  gtraceExit(kTid, kFunc, &kRc, 0);
  EXPECT_EQ(stopCounter(), 1u);
  for (const Count& count : counts()) EXPECT_EQ(count, (Count{0, 0xFFFFFFFF, 0}));
}

TEST_F(CallTimesTest, OneSlotServesEveryAttachment) {
  startTiming();
  CallCounter taken("TlsAlloc");
  startTiming();
  gtraceDetach();
  startTiming();
  EXPECT_EQ(taken.calls(), 0);
}

// The first attachment of a process finds no slot left; a later one does.
class SlotlessTest : public CallTimesTest {
 public:
  void TestBody() override {
    {
      FailingCall fails("TlsAlloc", ERROR_NO_SYSTEM_RESOURCES, {.result = TLS_OUT_OF_INDEXES});
      startTiming();
    }
    Clock clock;
    gtraceEntry(kTid, kFunc);
    clock.now = 1'010;
    gtraceExit(kTid, kFunc, &kRc, 0);
    EXPECT_EQ(countAt(kPlace), (Count{1, kFunc, 0}));
    EXPECT_EQ(clock.reads(), 0);

    startTiming();
    gtraceEntry(kTid, kFunc);
    clock.now = 1'030;
    gtraceExit(kTid, kFunc, &kRc, 0);
    EXPECT_EQ(countAt(kPlace), (Count{1, kFunc, 20}));
  }
};

CHILD_ROLE(countWithoutASlot) {
  SlotlessTest().TestBody();
  return 0;
}

TEST(CallTimes, WithoutASlotCallsAreCountedButNotTimed) {
  EXPECT_EQ(runChild("countWithoutASlot"), 0u);
}

TEST_F(FunctionCountTest, NoSlotIsTakenUnlessCallsAreTimed) {
  CallCounter taken("TlsAlloc");
  startCounting();
  gtraceEntry(kTid, kFunc);
  start(GTRACE_CIRCULAR, GTRACE_CALL_STACKS);
  gtraceEntry(kTid, kFunc);
  EXPECT_EQ(taken.calls(), 0);
}

// ---- Perturbation -------------------------------------------------------------------------------

// The C run-time's generator, written down anew.
class Random {
 public:
  uint32_t next() {
    seed_ = seed_ * 214'013 + 2'531'011;
    return seed_ >> 16 & 0x7FFF;
  }

 private:
  uint32_t seed_ = 1'020;
};

class PerturbationTest : public TraceTest {
 public:
  void TestBody() override {
    const auto options = optionsOf(GTRACE_PERTURB | GTRACE_CIRCULAR);
    options->stopCode = 3;
    start(*options);
    ImportHook hook("Sleep", [this](Call& call) { slept_.push_back(call.argument<DWORD>(0)); });

    // The counter begins at 1 and, behind a sleep, at 1 again.
    for (int step = 1; step <= 20; ++step) {
      perturb(step);
      expectSteps(1, step % 3 == 0);
    }

    // A rejected point is no step.
    this->options().flags |= GTRACE_FILTER_BITMAPS;
    perturb(0);
    expectSteps(0, false);
    this->options().flags &= ~GTRACE_FILTER_BITMAPS;

    // With a period of 0 every step sleeps.
    this->options().stopCode = 0;
    for (int step = 0; step < 20; ++step) {
      perturb(step);
      expectSteps(1, true);
    }
    EXPECT_EQ(reserved(), 0u);
  }

 private:
  // Another kind of trace point at each step.
  static void perturb(int step) {
    switch (step % 5) {
      case 0: return gtraceEntry(kTid, kFunc);
      case 1: return gtraceExit(kTid, kFunc, &kRc, 0);
      case 2: return gtraceVar(kTid, kFunc, 10, 3, uint64_t{0});
      case 3: return gtraceErrorTrans(kTid, kFunc, 10, 0, 0);
      default: return gtraceMarker(kTid, kFunc, 10, 3);
    }
  }

  void expectSteps(int steps, bool sleeps) {
    for (int i = 0; i < steps; ++i) {
      const double r = random_.next() / 32'768.0;
      if (sleeps) expected_.push_back(static_cast<DWORD>(r * r * r * r * 200));
    }
    EXPECT_THAT(slept_, ElementsAreArray(expected_));
  }

  Random random_;
  std::vector<DWORD> slept_, expected_;
};

// A process has one generator, which is seeded once.
CHILD_ROLE(perturb) {
  PerturbationTest().TestBody();
  return 0;
}

TEST(Perturbation, SleepsByTheSeededGeneratorAndWritesNothing) {
  EXPECT_EQ(runChild("perturb"), 0u);
}

// ---- Unloading ----------------------------------------------------------------------------------

TEST(CallTimes, UnloadingReleasesTheStacksOfEveryThread) {
  constexpr int kTimes = 200;
  const LoadedLibrary kept("advapi32.dll");
  TempDirectory dir;
  const std::string path = copyOfLibrary(dir);
  BlockMemory memory;
  const auto options = optionsOf(GTRACE_FUNCTION_COUNT, GTRACE_CALL_STACKS);
  ASSERT_EQ(gtraceInitialize(memory.get(), options.get()), ECF_OK);

  const auto loadAndCount = [&] {
    const LoadedLibrary library(path);
    ASSERT_EQ(
        library.find<decltype(gtraceAttach)>("gtraceAttach")(memory.get(), 1, nullptr, nullptr),
        ECF_OK);
    auto* const entry = library.find<decltype(gtraceEntry)>("gtraceEntry");
    entry(1, kFunc);
    std::thread([entry] { entry(2, kFunc); }).join();
  };
  for (int i = 0; i < 10; ++i) loadAndCount();

  const Holdings before = Holdings::now();
  for (int i = 0; i < kTimes; ++i) loadAndCount();
  const Holdings after = Holdings::now();
  EXPECT_EQ(after.nextSlot, before.nextSlot);
  // The system itself may keep a page or two; lost stacks of 8 KiB would be hundreds.
  EXPECT_LT(after.privateBytes, before.privateBytes + size_t{128} * 1024);
  EXPECT_EQ(wordAt<uint32_t>(memory.get(), kFixedPart + 16 * kPlace), 2u * (10 + kTimes));
}

}  // namespace
