// Tests of the parser where it meets the file: auto-dumps, ring files, function-count tables, and
// how it reads.
#include <gtest/gtest.h>

#include "trace/dumpparser.h"
#include "trace/dumpwalk.h"

using namespace oss;
using namespace oss::dumps;

namespace {

// ---- Auto-dumps ----

TEST(AutoDump, IsWalkedFromTheStartOfTheFile) {
  SlotArea chunks(2 * RAMBO_CHUNK);
  chunks.putAt(0, 500, 1);  // numbers say nothing about the slots of a file
  chunks.putAt(1, 501, 3);
  chunks.putAt(2047, 900, 2);  // across the chunks
  chunks.putAt(4095, 901, 1);
  const std::string dump = autoDump(chunks.bytes());
  EXPECT_EQ(forward(dump), "500@0x1 501@1x3 900@2047x2 901@4095x1");
  EXPECT_EQ(backward(dump), "901@4095x1 900@2047x2 501@1x3 500@0x1");
}

TEST(AutoDump, WithoutAChunkHasNoRecord) {
  EXPECT_EQ(forward(autoDump("")), "");
  EXPECT_EQ(backward(autoDump("")), "");
  EXPECT_EQ(asRing(autoDump("")), "");
}

TEST(AutoDump, NoSequenceNumberIsStale) {
  SlotArea chunks(RAMBO_CHUNK);
  chunks.putAt(0, 0xFFFFFFFF, 1);
  chunks.putAt(1, 0, 1);
  chunks.putAt(2, 0x80000000, 1);
  EXPECT_EQ(forward(autoDump(chunks.bytes())), "4294967295@0x1 0@1x1 2147483648@2x1");
  EXPECT_EQ(backward(autoDump(chunks.bytes())), "2147483648@2x1 0@1x1 4294967295@0x1");
}

TEST(AutoDump, GivesItsWholeRecordsWhereverItIsCut) {
  std::string records;
  std::vector<uint64_t> ends;
  uint32_t sequence = 0;
  constexpr uint16_t kCounts[] = {1, 2, 5, 1, 9, 3};
  for (const uint16_t count : kCounts) {
    records += recordOf(sequence, count);
    sequence += count;
    ends.push_back(records.size());
  }
  for (uint64_t size = RAMBO_SLOT; size <= records.size(); ++size) {
    const std::string dump = autoDump(std::string_view(records).substr(0, size));
    const auto whole =
        static_cast<size_t>(std::upper_bound(ends.begin(), ends.end(), size) - ends.begin());
    for (const bool ahead : {true, false}) {
      const std::string found = Walk(dump, ahead).all();
      ASSERT_EQ(static_cast<size_t>(std::count(found.begin(), found.end(), '@')), whole) << size;
      ASSERT_EQ(found.find("damaged"), std::string::npos) << size;
    }
  }
}

TEST(AutoDump, NeitherWrapsNorIsTruncated) {
  SlotArea chunks(RAMBO_CHUNK);
  chunks.putAt(0, 9, 1);
  chunks.putAt(1, 3, 1);
  const Walk walk(autoDump(chunks.bytes()), true);
  EXPECT_FALSE(walk.parser.wrapped);
  EXPECT_FALSE(walk.parser.truncated);
}

// ---- Ring files ----

TEST(RingFile, IsWalkedFromBehindItsNewestRecord) {
  SlotArea chunks(2 * RAMBO_CHUNK);
  chunks.putAt(0, 10'000, 1);
  chunks.putAt(1, 10'001, 3);
  chunks.putAt(7, 8'000, 2);
  chunks.putAt(4095, 9'999, 1);
  const std::string dump = autoDump(chunks.bytes());
  Walk walk(dump, true, true);
  EXPECT_TRUE(walk.parser.wrapped);
  EXPECT_EQ(walk.all(), "8000@7x2 9999@4095x1 10000@0x1 10001@1x3");
  EXPECT_EQ(Walk(dump, false, true).all(), "10001@1x3 10000@0x1 9999@4095x1 8000@7x2");
}

TEST(RingFile, ThatHasNotWrappedIsWalkedFromItsStart) {
  SlotArea chunks(2 * RAMBO_CHUNK);
  chunks.putAt(3, 5, 1);
  chunks.putAt(4, 6, 2);
  Walk walk(autoDump(chunks.bytes()), true, true);
  EXPECT_FALSE(walk.parser.wrapped);
  EXPECT_EQ(walk.all(), "5@3x1 6@4x2");
}

TEST(RingFile, WhoseNewestRecordEndsTheFileIsWalkedFromItsStart) {
  SlotArea chunks(RAMBO_CHUNK);
  chunks.putAt(0, 5, 1);
  chunks.putAt(2047, 6, 1);
  Walk walk(autoDump(chunks.bytes()), true, true);
  EXPECT_FALSE(walk.parser.wrapped);
  EXPECT_EQ(walk.all(), "5@0x1 6@2047x1");
}

TEST(RingFile, ARecordThatGoesRoundTheEndOfTheFileIsFound) {
  SlotArea chunks(RAMBO_CHUNK);
  const std::string record = recordOf(100, 5);
  chunks.write(RAMBO_CHUNK - 2 * RAMBO_SLOT, record.substr(0, 2 * RAMBO_SLOT));
  chunks.write(0, record.substr(2 * RAMBO_SLOT));
  chunks.putAt(3, 105, 1);
  chunks.putAt(9, 50, 1);
  const std::string dump = autoDump(chunks.bytes());
  EXPECT_EQ(asRing(dump), "50@9x1 100@2046x5 105@3x1");
  EXPECT_EQ(Walk(dump, false, true).all(), "105@3x1 100@2046x5 50@9x1");
}

TEST(RingFile, TheCounterMayComeRound) {
  SlotArea chunks(RAMBO_CHUNK);
  chunks.putAt(0, 0xFFFFFFFE, 2);
  chunks.putAt(2, 0, 1);
  chunks.putAt(3, 0xFFFFFF00, 1);
  Walk walk(autoDump(chunks.bytes()), true, true);
  EXPECT_TRUE(walk.parser.wrapped);
  EXPECT_EQ(walk.all(), "4294967040@3x1 4294967294@0x2 0@2x1");
}

TEST(RingFile, ScanningSkipsThePayload) {
  SlotArea chunks(RAMBO_CHUNK);
  chunks.putAt(0, 100, 4);
  chunks.write(2 * RAMBO_SLOT, bytesOf(RamboRecordHead{1, RAMBO_RECORD_MARK, 1}));
  chunks.putAt(4, 104, 1);
  EXPECT_FALSE(Walk(autoDump(chunks.bytes()), true, true).parser.wrapped);
}

TEST(RingFile, ScanningCrossesTheBuffer) {
  // 4 MiB, with the seam in its third.
  SlotArea chunks(32 * RAMBO_CHUNK);
  constexpr uint32_t kSlots = 32 * RAMBO_CHUNK_SLOTS;
  constexpr uint32_t kSeam = 40'000;
  for (uint32_t slot = 0; slot < kSlots; ++slot)
    chunks.putAt(slot, slot < kSeam ? kSlots + slot : slot, 1);
  Walk walk(autoDump(chunks.bytes()), true, true);
  EXPECT_TRUE(walk.parser.wrapped);
  for (uint32_t i = kSeam; i < kSlots + kSeam; ++i)
    ASSERT_EQ(walk.next(), std::to_string(i) + '@' + std::to_string(i % kSlots) + "x1");
  EXPECT_EQ(walk.next(), "");
}

TEST(RingFile, AnInstantaneousDumpIsNone) {
  SlotArea slots(kSmallest);
  slots.put(7, 1);
  slots.put(8, 1);
  EXPECT_EQ(asRing(circularDump(slots, {.counter = 9, .slotIndex = 9, .sequenceStart = 7})),
            "7@7x1 8@8x1");
}

// ---- Through the trace header ----

std::string allOf(const std::string& dump, int32_t kind) {
  MemorySource source(dump);
  GTraceDumpParser parser;
  EXPECT_EQ(openTraceDump(source, parser, true), ECF_OK);
  EXPECT_EQ(parser.kind, kind);
  std::string text;
  std::string payload(1000, '\0');
  uint64_t offset = 0;
  while (const uint64_t bytes =
             parseRecord(source, parser.ring, &offset, payload.data(), payload.size()))
    text += describe((offset - kTraceDataStart - 8) / RAMBO_SLOT, payload.substr(0, bytes)) + ' ';
  EXPECT_EQ(closeTraceDump(parser), ECF_OK);
  EXPECT_EQ(parser.kind, 0);
  return text;
}

TEST(TraceDump, ByTheOptionsAnAutoDumpIsScannedAsARing) {
  SlotArea chunks(RAMBO_CHUNK);
  chunks.putAt(0, 9, 1);
  chunks.putAt(1, 3, 1);
  const std::string rest = autoDump(chunks.bytes());
  EXPECT_EQ(allOf(traceDump({}, rest), GTRACE_RING_DUMP), "9@0x1 3@1x1 ");
  for (int byte = 0; byte < 8; ++byte)
    EXPECT_EQ(allOf(traceDump({.ringFile = uint64_t{0x80} << 8 * byte}, rest), GTRACE_RING_DUMP),
              "3@1x1 9@0x1 ");
}

// ---- Function-count tables ----

struct Counted {
  uint64_t offset;
  GTraceFunctionCount entry;
};

class CountWalk {
 public:
  explicit CountWalk(const std::string& dump) : source(dump) {
    EXPECT_EQ(openTraceDump(source, parser, true), ECF_OK);
    EXPECT_EQ(parser.kind, GTRACE_COUNT_DUMP);
  }
  ~CountWalk() { closeTraceDump(parser); }
  CountWalk(const CountWalk&) = delete;
  CountWalk& operator=(const CountWalk&) = delete;

  std::string next() {
    GTraceFunctionCount entry = {};
    uint64_t offset = 0;
    const uint64_t bytes = parseCount(source, parser.table, &offset, &entry, sizeof entry);
    if (bytes == 0) return "";
    EXPECT_EQ(bytes, 16u);
    return std::to_string(entry.funcId) + ':' + std::to_string(entry.calls) + ':' +
           std::to_string(entry.ticks) + '@' + std::to_string((offset - 182'912) / 16);
  }

  std::string all() {
    std::string text;
    for (std::string entry = next(); !entry.empty(); entry = next()) text += entry + ' ';
    return text;
  }

  MemorySource source;
  GTraceDumpParser parser;
};

TEST(CountTable, GivesTheEntriesInUseInTheOrderOfTheFile) {
  const std::string dump =
      countDump(64, {{7, 42, 1000}, {9, 0, 9}, {0, 1, 0}, {0xFFFFFFFF, 3, ~uint64_t{0}}});
  EXPECT_EQ(CountWalk(dump).all(), "42:7:1000@0 1:0:0@2 3:4294967295:18446744073709551615@3 ");
}

TEST(CountTable, EndsWhereTheOptionsSay) {
  const std::vector<GTraceFunctionCount> table(5, {1, 2, 3});
  EXPECT_EQ(CountWalk(countDump(0, table)).all(), "");
  EXPECT_EQ(CountWalk(countDump(15, table)).all(), "");
  EXPECT_EQ(CountWalk(countDump(47, table)).all(), "2:1:3@0 2:1:3@1 ");
}

TEST(CountTable, EndsWhereTheFileDoes) {
  std::string dump = countDump(0xFFFFFFFF, {{1, 2, 3}, {4, 5, 6}});
  EXPECT_EQ(CountWalk(dump).all(), "2:1:3@0 5:4:6@1 ");
  dump.pop_back();
  EXPECT_EQ(CountWalk(dump).all(), "2:1:3@0 ");
  dump.resize(kTraceHeaderBytes + 16);
  EXPECT_EQ(CountWalk(dump).all(), "");
  dump.resize(kTraceHeaderBytes);
  EXPECT_EQ(CountWalk(dump).all(), "");
}

TEST(CountTable, IsReadInPiecesOf16KiB) {
  std::vector<GTraceFunctionCount> table(3000);
  for (uint32_t i = 0; i < 3000; i += 3) table[i] = {i, i + 1, i};
  const std::string dump = countDump(3000 * 16, table);
  CountWalk walk(dump);
  const uint64_t before = walk.source.reads;
  walk.source.mostRead = 0;
  for (uint32_t i = 0; i < 3000; i += 3) {
    const std::string number = std::to_string(i);
    ASSERT_EQ(walk.next(), std::to_string(i + 1) + ':' + number + ':' + number + '@' + number);
  }
  EXPECT_EQ(walk.next(), "");
  EXPECT_EQ(walk.next(), "");
  EXPECT_EQ(walk.source.reads - before, 3u);
  EXPECT_EQ(walk.source.mostRead, 16u * 1024);
}

TEST(CountTable, CopiesWhatFits) {
  const std::string dump = countDump(16, {{7, 42, 1000}});
  for (uint64_t room = 0; room <= 16; ++room) {
    CountWalk walk(dump);
    std::string buffer(17, '?');
    EXPECT_EQ(parseCount(walk.source, walk.parser.table, nullptr, buffer.data(), room), 16u);
    EXPECT_EQ(buffer, dump.substr(kTraceDataStart, room) + std::string(17 - room, '?'));
  }
}

TEST(CountTable, ARefusedReadCanBeTriedAgain) {
  std::vector<GTraceFunctionCount> table(2000, {1, 2, 3});
  const std::string dump = countDump(2000 * 16, table);
  for (const uint64_t call : {1u, 2u}) {
    CountWalk walk(dump);
    for (int i = 0; i < 1024; ++i) ASSERT_EQ(walk.next(), "2:1:3@" + std::to_string(i));
    walk.source.refuse(call);
    EXPECT_EQ(walk.next(), "");
    EXPECT_TRUE(walk.source.hasRefused());
    for (int i = 1024; i < 2000; ++i) ASSERT_EQ(walk.next(), "2:1:3@" + std::to_string(i));
    EXPECT_EQ(walk.next(), "");
  }
}

// ---- How a ring is read ----

constexpr uint32_t kLarge = 8 << 20;
constexpr uint32_t kLargeSlots = kLarge / RAMBO_SLOT;

const std::string& largeDump() {
  static const std::string dump = [] {
    SlotArea slots(kLarge);
    slots.fill(0, kLargeSlots);
    return circularDump(slots, {.counter = kLargeSlots});
  }();
  return dump;
}

std::string nameOf(uint32_t sequence) {
  return std::to_string(sequence) + '@' + std::to_string(sequence) + "x1";
}

TEST(DumpReading, TheBufferIsAMebibyteOrAllThatThereIs) {
  EXPECT_EQ(Walk(largeDump(), true).parser.bufferSlots, 16'384u);
  EXPECT_EQ(Walk(circularDump(SlotArea(kSmallest), {}), true).parser.bufferSlots, 8'192u);
  EXPECT_EQ(Walk(autoDump(std::string(200, '\0')), true).parser.bufferSlots, 3u);
  EXPECT_EQ(Walk(autoDump(""), true).parser.bufferSlots, 1u);
}

TEST(DumpReading, AHandfulOfReadsServesAllRecords) {
  for (const bool ahead : {true, false}) {
    Walk walk(largeDump(), ahead);
    const uint64_t before = walk.source.reads;
    walk.source.mostRead = 0;
    for (uint32_t i = 0; i < kLargeSlots; ++i)
      ASSERT_EQ(walk.next(), nameOf(ahead ? i : kLargeSlots - 1 - i));
    EXPECT_EQ(walk.next(), "");
    // Each but the last leaves 2,047 slots to the next: too few for the largest record.
    EXPECT_EQ(walk.source.reads - before, 9u);
    EXPECT_EQ(walk.source.mostRead, 1u << 20);
  }
}

TEST(DumpReading, LargeRecordsAreFoundWhereverTheBufferEnds) {
  SlotArea slots(kLarge);
  std::string ahead;
  std::string back;
  uint32_t counter = 0;
  for (uint32_t turn = 0;; ++turn) {
    const auto count = static_cast<uint16_t>(RAMBO_CHUNK_SLOTS - 13 * (turn % 157));
    if (counter + count > kLargeSlots) break;
    slots.put(counter, count);
    const std::string name =
        std::to_string(counter) + '@' + std::to_string(counter) + 'x' + std::to_string(count);
    ahead += (ahead.empty() ? "" : " ") + name;
    back = name + (back.empty() ? "" : " ") + back;
    counter += count;
  }
  const std::string dump = circularDump(slots, {.counter = counter});
  EXPECT_EQ(forward(dump), ahead);
  EXPECT_EQ(backward(dump), back);
}

// The trailers of empty slots say what those of the newest record would.
TEST(DumpReading, AnEmptyFillOnceBufferIsWalkedBackSlotBySlot) {
  EXPECT_EQ(backward(fillOnceDump(SlotArea(kLarge), {.counter = 0})), "");
  SlotArea slots(kLarge);
  slots.putAt(5'000, 0xFFFFFFFF, 2);
  EXPECT_EQ(backward(fillOnceDump(slots, {.counter = 0})), "4294967295@5000x2");
}

TEST(DumpReading, AFileThatLosesItsEndEndsTheWalk) {
  Walk walk(largeDump(), true);
  ASSERT_EQ(walk.next(), nameOf(0));
  // One record and a half behind what the buffer holds.
  walk.source.cutTo(sizeof(RamboDumpHead) + (16'385 * RAMBO_SLOT) + 32);
  for (uint32_t i = 1; i <= 16'384; ++i) ASSERT_EQ(walk.next(), nameOf(i));
  EXPECT_EQ(walk.next(), "");
}

TEST(DumpReading, ABackwardWalkStepsOverALostEnd) {
  Walk walk(largeDump(), false);
  walk.source.cutTo(sizeof(RamboDumpHead) + (20'000 * RAMBO_SLOT) + 32);
  for (uint32_t i = 20'000; i > 0; --i) ASSERT_EQ(walk.next(), nameOf(i - 1));
  EXPECT_EQ(walk.next(), "");
}

TEST(DumpReading, AnEmptiedFileEndsTheWalk) {
  for (const bool ahead : {true, false}) {
    Walk walk(largeDump(), ahead);
    walk.source.cutTo(0);
    EXPECT_EQ(walk.next(), "");
    EXPECT_EQ(walk.next(), "");
  }
}

TEST(DumpReading, ARefusedReadOrMoveCanBeTriedAgain) {
  for (const bool ahead : {true, false})
    for (const uint64_t call : {1u, 2u}) {
      Walk walk(largeDump(), ahead);
      walk.source.refuse(call);
      EXPECT_EQ(walk.next(), "");
      EXPECT_TRUE(walk.source.hasRefused());
      uint64_t refusals = 1;
      for (uint32_t i = 0; i < kLargeSlots; ++i) {
        if (i % 10'000 == 0 && walk.source.hasRefused()) walk.source.refuse(call);
        std::string record = walk.next();
        if (record.empty()) {
          ++refusals;
          record = walk.next();
        }
        ASSERT_EQ(record, nameOf(ahead ? i : kLargeSlots - 1 - i));
      }
      EXPECT_GT(refusals, 5u);
    }
}

}  // namespace
