// osssystem.h - the system as pure logic sees it: a handful of functions, one source a platform.
//
// Sources of pure logic (catalog, mapping, numerics, formatting) include no platform header. Where
// they must reach the system they come here, and so they also build natively, under sanitizers and
// fuzzers. Everything else calls the system directly.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace oss::system {

// Suspends the calling thread for at least this long; 0 gives up the rest of its time slice.
void sleep(uint32_t milliseconds) noexcept;

// Ticks per second of the performance counter; 0 when the system cannot tell.
uint64_t tickFrequency() noexcept;

// The C run-time's bounded formatter in its own dialect: %I64u is 64 bits wide, and a text that
// does not fit gives a negative count and no terminator. The host's source translates both.
int formatBounded(char* buffer, size_t size, const char* format, va_list arguments) noexcept;

}  // namespace oss::system
