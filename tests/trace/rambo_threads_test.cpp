// Tests of the ring by threads: what the protocol promises, under ThreadSanitizer as well.
//
// Payloads are plain stores. Who may read them:
//   - once the writers have ended, anybody;
//   - while they run, in a chunked buffer with auto-dump, a dumper that has seen all slots of a
//     chunk completed. Each seal adds to the count after its stores, and no writer enters the chunk
//     again before it sees the next generation. Both are sequentially consistent steps, so the
//     dumper's reads lie between the stores of one pass and those of the next.
// A copy of the slots that is taken while writers run is a race by design: it is judged by the
// counter that is read behind it, and records that began a ring before that are dropped. Since that
// is no promise of the language, it is tested across processes only.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "harness/startline.h"
#include "osscatalog.h"
#include "trace/ringdumper.h"

using namespace osse_test;

namespace {

constexpr uint32_t kWriters = 4;

void inThreads(const std::function<void(uint32_t writer)>& work) {
  StartLine start(kWriters);
  std::vector<std::thread> threads;
  for (uint32_t writer = 0; writer < kWriters; ++writer)
    threads.emplace_back([&, writer] {
      start.pass();
      work(writer);
    });
  for (std::thread& thread : threads) thread.join();
}

// ---- Reservations -------------------------------------------------------------------------------

// Nothing but reservations, so that they meet as often as they can.
TEST(RingOfThreads, ReservesNoSlotTwice) {
  constexpr uint32_t kReservations = 100'000;  // of each writer
  const Ring ring(RAMBO_CIRCULAR);
  std::vector<std::atomic<uint8_t>> taken(kWriters * kReservations);
  inThreads([&](uint32_t) {
    RamboReservation reservation;
    for (uint32_t i = 0; i < kReservations; ++i) {
      ramboReserveOneSlot(ring.handle(), &reservation);
      if (reservation.sequence < taken.size()) ++taken[reservation.sequence];
    }
  });
  EXPECT_EQ(ring->counter, kWriters * kReservations);
  EXPECT_TRUE(
      std::all_of(taken.begin(), taken.end(), [](const auto& times) { return times == 1; }));
}

// ---- Circular -----------------------------------------------------------------------------------

// Of each writer, the newest records are all there.
TEST(RingOfThreads, KeepsTheNewestRecordsOfACircularBuffer) {
  const Ring ring(RAMBO_CIRCULAR, 0x400000);
  RoundLine line = {};
  std::array<uint32_t, kWriters> written = {};
  ring->counter = 0xFFFF0000;  // a whole ring below its wrap-around
  inThreads(
      [&](uint32_t writer) { written[writer] = writeRounds(ring, line, kWriters, writer, 12); });

  ASSERT_LT(ring->counter, 0x100000u) << "the counter came round";
  Findings findings;
  for (const RingRecord& record : readRing(ring)) {
    EXPECT_EQ(record.sequence % ring->slotCount, record.index);
    findings.add(record);
  }
  findings.expectWhole();
  EXPECT_GT(findings.count(), 1000u);
  for (uint32_t writer = 0; writer < kWriters; ++writer)
    EXPECT_EQ(findings.of(writer).end, written[writer]) << writer;
}

// ---- Fill-once ----------------------------------------------------------------------------------

std::atomic<uint32_t> g_calls = 0;

OSSErr countCall() {
  ++g_calls;
  return ECF_OK;
}

// Everything is there until the buffer is full; from then on nothing is.
TEST(RingOfThreads, LosesNothingOfAFillOnceBufferUntilItIsFull) {
  constexpr uint32_t kLosses = 6;  // of each writer: not enough to start over
  const Ring ring(RAMBO_FILL_ONCE, 0x400000);
  std::array<uint32_t, kWriters> written = {};
  g_calls = 0;
  ramboSetCallBack(countCall);
  inThreads([&](uint32_t writer) {
    while (writeRecord(ring, writer, written[writer])) ++written[writer];
    for (uint32_t loss = 1; loss < kLosses; ++loss)
      EXPECT_FALSE(writeRecord(ring, writer, written[writer] + loss));
  });
  ramboSetCallBack(nullptr);

  EXPECT_EQ(g_calls, kWriters * kLosses);
  Findings findings;
  for (const RingRecord& record : readRing(ring)) findings.add(record);
  findings.expectWhole();
  uint64_t total = 0;
  for (uint32_t writer = 0; writer < kWriters; ++writer) {
    const Findings::Run found = findings.of(writer);
    EXPECT_EQ(found.first, 0u) << writer;
    EXPECT_EQ(found.end, written[writer]) << writer;
    total += written[writer];
  }
  EXPECT_EQ(findings.count(), total);
  EXPECT_GT(total, 1000u);
}

// ---- Chunked ------------------------------------------------------------------------------------

// The dumper gets every record once, in the order of each writer, and every slot counts.
TEST(RingOfThreads, LosesNothingOfAChunkedBufferThatIsDumped) {
  constexpr uint32_t kRecords = 20'000;  // of each writer
  const Ring ring(RAMBO_CHUNKED, 0x100000);
  ring->counter = 0xFFFF8000;
  for (uint32_t chunk = 0; chunk < ring->chunkCount; ++chunk)
    ring.chunk(chunk).generation = ring->counter / ring->slotCount;

  Dumper dumper(ring);
  std::atomic<bool> writersEnded = false;
  std::thread dumping([&] { dumper.run(writersEnded); });
  inThreads([&](uint32_t writer) {
    for (uint32_t number = 0; number < kRecords; ++number)
      EXPECT_TRUE(writeRecord(ring, writer, number));
  });
  writersEnded = true;
  dumping.join();

  ASSERT_LT(ring->counter, 0x80000000u) << "the counter came round";
  dumper.findings().expectWhole();
  EXPECT_EQ(dumper.findings().count(), kWriters * kRecords);
  EXPECT_GT(dumper.slotsLeftOut(), 0u) << "records met the ring's end";
  for (uint32_t writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(dumper.findings().of(writer).first, 0u) << writer;
    EXPECT_EQ(dumper.findings().of(writer).end, kRecords) << writer;
  }
}

// ---- A writer that waits ------------------------------------------------------------------------

uint32_t counterOf(const RingView& ring) { return std::atomic_ref(ring->counter).load(); }

void dumped(const RingView& ring, uint32_t chunk) {
  ++std::atomic_ref(ring.chunk(chunk).generation);
}

// Reserves in a thread of its own, whose reservation must wait; the counter tells that it has
// begun.
class WaitingWriter {
 public:
  WaitingWriter(const RingView& ring, uint32_t slots) : ring_(ring) {
    const uint32_t before = counterOf(ring);
    thread_ = std::thread([this, slots] {
      ramboReserveSlots(ring_.handle(), slots * 64 - 12, &reservation_);
      returned_ = true;
    });
    while (counterOf(ring) == before) std::this_thread::yield();
    EXPECT_FALSE(returned_);
  }

