// The load of the processors, from performance data of every kind.
#include "sysinfo/osscpuusage.h"

#include <optional>

#include "harness/wine.h"
#include "sysinfo/osssysinfofixture.h"
#include "trace/tracefixture.h"

using namespace osse_test;
using oss::Func;
using oss::OSSCPUUsageInfo;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr LONG kRefused = static_cast<LONG>(0xC0000BB9);

OSSSysInfoDouble OSSCPUUsageInfo::*const kMembers[] = {
    &OSSCPUUsageInfo::total, &OSSCPUUsageInfo::user, &OSSCPUUsageInfo::privileged,
    &OSSCPUUsageInfo::interrupt, &OSSCPUUsageInfo::idle};

// ---- The performance-data library ----

// What the stand-in below answers, and what it was asked, in order.
struct PerformanceData {
  int failingStep = -1;     // in the order of the calls, from 0: open, five times add, ...
  unsigned unreadable = 0;  // a bit for each counter
  bool closes = true;
  const char* missing = "";  // a function
  bool isThere = true;       // the library

  std::vector<std::string> calls = {};
};
PerformanceData* g_data = nullptr;

HMODULE const kLibrary = reinterpret_cast<HMODULE>(uintptr_t{0x5D110000});
HANDLE const kQuery = reinterpret_cast<HANDLE>(uintptr_t{0x9E1});
HANDLE counterOf(size_t index) { return reinterpret_cast<HANDLE>(0xC0 + index); }

LONG step(std::string call) {
  g_data->calls.push_back(std::move(call));
  return static_cast<int>(g_data->calls.size()) - 1 == g_data->failingStep ? kRefused : 0;
}

LONG WINAPI openQuery(const char* source, DWORD_PTR, HANDLE* query) {
  EXPECT_EQ(source, nullptr);
  *query = kQuery;
  return step("open");
}
LONG WINAPI addCounter(HANDLE query, const char* path, DWORD_PTR, HANDLE* counter) {
  EXPECT_EQ(query, kQuery);
  *counter = counterOf(g_data->calls.size() - 1);
  return step(path);
}
LONG WINAPI collect(HANDLE query) {
  EXPECT_EQ(query, kQuery);
  return step("collect");
}
struct Formatted {
  DWORD status;
  double value;
};
LONG WINAPI format(HANDLE counter, DWORD kind, DWORD*, Formatted* value) {
  EXPECT_EQ(kind, 0x200u);
  for (size_t index = 0; index < 5; ++index) {
    if (counter != counterOf(index)) continue;
    if (g_data->unreadable >> index & 1) return kRefused;
    value->value = 12.5 * static_cast<double>(index + 1);
    return 0;
  }
  ADD_FAILURE() << counter << " is no counter";
  return kRefused;
}
LONG WINAPI closeQuery(HANDLE query) {
  EXPECT_EQ(query, kQuery);
  g_data->calls.emplace_back("close");
  return g_data->closes ? 0 : kRefused;
}

void* functionNamed(const std::string& name) {
  if (name == g_data->missing) return nullptr;
  if (name == "PdhOpenQueryA") return reinterpret_cast<void*>(&openQuery);
  if (name == "PdhAddCounterA") return reinterpret_cast<void*>(&addCounter);
  if (name == "PdhCollectQueryData") return reinterpret_cast<void*>(&collect);
  if (name == "PdhGetFormattedCounterValue") return reinterpret_cast<void*>(&format);
  if (name == "PdhCloseQuery") return reinterpret_cast<void*>(&closeQuery);
  ADD_FAILURE() << name << " is not expected";
  return nullptr;
}

// ---- The operation ----

const std::vector<std::string> kPaths = {R"(\\MACHINE\Processor(_Total)\% Processor Time)",
                                         R"(\\MACHINE\Processor(_Total)\% User Time)",
                                         R"(\\MACHINE\Processor(_Total)\% Privileged Time)",
                                         R"(\\MACHINE\Processor(_Total)\% Interrupt Time)",
                                         R"(\\MACHINE\Processor(_Total)\% Idle Time)"};

// The calls up to the failing one, by its number, and the end of the query behind them.
std::vector<std::string> callsUpTo(int failingStep, const std::string& sleep = "sleep 250") {
  std::vector<std::string> calls = {"open"};
  calls.insert(calls.end(), kPaths.begin(), kPaths.end());
  calls.insert(calls.end(), {"collect", sleep, "collect"});
  if (failingStep >= 0) calls.resize(static_cast<size_t>(failingStep) + 1);
  if (failingStep != 0) calls.emplace_back("close");
  return calls;
}

constexpr int kFirstSample = 6;
constexpr int kSecondSample = 8;

