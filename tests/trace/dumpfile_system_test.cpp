// The reading side of trace dumps through the DLL, on real files: codes, positions, what the system
// refuses, and that nothing is kept.
#include <gmock/gmock.h>
#include <windows.h>

#include <array>
#include <string>

#include "harness/handles.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/tempdir.h"
#include "memory/ossmemoryfixture.h"
#include "osscatalog.h"
#include "ossfile.h"
#include "osstracedump.h"
#include "trace/dumpbuilder.h"

using namespace osse_test;
using namespace oss::dumps;
using namespace testing;

namespace {

// The library's log writes through the same imports, so it stays closed unless a test opens it.
class DumpFile : public Test {
 protected:
  // The dump stands behind some other bytes, and the position is where it begins.
  static constexpr uint64_t kInFront = 7;

  void put(const std::string& dump) {
    close();
    bytes_ = std::string(kInFront, 'x') + dump;
    writeFile(dir_.file("dump"), bytes_);
    const std::string path = dir_.file("dump");
    OSSFileOpenParam param;
    param.path = path.c_str();
    param.creation = OSS_FILE_OPEN_EXISTING;
    param.access = OSS_FILE_READ;
    ASSERT_EQ(file_.open(&param), ECF_OK);
    rewind();
  }
  ~DumpFile() override { close(); }

  void rewind() {
    ASSERT_EQ(::SetFilePointer(file_.getFileHandle(), kInFront, nullptr, FILE_BEGIN), kInFront);
  }
  uint64_t position() const {
    return ::SetFilePointer(file_.getFileHandle(), 0, nullptr, FILE_CURRENT);
  }
  void close() {
    const bool isOpen = file_.getFileHandle() != INVALID_HANDLE_VALUE;
    EXPECT_TRUE(!isOpen || file_.close() == ECF_OK);
  }

  // The sequence numbers of all records, whose payload must be the file's bytes.
  std::string walk(GTraceDumpParser& parser) {
    std::string text;
    std::string payload(RAMBO_LARGEST_PAYLOAD, '\0');
    uint64_t offset = 0;
    while (const uint64_t bytes =
               gtraceParseRecords(&file_, &parser, &offset, payload.data(), payload.size())) {
      uint32_t sequence = 0;
      std::memcpy(&sequence, payload.data(), sizeof sequence);
      EXPECT_EQ(payload.substr(0, bytes), payloadOf(sequence, bytes));
      EXPECT_EQ(bytes_.substr(offset, bytes), payloadOf(sequence, bytes));
      text += std::to_string(sequence) + ' ';
    }
    return text;
  }
  std::string walk(bool forward) {
    rewind();
    GTraceDumpParser parser;
    EXPECT_EQ(gtraceOpenDumpFileParser(&file_, &parser, forward), ECF_OK);
    const std::string text = walk(parser);
    EXPECT_EQ(gtraceCloseDumpFileParser(&parser), ECF_OK);
    return text;
  }

