// ossfilepointer.h - 64-bit file sizes and positions over calls that return them in two halves.
//
// A low half of all ones is a value like any other: it is a failure only when the call also set an
// error, so the error is cleared before each call.
#pragma once

#include <windows.h>

#include <cstdint>

namespace oss {

inline bool isFailure(DWORD low) noexcept {
  return low == 0xFFFFFFFF && ::GetLastError() != NO_ERROR;
}

// The file's size in bytes; false with the system error set on failure.
inline bool fileSizeOf(HANDLE file, uint64_t* size) noexcept {
  DWORD high = 0;
  ::SetLastError(NO_ERROR);
  const DWORD low = ::GetFileSize(file, &high);
  if (isFailure(low)) return false;
  *size = uint64_t{high} << 32 | low;
  return true;
}

// Moves the file pointer by `distance` from the origin FILE_BEGIN, FILE_CURRENT or FILE_END and
// tells where it is; false with the system error set on failure.
inline bool moveFilePointer(HANDLE file, int64_t distance, DWORD origin,
                            uint64_t* position) noexcept {
  LONG high = static_cast<LONG>(distance >> 32);
  ::SetLastError(NO_ERROR);
  const DWORD low = ::SetFilePointer(file, static_cast<LONG>(distance), &high, origin);
  if (isFailure(low)) return false;
  *position = uint64_t{static_cast<DWORD>(high)} << 32 | low;
  return true;
}

}  // namespace oss