class CPUUsage : public TraceTest {
 protected:
  using Record = Patterned<OSSCPUUsageInfo>;
  using Trace = std::vector<TraceEvidence>;

  static Record recordOf(uint64_t interval = 250, uint64_t version = OSS_VERSION_CURRENT) {
    Record record(version);
    record->interval = interval;
    return record;
  }
  static void expectFailed(OSSCPUUsageInfo& info) {
    for (const auto member : kMembers) (info.*member).status = ECF_FAILED;
  }
  static void expectTold(OSSCPUUsageInfo& info, size_t index) {
    (info.*kMembers[index]).value = 12.5 * static_cast<double>(index + 1);
    (info.*kMembers[index]).status = 0;
  }

  // Asks, and compares record, code and trace; nothing may be logged, nor the library kept.
  void expectUsage(PerformanceData& data, Record& record, const Record& expected, OSSErr rc,
                   const Trace& within = {}) {
    start();
    EXPECT_EQ(ask(data, record.get()), rc);
    EXPECT_EQ(record.differenceFrom(expected), "");
    EXPECT_EQ(records(), framed(rc, within));
    EXPECT_THAT(log_.newRecords(), IsEmpty());
  }
  // One that tells nothing, with these points.
  void expectNothing(PerformanceData data, const Trace& within) {
    Record record = recordOf();
    Record expected = record;
    expectFailed(expected.record());
    expectUsage(data, record, expected, ECF_FAILED, within);
    if (data.isThere && *data.missing == '\0') {
      EXPECT_EQ(data.calls, callsUpTo(data.failingStep));
    }
  }

  static OSSErr ask(PerformanceData& data, OSSCPUUsageInfo* info) {
    g_data = &data;
    // A hook that nobody calls fails its test: there are only those that the data let come to be.
    ImportHook name("GetComputerNameA", [](Call& call) {
      EXPECT_EQ(*call.argument<DWORD*>(1), 2047u);
      writeText(call.argument<char*>(0), "MACHINE");
      return TRUE;
    });
    ImportHook load("LoadLibraryA", [&](Call& call) {
      EXPECT_STREQ(call.argument<const char*>(0), "pdh.dll");
      return data.isThere ? kLibrary : nullptr;
    });
    std::optional<ImportHook> functions, frees, sleeps;
    if (data.isThere) {
      functions.emplace("GetProcAddress", [](Call& call) -> void* {
        EXPECT_EQ(call.argument<HMODULE>(0), kLibrary);
        return functionNamed(call.argument<const char*>(1));
      });
      frees.emplace("FreeLibrary", [](Call& call) {
        EXPECT_EQ(call.argument<HMODULE>(0), kLibrary);
        return TRUE;
      });
    }
    if (data.isThere && *data.missing == '\0' &&
        (data.failingStep < 0 || data.failingStep > kFirstSample))
      sleeps.emplace("Sleep", [&](Call& call) {
        data.calls.push_back("sleep " + std::to_string(call.argument<DWORD>(0)));
      });
    const OSSErr rc = oss::ossGetCPUUsage(info);
    if (frees) {
      EXPECT_EQ(frees->calls(), 1);
    }
    return rc;
  }

  static Trace framed(OSSErr rc, const Trace& within) {
    Trace trace = {{kId, 1, 0, 0, {}}};
    trace.insert(trace.end(), within.begin(), within.end());
    trace.push_back({kId, 2, 0, rc, {}});
    return trace;
  }
  template <class T>
  static TraceEvidence point(uint16_t probe, const T& value) {
    return {kId, 3, probe, 0, {reinterpret_cast<const char*>(&value), sizeof value}};
  }

  static constexpr auto kId = static_cast<uint32_t>(Func::ossGetCPUUsage);

  LogCapture log_;
};

TEST_F(CPUUsage, TellsAllFiveCounters) {
  for (const uint64_t version : kVersions) {
    PerformanceData data;
    Record record = recordOf(250, version);
    Record expected = record;
    for (size_t index = 0; index < 5; ++index) expectTold(expected.record(), index);
    expectUsage(data, record, expected, ECF_OK);
    EXPECT_EQ(data.calls, callsUpTo(-1));
  }
}

TEST_F(CPUUsage, IsRefusedWithoutAWholeRecord) {
  EXPECT_EQ(oss::ossGetCPUUsage(nullptr), ECF_INVALID_PARAMETER);
  Record record = recordOf(0, kTooOld);
  const Record before = record;
  EXPECT_EQ(oss::ossGetCPUUsage(record.get()), ECF_INVALID_VERSION);
  EXPECT_EQ(record.differenceFrom(before), "");
  EXPECT_THAT(log_.newRecords(), ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::ossGetCPUUsage, 1111,
                                                         ECF_INVALID_PARAMETER),
                                             FoundRecord(OSS_LOG_ERROR, Func::ossGetCPUUsage, 1112,
                                                         ECF_INVALID_VERSION, {Uint(kTooOld)})));
}

