// The latch: the conflict wait, the texts of its states, the versioned latch.
#include "osslatch.h"

#include "core/osssystem.h"
#include "numeric/ossatomic.h"
#include "numeric/ossspintuning.h"
#include "osscatalog.h"
#include "ossstring.h"

namespace {

// Reads before it exchanges: a byte that is only read stays shared between the waiters' caches.
bool tryLatch(volatile uint8_t* latch) noexcept {
  return __atomic_load_n(latch, __ATOMIC_RELAXED) < oss::kLatchHeld &&
         oss::exchangeHeld(latch) == oss::kLatchFree;
}

// A delay of spinDelay - 1 steps. The bound is read anew in each step, which keeps the compiler
// from removing the loop.
void delayBetweenTries() noexcept {
  uint32_t scratch = 0;
  for (uint32_t step = 1; step < oss::tuned(&OSSSpinTune::spinDelay); ++step) scratch += 5 * step;
  static_cast<void>(scratch);
}

bool spinForLatch(volatile uint8_t* latch) noexcept {
  for (uint32_t left = oss::tuned(&OSSSpinTune::spinCount); left != 0; --left) {
    if (tryLatch(latch)) return true;
    delayBetweenTries();
  }
  return tryLatch(latch);
}

}  // namespace

void ossLockGetConflict(volatile uint8_t* latch) noexcept {
  if (latch == nullptr) return;

  uint32_t milliseconds = 1;
  while (!spinForLatch(latch)) {
    oss::system::sleep(milliseconds);
    milliseconds = oss::nextSleep(milliseconds, oss::tuned(&OSSSpinTune::sleepIncrement));
    if (tryLatch(latch)) return;
  }
}

// ---- States ----

namespace {

constexpr char kCorrupt[] = "corrupt";

const char* stateOf(uint8_t latch) noexcept {
  switch (latch) {
    case oss::kLatchFree: return "unlocked";
    case oss::kLatchHeld: return "locked";
    case oss::kLatchHeldWithWaiters: return "locked;waiting";
    default: return kCorrupt;
  }
}

}  // namespace

OSSErr ossLockToString(const volatile uint8_t* latch, char* buffer, uint64_t size) noexcept {
  if (latch == nullptr) return ECF_INVALID_PARAMETER;

  const uint8_t byte = __atomic_load_n(latch, __ATOMIC_RELAXED);
  const char* const state = stateOf(byte);
  if (buffer != nullptr) ossSnprintf(buffer, size, "{ 0x%02X [ %s ] }", byte, state);
  return state == kCorrupt ? ECF_OSSLOCK_CORRUPT : ECF_OK;
}

OSSErr ossLockVerify(const volatile uint8_t* latch, uint64_t expectedState) noexcept {
  constexpr uint64_t kNeverMet = 2;
  if (const OSSErr rc = ossLockToString(latch, nullptr, 0)) return rc;

  // Deliberate: no byte is in state 2. All other states ask for the low six bits to be clear, which
  // they are in every valid byte.
  return expectedState == kNeverMet ? ECF_OSSLOCK_CORRUPT : ECF_OK;
}

uint32_t ossWasteTime(uint32_t n) noexcept {
  uint32_t sum = 77;
  uint32_t term = n;
  for (uint32_t round = 1; round < n; ++round) {
    sum += term;
    term += n;
    __asm__ volatile("" : "+r"(sum));  // or the compiler finds the sum without looping
  }
  return sum;
}

// ---- The versioned latch ----

namespace {

OSSErr refusal(const OSSVLatch* vlatch) noexcept {
  if (vlatch == nullptr) return ECF_INVALID_PARAMETER;
  return vlatch->version >= OSS_VERSION_OLDEST ? ECF_OK : ECF_INVALID_VERSION;
}

}  // namespace

OSSErr ossVLatchInit(OSSVLatch* vlatch) noexcept {
  if (vlatch == nullptr) return ECF_INVALID_PARAMETER;

  oss::storeZero(&vlatch->latch);
  vlatch->version = OSS_LATCH_VERSION;
  return ECF_OK;
}

OSSErr ossVLatchGet(OSSVLatch* vlatch) noexcept {
  if (const OSSErr rc = refusal(vlatch)) return rc;

  if (oss::exchangeHeld(&vlatch->latch) != oss::kLatchFree) ossLockGetConflict(&vlatch->latch);
  return ECF_OK;
}

OSSErr ossVLatchTestGet(OSSVLatch* vlatch) noexcept {
  if (const OSSErr rc = refusal(vlatch)) return rc;

  return oss::exchangeHeld(&vlatch->latch) == oss::kLatchFree ? ECF_OK : ECF_FAILED;
}

OSSErr ossVLatchRelease(OSSVLatch* vlatch) noexcept {
  if (const OSSErr rc = refusal(vlatch)) return rc;

  oss::storeZero(&vlatch->latch);
  return ECF_OK;
}
