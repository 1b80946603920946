// Start-up and shutdown of the DLL: the flags it publishes, the question for terminal services, and
// what it leaves behind.
#include <gmock/gmock.h>
#include <windows.h>

#include <cstring>
#include <thread>

#include "harness/childprocess.h"
#include "harness/handles.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/tempdir.h"
#include "osscatalog.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr uint32_t kNotInstalled = 2;

// Asks the system itself whether it has a suite.
bool hasSuite(WORD suite) {
  OSVERSIONINFOEXA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  version.wSuiteMask = suite;
  return ::VerifyVersionInfoA(&version, VER_SUITENAME,
                              ::VerSetConditionMask(0, VER_SUITENAME, VER_AND)) != FALSE;
}

// ---- Flags ----

TEST(StartUp, SetsEveryNtFlagAndNoOtherOnASystemOfVersion6OrLater) {
  ASSERT_GE(LOBYTE(::GetVersion()), 6);
  EXPECT_EQ(g_bIsPlatformID_Win32OnNT, 1);
  EXPECT_EQ(g_bIsPlatformID_Win2k, 1);
  EXPECT_EQ(g_bIsPlatformID_WinXP, 1);
  EXPECT_EQ(g_bIsPlatformID_Win2k3, 1);
  EXPECT_EQ(g_bIsPlatformID_Vista, 1);
  EXPECT_EQ(g_bIsPlatformID_Longhorn, 1);
  EXPECT_EQ(g_bIsPlatformID_Win32On95, 0);
  EXPECT_EQ(g_bIsPlatformID_Win98, 0);
  EXPECT_EQ(g_bIsPlatformID_WinMe, 0);
}

TEST(StartUp, SetsTheTerminalFlagsByTheSystemsSuites) {
  const bool singleSession = hasSuite(VER_SUITE_SINGLEUSERTS);
  EXPECT_EQ(g_bRunningTerminalService, singleSession || hasSuite(VER_SUITE_TERMINAL) ? 1 : 0);
  EXPECT_EQ(g_bRunningTerminalServiceRemoteAdminMode, singleSession ? 1 : 0);
}

TEST(StartUp, TheMarkerOfTheLibraryIsZero) { EXPECT_EQ(sqlzThisIsAKT5Library, 0u); }

TEST(StartUp, AskingForItByHandHasNoEffect) {
  LogCapture log;
  CallCounter versions("GetVersionExA");
  CallCounter processors("GetSystemInfo");
  ossOneTimeOnly();
  EXPECT_EQ(versions.calls(), 0);
  EXPECT_EQ(processors.calls(), 0);
  EXPECT_THAT(log.records(), IsEmpty());
}

// ---- Terminal services: modes ----

