// Tests of reservations and seals, one thread at a time: records, chunk borders, the end of the
// ring, full buffers, the counter's wrap-around.
#include <cstdint>

#include "osscatalog.h"
#include "trace/rambofixture.h"

using namespace osse_test;

namespace {

std::string bytesAt(const void* address, size_t count) {
  return {static_cast<const char*>(address), count};
}

// Fills all slots with a letter.
void fillSlots(const Ring& ring, char letter) { std::memset(ring.slot(0), letter, 0x80000); }

std::string letters(char letter, size_t slots) { return std::string(slots * 64, letter); }

RamboReservation reserve(const Ring& ring, uint32_t slots) {
  RamboReservation reservation = {};
  void* const payload = slots == 1
                            ? ramboReserveOneSlot(ring.handle(), &reservation)
                            : ramboReserveSlots(ring.handle(), slots * 64 - 12, &reservation);
  EXPECT_EQ(payload, static_cast<char*>(reservation.slot) + 8);
  return reservation;
}

void expectReservation(const RamboReservation& reservation, const void* slot,
                       const RamboChunk* chunk, uint32_t sequence, uint16_t slots,
                       uint16_t slotsInChunk) {
  EXPECT_EQ(reservation.slot, slot);
  EXPECT_EQ(reservation.chunk, chunk);
  EXPECT_EQ(reservation.sequence, sequence);
  EXPECT_EQ(reservation.slots, slots);
  EXPECT_EQ(reservation.slotsInChunk, slotsInChunk);
}

// ---- Records ------------------------------------------------------------------------------------

TEST(RingReserve, TakesAsManySlotsAsThePayloadNeeds) {
  const std::vector<std::pair<uint32_t, uint16_t>> cases = {
      {0, 1},   {1, 1},   {52, 1},         {53, 2},         {116, 2},        {117, 3},
      {180, 3}, {181, 4}, {130'996, 2047}, {130'997, 2048}, {131'060, 2048},
  };
  for (const auto& [bytes, slots] : cases) {
    const Ring ring(RAMBO_CIRCULAR);
    RamboReservation reservation = {};
    EXPECT_EQ(ramboReserveSlots(ring.handle(), bytes, &reservation), ring.slot(0) + 8);
    expectReservation(reservation, ring.slot(0), nullptr, 0, slots, 0);
    EXPECT_EQ(ring->counter, slots) << bytes;
  }
}

TEST(RingReserve, RefusesAPayloadThatIsTooLarge) {
  const Ring ring(RAMBO_CIRCULAR);
  RamboReservation reservation = {nullptr, nullptr, 1, 2, 3};
  for (const uint32_t bytes : {131'061u, 0x80000000u, 0xFFFFFFB5u, 0xFFFFFFFFu})
    EXPECT_EQ(ramboReserveSlots(ring.handle(), bytes, &reservation), nullptr) << bytes;
  expectReservation(reservation, nullptr, nullptr, 1, 2, 3);
  EXPECT_EQ(ring->counter, 0u);
}

TEST(RingReserve, WritesNothingButTheCounter) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE, RAMBO_CHUNKED}) {
    const Ring ring(mode);
    const std::string before = ring.contents();
    reserve(ring, 2000);
    EXPECT_EQ(ring->counter, 2000u);
    EXPECT_TRUE(ring.contents().substr(4) == before.substr(4));
  }
}

TEST(RingSync, MakesARecordOfOneSlot) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE, RAMBO_CHUNKED}) {
    const Ring ring(mode);
    fillSlots(ring, '.');
    ring->counter = 0x12;
    const RamboReservation reservation = reserve(ring, 1);
    EXPECT_EQ(bytesAt(ring.slot(0x12), 64), letters('.', 1));

    std::memset(ring.slot(0x12) + 8, 'p', 52);
    ramboSync(ring.handle(), &reservation);
    const std::string record = std::string("\x12\0\0\0\xFE\xCA\1\0", 8) + std::string(52, 'p') +
                               std::string("\xED\xFF\xFF\xFF", 4);
    EXPECT_EQ(bytesAt(ring.slot(0x11), 192), letters('.', 1) + record + letters('.', 1));
  }
}

TEST(RingSync, MakesARecordOfManySlots) {
  const Ring ring(RAMBO_CIRCULAR);
  fillSlots(ring, '.');
  ring->counter = 0x01020304;  // slot 0x304
  RamboReservation reservation = {};
  void* const payload = ramboReserveSlots(ring.handle(), 130, &reservation);
  ASSERT_EQ(payload, ring.slot(0x304) + 8);
  std::memset(payload, 'p', 130);
  ramboSync(ring.handle(), &reservation);

  // Behind the payload the slots hold what they held.
  const std::string record = std::string("\4\3\2\1\xFE\xCA\3\0", 8) + std::string(130, 'p') +
                             std::string(50, '.') + "\xFB\xFC\xFD\xFE";
  EXPECT_EQ(bytesAt(ring.slot(0x303), 320), letters('.', 1) + record + letters('.', 1));
}

