// The two ends of a transfer.
#include "ipc/ossqueuetransfer.h"

#include <algorithm>

#include "core/osssystem.h"
#include "numeric/ossatomic.h"
#include "numeric/ossspintuning.h"
#include "osslatch.h"

namespace oss {
namespace {

// What is copied while the state latch is held. Beyond it, two more turns of the latch cost less
// than keeping the other end waiting.
constexpr uint64_t kCopiedUnderLatch = 1024;
// A long piece is handed over in parts, so that the other end can begin with the first while the
// next is copied, out of a cache that still holds it.
constexpr uint64_t kPartBytes = uint64_t{16} << 10;

// How long an end looks before it sleeps: about as long as a sleep takes with its wake-up, so that
// looking at most doubles the wait. It has to outlast the call with which the other end posts. An
// end that sleeps before the other one has come back from there is woken for each message anew.
// It gives up its processor now and then, in case the other end needs that very one; where somebody
// else keeps it, the time is over with the first try.
constexpr uint64_t kLookCycles = 250'000;
constexpr uint32_t kLooksBetweenYields = 20;

// Calls `isReady` until it says so or the time is over.
template <class IsReady>
bool lookForAWhile(IsReady isReady) noexcept {
  // On a single processor nothing changes while this end keeps it.
  const uint32_t looks = tuned(&OSSSpinTune::spinCount) != 0 ? kLooksBetweenYields : 1;
  const uint64_t start = __builtin_ia32_rdtsc();
  do {
    for (uint32_t look = 0; look < looks; ++look) {
      if (isReady()) return true;
      pause();
    }
    system::sleep(0);
  } while (__builtin_ia32_rdtsc() - start < kLookCycles);
  return isReady();
}

bool isFree(const uint8_t& latch) noexcept {
  return __atomic_load_n(&latch, __ATOMIC_RELAXED) == kLatchFree;
}

// The conflict wait of latches soon sleeps for a millisecond, in which a thousand messages pass.
[[gnu::cold]] void waitForLatch(uint8_t& latch) noexcept {
  if (!lookForAWhile([&] { return isFree(latch) && exchangeHeld(&latch) == kLatchFree; }))
    ossLockGetConflict(&latch);
}

void takeLatch(uint8_t& latch) noexcept {
  if (exchangeHeld(&latch) != kLatchFree) [[unlikely]]
    waitForLatch(latch);
}

// What is different between the ends.
struct Side {
  uint8_t OSSIPCQueueHeader::*latch;
  uint8_t OSSIPCQueueHeader::*waiting;
  bool (QueueRing::*isReady)() const noexcept;
  OSSErr (QueueSleep::*await)(uint32_t) noexcept;
  OSSErr (QueueSleep::*post)() noexcept;
  uint64_t probeWakesOther;
};

constexpr Side kWriter = {.latch = &OSSIPCQueueHeader::putLatch,
                          .waiting = &OSSIPCQueueHeader::writerWaiting,
                          .isReady = &QueueRing::looksWritable,
                          .await = &QueueSleep::awaitSpace,
                          .post = &QueueSleep::postSpace,
                          .probeWakesOther = kProbePutWake};
constexpr Side kReader = {.latch = &OSSIPCQueueHeader::getLatch,
                          .waiting = &OSSIPCQueueHeader::readerWaiting,
                          .isReady = &QueueRing::looksReadable,
                          .await = &QueueSleep::awaitData,
                          .post = &QueueSleep::postData,
                          .probeWakesOther = kProbeGetWake};

// One end for the length of an operation: holds its own latch throughout, and the state latch
// wherever nothing else is said. Steps return false when the transfer has stopped; end() says why.
template <const Side& kSelf, const Side& kOther>
class QueueEnd {
 public:
  QueueEnd(const QueueEnd&) = delete;
  QueueEnd& operator=(const QueueEnd&) = delete;

 protected:
  QueueEnd(const QueueRing& ring, QueueSleep& sleep) noexcept : ring_(ring), sleep_(sleep) {
    takeLatch(ring_.header().*kSelf.latch);
    takeState();
  }
  ~QueueEnd() {
    if (holdsState_) releaseState();
    storeZero(&(ring_.header().*kSelf.latch));
  }

  TransferEnd end() const noexcept { return end_; }

  bool stop(uint64_t probe, OSSErr rc) noexcept {
    end_ = {.probe = probe, .rc = rc};
    return false;
  }

  // What is read of the state holds until the latch is released.
  bool readState() noexcept { return ring_.read(state_) || stop(kProbeUnsound, ECF_FAILED); }

