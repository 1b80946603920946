// ossmemoryamounts.h - what a memory status becomes in records. No platform header.
#pragma once

#include <algorithm>

#include "osssysinfo.h"
#include "sysinfo/ossmebibytes.h"
#include "sysinfo/ossrecord.h"

namespace oss {

struct MemoryStatus {  // bytes
  uint64_t totalPhysical, availablePhysical;
  uint64_t totalPageFile, availablePageFile;  // physical memory is a part of it
  uint64_t totalVirtual, availableVirtual;    // the address space of the process
};

constexpr int64_t signedMebibytes(uint64_t bytes) noexcept {
  return static_cast<int64_t>(mebibytes(bytes));
}

// Deliberate: the statuses of total and available are not written.
inline void fillFrom(const MemoryStatus& status, OSSPhysMemInfo& info) noexcept {
  info.total.value = signedMebibytes(status.totalPhysical);
  info.available.value = signedMebibytes(status.availablePhysical);
  fill(info.usable, signedMebibytes(std::min(status.availablePhysical, status.availableVirtual)));
  fill(info.addressSpace, signedMebibytes(status.totalVirtual));
}

// Deliberate: a difference below zero wraps around before it is rounded, and no status is written.
inline void fillFrom(const MemoryStatus& status, OSSPhysSwapInfo& info) noexcept {
  info.total.value = signedMebibytes(status.totalPageFile - status.totalPhysical);
  info.available.value = signedMebibytes(status.availablePageFile - status.availablePhysical);
}

}  // namespace oss
