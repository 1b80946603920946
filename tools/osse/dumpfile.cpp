#include "dumpfile.h"

#include "osscatalog.h"

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

  if (const OSSErr rc = gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP)) return rc;
  if (const OSSErr rc = readHeader()) return rc;
  return gtraceOpenDumpFileParser(&file_, &parser_, true);
}

OSSErr DumpFile::readHeader() {
  if (read(0, header_.get(), sizeof *header_) != sizeof *header_)
    return ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED;
  const OSSFileSeekParam start;
  return file_.seek(&start, nullptr);
}

bool DumpFile::wrapped() const {
  bool result = false;
  return ramboDidBufferWrap(&parser_.ring, &result) == ECF_OK && result;
}

bool DumpFile::truncated() const {
  bool result = false;
  return ramboWasBufferTruncated(&parser_.ring, &result) == ECF_OK && result;
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
