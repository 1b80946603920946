// The operations of the message queue that move messages. Failures are logged once the latches are
// free again: nobody else waits for the log.
#include "core/ossoperation.h"
#include "ipc/ossqueuetransfer.h"
#include "ipc/ossviewroom.h"
#include "numeric/osslatchguard.h"
#include "ossipcqueue.h"

using namespace oss;

namespace {

// The semaphores of a queue.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): lives on the stack, as what it is
class SemaphoreSleep final : public QueueSleep {
 public:
  SemaphoreSleep(OSSHIPCSemaphore& data, OSSHIPCSemaphore& space) noexcept
      : data_(data), space_(space) {}

  OSSErr awaitData(uint32_t milliseconds) noexcept override { return await(data_, milliseconds); }
  OSSErr awaitSpace(uint32_t milliseconds) noexcept override { return await(space_, milliseconds); }
  OSSErr postData() noexcept override { return data_.post(); }
  OSSErr postSpace() noexcept override { return space_.post(); }

 private:
  static OSSErr await(OSSHIPCSemaphore& semaphore, uint32_t milliseconds) noexcept {
    OSSIPCSemaphoreWaitParam param;
    param.timeout = milliseconds;
    return semaphore.wait(&param);
  }

  OSSHIPCSemaphore& data_;
  OSSHIPCSemaphore& space_;
};

// The bytes of the ring's room; none when no queue is attached. A handle that has been destroyed
// keeps the address of a view that is gone: its section tells that it is.
uint64_t roomOf(const OSSHIPCMemory& section, const OSSIPCQueueHeader* header) noexcept {
  if (!section.isAttached()) return 0;
  const uint64_t bytes = viewBytes(header);
  return bytes > sizeof *header ? bytes - sizeof *header : 0;
}

OSSErr failUnattached(Operation& op) noexcept {
  return op.fail(10, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_ERROR);
}

// The header as it is now: it may have changed since.
[[gnu::cold]] OSSErr failUnsound(Operation& op, const TransferEnd& end,
                                 const QueueRing& ring) noexcept {
  RingState state;
  static_cast<void>(ring.read(state));
  return op.fail(
      end.probe, end.rc, OSS_LOG_ERROR,
      {hex(state.capacity), hex(state.writeOffset), hex(state.readOffset), uint(ring.room())});
}

}  // namespace

OSSErr OSSHIPCQueue::put(const void* data, uint64_t size) noexcept {
  Operation op(Func::OSSHIPCQueue_put);
  const uint64_t room = roomOf(memory_, header_);
  if (room == 0) return failUnattached(op);
  if (size != 0)
    if (const OSSErr rc = op.checkNotNull(data)) return rc;

  const QueueRing ring(header_, room);
  SemaphoreSleep sleep(dataSemaphore_, spaceSemaphore_);
  const TransferEnd end = putMessage(ring, sleep, data, size);
  switch (end.probe) {
    case 0: return op.exit(end.rc);
    case kProbeUnsound: return failUnsound(op, end, ring);
    case kProbePutAwaitLength:
      return op.failCalled(end.probe, Func::OSSHIPCSemaphore_wait, end.rc,
                           {{1, {data, size, OSS_LOG_DUMP}}, {2, uint(size)}});
    case kProbePutWake:
      return op.failCalled(end.probe, Func::OSSHIPCSemaphore_post, end.rc, {{2, uint(size)}});
    default:
      return op.failCalled(end.probe, Func::OSSHIPCSemaphore_wait, end.rc, {{2, uint(size)}});
  }
}

OSSErr OSSHIPCQueue::get(void* buffer, uint64_t bufferSize, uint64_t* received,
                         int timeout) noexcept {
  Operation op(Func::OSSHIPCQueue_get);
  const uint64_t room = roomOf(memory_, header_);
  if (room == 0) return failUnattached(op);
  if (bufferSize != 0)
    if (const OSSErr rc = op.checkNotNull(buffer)) return rc;

  const QueueRing ring(header_, room);
  SemaphoreSleep sleep(dataSemaphore_, spaceSemaphore_);
  uint64_t length = 0;
  const TransferEnd end =
      getMessage(ring, sleep, buffer, bufferSize, &length, static_cast<uint32_t>(timeout));
  switch (end.probe) {
    case 0:
      if (end.rc == ECF_OK && received != nullptr) *received = length;
      return op.exit(end.rc);
    case kProbeUnsound: return failUnsound(op, end, ring);
    case kProbeGetTooBig:
      return op.fail(end.probe, end.rc, OSS_LOG_INFO, {uint(length), uint(bufferSize)});
    case kProbeGetWake:
      return op.failCalled(end.probe, Func::OSSHIPCSemaphore_post, end.rc,
                           {{2, uint(bufferSize)}, {4, uint(timeout)}});
    default:
      return op.failCalled(end.probe, Func::OSSHIPCSemaphore_wait, end.rc,
                           {{2, uint(bufferSize)}, {4, uint(timeout)}});
  }
}

OSSErr OSSHIPCQueue::flush() noexcept {
  Operation op(Func::OSSHIPCQueue_flush);
  const uint64_t room = roomOf(memory_, header_);
  if (room == 0) return failUnattached(op);

  LatchGuard state(header_->stateLatch);
  QueueRing(header_, room).clear();
  // Deliberate: a failed post leaves the state latch held.
  if (header_->readerWaiting != 0) {
    header_->readerWaiting = 0;
    if (const OSSErr rc = dataSemaphore_.post()) {
      state.abandon();
      return op.failCalled(40, Func::OSSHIPCSemaphore_post, rc);
    }
  }
  if (header_->writerWaiting != 0) {
    header_->writerWaiting = 0;
    if (const OSSErr rc = spaceSemaphore_.post()) {
      state.abandon();
      return op.failCalled(50, Func::OSSHIPCSemaphore_post, rc);
    }
  }
  return op.exit();
}

bool OSSHIPCQueue::hasMessage() noexcept {
  Operation op(Func::OSSHIPCQueue_hasMessage);
  static_cast<void>(op.exit());
  const uint64_t room = roomOf(memory_, header_);
  if (room == 0) return false;

  const LatchGuard state(header_->stateLatch);
  return QueueRing(header_, room).looksReadable();
}
