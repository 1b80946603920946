// wine.h - whether the program runs under Wine, for the few tests of what the system itself answers
// where Wine answers otherwise than Windows. Who asks says what the difference is, and expects
// exactly one answer of either.
#pragma once

#include <windows.h>

namespace osse_test {

inline bool isUnderWine() {
  return ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace osse_test
