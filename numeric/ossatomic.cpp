// The exported atomic primitives and the versioned counter.
#include "numeric/ossatomic.h"

#include "osscatalog.h"
#include "osslatch.h"

// ---- Primitives ----

uint8_t ossWin32Lock8ExchangeInternal(volatile uint8_t* latch) noexcept {
  return oss::exchangeHeld(latch);
}

void ossWin32Lock8ReleaseInternal(volatile uint8_t* latch) noexcept { oss::storeZero(latch); }

uint8_t ossWin32Lock8ReleaseAndReturnInternal(volatile uint8_t* latch) noexcept {
  return oss::exchangeFree(latch);
}

uint32_t ossWin32Lock8TestGetInternal(volatile uint8_t* latch) noexcept {
  // Deliberate: takes a latch of one byte by a bit test of four.
  using Word [[gnu::may_alias]] = uint32_t;
  constexpr uint32_t kTaken = 0;
  constexpr uint32_t kRefused = 0x870F0035;
  return oss::testAndSetHeld(reinterpret_cast<volatile Word*>(latch)) ? kRefused : kTaken;
}

uint8_t ossWin32AtomicExchange8Internal(volatile uint8_t* target, uint8_t value) noexcept {
  return oss::exchange(target, value);
}

uint32_t ossWin32AtomicExchange32Internal(volatile uint32_t* target, uint32_t value) noexcept {
  return oss::exchange(target, value);
}

uint64_t ossWindowsAMD64AtomicExchange64Internal(volatile uint64_t* target,
                                                 uint64_t value) noexcept {
  return oss::exchange(target, value);
}

uint32_t ossWin32FetchAndAdd32Internal(volatile uint32_t* target, uint32_t value) noexcept {
  return oss::fetchAndAdd(target, value);
}

uint8_t ossWin32CompareSwapAndReturn8Internal(volatile uint8_t* target, uint8_t desired,
                                              uint8_t expected) noexcept {
  return oss::compareAndSwap(target, desired, expected);
}

uint16_t ossWin32CompareSwapAndReturn16Internal(volatile uint16_t* target, uint16_t desired,
                                                uint16_t expected) noexcept {
  return oss::compareAndSwap(target, desired, expected);
}

uint32_t ossWin32CompareSwapAndReturn32Internal(volatile uint32_t* target, uint32_t desired,
                                                uint32_t expected) noexcept {
  return oss::compareAndSwap(target, desired, expected);
}

uint64_t ossWindowsAMD64CompareSwapAndReturn64Internal(volatile uint64_t* target, uint64_t desired,
                                                       uint64_t expected) noexcept {
  return oss::compareAndSwap(target, desired, expected);
}

void ossWindowsAMD64EmitPause() noexcept { oss::pause(); }

// ---- The versioned counter ----

namespace {

// Why an operation on the counter is refused, or 0. The version comes first, as everywhere.
OSSErr refusal(const OSSVAtomicSigned32& counter) noexcept {
  return counter.version >= OSS_VERSION_OLDEST ? ECF_OK : ECF_INVALID_VERSION;
}

OSSErr refusal(const OSSVAtomicSigned32& counter, const int32_t* result) noexcept {
  if (const OSSErr rc = refusal(counter)) return rc;
  return result != nullptr ? ECF_OK : ECF_INVALID_PARAMETER;
}

}  // namespace

OSSErr OSSVAtomicSigned32::init(int32_t newValue, uint32_t flags) noexcept {
  if ((flags & kKeepValue) == 0) __atomic_store_n(&value, newValue, __ATOMIC_RELEASE);
  version = OSS_LATCH_VERSION;
  return ECF_OK;
}

uint64_t OSSVAtomicSigned32::size() const noexcept { return sizeof value; }

OSSErr OSSVAtomicSigned32::peek(int32_t* out) const noexcept {
  if (const OSSErr rc = refusal(*this, out)) return rc;

  *out = __atomic_load_n(&value, __ATOMIC_ACQUIRE);
  return ECF_OK;
}

OSSErr OSSVAtomicSigned32::poke(int32_t newValue) noexcept {
  if (const OSSErr rc = refusal(*this)) return rc;

  __atomic_store_n(&value, newValue, __ATOMIC_RELEASE);
  return ECF_OK;
}

OSSErr OSSVAtomicSigned32::add(int32_t addend, int32_t* old) noexcept {
  if (const OSSErr rc = refusal(*this, old)) return rc;

  *old = oss::fetchAndAdd(&value, addend);
  return ECF_OK;
}

OSSErr OSSVAtomicSigned32::increment(int32_t* old) noexcept { return add(1, old); }

OSSErr OSSVAtomicSigned32::decrement(int32_t* old) noexcept { return add(-1, old); }

OSSErr OSSVAtomicSigned32::swap(int32_t newValue, int32_t* old) noexcept {
  if (const OSSErr rc = refusal(*this, old)) return rc;

  *old = oss::exchange(&value, newValue);
  return ECF_OK;
}

OSSErr OSSVAtomicSigned32::compareAndSwap(int32_t expected, int32_t desired) noexcept {
  if (const OSSErr rc = refusal(*this)) return rc;

  return oss::compareAndSwap(&value, desired, expected) == expected ? ECF_OK : ECF_FAILED;
}
