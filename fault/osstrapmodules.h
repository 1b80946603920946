// osstrapmodules.h - the module records of trap files: written as the modules are found, or kept
// for the next file where none is open.
#pragma once

#include <windows.h>

#include "osstrapfile.h"

namespace oss {

// What a trap file tells about a module of a process. The marker is found in this process only: in
// another one the module's exports are not at hand.
OSSTrapModule trapModule(HANDLE process, const char* name, uint64_t base, uint64_t size) noexcept;

// Enumerates the modules of a process and appends a record of each to the file. Without a file, or
// with one that is not open, the records are kept instead of those kept before.
// Returns EnumerateLoadedModules64's result.
int recordModules(HANDLE process, OSSTrapFile* file) noexcept;

// ---- What is kept ----

struct KeptModule {
  KeptModule* next;
  OSSTrapModule* record;
};
static_assert(sizeof(KeptModule) == 16);

// Takes them, in the order in which they were found; null if there are none. The caller releases
// them.
KeptModule* takeKeptModules() noexcept;

void releaseModules(KeptModule* modules) noexcept;

// Forgets what is kept.
inline void releaseKeptModules() noexcept { releaseModules(takeKeptModules()); }

}  // namespace oss
