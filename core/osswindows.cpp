// Start-up: platform and terminal-services detection, and the flags that publish them.
#include "core/osswindows.h"

#include <windows.h>

#include <cstring>

#include "core/ossmodule.h"
#include "core/ossoperation.h"
#include "memory/ossmemdbg.h"
#include "numeric/ossspintuning.h"
#include "osscatalog.h"

int32_t g_bIsPlatformID_Win32On95 = 0;
int32_t g_bIsPlatformID_Win98 = 0;
int32_t g_bIsPlatformID_WinMe = 0;
int32_t g_bIsPlatformID_Win32OnNT = 0;
int32_t g_bIsPlatformID_Win2k = 0;
int32_t g_bIsPlatformID_WinXP = 0;
int32_t g_bIsPlatformID_Win2k3 = 0;
int32_t g_bIsPlatformID_Vista = 0;
int32_t g_bIsPlatformID_Longhorn = 0;
int32_t g_bRunningTerminalService = 0;
int32_t g_bRunningTerminalServiceRemoteAdminMode = 0;
uint32_t sqlzThisIsAKT5Library = 0;

namespace oss {
namespace {

// ---- Terminal services ----

constexpr uint32_t kSingleSession = 0;   // the suite of the remote-administration mode
constexpr uint32_t kTerminalServer = 1;  // the suite of the application-server mode
constexpr uint32_t kNotInstalled = 2;

// The packed version of GetVersion(): bit 31 is clear on the NT family, the low byte is the major
// version.
struct PackedVersion {
  DWORD value = ::GetVersion();

