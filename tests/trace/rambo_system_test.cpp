// Tests of the ring between processes: two of them, four threads each, and one that is killed.
#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "osscatalog.h"
#include "trace/ringdumper.h"

using namespace osse_test;

namespace {

constexpr uint32_t kThreads = 4;  // of each of two processes
constexpr uint32_t kWriters = 2 * kThreads;

// What the processes share beside the ring.
struct Race {
  RoundLine line;
  uint32_t written[kWriters];  // records that are in the ring, or were
};

// A ring in shared memory.
class SharedRing : public SharedMemory, public RingView {
 public:
  SharedRing(int32_t mode, uint32_t bufferSize)
      : SharedMemory(ramboGetAllocSize(bufferSize)), RingView(address()) {
    EXPECT_EQ(ramboInitialize(address(), bufferSize, mode), ECF_OK);
  }

  // What another process needs to map it.
  std::vector<std::string> arguments() const {
    return {name(), std::to_string(ramboGetAllocSize((*this)->bufferSize)),
            std::to_string(reinterpret_cast<uintptr_t>(address()))};
  }

  // Begins at that counter, the start of a pass.
  void startAt(uint32_t counter) const {
    (*this)->counter = counter;
    for (uint32_t chunk = 0; chunk < (*this)->chunkCount; ++chunk)
      this->chunk(chunk).generation = counter / (*this)->slotCount;
  }
};

// The same memory in another process, at another address: if the first view lies where the maker's
// does, the second one does not.
class MappedRing {
 public:
  explicit MappedRing(const ChildArguments& arguments)
      : first_(arguments.at(0), std::stoul(arguments.at(1))),
        second_(arguments.at(0), std::stoul(arguments.at(1))),
        maker_(std::stoull(arguments.at(2))) {}

  RingView ring() const {
    void* const address = isTheMakers(first_) ? second_.address() : first_.address();
    EXPECT_NE(reinterpret_cast<uintptr_t>(address), maker_);
    return RingView(address);
  }

 private:
  bool isTheMakers(const SharedMemory& view) const {
    return reinterpret_cast<uintptr_t>(view.address()) == maker_;
  }

