// The operating system: what it is, what its kernel limits, where it lives.
#include <windows.h>

#include "core/ossoperation.h"
#include "ossmachine.h"
#include "ossstring.h"
#include "sysinfo/ossostext.h"
#include "sysinfo/ossrecord.h"

using namespace oss;

namespace {

constexpr OSSSysInfoUint OSSKernelIPCInfo::*kKernelLimits[] = {
    &OSSKernelIPCInfo::msgMaxQueues,
    &OSSKernelIPCInfo::msgMaxQueueBytes,
    &OSSKernelIPCInfo::msgMaxMessageSize,
    &OSSKernelIPCInfo::msgMaxMessages,
    &OSSKernelIPCInfo::msgSegmentSize,
    &OSSKernelIPCInfo::msgSegments,
    &OSSKernelIPCInfo::msgMapEntries,
    &OSSKernelIPCInfo::semMaxSets,
    &OSSKernelIPCInfo::semMaxSemaphores,
    &OSSKernelIPCInfo::semMaxPerSet,
    &OSSKernelIPCInfo::semMaxOperations,
    &OSSKernelIPCInfo::semMaxUndo,
    &OSSKernelIPCInfo::semMaxUndoPerProcess,
    &OSSKernelIPCInfo::semUndoSize,
    &OSSKernelIPCInfo::semMaxValue,
    &OSSKernelIPCInfo::semMaxAdjust,
    &OSSKernelIPCInfo::semMapEntries,
    &OSSKernelIPCInfo::shmMaxSegmentSize,
    &OSSKernelIPCInfo::shmMinSegmentSize,
    &OSSKernelIPCInfo::shmMaxSegments,
    &OSSKernelIPCInfo::shmMaxSegmentsPerProcess,
};

// The name that the machine has in its network; the system is given one byte less than there is.
OSSErr tellComputerName(const Operation& op, OSSSysInfoStr& name) noexcept {
  DWORD size = sizeof name.value - 1;
  if (!::GetComputerNameA(name.value, &size)) {
    op.trace(10, ::GetLastError());
    mark(name, ECF_FAILED);
    return ECF_PARTIAL_INFO;
  }
  name.status = ECF_OK;
  return ECF_OK;
}

OSSErr tellVersion(const Operation& op, OSSOSInfo& info) noexcept {
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (!::GetVersionExA(&version)) {
    op.trace(20, ::GetLastError());
    mark(info.platform, ECF_FAILED);
    mark(info.release, ECF_FAILED);
    mark(info.serviceLevel, ECF_FAILED);
    return ECF_PARTIAL_INFO;
  }
  fillText(info.platform, platformName(version.dwPlatformId));
  ossSnprintf(info.release.value, sizeof info.release.value, "%d.%d",
              static_cast<int>(version.dwMajorVersion), static_cast<int>(version.dwMinorVersion));
  info.release.status = ECF_OK;
  fillText(info.serviceLevel, version.szCSDVersion);
  return ECF_OK;
}

}  // namespace

OSSErr ossGetOSInfo(OSSOSInfo* info) noexcept {
  Operation op(Func::ossGetOSInfo);
  if (const OSSErr rc = op.check(info)) return rc;

  OSSErr answer = ECF_OK;
  if (info->version >= kVersionWithBuild) {
    mark(info->build, ECF_NOT_SUPPORTED);
    answer = ECF_PARTIAL_INFO;
  }
  // Not logged: each member tells for itself.
  if (const OSSErr rc = tellComputerName(op, info->computerName)) answer = rc;
  if (const OSSErr rc = tellVersion(op, *info)) answer = rc;

  SYSTEM_INFO system;
  ::GetSystemInfo(&system);
  describeProcessor({.architecture = system.wProcessorArchitecture,
                     .type = system.dwProcessorType,
                     .level = system.wProcessorLevel,
                     .revision = system.wProcessorRevision},
                    info->processor);
  return op.exit(answer);
}

OSSErr ossGetKernelIPCInfo(OSSKernelIPCInfo* info) noexcept {
  Operation op(Func::ossGetKernelIPCInfo);
  if (const OSSErr rc = op.check(info)) return rc;

  for (const auto limit : kKernelLimits) (info->*limit).status = ECF_NOT_SUPPORTED;
  if (info->version >= kVersionWithTotalMemory) info->shmMaxTotal.status = ECF_NOT_SUPPORTED;
  return op.exit(ECF_NOT_SUPPORTED);
}

OSSErr ossGetSystemDirectory(const OSSSystemDirectoryInfo* record,
                             OSSSystemDirectoryInfo* info) noexcept {
  Operation op(Func::ossGetSystemDirectory);
  if (const OSSErr rc = op.check(record)) return rc;
  if (const OSSErr rc = op.checkNotNull(info)) return rc;

  const UINT size = sizeof info->directory;
  const UINT length = ::GetSystemDirectoryA(info->directory, size);
  if (length == 0 || length > size) {
    // The system tells the length that it needs and no error; this is its name.
    if (length != 0) ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return op.failSystem(20, SysCall::GetSystemDirectoryA, {{2, uint(size)}});
  }
  return op.exit();
}
