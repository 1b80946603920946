// ossatomic.h - atomic steps on plain integers of 8, 16, 32 and 64 bits, in memory that threads or
// processes share.
//
// Always true: each is one locked instruction and sequentially consistent, but for storeZero, which
// is a plain store. The target must be aligned to its width. Any thread of any process at any time.
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

namespace oss {

// The states of a latch byte.
inline constexpr uint8_t kLatchFree = 0;
inline constexpr uint8_t kLatchHeld = 0x80;
inline constexpr uint8_t kLatchHeldWithWaiters = 0xC0;

template <class T>
concept AtomicWord = std::integral<T> && !std::same_as<T, bool> && sizeof(T) <= 8;

// The target alone decides the width; values follow it.
template <class T>
using ValueOf = std::type_identity_t<T>;

// Returns the old value.
template <AtomicWord T>
inline T exchange(volatile T* target, ValueOf<T> value) noexcept {
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

// Returns the value before the addition, which wraps around.
template <AtomicWord T>
inline T fetchAndAdd(volatile T* target, ValueOf<T> addend) noexcept {
  return __atomic_fetch_add(target, addend, __ATOMIC_SEQ_CST);
}

// Stores `desired` if the target holds `expected`. Returns the old value: `expected` means stored.
template <AtomicWord T>
inline T compareAndSwap(volatile T* target, ValueOf<T> desired, ValueOf<T> expected) noexcept {
  __atomic_compare_exchange_n(target, &expected, desired, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return expected;
}

// Publishes: whoever sees the zero sees all that this thread wrote before.
template <AtomicWord T>
inline void storeZero(volatile T* target) noexcept {
  __atomic_store_n(target, T{0}, __ATOMIC_RELEASE);
}

// Tries a latch in the low byte of the target. Returns the old value; 0 means taken.
template <AtomicWord T>
inline T exchangeHeld(volatile T* latch) noexcept {
  return exchange(latch, static_cast<T>(kLatchHeld));
}

// Frees a latch and returns what it was.
template <AtomicWord T>
inline T exchangeFree(volatile T* latch) noexcept {
  return exchange(latch, T{kLatchFree});
}

// Sets bit 7 and leaves the other bits. Returns whether it was set before.
template <AtomicWord T>
inline bool testAndSetHeld(volatile T* latch) noexcept {
  const T bit = static_cast<T>(kLatchHeld);
  return (__atomic_fetch_or(latch, bit, __ATOMIC_SEQ_CST) & bit) != 0;
}

// Tells the processor that this thread spins.
inline void pause() noexcept { __builtin_ia32_pause(); }

}  // namespace oss
