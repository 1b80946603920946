// osslatchguard.h - holds a latch for the length of a scope.
//
//   7 6 5 4 3 2 1 0     0x00 free   0x80 held   0xC0 held, somebody waits   other: corrupt
//  [H|W|. . . . . .]
//
// Taken by an exchange with 0x80 that returns 0, released by a plain store of 0, so a release also
// drops the mark of a waiter: waiters poll. A thread that takes a latch it already holds waits for
// ever.
#pragma once

#include "numeric/ossatomic.h"
#include "osslatch.h"

namespace oss {

class LatchGuard {
 public:
  explicit LatchGuard(volatile uint8_t& latch) noexcept : latch_(&latch) {
    if (exchangeHeld(latch_) != kLatchFree) [[unlikely]]
      ossLockGetConflict(latch_);
  }
  ~LatchGuard() { release(); }
  LatchGuard(const LatchGuard&) = delete;
  LatchGuard& operator=(const LatchGuard&) = delete;

  // Releases early, as before a sleep. The guard then holds nothing.
  void release() noexcept {
    if (latch_ != nullptr) storeZero(latch_);
    latch_ = nullptr;
  }

  // Lets go without releasing: the latch stays held beyond the scope.
  void abandon() noexcept { latch_ = nullptr; }

 private:
  volatile uint8_t* latch_;
};

}  // namespace oss
