#include "passfilter.h"

#include <cstring>

namespace oss::tool {

void PassFilter::walk(const char* slots, uint32_t count, uint32_t firstSequence, char* clear) {
  uint32_t at = carried_;
  while (at < count) {
    const size_t offset = size_t{at} * RAMBO_SLOT;
    RamboRecordHead head;
    std::memcpy(&head, slots + offset, sizeof head);
    const bool isOurs = head.mark == RAMBO_RECORD_MARK && head.sequence == firstSequence + at &&
                        head.slots != 0 && head.slots <= RAMBO_CHUNK_SLOTS;
    if (!isOurs && clear != nullptr) std::memset(clear + offset, 0, RAMBO_SLOT);
    at += isOurs ? head.slots : 1;
  }
  carried_ = at - count;
}

}  // namespace oss::tool
