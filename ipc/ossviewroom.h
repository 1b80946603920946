// ossviewroom.h - how many bytes are mapped at the views that queues work in.
//
// A queue's handle has no place for the size of its view, and what the header says about it is not
// to be believed. The system knows, but asking it costs more than a message. So its answers are
// kept, for the process, in a table that any thread reads and writes without a latch: each entry is
// one word that holds the view's place and its size together. The table is direct-mapped: two views
// may push each other out, which costs them time only.
#pragma once

#include <atomic>
#include <cstdint>

namespace oss {

// Views start at multiples of 64 KiB in an address space of 47 bits, and end with a page: 31 bits
// tell where, 33 bits tell how many pages.
inline constexpr uint64_t kViewGranularity = 0x10000;
inline constexpr uint64_t kViewPage = 0x1000;
inline constexpr uint32_t kViewSizeBits = 33;
inline constexpr uint64_t kMostViewPages = (uint64_t{1} << kViewSizeBits) - 1;

inline constexpr uint64_t kViewEntries = 256;
extern std::atomic<uint64_t> g_views[kViewEntries];

// A view's number, and the entry where it stands if it is known.
struct KnownView {
  explicit KnownView(const void* view) noexcept
      : number(reinterpret_cast<uint64_t>(view) / kViewGranularity),
        entry(g_views[number % kViewEntries]) {}

  bool isIn(uint64_t word) const noexcept { return word >> kViewSizeBits == number; }

  uint64_t number;
  std::atomic<uint64_t>& entry;
};

// Asks the system, and notes the answer.
[[gnu::cold]] uint64_t askForViewBytes(const void* view) noexcept;

// The bytes that can be read and written from the start of a view on; 0 when no view starts there.
inline uint64_t viewBytes(const void* view) noexcept {
  const KnownView known(view);
  const uint64_t word = known.entry.load(std::memory_order_relaxed);
  if (known.isIn(word)) [[likely]]
    return (word & kMostViewPages) * kViewPage;
  return askForViewBytes(view);
}

// To be called for a view that is new, and before one is unmapped: what was there, or will be, may
// have another size.
void forgetView(const void* view) noexcept;

}  // namespace oss