  SharedMemory first_;
  SharedMemory second_;
  uint64_t maker_;
};

// ---- Two processes ------------------------------------------------------------------------------

using Work = uint32_t (*)(const RingView& ring, Race& race, uint32_t writer);

constexpr uint32_t kRounds = 175;              // of a circular buffer of 16 MiB
constexpr uint32_t kChunkedRecords = 470'000;  // of each writer
constexpr uint32_t kLosses = 20;               // of each writer: not enough to start over

uint32_t writeCircular(const RingView& ring, Race& race, uint32_t writer) {
  return writeRounds(ring, race.line, kWriters, writer, kRounds);
}

uint32_t writeUntilFull(const RingView& ring, Race&, uint32_t writer) {
  uint32_t number = 0;
  while (writeRecord(ring, writer, number)) ++number;
  for (uint32_t loss = 1; loss < kLosses; ++loss)
    EXPECT_FALSE(writeRecord(ring, writer, number + loss));
  return number;
}

uint32_t writeChunked(const RingView& ring, Race&, uint32_t writer) {
  for (uint32_t number = 0; number < kChunkedRecords; ++number)
    EXPECT_TRUE(writeRecord(ring, writer, number));
  return kChunkedRecords;
}

Work workOf(const RingView& ring) {
  if (ring->chunked != 0) return writeChunked;
  return ring->circular != 0 ? writeCircular : writeUntilFull;
}

// Writers of all threads of both processes begin together.
void write(const RingView& ring, Race& race, uint32_t firstWriter) {
  std::vector<std::thread> threads;
  for (uint32_t writer = firstWriter; writer < firstWriter + kThreads; ++writer)
    threads.emplace_back([&, writer] {
      race.line.pass(kWriters);
      race.written[writer] = workOf(ring)(ring, race, writer);
    });
  for (std::thread& thread : threads) thread.join();
}

CHILD_ROLE(writeRing) {
  const MappedRing mapped(arguments);
  SharedBlock<Race> race(arguments.at(3));
  Event ready(arguments.at(4));
  ready.set();
  write(mapped.ring(), *race, kThreads);
  return 0;
}

// Both processes write while `meanwhile` runs here, until it is told that they have ended.
uint64_t race(const SharedRing& ring, Race* written,
              const std::function<void(const std::atomic<bool>& ended)>& meanwhile) {
  SharedBlock<Race> race;
  Event ready;
  std::vector<std::string> arguments = ring.arguments();
  arguments.insert(arguments.end(), {race.name(), ready.name()});
  Child child = startChild("writeRing", arguments);
  EXPECT_TRUE(ready.wait());

  std::atomic<bool> ended = false;
  std::thread other(meanwhile, std::cref(ended));
  write(ring, *race, 0);
  EXPECT_EQ(child.wait(), 0u);
  ended = true;
  other.join();

  *written = *race;
  uint64_t total = 0;
  for (const uint32_t records : written->written) total += records;
  return total;
}

// Takes the slots front to back, as a record is to be read: its head before its payload.
std::vector<uint64_t> copySlots(const RingView& ring) {
  const auto* const words = reinterpret_cast<const uint64_t*>(ring.slot(0));
  std::vector<uint64_t> copy(ring->bufferSize / sizeof(uint64_t));
  for (size_t i = 0; i < copy.size(); ++i) copy[i] = __atomic_load_n(words + i, __ATOMIC_ACQUIRE);
  return copy;
}

// What is copied while the writers run holds no mixed record, and what is there in the end none
// that is missing.
TEST(RingOfTwoProcesses, KeepsTheNewestRecordsOfACircularBuffer) {
  const SharedRing ring(RAMBO_CIRCULAR, 0x1000000);
  ring.startAt(0u - 4 * ring->slotCount);
  Findings live;
  const auto watch = [&](const std::atomic<bool>& ended) {
    do {
      const std::vector<uint64_t> copy = copySlots(ring);
      RamboDumpTail tail = {};
      EXPECT_EQ(ramboGetDumpTail(ring.handle(), &tail), ECF_OK);
      for (const RingRecord& record :
           readSlots(reinterpret_cast<const uint8_t*>(copy.data()), ring->slotCount, tail.counter))
        live.add(record);
    } while (!ended);
  };
  Race written = {};
  const uint64_t total = race(ring, &written, watch);
  live.expectUnmixed();

  EXPECT_GT(total, 6'000'000u);
  EXPECT_LT(ring->counter, 0x80000000u) << "the counter came round";
  Findings findings;
  for (const RingRecord& record : readRing(ring)) findings.add(record);
  findings.expectWhole();
  for (uint32_t writer = 0; writer < kWriters; ++writer)
    EXPECT_EQ(findings.of(writer).end, written.written[writer]) << writer;
}

TEST(RingOfTwoProcesses, LosesNothingOfAFillOnceBufferUntilItIsFull) {
  const SharedRing ring(RAMBO_FILL_ONCE, 0x8000000);
  Race written = {};
  const uint64_t total = race(ring, &written, [](const std::atomic<bool>&) {});

  EXPECT_GT(total, 300'000u);
  Findings findings;
  for (const RingRecord& record : readRing(ring)) findings.add(record);
  findings.expectWhole();
  EXPECT_EQ(findings.count(), total);
  for (uint32_t writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(findings.of(writer).first, 0u) << writer;
    EXPECT_EQ(findings.of(writer).end, written.written[writer]) << writer;
  }
}

TEST(RingOfTwoProcesses, LosesNothingOfAChunkedBufferThatIsDumped) {
  const SharedRing ring(RAMBO_CHUNKED, 0x1000000);
  ring.startAt(0u - 4 * ring->slotCount);
  Dumper dumper(ring);
  Race written = {};
  const uint64_t total =
      race(ring, &written, [&](const std::atomic<bool>& ended) { dumper.run(ended); });

  EXPECT_EQ(total, uint64_t{kWriters} * kChunkedRecords);
  EXPECT_LT(ring->counter, 0x80000000u) << "the counter came round";
  dumper.findings().expectWhole();
  EXPECT_EQ(dumper.findings().count(), total);
  for (uint32_t writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(dumper.findings().of(writer).first, 0u) << writer;
    EXPECT_EQ(dumper.findings().of(writer).end, kChunkedRecords) << writer;
  }
}

// ---- A writer that is killed --------------------------------------------------------------------

constexpr uint32_t kKilledWriter = 7;
constexpr uint32_t kKilledRecords = 3;  // that it seals
constexpr uint32_t kKilledSlots = 80;   // of the record that it does not

CHILD_ROLE(standBeforeTheSeal) {
  const MappedRing mapped(arguments);
  Event reserved(arguments.at(3));
  Event never;
  const RingView ring = mapped.ring();
  for (uint32_t number = 0; number < kKilledRecords; ++number)
    EXPECT_TRUE(writeRecord(ring, kKilledWriter, number));
  RamboReservation reservation;
  void* const payload = ramboReserveSlots(ring.handle(), kKilledSlots * 64 - 12, &reservation);
  fillPayload(static_cast<uint8_t*>(payload), {kKilledWriter, kKilledRecords, kKilledSlots * 32});
  reserved.set();
  EXPECT_TRUE(never.wait());
  return 0;
}

class RingOfAKilledWriter : public testing::Test {
 protected:
  // Records of another writer.
  static void writeFrom(const RingView& ring, uint32_t number, uint32_t end) {
    for (; number < end; ++number) EXPECT_TRUE(writeRecord(ring, 0, number));
  }

  // A process that writes a few records, and is killed when it has filled half of the next one.
  static void kill(const SharedRing& ring) {
    Event reserved;
    std::vector<std::string> arguments = ring.arguments();
    arguments.push_back(reserved.name());
    Child child = startChild("standBeforeTheSeal", arguments);
    EXPECT_TRUE(reserved.wait());
    child.kill();
  }

  // The slots between the records that a reader finds.
  static std::vector<uint32_t> gaps(const std::vector<RingRecord>& records) {
    std::vector<uint32_t> slots;
    for (size_t i = 1; i < records.size(); ++i) {
      const RingRecord& last = records[i - 1];
      const uint32_t gap = records[i].sequence - last.sequence - last.slots;
      if (gap != 0) slots.push_back(gap);
    }
    return slots;
  }

  static Findings findingsIn(const std::vector<RingRecord>& records) {
    Findings findings;
    for (const RingRecord& record : records) findings.add(record);
    findings.expectWhole();
    return findings;
  }
};

TEST_F(RingOfAKilledWriter, AllOtherRecordsAreRead) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE}) {
    const SharedRing ring(mode, 0x80000);
    writeFrom(ring, 0, 100);
    kill(ring);
    writeFrom(ring, 100, 300);
    const std::vector<RingRecord> records = readRing(ring);
    EXPECT_EQ(gaps(records), std::vector<uint32_t>{kKilledSlots});

    const Findings findings = findingsIn(records);
    EXPECT_EQ(findings.count(), 300 + kKilledRecords);
    EXPECT_EQ(findings.of(0).end, 300u);
    EXPECT_EQ(findings.of(kKilledWriter).end, kKilledRecords);
  }
}

