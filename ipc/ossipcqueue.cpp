// The handle of a message queue: create, attach, detach, destroy, and the size that the system
// tells.
#include "ossipcqueue.h"

#include <atomic>

#include "core/ossoperation.h"
#include "ipc/ossqueuering.h"
#include "ipc/ossviewroom.h"
#include "osssysinfo.h"

using namespace oss;

struct OSSHIPCQueue::Layout {
  OSS_FIELD(OSSHIPCQueue, memory_, 0, 16);
  OSS_FIELD(OSSHIPCQueue, dataSemaphore_, 16, 8);
  OSS_FIELD(OSSHIPCQueue, spaceSemaphore_, 24, 8);
  OSS_FIELD(OSSHIPCQueue, header_, 32, 8);
};

namespace {

OSSErr createEmpty(OSSHIPCSemaphore& semaphore, const OSSIPCResID& resID,
                   uint64_t options) noexcept {
  OSSIPCSemaphoreCreateParam param;
  param.resID = resID;
  param.initialCount = 1;
  param.options = options;
  return semaphore.create(&param);
}

// Semaphores are made with a count, which their creator takes: so they start at 0.
OSSErr takeFirstCount(OSSHIPCSemaphore& semaphore) noexcept {
  OSSIPCSemaphoreWaitParam param;
  param.timeout = OSS_SEMAPHORE_INFINITE;
  return semaphore.wait(&param);
}

// An empty queue. The capacity comes last: until it is there, both ends sleep.
void makeEmpty(OSSIPCQueueHeader* header, uint64_t capacity) noexcept {
  *header = {};
  std::atomic_ref(header->capacity).store(capacity, std::memory_order_release);
}

// A part that is missing is a queue that is missing.
OSSErr asQueue(OSSErr rc) noexcept {
  return rc == ECF_MEM_DOESNT_EXIST || rc == ECF_SEM_DOESNT_EXIST ? ECF_QUE_DOESNT_EXIST : rc;
}

// Not reported: the failure that led here is.
template <class Handle>
void detachQuietly(Handle& handle) noexcept {
  static_cast<void>(handle.detach());
}

}  // namespace

OSSHIPCQueue::OSSHIPCQueue() noexcept = default;

OSSErr OSSHIPCQueue::create(const OSSIPCQueueCreateParam* param) noexcept {
  Operation op(Func::OSSHIPCQueue_create);
  if (const OSSErr rc = op.check(param)) return rc;

  header_ = nullptr;

  const uint64_t capacity = ringBytesFor(param->maxMessageSize);
  OSSIPCMemoryCreateParam section;
  section.resID = param->resID.memory;
  section.size = sectionBytesFor(capacity);
  section.options = param->options;

  // Deliberate: a failure leaves behind what was made before it.
  if (const OSSErr rc = memory_.create(&section))
    return op.failCalled(50, Func::OSSHIPCMemory_create, rc,
                         {{1, {&section, sizeof section, OSS_LOG_DUMP}}});
  if (const OSSErr rc = createEmpty(dataSemaphore_, param->resID.dataSemaphore, param->options))
    return op.failCalled(60, Func::OSSHIPCSemaphore_create, rc);
  if (const OSSErr rc = createEmpty(spaceSemaphore_, param->resID.spaceSemaphore, param->options))
    return op.failCalled(70, Func::OSSHIPCSemaphore_create, rc);
  if (const OSSErr rc = takeFirstCount(dataSemaphore_))
    return op.failCalled(80, Func::OSSHIPCSemaphore_wait, rc);
  if (const OSSErr rc = takeFirstCount(spaceSemaphore_))
    return op.failCalled(90, Func::OSSHIPCSemaphore_wait, rc);

  void* address = nullptr;
  if (const OSSErr rc = memory_.getAddress(&address))
    return op.failCalled(100, Func::OSSHIPCMemory_getAddress, rc);
  forgetView(address);
  header_ = static_cast<OSSIPCQueueHeader*>(address);
  makeEmpty(header_, capacity);
  return op.exit();
}

OSSErr OSSHIPCQueue::attach(const OSSIPCQueResID* resID) noexcept {
  Operation op(Func::OSSHIPCQueue_attach);
  if (const OSSErr rc = op.checkNotNull(resID)) return rc;
  header_ = nullptr;

  if (const OSSErr rc = memory_.attach(&resID->memory, nullptr))
    return op.failCalledAs(40, Func::OSSHIPCMemory_attach, rc, asQueue(rc));
  if (const OSSErr rc = dataSemaphore_.attach(&resID->dataSemaphore)) {
    detachQuietly(memory_);
    return op.failCalledAs(50, Func::OSSHIPCSemaphore_attach, rc, asQueue(rc));
  }
  if (const OSSErr rc = spaceSemaphore_.attach(&resID->spaceSemaphore)) {
    detachQuietly(dataSemaphore_);
    detachQuietly(memory_);
    return op.failCalledAs(60, Func::OSSHIPCSemaphore_attach, rc, asQueue(rc));
  }

  void* address = nullptr;
  if (const OSSErr rc = memory_.getAddress(&address))
    return op.failCalled(70, Func::OSSHIPCMemory_getAddress, rc);
  forgetView(address);
  header_ = static_cast<OSSIPCQueueHeader*>(address);
  return op.exit();
}

OSSErr OSSHIPCQueue::detach() noexcept {
  Operation op(Func::OSSHIPCQueue_detach);
  forgetView(header_);

  if (const OSSErr rc = memory_.detach()) return op.failCalled(30, Func::OSSHIPCMemory_detach, rc);
  if (const OSSErr rc = dataSemaphore_.detach())
    return op.failCalled(40, Func::OSSHIPCSemaphore_detach, rc);
  if (const OSSErr rc = spaceSemaphore_.detach())
    return op.failCalled(50, Func::OSSHIPCSemaphore_detach, rc);
  header_ = nullptr;
  return op.exit();
}

OSSErr OSSHIPCQueue::destroy() noexcept {
  Operation op(Func::OSSHIPCQueue_destroy);
  forgetView(header_);

  if (const OSSErr rc = memory_.destroy())
    return op.failCalled(40, Func::OSSHIPCMemory_destroy, rc);
  if (const OSSErr rc = dataSemaphore_.destroy())
    return op.failCalled(50, Func::OSSHIPCSemaphore_destroy, rc);
  if (const OSSErr rc = spaceSemaphore_.destroy())
    return op.failCalled(60, Func::OSSHIPCSemaphore_destroy, rc);
  return op.exit();  // Deliberate: the header's address stays.
}

bool OSSHIPCQueue::isAttached() const noexcept {
  return memory_.isAttached() && dataSemaphore_.isAttached() && spaceSemaphore_.isAttached();
}

int64_t ossGetMaxQueueMessageSize() noexcept {
  static constinit std::atomic<int64_t> known = 0;
  if (const int64_t size = known.load(std::memory_order_relaxed)) return size;

  OSSKernelIPCInfo info;
  const OSSErr rc = ossGetKernelIPCInfo(&info);
  if (rc != ECF_OK && rc != ECF_PARTIAL_INFO) return 0;
  if (info.msgMaxMessageSize.status != ECF_OK) return 0;
  known.store(static_cast<int64_t>(info.msgMaxMessageSize.value), std::memory_order_relaxed);
  return known.load(std::memory_order_relaxed);
}
