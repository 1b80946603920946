// osshandle.h - system handles inside an operation.
#pragma once

#include <windows.h>

namespace oss {

// Closes a handle as ::CloseHandle does, but refuses the closed handle (all ones) as invalid. The
// system takes all ones for the process itself and may report that it closed it.
inline BOOL closeHandle(HANDLE handle) noexcept {
  if (handle == INVALID_HANDLE_VALUE) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return ::CloseHandle(handle);
}

// Waits on a handle as ::WaitForSingleObject does, but refuses the closed handle (all ones) as
// invalid: a wait for the process itself would not end before the process does.
inline DWORD waitForHandle(HANDLE handle, DWORD milliseconds) noexcept {
  if (handle == INVALID_HANDLE_VALUE) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
  }
  return ::WaitForSingleObject(handle, milliseconds);
}

// Closes a temporary handle on every path but the one that releases it. The caller's last error
// survives.
class ScopedHandle {
 public:
  explicit ScopedHandle(HANDLE handle) noexcept : handle_(handle) {}
  ~ScopedHandle() {
    if (handle_ == nullptr || handle_ == INVALID_HANDLE_VALUE) return;
    const DWORD error = ::GetLastError();
    ::CloseHandle(handle_);
    ::SetLastError(error);
  }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;

  HANDLE get() const noexcept { return handle_; }

  HANDLE release() noexcept {
    const HANDLE handle = handle_;
    handle_ = nullptr;
    return handle;
  }

 private:
  HANDLE handle_;
};

}  // namespace oss
