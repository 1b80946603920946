// What the system tells of a view, and how the table learns and forgets it.
#include "ipc/ossviewroom.h"

#include <windows.h>

namespace oss {

constinit std::atomic<uint64_t> g_views[kViewEntries];

uint64_t askForViewBytes(const void* view) noexcept {
  MEMORY_BASIC_INFORMATION region;
  if (::VirtualQuery(view, &region, sizeof region) != sizeof region) return 0;
  if (region.State != MEM_COMMIT || region.AllocationBase != view) return 0;
  if (region.Protect != PAGE_READWRITE) return 0;

  const uint64_t pages = region.RegionSize / kViewPage;
  const KnownView known(view);
  if (pages <= kMostViewPages)
    known.entry.store(known.number << kViewSizeBits | pages, std::memory_order_relaxed);
  return pages * kViewPage;
}

void forgetView(const void* view) noexcept {
  const KnownView known(view);
  uint64_t word = known.entry.load(std::memory_order_relaxed);
  if (known.isIn(word)) known.entry.compare_exchange_strong(word, 0, std::memory_order_relaxed);
}

}  // namespace oss
