// Tests of the walk over the records of instantaneous dumps.
#include "trace/dumpparser.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "trace/dumpwalk.h"

using namespace oss;
using namespace oss::dumps;

namespace {

constexpr uint32_t kSlots = kSmallestSlots;

// ---- Where a walk begins and ends ----

TEST(DumpParser, ACircularBufferIsWalkedFromTheStartOfItsSequence) {
  SlotArea slots(kSmallest);
  slots.fill(5, 9);  // of an earlier sequence
  slots.put(10, 1);
  slots.put(11, 3);
  slots.put(14, 1);
  const std::string dump =
      circularDump(slots, {.counter = 15, .slotIndex = 15, .sequenceStart = 10});
  EXPECT_EQ(forward(dump), "10@10x1 11@11x3 14@14x1");
  EXPECT_EQ(backward(dump), "14@14x1 11@11x3 10@10x1");
}

TEST(DumpParser, AWrappedBufferIsWalkedFromItsOldestSlot) {
  SlotArea slots(kSmallest);
  slots.put(kSlots - 2, 2);
  slots.put(kSlots + 1, 2);
  slots.put(3, 1);  // lies behind the counter, so it is the oldest
  slots.put(4, 2);
  const std::string dump =
      circularDump(slots, {.counter = kSlots + 3, .slotIndex = 3, .sequenceStart = 0});
  EXPECT_EQ(forward(dump), "3@3x1 4@4x2 8190@8190x2 8193@1x2");
  EXPECT_EQ(backward(dump), "8193@1x2 8190@8190x2 4@4x2 3@3x1");
}

TEST(DumpParser, AFillOnceBufferIsWalkedFromItsFirstSlot) {
  SlotArea slots(kSmallest);
  slots.fill(0, 5);
  const std::string dump = fillOnceDump(slots, {.counter = 4});
  EXPECT_EQ(forward(dump), "0@0x1 1@1x1 2@2x1 3@3x1");
  EXPECT_EQ(backward(dump), "3@3x1 2@2x1 1@1x1 0@0x1");
}

TEST(DumpParser, AFillOnceBufferOfALaterPassIsWalkedFromItsFirstSlot) {
  SlotArea slots(kSmallest);
  slots.fill(0, kSlots);
  slots.fill(2 * kSlots, 2 * kSlots + 2);
  const std::string dump = fillOnceDump(slots, {.counter = 2 * kSlots + 2});
  EXPECT_EQ(forward(dump), "16384@0x1 16385@1x1");
  EXPECT_EQ(backward(dump), "16385@1x1 16384@0x1");
}

TEST(DumpParser, AFullFillOnceBufferIsWalkedToItsLastSlot) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  slots.put(kSlots - 3, 3);
  const std::string dump = fillOnceDump(slots, {.counter = kSlots, .truncated = 1});
  EXPECT_EQ(forward(dump), "0@0x1 8189@8189x3");
  EXPECT_EQ(backward(dump), "8189@8189x3 0@0x1");
}

TEST(DumpParser, AnEmptyBufferHasNoRecord) {
  const SlotArea slots(kSmallest);
  for (const std::string& dump : {circularDump(slots, {}), fillOnceDump(slots, {})}) {
    EXPECT_EQ(forward(dump), "");
    EXPECT_EQ(backward(dump), "");
  }
}

TEST(DumpParser, ASequenceThatJustBeganHasNoRecord) {
  SlotArea slots(kSmallest);
  slots.fill(0, kSlots);
  const std::string dump =
      circularDump(slots, {.counter = 2 * kSlots, .slotIndex = 0, .sequenceStart = 2 * kSlots});
  EXPECT_EQ(forward(dump), "");
  EXPECT_EQ(backward(dump), "");
}

TEST(DumpParser, EverySlotOfAFullRingIsFound) {
  SlotArea slots(kSmallest);
  slots.fill(100, 100 + kSlots);
  const std::string dump = circularDump(slots, {.counter = 100 + kSlots, .slotIndex = 100});
  std::string oldestFirst;
  std::string newestFirst;
  for (uint32_t i = 0; i < kSlots; ++i) {
    const auto name = [](uint32_t sequence) {
      return std::to_string(sequence) + '@' + std::to_string(sequence % kSlots) + "x1";
    };
    oldestFirst += (i == 0 ? "" : " ") + name(100 + i);
    newestFirst += (i == 0 ? "" : " ") + name(99 + kSlots - i);
  }
  EXPECT_EQ(forward(dump), oldestFirst);
  EXPECT_EQ(backward(dump), newestFirst);
}

