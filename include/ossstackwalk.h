// ossstackwalk.h - the calling thread's stack as return addresses, one step of a walk, and the
// modules of a process.
//
// What osssymbol.h says of wrappers, their mutexes and the debugging-help library holds here.
#pragma once

#include "osstypes.h"

// Tags of the system.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-*)
struct _CONTEXT;
struct _tagSTACKFRAME64;
// NOLINTEND(bugprone-reserved-identifier,cert-*)

/// Is handed one module: its name, the address of its image and the bytes of that.
/// \return not 0 to go on
using OSSModuleCallback = int (*)(const char* name, uint64_t base, unsigned long size,
                                  void* context);

extern "C" {

/// Collects the return addresses of the calling thread's stack, from the caller's on. Initialises
/// symbols, with all modules that are loaded by then; a module that is loaded later ends a walk
/// unless ossSymLoadModule brings it in.
/// \param skip       callers to leave out
/// \param addresses  receives `count` addresses: the first is where the call of this function
///                   returns to; 0 behind the last frame. May be null
/// \return `count`, however many frames there were
OSS_API uint64_t ossWalkStackCollect(uint64_t skip, uint64_t* addresses, uint64_t count) noexcept;

/// Makes one step of a walk through 64-bit frames. Symbols of the process must be initialised.
/// Holds the mutex of StackWalk64, and those of SymFunctionTableAccess64 and SymGetModuleBase64 for
/// the moments that these take.
/// \param frame    describes the frame before, and receives the next. The function-table entry in
///                 it holds until the next step of any thread
/// \param context  the registers of the frame, which change with the step
/// \return StackWalk64's result: 0 when there is no next frame
OSS_API int ossStackWalk(void* process, void* thread, _tagSTACKFRAME64* frame,
                         _CONTEXT* context) noexcept;

/// Names each module that a process has loaded.
/// \param callback  is called for each, under the mutex. Null stands for the writer of trap files,
///                  which takes an OSSTrapFile for `context` and appends a record to it; or null,
///                  to keep the records for the next trap file of this process
/// \return EnumerateLoadedModules64's result
OSS_API int ossEnumerateLoadedModules(void* process, OSSModuleCallback callback,
                                      void* context) noexcept;

}  // extern "C"
