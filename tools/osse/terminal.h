// terminal.h - the standard streams and output files, as the system has them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "osstypes.h"
#include "output.h"

namespace oss::tool {

// Writes a line to standard error: "osse: ...".
void complain(std::string_view text);

// The same with a return code's name and description behind the text.
void complain(std::string_view text, OSSErr rc);

// Reads a whole file, but at most `most` bytes of it. \return false, with a complaint
bool readInput(const std::string& path, uint64_t most, std::string& bytes);

// The file that a command writes: standard output for "".
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Creates or empties the file, unless it is `input`, the one that the command reads. \return
  // false, with a complaint, when it cannot
  bool open(const std::string& path, const std::string& input = {});

  // Writes at the end, or at an offset. \return false when not everything was written
  bool write(const void* data, uint64_t size);
  bool writeAt(uint64_t offset, const void* data, uint64_t size);

  // As an Output's sink; `file` is an OutputFile.
  static bool sink(void* file, const char* data, size_t size);

 private:
  void* handle_ = nullptr;
  bool isOurs_ = false;
};

// Hands the rest of a command's text to its file, and complains when not everything was written.
// \return the exit code
int finish(Output& output);

// Tells how many records have been read, on standard error while that is a terminal.
class Progress {
 public:
  Progress();
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void step() {
    if ((++records_ & kMask) == 0) [[unlikely]]
      show();
  }

 private:
  static constexpr uint64_t kMask = (uint64_t{1} << 20) - 1;

  void show() const;

  bool isShown_;
  uint64_t records_ = 0;
};

}  // namespace oss::tool
