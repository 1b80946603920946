// osssectionguard.h - work that may fault, in a process that has faulted already.
#pragma once

extern "C" int ossCallGuarded(void (*work)(void*), void* argument) noexcept;

namespace oss {

// Calls a function with an argument. A fault in it, however deep, ends it: false is returned, no
// destructor between here and there runs, and locks of the debugging-help library that the thread
// held are released. Each thread has its own; one call may be inside another. Costs no more than
// the call: the fault, if there is one, is handled by the unwind tables.
bool endsWithoutFault(void (*work)(void*), void* argument) noexcept;

// The same for whatever can be called.
template <class Work>
bool endsWithoutFault(Work work) noexcept {
  return endsWithoutFault([](void* argument) { (*static_cast<Work*>(argument))(); }, &work);
}

}  // namespace oss
