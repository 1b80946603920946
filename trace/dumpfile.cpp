// The reading side of trace dumps for callers: the parser reads through an OSSHFile and takes its
// memory from the library's allocator.
#include "ossfile.h"

#include "osscatalog.h"
#include "ossmemory.h"
#include "osstracedump.h"
#include "trace/dumpheader.h"
#include "trace/dumpparser.h"

namespace oss {

OSSErr allocateDumpBuffer(uint64_t size, void** out) noexcept {
  return ossMemAlloc(out, nullptr, size, 0, __FILE__, __LINE__);
}

void releaseDumpBuffer(void* buffer) noexcept {
  // The block came from ossMemAlloc; what a check of it finds is reported there.
  static_cast<void>(ossMemFree(&buffer, nullptr, 0, __FILE__, __LINE__));
}

namespace {

class FileSource final : public DumpSource {
 public:
  explicit FileSource(OSSHFile& file) noexcept : file_(file) {}

  OSSErr read(void* to, uint64_t size, uint64_t* count) noexcept override {
    OSSFileReadParam param;
    param.size = size;
    const OSSErr rc = file_.read(&param, to, count);
    if (rc == ECF_OK || rc == ECF_FILE_EOF) return ECF_OK;
    *count = 0;
    return rc;
  }

  OSSErr seek(uint64_t position) noexcept override {
    OSSFileSeekParam param;
    param.offset = static_cast<int64_t>(position);
    return file_.seek(&param, nullptr);
  }

  OSSErr tell(uint64_t* position) noexcept override {
    OSSFileSeekParam param;
    param.origin = OSS_FILE_CURRENT;
    return file_.seek(&param, position);
  }

  OSSErr size(uint64_t* bytes) noexcept override { return file_.getSize(bytes); }

 private:
  OSSHFile& file_;
};

// What takeOneSlot does not answer. Not inline, so that the usual call needs no stack.
[[gnu::noinline]] uint64_t searchDump(OSSHFile* file, GTraceDumpParser* parser,
                                      uint64_t* recordOffset, void* buffer,
                                      uint64_t bufferSize) noexcept {
  if (file == nullptr || parser == nullptr) return 0;
  FileSource source(*file);
  if (parser->kind == GTRACE_RING_DUMP)
    return searchRecord(source, parser->ring, recordOffset, buffer, bufferSize);
  if (parser->kind == GTRACE_COUNT_DUMP)
    return parseCount(source, parser->table, recordOffset, buffer, bufferSize);
  return 0;
}

}  // namespace
}  // namespace oss

using namespace oss;

OSSErr gtraceValidateDumpFile(OSSHFile* file, int32_t kind) noexcept {
  if (file == nullptr) return ECF_INVALID_PARAMETER;
  FileSource source(*file);
  return validateTraceDump(source, kind);
}

OSSErr ramboValidateDumpFile(OSSHFile* file) noexcept {
  if (file == nullptr) return ECF_INVALID_PARAMETER;
  FileSource source(*file);
  return validateRingDump(source);
}

OSSErr gtraceOpenDumpFileParser(OSSHFile* file, GTraceDumpParser* parser, bool forward) noexcept {
  if (file == nullptr || parser == nullptr) return ECF_INVALID_PARAMETER;
  FileSource source(*file);
  return openTraceDump(source, *parser, forward);
}

OSSErr ramboOpenDumpFileParser(OSSHFile* file, RamboDumpParser* parser, bool forward,
                               bool ringFile) noexcept {
  if (file == nullptr || parser == nullptr) return ECF_INVALID_PARAMETER;
  FileSource source(*file);
  return openRingDump(source, *parser, forward, ringFile);
}

uint64_t gtraceParseRecords(OSSHFile* file, GTraceDumpParser* parser, uint64_t* recordOffset,
                            void* buffer, uint64_t bufferSize) noexcept {
  // The ring of a parser of another kind is closed, and gives none.
  if (file != nullptr && parser != nullptr &&
      takeOneSlot(parser->ring, recordOffset, buffer, bufferSize)) [[likely]]
    return kOneSlotPayload;
  return searchDump(file, parser, recordOffset, buffer, bufferSize);
}

uint64_t ramboParseRecords(OSSHFile* file, RamboDumpParser* parser, uint64_t* recordOffset,
                           void* buffer, uint64_t bufferSize) noexcept {
  if (file == nullptr || parser == nullptr) return 0;
  FileSource source(*file);
  return parseRecord(source, *parser, recordOffset, buffer, bufferSize);
}

OSSErr gtraceCloseDumpFileParser(GTraceDumpParser* parser) noexcept {
  return parser != nullptr ? closeTraceDump(*parser) : ECF_INVALID_PARAMETER;
}

OSSErr ramboCloseDumpFileParser(RamboDumpParser* parser) noexcept {
  return parser != nullptr ? closeRingDump(*parser) : ECF_INVALID_PARAMETER;
}

OSSErr ramboDidBufferWrap(const RamboDumpParser* parser, bool* result) noexcept {
  if (parser == nullptr || result == nullptr || !parser->open) return ECF_INVALID_PARAMETER;
  *result = parser->wrapped;
  return ECF_OK;
}

OSSErr ramboWasBufferTruncated(const RamboDumpParser* parser, bool* result) noexcept {
  if (parser == nullptr || result == nullptr || !parser->open) return ECF_INVALID_PARAMETER;
  *result = parser->truncated;
  return ECF_OK;
}
