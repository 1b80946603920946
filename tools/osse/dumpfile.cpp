#include "dumpfile.h"

#include "osscatalog.h"
#include "osstrapfile.h"

namespace oss::tool {

DumpFile::DumpFile()
    : header_(std::make_unique<GTraceDumpHeader>()), payload_(new uint8_t[kPayload]) {}

DumpFile::~DumpFile() {
  if (parser_.kind != 0) gtraceCloseDumpFileParser(&parser_);
  if (isOpen_) file_.close();
}

OSSErr DumpFile::open(const std::string& path) {
  OSSFileOpenParam param;
  param.path = path.c_str();
  param.creation = OSS_FILE_OPEN_EXISTING;
  param.access = OSS_FILE_READ;
  if (const OSSErr rc = file_.open(&param)) return rc;
  isOpen_ = true;

  if (!beginsWith("GTDUMP1")) return ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER;
  if (const OSSErr rc = gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP)) return rc;
  if (const OSSErr rc = readHeader()) return rc;
  return gtraceOpenDumpFileParser(&file_, &parser_, true);
}

OSSErr DumpFile::readHeader() {
  if (read(0, header_.get(), sizeof *header_) != sizeof *header_)
    return ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED;
  return rewind();
}

OSSErr DumpFile::rewind() {
  const OSSFileSeekParam start;
  return file_.seek(&start, nullptr);
}

bool DumpFile::beginsWith(std::string_view magic) {
  std::string there(magic.size(), '\0');
  return read(0, there.data(), there.size()) == there.size() && there == magic &&
         rewind() == ECF_OK;
}

bool DumpFile::isTrapFile() { return beginsWith(OSS_TRAP_EYE_CATCHER); }

bool DumpFile::wrapped() const {
  bool result = false;
  return ramboDidBufferWrap(&parser_.ring, &result) == ECF_OK && result;
}

bool DumpFile::truncated() const {
  bool result = false;
  return ramboWasBufferTruncated(&parser_.ring, &result) == ECF_OK && result;
}

// A table is as long as its header tells, and an instantaneous dump is not opened without its tail;
// of chunks nothing tells but that slots are whole.
std::string DumpFile::missing() {
  uint64_t bytes = 0;
  if (file_.getSize(&bytes) != ECF_OK || bytes < sizeof *header_) return "";
  const uint64_t there = bytes - sizeof *header_;
  const uint64_t table = header_->options.bufferSize;
  if (isCounts() && there < table)
    return std::to_string(table - there) + " of " + std::to_string(table) + " bytes of its table";
  if (!isCounts() && !isInstantaneous() && there % RAMBO_SLOT != 0) return "the end of a slot";
  return "";
}

uint64_t DumpFile::read(uint64_t offset, void* buffer, uint64_t size) {
  OSSFileSeekParam seek;
  seek.offset = static_cast<int64_t>(offset);
  if (file_.seek(&seek, nullptr) != ECF_OK) return 0;
  OSSFileReadParam param;
  param.size = size;
  uint64_t count = 0;
  file_.read(&param, buffer, &count);
  return count;
}

}  // namespace oss::tool
