// osslatch.h - the lowest layer of synchronisation: atomic primitives, the one-byte spin latch and
// its tuning, the versioned latch and the versioned counter.
//
//   7 6 5 4 3 2 1 0     0x00 free   0x80 held   0xC0 held, somebody waits   other: corrupt
//  [H|W|. . . . . .]
//
// A latch is one byte, usually in shared memory, and all zero it is a free latch. It is taken by an
// exchange with 0x80 that returns 0 and released by a plain store of 0. Nothing records who holds
// it: a holder that ends without releasing leaves it held, and a second take by the same thread
// waits for ever.
//
// Any thread of any process that sees the memory may use everything here at any time. No operation
// traces or logs.
#pragma once

#include "osstypes.h"

extern "C" {

// ---- Atomic primitives --------------------------------------------------------------------------
//
// Sequentially consistent, one locked instruction each. The pointer must not be null and must be
// aligned to the width.

/// Exchanges the byte with 0x80. \return the old byte; 0 means that the latch was free and is taken
OSS_API uint8_t ossWin32Lock8ExchangeInternal(volatile uint8_t* latch) noexcept;
/// Stores 0, plainly: what the holder wrote before is visible to the next one.
OSS_API void ossWin32Lock8ReleaseInternal(volatile uint8_t* latch) noexcept;
/// Exchanges the byte with 0. \return the old byte
OSS_API uint8_t ossWin32Lock8ReleaseAndReturnInternal(volatile uint8_t* latch) noexcept;
/// Sets bit 7 of the 32-bit word at `latch`; the three bytes behind the latch must be accessible.
/// \return 0 when the bit was clear and the latch is taken, otherwise 0x870F0035, which is no
///         catalogued code
OSS_API uint32_t ossWin32Lock8TestGetInternal(volatile uint8_t* latch) noexcept;

/// Exchanges the value. \return the old one
OSS_API uint8_t ossWin32AtomicExchange8Internal(volatile uint8_t* target, uint8_t value) noexcept;
OSS_API uint32_t ossWin32AtomicExchange32Internal(volatile uint32_t* target,
                                                  uint32_t value) noexcept;
OSS_API uint64_t ossWindowsAMD64AtomicExchange64Internal(volatile uint64_t* target,
                                                         uint64_t value) noexcept;

/// Adds, wrapping around. \return the value before
OSS_API uint32_t ossWin32FetchAndAdd32Internal(volatile uint32_t* target, uint32_t value) noexcept;

/// Stores `desired` if the target holds `expected`. \return the old value: `expected` means stored
OSS_API uint8_t ossWin32CompareSwapAndReturn8Internal(volatile uint8_t* target, uint8_t desired,
                                                      uint8_t expected) noexcept;
OSS_API uint16_t ossWin32CompareSwapAndReturn16Internal(volatile uint16_t* target, uint16_t desired,
                                                        uint16_t expected) noexcept;
OSS_API uint32_t ossWin32CompareSwapAndReturn32Internal(volatile uint32_t* target, uint32_t desired,
                                                        uint32_t expected) noexcept;
OSS_API uint64_t ossWindowsAMD64CompareSwapAndReturn64Internal(volatile uint64_t* target,
                                                               uint64_t desired,
                                                               uint64_t expected) noexcept;

/// Tells the processor that this thread spins.
OSS_API void ossWindowsAMD64EmitPause() noexcept;

// ---- The latch ----------------------------------------------------------------------------------

/// Waits for a latch that was not free and returns when the caller holds it: spins as tuned, then
/// sleeps between further tries. A corrupt byte below 0x80 becomes 0x80 and is waited for. Null
/// returns at once.
OSS_API void ossLockGetConflict(volatile uint8_t* latch) noexcept;

/// Describes the latch as "{ 0x80 [ locked ] }": its byte and "unlocked", "locked",
/// "locked;waiting" or "corrupt".
/// \param buffer  receives the text, cut to `size` bytes with its NUL; null only classifies
/// \retval 0                      the byte is one of the three valid ones
/// \retval ECF_OSSLOCK_CORRUPT    it is not
/// \retval ECF_INVALID_PARAMETER  latch is null
OSS_API OSSErr ossLockToString(const volatile uint8_t* latch, char* buffer, uint64_t size) noexcept;

/// Checks the latch byte against a state.
/// \param expectedState  2 finds every byte corrupt; any other value accepts each valid byte
/// \retval 0                      accepted
/// \retval ECF_OSSLOCK_CORRUPT    the byte is not valid, or expectedState is 2
/// \retval ECF_INVALID_PARAMETER  latch is null
OSS_API OSSErr ossLockVerify(const volatile uint8_t* latch, uint64_t expectedState) noexcept;

/// Passes the time of n - 1 additions. \return a throwaway number
OSS_API uint32_t ossWasteTime(uint32_t n) noexcept;

}  // extern "C"