TEST(DumpParser, TheEndStaysTheEnd) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  for (const bool ahead : {true, false}) {
    Walk walk(circularDump(slots, {.counter = 1, .slotIndex = 1}), ahead);
    EXPECT_EQ(walk.next(), "0@0x1");
    EXPECT_EQ(walk.next(), "");
    EXPECT_EQ(walk.next(), "");
  }
}

// ---- The flags ----

TEST(DumpParser, ABufferHasWrappedWhenMoreThanAllSlotsWereReserved) {
  const SlotArea slots(kSmallest);
  const auto wrapped = [&](uint32_t counter, uint32_t start) {
    return Walk(circularDump(slots, {.counter = counter, .sequenceStart = start}), true)
        .parser.wrapped;
  };
  EXPECT_FALSE(wrapped(0, 0));
  EXPECT_FALSE(wrapped(kSlots, 0));
  EXPECT_TRUE(wrapped(kSlots + 1, 0));
  EXPECT_FALSE(wrapped(kSlots - 7, 0xFFFFFFF9));
  EXPECT_TRUE(wrapped(kSlots - 6, 0xFFFFFFF9));
  EXPECT_FALSE(wrapped(0, kSlots));
  EXPECT_TRUE(wrapped(0, kSlots + 1));
}

TEST(DumpParser, OnlyAFillOnceBufferIsTruncatedAndOnlyACircularOneWraps) {
  const SlotArea slots(kSmallest);
  const Tail tail = {.counter = 4 * kSlots, .truncated = 1};
  const Walk once(fillOnceDump(slots, tail), true);
  EXPECT_TRUE(once.parser.truncated);
  EXPECT_FALSE(once.parser.wrapped);
  const Walk circular(circularDump(slots, tail), true);
  EXPECT_FALSE(circular.parser.truncated);
  EXPECT_TRUE(circular.parser.wrapped);
  EXPECT_FALSE(Walk(fillOnceDump(slots, {.counter = 9}), true).parser.truncated);
}

// ---- The tests of a record ----

// Three records, of which the second has three slots; `change` damages what lies in the slots.
template <class Change>
std::pair<std::string, std::string> around(Change change) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  slots.put(1, 3);
  slots.put(4, 1);
  change(slots);
  const std::string dump = circularDump(slots, {.counter = 5, .slotIndex = 5});
  return {forward(dump), backward(dump)};
}
const std::pair<std::string, std::string> kWithoutTheSecond = {"0@0x1 4@4x1", "4@4x1 0@0x1"};

TEST(DumpParser, ARecordWithoutItsMarkIsSkipped) {
  EXPECT_EQ(around([](SlotArea& slots) { slots.flip(64 + 4); }), kWithoutTheSecond);
  EXPECT_EQ(around([](SlotArea& slots) { slots.flip(64 + 5); }), kWithoutTheSecond);
}

TEST(DumpParser, ARecordOfNoSlotOrOfTooManyIsSkipped) {
  for (const uint16_t count : {uint16_t{0}, uint16_t{2049}, uint16_t{0xFFFF}})
    EXPECT_EQ(around([=](SlotArea& slots) { slots.write(64 + 6, bytesOf(count)); }),
              kWithoutTheSecond);
}

TEST(DumpParser, ARecordOfAnotherLengthThanItsTrailerSaysIsSkipped) {
  for (const uint16_t count : {uint16_t{1}, uint16_t{2}, uint16_t{4}, uint16_t{2048}})
    EXPECT_EQ(around([=](SlotArea& slots) { slots.write(64 + 6, bytesOf(count)); }),
              kWithoutTheSecond);
}

TEST(DumpParser, ARecordWithADamagedTrailerIsSkippedSlotBySlot) {
  EXPECT_EQ(around([](SlotArea& slots) { slots.damageTrailer(3); }), kWithoutTheSecond);
}

