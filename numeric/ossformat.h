// ossformat.h - the bounded formatter behind ossSnprintf, for callers that hold a va_list.
#pragma once

#include <cstdarg>

#include "osstypes.h"

namespace oss {

// As ossSnprintf: always terminates the buffer and returns the number of characters in it.
uint64_t formatText(char* buffer, size_t size, const char* format, va_list arguments) noexcept;

}  // namespace oss
