// loadedlibrary.h - a copy of the DLL that a test loads and unloads, and what that leaves behind.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>
#include <psapi.h>

#include <string>

#include "harness/handles.h"
#include "harness/peimage.h"
#include "harness/tempdir.h"

namespace osse_test {

// Copies the DLL under another name, for the program is linked with the DLL itself.
inline std::string copyOfLibrary(const TempDirectory& dir) {
  const std::string path = dir.file("copy.dll");
  char original[MAX_PATH + 1] = {};
  ::GetModuleFileNameA(libraryModule(), original, MAX_PATH);
  EXPECT_TRUE(::CopyFileA(original, path.c_str(), TRUE)) << "error " << ::GetLastError();
  return path;
}

class LoadedLibrary {
 public:
  explicit LoadedLibrary(const std::string& path) : module_(::LoadLibraryA(path.c_str())) {
    EXPECT_NE(module_, nullptr) << "error " << ::GetLastError();
  }
  ~LoadedLibrary() { EXPECT_TRUE(::FreeLibrary(module_)) << "error " << ::GetLastError(); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  HMODULE module() const { return module_; }

  template <class Function>
  Function* find(const char* name) const {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(module_, name)));
  }

 private:
  HMODULE module_;
};

// What the process holds of the system. Wine loses a few bytes each time it loads and unloads its
// own ADVAPI32: a test that counts bytes keeps that loaded.
struct Holdings {
  size_t handles;
  DWORD nextSlot;  // of thread-local storage
  size_t privateBytes;

  static Holdings now() {
    const DWORD slot = ::TlsAlloc();
    ::TlsFree(slot);
    PROCESS_MEMORY_COUNTERS memory = {};
    EXPECT_TRUE(::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory));
    return {openHandles(), slot, memory.PagefileUsage};
  }
};

}  // namespace osse_test
