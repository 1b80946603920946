// ossprimitivefile.h - one system file handle and nothing else.
//
// For code that must read or write a file without tracing, logging or the catalog's codes, such as
// a fault handler. Results are the system's own error numbers, 0 for success. Offsets have 32 bits:
// files beyond 4 GiB are not addressed. No operation checks for more than it states; one thread
// uses an object at a time; nothing is released by a destructor.
#pragma once

#include "osstypes.h"

/// How OSSPrimitiveFileOp::open treats what is there: bits of its flags.
inline constexpr uint64_t OSS_PRIMITIVE_READ = 1;           ///< read only; else
inline constexpr uint64_t OSS_PRIMITIVE_WRITE = 2;          ///< write only; else both
inline constexpr uint64_t OSS_PRIMITIVE_OPEN_EXISTING = 8;  ///< refuse a missing file; else
inline constexpr uint64_t OSS_PRIMITIVE_OPEN_ALWAYS = 16;   ///< create it; else refuse

class OSS_API OSSPrimitiveFileOp {
 public:
  using offsetType = uint32_t;

  /// Constructs an object without a file.
  OSSPrimitiveFileOp() noexcept;

  /// Opens a file that others may read and write meanwhile. The handle of a file that is open
  /// already is lost, not closed.
  /// \param name   NUL-terminated, in the ANSI code page
  /// \param flags  OSS_PRIMITIVE_...
  /// \return 0, or the system's error; isValid() is then false
  int open(const char* name, uint64_t flags) noexcept;

  /// Takes the process's standard output for the file.
  void openConsole() noexcept;

  /// Closes the file. The handle's value is kept: whoever closes twice closes somebody else's.
  void close() noexcept;

  /// True unless the handle is all ones; so also for a null handle.
  bool isValid() const noexcept;

  /// Writes at the file pointer, in one call of the system that is not repeated when it is short.
  /// \param size  bytes, at most 2^32 - 1 of them; 0 means the length of the NUL-terminated data
  /// \return 0, or the system's error. Without a valid handle 0, and nothing is written
  int write(const void* data, uint64_t size) noexcept;

  /// Formats as ossSnprintf does, cut at 2,047 characters, and writes the text. The result is
  /// dropped.
  void fwrite(const char* format, ...) noexcept OSS_PRINTF_LIKE(2, 3);

  /// Reads at the file pointer, in one call of the system.
  /// \param size       bytes, of which the low 32 bits count
  /// \param bytesRead  receives the count; 0 on failure
  /// \return 0, or the system's error; without a valid handle whatever error was pending
  int read(uint64_t size, void* buffer, uint64_t* bytesRead) noexcept;

  /// Tells the low 32 bits of the file's size.
  /// \param size  receives it; 0 on failure
  /// \return 0, or the system's error. Low bits that are all ones are told as a size of 0, result 0
  int getSize(offsetType* size) noexcept;

  /// Tells the low 32 bits of where the file pointer stands; all ones when the system cannot.
  offsetType getCurrentOffset() const noexcept;

  /// Moves the file pointer to an offset from the start, which may lie behind the end. A refusal of
  /// the system is not reported, here and below.
  void seekToOffset(offsetType offset) noexcept;

  /// Moves the file pointer to the end, also of a file beyond 4 GiB.
  void seekToEnd() noexcept;

 protected:
  /// Replaces the handle; the old one stays open.
  void setFileHandle(void* handle) noexcept { fileHandle_ = handle; }

 private:
  void* fileHandle_;  // all ones without a file
};
OSS_LAYOUT(OSSPrimitiveFileOp, 8);
