// dumpsource.h - what the reader of trace dumps needs of its surroundings: a file, and memory. The
// library reads through an OSSHFile (dumpfile.cpp); tests read from bytes in memory.
#pragma once

#include "osstypes.h"

namespace oss {

// A file with a position. One thread uses it at a time.
class DumpSource {
 public:
  DumpSource() = default;
  virtual ~DumpSource() = default;
  DumpSource(const DumpSource&) = delete;
  DumpSource& operator=(const DumpSource&) = delete;

  // Reads up to `size` bytes at the position and moves it behind them. Fewer are the file's end,
  // which is no failure. *count is what was read, 0 for a failure.
  virtual OSSErr read(void* to, uint64_t size, uint64_t* count) noexcept = 0;

  // Moves the position; one behind the file's end is refused as ECF_FILE_SEEK_BEYOND_EOF.
  virtual OSSErr seek(uint64_t position) noexcept = 0;

  virtual OSSErr tell(uint64_t* position) noexcept = 0;
  virtual OSSErr size(uint64_t* bytes) noexcept = 0;
};

// Allocates `size` bytes, not 0, aligned to 8: ECF_OK and *out, or a failure. Their contents are
// undefined.
OSSErr allocateDumpBuffer(uint64_t size, void** out) noexcept;
void releaseDumpBuffer(void* buffer) noexcept;

}  // namespace oss