TEST(CheckTerminalServices, TellsWhatTheSystemTells) {
  LogCapture log;
  EXPECT_EQ(ossCheckTerminalServices(0), hasSuite(VER_SUITE_SINGLEUSERTS) ? 0 : kNotInstalled);
  EXPECT_EQ(ossCheckTerminalServices(1), hasSuite(VER_SUITE_TERMINAL) ? 1 : kNotInstalled);
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST(CheckTerminalServices, AnyOtherModeIsNotInstalledAndNobodyIsAsked) {
  LogCapture log;
  CallCounter modules("GetModuleHandleA");
  CallCounter functions("GetProcAddress");
  CallCounter keys("RegOpenKeyExA");
  for (const uint32_t mode : {2u, 3u, 0x10000u, ~0u})
    EXPECT_EQ(ossCheckTerminalServices(mode), kNotInstalled);
  EXPECT_EQ(modules.calls() + functions.calls() + keys.calls(), 0);
  EXPECT_THAT(log.records(), IsEmpty());
}

// ---- Terminal services: what the version functions are asked ----

// Stands in for the two functions that the library looks up, and writes down what they are given.
struct FakeVersionFunctions {
  static inline std::string order;
  static inline OSVERSIONINFOEXA asked;
  static inline bool isInstalled;

  static ULONGLONG WINAPI setConditionMask(ULONGLONG mask, DWORD type, BYTE condition) {
    order += "mask " + std::to_string(mask) + ' ' + std::to_string(type) + ' ' +
             std::to_string(condition) + "; ";
    return 4711;
  }

  static BOOL WINAPI verifyVersion(OSVERSIONINFOEXA* version, DWORD types, DWORDLONG mask) {
    order += "verify " + std::to_string(types) + ' ' + std::to_string(mask);
    asked = *version;
    return isInstalled;
  }

  static void* find(const char* name) {
    if (std::strcmp(name, "VerSetConditionMask") == 0)
      return reinterpret_cast<void*>(&setConditionMask);
    if (std::strcmp(name, "VerifyVersionInfoA") == 0)
      return reinterpret_cast<void*>(&verifyVersion);
    ADD_FAILURE() << "the library looks up " << name;
    return nullptr;
  }
};

TEST(CheckTerminalServices, AsksForTheSuiteOfItsModeAndNothingElse) {
  ImportHook lookUps("GetProcAddress", [](Call& call) {
    return FakeVersionFunctions::find(call.argument<const char*>(1));
  });
  const struct {
    uint32_t mode;
    WORD suite;
  } kRows[] = {{0, 0x0100}, {1, 0x0010}};
  for (const auto& row : kRows) {
    for (const bool isInstalled : {true, false}) {
      FakeVersionFunctions::order.clear();
      FakeVersionFunctions::isInstalled = isInstalled;
      EXPECT_EQ(ossCheckTerminalServices(row.mode), isInstalled ? row.mode : kNotInstalled);

      EXPECT_EQ(FakeVersionFunctions::order, "mask 0 64 6; verify 64 4711");
      OSVERSIONINFOEXA expected = {};
      expected.dwOSVersionInfoSize = 156;
      expected.wSuiteMask = row.suite;
      EXPECT_EQ(std::memcmp(&FakeVersionFunctions::asked, &expected, sizeof expected), 0);
    }
  }
}

TEST(CheckTerminalServices, LooksUpEachFunctionInItsModule) {
  std::vector<std::string> steps;
  ImportHook modules("GetModuleHandleA", [&](Call& call) {
    steps.push_back(call.argument<const char*>(0));
    return call.passOn();
  });
  ImportHook functions("GetProcAddress", [&](Call& call) {
    steps.push_back(call.argument<const char*>(1));
    return call.passOn();
  });
  ossCheckTerminalServices(0);
  EXPECT_THAT(
      steps, ElementsAre("ntdll.dll", "VerSetConditionMask", "KERNEL32.DLL", "VerifyVersionInfoA"));
}

// ---- Terminal services: failures ----

// Refuses one look-up of a call, and expects one record with the name that was looked for.
void expectMissing(const char* function, int onCall, uint64_t probe, SysCall call, DWORD error,
                   OSSErr code, const char* name) {
  LogCapture log;
  FailingCall fails(function, error, {.onCall = onCall});
  EXPECT_EQ(ossCheckTerminalServices(0), kNotInstalled);
  EXPECT_EQ(fails.calls(), onCall);
  EXPECT_THAT(log.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, Func::ossCheckTerminalServices, probe, call,
                                       error, code, {{1, String(name)}})));
}

TEST(CheckTerminalServices, AMissingNtdllIsReported) {
  expectMissing("GetModuleHandleA", 1, 10, SysCall::GetModuleHandleA, ERROR_MOD_NOT_FOUND,
                ECF_FILE_DOESNT_EXIST, "ntdll.dll");
}

TEST(CheckTerminalServices, AMissingConditionFunctionIsReported) {
  expectMissing("GetProcAddress", 1, 30, SysCall::GetProcAddress, ERROR_PROC_NOT_FOUND,
                ECF_LIB_FUNC_NOT_FOUND, "VerSetConditionMask");
}

// Deliberate: asked for in upper case, reported in lower case.
TEST(CheckTerminalServices, AMissingKernelIsReportedInLowerCase) {
  expectMissing("GetModuleHandleA", 2, 20, SysCall::GetModuleHandleA, ERROR_MOD_NOT_FOUND,
                ECF_FILE_DOESNT_EXIST, "kernel32.dll");
}

TEST(CheckTerminalServices, AMissingVerifyFunctionIsReported) {
  expectMissing("GetProcAddress", 2, 40, SysCall::GetProcAddress, ERROR_PROC_NOT_FOUND,
                ECF_LIB_FUNC_NOT_FOUND, "VerifyVersionInfoA");
}

// ---- Terminal services: old systems ----

constexpr DWORD kWindows98 = 0xC0000A04;
constexpr DWORD kWindows95 = 0xC0000004;
constexpr DWORD kNt4 = 0x05650004;
constexpr DWORD kNt351 = 0x04213303;

