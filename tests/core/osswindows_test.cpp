// Platform detection on systems other than this one.
#include "core/osswindows.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <cstring>
#include <optional>

#include "harness/childprocess.h"
#include "harness/importhook.h"
#include "numeric/ossspintuning.h"
#include "osscatalog.h"

using namespace osse_test;
using namespace testing;

namespace {

int32_t* const kFlags[] = {&g_bIsPlatformID_Win32On95,
                           &g_bIsPlatformID_Win98,
                           &g_bIsPlatformID_WinMe,
                           &g_bIsPlatformID_Win32OnNT,
                           &g_bIsPlatformID_Win2k,
                           &g_bIsPlatformID_WinXP,
                           &g_bIsPlatformID_Win2k3,
                           &g_bIsPlatformID_Vista,
                           &g_bIsPlatformID_Longhorn,
                           &g_bRunningTerminalService,
                           &g_bRunningTerminalServiceRemoteAdminMode};

constexpr char kNames[] = "95 98 Me NT 2k XP 2k3 Vista Longhorn terminal admin ";

// The names of the flags that are set.
std::string flags() {
  std::string set;
  const char* name = kNames;
  for (const int32_t* const flag : kFlags) {
    const char* const end = std::strchr(name, ' ') + 1;
    if (*flag == 1)
      set.append(name, end);
    else
      EXPECT_EQ(*flag, 0);
    name = end;
  }
  return set;
}

constexpr DWORD kNt = VER_PLATFORM_WIN32_NT;
constexpr DWORD kWindows = VER_PLATFORM_WIN32_WINDOWS;

// The version of a system; without one the system does not tell it.
struct Version {
  DWORD platform, major, minor;
};

class DetectPlatform : public Test {
 protected:
  DetectPlatform() { reset(); }
  ~DetectPlatform() override { reset(); }

  // Detects a system of that version that has the suites of some modes of terminal services.
  std::string detect(std::optional<Version> version, std::vector<uint32_t> installed = {}) {
    installedSuites_.clear();
    for (const uint32_t mode : installed) installedSuites_.push_back(mode == 0 ? 0x0100 : 0x0010);
    ImportHook versions("GetVersionExA", [&](Call& call) -> BOOL {
      auto* const told = call.argument<OSVERSIONINFOA*>(0);
      EXPECT_EQ(told->dwOSVersionInfoSize, 148u);
      if (!version) return FALSE;
      told->dwPlatformId = version->platform;
      told->dwMajorVersion = version->major;
      told->dwMinorVersion = version->minor;
      return TRUE;
    });
    ImportHook packed("GetVersion", [](Call&) { return DWORD{6}; });
    ImportHook functions("GetProcAddress", [](Call& call) {
      const std::string_view name = call.argument<const char*>(1);
      if (name == "VerSetConditionMask") return reinterpret_cast<void*>(&setConditionMask);
      EXPECT_EQ(name, "VerifyVersionInfoA");
      return reinterpret_cast<void*>(&verifyVersion);
    });
    oss::detectPlatform();
    return flags();
  }

  // The same for a system that has not been detected before.
  std::string detectAnew(std::optional<Version> version, std::vector<uint32_t> installed = {}) {
    reset();
    return detect(version, std::move(installed));
  }

 private:
  static void reset() {
    for (int32_t* const flag : kFlags) *flag = 0;
  }

  static ULONGLONG WINAPI setConditionMask(ULONGLONG, DWORD, BYTE) { return 1; }
  static BOOL WINAPI verifyVersion(OSVERSIONINFOEXA* version, DWORD, DWORDLONG) {
    return std::find(installedSuites_.begin(), installedSuites_.end(), version->wSuiteMask) !=
           installedSuites_.end();
  }

