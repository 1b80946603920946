// Waitposts. The event tells that there was a post; the control block tells everything else.
#include "ossipcwaitpost.h"

#include <windows.h>

#include <algorithm>
#include <atomic>

#include "core/osshandle.h"
#include "core/ossoperation.h"
#include "ipc/ossipcsecurity.h"
#include "numeric/osslatchguard.h"

using namespace oss;

struct OSSHIPCWaitpost::Layout {
  OSS_FIELD(OSSHIPCWaitpost, controlBlock_, 0, 8);
  OSS_FIELD(OSSHIPCWaitpost, postArea_, 8, 8);
  OSS_FIELD(OSSHIPCWaitpost, postSize_, 16, 8);
  OSS_FIELD(OSSHIPCWaitpost, event_, 24, 8);
};

namespace {

const char* nameOf(const OSSIPCResID* resID) noexcept {
  return resID != nullptr ? resID->name : nullptr;
}

// The flags make a block valid: they are written last and cleared first, and whoever sees them sees
// the rest.
void publishFlags(OSSIPCWaitpostControlBlock& block, uint64_t flags) noexcept {
  std::atomic_ref(block.flags).store(flags, std::memory_order_release);
}

// A block that is no waitpost, or is none any more, is refused.
OSSErr checkWaitpost(Operation& op, Probe probe, OSSIPCWaitpostControlBlock* block) noexcept {
  uint64_t flags = 0;
  if (block != nullptr) flags = std::atomic_ref(block->flags).load(std::memory_order_acquire);
  if ((flags & (OSS_WAITPOST_IS_NAMED | OSS_WAITPOST_IS_UNNAMED)) != 0) [[likely]]
    return ECF_OK;
  return op.fail(probe, ECF_WAITPOST_NOT_INITIALIZED, OSS_LOG_INFO, {hex(flags)});
}

void copyBytes(void* to, const void* from, uint64_t count) noexcept {
  std::copy_n(static_cast<const char*>(from), count, static_cast<char*>(to));
}

// What a wait is answered with, and at which probe that is logged.
constexpr Probe kNotLogged = 0;
struct Outcome {
  OSSErr rc;
  Probe probe;
};

Outcome outcomeOf(DWORD result, DWORD timeout) noexcept {
  switch (result) {
    case WAIT_OBJECT_0: return {ECF_OK, kNotLogged};
    case WAIT_ABANDONED: return {ECF_SEM_WAIT_ABANDONED, 100};
    case WAIT_TIMEOUT:
      if (timeout == 0) return {ECF_WAITPOST_NOT_POSTED, kNotLogged};
      return {ECF_TIMEOUT, 110};
    default: return {result, 120};  // Deliberate: what the system says is the code.
  }
}

}  // namespace

OSSHIPCWaitpost::OSSHIPCWaitpost() noexcept : event_(INVALID_HANDLE_VALUE) {}

void OSSHIPCWaitpost::clear() noexcept { *this = OSSHIPCWaitpost(); }

// Moves a message into or out of the post area.
void OSSHIPCWaitpost::copyMessage(void* to, const void* from) noexcept {
  if (controlBlock_->noLatch != 0) {
    copyBytes(to, from, postSize_);
    return;
  }
  const LatchGuard latch(controlBlock_->dataLatch);
  copyBytes(to, from, postSize_);
}

OSSErr OSSHIPCWaitpost::create(const OSSIPCWaitpostCreateParam* param) noexcept {
  Operation op(Func::OSSHIPCWaitpost_create);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(param->controlBlock)) return rc;

  clear();
  controlBlock_ = param->controlBlock;
  publishFlags(*controlBlock_, 0);
  *controlBlock_ = {};
  if (param->type == OSS_WAITPOST_NO_LATCH) controlBlock_->noLatch = 1;

  const bool named = param->resID != nullptr;
  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES built;
  if (named)
    if (const OSSErr rc = ossIPCBuildSecurityAttributes(&descriptor, &built))
      return op.failCalled(120, Func::ossInitSecurityAttributes, rc);

  SECURITY_ATTRIBUTES* const attributes = named ? &built : nullptr;
  const char* const name = nameOf(param->resID);
  const bool automatic = (param->type & OSS_WAITPOST_AUTOMATIC) != 0;
  // Not exclusive: a name that exists gives its event.
  const HANDLE event = ::CreateEventA(attributes, !automatic, FALSE, name);
  if (event == nullptr)
    return op.failSystem(130, SysCall::CreateEventA, {{1, hex(attributes)}, {4, string(name)}});

  event_ = event;
  postArea_ = param->postArea;
  postSize_ = param->postSize;
  publishFlags(*controlBlock_, (automatic ? OSS_WAITPOST_IS_AUTOMATIC : 0) |
                                   (named ? OSS_WAITPOST_IS_NAMED : OSS_WAITPOST_IS_UNNAMED));
  return op.exit();
}

