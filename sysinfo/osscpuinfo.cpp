// The processors: their number, their speed and their topology.
#include "sysinfo/osscpuinfo.h"

#include <windows.h>

#include <atomic>

#include "core/ossmodule.h"
#include "core/ossoperation.h"
#include "ossmachine.h"
#include "sysinfo/osscpuid.h"
#include "sysinfo/ossrecord.h"

namespace oss {
namespace {

// The result is not locked: the host runs ossSysInfoOneTimeOnly before its threads start. Of two
// who come at once, only one may look: the other would take the restricted affinity for the
// process's own and restore that.
constinit std::atomic<bool> g_topologyPending = true;
Topology g_topology;

// The affinity of the process, as the topology asks for it.
class ProcessAffinity {
 public:
  ProcessAffinity() noexcept : kernel_(::GetModuleHandleA(kKernel)) {
    if (kernel_ == nullptr) kernel_ = loaded_ = ::LoadLibraryA(kKernel);
    if (kernel_ == nullptr) return;
    getMask_ = functionOf<decltype(getMask_)>(kernel_, "GetProcessAffinityMask");
    setMask_ = functionOf<decltype(setMask_)>(kernel_, "SetProcessAffinityMask");
  }
  ~ProcessAffinity() {
    if (loaded_ != nullptr) ::FreeLibrary(loaded_);
  }
  ProcessAffinity(const ProcessAffinity&) = delete;
  ProcessAffinity& operator=(const ProcessAffinity&) = delete;

  bool isOffered() const noexcept { return getMask_ != nullptr && setMask_ != nullptr; }

  uint64_t mask() const noexcept {
    DWORD_PTR ofProcess = 0;
    DWORD_PTR ofSystem = 0;
    return getMask_(::GetCurrentProcess(), &ofProcess, &ofSystem) ? ofProcess : 0;
  }
  bool restrictTo(uint64_t mask) const noexcept {
    return setMask_(::GetCurrentProcess(), mask) != FALSE;
  }
  static void yield() noexcept { ::Sleep(0); }

 private:
  static constexpr char kKernel[] = "KERNEL32";

  HMODULE kernel_;
  HMODULE loaded_ = nullptr;  // what is to be freed
  BOOL(WINAPI* getMask_)(HANDLE, DWORD_PTR*, DWORD_PTR*) = nullptr;
  BOOL(WINAPI* setMask_)(HANDLE, DWORD_PTR) = nullptr;
};

class RegistryKey {
 public:
  RegistryKey() noexcept = default;
  ~RegistryKey() {
    if (key_ != nullptr) ::RegCloseKey(key_);
  }
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  LSTATUS open(const char* path) noexcept {
    return ::RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key_);
  }
  LSTATUS read(const char* name, DWORD* value) const noexcept {
    DWORD size = sizeof *value;
    return ::RegQueryValueExA(key_, name, nullptr, nullptr, reinterpret_cast<BYTE*>(value), &size);
  }

 private:
  HKEY key_ = nullptr;
};

// Fills in the speed or tells that it could not be read, which is traced and not logged.
OSSErr readSpeed(const Operation& op, OSSSysInfoUint& speed) noexcept {
  mark(speed, ECF_FAILED);
  RegistryKey key;
  if (const LSTATUS error = key.open(R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)")) {
    op.trace(10, error);
    return ECF_PARTIAL_INFO;
  }
  DWORD megahertz = 0;
  if (const LSTATUS error = key.read("~MHZ", &megahertz)) {
    op.trace(20, error);
    return ECF_PARTIAL_INFO;
  }
  fill(speed, megahertz);
  return ECF_OK;
}

}  // namespace

Topology probeTopology(Cpuid cpuid) noexcept {
  ProcessAffinity affinity;
  return probe(cpuid, affinity);
}

}  // namespace oss

using namespace oss;

void ossSysInfoOneTimeOnly() noexcept {
  if (!g_topologyPending.exchange(false)) return;
  g_topology = probeTopology(&cpuid);
}

OSSErr ossGetCPUInfo(OSSCPUInfo* info) noexcept {
  Operation op(Func::ossGetCPUInfo);
  if (const OSSErr rc = op.check(info)) return rc;

  ossSysInfoOneTimeOnly();
  fill(info->threadsPerCore, g_topology.threadsPerCore);

  SYSTEM_INFO system;
  ::GetSystemInfo(&system);
  fill(info->onlineProcessors, system.dwNumberOfProcessors);
  fill(info->configuredProcessors, system.dwNumberOfProcessors);
  fill(info->licensedProcessors, system.dwNumberOfProcessors);

  if (info->version >= kVersionWithCores) fill(info->coresPerPackage, g_topology.coresPerPackage);

  if (g_bIsPlatformID_Win32OnNT == 0) {
    mark(info->speed, ECF_NOT_SUPPORTED);
    return op.exit(ECF_PARTIAL_INFO);
  }
  return op.exit(readSpeed(op, info->speed));
}
