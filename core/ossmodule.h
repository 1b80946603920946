// ossmodule.h - functions that are looked up in a module instead of imported, so that the library
// loads where they are missing.
#pragma once

#include <windows.h>

namespace oss {

// Null when the module lacks it; the last error tells why.
template <class Function>
Function functionOf(HMODULE module, const char* name) noexcept {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace oss