// Records of an earlier pass stand where the killed writer's would: they are stale.
TEST_F(RingOfAKilledWriter, NothingOldIsReadInItsPlace) {
  const SharedRing ring(RAMBO_CIRCULAR, 0x80000);
  uint32_t written = 0;
  for (; ring->counter < 8192 + 2048; ++written) writeFrom(ring, written, written + 1);
  kill(ring);
  writeFrom(ring, written, written + 100);

  const std::vector<RingRecord> records = readRing(ring);
  const std::vector<uint32_t> slots = gaps(records);
  EXPECT_EQ(std::count(slots.begin(), slots.end(), kKilledSlots), 1);
  EXPECT_LE(slots.size(), 2u) << "the ring's end may be another";
  const Findings findings = findingsIn(records);
  EXPECT_EQ(findings.of(0).end, written + 100);
  EXPECT_EQ(findings.of(kKilledWriter).end, kKilledRecords);
}

// The chunk of the record never completes: the dumper stands, and with it, one ring later, the
// writers, until the auto-dump is switched off.
TEST_F(RingOfAKilledWriter, WritersGoOnOnceTheAutoDumpIsOff) {
  constexpr uint32_t kRecords = 4000;  // more than a ring
  const SharedRing ring(RAMBO_CHUNKED, 0x80000);
  Dumper dumper(ring);
  kill(ring);
  std::thread writer([&] { writeFrom(ring, 0, kRecords); });
  while (std::atomic_ref(ring->counter).load() <= 8192) std::this_thread::yield();

  EXPECT_EQ(std::atomic_ref(ring.chunk(0).completed).load(), 2048 - kKilledSlots);
  EXPECT_FALSE(dumper.takeChunk());
  EXPECT_EQ(ramboAutoDumpEnabled(ring.handle(), false), ECF_OK);
  writer.join();

  const Findings findings = findingsIn(readRing(ring));
  EXPECT_EQ(findings.of(0).end, kRecords);
  EXPECT_GT(findings.count(), 1000u);
}

}  // namespace