OSSErr OSSHIPCWaitpost::open(const OSSIPCWaitpostOpenParam* param) noexcept {
  Operation op(Func::OSSHIPCWaitpost_open);
  if (const OSSErr rc = op.check(param)) return rc;

  clear();
  controlBlock_ = param->controlBlock;
  if (const OSSErr rc = checkWaitpost(op, 30, controlBlock_)) return rc;
  postArea_ = param->postArea;
  postSize_ = param->postSize;

  const char* const name = nameOf(param->resID);
  const HANDLE event = ::OpenEventA(EVENT_ALL_ACCESS, FALSE, name);
  if (event == nullptr) return op.failSystem(40, SysCall::OpenEventA, {{3, string(name)}});
  event_ = event;
  return op.exit();
}

OSSErr OSSHIPCWaitpost::destroy() noexcept {
  Operation op(Func::OSSHIPCWaitpost_destroy);
  if (const OSSErr rc = checkWaitpost(op, 10, controlBlock_)) return rc;

  const OSSErr rc =
      closeHandle(event_) ? op.exit() : op.failSystem(40, SysCall::CloseHandle, {{1, hex(event_)}});
  publishFlags(*controlBlock_, 0);
  // Deliberate: dataLatch stays. Whoever holds it is about to release it.
  controlBlock_->noLatch = 0;
  clear();
  return rc;
}

OSSErr OSSHIPCWaitpost::close() noexcept {
  Operation op(Func::OSSHIPCWaitpost_close);
  if (const OSSErr rc = checkWaitpost(op, 10, controlBlock_)) return rc;

  if (!closeHandle(event_)) return op.failSystem(20, SysCall::CloseHandle, {{1, hex(event_)}});
  clear();
  return op.exit();
}

OSSErr OSSHIPCWaitpost::wait(const OSSIPCWaitpostWaitParam* param, void* message) noexcept {
  Operation op(Func::OSSHIPCWaitpost_wait);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = checkWaitpost(op, 20, controlBlock_)) return rc;

  const auto timeout = static_cast<DWORD>(param->timeout);
  const auto [rc, probe] = outcomeOf(waitForHandle(event_, timeout), timeout);
  if (probe != kNotLogged) {
    ::SetLastError(NO_ERROR);  // Deliberate: the record shows none, whatever there was.
    return op.failUnmapped(probe, SysCall::WaitForSingleObject, rc,
                           {{1, hex(event_)}, {2, uint(timeout)}});
  }

  // Deliberate: also when nobody has posted. The poll shows what the post area holds.
  if (message != nullptr) copyMessage(message, postArea_);
  return op.exit(rc);
}

OSSErr OSSHIPCWaitpost::post(const void* message) noexcept {
  Operation op(Func::OSSHIPCWaitpost_post);
  if (const OSSErr rc = checkWaitpost(op, 10, controlBlock_)) return rc;

  if (message != nullptr) copyMessage(postArea_, message);
  if (!::SetEvent(event_)) return op.failSystem(70, SysCall::SetEvent, {{1, hex(event_)}});
  return op.exit();
}

OSSErr OSSHIPCWaitpost::reset() noexcept {
  Operation op(Func::OSSHIPCWaitpost_reset);
  if (const OSSErr rc = checkWaitpost(op, 10, controlBlock_)) return rc;

  if (!::ResetEvent(event_))
    // Deliberate: the record names post.
    return op.failSystem(50,
                         {.mappedAs = SysCall::ResetEvent, .loggedFor = Func::OSSHIPCWaitpost_post},
                         {{1, hex(event_)}});
  return op.exit();
}