  TempDirectory dir_;
  OSSHFile file_;
  std::string bytes_;
};

std::string smallDump() {
  SlotArea slots(kSmallest);
  slots.put(10, 1);
  slots.put(11, 3);
  slots.put(14, 1);
  return traceDump({}, circularDump(slots, {.counter = 15, .slotIndex = 15, .sequenceStart = 10}));
}

std::string largeDump(uint32_t records) {
  SlotArea slots(16 << 20);
  slots.fill(0, records);
  return traceDump({}, fillOnceDump(slots, {.counter = records}));
}

bool isClosed(const GTraceDumpParser& parser) {
  return parser.kind == 0 && !parser.ring.open && parser.ring.buffer == nullptr &&
         parser.table.piece == nullptr;
}

// ---- Validation ----

struct Row {
  const char* name;
  std::string dump;
  int32_t kind;
  OSSErr expected;
};

std::vector<Row> rows() {
  const std::string ring = smallDump();
  const std::string area(kSmallest, '\0');
  const std::string noMagic = '?' + ring.substr(1);
  const auto inHead = [&](const Head& head) { return traceDump({}, headOf(head) + area); };
  const auto cutTo = [&](uint64_t size) { return ring.substr(0, size); };
  std::string noTail = ring;
  noTail[kTraceDataStart + kSmallest] = '?';
  return {
      {"a ring", ring, GTRACE_RING_DUMP, ECF_OK},
      {"any dump", ring, GTRACE_ANY_DUMP, ECF_OK},
      {"a ring is no table", ring, GTRACE_COUNT_DUMP, ECF_INVALID_PARAMETER},
      {"an unknown kind", ring, 3, ECF_INVALID_PARAMETER},
      {"a table", countDump(16, {}), GTRACE_COUNT_DUMP, ECF_OK},
      {"a table is no ring", countDump(16, {}), GTRACE_RING_DUMP, ECF_INVALID_PARAMETER},
      {"no chunk yet", traceDump({}, autoDump("")), GTRACE_RING_DUMP, ECF_OK},
      {"an empty file", "", GTRACE_ANY_DUMP, ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED},
      {"part of a header", cutTo(kTraceHeaderBytes - 1), GTRACE_ANY_DUMP,
       ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED},
      {"no header", noMagic, GTRACE_ANY_DUMP, ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER},
      {"part of a head", cutTo(kTraceDataStart - 1), GTRACE_ANY_DUMP,
       ECF_RAMBO_DUMP_FILE_HEADER_TRUNCATED},
      {"no head", traceDump({}, std::string(16, '?')), GTRACE_ANY_DUMP,
       ECF_RAMBO_DUMP_FILE_INVALID_HEADER_EYE_CATCHER},
      {"a small buffer", inHead({.bufferSize = 0x7FFFF}), GTRACE_ANY_DUMP,
       ECF_RAMBO_DUMP_FILE_INVALID_BUFFER_SIZE},
      {"a type of its own", inHead({.dumpType = 3}), GTRACE_ANY_DUMP,
       ECF_RAMBO_DUMP_FILE_INVALID_TYPE},
      {"part of the slots", cutTo(kTraceDataStart + 1), GTRACE_ANY_DUMP,
       ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED},
      {"part of a tail", cutTo(ring.size() - 1), GTRACE_ANY_DUMP,
       ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED},
      {"no tail", noTail, GTRACE_ANY_DUMP, ECF_RAMBO_DUMP_FILE_INVALID_TAIL_EYE_CATCHER},
      {"a slot behind the ring", traceDump({}, headOf({}) + area + tailOf({.slotIndex = 8192})),
       GTRACE_ANY_DUMP, ECF_RAMBO_DUMP_FILE_INVALID_SLOT_INDEX},
      {"part of a slot", traceDump({}, autoDump(std::string(63, '\0'))), GTRACE_ANY_DUMP,
       ECF_RAMBO_DUMP_FILE_TRUNCATED},
  };
}

TEST_F(DumpFile, IsValidatedWithoutARecordInTheLogAndWithThePositionRestored) {
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.name);
    put(row.dump);
    const LogCapture log;
    const size_t handles = openHandles();
    EXPECT_EQ(gtraceValidateDumpFile(&file_, row.kind), row.expected);
    EXPECT_EQ(position(), kInFront);
    EXPECT_THAT(log.records(), IsEmpty());
    EXPECT_EQ(openHandles(), handles);
  }
}

TEST_F(DumpFile, OpensWithTheCodesOfItsValidation) {
  for (const Row& row : rows()) {
    if (row.kind != GTRACE_ANY_DUMP) continue;
    SCOPED_TRACE(row.name);
    put(row.dump);
    GTraceDumpParser parser;
    EXPECT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), row.expected);
    EXPECT_EQ(gtraceCloseDumpFileParser(&parser),
              row.expected == ECF_OK ? ECF_OK : ECF_INVALID_PARAMETER);
    EXPECT_TRUE(isClosed(parser));
  }
}

