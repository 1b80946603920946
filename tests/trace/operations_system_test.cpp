// The trace of every operation that has a frame, once as it succeeds and once as it fails: entry,
// data points, error point, exit, and those of the operations that it calls. The cases of most
// families stand in sources of their own, operations_<family>.cpp.
//
// The build lists the operations that open a frame (framedoperations.cmake); one without cases
// fails the last test.
#include <algorithm>
#include <set>

#include "ossmemory.h"
#include "trace/operationscene.h"

using namespace osse_test;
using oss::Func;
using oss::SysCall;
using testing::ElementsAreArray;

namespace {

// ---- Memory, threads, the system ----

OSSErr allocate(void** block, uint64_t size) {
  return ossMemAlloc(block, nullptr, size, 0, "file", 1);
}
OSSErr release(void** block) { return ossMemFree(block, nullptr, 0, "file", 1); }

void doNothing(void*) {}
OSSErr startThread(Scene& scene) {
  OSSThreadParam param;
  param.flags = OSS_THREAD_JOINABLE;
  return scene.thread.create(doNothing, nullptr, &param, nullptr);
}

constexpr OSSErr kNotCreated = 0x9000009F;

// A slot of thread-specific data for the length of a case.
class Slot {
 public:
  explicit Slot(Scene& scene) : slot_(scene.slot) { EXPECT_EQ(slot_.create(), ECF_OK); }
  ~Slot() { EXPECT_EQ(slot_.destroy(), ECF_OK); }
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

