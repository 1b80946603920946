// ossspintuning.h - how a conflict wait spins and sleeps, for the whole process.
//
// Always true: all zero until the library has loaded, then set by the number of processors; a host
// may overwrite it at any time, unguarded, so every field is read and written on its own.
#pragma once

#include <cstdint>

#include "osslatch.h"

namespace oss {

// What the layer of latches and ticks keeps for the process.
struct SpinState {
  OSSSpinTune tune;
  uint32_t processors = 0;
  uint32_t initialized = 0;  // 1 once the library has loaded
};
extern SpinState g_spinState;

// Called once, while the library loads: no other thread uses a latch yet.
void initializeSpinTuning(uint32_t processors) noexcept;

// A field of the tuning as it is now, read from memory each time.
inline uint32_t tuned(uint32_t OSSSpinTune::*field) noexcept {
  const volatile uint32_t& value = g_spinState.tune.*field;
  return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

// The sleep after one of `milliseconds`: longer by the increment, and 1 ms again when that would
// exceed eight increments, which with the increment 0 it always does.
constexpr uint32_t nextSleep(uint32_t milliseconds, uint32_t increment) noexcept {
  const uint64_t longer = uint64_t{milliseconds} + increment;
  return longer > uint64_t{increment} * 8 ? 1 : static_cast<uint32_t>(longer);
}

}  // namespace oss
