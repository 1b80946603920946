// ossqueuetransfer.h - one message on its way into or out of the ring: the latches, the pieces, the
// sleeps and who wakes whom.
//
// What every process that uses the queue may rely on stands in ossipcqueueheader.h. Beyond that:
//
//   - A message that fits into what is free appears at once and whole; longer ones stream.
//   - Long pieces are copied without the state latch, so that reader and writer copy at the same
//     time. The writer copies into what is free, which only grows. The reader copies from what is
//     used, which only a flush takes from it; a flush shows, see TransferIn and TransferOut.
//   - Before an end sleeps, and before it returns, it wakes the other end if that sleeps. With a
//     ring of 8 bytes the length alone fills it, and a message of no bytes has no piece that would
//     wake.
//   - Before an end sleeps it looks some time whether the other end is about to come round.
#pragma once

#include <cstdint>

#include "ipc/ossqueuering.h"
#include "osscatalog.h"

namespace oss {

inline constexpr uint32_t kWaitForEver = 0xFFFFFFFF;

// The two semaphores of a queue: where an end sleeps, and how it wakes the other.
class QueueSleep {
 public:
  QueueSleep() = default;
  QueueSleep(const QueueSleep&) = delete;
  QueueSleep& operator=(const QueueSleep&) = delete;

  virtual OSSErr awaitData(uint32_t milliseconds) noexcept = 0;
  virtual OSSErr awaitSpace(uint32_t milliseconds) noexcept = 0;
  virtual OSSErr postData() noexcept = 0;
  virtual OSSErr postSpace() noexcept = 0;

 protected:
  ~QueueSleep() = default;
};

// Where a transfer stopped, and why; nothing but zeros when it did not.
struct TransferEnd {
  uint64_t probe = 0;
  OSSErr rc = ECF_OK;
};

// The ring's header cannot be one: it, or the section, is not a queue's.
inline constexpr uint64_t kProbeUnsound = 20;

// Probes of put and of get: sleeping failed, waking the other end failed.
inline constexpr uint64_t kProbePutAwaitLength = 50;
inline constexpr uint64_t kProbePutAwaitPiece = 60;
inline constexpr uint64_t kProbePutWake = 70;
inline constexpr uint64_t kProbeGetAwaitLength = 80;  // a time-out; another failure is 10 more
inline constexpr uint64_t kProbeGetTooBig = 100;
inline constexpr uint64_t kProbeGetAwaitPiece = 110;  // a time-out; another failure is 10 more
inline constexpr uint64_t kProbeGetWake = 130;

// Puts a message into the ring; sleeps while it is full.
TransferEnd putMessage(const QueueRing& ring, QueueSleep& sleep, const void* message,
                       uint64_t size) noexcept;

// Gets the next message. *length is set as soon as it is known. An empty ring with the timeout 0
// gives ECF_QUE_INVALID_MSG_TYPE without a probe.
TransferEnd getMessage(const QueueRing& ring, QueueSleep& sleep, void* buffer, uint64_t bufferSize,
                       uint64_t* length, uint32_t milliseconds) noexcept;

}  // namespace oss
