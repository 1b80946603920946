// The host's side of the seam, for sanitizers, fuzzers and native benchmarks.
#include <cstdio>
#include <ctime>
#include <string>

#include "osssystem.h"

namespace oss::system {

void sleep(uint32_t milliseconds) noexcept {
  const timespec span = {milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1'000'000};
  ::nanosleep(&span, nullptr);
}

// The host's monotonic clock counts nanoseconds.
uint64_t tickFrequency() noexcept { return 1'000'000'000; }

int formatBounded(char* buffer, size_t size, const char* format, va_list arguments) noexcept {
  std::string translated(format);
  for (size_t at = translated.find("I64"); at != std::string::npos; at = translated.find("I64", at))
    translated.replace(at, 3, "ll");

  const int count = std::vsnprintf(buffer, size, translated.c_str(), arguments);
  return count >= 0 && static_cast<size_t>(count) > size ? -1 : count;
}

}  // namespace oss::system