 private:
  OSSHThreadSpecificData& slot_;
};

// Refused in the inner half of an operation, which is not traced: no error point.
struct InnerRefusal {
  SysCall call;
  uint16_t probe;
  const char* name;
  Word result = 0;
};
Trace refusedWithin(Scene& scene, Func function, const InnerRefusal& refusal,
                    const Code& operation) {
  constexpr DWORD kError = ERROR_INVALID_PARAMETER;
  const OSSErr rc =
      ossErrorMapSystem(0, refusal.probe, static_cast<uint32_t>(refusal.call), kError, nullptr);
  FailingCall fails(refusal.name, kError, {.result = refusal.result});
  return scene.plain(function, operation, rc);
}

constexpr Case kOtherCases[] = {
    {Func::ossMemAlloc, true,
     [](Scene& s) {
       void* block = nullptr;
       const Trace trace = s.plain(Func::ossMemAlloc, [&] { return allocate(&block, 8); });
       EXPECT_EQ(release(&block), ECF_OK);
       return trace;
     }},
    {Func::ossMemAlloc, false,
     [](Scene& s) {
       void* block = nullptr;
       return s.refused({Func::ossMemAlloc, 40, SysCall::Malloc, "malloc"},
                        [&] { return allocate(&block, 8); });
     }},
    {Func::ossMemFree, true,
     [](Scene& s) {
       void* block = nullptr;
       EXPECT_EQ(allocate(&block, 8), ECF_OK);
       return s.plain(Func::ossMemFree, [&] { return release(&block); });
     }},
    {Func::ossMemFree, false,
     [](Scene& s) {
       void* block = nullptr;
       return s.plain(
           Func::ossMemFree, [&] { return release(&block); }, 0x900003EE);
     }},
    {Func::OSSHThread_create, true,
     [](Scene& s) {
       const Trace trace = s.plain(
           Func::OSSHThread_create, [&] { return startThread(s); }, ECF_OK,
           framed(Func::ossMemAlloc, ECF_OK));
       EXPECT_EQ(s.thread.wait(), ECF_OK);
       return trace;
     }},
    {Func::OSSHThread_create, false,
     [](Scene& s) {
       return s.refused(
           {Func::OSSHThread_create, 100, SysCall::BeginThreadEx, "_beginthreadex"},
           [&] { return startThread(s); }, framed(Func::ossMemAlloc, ECF_OK));
     }},
    // The error is the allocator's to tell.
    {Func::OSSHThread_create, false,
     [](Scene& s) {
       constexpr OSSErr kRc = 0x9000000D;
       FailingCall fails("malloc", ERROR_NOT_ENOUGH_MEMORY);
       return s.plain(
           Func::OSSHThread_create, [&] { return startThread(s); }, kRc,
           framed(Func::ossMemAlloc, kRc, {error(Func::ossMemAlloc, 40, kRc)}));
     }},
    {Func::OSSHThread_wait, true,
     [](Scene& s) {
       EXPECT_EQ(startThread(s), ECF_OK);
       return s.plain(Func::OSSHThread_wait, [&] { return s.thread.wait(); });
     }},
    {Func::OSSHThread_wait, false,
     [](Scene& s) {
       EXPECT_EQ(startThread(s), ECF_OK);
       return s.refused({Func::OSSHThread_wait, 0, SysCall::WaitForSingleObject,
                         "WaitForSingleObject", WAIT_FAILED},
                        [&] { return s.thread.wait(); });
     }},
    {Func::OSSHThread_close, true,
     [](Scene& s) {
       EXPECT_EQ(startThread(s), ECF_OK);
       EXPECT_EQ(s.thread.wait(), ECF_OK);
       return s.plain(Func::OSSHThread_close, [&] { return s.thread.close(); });
     }},
    {Func::OSSHThread_close, false,
     [](Scene& s) {
       return s.plain(
           Func::OSSHThread_close, [&] { return s.thread.close(); }, kNotCreated);
     }},
    {Func::OSSHThreadSpecificData_create, true,
     [](Scene& s) {
       const Trace trace =
           s.plain(Func::OSSHThreadSpecificData_create, [&] { return s.slot.create(); });
       EXPECT_EQ(s.slot.destroy(), ECF_OK);
       return trace;
     }},
    {Func::OSSHThreadSpecificData_create, false,
     [](Scene& s) {
       return refusedWithin(s, Func::OSSHThreadSpecificData_create,
                            {SysCall::TlsAlloc, 20, "TlsAlloc", TLS_OUT_OF_INDEXES},
                            [&] { return s.slot.create(); });
     }},
    {Func::OSSHThreadSpecificData_destroy, true,
     [](Scene& s) {
       EXPECT_EQ(s.slot.create(), ECF_OK);
       return s.plain(Func::OSSHThreadSpecificData_destroy, [&] { return s.slot.destroy(); });
     }},
    {Func::OSSHThreadSpecificData_destroy, false,
     [](Scene& s) {
       const Slot slot(s);
       return refusedWithin(s, Func::OSSHThreadSpecificData_destroy,
                            {SysCall::TlsFree, 20, "TlsFree"}, [&] { return s.slot.destroy(); });
     }},
    {Func::OSSHThreadSpecificData_set, true,
     [](Scene& s) {
       const Slot slot(s);
       return s.plain(Func::OSSHThreadSpecificData_set, [&] { return s.slot.set(&s); });
     }},
    // Deliberate: nobody is told.
    {Func::OSSHThreadSpecificData_set, false,
     [](Scene& s) {
       const Slot slot(s);
       FailingCall fails("TlsSetValue", ERROR_NOT_ENOUGH_MEMORY);
       return s.plain(Func::OSSHThreadSpecificData_set, [&] { return s.slot.set(&s); });
     }},
    {Func::OSSHThreadSpecificData_get, true,
     [](Scene& s) {
       const Slot slot(s);
       void* value = nullptr;
       EXPECT_EQ(s.slot.set(&s), ECF_OK);
       return s.plain(Func::OSSHThreadSpecificData_get, [&] { return s.slot.get(&value); });
     }},
    {Func::OSSHThreadSpecificData_get, false,
     [](Scene& s) {
       const Slot slot(s);
       void* value = nullptr;
       return refusedWithin(s, Func::OSSHThreadSpecificData_get,
                            {SysCall::TlsGetValue, 10, "TlsGetValue"},
                            [&] { return s.slot.get(&value); });
     }},
    {Func::ossCheckTerminalServices, true,
     [](Scene& s) {
       const OSSErr rc = ossCheckTerminalServices(1);
       return s.plain(Func::ossCheckTerminalServices, [] { return ossCheckTerminalServices(1); },
                      rc, {data(Func::ossCheckTerminalServices, 10, std::string("\x10\0", 2))});
     }},
    {Func::ossCheckTerminalServices, false,
     [](Scene& s) {
       constexpr DWORD kError = ERROR_MOD_NOT_FOUND;
       const OSSErr rc = ossErrorMapSystem(0, 10, 0x08140109, kError, nullptr);
       FailingCall fails("GetModuleHandleA", kError);
       return s.plain(Func::ossCheckTerminalServices, [] { return ossCheckTerminalServices(0); }, 2,
                      {error(Func::ossCheckTerminalServices, 10, rc)});
     }},
};

class OperationTraceTest : public Scene, public testing::WithParamInterface<Case> {};

TEST_P(OperationTraceTest, IsEntryPointsAndExit) {
  const Trace expected = GetParam().play(*this);
  EXPECT_THAT(records(), ElementsAreArray(expected));
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
  std::string name = ecfGetFunctionName(idOf(info.param.function));
  std::erase(name, ':');
  return name + (info.param.succeeds ? "Succeeds" : "Fails") + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Directories, OperationTraceTest, testing::ValuesIn(directoryCases()),
                         caseName);
INSTANTIATE_TEST_SUITE_P(Files, OperationTraceTest, testing::ValuesIn(fileCases()), caseName);
INSTANTIATE_TEST_SUITE_P(IPC, OperationTraceTest, testing::ValuesIn(ipcCases()), caseName);
INSTANTIATE_TEST_SUITE_P(IPCMemoryEx, OperationTraceTest, testing::ValuesIn(ipcMemoryExCases()),
                         caseName);
INSTANTIATE_TEST_SUITE_P(Paths, OperationTraceTest, testing::ValuesIn(pathCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Processes, OperationTraceTest, testing::ValuesIn(processCases()),
                         caseName);
INSTANTIATE_TEST_SUITE_P(Queues, OperationTraceTest, testing::ValuesIn(queueCases()), caseName);
INSTANTIATE_TEST_SUITE_P(Waitposts, OperationTraceTest, testing::ValuesIn(waitpostCases()),
                         caseName);
INSTANTIATE_TEST_SUITE_P(Others, OperationTraceTest, testing::ValuesIn(kOtherCases), caseName);
INSTANTIATE_TEST_SUITE_P(SysInfo, OperationTraceTest, testing::ValuesIn(sysInfoCases()), caseName);

TEST(OperationTraces, CoverEveryOperationThatHasAFrame) {
  std::set<std::string> framed = {
#define FRAMED(function) ecfGetFunctionName(idOf(Func::function)),
#include "framed_operations.def"
#undef FRAMED
  };
  // Nothing of the DLL leads to it: its trace is shown where the objects are tested.
  framed.erase(ecfGetFunctionName(idOf(Func::ossGetCPUUsage)));
  for (const bool succeeds : {true, false}) {
    std::set<std::string> covered;
    for (const std::span<const Case> cases :
         {directoryCases(), fileCases(), ipcCases(), ipcMemoryExCases(), pathCases(),
          processCases(), queueCases(), sysInfoCases(), waitpostCases(),
          std::span<const Case>(kOtherCases)})
      for (const Case& each : cases)
        if (each.succeeds == succeeds) covered.insert(ecfGetFunctionName(idOf(each.function)));
    EXPECT_EQ(covered, framed) << (succeeds ? "that succeed" : "that fail");
  }
}

// ---- Switching ----

TEST_F(Scene, WithoutABlockOrDisabledNothingIsTraced) {
  openFile();
  EXPECT_EQ(file.sync(), ECF_OK);
  EXPECT_EQ(reserved(), 0u);
  ASSERT_EQ(gtraceEnable(), ECF_OK);
  ASSERT_EQ(gtraceDetach(), ECF_OK);
  EXPECT_EQ(file.sync(), ECF_OK);
  EXPECT_EQ(reserved(), 0u);
}

// The question is asked anew at each trace point.
TEST_F(Scene, TracingMayBeSwitchedWhileAnOperationRuns) {
  openFile();
  {
    ImportHook hook("FlushFileBuffers", [](Call& call) {
      EXPECT_EQ(gtraceEnable(), ECF_OK);
      return call.passOn();
    });
    EXPECT_EQ(file.sync(), ECF_OK);
  }
  EXPECT_THAT(records(), ElementsAreArray(Trace{{idOf(Func::OSSHFile_sync), 2, 0, 0, {}}}));

  start();
  {
    ImportHook hook("FlushFileBuffers", [](Call& call) {
      EXPECT_EQ(gtraceDisable(), ECF_OK);
      return call.passOn();
    });
    EXPECT_EQ(file.sync(), ECF_OK);
  }
  EXPECT_THAT(records(), ElementsAreArray(Trace{{idOf(Func::OSSHFile_sync), 1, 0, 0, {}}}));
}

}  // namespace