TEST(RingSync, IsWhatMakesARecordWhole) {
  const Ring ring(RAMBO_CIRCULAR);
  const RamboReservation first = reserve(ring, 3);
  const RamboReservation second = reserve(ring, 2);
  ramboSync(ring.handle(), &second);
  ASSERT_EQ(readRing(ring).size(), 1u);
  EXPECT_EQ(readRing(ring)[0].sequence, 3u);

  ramboSync(ring.handle(), &first);
  ASSERT_EQ(readRing(ring).size(), 2u);
  EXPECT_EQ(readRing(ring)[0].sequence, 0u);
}

// ---- Chunks -------------------------------------------------------------------------------------

TEST(RingChunk, CountsTheSlotsOfARecordOnceItIsSealed) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 2048;
  const RamboReservation reservation = reserve(ring, 5);
  expectReservation(reservation, ring.slot(2048), &ring.chunk(1), 2048, 5, 5);
  EXPECT_EQ(ring.chunk(1).completed, 0u);
  ramboSync(ring.handle(), &reservation);
  EXPECT_EQ(ring.chunk(1).completed, 5u);
}

TEST(RingChunk, SharesARecordOnItsBorderWithTheNextOne) {
  struct Case {
    uint32_t counter;
    uint32_t slots;
    uint16_t inFirst;
    uint32_t inNext;
  };
  for (const Case& one :
       {Case{2047, 1, 1, 0}, Case{2045, 3, 3, 0}, Case{2045, 4, 3, 1}, Case{2047, 2, 1, 1},
        Case{2047, 2048, 1, 2047}, Case{0, 2048, 2048, 0}, Case{1, 2048, 2047, 1}}) {
    const Ring ring(RAMBO_CHUNKED);
    ring->counter = one.counter;
    const RamboReservation reservation = reserve(ring, one.slots);
    expectReservation(reservation, ring.slot(one.counter), &ring.chunk(0), one.counter,
                      static_cast<uint16_t>(one.slots), one.inFirst);
    ramboSync(ring.handle(), &reservation);
    EXPECT_EQ(ring.chunk(0).completed, one.inFirst);
    EXPECT_EQ(ring.chunk(1).completed, one.inNext);
    EXPECT_EQ(ring.chunk(2).completed, 0u);
    EXPECT_EQ(readRing(ring).size(), 1u);
  }
}

TEST(RingChunk, CompletesWhenAllItsSlotsAreSealed) {
  const Ring ring(RAMBO_CHUNKED);
  for (int i = 0; i < 2048; ++i) {
    const RamboReservation reservation = reserve(ring, 4);
    ramboSync(ring.handle(), &reservation);
  }
  for (uint32_t chunk = 0; chunk < 4; ++chunk) {
    EXPECT_EQ(ring.chunk(chunk).completed, 2048u);
    EXPECT_EQ(ring.chunk(chunk).generation, 0u);
  }
}

// Nobody waits, nobody counts: the buffer is a circular one.
TEST(RingChunk, IsNotCountedWithoutAutoDump) {
  const Ring ring(RAMBO_CHUNKED);
  ASSERT_EQ(ramboAutoDumpEnabled(ring.handle(), false), ECF_OK);
  for (uint32_t i = 0; i < 3 * 8192; i += 16) {
    const RamboReservation reservation = reserve(ring, 16);
    const uint32_t index = i % 8192;
    expectReservation(reservation, ring.slot(index), &ring.chunk(index / 2048), i, 16, 16);
    ramboSync(ring.handle(), &reservation);
  }
  EXPECT_EQ(readRing(ring).size(), 512u);
  for (uint32_t chunk = 0; chunk < 4; ++chunk) EXPECT_EQ(ring.chunk(chunk).completed, 0u);
}

// A record is counted by what holds when it is sealed.
TEST(RingChunk, IsCountedBySealsAfterAutoDumpWasSwitchedOn) {
  const Ring ring(RAMBO_CHUNKED);
  const RamboReservation first = reserve(ring, 3);
  ASSERT_EQ(ramboAutoDumpEnabled(ring.handle(), false), ECF_OK);
  ramboSync(ring.handle(), &first);
  EXPECT_EQ(ring.chunk(0).completed, 0u);

  const RamboReservation second = reserve(ring, 5);
  ASSERT_EQ(ramboAutoDumpEnabled(ring.handle(), true), ECF_OK);
  ramboSync(ring.handle(), &second);
  EXPECT_EQ(ring.chunk(0).completed, 5u);
}