TEST_F(DumpFile, OfARingAloneIsValidatedAndOpened) {
  put(smallDump().substr(kTraceHeaderBytes));
  EXPECT_EQ(ramboValidateDumpFile(&file_), ECF_OK);
  EXPECT_EQ(position(), kInFront);
  RamboDumpParser parser;
  ASSERT_EQ(ramboOpenDumpFileParser(&file_, &parser, false, false), ECF_OK);
  std::array<char, 52> payload;
  uint64_t offset = 0;
  EXPECT_EQ(ramboParseRecords(&file_, &parser, &offset, payload.data(), payload.size()), 52u);
  EXPECT_EQ(std::string(payload.data(), 52), payloadOf(14, 52));
  EXPECT_EQ(offset, kInFront + 16 + 14 * RAMBO_SLOT + 8);
  EXPECT_EQ(ramboCloseDumpFileParser(&parser), ECF_OK);
  EXPECT_EQ(ramboCloseDumpFileParser(&parser), ECF_INVALID_PARAMETER);

  put("@HEAD");
  EXPECT_EQ(ramboValidateDumpFile(&file_), ECF_RAMBO_DUMP_FILE_HEADER_TRUNCATED);
  EXPECT_EQ(position(), kInFront);
}

TEST_F(DumpFile, ThatIsNotOpenIsRefused) {
  GTraceDumpParser parser;
  EXPECT_EQ(gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboValidateDumpFile(&file_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_INVALID_PARAMETER);
  EXPECT_TRUE(isClosed(parser));
}

// ---- Records ----

TEST_F(DumpFile, GivesItsRecordsInBothDirections) {
  put(smallDump());
  EXPECT_EQ(walk(true), "10 11 14 ");
  EXPECT_EQ(walk(false), "14 11 10 ");
}

TEST_F(DumpFile, GivesTheEntriesOfItsFunctionCountTable) {
  put(countDump(64, {{7, 42, 1000}, {9, 0, 9}, {3, 5, 1}}));
  GTraceDumpParser parser;
  ASSERT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_OK);
  GTraceFunctionCount entry = {};
  uint64_t offset = 0;
  EXPECT_EQ(gtraceParseRecords(&file_, &parser, &offset, &entry, sizeof entry), 16u);
  EXPECT_EQ(bytesOf(entry), bytesOf(GTraceFunctionCount{7, 42, 1000}));
  EXPECT_EQ(offset, kInFront + kTraceDataStart);
  EXPECT_EQ(gtraceParseRecords(&file_, &parser, &offset, &entry, sizeof entry), 16u);
  EXPECT_EQ(bytesOf(entry), bytesOf(GTraceFunctionCount{3, 5, 1}));
  EXPECT_EQ(offset, kInFront + kTraceDataStart + 32);
  EXPECT_EQ(gtraceParseRecords(&file_, &parser, nullptr, &entry, sizeof entry), 0u);
  EXPECT_EQ(gtraceCloseDumpFileParser(&parser), ECF_OK);
  EXPECT_TRUE(isClosed(parser));
}

