// Tests of the ring: sizes, formatting, control operations. Reservations have a file of their own.
#include "trace/rambo.h"

#include "osscatalog.h"
#include "trace/rambofixture.h"

using namespace osse_test;

namespace {

// ---- Sizes --------------------------------------------------------------------------------------

TEST(RingRoundNearest2, RoundsDown) {
  const std::vector<std::pair<int32_t, uint32_t>> cases = {
      {0, 0},
      {1, 1},
      {2, 2},
      {3, 2},
      {4, 4},
      {7, 4},
      {0x7FFFF, 0x40000},
      {0x80000, 0x80000},
      {0x90000, 0x80000},
      {0x3FFFFFFF, 0x20000000},
      {0x40000000, 0x40000000},
      {INT32_MAX, 0x40000000},
      {-1, 0},
      {INT32_MIN, 0},
  };
  for (const auto& [n, rounded] : cases) EXPECT_EQ(ramboRoundNearest2(n), rounded) << n;
}

TEST(RingAllocSize, CountsAllParts) {
  const std::vector<std::pair<uint32_t, uint32_t>> cases = {
      {0x80000, 655'720},    {0x100000, 1'180'088},       {0x200000, 2'228'824},
      {0x400000, 4'326'296}, {0x40000000, 1'074'037'016},
  };
  for (const auto& [size, bytes] : cases) EXPECT_EQ(ramboGetAllocSize(size), bytes) << size;
}

TEST(RingAllocSize, TakesEveryPowerOfTwoInItsRangeAndNothingElse) {
  for (uint32_t bit = 0; bit < 32; ++bit) {
    const uint32_t size = 1u << bit;
    EXPECT_EQ(ramboGetAllocSize(size) != 0, bit >= 19 && bit <= 30) << bit;
    if (bit < 2) continue;
    EXPECT_EQ(ramboGetAllocSize(size - 1), 0u) << bit;
    EXPECT_EQ(ramboGetAllocSize(size + 1), 0u) << bit;
  }
  for (const uint32_t size : {0u, 0x90000u, 0xC0000u, 0xFFFFFFFFu})
    EXPECT_EQ(ramboGetAllocSize(size), 0u) << size;
}

// ---- Formatting ---------------------------------------------------------------------------------

struct Mode {
  int32_t mode;
  uint32_t indexMask;  // of 8,192 slots
  std::string flags;   // circular, chunked, auto-dump
};

class RingOfMode : public testing::TestWithParam<Mode> {};

INSTANTIATE_TEST_SUITE_P(Modes, RingOfMode,
                         testing::Values(Mode{RAMBO_CIRCULAR, 8191, {"\1\0\0", 3}},
                                         Mode{RAMBO_FILL_ONCE, 16'383, {"\0\0\0", 3}},
                                         Mode{RAMBO_CHUNKED, 8191, "\1\1\1"}));

std::string bytesOf(uint32_t value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string zeros(size_t count) { return std::string(count, '\0'); }

// What formatting makes of a region with 4 chunks.
std::string formatted(const Mode& mode) {
  std::string text = bytesOf(0) + "RAMBOCB" + zeros(1 + 116 + 4 + 4);
  text += bytesOf(mode.indexMask) + bytesOf(336) + bytesOf(256) + bytesOf(336 + 0x80000);
  text += bytesOf(0x80000) + bytesOf(4) + bytesOf(8192) + mode.flags + zeros(89);
  for (uint32_t chunk = 0; chunk < 4; ++chunk)
    text += "RAMBOCK" + zeros(1 + 4 + 4) + bytesOf(chunk);
  return text + zeros(0x80000);
}

TEST_P(RingOfMode, IsFormattedToTheLastByte) {
  const RingMemory memory(0x80000);
  ASSERT_EQ(ramboInitialize(memory.region(), 0x80000, GetParam().mode), ECF_OK);

  // The overflow area is nobody's: it stays as it was.
  const std::string expected = formatted(GetParam()) + std::string(24 + 0x20000, '\xA5');
  EXPECT_TRUE(memory.contents() == expected);
}

TEST_P(RingOfMode, IsFormattedAnewInPlace) {
  const Ring ring(RAMBO_CHUNKED);
  RamboReservation reservation;
  ramboReserveSlots(ring.handle(), 5000, &reservation);
  ramboSync(ring.handle(), &reservation);
  ring->latch = 0x80;
  ring.chunk(3).generation = 7;

  ASSERT_EQ(ramboInitialize(ring.handle(), 0x80000, GetParam().mode), ECF_OK);
  const std::string expected = formatted(GetParam());
  EXPECT_TRUE(ring.contents().substr(0, expected.size()) == expected);
}

TEST_P(RingOfMode, HasItsOffsetsBehindItsChunks) {
  const Ring ring(GetParam().mode, 0x1000000);
  EXPECT_EQ(ring->chunkCount, 128u);
  EXPECT_EQ(ring->slotCount, 262'144u);
  EXPECT_EQ(ring->indexMask, GetParam().mode == RAMBO_FILL_ONCE ? 524'287u : 262'143u);
  EXPECT_EQ(ring->slotOffset, 256u + 128 * 20);
  EXPECT_EQ(ring->overflowOffset, 256u + 128 * 20 + 0x1000000);
  EXPECT_EQ(ring.chunk(127).index, 127u);
  EXPECT_STREQ(ring.chunk(127).eyeCatcher, "RAMBOCK");
}

TEST(RingInitialize, RefusesWhatIsNoRingAndTouchesNothing) {
  const RingMemory memory(0x80000);
  const std::string before = memory.contents();
  for (const int32_t mode : {-1, 0, 3, 5, 6, 7, 8})
    EXPECT_EQ(ramboInitialize(memory.region(), 0x80000, mode), ECF_INVALID_PARAMETER) << mode;
  for (const uint32_t size : {0u, 0x40000u, 0x7FFFFu, 0x90000u, 0x40000001u, 0x80000000u})
    for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE, RAMBO_CHUNKED})
      EXPECT_EQ(ramboInitialize(memory.region(), size, mode), ECF_RAMBO_INVALID_BUFFER_SIZE);
  EXPECT_EQ(ramboInitialize(nullptr, 0x80000, RAMBO_CIRCULAR), ECF_INVALID_PARAMETER);
  EXPECT_TRUE(memory.contents() == before);
}

// ---- Control operations -------------------------------------------------------------------------

TEST(RingControl, RefusesNull) {
  for (const ControlOperation operation : kControlOperations)
    EXPECT_EQ(operation(nullptr), ECF_INVALID_PARAMETER);
}

TEST(RingControl, RefusesARegionWhoseEyeCatcherIsMissingOrDamaged) {
  const Ring ring(RAMBO_CHUNKED);
  for (char& letter : ring->eyeCatcher) {
    letter ^= 1;
    const std::string before = ring.contents();
    for (const ControlOperation operation : kControlOperations)
      EXPECT_EQ(operation(ring.handle()), ECF_RAMBO_NOT_INITIALIZED);
    EXPECT_TRUE(ring.contents() == before);
    letter ^= 1;
  }
}

TEST(RingControl, ReleasesTheLatch) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE, RAMBO_CHUNKED}) {
    const Ring ring(mode);
    for (const ControlOperation operation : kControlOperations) {
      operation(ring.handle());
      EXPECT_EQ(ring->latch, 0);
    }
  }
}

TEST(RingNewSequence, MovesACircularBufferAWholeRingForward) {
  const Ring ring(RAMBO_CIRCULAR);
  ring->counter = 5;
  EXPECT_EQ(ramboNewSequence(ring.handle()), ECF_OK);
  EXPECT_EQ(ring->counter, 5u + 8192);
  EXPECT_EQ(ring->sequenceStart, 5u + 8192);

  ring->counter = 0xFFFFF001;
  EXPECT_EQ(ramboNewSequence(ring.handle()), ECF_OK);
  EXPECT_EQ(ring->counter, 0x1001u);
  EXPECT_EQ(ring->sequenceStart, 0x1001u);
}

TEST(RingNewSequence, MovesAFillOnceBufferToSlotZeroOfItsNextPass) {
  const std::vector<std::pair<uint32_t, uint32_t>> cases = {
      {0, 16'384},      {5, 16'384},      {8192, 16'384},   {16'383, 16'384},
      {16'384, 32'768}, {20'000, 32'768}, {0xFFFFC000, 0u}, {0xFFFFFFFF, 0u},
  };
  const Ring ring(RAMBO_FILL_ONCE);
  for (const auto& [before, after] : cases) {
    ring->counter = before;
    EXPECT_EQ(ramboNewSequence(ring.handle()), ECF_OK);
    EXPECT_EQ(ring->counter, after) << before;
    EXPECT_EQ(ring->sequenceStart, 0u);
  }
}

TEST(RingNewSequence, IsNotSupportedByAChunkedBuffer) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 5;
  const std::string before = ring.contents();
  EXPECT_EQ(ramboNewSequence(ring.handle()), ECF_NOT_SUPPORTED);
  EXPECT_TRUE(ring.contents() == before);
}

// What was written before stays where it is; it is stale.
TEST(RingNewSequence, LeavesNoRecordThatCounts) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE}) {
    const Ring ring(mode);
    const auto write = [&ring](uint32_t count) {
      for (uint32_t i = 0; i < count; ++i) {
        RamboReservation reservation;
        ramboReserveOneSlot(ring.handle(), &reservation);
        ramboSync(ring.handle(), &reservation);
      }
    };
    write(8192);
    EXPECT_EQ(readRing(ring).size(), 8192u);
    ASSERT_EQ(ramboNewSequence(ring.handle()), ECF_OK);
    EXPECT_EQ(readRing(ring).size(), 0u);
    EXPECT_TRUE(recordAt(ring.slot(100), 1).has_value());

    const uint32_t start = ring->counter;
    write(3);
    const std::vector<RingRecord> records = readRing(ring);
    ASSERT_EQ(records.size(), 3u);
    for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(records[i].sequence, start + i);
  }
}

TEST(RingAutoDump, IsSwitchedInAChunkedBuffer) {
  const Ring ring(RAMBO_CHUNKED);
  EXPECT_EQ(ramboAutoDumpEnabled(ring.handle(), false), ECF_OK);
  EXPECT_EQ(ring->autoDump, 0);
  EXPECT_EQ(ramboAutoDumpEnabled(ring.handle(), true), ECF_OK);
  EXPECT_EQ(ring->autoDump, 1);
}

TEST(RingAutoDump, IsNotAllowedInOtherBuffers) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE}) {
    const Ring ring(mode);
    const std::string before = ring.contents();
    for (const bool enabled : {true, false})
      EXPECT_EQ(ramboAutoDumpEnabled(ring.handle(), enabled), ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED);
    EXPECT_TRUE(ring.contents() == before);
  }
}

}  // namespace