// ---- The end of the ring ------------------------------------------------------------------------

TEST(RingEnd, TakesARecordThatEndsThere) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE, RAMBO_CHUNKED}) {
    const Ring ring(mode);
    ring->counter = 8188;
    EXPECT_EQ(reserve(ring, 4).slot, ring.slot(8188));
    EXPECT_EQ(ring->counter, 8192u);
  }
}

// Deliberate: what no record covers stays as it was.
TEST(RingEnd, IsLeftAsItWasWithoutChunks) {
  const Ring ring(RAMBO_CIRCULAR);
  fillSlots(ring, '.');
  ring->counter = 8190;
  const RamboReservation reservation = reserve(ring, 5);
  expectReservation(reservation, ring.slot(3), nullptr, 8195, 5, 0);
  EXPECT_EQ(ring->counter, 8200u);
  EXPECT_EQ(bytesAt(ring.slot(0), 0x80000), letters('.', 8192));
}

TEST(RingEnd, IsZeroedAndCountedWithChunks) {
  const Ring ring(RAMBO_CHUNKED);
  fillSlots(ring, '.');
  ring->counter = 8190;
  ring.chunk(0).generation = 1;
  const RamboReservation reservation = reserve(ring, 5);
  expectReservation(reservation, ring.slot(3), &ring.chunk(0), 8195, 5, 5);
  EXPECT_EQ(ring->counter, 8200u);
  EXPECT_EQ(ring.chunk(3).completed, 2u);
  EXPECT_EQ(ring.chunk(0).completed, 3u);
  EXPECT_EQ(bytesAt(ring.slot(0), 0x80000),
            std::string(3 * 64, '\0') + letters('.', 8187) + std::string(2 * 64, '\0'));
}

TEST(RingEnd, IsZeroedButNotCountedWithoutAutoDump) {
  const Ring ring(RAMBO_CHUNKED);
  fillSlots(ring, '.');
  ASSERT_EQ(ramboAutoDumpEnabled(ring.handle(), false), ECF_OK);
  ring->counter = 8191;
  EXPECT_EQ(reserve(ring, 2048).slot, ring.slot(2047));
  EXPECT_EQ(ring.chunk(3).completed, 0u);
  EXPECT_EQ(ring.chunk(0).completed, 0u);
  EXPECT_EQ(bytesAt(ring.slot(0), 0x80000),
            std::string(2047 * 64, '\0') + letters('.', 6144) + std::string(64, '\0'));
}

// The walk over the ring passes what the record left out, and what stands there still is stale.
TEST(RingEnd, HidesNoRecord) {
  const Ring ring(RAMBO_CIRCULAR);
  uint32_t last = 0;
  for (uint32_t i = 0; i < 10'000; ++i) {
    const RamboReservation reservation = reserve(ring, 1 + i % 7);
    ramboSync(ring.handle(), &reservation);
    last = reservation.sequence;
  }
  const std::vector<RingRecord> records = readRing(ring);
  ASSERT_GT(records.size(), 2000u);
  EXPECT_EQ(records.back().sequence, last);
  uint32_t leftOut = 0;
  for (size_t i = 1; i < records.size(); ++i) {
    const uint32_t next = records[i - 1].sequence + records[i - 1].slots;
    if (records[i].sequence != next) ++leftOut;
    EXPECT_EQ(records[i].sequence % 8192, records[i].index);
  }
  EXPECT_LE(leftOut, 1u);
}

// ---- Full buffers -------------------------------------------------------------------------------

int g_calls = 0;

OSSErr countCall() {
  ++g_calls;
  return ECF_FAILED;
}

class RingFull : public testing::Test {
 protected:
  RingFull() {
    g_calls = 0;
    ramboSetCallBack(countCall);
  }
  ~RingFull() override { ramboSetCallBack(nullptr); }

  const Ring ring_{RAMBO_FILL_ONCE};
};

TEST_F(RingFull, CallsBackOncePerReservation) {
  for (int i = 0; i < 4; ++i) reserve(ring_, 2048);
  EXPECT_EQ(g_calls, 0);
  for (uint32_t i = 0; i < 5; ++i) {
    const RamboReservation reservation = reserve(ring_, 3);
    expectReservation(reservation, ring_.overflow(), nullptr, 8192 + 3 * i, 1, 0);
    ramboSync(ring_.handle(), &reservation);
    EXPECT_EQ(g_calls, static_cast<int>(i) + 1);
    EXPECT_EQ(ring_->counter, 8192 + 3 * (i + 1));
  }
}

