#include "trace/gtrecord.h"

#include <algorithm>

namespace oss {

ItemRoom roomForSome(TraceItemArguments items) noexcept {
  ItemRoom room = {0, 0, false};
  for (const GTraceItemArgument& item : items) {
    if (room.cut || room.bytes + kDescriptorBytes > kMostItemBytes) break;
    const uint32_t left = kMostItemBytes - kDescriptorBytes - room.bytes;
    room.cut = item.length > left;
    room.bytes += kDescriptorBytes + (room.cut ? left : static_cast<uint32_t>(item.length));
    ++room.count;
  }
  return room;
}

// A value has eight bytes; what is asked for beyond them is zero.
uint32_t writeValue(char* out, const GTraceItemArgument& item, GTraceItem& descriptor,
                    uint32_t length) noexcept {
  if (!isValue(item)) {
    if (length != 0) descriptor.length = GTRACE_NULL_ITEM;
    return 0;
  }
  const uint32_t bytes = std::min<uint32_t>(length, sizeof item.value);
  std::memcpy(out, &item.value, bytes);
  std::memset(out + bytes, 0, length - bytes);
  return length;
}

void writeCutItems(GTraceItem* descriptors, TraceItemArguments items, ItemRoom room) noexcept {
  auto* data = reinterpret_cast<char*>(descriptors + room.count);
  uint32_t left = room.bytes - room.count * kDescriptorBytes;
  for (uint32_t i = 0; i < room.count; ++i) {
    const bool isLast = i + 1 == room.count;
    const uint32_t length = isLast ? left : static_cast<uint32_t>(items[i].length);
    data += writeItem(data, items[i], descriptors[i], length);
    if (isLast) descriptors[i].type = GTRACE_ITEM_TRUNCATED;
    left -= length;
  }
}

}  // namespace oss