TEST(DumpParser, ARecordThatIsNotSealedIsSkipped) {
  EXPECT_EQ(around([](SlotArea& slots) { slots.write(64, std::string(192, '\0')); }),
            kWithoutTheSecond);
}

TEST(DumpParser, RecordsInsideADamagedRecordAreFound) {
  const auto found = around([](SlotArea& slots) {
    slots.damageTrailer(3);
    slots.putAt(2, 2, 1);
  });
  EXPECT_EQ(found.first, "0@0x1 2@2x1 4@4x1");
  EXPECT_EQ(found.second, "4@4x1 2@2x1 0@0x1");
}

TEST(DumpParser, ARecordIsStaleWhenTheCounterHasMovedARingOn) {
  const auto found = [](uint32_t counter, uint32_t sequence) {
    SlotArea slots(kSmallest);
    slots.put(sequence, 1);
    const std::string dump =
        circularDump(slots, {.counter = counter, .sequenceStart = counter - 2 * kSlots});
    EXPECT_EQ(forward(dump), backward(dump));
    return !forward(dump).empty();
  };
  for (const uint32_t counter : {5 * kSlots, 5 * kSlots + 77, 0u, 3u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(found(counter, counter - 1));
    EXPECT_TRUE(found(counter, counter - kSlots));
    EXPECT_FALSE(found(counter, counter));
    EXPECT_FALSE(found(counter, counter - kSlots - 1));
    EXPECT_FALSE(found(counter, counter + 0x80000000));
  }
}

TEST(DumpParser, TheLargestRecordIsFound) {
  SlotArea slots(kSmallest);
  slots.put(1, RAMBO_CHUNK_SLOTS);
  slots.put(2049, 1);
  const std::string dump = circularDump(slots, {.counter = 2050, .slotIndex = 2050});
  EXPECT_EQ(forward(dump), "1@1x2048 2049@2049x1");
  EXPECT_EQ(backward(dump), "2049@2049x1 1@1x2048");
}

// ---- Ends that no record crosses ----

TEST(DumpParser, ARecordDoesNotReachBehindTheNewestSlot) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  slots.put(1, 3);
  const std::string dump = circularDump(slots, {.counter = 3, .slotIndex = 3});
  EXPECT_EQ(forward(dump), "0@0x1");
  EXPECT_EQ(backward(dump), "0@0x1");
}

TEST(DumpParser, ARecordDoesNotReachIntoTheTail) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  slots.put(kSlots - 1, 2);
  // A trailer where the record would end, were the tail a slot.
  const std::string dump = fillOnceDump(slots, {.counter = kSlots}) + std::string(28, '\0') +
                           bytesOf(~uint32_t{kSlots - 1});
  EXPECT_EQ(forward(dump), "0@0x1");
  EXPECT_EQ(backward(dump), "0@0x1");
}

TEST(DumpParser, ARecordDoesNotGoRoundTheEndOfTheRing) {
  SlotArea slots(kSmallest);
  const std::string record = recordOf(kSlots - 1, 2);
  slots.write(kSmallest - RAMBO_SLOT, record.substr(0, RAMBO_SLOT));
  slots.write(0, record.substr(RAMBO_SLOT));
  slots.put(kSlots + 1, 1);
  const std::string dump = circularDump(slots, {.counter = kSlots + 2, .slotIndex = 2});
  EXPECT_EQ(forward(dump), "8193@1x1");
  EXPECT_EQ(backward(dump), "8193@1x1");
}

// ---- Payload that looks like a record ----

TEST(DumpParser, PayloadThatLooksLikeAHeadIsNoRecordBackward) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  std::string record = recordOf(1, 3);
  // With the record's own number, so that its trailer fits the second and third slot, too.
  record.replace(128, 8, bytesOf(RamboRecordHead{1, RAMBO_RECORD_MARK, 1}));
  record.replace(64, 8, bytesOf(RamboRecordHead{1, RAMBO_RECORD_MARK, 2}));
  slots.write(64, record);

  Walk walk(circularDump(slots, {.counter = 4, .slotIndex = 4}), false);
  std::string payload(payloadBytes(3), '\0');
  uint64_t offset = 0;
  EXPECT_EQ(parseRecord(walk.source, walk.parser, &offset, payload.data(), payload.size()),
            payloadBytes(3));
  EXPECT_EQ(offset, sizeof(RamboDumpHead) + RAMBO_SLOT + 8);
  EXPECT_EQ(payload, record.substr(8, payloadBytes(3)));
  EXPECT_EQ(walk.all(), "0@0x1");
}

