// exceptionname.h - what the system calls its exceptions, and what their parameters tell.
#pragma once

#include <cstdint>

namespace oss::tool {

inline constexpr uint32_t kAccessViolation = 0xC0000005;
inline constexpr uint32_t kInPageError = 0xC0000006;

// \return null for a code that the system does not raise by itself
const char* exceptionName(uint32_t code);

// What a failed access tried, by the first parameter of these two exceptions: "write".
const char* accessName(uint64_t operation);

}  // namespace oss::tool
