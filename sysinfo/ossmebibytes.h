// ossmebibytes.h - the unit of amounts in records.
#pragma once

#include <cstdint>

namespace oss {

// Rounded up: a single byte is a mebibyte. Deliberate: what is less than a mebibyte below 2 to the
// 64 wraps around to 0.
constexpr uint64_t mebibytes(uint64_t bytes) noexcept { return (bytes + 0xFFFFF) >> 20; }

}  // namespace oss
