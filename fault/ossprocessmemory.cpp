#include "fault/ossprocessmemory.h"

namespace oss {
namespace {

// A page that may not be accessed is refused here: a system may let a reader through from outside.
bool isOpen(const MEMORY_BASIC_INFORMATION& region) noexcept {
  return region.State == MEM_COMMIT && (region.Protect & (PAGE_NOACCESS | PAGE_GUARD)) == 0;
}

}  // namespace

bool ProcessMemory::isReadable(uint64_t address, uint64_t bytes) const noexcept {
  const uint64_t end = address + bytes;
  if (end < address) return false;

  while (address < end) {
    MEMORY_BASIC_INFORMATION region;
    const auto* const at = reinterpret_cast<const void*>(address);
    if (::VirtualQueryEx(process_, at, &region, sizeof region) == 0 || !isOpen(region))
      return false;
    address = reinterpret_cast<uint64_t>(region.BaseAddress) + region.RegionSize;
  }
  return true;
}

bool ProcessMemory::read(uint64_t address, void* to, size_t bytes) const noexcept {
  SIZE_T count = 0;
  return isReadable(address, bytes) &&
         ::ReadProcessMemory(process_, reinterpret_cast<const void*>(address), to, bytes, &count) &&
         count == bytes;
}

}  // namespace oss
