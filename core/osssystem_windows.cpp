#include <windows.h>

#include <cstdio>

#include "osssystem.h"

namespace oss::system {

void sleep(uint32_t milliseconds) noexcept { ::Sleep(milliseconds); }

uint64_t tickFrequency() noexcept {
  LARGE_INTEGER frequency;
  return ::QueryPerformanceFrequency(&frequency) ? static_cast<uint64_t>(frequency.QuadPart) : 0;
}

// The underscore matters: the plain name is the compiler's own formatter, which prints other
// exponents and other words for infinity.
int formatBounded(char* buffer, size_t size, const char* format, va_list arguments) noexcept {
  return ::_vsnprintf(buffer, size, format, arguments);
}

}  // namespace oss::system
