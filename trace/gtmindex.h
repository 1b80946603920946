// gtmindex.h - the numbers of a trace mask: how products and components map to component records,
// and its bitmaps.
//
// A component is known by its global index: the first index of its product's range and its number.
#pragma once

#include <cstdint>

namespace oss {

inline constexpr uint64_t kMaskProducts = 32;
inline constexpr uint32_t kMaskComponents = 257;  // index 0 stands for none
inline constexpr uint64_t kMaskFunctions = 4096;
inline constexpr uint64_t kMaskTypes = 16;

// The range of component indexes that a product owns.
struct ComponentRange {
  uint32_t product;
  uint32_t capacity;
  uint32_t first;
};

inline constexpr uint32_t kNoProduct = 0xFFFFFFFF;
inline constexpr ComponentRange kComponentRanges[] = {
    {1, 32, 1},
    {2, 32, 33},
    {3, 192, 65},
    {kNoProduct, 0, 0},
};

// The last row, of capacity 0, for a product that owns none.
constexpr const ComponentRange& rangeOf(uint64_t product) noexcept {
  const ComponentRange* range = kComponentRanges;
  while (range->product != product && range->product != kNoProduct) ++range;
  return *range;
}

// A component's global index; 0 when the mask has no room for it.
constexpr uint32_t indexOf(uint64_t product, uint64_t component) noexcept {
  const ComponentRange& range = rangeOf(product);
  // Deliberate: a component beyond its product's capacity lands in the next product's range.
  if (range.capacity == 0 || component >= kMaskComponents - range.first) return 0;
  return range.first + static_cast<uint32_t>(component);
}

// The same of the component that a function identifier names.
constexpr uint32_t indexOfIdentifier(uint32_t funcId) noexcept {
  return indexOf(funcId >> 27, funcId >> 19 & 0xFF);
}

// Bit n of a bitmap lies in byte n / 8 at position n % 8.
constexpr bool hasBit(const uint8_t* bitmap, uint64_t bit) noexcept {
  return (bitmap[bit / 8] >> bit % 8 & 1) != 0;
}
constexpr void setBit(uint8_t* bitmap, uint64_t bit) noexcept {
  bitmap[bit / 8] = static_cast<uint8_t>(bitmap[bit / 8] | 1 << bit % 8);
}
constexpr void clearBit(uint8_t* bitmap, uint64_t bit) noexcept {
  bitmap[bit / 8] = static_cast<uint8_t>(bitmap[bit / 8] & ~(1 << bit % 8));
}

}  // namespace oss
