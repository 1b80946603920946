// ossarea.h - the free list of an area.
//
// Always true, outside the latch: the list descends by size, no two free chunks touch, no link is a
// pointer, and every byte of the usable size belongs to one free chunk or to one allocated one.
// Callers hold the area's latch. The area's contents are trusted: who can write into it can break
// it.
#pragma once

#include "ossmemory.h"

namespace oss {

class AreaList {
 public:
  static constexpr uint64_t kUnit = sizeof(OSSMemChunk);

  explicit AreaList(OSSMemArea& area) noexcept : area_(area) {}

  // Makes the usable size one free chunk.
  static void format(OSSMemArea& area, uint64_t bytes) noexcept;

  // `size` rounded up to whole units; 0 when that is more than 64 bits hold.
  static uint64_t rounded(uint64_t size) noexcept;

  // Takes `size` bytes, a multiple of the unit, from the smallest free chunk that holds them; null
  // when none does.
  void* take(uint64_t size) noexcept;

  // Gives a chunk back and joins it with the free chunks that touch it. False, and nothing changed,
  // when the chunk does not lie in the area or overlaps a free one.
  bool giveBack(void* chunk, uint64_t size) noexcept;

 private:
  OSSMemChunk& at(uint64_t offset) const noexcept {
    return *reinterpret_cast<OSSMemChunk*>(reinterpret_cast<char*>(&area_) + offset);
  }
  uint64_t offsetOf(const void* chunk) const noexcept {
    return reinterpret_cast<uintptr_t>(chunk) - reinterpret_cast<uintptr_t>(&area_);
  }
  bool holds(uint64_t offset, uint64_t size) const noexcept;
  void unlink(uint64_t offset) noexcept;
  void insert(uint64_t offset, uint64_t size) noexcept;

  OSSMemArea& area_;
};

}  // namespace oss
