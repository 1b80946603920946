// dumpfile.h - a dump file that is read: its header, the walk over its records, and its bytes.
//
//   DumpFile dump;
//   dump.open(path);
//   while (dump.next()) use(dump.record());
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "clock.h"
#include "ossfile.h"
#include "osstracedump.h"
#include "record.h"

namespace oss::tool {

class DumpFile {
 public:
  DumpFile();
  ~DumpFile();
  DumpFile(const DumpFile&) = delete;
  DumpFile& operator=(const DumpFile&) = delete;

  // \return 0, or why the file is no dump that can be read; once for each DumpFile. One that does
  // not begin as dumps do gives ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER, however short it is
  OSSErr open(const std::string& path);

  // What is no dump, but a file that a faulting process writes.
  bool isTrapFile();

  const GTraceDumpHeader& header() const { return *header_; }
  bool isCounts() const { return parser_.kind == GTRACE_COUNT_DUMP; }
  bool isInstantaneous() const { return header_->ring.dumpType == RAMBO_INSTANTANEOUS_DUMP; }
  bool hasStamps() const { return (header_->options.flags & GTRACE_STAMP) != 0; }
  bool wrapped() const;
  bool truncated() const;
  // What a dump lacks that ends too early; "" when nothing tells of that.
  std::string missing();

  // The clock of the dumping process; without stamps one that counts records as microseconds.
  Clock clock() const { return Clock(hasStamps() ? header_->ticksPerSecond : 1'000'000); }

  // Fetches the next record, or entry of a table; false behind the last.
  bool next() {
    size_ = gtraceParseRecords(&file_, &parser_, nullptr, payload_.get(), kPayload);
    return size_ != 0;
  }
  Record record() const { return {payload_.get(), size_}; }
  const GTraceFunctionCount& entry() const {
    return *reinterpret_cast<const GTraceFunctionCount*>(payload_.get());
  }

  // Reads bytes of the file, fewer behind its end. Not while a walk goes on.
  uint64_t read(uint64_t offset, void* buffer, uint64_t size);

 private:
  static constexpr uint64_t kPayload = RAMBO_CHUNK;

  OSSErr readHeader();
  OSSErr rewind();
  bool beginsWith(std::string_view magic);

  OSSHFile file_;
  bool isOpen_ = false;
  std::unique_ptr<GTraceDumpHeader> header_;
  GTraceDumpParser parser_{};
  std::unique_ptr<uint8_t[]> payload_;
  uint64_t size_ = 0;
};

}  // namespace oss::tool
