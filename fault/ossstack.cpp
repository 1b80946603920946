// The stack collector, one step of a walk, and the enumeration of modules.
#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include <cstring>

#include "fault/ossSymFunctions.h"
#include "fault/ossdebughelp.h"
#include "fault/ossstackframes.h"
#include "fault/osstrapmodules.h"
#include "ossstackwalk.h"
#include "osssymbol.h"

namespace oss {
namespace {

// The walker keeps the entry that it was given while it asks for other things. One walker is inside
// at a time, under the mutex of StackWalk64.
alignas(8) constinit unsigned char g_functionEntry[16] = {};

PVOID CALLBACK copyFunctionEntry(HANDLE process, DWORD64 address) {
  const void* const entry = ossSymFunctionTableAccess(process, address);
  if (entry == nullptr) return nullptr;
  static_assert(sizeof(RUNTIME_FUNCTION) <= sizeof g_functionEntry);
  std::memcpy(g_functionEntry, entry, sizeof(RUNTIME_FUNCTION));
  return g_functionEntry;
}

// A frame of its own below ossWalkStackCollect: these two are what a walk leaves out.
[[gnu::noinline]] void collect(uint64_t skip, uint64_t* addresses, uint64_t count) noexcept {
  CONTEXT context;
  ::RtlCaptureContext(&context);
  StackFrames frames(context);

  bool found = frames.next() && frames.next();
  for (uint64_t left = skip; found && left > 0; --left) found = frames.next();
  for (uint64_t i = 0; i < count; ++i) {
    found = found && frames.next();
    addresses[i] = found ? frames.current().AddrPC.Offset : 0;
  }
}

}  // namespace
}  // namespace oss

using namespace oss;

uint64_t ossWalkStackCollect(uint64_t skip, uint64_t* addresses, uint64_t count) noexcept {
  if (addresses == nullptr || count == 0) return count;

  initializeSymbols();
  collect(skip, addresses, count);
  return count;
}

int ossStackWalk(void* process, void* thread, _tagSTACKFRAME64* frame, _CONTEXT* context) noexcept {
  return Guarded<decltype(::StackWalk64)>::call(
      GuardRow::StackWalk64, keepIfFailed, IMAGE_FILE_MACHINE_AMD64, process, thread, frame,
      context, nullptr, copyFunctionEntry, ossSymGetModuleBase, nullptr);
}

int ossEnumerateLoadedModules(void* process, OSSModuleCallback callback, void* context) noexcept {
  if (callback == nullptr) return recordModules(process, static_cast<OSSTrapFile*>(context));
  return Guarded<decltype(::EnumerateLoadedModules64)>::call(
      GuardRow::EnumerateLoadedModules64, keepIfFailed, process, callback, context);
}