TEST(DumpParser, ARecordWithinAPayloadIsNotFoundBesideIt) {
  SlotArea slots(kSmallest);
  std::string record = recordOf(0, 3);
  record.replace(64, 64, recordOf(1, 1));
  slots.write(0, record);
  const std::string dump = circularDump(slots, {.counter = 3, .slotIndex = 3});
  EXPECT_EQ(forward(dump), "damaged@0");  // the builder knows its own payload only
  EXPECT_EQ(backward(dump), "damaged@0");
}

TEST(DumpParser, SequenceNumbersThatDoNotTellTheSlotAreLookedForBackward) {
  SlotArea slots(kSmallest);
  slots.putAt(0, 70, 1);
  slots.putAt(1, 71, 3);
  slots.putAt(4, 72, 2);
  const std::string dump = circularDump(slots, {.counter = 100, .slotIndex = 100});
  EXPECT_EQ(backward(dump), "72@4x2 71@1x3 70@0x1");
}

// ---- The counter comes round ----

TEST(DumpParser, TheCounterMayComeRoundWithinTheSequence) {
  SlotArea slots(kSmallest);
  slots.put(0xFFFFFFFD, 1);
  slots.put(0xFFFFFFFE, 2);
  slots.put(0, 2);
  slots.put(2, 1);
  const std::string begun =
      circularDump(slots, {.counter = 3, .slotIndex = 3, .sequenceStart = 0xFFFFFFFD});
  EXPECT_EQ(forward(begun), "4294967293@8189x1 4294967294@8190x2 0@0x2 2@2x1");
  EXPECT_EQ(backward(begun), "2@2x1 0@0x2 4294967294@8190x2 4294967293@8189x1");
  const std::string wrapped =
      circularDump(slots, {.counter = 3, .slotIndex = 3, .sequenceStart = 0xFFFF0000});
  EXPECT_EQ(forward(wrapped), forward(begun));
  EXPECT_EQ(backward(wrapped), backward(begun));
}

// ---- What the caller gives and gets ----

TEST(DumpParser, OffsetsCountFromTheStartOfTheFile) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  slots.put(1, 2);
  const std::string file =
      std::string(1000, 'x') + circularDump(slots, {.counter = 3, .slotIndex = 3});
  MemorySource source(file);
  source.seek(1000);
  RamboDumpParser parser;
  ASSERT_EQ(openRingDump(source, parser, true, false), ECF_OK);
  char payload[200];
  for (const uint64_t expected : {1024u, 1088u}) {
    uint64_t offset = 0;
    const uint64_t bytes = parseRecord(source, parser, &offset, payload, sizeof payload);
    EXPECT_EQ(offset, expected);
    EXPECT_EQ(file.substr(offset, bytes), std::string(payload, bytes));
  }
  EXPECT_EQ(closeRingDump(parser), ECF_OK);
}

TEST(DumpParser, ABufferThatIsTooSmallTakesWhatFits) {
  SlotArea slots(kSmallest);
  slots.fill(0, 200);
  slots.put(200, 2);
  const std::string dump = circularDump(slots, {.counter = 202, .slotIndex = 202});
  for (const bool ahead : {true, false}) {
    for (uint64_t room = 0; room <= 120; ++room) {
      Walk walk(dump, ahead);
      // A block of its own, so that no byte behind it can be written.
      const auto buffer = std::make_unique<char[]>(room);
      const uint64_t whole = payloadBytes(ahead ? 1 : 2);
      uint64_t offset = 0;
      ASSERT_EQ(
          parseRecord(walk.source, walk.parser, &offset, room != 0 ? buffer.get() : nullptr, room),
          whole);
      const std::string expected = payloadOf(ahead ? 0 : 200, whole).substr(0, room);
      EXPECT_EQ(std::string(buffer.get(), expected.size()), expected);
      EXPECT_EQ(offset, sizeof(RamboDumpHead) + (ahead ? 0 : 200) * 64 + 8);
    }
  }
}

