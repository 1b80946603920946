#include "slotscan.h"

#include <algorithm>
#include <cstring>

namespace oss::tool {
namespace {

bool isZero(const char* slot) {
  return std::all_of(slot, slot + RAMBO_SLOT, [](char c) { return c == 0; });
}

uint32_t trailerOf(const char* record, size_t size) {
  uint32_t trailer;
  std::memcpy(&trailer, record + size - sizeof trailer, sizeof trailer);
  return trailer;
}

}  // namespace

size_t SlotScan::scan(const char* data, size_t size, bool isLast) {
  size_t at = 0;
  while (size - at >= RAMBO_SLOT) {
    const char* const slot = data + at;
    RamboRecordHead head;
    std::memcpy(&head, slot, sizeof head);
    const size_t length = size_t{head.slots} * RAMBO_SLOT;

    const bool marked = head.mark == RAMBO_RECORD_MARK;
    const bool counted = head.slots != 0 && head.slots <= RAMBO_CHUNK_SLOTS;
    if (marked && counted && length > size - at && !isLast) break;

    at += RAMBO_SLOT;
    if (!marked && isZero(slot)) {
      ++neverWritten_;
      ++slots_;
    } else if (!marked) {
      reject(Reject::NotARecord);
    } else if (!counted) {
      reject(Reject::SlotCount);
    } else if (length > size - (at - RAMBO_SLOT)) {
      reject(Reject::CutOff);
    } else if (trailerOf(slot, length) != ~head.sequence) {
      reject(Reject::Trailer);
    } else if (isStale(head.sequence)) {
      reject(Reject::Stale);
    } else {
      ++records_;
      recordSlots_ += head.slots;
      slots_ += head.slots;
      at += length - RAMBO_SLOT;
    }
  }
  return at;
}

}  // namespace oss::tool