ImportHook versionHook(DWORD version) {
  return ImportHook("GetVersion", [version](Call&) { return version; });
}

TEST(CheckTerminalServices, ASystemOutsideTheNtFamilyIsNotAsked) {
  LogCapture log;
  CallCounter modules("GetModuleHandleA");
  CallCounter keys("RegOpenKeyExA");
  for (const DWORD version : {kWindows95, kWindows98}) {
    const ImportHook hook = versionHook(version);
    EXPECT_EQ(ossCheckTerminalServices(0), kNotInstalled);
    EXPECT_EQ(ossCheckTerminalServices(1), kNotInstalled);
  }
  EXPECT_EQ(modules.calls() + keys.calls(), 0);
  EXPECT_THAT(log.records(), IsEmpty());
}

// A registry that holds one value, and counts the keys that are open.
class FakeRegistry {
 public:
  FakeRegistry(LSTATUS status, DWORD type, std::string_view value)
      : open_("RegOpenKeyExA",
              [this](Call& call) {
                EXPECT_EQ(call.argument<HKEY>(0), HKEY_LOCAL_MACHINE);
                EXPECT_STREQ(call.argument<const char*>(1),
                             "System\\CurrentControlSet\\Control\\ProductOptions");
                *call.argument<HKEY*>(4) = reinterpret_cast<HKEY>(uintptr_t{0x4711});
                ++openKeys_;
                return ERROR_SUCCESS;
              }),
        query_("RegQueryValueExA",
               [=](Call& call) -> LSTATUS {
                 EXPECT_STREQ(call.argument<const char*>(1), "ProductSuite");
                 auto* const size = call.argument<DWORD*>(5);
                 const DWORD room = std::exchange(*size, static_cast<DWORD>(value.size()));
                 *call.argument<DWORD*>(3) = type;
                 if (status != ERROR_SUCCESS) return status;
                 if (room < value.size()) return ERROR_MORE_DATA;
                 std::memcpy(call.argument<void*>(4), value.data(), value.size());
                 return ERROR_SUCCESS;
               }),
        close_("RegCloseKey", [this](Call& call) {
          EXPECT_EQ(call.argument<Word>(0), 0x4711u);
          --openKeys_;
          return ERROR_SUCCESS;
        }) {}
  ~FakeRegistry() { EXPECT_EQ(openKeys_, 0); }

 private:
  int openKeys_ = 0;
  ImportHook open_;
  ImportHook query_;
  ImportHook close_;
};

uint32_t answerOfNt4(uint32_t mode, LSTATUS status, DWORD type, std::string_view value) {
  const ImportHook version = versionHook(kNt4);
  const FakeRegistry registry(status, type, value);
  return ossCheckTerminalServices(mode);
}

