// ossguardtable.h - the mutexes that let one thread at a time into each function of the
// debugging-help library.
//
// They are named by function and process, and so are shared with every other module of the process
// that guards the library the same way. A thread may take one that it holds already, as a handler
// does whose thread faulted inside the debugging-help library.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace oss {

enum class GuardRow : uint8_t {
#define GUARD_ROW(function, name) function,
#include "fault/guard_rows.def"
  kCount
};
inline constexpr size_t kGuardRows = static_cast<size_t>(GuardRow::kCount);

// Makes the mutexes unless that is done. The last error survives.
void loadGuardTable() noexcept;

// Closes them. Called at the library's end, when no other thread can be in it.
void closeGuardTable() noexcept;

// Releases whatever the calling thread holds, after a fault that ended the scopes of its locks
// without their ends.
void releaseOwnGuards() noexcept;

// Holds a row's mutex for the length of a scope; nothing where it could not be made.
class GuardLock {
 public:
  explicit GuardLock(GuardRow row, DWORD milliseconds = INFINITE) noexcept;
  ~GuardLock();
  GuardLock(const GuardLock&) = delete;
  GuardLock& operator=(const GuardLock&) = delete;

  // False when somebody else had the mutex for all of the time.
  bool isIn() const noexcept { return isIn_; }

  // The last error that is pending now is the thread's again when the mutex is released.
  void keepError() noexcept {
    error_ = ::GetLastError();
    keeps_ = true;
  }

 private:
  HANDLE mutex_;
  bool isIn_;
  DWORD error_ = 0;
  bool keeps_ = false;
};

}  // namespace oss
