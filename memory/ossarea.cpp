#include "memory/ossarea.h"

namespace oss {

void AreaList::format(OSSMemArea& area, uint64_t bytes) noexcept {
  area = {};
  area.usableSize = (bytes - sizeof area) / kUnit * kUnit;
  if (area.usableSize != 0) AreaList(area).insert(sizeof area, area.usableSize);
}

uint64_t AreaList::rounded(uint64_t size) noexcept {
  const uint64_t units = size / kUnit + (size % kUnit != 0);
  return units <= ~uint64_t{0} / kUnit ? units * kUnit : 0;
}

void* AreaList::take(uint64_t size) noexcept {
  uint64_t best = 0;
  for (uint64_t free = area_.firstFree; free != 0 && at(free).size >= size; free = at(free).next)
    best = free;
  if (best == 0) return nullptr;

  const uint64_t rest = at(best).size - size;
  unlink(best);
  if (rest != 0) insert(best + size, rest);
  return &at(best);
}

bool AreaList::giveBack(void* chunk, uint64_t size) noexcept {
  uint64_t start = offsetOf(chunk);
  if (!holds(start, size)) return false;

  uint64_t end = start + size;
  uint64_t before = 0;
  uint64_t behind = 0;
  for (uint64_t free = area_.firstFree; free != 0; free = at(free).next) {
    const uint64_t freeEnd = free + at(free).size;
    if (free < end && start < freeEnd) return false;
    if (freeEnd == start) before = free;
    if (free == end) behind = free;
  }

  if (behind != 0) {
    end += at(behind).size;
    unlink(behind);
  }
  if (before != 0) {
    unlink(before);
    start = before;
  }
  insert(start, end - start);
  return true;
}

bool AreaList::holds(uint64_t offset, uint64_t size) const noexcept {
  return size != 0 && offset >= sizeof area_ && (offset - sizeof area_) % kUnit == 0 &&
         size <= area_.usableSize && offset - sizeof area_ <= area_.usableSize - size;
}

void AreaList::unlink(uint64_t offset) noexcept {
  const OSSMemChunk& chunk = at(offset);
  if (chunk.previous != 0)
    at(chunk.previous).next = chunk.next;
  else
    area_.firstFree = chunk.next;
  if (chunk.next != 0) at(chunk.next).previous = chunk.previous;
}

void AreaList::insert(uint64_t offset, uint64_t size) noexcept {
  uint64_t previous = 0;
  uint64_t next = area_.firstFree;
  while (next != 0 && at(next).size > size) {
    previous = next;
    next = at(next).next;
  }

  at(offset) = {.next = next, .previous = previous, .size = size};
  if (previous != 0)
    at(previous).next = offset;
  else
    area_.firstFree = offset;
  if (next != 0) at(next).previous = offset;
}

}  // namespace oss
