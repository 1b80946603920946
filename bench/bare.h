// bare.h - the physical limit of the atomic primitives: the bare instructions, in assembly, so that
// nothing of the library or the compiler's own wrappers has a part in them.
#pragma once

#include <cstdint>

namespace oss::bench {

inline uint8_t bareExchange(volatile uint8_t* latch) noexcept {
  uint8_t value = 0x80;
  __asm__ volatile("xchgb %0, %1" : "+q"(value), "+m"(*latch) : : "memory");
  return value;
}

inline void bareStore(volatile uint8_t* latch) noexcept {
  __asm__ volatile("movb $0, %0" : "=m"(*latch) : : "memory");
}

inline uint32_t bareFetchAndAdd(volatile uint32_t* target, uint32_t value) noexcept {
  __asm__ volatile("lock xaddl %0, %1" : "+r"(value), "+m"(*target) : : "memory", "cc");
  return value;
}

inline uint64_t bareCompareAndSwap(volatile uint64_t* target, uint64_t desired,
                                   uint64_t expected) noexcept {
  __asm__ volatile("lock cmpxchgq %2, %1"
                   : "+a"(expected), "+m"(*target)
                   : "r"(desired)
                   : "memory", "cc");
  return expected;
}

// Calls one of them the way a program calls a function of a DLL, through a pointer in memory. So
// the peer of an exported function pays for the same call.
template <auto kFunction>
inline auto* volatile likeImport = kFunction;

}  // namespace oss::bench