  static inline std::vector<WORD> installedSuites_;
};

TEST_F(DetectPlatform, EveryNtVersionSetsTheFlagsOfThoseBefore) {
  EXPECT_EQ(detectAnew(Version{kNt, 3, 51}), "NT ");
  EXPECT_EQ(detectAnew(Version{kNt, 4, 0}), "NT ");
  EXPECT_EQ(detectAnew(Version{kNt, 5, 0}), "NT 2k ");
  EXPECT_EQ(detectAnew(Version{kNt, 5, 1}), "NT 2k XP ");
  EXPECT_EQ(detectAnew(Version{kNt, 5, 2}), "NT 2k XP 2k3 ");
  EXPECT_EQ(detectAnew(Version{kNt, 6, 0}), "NT 2k XP 2k3 Vista Longhorn ");
  EXPECT_EQ(detectAnew(Version{kNt, 6, 1}), "NT 2k XP 2k3 Vista Longhorn ");
  EXPECT_EQ(detectAnew(Version{kNt, 10, 0}), "NT 2k XP 2k3 Vista Longhorn ");
}

TEST_F(DetectPlatform, SystemsOutsideTheNtFamilyDifferByTheirMinorVersion) {
  EXPECT_EQ(detectAnew(Version{kWindows, 4, 0}), "95 ");
  EXPECT_EQ(detectAnew(Version{kWindows, 4, 10}), "95 98 ");
  EXPECT_EQ(detectAnew(Version{kWindows, 4, 90}), "95 Me ");
  EXPECT_EQ(detectAnew(Version{VER_PLATFORM_WIN32s, 3, 10}), "95 98 ");
}

TEST_F(DetectPlatform, AMinorVersionOf10Or90MeansNothingOnNt) {
  EXPECT_EQ(detectAnew(Version{kNt, 4, 10}), "NT ");
  EXPECT_EQ(detectAnew(Version{kNt, 4, 90}), "NT ");
}

TEST_F(DetectPlatform, AVersionThatIsNotToldSetsNoPlatformButTerminalServicesAreDetected) {
  EXPECT_EQ(detectAnew(std::nullopt), "");
  EXPECT_EQ(detectAnew(std::nullopt, {0}), "terminal admin ");
  EXPECT_EQ(detectAnew(std::nullopt, {1}), "terminal ");
}

// Deliberate: the single-session suite sets both flags.
TEST_F(DetectPlatform, TheSingleSessionSuiteSetsBothTerminalFlagsAndTheOtherSuiteOne) {
  EXPECT_EQ(detectAnew(Version{kNt, 5, 0}, {}), "NT 2k ");
  EXPECT_EQ(detectAnew(Version{kNt, 5, 0}, {1}), "NT 2k terminal ");
  EXPECT_EQ(detectAnew(Version{kNt, 5, 0}, {0}), "NT 2k terminal admin ");
  EXPECT_EQ(detectAnew(Version{kNt, 5, 0}, {0, 1}), "NT 2k terminal admin ");
}

TEST_F(DetectPlatform, FlagsThatAreSetStaySet) {
  EXPECT_EQ(detectAnew(Version{kNt, 6, 1}, {0}), "NT 2k XP 2k3 Vista Longhorn terminal admin ");
  EXPECT_EQ(detect(Version{kNt, 5, 0}), "NT 2k XP 2k3 Vista Longhorn terminal admin ");
}

// An attach does its work once in a process, so the test has one of its own.
CHILD_ROLE(attachTwice) {
  ImportHook processors("GetSystemInfo", [](Call& call) {
    *call.argument<SYSTEM_INFO*>(0) = {};
    call.argument<SYSTEM_INFO*>(0)->dwNumberOfProcessors = 3;
  });
  CallCounter versions("GetVersionExA");
  oss::attachProcess();
  oss::attachProcess();
  EXPECT_EQ(processors.calls(), 1);
  EXPECT_EQ(versions.calls(), 1);
  EXPECT_EQ(g_bIsPlatformID_Win32OnNT, 1);

  OSSSpinTune tune;
  OSSLatch::getSpinCounts(tune);
  EXPECT_EQ(tune.reserved0, 5u);
  EXPECT_EQ(tune.spinCount, 20u);
  EXPECT_EQ(tune.spinDelay, 50u);
  EXPECT_EQ(tune.reserved3, 0u);
  EXPECT_EQ(tune.sleepIncrement, 0u);
  EXPECT_EQ(oss::g_spinState.processors, 3u);
  EXPECT_EQ(oss::g_spinState.initialized, 1u);
  return 0;
}

TEST_F(DetectPlatform, AnAttachDetectsOnceAndTunesLatchesByTheProcessors) {
  EXPECT_EQ(runChild("attachTwice"), 0u);
}

}  // namespace
