// handles.h - how many system handles the process holds, to show that an operation keeps none.
#pragma once

#include <cstddef>

namespace osse_test {

// The number of open handles of the process, all kinds together. Another thread that opens or
// closes one meanwhile may be missed.
size_t openHandles();

}  // namespace osse_test
