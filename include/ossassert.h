// ossassert.h - reports of failed assertions, and whether memory can be touched.
//
//   NON-FATAL ASSERTION FAILED!!!          without "NON-FATAL " when it is fatal
//   Time       = Sat Mar 07 08:05:09 2026  local
//   Expr       = slot != nullptr
//   PID        = 4711
//   TID        = 815
//   File       = trace/rambo.cpp
//   Line       = 120
//   dump data 0:                           and so on, one dump for each item
//   0x00007FFE1234ABC0 : 4865 6C6C 6F2C 2077 6F72 6C64 210A 0001    Hello, world!...
#pragma once

#include <cstdarg>

#include "osstypes.h"

/// Takes the place of every report. It is handed what the caller passed, null pointers included;
/// `items` are pairs of const void* and uint64_t, a pointer and its size in bytes, ended by a null
/// pointer or a size of 0.
using OSSAssertionCallback = void (*)(const char* expression, const char* file, uint64_t line,
                                      const char* dumpPath, uint8_t fatal, va_list items);

extern "C" {

/// Installs the process's callback; null removes it. While one is installed it is handed every
/// assertion, also a fatal one, and nothing else is done. Call it before other threads may assert.
/// A callback must neither allocate, free nor list blocks (ossmemory.h): while the list of live
/// blocks is written it is called with that list locked, and would wait for ever.
OSS_API void ossSetAssertionCallback(OSSAssertionCallback callback) noexcept;

/// Reports a failed assertion: a text of at most 255 characters, and a hex dump of each item, as
/// much of it as 4,096 bytes hold.
///
/// With a dump path the report is appended to "<dumpPath>\p<process>t<thread>.mem". Without one it
/// is printed if standard output is a terminal; then it is appended to the file that the
/// environment variable OSS_DEBUG_LOG_FILE names, or without the variable to the default log
/// facility's file if its path is set, whether the facility is open or not. A file that cannot be
/// opened is skipped.
///
/// Any thread may call it at any time. Reports that are appended to one file at once may overwrite
/// each other.
///
/// \param expression  what did not hold; null counts as empty
/// \param file        the source file; null counts as empty
/// \param line        the source line
/// \param dumpPath    a directory, or null or empty for none
/// \param fatal       not 0: the text goes to the debugger as well, and the process stops there
/// \param ...         the items: pairs of const void* and uint64_t, a readable region and its size
///                    in bytes, ended by a null pointer or a size of 0
OSS_API void ossAssertFailureAction(const char* expression, const char* file, uint64_t line,
                                    const char* dumpPath, uint8_t fatal, ...) noexcept;

/// The same, not fatal, without dump path and items.
OSS_API void ossAssertFailed(const char* expression, const char* file, uint64_t line) noexcept;

/// Tells whether `size` bytes cannot be read: 0 when they can. A pointer below 4096 and a size of 0
/// are always bad; otherwise the system is asked, for the low 32 bits of the size. It finds out by
/// trying, which a debugger may notice. The answer holds only as long as nobody else changes the
/// memory.
OSS_API int32_t ossIsBadReadPtr(const void* pointer, uint64_t size) noexcept;

/// The same for writing; with `forWrite` false it asks for reading only.
OSS_API int32_t ossIsBadWritePtr(void* pointer, uint64_t size, bool forWrite) noexcept;

/// The same for a string: for its bytes up to its NUL, but at most maxLength of them.
OSS_API int32_t ossIsBadString(const char* text, uint64_t maxLength) noexcept;

}  // extern "C"
