// The checks of a dump's heads and tail.
#include "trace/dumpheader.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "osscatalog.h"

namespace oss {
namespace {

constexpr char kDumpMagic[8] = "GTDUMP1";
constexpr char kHeadMagic[8] = "@HEAD\r\n";
constexpr char kTailMagic[8] = "@TAIL\r\n";

constexpr uint64_t kTraceHeaderBytes = offsetof(GTraceDumpHeader, ring);
static_assert(kTraceHeaderBytes == 182'896);

// As much of the trace header as a reader looks at; the masks behind it are 180 KB.
struct TraceHeaderFront {
  char magic[8];
  uint32_t bufferSize;
  uint32_t mode;
  uint8_t ringFile[8];
};
OSS_LAYOUT(TraceHeaderFront, 24);
static_assert(offsetof(TraceHeaderFront, bufferSize) ==
              offsetof(GTraceDumpHeader, options) + offsetof(GTraceOptions, bufferSize));
static_assert(offsetof(TraceHeaderFront, mode) ==
              offsetof(GTraceDumpHeader, options) + offsetof(GTraceOptions, mode));
static_assert(offsetof(TraceHeaderFront, ringFile) ==
              offsetof(GTraceDumpHeader, options) + offsetof(GTraceOptions, ringFile));

bool hasMagic(const char (&found)[8], const char (&expected)[8]) noexcept {
  return std::memcmp(found, expected, sizeof expected) == 0;
}

// Reads a record that must be there whole; `truncated` is the code when it is not.
template <class Record>
OSSErr readAt(DumpSource& source, uint64_t offset, Record& record, OSSErr truncated) noexcept {
  const OSSErr sought = source.seek(offset);
  if (sought == ECF_FILE_SEEK_BEYOND_EOF) return truncated;
  if (sought != ECF_OK) return sought;

  uint64_t count = 0;
  if (const OSSErr rc = source.read(&record, sizeof record, &count)) return rc;
  return count == sizeof record ? ECF_OK : truncated;
}

OSSErr bytesBehind(DumpSource& source, uint64_t offset, uint64_t& bytes) noexcept {
  uint64_t size = 0;
  if (const OSSErr rc = source.size(&size)) return rc;
  bytes = size - std::min(size, offset);
  return ECF_OK;
}

OSSErr readInstantaneous(DumpSource& source, RingDump& dump, uint64_t bytesLeft) noexcept {
  dump.dataBytes = dump.head.bufferSize;
  if (bytesLeft < dump.dataBytes) return ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED;
  if (const OSSErr rc = readAt(source, dump.dataStart + dump.dataBytes, dump.tail,
                               ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED))
    return rc;

  if (!hasMagic(dump.tail.magic, kTailMagic)) return ECF_RAMBO_DUMP_FILE_INVALID_TAIL_EYE_CATCHER;
  if (dump.tail.slotIndex >= dump.dataBytes / RAMBO_SLOT)
    return ECF_RAMBO_DUMP_FILE_INVALID_SLOT_INDEX;
  return ECF_OK;
}

// A dump of no chunk is whole, and so is one whose last chunk was cut behind a slot or more.
OSSErr checkAutoDump(RingDump& dump, uint64_t bytesLeft) noexcept {
  dump.dataBytes = bytesLeft;
  const uint64_t rest = bytesLeft % RAMBO_CHUNK;
  return rest == 0 || rest >= RAMBO_SLOT ? ECF_OK : ECF_RAMBO_DUMP_FILE_TRUNCATED;
}

OSSErr checkKind(DumpSource& source, uint64_t start, int32_t kind) noexcept {
  TraceDump dump = {};
  if (const OSSErr rc = readTraceDump(source, start, dump)) return rc;

  const int32_t found = dump.countsFunctions ? GTRACE_COUNT_DUMP : GTRACE_RING_DUMP;
  if (kind != GTRACE_ANY_DUMP && kind != found) return ECF_INVALID_PARAMETER;

  // The RAMBO head of a function-count dump is never filled.
  if (dump.countsFunctions) return ECF_OK;
  RingDump ring = {};
  return readRingDump(source, dump.ringStart, ring);
}

// Runs a check at the source's position and goes back there, whatever it finds.
template <class Check>
OSSErr checkInPlace(DumpSource& source, Check check) noexcept {
  uint64_t start = 0;
  if (const OSSErr rc = source.tell(&start)) return rc;
  const OSSErr found = check(start);
  const OSSErr back = source.seek(start);
  return found != ECF_OK ? found : back;
}

}  // namespace

OSSErr readRingDump(DumpSource& source, uint64_t start, RingDump& dump) noexcept {
  if (const OSSErr rc = readAt(source, start, dump.head, ECF_RAMBO_DUMP_FILE_HEADER_TRUNCATED))
    return rc;
  if (!hasMagic(dump.head.magic, kHeadMagic)) return ECF_RAMBO_DUMP_FILE_INVALID_HEADER_EYE_CATCHER;
  if (dump.head.bufferSize < RAMBO_SMALLEST_BUFFER || dump.head.bufferSize > RAMBO_LARGEST_BUFFER)
    return ECF_RAMBO_DUMP_FILE_INVALID_BUFFER_SIZE;

  dump.dataStart = start + sizeof dump.head;
  uint64_t bytesLeft = 0;
  if (const OSSErr rc = bytesBehind(source, dump.dataStart, bytesLeft)) return rc;
  switch (dump.head.dumpType) {
    case RAMBO_INSTANTANEOUS_DUMP: return readInstantaneous(source, dump, bytesLeft);
    case RAMBO_AUTO_DUMP: return checkAutoDump(dump, bytesLeft);
    default: return ECF_RAMBO_DUMP_FILE_INVALID_TYPE;
  }
}

OSSErr readTraceDump(DumpSource& source, uint64_t start, TraceDump& dump) noexcept {
  TraceHeaderFront front = {};
  if (const OSSErr rc = readAt(source, start, front, ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED))
    return rc;
  uint64_t bytes = 0;
  if (const OSSErr rc = bytesBehind(source, start, bytes)) return rc;
  if (bytes < kTraceHeaderBytes) return ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED;
  if (!hasMagic(front.magic, kDumpMagic)) return ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER;

  const auto isSet = [](uint8_t byte) { return byte != 0; };
  dump.countsFunctions = (front.mode & GTRACE_FUNCTION_COUNT) != 0;
  dump.ringFile = std::ranges::any_of(front.ringFile, isSet);
  dump.bufferSize = front.bufferSize;
  dump.ringStart = start + kTraceHeaderBytes;
  return ECF_OK;
}

OSSErr validateRingDump(DumpSource& source) noexcept {
  return checkInPlace(source, [&](uint64_t start) {
    RingDump dump = {};
    return readRingDump(source, start, dump);
  });
}

OSSErr validateTraceDump(DumpSource& source, int32_t kind) noexcept {
  return checkInPlace(source, [&](uint64_t start) { return checkKind(source, start, kind); });
}

}  // namespace oss