TEST_F(DumpFile, IsReadByAHandfulOfSystemCalls) {
  put(largeDump(100'000));
  GTraceDumpParser parser;
  ASSERT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_OK);
  CallCounter reads("ReadFile");
  CallCounter moves("SetFilePointer");
  CallCounter sizes("GetFileSize");
  std::array<char, 52> payload;
  uint32_t records = 0;
  while (gtraceParseRecords(&file_, &parser, nullptr, payload.data(), payload.size()) != 0)
    ++records;
  EXPECT_EQ(records, 100'000u);
  // A megabyte each, less what the largest record takes.
  EXPECT_EQ(reads.calls(), 7);
  EXPECT_EQ(moves.calls(), 7);
  EXPECT_EQ(sizes.calls(), 7);
  EXPECT_EQ(gtraceCloseDumpFileParser(&parser), ECF_OK);
}

TEST_F(DumpFile, TellsWhetherItsBufferWrappedAndWasTruncated) {
  struct {
    std::string dump;
    bool wrapped;
    bool truncated;
  } const cases[] = {
      {circularDump(SlotArea(kSmallest), {.counter = 9000, .sequenceStart = 9}), true, false},
      {circularDump(SlotArea(kSmallest), {.counter = 9, .slotIndex = 9}), false, false},
      {fillOnceDump(SlotArea(kSmallest), {.counter = 8192, .truncated = 1}), false, true},
  };
  for (const auto& expected : cases) {
    put(expected.dump);
    RamboDumpParser parser;
    ASSERT_EQ(ramboOpenDumpFileParser(&file_, &parser, true, false), ECF_OK);
    bool wrapped = !expected.wrapped;
    bool truncated = !expected.truncated;
    EXPECT_EQ(ramboDidBufferWrap(&parser, &wrapped), ECF_OK);
    EXPECT_EQ(ramboWasBufferTruncated(&parser, &truncated), ECF_OK);
    EXPECT_EQ(wrapped, expected.wrapped);
    EXPECT_EQ(truncated, expected.truncated);
    EXPECT_EQ(ramboCloseDumpFileParser(&parser), ECF_OK);
    EXPECT_EQ(ramboDidBufferWrap(&parser, &wrapped), ECF_INVALID_PARAMETER);
    EXPECT_EQ(ramboWasBufferTruncated(&parser, &truncated), ECF_INVALID_PARAMETER);
  }
}

// ---- Arguments ----

TEST_F(DumpFile, NullArgumentsAreRefused) {
  put(smallDump());
  GTraceDumpParser parser = {};
  bool flag = false;
  char payload[64];
  EXPECT_EQ(gtraceValidateDumpFile(nullptr, GTRACE_ANY_DUMP), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboValidateDumpFile(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(gtraceOpenDumpFileParser(nullptr, &parser, true), ECF_INVALID_PARAMETER);
  EXPECT_EQ(gtraceOpenDumpFileParser(&file_, nullptr, true), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboOpenDumpFileParser(nullptr, &parser.ring, true, false), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboOpenDumpFileParser(&file_, nullptr, true, false), ECF_INVALID_PARAMETER);
  EXPECT_EQ(gtraceCloseDumpFileParser(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboCloseDumpFileParser(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(gtraceCloseDumpFileParser(&parser), ECF_INVALID_PARAMETER);
  EXPECT_EQ(gtraceParseRecords(nullptr, &parser, nullptr, payload, sizeof payload), 0u);
  EXPECT_EQ(gtraceParseRecords(&file_, nullptr, nullptr, payload, sizeof payload), 0u);
  EXPECT_EQ(gtraceParseRecords(&file_, &parser, nullptr, payload, sizeof payload), 0u);
  EXPECT_EQ(ramboParseRecords(nullptr, &parser.ring, nullptr, payload, sizeof payload), 0u);
  EXPECT_EQ(ramboParseRecords(&file_, nullptr, nullptr, payload, sizeof payload), 0u);
  EXPECT_EQ(ramboDidBufferWrap(nullptr, &flag), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboWasBufferTruncated(nullptr, &flag), ECF_INVALID_PARAMETER);

  ASSERT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_OK);
  EXPECT_EQ(ramboDidBufferWrap(&parser.ring, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboWasBufferTruncated(&parser.ring, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(gtraceParseRecords(nullptr, &parser, nullptr, payload, sizeof payload), 0u);
  // Without a buffer the size does not count.
  EXPECT_EQ(gtraceParseRecords(&file_, &parser, nullptr, nullptr, 1000), 52u);
  EXPECT_EQ(ramboParseRecords(&file_, &parser.ring, nullptr, nullptr, 1000), 180u);
  EXPECT_EQ(gtraceCloseDumpFileParser(&parser), ECF_OK);
}

// ---- What the system refuses ----

constexpr FailingCall::Way refused(int call, Word result) {
  return {.result = result, .onCall = call};
}

TEST_F(DumpFile, ARefusedReadIsTheResultOfAValidation) {
  put(smallDump());
  for (int call = 1; call <= 3; ++call) {
    FailingCall fails("ReadFile", ERROR_LOCK_VIOLATION, refused(call, FALSE));
    EXPECT_EQ(gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP), ECF_FILE_LOCK);
    EXPECT_EQ(position(), kInFront);
  }
}

TEST_F(DumpFile, ARefusedMoveIsTheResultOfAValidation) {
  put(smallDump());
  // Two tell the position, three lead to the header, the head and the tail.
  for (int call = 1; call <= 5; ++call) {
    FailingCall fails("SetFilePointer", ERROR_CRC, refused(call, kAllOnes));
    EXPECT_EQ(gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP), ECF_UNKNOWN) << call;
    EXPECT_EQ(position(), kInFront) << call;
  }
}

TEST_F(DumpFile, ARefusedWayBackIsReportedWhenNothingElseWasFound) {
  put(smallDump());
  {
    FailingCall fails("SetFilePointer", ERROR_CRC, refused(6, kAllOnes));
    EXPECT_EQ(gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP), ECF_UNKNOWN);
  }
  rewind();
  {
    FailingCall fails("SetFilePointer", ERROR_CRC, refused(4, kAllOnes));
    EXPECT_EQ(gtraceValidateDumpFile(&file_, GTRACE_COUNT_DUMP), ECF_INVALID_PARAMETER);
  }
}

TEST_F(DumpFile, ARefusedQueryOfTheSizeIsTheResultOfAValidation) {
  put(smallDump());
  FailingCall fails("GetFileSize", ERROR_CRC, refused(3, kAllOnes));
  EXPECT_EQ(gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP), ECF_UNKNOWN);
  EXPECT_EQ(position(), kInFront);
}

TEST_F(DumpFile, AParserStaysClosedWhenTheSystemRefuses) {
  put(smallDump());
  for (int call = 1; call <= 3; ++call) {
    rewind();
    GTraceDumpParser parser;
    FailingCall fails("ReadFile", ERROR_LOCK_VIOLATION, refused(call, FALSE));
    EXPECT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_FILE_LOCK);
    EXPECT_TRUE(isClosed(parser));
  }
  rewind();
  GTraceDumpParser parser;
  FailingCall fails("malloc", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_NO_MEMORY);
  EXPECT_TRUE(isClosed(parser));
}

TEST_F(DumpFile, AWalkGoesOnAfterARefusedReadOrMove) {
  put(smallDump());
  for (const bool forward : {true, false}) {
    rewind();
    GTraceDumpParser parser;
    ASSERT_EQ(gtraceOpenDumpFileParser(&file_, &parser, forward), ECF_OK);
    {
      FailingCall fails("ReadFile", ERROR_LOCK_VIOLATION);
      EXPECT_EQ(walk(parser), "");
    }
    {
      FailingCall fails("SetFilePointer", ERROR_CRC, refused(1, kAllOnes));
      EXPECT_EQ(walk(parser), "");
    }
    EXPECT_EQ(walk(parser), forward ? "10 11 14 " : "14 11 10 ");
    EXPECT_EQ(gtraceCloseDumpFileParser(&parser), ECF_OK);
  }
}

// ---- What is kept ----

TEST_F(DumpFile, NoMemoryAndNoHandleIsKept) {
  choose(kFull);
  const std::vector<void*> blocks = liveBlocks();
  const size_t handles = openHandles();
  for (const std::string& dump :
       {smallDump(), countDump(64, {{7, 42, 1000}}), traceDump({.ringFile = 1}, autoDump(""))}) {
    put(dump);
    EXPECT_EQ(gtraceValidateDumpFile(&file_, GTRACE_ANY_DUMP), ECF_OK);
    GTraceDumpParser parser;
    EXPECT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_OK);
    EXPECT_EQ(liveBlocks().size(), blocks.size() + 1);
    EXPECT_EQ(gtraceCloseDumpFileParser(&parser), ECF_OK);
    EXPECT_EQ(liveBlocks(), blocks);
    close();
    EXPECT_EQ(openHandles(), handles);
  }

  // A scan that is refused gives back what opening had taken.
  put(traceDump({.ringFile = 1}, autoDump(std::string(RAMBO_CHUNK, '\0'))));
  GTraceDumpParser parser;
  {
    FailingCall fails("ReadFile", ERROR_LOCK_VIOLATION, refused(3, FALSE));
    EXPECT_EQ(gtraceOpenDumpFileParser(&file_, &parser, true), ECF_FILE_LOCK);
  }
  EXPECT_EQ(liveBlocks(), blocks);
  choose(kOff);
}

}  // namespace