  bool hasReturned() const { return returned_; }

  // Joins it, and returns what it reserved.
  RamboReservation reservation() {
    thread_.join();
    return reservation_;
  }

 private:
  const RingView ring_;
  RamboReservation reservation_ = {};
  std::atomic<bool> returned_ = false;
  std::thread thread_;
};

TEST(RingWait, EndsWhenTheChunkIsDumped) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 8192;
  WaitingWriter writer(ring, 1);
  dumped(ring, 0);
  EXPECT_EQ(writer.reservation().slot, ring.slot(0));
}

TEST(RingWait, IsForBothChunksOfARecord) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 8192 + 2047;
  WaitingWriter writer(ring, 2);
  dumped(ring, 0);
  EXPECT_FALSE(writer.hasReturned());
  dumped(ring, 1);
  const RamboReservation reservation = writer.reservation();
  EXPECT_EQ(reservation.slot, ring.slot(2047));
  EXPECT_EQ(reservation.slotsInChunk, 1);
}

// A record that crosses the ring's end waits for the last chunk, zeroes it, waits for the first,
// zeroes it, and goes on behind.
TEST(RingWait, IsForBothEndsOfTheRing) {
  const Ring ring(RAMBO_CHUNKED);
  std::memset(ring.slot(0), '.', 0x80000);
  ring->counter = 2 * 8192 - 1;
  dumped(ring, 0);
  WaitingWriter writer(ring, 3);
  dumped(ring, 3);
  while (std::atomic_ref(ring.chunk(3).completed).load() == 0) std::this_thread::yield();
  EXPECT_EQ(std::string(reinterpret_cast<char*>(ring.slot(8191)), 64), std::string(64, '\0'));
  EXPECT_EQ(ring.slot(0)[0], '.');
  EXPECT_FALSE(writer.hasReturned());

  dumped(ring, 0);
  EXPECT_EQ(writer.reservation().slot, ring.slot(2));
  EXPECT_EQ(ring.chunk(3).completed, 1u);
  EXPECT_EQ(ring.chunk(0).completed, 2u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(ring.slot(0)), 192),
            std::string(128, '\0') + std::string(64, '.'));
}

TEST(RingWait, EndsForAllWritersWithTheAutoDump) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 8192;
  WaitingWriter first(ring, 1);
  WaitingWriter second(ring, 2048);
  WaitingWriter third(ring, 1);
  ASSERT_EQ(ramboAutoDumpEnabled(ring.handle(), false), ECF_OK);
  EXPECT_EQ(first.reservation().slot, ring.slot(0));
  EXPECT_EQ(second.reservation().slot, ring.slot(1));
  EXPECT_EQ(third.reservation().slot, ring.slot(2049));
}

TEST(RingWait, EndsAtTheRingsEndWithTheAutoDump) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 2 * 8192 - 1;
  WaitingWriter writer(ring, 3);
  ASSERT_EQ(ramboAutoDumpEnabled(ring.handle(), false), ECF_OK);
  EXPECT_EQ(writer.reservation().slot, ring.slot(2));
  for (uint32_t chunk = 0; chunk < 4; ++chunk) EXPECT_EQ(ring.chunk(chunk).completed, 0u);
}

// ---- The latch ----------------------------------------------------------------------------------

// The mark of waiters disappears when the operation tries the latch: it waits from there on.
TEST(RingControlLatch, HoldsBackEveryControlOperation) {
  for (size_t i = 0; i < std::size(kControlOperations); ++i) {
    const Ring ring(i == 0 ? RAMBO_CIRCULAR : RAMBO_CHUNKED);
    std::atomic_ref latch(ring->latch);
    latch = 0xC0;
    std::atomic<bool> returned = false;
    std::thread thread([&] {
      EXPECT_EQ(kControlOperations[i](ring.handle()), ECF_OK) << i;
      returned = true;
    });
    while (latch != 0x80) std::this_thread::yield();
    EXPECT_FALSE(returned) << i;
    EXPECT_EQ(ring->counter, 0u) << i;

    latch = 0;
    thread.join();
    EXPECT_EQ(latch, 0) << i;
  }
}

// Writers do not take it.
TEST(RingControlLatch, HoldsBackNoWriter) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE, RAMBO_CHUNKED}) {
    const Ring ring(mode);
    ring->latch = 0x80;
    EXPECT_TRUE(writeRecord(ring, 1, 1));
    EXPECT_EQ(ring->latch, 0x80);
    ring->latch = 0;
    EXPECT_EQ(readRing(ring).size(), 1u);
  }
}

}  // namespace