  // Wakes the other end if it sleeps. The flag is cleared under the state latch, and the post comes
  // without it, for who wakes needs it at once.
  bool wakeOther() noexcept {
    uint8_t& waiting = ring_.header().*kOther.waiting;
    if (__atomic_load_n(&waiting, __ATOMIC_RELAXED) == 0) [[likely]]
      return true;

    __atomic_store_n(&waiting, uint8_t{0}, __ATOMIC_RELAXED);
    releaseState();
    if (const OSSErr rc = (sleep_.*kOther.post)()) return stop(kSelf.probeWakesOther, rc);
    takeState();
    return true;
  }

  // Waits until the other end may have come round, which the caller has to read from the state. A
  // time-out stops at `probe`.
  bool await(uint32_t milliseconds, uint64_t probe, uint64_t probeOfFailure) noexcept {
    if (!wakeOther()) return false;
    releaseState();
    const bool comesRound = lookForAWhile([this] { return isReady(); });
    takeState();
    if (comesRound) return true;

    // Waking releases the latch, and so all is asked again behind it.
    while (!isReady()) {
      if (isOtherAwake()) return sleep(milliseconds, probe, probeOfFailure);
      if (!wakeOther()) return false;
    }
    return true;
  }

  // Runs a copy of `count` bytes, a long one without the state latch.
  template <class Copy>
  bool copyBeside(uint64_t count, Copy copy) noexcept {
    if (count <= kCopiedUnderLatch) {
      copy();
      return true;
    }
    releaseState();
    copy();
    takeState();
    return readState();
  }

  const QueueRing ring_;
  RingState state_ = {};

 private:
  void takeState() noexcept {
    takeLatch(ring_.header().stateLatch);
    holdsState_ = true;
  }
  void releaseState() noexcept {
    storeZero(&ring_.header().stateLatch);
    holdsState_ = false;
  }

  bool isReady() const noexcept { return (ring_.*kSelf.isReady)(); }
  bool isOtherAwake() const noexcept {
    return __atomic_load_n(&(ring_.header().*kOther.waiting), __ATOMIC_RELAXED) == 0;
  }

  // Deliberate: a sleep that fails or times out leaves the flag set and the latch free.
  bool sleep(uint32_t milliseconds, uint64_t probe, uint64_t probeOfFailure) noexcept {
    __atomic_store_n(&(ring_.header().*kSelf.waiting), uint8_t{1}, __ATOMIC_RELAXED);
    releaseState();
    if (const OSSErr rc = (sleep_.*kSelf.await)(milliseconds))
      return stop(rc == ECF_TIMEOUT ? probe : probeOfFailure, rc);
    takeState();
    return true;
  }

  QueueSleep& sleep_;
  bool holdsState_ = false;
  TransferEnd end_;
};

// ---- Into the ring ----

class TransferIn : QueueEnd<kWriter, kReader> {
 public:
  TransferIn(const QueueRing& ring, QueueSleep& sleep, const void* message, uint64_t size) noexcept
      : QueueEnd(ring, sleep), message_(static_cast<const uint8_t*>(message)), size_(size) {}

  TransferEnd run() noexcept {
    bool isWhole = false;
    // What streams wakes behind each piece. Waking once more would promise bytes that are not
    // there.
    if (putFirst(isWhole)) static_cast<void>(isWhole ? wakeOther() : putRest());
    return end();
  }

 private:
  // Until there is room for the length at least.
  bool awaitSpace(uint64_t probe) noexcept {
    if (!readState()) return false;
    while (state_.free() < kLengthBytes)
      if (!await(kWaitForEver, probe, probe) || !readState()) return false;
    return true;
  }

  // Puts the whole message if there is room for it, else its length.
  bool putFirst(bool& isWhole) noexcept {
    do {
      if (!awaitSpace(kProbePutAwaitLength)) return false;
      isWhole = size_ <= state_.free() - kLengthBytes;
      if (isWhole && !place(kLengthBytes, message_, size_)) return false;
    } while (isWhole && !isPlaced_);

    ring_.setLength(state_, size_);
    ring_.publish(state_, kLengthBytes + (isWhole ? size_ : 0));
    return true;
  }

  bool putRest() noexcept {
    for (uint64_t done = 0; done < size_;) {
      if (!awaitSpace(kProbePutAwaitPiece)) return false;
      const uint64_t part = std::min({state_.free(), size_ - done, kPartBytes});
      if (!place(0, message_ + done, part)) return false;
      if (!isPlaced_) continue;

      ring_.publish(state_, part);
      done += part;
      if (!wakeOther()) return false;
    }
    return true;
  }

