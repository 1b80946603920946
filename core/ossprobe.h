// ossprobe.h - reads memory that may not be there.
#pragma once

extern "C" int ossProbeCopy24(const void* end, void* to) noexcept;

namespace oss {

inline constexpr unsigned kProbeBytes = 24;

// Copies the 24 bytes in front of `end` to `to`, which is aligned to 8 bytes. Returns false, with
// nothing copied or some of it, when they cannot be read. Costs no more than the copy: the fault,
// if there is one, is handled by the unwind table of the function.
inline bool probeBefore(const void* end, void* to) noexcept { return ossProbeCopy24(end, to) != 0; }

}  // namespace oss
