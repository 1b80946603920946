// gtcallstack.h - the call stack of each thread, in thread-specific data.
//
// A stack is made when its thread first asks for it. It stays when the thread ends, for nothing
// tells of that, and is released with the library.
#pragma once

#include "trace/gtcount.h"

namespace oss {

// Takes the slot; once for the process. Without it no thread has a stack.
void prepareCallStacks() noexcept;

// The calling thread's, or null.
CallStack* callStack() noexcept;

// Releases the slot and all stacks. No thread may be in a trace point.
void releaseCallStacks() noexcept;

}  // namespace oss
