// The handle of a semaphore.
#include "ossipcsemaphore.h"

#include <windows.h>

#include <algorithm>

#include "core/osshandle.h"
#include "core/ossoperation.h"
#include "ipc/ossipcitem.h"
#include "ipc/ossipcsecurity.h"

using namespace oss;

struct OSSHIPCSemaphore::Layout {
  OSS_FIELD(OSSHIPCSemaphore, handle_, 0, 8);
};

static_assert(OSS_SEMAPHORE_INFINITE == INFINITE);

namespace {

// A count that the system cannot even be told becomes one that it refuses.
LONG countOf(uint64_t count) noexcept {
  return static_cast<LONG>(std::min<uint64_t>(count, OSS_SEMAPHORE_MOST + 1));
}

}  // namespace

OSSHIPCSemaphore::OSSHIPCSemaphore() noexcept : handle_(INVALID_HANDLE_VALUE) {}

OSSErr OSSHIPCSemaphore::create(const OSSIPCSemaphoreCreateParam* param) noexcept {
  Operation op(Func::OSSHIPCSemaphore_create);
  if (const OSSErr rc = op.check(param)) return rc;

  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes;
  if (const OSSErr rc = ossIPCBuildSecurityAttributes(&descriptor, &attributes))
    return op.failCalled(70, Func::ossInitSecurityAttributes, rc);

  ::SetLastError(ERROR_SUCCESS);
  handle_ = ::CreateSemaphoreA(&attributes, countOf(param->initialCount), OSS_SEMAPHORE_MOST,
                               param->resID.name);
  const DWORD error = ::GetLastError();
  if (handle_ != nullptr && error == ERROR_SUCCESS) return op.exit();

  const bool exists = error == ERROR_ALREADY_EXISTS;
  const Probe probe = handle_ == nullptr ? 80 : exists ? 90 : 100;
  const OSSErr rc = op.failSystem(
      probe, SysCall::CreateSemaphoreA,
      {{1, uint(param->initialCount)}, {2, uint(OSS_SEMAPHORE_MOST)}, {3, nameOf(param->resID)}});
  // Deliberate: the field keeps the value of what is closed; a semaphore beside another error stays
  // open. Not reported.
  if (probe == 90) ::CloseHandle(handle_);
  return rc;
}

OSSErr OSSHIPCSemaphore::destroy() noexcept {
  Operation op(Func::OSSHIPCSemaphore_destroy);
  return op.exit(detach());
}

OSSErr OSSHIPCSemaphore::attach(const OSSIPCResID* resID) noexcept {
  Operation op(Func::OSSHIPCSemaphore_attach);
  if (const OSSErr rc = op.checkNotNull(resID)) return rc;

  handle_ = ::OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, FALSE, resID->name);
  if (handle_ != nullptr) return op.exit();

  handle_ = INVALID_HANDLE_VALUE;
  // A missing semaphore is not a missing file, as the mapping would have it.
  if (::GetLastError() == ERROR_FILE_NOT_FOUND)
    return op.failUnmapped(40, SysCall::OpenSemaphoreA, ECF_SEM_DOESNT_EXIST,
                           {{1, nameOf(*resID)}});
  return op.failSystem(40, SysCall::OpenSemaphoreA, {{1, nameOf(*resID)}});
}

OSSErr OSSHIPCSemaphore::detach() noexcept {
  Operation op(Func::OSSHIPCSemaphore_detach);

  OSSErr rc = ECF_OK;
  if (!closeHandle(handle_)) rc = op.failSystem(30, SysCall::CloseHandle, {{1, hex(handle_)}});
  handle_ = INVALID_HANDLE_VALUE;
  return op.exit(rc);
}

OSSErr OSSHIPCSemaphore::post() noexcept {
  Operation op(Func::OSSHIPCSemaphore_post);

  if (!::ReleaseSemaphore(handle_, 1, nullptr))
    return op.failSystem(40, SysCall::ReleaseSemaphore, {{1, hex(handle_)}});
  return op.exit();
}

OSSErr OSSHIPCSemaphore::wait(const OSSIPCSemaphoreWaitParam* param) noexcept {
  Operation op(Func::OSSHIPCSemaphore_wait);
  if (const OSSErr rc = op.check(param)) return rc;

  switch (waitForHandle(handle_, param->timeout)) {
    case WAIT_OBJECT_0: return op.exit();
    case WAIT_TIMEOUT: return op.exit(ECF_TIMEOUT);  // an expected end: not logged
    case WAIT_ABANDONED:
      // Deliberate: the wait did not fail, so it is logged like an operation that returned a code.
      return op.failCalled(100, Func{static_cast<uint32_t>(SysCall::WaitForSingleObject)},
                           ECF_SEM_WAIT_ABANDONED, {{1, hex(handle_)}, {2, uint(param->timeout)}});
    default:
      return op.failSystem(110, SysCall::WaitForSingleObject,
                           {{1, hex(handle_)}, {2, uint(param->timeout)}});
  }
}

// An operation of the handle, although it needs nothing of it.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
OSSErr OSSHIPCSemaphore::authorize(const OSSIPCSecurityParam* param) noexcept {
  Operation op(Func::OSSHIPCSemaphore_authorize);
  if (const OSSErr rc = op.check(param)) return rc;
  return op.exit();
}

bool OSSHIPCSemaphore::isAttached() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }
