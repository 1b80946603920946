// osstrapwriter.h - the sections of a trap file, each written to its own end or to its first fault.
#pragma once

#include <windows.h>

#include "fault/ossprocessmemory.h"
#include "osstrapfile.h"

namespace oss {

// Writes sections of one file, which is initialised and open, from what its caller has caught.
class TrapWriter {
 public:
  TrapWriter(OSSTrapFile& file, const EXCEPTION_RECORD* exception, const CONTEXT* context) noexcept
      : file_(file),
        header_(file.header_),
        memory_(file.process_),
        exception_(exception),
        context_(context) {}
  ~TrapWriter() = default;
  TrapWriter(const TrapWriter&) = delete;
  TrapWriter& operator=(const TrapWriter&) = delete;

  // Writes the sections whose bits are set, in the file's order.
  void write(uint64_t sections) noexcept;

  // Appends a module to the section of modules, which the header counts.
  static void appendModule(OSSTrapFile& file, const OSSTrapModule& module) noexcept;

 private:
  void writeHeader() noexcept;
  void writeSystem() noexcept;
  void writeMemoryStatus() noexcept;
  void writeEnvironmentStrings() noexcept;
  void writeException() noexcept;
  void writeContext() noexcept;
  void writeModules() noexcept;
  void writeHeaderAgain() noexcept;
  void writeLibraryVersion() noexcept;
  void writeStack() noexcept;
  uint64_t writeFrames(const CONTEXT& context) noexcept;
  void writeRawStack(uint64_t stackPointer, uint64_t lastFrame) noexcept;
  void writeModuleSection() noexcept;

  template <class Record>
  void put(const Record& record) noexcept {
    file_.write(&record, sizeof record);
  }

  OSSTrapFile& file_;
  OSSTrapHeader& header_;
  ProcessMemory memory_;
  const EXCEPTION_RECORD* exception_;
  const CONTEXT* context_;
};

}  // namespace oss
