// handles.h - whether a system handle is open, and how many the process holds, to show that an
// operation keeps none.
#pragma once

#include <windows.h>

#include <cstddef>

namespace osse_test {

bool isOpen(HANDLE handle);

// The number of open handles of the process, all kinds together. Another thread that opens or
// closes one meanwhile may be missed.
size_t openHandles();

}  // namespace osse_test
