#include "fault/ossdebughelp.h"

#include <atomic>

namespace oss {
namespace {

constinit std::atomic<HMODULE> g_library = nullptr;
constinit std::atomic<void*> g_functions[kGuardRows] = {};

constexpr const char* kFunctions[] = {
#define GUARD_ROW(function, name) #function,
#include "fault/guard_rows.def"
};

// Two threads that come first may both load it; the second time is but a count.
HMODULE loadLibrary() noexcept {
  HMODULE library = g_library.load(std::memory_order_relaxed);
  if (library == nullptr) {
    library = ::LoadLibraryA("dbghelp.dll");
    g_library.store(library, std::memory_order_relaxed);
  }
  return library;
}

}  // namespace

void* debugHelpFunction(GuardRow row) noexcept {
  const auto index = static_cast<size_t>(row);
  if (void* const known = g_functions[index].load(std::memory_order_relaxed)) [[likely]]
    return known;

  const DWORD error = ::GetLastError();
  const HMODULE library = loadLibrary();
  if (library == nullptr) {
    ::SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  void* const found = reinterpret_cast<void*>(::GetProcAddress(library, kFunctions[index]));
  g_functions[index].store(found, std::memory_order_relaxed);
  ::SetLastError(found != nullptr ? error : ERROR_PROC_NOT_FOUND);
  return found;
}

}  // namespace oss
