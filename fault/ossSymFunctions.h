// ossSymFunctions.h - what the wrappers of the debugging-help library keep, for the library itself.
#pragma once

#include <cstdint>

namespace oss {

// Initialises the symbols of this process with all its modules, as ossSymInitialize does, unless
// that is done. A module's symbols are read when the first of them is asked for, not now: a stack
// walk needs none, and in a process that has faulted little work is good work. The host's options
// are left as they were.
void initializeSymbols() noexcept;

// The same where the debugging-help library may fault: that ends the call it happens in, and the
// host's options are put back all the same.
void initializeSymbolsGuarded() noexcept;

// How often ossSymInitialize was called.
uint64_t symInitializeCalls() noexcept;

// Takes the callback back that ossSymRegisterStackWalkCallback has registered, if it has: its code
// is about to be unloaded. The loader's lock is held, so a debugging-help library that is busy is
// not waited for; it keeps the callback.
void withdrawStackWalkCallback() noexcept;

}  // namespace oss
