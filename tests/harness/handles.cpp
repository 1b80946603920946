#include "harness/handles.h"

namespace osse_test {

bool isOpen(HANDLE handle) {
  DWORD flags;
  return ::GetHandleInformation(handle, &flags);
}

namespace {

// Handles are multiples of four, and low ones are used again first.
size_t countedOneByOne() {
  constexpr uintptr_t kStep = 4;
  constexpr uintptr_t kHighest = 0x800;
  size_t count = 0;
  for (uintptr_t value = kStep; value <= kHighest; value += kStep)
    if (isOpen(reinterpret_cast<HANDLE>(value))) ++count;
  return count;
}

}  // namespace

size_t openHandles() {
  DWORD count = 0;
  // Wine does not count them: it succeeds with 0, which no process has.
  if (::GetProcessHandleCount(::GetCurrentProcess(), &count) && count != 0) return count;
  return countedOneByOne();
}

}  // namespace osse_test