  // Copies bytes so far behind the ring's last one, where nobody reads yet. A flush meanwhile moves
  // that place, and they have to be placed again; where it stays at 0, they lie in their place.
  bool place(uint64_t lead, const uint8_t* bytes, uint64_t count) noexcept {
    const uint64_t offset = state_.behind(state_.writeOffset, lead);
    if (count <= kCopiedUnderLatch) {
      ring_.copyIn(state_, offset, bytes, count);
      isPlaced_ = true;
      return true;
    }

    const RingState before = state_;
    if (!copyBeside(count, [&] { ring_.copyIn(before, offset, bytes, count); })) return false;
    isPlaced_ = state_.writeOffset == before.writeOffset && state_.capacity == before.capacity;
    return true;
  }

  const uint8_t* message_;
  uint64_t size_;
  bool isPlaced_ = false;
};

// ---- Out of the ring ----

class TransferOut : QueueEnd<kReader, kWriter> {
 public:
  TransferOut(const QueueRing& ring, QueueSleep& sleep, void* buffer, uint64_t bufferSize,
              uint32_t milliseconds) noexcept
      : QueueEnd(ring, sleep),
        buffer_(static_cast<uint8_t*>(buffer)),
        bufferSize_(bufferSize),
        milliseconds_(milliseconds) {}

  TransferEnd run(uint64_t* length) noexcept {
    // Each piece wakes behind itself. Waking once more would promise room that is not there.
    if (awaitLength(length))
      static_cast<void>(isShortAndWhole(*length) ? getWhole(*length) : getPieces(*length));
    return end();
  }

 private:
  // The length of the next message, which stays where it is unless the message is too long.
  bool awaitLength(uint64_t* length) noexcept {
    if (!readState()) return false;
    if (!state_.notEmpty && milliseconds_ == 0)
      return wakeOther() && stop(0, ECF_QUE_INVALID_MSG_TYPE);
    if (!awaitData(kProbeGetAwaitLength)) return false;

    *length = ring_.length(state_);
    if (*length <= bufferSize_) return true;

    // Deliberate: the length is gone and the message stays, so that the next get takes its first
    // bytes for a length.
    ring_.consume(state_, kLengthBytes);
    return wakeOther() && stop(kProbeGetTooBig, ECF_QUE_MSG_TOO_BIG);
  }

  bool isShortAndWhole(uint64_t length) const noexcept {
    return length <= kCopiedUnderLatch && kLengthBytes + paddedToUnit(length) <= state_.used();
  }

  bool getWhole(uint64_t length) noexcept {
    ring_.copyOut(state_, state_.behind(state_.readOffset, kLengthBytes), buffer_, length);
    ring_.consume(state_, kLengthBytes + length);
    return wakeOther();
  }

  bool getPieces(uint64_t length) noexcept {
    ring_.consume(state_, kLengthBytes);
    for (uint64_t done = 0; done < length;) {
      if (!readState() || !awaitData(kProbeGetAwaitPiece)) return false;
      uint64_t part = std::min({state_.used(), length - done, kPartBytes});
      // A flush shows by the offset 0: from there, a copy could not tell and keeps the latch.
      if (state_.readOffset == 0) part = std::min(part, kCopiedUnderLatch);

      const RingState before = state_;
      if (!copyBeside(part,
                      [&] { ring_.copyOut(before, before.readOffset, buffer_ + done, part); }))
        return false;
      // What a flush may have torn counts as flushed.
      if (state_.readOffset != before.readOffset || state_.capacity != before.capacity) continue;

      ring_.consume(state_, part);
      done += part;
      if (!wakeOther()) return false;
    }
    return true;
  }

  // Until there is something to read; the state has been read.
  bool awaitData(uint64_t probe) noexcept {
    while (!state_.notEmpty)
      if (!await(milliseconds_, probe, probe + 10) || !readState()) return false;
    return true;
  }

  uint8_t* buffer_;
  uint64_t bufferSize_;
  uint32_t milliseconds_;
};

}  // namespace

TransferEnd putMessage(const QueueRing& ring, QueueSleep& sleep, const void* message,
                       uint64_t size) noexcept {
  return TransferIn(ring, sleep, message, size).run();
}

TransferEnd getMessage(const QueueRing& ring, QueueSleep& sleep, void* buffer, uint64_t bufferSize,
                       uint64_t* length, uint32_t milliseconds) noexcept {
  return TransferOut(ring, sleep, buffer, bufferSize, milliseconds).run(length);
}

}  // namespace oss