  bool isNtFamily() const noexcept { return (value & 0x80000000) == 0; }
  DWORD major() const noexcept { return value & 0xFF; }
};

using SetConditionMask = ULONGLONG(WINAPI*)(ULONGLONG, DWORD, BYTE);
using VerifyVersion = BOOL(WINAPI*)(OSVERSIONINFOEXA*, DWORD, DWORDLONG);

// The two functions are looked up, not imported, so that the library loads on systems without them.
struct VersionFunctions {
  SetConditionMask setConditionMask = nullptr;
  VerifyVersion verifyVersion = nullptr;
};

// Finds both functions; otherwise reports what is missing and returns false. The code of the
// failure goes nowhere: the operation answers with a mode.
bool find(Operation& op, VersionFunctions* functions) noexcept {
  const auto missing = [&op](Probe probe, SysCall call, const char* name) {
    static_cast<void>(op.failSystem(probe, call, {{1, string(name)}}));
    return false;
  };

  const HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
  if (ntdll == nullptr) return missing(10, SysCall::GetModuleHandleA, "ntdll.dll");
  functions->setConditionMask = functionOf<SetConditionMask>(ntdll, "VerSetConditionMask");
  if (functions->setConditionMask == nullptr)
    return missing(30, SysCall::GetProcAddress, "VerSetConditionMask");

  const HMODULE kernel = ::GetModuleHandleA("KERNEL32.DLL");
  // Deliberate: the record spells the name in lower case.
  if (kernel == nullptr) return missing(20, SysCall::GetModuleHandleA, "kernel32.dll");
  functions->verifyVersion = functionOf<VerifyVersion>(kernel, "VerifyVersionInfoA");
  if (functions->verifyVersion == nullptr)
    return missing(40, SysCall::GetProcAddress, "VerifyVersionInfoA");
  return true;
}

bool isSuiteInstalled(Operation& op, const VersionFunctions& functions, uint32_t mode) noexcept {
  OSVERSIONINFOEXA asked = {};
  asked.dwOSVersionInfoSize = sizeof asked;
  asked.wSuiteMask = mode == kTerminalServer ? VER_SUITE_TERMINAL : VER_SUITE_SINGLEUSERTS;
  op.trace(10, asked.wSuiteMask);

  const ULONGLONG condition = functions.setConditionMask(0, VER_SUITENAME, VER_AND);
  return functions.verifyVersion(&asked, VER_SUITENAME, condition) != FALSE;
}

// Windows NT 4 lists its suites in the registry, as strings one behind the other.
bool isTerminalServerListed() noexcept {
  HKEY key = nullptr;
  if (::RegOpenKeyExA(HKEY_LOCAL_MACHINE, R"(System\CurrentControlSet\Control\ProductOptions)", 0,
                      KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
    return false;

  char suites[1024];
  DWORD type = 0;
  DWORD size = sizeof suites;
  const LSTATUS status = ::RegQueryValueExA(key, "ProductSuite", nullptr, &type,
                                            reinterpret_cast<BYTE*>(suites), &size);
  ::RegCloseKey(key);
  if (status != ERROR_SUCCESS || type != REG_MULTI_SZ) return false;

  constexpr char kWanted[] = "Terminal Server";
  for (size_t at = 0; at < size;) {
    const void* const end = std::memchr(suites + at, '\0', size - at);
    if (end == nullptr) return false;  // the last string is cut
    if (std::strcmp(suites + at, kWanted) == 0) return true;
    at = static_cast<size_t>(static_cast<const char*>(end) - suites) + 1;
  }
  return false;
}

void detectTerminalServices() noexcept {
  // Deliberate: the single-session suite sets both flags.
  if (ossCheckTerminalServices(kSingleSession) == kSingleSession) {
    g_bRunningTerminalService = 1;
    g_bRunningTerminalServiceRemoteAdminMode = 1;
  } else if (ossCheckTerminalServices(kTerminalServer) == kTerminalServer) {
    g_bRunningTerminalService = 1;
  }
}

// ---- Platform ----

void setNtFlags(DWORD major, DWORD minor) noexcept {
  g_bIsPlatformID_Win32OnNT = 1;
  if (major >= 5) g_bIsPlatformID_Win2k = 1;
  if (major >= 6 || (major == 5 && minor >= 1)) g_bIsPlatformID_WinXP = 1;
  if (major >= 6 || (major == 5 && minor >= 2)) g_bIsPlatformID_Win2k3 = 1;
  if (major >= 6) g_bIsPlatformID_Vista = 1;
  if (major >= 6) g_bIsPlatformID_Longhorn = 1;
}

void set9xFlags(DWORD minor) noexcept {
  g_bIsPlatformID_Win32On95 = 1;
  if (minor == 10) g_bIsPlatformID_Win98 = 1;
  if (minor == 90) g_bIsPlatformID_WinMe = 1;
}

}  // namespace

void detectPlatform() noexcept {
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (::GetVersionExA(&version)) {
    if (version.dwPlatformId == VER_PLATFORM_WIN32_NT)
      setNtFlags(version.dwMajorVersion, version.dwMinorVersion);
    else
      set9xFlags(version.dwMinorVersion);
  }
  detectTerminalServices();
}

void attachProcess() noexcept {
  static bool pending = true;
  if (!pending) return;
  pending = false;

  SYSTEM_INFO system;
  ::GetSystemInfo(&system);
  initializeSpinTuning(system.dwNumberOfProcessors);
  initializeMemDebug();
  detectPlatform();
}

}  // namespace oss

using namespace oss;

void ossOneTimeOnly() noexcept {}

void ossTerminate() noexcept { listLeaksAtEnd(false); }

uint32_t ossCheckTerminalServices(uint32_t mode) noexcept {
  Operation op(Func::ossCheckTerminalServices);
  const PackedVersion version;
  if (mode > kTerminalServer || !version.isNtFamily()) return op.exit(kNotInstalled);

  if (version.major() <= 4)
    // Deliberate: 0 for either mode.
    return op.exit(isTerminalServerListed() ? kSingleSession : kNotInstalled);

  VersionFunctions functions;
  const bool installed = find(op, &functions) && isSuiteInstalled(op, functions, mode);
  return op.exit(installed ? mode : kNotInstalled);
}
