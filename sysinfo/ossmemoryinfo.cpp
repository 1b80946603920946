// Physical memory and swap space.
#include <windows.h>

#include <atomic>

#include "core/ossmodule.h"
#include "core/ossoperation.h"
#include "osssysinfo.h"
#include "sysinfo/ossmemoryamounts.h"

using namespace oss;

namespace {

using ReadStatus = BOOL(WINAPI*)(MEMORYSTATUSEX*);

// The newer call; null where it is missing. It is looked up until it is found and then kept, since
// the module that holds it stays as long as the process.
ReadStatus newerCall() noexcept {
  static constinit std::atomic<ReadStatus> found = nullptr;
  ReadStatus call = found.load(std::memory_order_relaxed);
  if (call != nullptr) return call;

  const HMODULE kernel = ::GetModuleHandleA("KERNEL32");
  if (kernel == nullptr) return nullptr;
  call = functionOf<ReadStatus>(kernel, "GlobalMemoryStatusEx");
  found.store(call, std::memory_order_relaxed);
  return call;
}

// The older call cannot fail, and serves where the newer one is missing or fails.
MemoryStatus readMemoryStatus() noexcept {
  const ReadStatus read = newerCall();
  MEMORYSTATUSEX newer;
  newer.dwLength = sizeof newer;
  if (read != nullptr && read(&newer))
    return {.totalPhysical = newer.ullTotalPhys,
            .availablePhysical = newer.ullAvailPhys,
            .totalPageFile = newer.ullTotalPageFile,
            .availablePageFile = newer.ullAvailPageFile,
            .totalVirtual = newer.ullTotalVirtual,
            .availableVirtual = newer.ullAvailVirtual};

  MEMORYSTATUS status;
  status.dwLength = sizeof status;
  ::GlobalMemoryStatus(&status);
  return {.totalPhysical = status.dwTotalPhys,
          .availablePhysical = status.dwAvailPhys,
          .totalPageFile = status.dwTotalPageFile,
          .availablePageFile = status.dwAvailPageFile,
          .totalVirtual = status.dwTotalVirtual,
          .availableVirtual = status.dwAvailVirtual};
}

}  // namespace

OSSErr ossGetPhysMemInfo(OSSPhysMemInfo* info) noexcept {
  Operation op(Func::ossGetPhysMemInfo);
  if (const OSSErr rc = op.check(info)) return rc;

  mark(info->usable, ECF_NOT_SUPPORTED);
  fillFrom(readMemoryStatus(), *info);
  op.trace(10, *info);
  return op.exit();
}

OSSErr ossGetPhysSwapInfo(OSSPhysSwapInfo* info) noexcept {
  Operation op(Func::ossGetPhysSwapInfo);
  if (const OSSErr rc = op.check(info)) return rc;

  fillFrom(readMemoryStatus(), *info);
  return op.exit();
}