// Back to back with 0; the longest ends.
TEST_F(CPUUsage, TheIntervalIsThatOfASleep) {
  const struct {
    uint64_t interval;
    const char* sleep;
  } cases[] = {{0, "sleep 0"},
               {1, "sleep 1"},
               {0xFFFFFFFE, "sleep 4294967294"},
               {0xFFFFFFFF, "sleep 4294967294"},
               {kAllOnes, "sleep 4294967294"}};
  for (const auto& each : cases) {
    PerformanceData data;
    Record record = recordOf(each.interval);
    EXPECT_EQ(ask(data, record.get()), ECF_OK);
    EXPECT_EQ(data.calls, callsUpTo(-1, each.sleep));
  }
}

// ---- What fails is traced, not logged ----

TEST_F(CPUUsage, AStepThatFailsEndsIt) {
  expectNothing({.failingStep = 0}, {point(30, kRefused)});
  for (int counter = 1; counter <= 5; ++counter)
    expectNothing({.failingStep = counter}, {point(40, kRefused)});
  expectNothing({.failingStep = kFirstSample}, {point(50, kRefused)});
  expectNothing({.failingStep = kSecondSample}, {point(60, kRefused)});
}

TEST_F(CPUUsage, WithoutTheWholeLibraryNothingIsAsked) {
  constexpr LONG kNotFound = ERROR_MOD_NOT_FOUND;
  expectNothing({.isThere = false}, {point(30, kNotFound)});
  for (const char* const name : {"PdhOpenQueryA", "PdhAddCounterA", "PdhCollectQueryData",
                                 "PdhGetFormattedCounterValue", "PdhCloseQuery"})
    expectNothing({.missing = name}, {point(30, kNotFound)});
}

TEST_F(CPUUsage, WithoutANameOfTheMachineNothingIsLoaded) {
  constexpr DWORD kError = ERROR_BUFFER_OVERFLOW;
  FailingCall fails("GetComputerNameA", kError);
  CallCounter loads("LoadLibraryA");
  start();
  Record record = recordOf();
  Record expected = record;
  expectFailed(expected.record());
  EXPECT_EQ(oss::ossGetCPUUsage(record.get()), ECF_FAILED);
  EXPECT_EQ(record.differenceFrom(expected), "");
  EXPECT_EQ(records(), framed(ECF_FAILED, {point(20, kError)}));
  EXPECT_EQ(loads.calls(), 0);
}

TEST_F(CPUUsage, CountersThatCannotBeReadFailAlone) {
  for (unsigned unreadable = 1; unreadable < 0x1F; ++unreadable) {
    PerformanceData data = {.unreadable = unreadable};
    Record record = recordOf();
    Record expected = record;
    expectFailed(expected.record());
    Trace points;
    for (size_t index = 0; index < 5; ++index) {
      if (unreadable >> index & 1)
        points.push_back(point(80, kRefused));
      else
        expectTold(expected.record(), index);
    }
    expectUsage(data, record, expected, ECF_OK, points);
  }
}

TEST_F(CPUUsage, WithoutAnyValueItFails) {
  PerformanceData data = {.unreadable = 0x1F};
  Record record = recordOf();
  Record expected = record;
  expectFailed(expected.record());
  Trace points(5, point(80, kRefused));
  points.push_back(point(90, expected.record()));
  expectUsage(data, record, expected, ECF_FAILED, points);
}

TEST_F(CPUUsage, AQueryThatDoesNotCloseFailsWithTheValuesAsTold) {
  PerformanceData data = {.closes = false};
  Record record = recordOf();
  Record expected = record;
  for (size_t index = 0; index < 5; ++index) expectTold(expected.record(), index);
  expectUsage(data, record, expected, ECF_FAILED);
}

// ---- This machine ----

// Wine knows the first counter only, and so the second one ends it.
TEST_F(CPUUsage, TheSystemTellsAllCountersOrNone) {
  start();
  Record record = recordOf(0);
  Record expected = record;
  expectFailed(expected.record());
  const OSSErr rc = oss::ossGetCPUUsage(record.get());
  if (isUnderWine()) {
    EXPECT_EQ(rc, ECF_FAILED);
    EXPECT_EQ(record.differenceFrom(expected), "");
    EXPECT_EQ(records(), framed(ECF_FAILED, {point(40, kRefused)}));
  } else {
    EXPECT_EQ(rc, ECF_OK);
    EXPECT_EQ(record->total.status, 0u);
    EXPECT_GE(record->total.value, 0.0);
  }
  EXPECT_EQ(::GetModuleHandleA("pdh.dll"), nullptr);
}

}  // namespace