TEST_F(RingFull, SealsWhatIsLostAsOneSlotOfTheOverflowArea) {
  fillSlots(ring_, '.');
  ring_->counter = 8192;
  const RamboReservation reservation = reserve(ring_, 2048);
  std::memset(ring_.overflow() + 8, 'p', 2048 * 64 - 12);
  ramboSync(ring_.handle(), &reservation);
  EXPECT_EQ(bytesAt(ring_.slot(0), 0x80000), letters('.', 8192));
  EXPECT_EQ(bytesAt(ring_.overflow(), 64),
            std::string("\0\x20\0\0\xFE\xCA\1\0", 8) + std::string(52, 'p') + "\xFF\xDF\xFF\xFF");
}

// The counter does not step back: what would have fitted is lost, too.
TEST_F(RingFull, StaysFull) {
  ring_->counter = 8190;
  EXPECT_TRUE(ring_.isLost(reserve(ring_, 3)));
  EXPECT_TRUE(ring_.isLost(reserve(ring_, 1)));
  EXPECT_EQ(ring_->counter, 8194u);
  EXPECT_EQ(g_calls, 2);

  ASSERT_EQ(ramboNewSequence(ring_.handle()), ECF_OK);
  expectReservation(reserve(ring_, 1), ring_.slot(0), nullptr, 16'384, 1, 0);
  EXPECT_EQ(g_calls, 2);
}

TEST_F(RingFull, StartsOverBehindTwiceItsSlots) {
  ring_->counter = 16'382;
  EXPECT_TRUE(ring_.isLost(reserve(ring_, 1)));
  EXPECT_TRUE(ring_.isLost(reserve(ring_, 1)));
  expectReservation(reserve(ring_, 1), ring_.slot(0), nullptr, 16'384, 1, 0);
  expectReservation(reserve(ring_, 9), ring_.slot(1), nullptr, 16'385, 9, 0);
  EXPECT_EQ(g_calls, 2);
}

TEST_F(RingFull, NeedsNoCallback) {
  ramboSetCallBack(nullptr);
  ring_->counter = 8192;
  EXPECT_TRUE(ring_.isLost(reserve(ring_, 1)));
  EXPECT_EQ(g_calls, 0);
}

TEST_F(RingFull, HappensToFillOnceBuffersOnly) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_CHUNKED}) {
    const Ring ring(mode);
    ramboAutoDumpEnabled(ring.handle(), false);
    ring->counter = 8191;
    EXPECT_FALSE(ring.isLost(reserve(ring, 2)));
  }
  EXPECT_EQ(g_calls, 0);
}

// ---- The counter comes round --------------------------------------------------------------------

TEST(RingCounter, ComesRoundInACircularBuffer) {
  const Ring ring(RAMBO_CIRCULAR);
  ring->counter = 0xFFFFFFFE;
  for (const uint32_t sequence : {0xFFFFFFFEu, 0xFFFFFFFFu, 0u, 1u}) {
    const RamboReservation reservation = reserve(ring, 1);
    expectReservation(reservation, ring.slot(sequence % 8192), nullptr, sequence, 1, 0);
    ramboSync(ring.handle(), &reservation);
  }
  const std::vector<RingRecord> records = readRing(ring);
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records.front().sequence, 0xFFFFFFFEu);
  EXPECT_EQ(records.back().sequence, 1u);

  ring->counter = 0xFFFFFFFF;
  expectReservation(reserve(ring, 3), ring.slot(2), nullptr, 2, 3, 0);
}

TEST(RingCounter, ComesRoundInAFillOnceBuffer) {
  const Ring ring(RAMBO_FILL_ONCE);
  ring->counter = 0xFFFFFFFF;
  EXPECT_TRUE(ring.isLost(reserve(ring, 1)));
  expectReservation(reserve(ring, 1), ring.slot(0), nullptr, 0, 1, 0);
}

// The generations go on: 0x7FFFF is the counter's last pass, 0x80000 its first again.
TEST(RingCounter, ComesRoundInAChunkedBuffer) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 0xFFFFFFFD;
  ring.chunk(3).generation = 0x7FFFF;
  for (uint32_t chunk = 0; chunk < 3; ++chunk) ring.chunk(chunk).generation = 0x80000;

  RamboReservation reservation = reserve(ring, 2);
  expectReservation(reservation, ring.slot(8189), &ring.chunk(3), 0xFFFFFFFD, 2, 2);
  reservation = reserve(ring, 2);
  expectReservation(reservation, ring.slot(1), &ring.chunk(0), 1, 2, 2);
  EXPECT_EQ(ring.chunk(3).completed, 1u);
  EXPECT_EQ(ring.chunk(0).completed, 1u);
  reservation = reserve(ring, 2048);
  expectReservation(reservation, ring.slot(3), &ring.chunk(0), 3, 2048, 2045);
}

}  // namespace
