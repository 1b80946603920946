// osssymbol.h - the system's debugging-help library, one caller at a time, and names for addresses.
//
// That library must not be entered by two threads at once, and several modules of a process may use
// it. Each wrapper therefore holds a named mutex while it calls its function: "<function>-<process
// identifier in decimal>". Every module that follows this convention shares the mutex. The names
// are those of the functions, with these exceptions, which all modules share:
//
//   SymGetOptions, SymSetOptions  "SymGetOptons", "SymSetOptons"
//   SymCleanup                    has none; it belongs under the mutex of SymInitialize
//
// The mutexes are made, and the debugging-help library (dbghelp.dll) is loaded, on first use. The
// mutexes are closed when this library is unloaded. The debugging-help library stays loaded, and
// symbols stay initialised, for the life of the process.
//
// A wrapper takes and returns what the wrapped function does, records and handles of the system
// included, which void* and the records below stand for. When the function fails, the thread's last
// error is the function's when the wrapper returns. Where the debugging-help library is missing a
// wrapper returns 0 or null with the last error 126, and where it lacks the function 127. A mutex
// that cannot be made is done without; one whose holder ended is taken over.
//
// Any thread may use everything here at any time. But the first walk, name or trap file of a
// process puts back the options that it found: what ossSymSetOptions sets meanwhile is lost.
// Nothing is traced or logged but the making of the mutexes' security attributes
// (ossipcresource.h).
#pragma once

#include "osstypes.h"

// Tags of the system.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-*)
struct API_VERSION;
struct _IMAGEHLP_MODULE64;
struct _IMAGEHLP_SYMBOL64;
// NOLINTEND(bugprone-reserved-identifier,cert-*)

/// Answers a request of the debugging-help library. \return not 0 when it did
using OSSSymbolCallback = int (*)(void* process, unsigned long request, uint64_t data,
                                  uint64_t context);

extern "C" {

/// Makes the mutexes, once however often it is called. What needs them calls it, too.
/// \return 0
OSS_API uint32_t ossLoadSymDLL() noexcept;
/// Does nothing: the mutexes serve until this library is unloaded.
OSS_API void ossFreeSymDLL() noexcept;

// ---- Symbols of a process -----------------------------------------------------------------------

/// Initialises the symbols of a process, until that has once succeeded in this process, for
/// whichever it was.
/// \param process  the system's handle
/// \param path     where symbol files are looked for; null for the system's default
/// \param invade   not 0: the symbols of all modules loaded so far. Stack walks need this; a module
///                 that is loaded later is brought in with ossSymLoadModule
/// \return SymInitialize's result. A later call only counts and returns 0 with the last error
///         untouched, which is no failure
OSS_API int ossSymInitialize(void* process, const char* path, int invade) noexcept;
/// Does nothing: symbols stay initialised for the life of the process. \return 0
OSS_API int ossSymCleanup(void* process) noexcept;

OSS_API int ossSymGetSearchPath(void* process, char* path, unsigned long size) noexcept;
OSS_API int ossSymSetSearchPath(void* process, const char* path) noexcept;

/// These four do nothing about errors.
OSS_API unsigned long ossSymGetOptions() noexcept;
OSS_API unsigned long ossSymSetOptions(unsigned long options) noexcept;
OSS_API API_VERSION* ossImagehlpApiVersion() noexcept;
OSS_API API_VERSION* ossImagehlpApiVersionEx(API_VERSION* expected) noexcept;

OSS_API int ossSymRegisterCallback(void* process, OSSSymbolCallback callback,
                                   uint64_t context) noexcept;
/// Registers a callback that answers the request to read memory (6) from the process's memory, with
/// the count of bytes that could be read, and ignores every other. A process has one callback: this
/// replaces the host's, and so does a trap file's section of the stack (osstrapfile.h). It is
/// withdrawn when this library is unloaded, unless ossSymRegisterCallback has replaced it by then;
/// of several processes only for the one that was registered last.
/// \return as above
OSS_API int ossSymRegisterStackWalkCallback(void* process) noexcept;

// ---- Modules ------------------------------------------------------------------------------------

OSS_API int ossSymGetModuleInfo(void* process, uint64_t address,
                                _IMAGEHLP_MODULE64* module) noexcept;
/// The last error is the function's where `address` is 0, and not wherever the result is.
OSS_API uint64_t ossSymGetModuleBase(void* process, uint64_t address) noexcept;
OSS_API uint64_t ossSymLoadModule(void* process, void* file, const char* image, const char* name,
                                  uint64_t base, unsigned long size) noexcept;
OSS_API int ossSymUnloadModule(void* process, uint64_t base) noexcept;
OSS_API unsigned long ossGetTimestampForLoadedLibrary(void* module) noexcept;
OSS_API void* ossSymFunctionTableAccess(void* process, uint64_t address) noexcept;

// ---- Names --------------------------------------------------------------------------------------

OSS_API int ossSymGetSymFromAddr(void* process, uint64_t address, uint64_t* displacement,
                                 _IMAGEHLP_SYMBOL64* symbol) noexcept;

/// Names the function of this process that an address lies in. Initialises symbols.
/// \param out           receives the name, or for an unknown address its 16 upper-case hexadecimal
///                      digits behind 0x, or "?unknown" for address 0; may be null
/// \param outSize       bytes at `out`; the text is cut to them and terminated, at 0 nothing is
///                      written
/// \param displacement  receives the distance from the function's start; 0 for an unknown address
///                      and where `out` or `outSize` leave no room; may be null
/// \return `displacement`
OSS_API uint64_t* ossSymbolNameForAddress(uint64_t address, char* out, uint64_t outSize,
                                          uint64_t* displacement) noexcept;

}  // extern "C"