TEST(DumpParser, BytesBehindTheRecordAreLeftAlone) {
  SlotArea slots(kSmallest);
  slots.put(0, 1);
  Walk walk(circularDump(slots, {.counter = 1, .slotIndex = 1}), true);
  std::string buffer(60, '?');
  EXPECT_EQ(parseRecord(walk.source, walk.parser, nullptr, buffer.data(), buffer.size()), 52u);
  EXPECT_EQ(buffer, payloadOf(0, 52) + "????????");
}

TEST(DumpParser, TheCallerMayMoveThePositionBetweenRecords) {
  SlotArea slots(1 << 22);
  slots.fill(0, 1 << 16);
  Walk walk(circularDump(slots, {.counter = 1 << 16}), true);
  for (uint32_t i = 0; i < 1 << 16; ++i) {
    walk.source.seek(i % 100);
    ASSERT_EQ(walk.next(), std::to_string(i) + '@' + std::to_string(i) + "x1");
  }
  EXPECT_EQ(walk.next(), "");
}

// ---- A closed parser ----

TEST(DumpParser, AClosedParserGivesNoRecordAndCannotBeClosed) {
  MemorySource source("");
  RamboDumpParser parser = {};
  char payload[100];
  EXPECT_EQ(parseRecord(source, parser, nullptr, payload, sizeof payload), 0u);
  EXPECT_EQ(closeRingDump(parser), ECF_INVALID_PARAMETER);
  GTraceDumpParser both = {};
  EXPECT_EQ(closeTraceDump(both), ECF_INVALID_PARAMETER);
  EXPECT_EQ(source.reads, 0u);
}

TEST(DumpParser, AParserIsClosedOnce) {
  RamboDumpParser parser;
  const std::string dump = circularDump(SlotArea(kSmallest), {});
  MemorySource source(dump);
  ASSERT_EQ(openRingDump(source, parser, true, false), ECF_OK);
  EXPECT_EQ(closeRingDump(parser), ECF_OK);
  EXPECT_EQ(closeRingDump(parser), ECF_INVALID_PARAMETER);
  EXPECT_EQ(parser.buffer, nullptr);
}

// ---- Random rings ----

// A ring as writers leave it: records of random sizes, some of them not sealed, none across the
// end. Both directions find the sealed ones that are left, and nothing else.
TEST(DumpParser, RandomRingsAreReadBackInBothDirections) {
  for (uint32_t seed = 1; seed <= 40; ++seed) {
    std::mt19937 random(seed);
    SlotArea slots(kSmallest);
    struct Put {
      uint32_t sequence;
      uint32_t slots;
    };
    std::vector<Put> sealed;
    const uint32_t start = seed % 2 == 0 ? 0xFFFFF000 : static_cast<uint32_t>(random());
    uint32_t counter = start;
    const auto length = static_cast<uint32_t>(1 + random() % (4 * kSlots));
    while (counter - start < length) {
      const auto count = static_cast<uint16_t>(1 + random() % (random() % 8 == 0 ? 2048 : 4));
      const uint32_t sequence = counter;
      counter += count;
      if (sequence % kSlots + count > kSlots) continue;  // reserved again
      if (random() % 16 == 0) continue;                  // not sealed: the old bytes stay
      slots.put(sequence, count);
      sealed.push_back({sequence, count});
    }

    std::vector<std::string> expected;
    for (const Put& put : sealed)
      if (counter - put.sequence <= kSlots)
        expected.push_back(std::to_string(put.sequence) + '@' +
                           std::to_string(put.sequence % kSlots) + 'x' + std::to_string(put.slots));
    const std::string dump = circularDump(
        slots, {.counter = counter, .slotIndex = counter % kSlots, .sequenceStart = start});
    const auto joined = [](const auto& from, const auto& to) {
      std::string text;
      for (auto record = from; record != to; ++record) text += (text.empty() ? "" : " ") + *record;
      return text;
    };
    ASSERT_EQ(forward(dump), joined(expected.begin(), expected.end())) << seed;
    ASSERT_EQ(backward(dump), joined(expected.rbegin(), expected.rend())) << seed;
  }
}

}  // namespace