/// How a conflict wait spins and sleeps. The library fills it while it loads, by the number of
/// processors; a single processor does not spin.
struct OSSSpinTune {
  uint32_t reserved0 = 0;       ///< kept, not used by the wait
  uint32_t spinCount = 0;       ///< tries in a round before sleeping
  uint32_t spinDelay = 0;       ///< length of the busy loop between tries
  uint32_t reserved3 = 0;       ///< kept, not used by the wait
  uint32_t sleepIncrement = 0;  ///< milliseconds that each round adds to the sleep; see below
};
OSS_LAYOUT(OSSSpinTune, 20);
OSS_FIELD(OSSSpinTune, reserved0, 0, 4);
OSS_FIELD(OSSSpinTune, spinCount, 4, 4);
OSS_FIELD(OSSSpinTune, spinDelay, 8, 4);
OSS_FIELD(OSSSpinTune, reserved3, 12, 4);
OSS_FIELD(OSSSpinTune, sleepIncrement, 16, 4);

/// The tuning of all conflict waits of the process. The first sleep of a wait is 1 ms, and so it is
/// again when the sum has passed eight increments; with the increment 0 every sleep is.
class OSS_API OSSLatch {
 public:
  OSSLatch() = delete;

  /// Copies all five fields in. Not guarded: a waiter may for a moment see old and new ones mixed.
  static void updateSpinCounts(const OSSSpinTune& tune) noexcept;
  /// Copies all five fields out, with the same reservation.
  static void getSpinCounts(OSSSpinTune& tune) noexcept;
};

// ---- The versioned latch ------------------------------------------------------------------------

/// The version that initialisation stamps on the two records below. A record is valid from
/// OSS_VERSION_OLDEST on; on an older one (so also on one of all zeros) every other operation
/// returns ECF_INVALID_VERSION and does nothing.
inline constexpr uint32_t OSS_LATCH_VERSION = 0x09010007;

struct OSSVLatch {
  uint32_t version = 0;
  uint8_t latch = 0;
};
OSS_LAYOUT(OSSVLatch, 8);
OSS_FIELD(OSSVLatch, version, 0, 4);
OSS_FIELD(OSSVLatch, latch, 4, 1);

extern "C" {

/// Stamps the version and frees the latch, whatever it held.
/// \retval 0                      done
/// \retval ECF_INVALID_PARAMETER  vlatch is null; so the other three
OSS_API OSSErr ossVLatchInit(OSSVLatch* vlatch) noexcept;
/// Takes the latch, after a conflict wait if it is held.
/// \retval 0                    taken
/// \retval ECF_INVALID_VERSION  the record is not valid; so the other two
OSS_API OSSErr ossVLatchGet(OSSVLatch* vlatch) noexcept;
/// Takes the latch if one exchange can.
/// \retval 0           taken
/// \retval ECF_FAILED  held
OSS_API OSSErr ossVLatchTestGet(OSSVLatch* vlatch) noexcept;
/// Frees the latch, also one that the caller does not hold.
/// \retval 0  free
OSS_API OSSErr ossVLatchRelease(OSSVLatch* vlatch) noexcept;

}  // extern "C"

// ---- The versioned counter ----------------------------------------------------------------------

/// A signed 32-bit number that threads and processes change atomically. Sums wrap around. Each
/// operation but init and size returns
/// \retval 0                      done
/// \retval ECF_INVALID_VERSION    the record is not valid
/// \retval ECF_INVALID_PARAMETER  the pointer for the result is null; nothing is changed
struct OSS_API OSSVAtomicSigned32 {
  uint32_t version = 0;
  int32_t value = 0;

  /// A flag of init: the current value stays.
  static constexpr uint32_t kKeepValue = 2;

  /// Stamps the version and stores the value. \return 0
  OSSErr init(int32_t newValue, uint32_t flags) noexcept;
  /// The bytes of the value, 4.
  uint64_t size() const noexcept;

  OSSErr peek(int32_t* out) const noexcept;
  OSSErr poke(int32_t newValue) noexcept;
  /// These four give the value before the change.
  OSSErr add(int32_t addend, int32_t* old) noexcept;
  OSSErr increment(int32_t* old) noexcept;
  OSSErr decrement(int32_t* old) noexcept;
  OSSErr swap(int32_t newValue, int32_t* old) noexcept;
  /// \retval ECF_FAILED  the value was not `expected` and stays
  OSSErr compareAndSwap(int32_t expected, int32_t desired) noexcept;
};
OSS_LAYOUT(OSSVAtomicSigned32, 8);
OSS_FIELD(OSSVAtomicSigned32, version, 0, 4);
OSS_FIELD(OSSVAtomicSigned32, value, 4, 4);
