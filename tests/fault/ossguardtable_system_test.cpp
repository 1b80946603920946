// The mutexes: their names, who shares them, and when they are there.
#include <gmock/gmock.h>
#include <windows.h>

#include "fault/fakedebughelp.h"
#include "harness/childprocess.h"
#include "osscatalog.h"
#include "ossfault.h"
#include "ossipcresource.h"
#include "ossmemory.h"

using namespace osse_test;
using namespace testing;

namespace {

// The names of the mutexes of this process.
std::vector<std::string> guards() {
  std::vector<std::string> names;
  for (const char* const name : {"SymCleanup", "SymGetOptions", "SymSetOptions", "SymLoadModule"})
    if (openGuard(name) != nullptr) names.emplace_back(name);
  for (const GuardName& row : kGuardNames)
    if (row.mutex != nullptr && openGuard(row.mutex) != nullptr) names.emplace_back(row.mutex);
  return names;
}

// Clean-up has none of its own, and two names lack a letter.
std::vector<std::string> allGuards() {
  std::vector<std::string> names;
  for (const GuardName& row : kGuardNames)
    if (row.mutex != nullptr) names.emplace_back(row.mutex);
  return names;
}

// In a process where no other module has made them.
CHILD_ROLE(makeAndCloseGuards) {
  TempDirectory dir;
  {
    const LoadedLibrary library(copyOfLibrary(dir));
    EXPECT_THAT(guards(), IsEmpty());
    EXPECT_EQ(library.find<decltype(ossLoadSymDLL)>("ossLoadSymDLL")(), 0u);
    EXPECT_EQ(guards(), allGuards());
    EXPECT_EQ(library.find<decltype(ossLoadSymDLL)>("ossLoadSymDLL")(), 0u);
    library.find<decltype(ossFreeSymDLL)>("ossFreeSymDLL")();
    EXPECT_EQ(guards(), allGuards());
  }
  EXPECT_THAT(guards(), IsEmpty());
  return 0;
}

TEST(GuardTable, IsMadeOnFirstUseAndClosedWhenTheLibraryIsUnloaded) {
  EXPECT_EQ(runChild("makeAndCloseGuards"), 0u);
}

// Leaves a block behind, and notes what is there of the table when the last report is opened.
CHILD_ROLE(reportLeaksAtTheEnd) {
  TempDirectory dir;
  static std::vector<std::string> s_seen = {"no report"};
  {
    const LoadedLibrary library(copyOfLibrary(dir));
    library.find<decltype(ossLoadSymDLL)>("ossLoadSymDLL")();
    EXPECT_EQ(guards(), allGuards());
    void* block = nullptr;
    EXPECT_EQ(
        library.find<decltype(ossMemAlloc)>("ossMemAlloc")(&block, nullptr, 5, 0, __FILE__, 1),
        ECF_OK);
    // Never removed: the table that it stands in goes with the library.
    new ImportHook(
        "CreateFileA",
        [](Call& call) {
          if (std::string_view(call.argument<const char*>(0)).ends_with("_leaks.mem"))
            s_seen = guards();
          return call.passOn();
        },
        library.module());
  }
  EXPECT_THAT(s_seen, IsEmpty());
  return 0;
}

TEST(GuardTable, IsClosedBeforeTheLibraryReportsItsLeaks) {
  const TempDirectory dir;
  EXPECT_EQ(
      runChild("reportLeaksAtTheEnd", {}, {.environment = {{"OSSEMEMDBG", dir.path() + ",LEAKS"}}}),
      0u);
}

// A second module of the same process opens what the first has made.
TEST(GuardTable, OutlivesOneModuleInAnother) {
  TempDirectory dir;
  ossLoadSymDLL();
  {
    const LoadedLibrary library(copyOfLibrary(dir));
    library.find<decltype(ossLoadSymDLL)>("ossLoadSymDLL")();
  }
  EXPECT_EQ(guards(), allGuards());
}

TEST(GuardTable, IsMadeOnceByThreadsThatComeTogether) {
  TempDirectory dir;
  const LoadedLibrary library(copyOfLibrary(dir));
  auto* const load = library.find<decltype(ossLoadSymDLL)>("ossLoadSymDLL");
  const CallCounter made("CreateMutexA", library.module());
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([load] { load(); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(made.calls(), 17);
}

TEST(GuardTable, LeavesTheLastErrorAlone) {
  FakeDebugHelp help;
  ::SetLastError(4321);
  help.find<decltype(ossLoadSymDLL)>("ossLoadSymDLL")();
  EXPECT_EQ(::GetLastError(), 4321u);
  help.find<decltype(ossSymGetOptions)>("ossSymGetOptions")();
}

TEST(GuardTable, TakesTheProcessWideSecurityAttributes) {
  FakeDebugHelp help;
  SECURITY_ATTRIBUTES own = {sizeof own, nullptr, FALSE};
  const auto set =
      help.find<decltype(ossSetSecurityAttributesForOSS)>("ossSetSecurityAttributesForOSS");
  std::vector<SECURITY_ATTRIBUTES> seen;
  ImportHook create(
      "CreateMutexA",
      [&seen](Call& call) {
        if (const auto* given = call.argument<const SECURITY_ATTRIBUTES*>(0))
          seen.push_back(*given);
        EXPECT_EQ(call.argument<BOOL>(1), FALSE);
        return call.passOn();
      },
      help.module());
  set(&own);
  help.find<decltype(ossSymGetOptions)>("ossSymGetOptions")();

  ASSERT_EQ(seen.size(), 17u);
  for (const SECURITY_ATTRIBUTES& attributes : seen) {
    EXPECT_EQ(attributes.lpSecurityDescriptor, nullptr);
    EXPECT_EQ(attributes.bInheritHandle, FALSE);
  }
}

// ---- What the mutexes do ----

TEST(Guards, AMutexThatCannotBeMadeIsDoneWithout) {
  FakeDebugHelp help;
  ImportHook create(
      "CreateMutexA", [](Call&) { return Word{0}; }, help.module());
  help.answer("SymGetOptions", [](const FakeCall&) { return 7; });
  EXPECT_EQ(help.find<decltype(ossSymGetOptions)>("ossSymGetOptions")(), 7u);
  ASSERT_EQ(help.calls().at(0).held.size(), 0u);
}

TEST(Guards, AMutexWhoseHolderEndedIsTakenOver) {
  FakeDebugHelp help;
  help.find<decltype(ossLoadSymDLL)>("ossLoadSymDLL")();
  const UniqueHandle mutex = openGuard("SymGetOptons");
  std::thread([&mutex] { EXPECT_EQ(::WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0); }).join();

  help.answer("SymGetOptions", [](const FakeCall&) { return 7; });
  EXPECT_EQ(help.find<decltype(ossSymGetOptions)>("ossSymGetOptions")(), 7u);
  EXPECT_THAT(help.calls().at(0).held, ElementsAre("SymGetOptons"));
  EXPECT_THAT(heldGuards(), IsEmpty());
}

// While a copy of the library is inside a function, the library waits for it.
TEST(Guards, TwoModulesOfAProcessShareThem) {
  ossLoadSymDLL();
  FakeDebugHelp copy;
  std::vector<std::string> steps;
  Event waits;
  ImportHook wait("WaitForSingleObject", [&](Call& call) {
    EXPECT_EQ(::WaitForSingleObject(call.argument<HANDLE>(0), 0), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(call.argument<DWORD>(1), INFINITE);
    steps.emplace_back("the library waits");
    waits.set();
    return call.passOn();
  });
  std::thread library;
  copy.answer("SymGetOptions", [&](const FakeCall&) {
    library = std::thread([&steps] {
      ossSymGetOptions();
      steps.emplace_back("the library is served");
    });
    EXPECT_TRUE(waits.wait());
    steps.emplace_back("the copy is served");
    return 7;
  });

  EXPECT_EQ(copy.find<decltype(ossSymGetOptions)>("ossSymGetOptions")(), 7u);
  library.join();
  EXPECT_THAT(steps,
              ElementsAre("the library waits", "the copy is served", "the library is served"));
}

// ---- What stays behind ----

CHILD_ROLE(loadAndUse) {
  const std::string path = arguments[0];
  // What the library imports stays loaded here, as the debugging-help library does anyway.
  const LoadedLibrary kept("advapi32.dll");
  const auto use = [&path] {
    const LoadedLibrary library(path);
    uint64_t addresses[4] = {};
    library.find<decltype(ossWalkStackCollect)>("ossWalkStackCollect")(0, addresses, 4);
    EXPECT_NE(addresses[0], 0u);
    const auto process = ::GetCurrentProcess();
    EXPECT_TRUE(library.find<decltype(ossEnumerateLoadedModules)>("ossEnumerateLoadedModules")(
        process, nullptr, nullptr));
    EXPECT_TRUE(library.find<decltype(ossSymRegisterStackWalkCallback)>(
        "ossSymRegisterStackWalkCallback")(process));
  };
  for (int i = 0; i < 5; ++i) use();  // the process's heap grows to what they need
  constexpr int kTimes = 10;
  const size_t bytes = Holdings::now().privateBytes;
  for (int i = 0; i < kTimes; ++i) const LoadedLibrary library(path);
  const Holdings before = Holdings::now();
  for (int i = 0; i < kTimes; ++i) use();
  const Holdings after = Holdings::now();
  EXPECT_EQ(after.handles, before.handles);
  EXPECT_EQ(after.nextSlot, before.nextSlot);
  // Where a load alone costs the process something, a use may cost it as much.
  EXPECT_LT(after.privateBytes, before.privateBytes + (before.privateBytes - bytes) + 65536);
  return 0;
}

TEST(FaultCapture, LeavesNothingBehindWhenTheLibraryIsUnloaded) {
  const TempDirectory dir;
  EXPECT_EQ(runChild("loadAndUse", {copyOfLibrary(dir)}), 0u);
}

}  // namespace
