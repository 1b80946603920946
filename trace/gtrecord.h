// gtrecord.h - how a record's payload is written: the fixed fields, and the items behind them.
//
// Always true: a payload is written front to back into slots that the writer has reserved, and the
// seal (rambo.h) publishes it.
#pragma once

#include <cstring>
#include <span>

#include "osstracerecord.h"

namespace oss {

using TraceItemArguments = std::span<const GTraceItemArgument>;

// How much of a record's items there is room for.
struct ItemRoom {
  uint32_t count;  // items that are kept
  uint32_t bytes;  // their descriptors and data
  bool cut;        // the last one was longer
};

inline constexpr uint32_t kMostItemBytes = 65'535;
inline constexpr uint32_t kDescriptorBytes = sizeof(GTraceItem);

// Descriptors and data together stay below 64 KiB: the item that goes beyond is cut and is the
// last.
[[gnu::cold]] ItemRoom roomForSome(TraceItemArguments items) noexcept;

inline ItemRoom roomFor(TraceItemArguments items) noexcept {
  uint64_t bytes = 0;
  uint64_t lengths = 0;  // the bits of all of them
  for (const GTraceItemArgument& item : items) {
    bytes += kDescriptorBytes + item.length;
    lengths |= item.length;
  }
  if ((lengths | bytes | items.size()) > kMostItemBytes) [[unlikely]]
    return roomForSome(items);
  return {static_cast<uint32_t>(items.size()), static_cast<uint32_t>(bytes), false};
}

// Nearly every item is short; a call of the run-time's copy costs more than all the rest.
inline void copyItem(char* out, const char* from, uint32_t length) noexcept {
  if (length >= 16) {
    if (length > 128) {
      std::memcpy(out, from, length);
      return;
    }
    for (uint32_t at = 0; at + 16 < length; at += 16) std::memcpy(out + at, from + at, 16);
    std::memcpy(out + length - 16, from + length - 16, 16);
  } else if (length >= 8) {
    std::memcpy(out, from, 8);
    std::memcpy(out + length - 8, from + length - 8, 8);
  } else if (length >= 4) {
    std::memcpy(out, from, 4);
    std::memcpy(out + length - 4, from + length - 4, 4);
  } else {
    for (uint32_t at = 0; at < length; ++at) out[at] = from[at];
  }
}

// A descriptor keeps 32 bits of the type; they decide.
constexpr bool isValue(const GTraceItemArgument& item) noexcept {
  const auto type = static_cast<uint32_t>(item.type);
  return type == GTRACE_ITEM_VALUE_1 || type == GTRACE_ITEM_VALUE_2;
}

// Writes an item that is no block of memory: a value, or nothing for a null pointer, whose room
// stays unused. Returns the bytes that were written.
[[gnu::cold]] uint32_t writeValue(char* out, const GTraceItemArgument& item, GTraceItem& descriptor,
                                  uint32_t length) noexcept;

// Writes the item's first `length` bytes.
inline uint32_t writeItem(char* out, const GTraceItemArgument& item, GTraceItem& descriptor,
                          uint32_t length) noexcept {
  descriptor = {static_cast<uint32_t>(item.type), length};
  if (isValue(item) || item.value == 0) [[unlikely]]
    return writeValue(out, item, descriptor, length);
  copyItem(out, reinterpret_cast<const char*>(static_cast<uintptr_t>(item.value)), length);
  return length;
}

// Writes as many items as there is room for; the last one is cut.
[[gnu::cold]] void writeCutItems(GTraceItem* descriptors, TraceItemArguments items,
                                 ItemRoom room) noexcept;

// Writes descriptors and, behind them, items: room.bytes in all.
inline void writeItems(GTraceItem* descriptors, TraceItemArguments items,
                       const ItemRoom& room) noexcept {
  if (room.cut) [[unlikely]]
    return writeCutItems(descriptors, items, room);
  auto* data = reinterpret_cast<char*>(descriptors + room.count);
  for (uint32_t i = 0; i < room.count; ++i)
    data += writeItem(data, items[i], descriptors[i], static_cast<uint32_t>(items[i].length));
}

}  // namespace oss