// Deliberate: 0 is the answer to mode 1 as well.
TEST(CheckTerminalServices, NtUpToVersion4Answers0ForAListedTerminalServer) {
  using namespace std::string_view_literals;
  LogCapture log;
  for (const DWORD system : {kNt4, kNt351}) {
    const ImportHook version = versionHook(system);
    for (const uint32_t mode : {0u, 1u}) {
      for (const auto value :
           {"Terminal Server\0\0"sv, "Terminal Server\0"sv, "Enterprise\0Terminal Server\0\0"sv,
            "\0Terminal Server\0Enterprise\0\0"sv}) {
        const FakeRegistry registry(ERROR_SUCCESS, REG_MULTI_SZ, value);
        EXPECT_EQ(ossCheckTerminalServices(mode), 0u);
      }
    }
  }
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST(CheckTerminalServices, NtUpToVersion4WantsTheExactTextInAListOfStrings) {
  using namespace std::string_view_literals;
  const auto answer = [](std::string_view value, DWORD type = REG_MULTI_SZ) {
    return answerOfNt4(0, ERROR_SUCCESS, type, value);
  };
  EXPECT_EQ(answer("Terminal Servers\0\0"sv), kNotInstalled);
  EXPECT_EQ(answer("A Terminal Server\0\0"sv), kNotInstalled);
  EXPECT_EQ(answer("terminal server\0\0"sv), kNotInstalled);
  EXPECT_EQ(answer("Terminal\0Server\0\0"sv), kNotInstalled);
  EXPECT_EQ(answer("\0\0"sv), kNotInstalled);
  EXPECT_EQ(answer(""sv), kNotInstalled);
  EXPECT_EQ(answer("Terminal Server\0\0"sv, REG_SZ), kNotInstalled);
  EXPECT_EQ(answer("Terminal Server\0\0"sv, REG_BINARY), kNotInstalled);
}

TEST(CheckTerminalServices, NtUpToVersion4IsSafeFromAValueThatIsCut) {
  using namespace std::string_view_literals;
  const auto answer = [](std::string_view value) {
    return answerOfNt4(1, ERROR_SUCCESS, REG_MULTI_SZ, value);
  };
  EXPECT_EQ(answer("Terminal Server"sv), kNotInstalled);
  EXPECT_EQ(answer("Enterprise\0Terminal Server"sv), kNotInstalled);
  EXPECT_EQ(answer(std::string(1'000'000, 'x') + "\0Terminal Server\0"), kNotInstalled);
}

TEST(CheckTerminalServices, NtUpToVersion4CannotBeAskedWithoutTheValue) {
  LogCapture log;
  EXPECT_EQ(answerOfNt4(0, ERROR_FILE_NOT_FOUND, REG_MULTI_SZ, "Terminal Server"), kNotInstalled);

  const ImportHook version = versionHook(kNt4);
  CallCounter closed("RegCloseKey");
  ImportHook noKey("RegOpenKeyExA", [](Call&) { return ERROR_FILE_NOT_FOUND; });
  EXPECT_EQ(ossCheckTerminalServices(0), kNotInstalled);
  EXPECT_EQ(closed.calls(), 0);
  EXPECT_THAT(log.records(), IsEmpty());
}

// ---- Loading and unloading ----

std::string libraryPath() {
  char path[MAX_PATH + 1] = {};
  ::GetModuleFileNameA(libraryModule(), path, MAX_PATH);
  return path;
}

// Loads a copy of the library that the program has not loaded, and sees that it is attached.
HMODULE loadCopy(const std::string& path) {
  const HMODULE copy = ::LoadLibraryA(path.c_str());
  EXPECT_NE(copy, nullptr);
  EXPECT_NE(copy, libraryModule());
  const void* const flag =
      reinterpret_cast<const void*>(::GetProcAddress(copy, "g_bIsPlatformID_Win32OnNT"));
  EXPECT_EQ(*static_cast<const int32_t*>(flag), 1);
  return copy;
}

void unloadCopy(HMODULE copy, const std::string& path) {
  EXPECT_TRUE(::FreeLibrary(copy));
  EXPECT_EQ(::GetModuleHandleA(path.c_str()), nullptr);
}

CHILD_ROLE(loadAndUnload) {
  const std::string& path = arguments.at(0);
  unloadCopy(loadCopy(path), path);
  const size_t before = openHandles();
  for (int round = 0; round < 1000; ++round) unloadCopy(loadCopy(path), path);
  EXPECT_EQ(openHandles(), before);
  return 0;
}

CHILD_ROLE(startThreadsWhileLoaded) {
  const HMODULE copy = loadCopy(arguments.at(0));
  for (int round = 0; round < 10; ++round) std::thread([] {}).join();
  unloadCopy(copy, arguments.at(0));
  return 0;
}

class Loading : public Test {
 protected:
  Loading() { EXPECT_TRUE(::CopyFileA(libraryPath().c_str(), copy_.c_str(), TRUE)); }

  TempDirectory dir_;
  const std::string copy_ = dir_.file("copy.dll");
};

TEST_F(Loading, AThousandLoadsKeepNoHandle) { EXPECT_EQ(runChild("loadAndUnload", {copy_}), 0u); }

TEST_F(Loading, ThreadsThatComeAndGoDoNotKeepTheLibraryLoaded) {
  EXPECT_EQ(runChild("startThreadsWhileLoaded", {copy_}), 0u);
}

// ---- Shutdown ----

CHILD_ROLE(terminate) {
  for (int round = 0; round < 3; ++round) ossTerminate();
  return 0;
}

TEST(Terminate, WritesNothing) {
  TempDirectory directory;
  TempDirectory output;
  EXPECT_EQ(runChild("terminate", {},
                     {.directory = directory.path(), .outputFile = output.file("output")}),
            0u);
  EXPECT_EQ(readFile(output.file("output")), "");
  EXPECT_THAT(directory.names(), IsEmpty());
}

TEST(Terminate, ReportsNothing) {
  LogCapture log;
  ossTerminate();
  EXPECT_THAT(log.records(), IsEmpty());
}

}  // namespace
