// cores.h - threads of a benchmark on cores of their own.
#pragma once

#include <windows.h>

namespace oss::bench {

// Puts the thread on a core of its own, also where the process was started on a single one.
inline bool takeCore(int index) {
  static const BOOL hasAllCores = [] {
    DWORD_PTR own = 0;
    DWORD_PTR all = 0;
    return ::GetProcessAffinityMask(::GetCurrentProcess(), &own, &all) &&
           ::SetProcessAffinityMask(::GetCurrentProcess(), all);
  }();
  return hasAllCores && ::SetThreadAffinityMask(::GetCurrentThread(), DWORD_PTR{1} << index) != 0;
}

}  // namespace oss::bench
