// Tests of the checks of a dump: every code that they give, in their order, and that the position
// is put back. Opening a parser gives the same codes.
#include "trace/dumpheader.h"

#include <gtest/gtest.h>

#include <string>

#include "osscatalog.h"
#include "trace/dumpbuilder.h"
#include "trace/dumpparser.h"
#include "trace/memorysource.h"

using namespace oss;
using namespace oss::dumps;

namespace {

// What is in front of the dump, so that nothing is found by counting from the file's start.
constexpr uint64_t kInFront = 5;
const std::string kFront(kInFront, 'x');

void expectClosed(const GTraceDumpParser& parser) {
  EXPECT_EQ(parser.kind, 0);
  EXPECT_EQ(parser.ring.buffer, nullptr);
  EXPECT_EQ(parser.table.piece, nullptr);
}

// The answer to a trace dump, by validation and, for any kind, by opening.
OSSErr checked(const std::string& dump, int32_t kind = GTRACE_ANY_DUMP) {
  const std::string file = kFront + dump;
  MemorySource source(file);
  source.seek(kInFront);
  const OSSErr rc = validateTraceDump(source, kind);
  EXPECT_EQ(source.position(), kInFront);
  if (kind != GTRACE_ANY_DUMP) return rc;

  GTraceDumpParser parser;
  EXPECT_EQ(openTraceDump(source, parser, true), rc);
  EXPECT_EQ(closeTraceDump(parser), rc == ECF_OK ? ECF_OK : ECF_INVALID_PARAMETER);
  expectClosed(parser);
  return rc;
}

// The same for a dump that begins at its RAMBO head.
OSSErr checkedRing(const std::string& dump) {
  const std::string file = kFront + dump;
  MemorySource source(file);
  source.seek(kInFront);
  const OSSErr rc = validateRingDump(source);
  EXPECT_EQ(source.position(), kInFront);

  RamboDumpParser parser;
  source.seek(kInFront);
  EXPECT_EQ(openRingDump(source, parser, true, false), rc);
  EXPECT_EQ(parser.open, rc == ECF_OK);
  EXPECT_EQ(closeRingDump(parser), rc == ECF_OK ? ECF_OK : ECF_INVALID_PARAMETER);
  EXPECT_EQ(parser.buffer, nullptr);
  return rc;
}

std::string instantaneous(const Head& head, const Tail& tail) {
  return headOf(head) + std::string(head.bufferSize, '\0') + tailOf(tail);
}

std::string changed(std::string bytes, uint64_t offset) {
  bytes[offset] = static_cast<char>(~bytes[offset]);
  return bytes;
}

// ---- Whole dumps ----

TEST(DumpHeader, DumpsOfEveryKindAreValid) {
  EXPECT_EQ(checked(traceDump({}, instantaneous({}, {}))), ECF_OK);
  EXPECT_EQ(checked(traceDump({}, instantaneous({.circular = 0}, {}))), ECF_OK);
  EXPECT_EQ(checked(traceDump({}, autoDump(std::string(RAMBO_CHUNK, '\0')))), ECF_OK);
  EXPECT_EQ(checked(countDump(kSmallest, {})), ECF_OK);
}

TEST(DumpHeader, AnAutoDumpWithoutAChunkIsValid) {
  const std::string dump = traceDump({}, autoDump(""));
  EXPECT_EQ(dump.size(), 182'912u);
  EXPECT_EQ(checked(dump), ECF_OK);
}

TEST(DumpHeader, TheKindIsCompared) {
  const std::string ring = traceDump({}, autoDump(""));
  const std::string counts = countDump(kSmallest, {});
  EXPECT_EQ(checked(ring, GTRACE_RING_DUMP), ECF_OK);
  EXPECT_EQ(checked(ring, GTRACE_COUNT_DUMP), ECF_INVALID_PARAMETER);
  EXPECT_EQ(checked(counts, GTRACE_COUNT_DUMP), ECF_OK);
  EXPECT_EQ(checked(counts, GTRACE_RING_DUMP), ECF_INVALID_PARAMETER);
}

TEST(DumpHeader, AnUnknownKindMatchesNoDump) {
  for (const int32_t kind : {-1, 3, 0x7FFFFFFF}) {
    EXPECT_EQ(checked(traceDump({}, autoDump("")), kind), ECF_INVALID_PARAMETER);
    EXPECT_EQ(checked(countDump(kSmallest, {}), kind), ECF_INVALID_PARAMETER);
  }
}

TEST(DumpHeader, TheEyeCatcherIsAskedBeforeTheKind) {
  EXPECT_EQ(checked(changed(traceDump({}, autoDump("")), 0), 3),
            ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER);
}

TEST(DumpHeader, TheKindIsAskedBeforeTheRing) {
  EXPECT_EQ(checked(traceDump({}, "?"), GTRACE_COUNT_DUMP), ECF_INVALID_PARAMETER);
  EXPECT_EQ(checked(traceDump({}, "?"), GTRACE_RING_DUMP), ECF_RAMBO_DUMP_FILE_HEADER_TRUNCATED);
}

TEST(DumpHeader, FunctionCountWinsOverTheOtherModes) {
  EXPECT_EQ(checked(traceDump({.mode = 0xFFFFFFFF}, ""), GTRACE_COUNT_DUMP), ECF_OK);
  EXPECT_EQ(checked(traceDump({.mode = ~GTRACE_FUNCTION_COUNT}, autoDump("")), GTRACE_RING_DUMP),
            ECF_OK);
}

// ---- Eye-catchers ----

TEST(DumpHeader, EveryByteOfAnEyeCatcherCounts) {
  const std::string dump = traceDump({}, instantaneous({}, {}));
  for (uint64_t i = 0; i < 8; ++i) {
    EXPECT_EQ(checked(changed(dump, i)), ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER);
    EXPECT_EQ(checked(changed(dump, kTraceHeaderBytes + i)),
              ECF_RAMBO_DUMP_FILE_INVALID_HEADER_EYE_CATCHER);
    EXPECT_EQ(checked(changed(dump, kTraceDataStart + kSmallest + i)),
              ECF_RAMBO_DUMP_FILE_INVALID_TAIL_EYE_CATCHER);
  }
}

// ---- The ring's head and tail ----

TEST(DumpHeader, TheBufferSizeHasLimits) {
  for (const uint32_t size : {0u, 64u, 0x7FFFFu, 0x40000001u, 0xFFFFFFFFu})
    for (const uint16_t type : {RAMBO_INSTANTANEOUS_DUMP, RAMBO_AUTO_DUMP, uint16_t{7}})
      EXPECT_EQ(checkedRing(headOf({.bufferSize = size, .dumpType = type})),
                ECF_RAMBO_DUMP_FILE_INVALID_BUFFER_SIZE);
  EXPECT_EQ(checkedRing(headOf({.bufferSize = 0x40000000, .dumpType = RAMBO_AUTO_DUMP})), ECF_OK);
}

TEST(DumpHeader, ABufferSizeThatIsNoPowerOfTwoIsRead) {
  for (const uint32_t size : {0x80001u, 0x8003Fu, 0x90000u})
    EXPECT_EQ(checkedRing(instantaneous({.bufferSize = size}, {})), ECF_OK);
}

TEST(DumpHeader, OtherDumpTypesAreRefused) {
  for (const uint16_t type : {uint16_t{0}, uint16_t{3}, uint16_t{0x0101}, uint16_t{0xFFFF}})
    EXPECT_EQ(checkedRing(instantaneous({.dumpType = type}, {})), ECF_RAMBO_DUMP_FILE_INVALID_TYPE);
}

TEST(DumpHeader, TheTailsSlotLiesInTheRing) {
  EXPECT_EQ(checkedRing(instantaneous({}, {.slotIndex = kSmallestSlots - 1})), ECF_OK);
  for (const uint32_t slot : {kSmallestSlots, kSmallestSlots + 1, 0xFFFFFFFFu})
    EXPECT_EQ(checkedRing(instantaneous({}, {.slotIndex = slot})),
              ECF_RAMBO_DUMP_FILE_INVALID_SLOT_INDEX);
}

TEST(DumpHeader, ALargeBufferThatIsNotThereIsTruncation) {
  EXPECT_EQ(checkedRing(headOf({.bufferSize = 0x40000000}) + std::string(1000, '\0')),
            ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED);
}

TEST(DumpHeader, AnAutoDumpMayNotEndWithinTheFirstSlotOfAChunk) {
  const auto afterChunks = [](uint64_t chunks, uint64_t rest) {
    return checkedRing(autoDump(std::string(chunks * RAMBO_CHUNK + rest, '\0')));
  };
  for (const uint64_t chunks : {0u, 1u, 3u}) {
    EXPECT_EQ(afterChunks(chunks, 0), ECF_OK);
    for (const uint64_t rest : {1u, 32u, 63u})
      EXPECT_EQ(afterChunks(chunks, rest), ECF_RAMBO_DUMP_FILE_TRUNCATED);
    for (const uint64_t rest : {64u, 65u, 127u, RAMBO_CHUNK - 1})
      EXPECT_EQ(afterChunks(chunks, rest), ECF_OK);
  }
}

// ---- Cut files ----

TEST(DumpHeader, AnInstantaneousDumpIsRefusedWhereverItIsCut) {
  const std::string dump = traceDump({}, instantaneous({}, {}));
  for (uint64_t size = 0; size < dump.size(); ++size) {
    MemorySource source(std::string_view(dump).substr(0, size));
    const OSSErr expected = size < kTraceHeaderBytes ? ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED
                            : size < kTraceDataStart ? ECF_RAMBO_DUMP_FILE_HEADER_TRUNCATED
                                                     : ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED;
    ASSERT_EQ(validateTraceDump(source, GTRACE_ANY_DUMP), expected) << size;
    ASSERT_EQ(source.position(), 0u) << size;

    GTraceDumpParser parser;
    ASSERT_EQ(openTraceDump(source, parser, true), expected) << size;
    expectClosed(parser);
  }
}

TEST(DumpHeader, AFunctionCountDumpNeedsItsHeaderOnly) {
  const std::string dump = countDump(kSmallest, {});
  EXPECT_EQ(checked(dump.substr(0, kTraceHeaderBytes - 1)), ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED);
  EXPECT_EQ(checked(dump.substr(0, kTraceHeaderBytes)), ECF_OK);
}

TEST(DumpHeader, APositionBehindTheDumpIsTruncation) {
  MemorySource source("");
  EXPECT_EQ(validateTraceDump(source, GTRACE_ANY_DUMP), ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED);
  EXPECT_EQ(validateRingDump(source), ECF_RAMBO_DUMP_FILE_HEADER_TRUNCATED);
}

// ---- Refused calls ----

TEST(DumpHeader, EveryRefusedCallOfAValidationIsReported) {
  const std::string dump = traceDump({}, instantaneous({}, {}));
  uint64_t refusals = 0;
  for (uint64_t call = 1;; ++call) {
    MemorySource source(dump);
    source.refuse(call);
    const OSSErr rc = validateTraceDump(source, GTRACE_ANY_DUMP);
    if (!source.hasRefused()) {
      EXPECT_EQ(rc, ECF_OK);
      break;
    }
    ++refusals;
    EXPECT_EQ(rc, ECF_UNKNOWN) << call;
  }
  EXPECT_GE(refusals, 9u);  // a position, three records, two sizes, and the way back
}

TEST(DumpHeader, ARefusedWayBackDoesNotHideWhatWasFound) {
  const std::string dump = changed(traceDump({}, instantaneous({}, {})), 0);
  uint64_t refusedWayBack = 0;
  for (uint64_t call = 1;; ++call) {
    MemorySource source(dump);
    source.refuse(call);
    const OSSErr rc = validateTraceDump(source, GTRACE_ANY_DUMP);
    if (!source.hasRefused()) break;
    if (rc == ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER) refusedWayBack = call;
  }
  EXPECT_EQ(refusedWayBack, 5u);  // behind a position, a move, a read and a size
}

TEST(DumpHeader, EveryRefusedCallOfOpeningIsReportedAndLeavesTheParserClosed) {
  const std::string rings = traceDump({.ringFile = 1}, autoDump(std::string(3 << 20, '\0')));
  const std::string once = traceDump({}, instantaneous({}, {}));
  for (const std::string& dump : {rings, once}) {
    uint64_t refusals = 0;
    for (uint64_t call = 1;; ++call) {
      MemorySource source(dump);
      source.refuse(call);
      GTraceDumpParser parser;
      const OSSErr rc = openTraceDump(source, parser, true);
      if (!source.hasRefused()) {
        EXPECT_EQ(rc, ECF_OK);
        EXPECT_EQ(closeTraceDump(parser), ECF_OK);
        break;
      }
      ++refusals;
      EXPECT_EQ(rc, ECF_UNKNOWN) << call;
      expectClosed(parser);
    }
    EXPECT_GE(refusals, 7u);
  }
}

}  // namespace
