// ringwriters.h - writers that put checkable records into a ring, and the checks of what a reader
// found there.
//
//   writer u32 | number u32 | length u32 | words derived from these three ... (cut to `length`)
//
// The length follows from writer and number, so a reader who trusts nothing can tell each byte that
// must stand in a record. No word holds a byte of the record's mark: a payload never looks like a
// record.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <thread>
#include <vector>

#include "trace/rambofixture.h"

namespace osse_test {

// ---- Payloads -----------------------------------------------------------------------------------

struct Stamp {
  uint32_t writer;
  uint32_t number;
  uint32_t length;  // of the payload, this included
};

constexpr uint64_t mixed(uint64_t value) {
  value = (value ^ value >> 31) * 0x7FB5D329728EA185;
  value = (value ^ value >> 27) * 0x81DADEF4BC2DD44D;
  return value ^ value >> 33;
}

// Mostly one to four slots; one of 1,024 takes up to 2,048, and each tenth of those is the largest.
constexpr uint32_t lengthOf(uint32_t writer, uint32_t number) {
  constexpr uint32_t kShortest = sizeof(Stamp);
  const uint64_t random = mixed(uint64_t{writer} << 32 | number);
  const auto more = static_cast<uint32_t>(random >> 32);
  if (random % 10'240 == 0) return RAMBO_LARGEST_PAYLOAD;
  const bool large = random % 1024 == 0;
  return kShortest + more % (large ? RAMBO_LARGEST_PAYLOAD - kShortest : 200);
}

constexpr uint64_t wordOf(const Stamp& stamp, uint32_t position) {
  constexpr uint64_t kNoMark = 0x7F7F7F7F7F7F7F7F;
  const uint64_t seed = uint64_t{stamp.writer} << 32 | stamp.number;
  return (seed + (position + 1) * 0x9E3779B97F4A7C15 + stamp.length) & kNoMark;
}

inline void fillPayload(uint8_t* payload, const Stamp& stamp) {
  std::memcpy(payload, &stamp, sizeof stamp);
  for (uint32_t at = sizeof stamp; at < stamp.length; at += 8) {
    const uint64_t word = wordOf(stamp, at);
    std::memcpy(payload + at, &word, std::min<size_t>(8, stamp.length - at));
  }
}

// Whether the record is exactly one that a writer wrote.
inline bool isUnmixed(const RingRecord& record, Stamp* stamp) {
  std::memcpy(stamp, record.payload, sizeof *stamp);
  if (stamp->length != lengthOf(stamp->writer, stamp->number)) return false;
  if ((stamp->length + 75) / 64 != record.slots) return false;
  for (uint32_t at = sizeof *stamp; at < stamp->length; at += 8) {
    const uint64_t word = wordOf(*stamp, at);
    if (std::memcmp(record.payload + at, &word, std::min<size_t>(8, stamp->length - at)) != 0)
      return false;
  }
  return true;
}

// ---- Writers ------------------------------------------------------------------------------------

// Writes one record. False when a full buffer lost it. What is lost goes where others may write at
// the same time: it is sealed but not filled.
inline bool writeRecord(const RingView& ring, uint32_t writer, uint32_t number) {
  const Stamp stamp = {writer, number, lengthOf(writer, number)};
  RamboReservation reservation;
  void* const payload = ramboReserveSlots(ring.handle(), stamp.length, &reservation);
  const bool lost = ring.isLost(reservation);
  if (!lost) fillPayload(static_cast<uint8_t*>(payload), stamp);
  ramboSync(ring.handle(), &reservation);
  return !lost;
}

// A line that the same writers, of one process or of several, cross again and again together.
struct RoundLine {
  uint32_t arrivals;  // zero at first

  void pass(uint32_t writers) {
    std::atomic_ref all(arrivals);
    const uint32_t round = all.fetch_add(1) / writers;
    while (all.load() / writers == round) std::this_thread::yield();
  }
};

// A circular buffer keeps nobody from writing on while a writer stands still, until the others come
// round to its slots; then two write at once, and what results is nobody's promise. So the writers
// of a test go in rounds of less than a ring. A round of one writer ends when it has taken this
// many slots, or would take more.
constexpr uint32_t roundSlots(uint32_t slotCount, uint32_t writers) {
  return slotCount / 2 / writers;
}

// Writes `rounds` rounds. Returns how many records that were.
inline uint32_t writeRounds(const RingView& ring, RoundLine& line, uint32_t writers,
                            uint32_t writer, uint32_t rounds) {
  uint32_t number = 0;
  for (uint32_t round = 0; round < rounds; ++round) {
    uint32_t left = roundSlots(ring->slotCount, writers);
    for (;;) {
      const uint32_t slots = (lengthOf(writer, number) + 75) / 64;
      if (slots > left) break;
      left -= slots;
      EXPECT_TRUE(writeRecord(ring, writer, number++));
    }
    line.pass(writers);
  }
  return number;
}

// ---- What was found -----------------------------------------------------------------------------

// Collects the records of each writer, in the order of the ring.
class Findings {
 public:
  void add(const RingRecord& record) {
    Stamp stamp;
    if (!isUnmixed(record, &stamp)) {
      ++mixed_;
      return;
    }
    Run& run = runs_.try_emplace(stamp.writer, Run{stamp.number, stamp.number}).first->second;
    if (run.end != stamp.number) ++outOfOrder_;
    run.end = stamp.number + 1;
    ++count_;
  }

  // Every record was whole and unmixed.
  void expectUnmixed() const { EXPECT_EQ(mixed_, 0u); }

  // Besides, of no writer one is missing between two others, or there twice.
  void expectWhole() const {
    expectUnmixed();
    EXPECT_EQ(outOfOrder_, 0u);
  }

  uint64_t count() const { return count_; }

  // Those of a writer reach from number `first` up to `end`; 0 and 0 for none.
  struct Run {
    uint32_t first;
    uint32_t end;
  };
  Run of(uint32_t writer) const {
    const auto found = runs_.find(writer);
    return found != runs_.end() ? found->second : Run{0, 0};
  }

 private:
  std::map<uint32_t, Run> runs_;
  uint64_t count_ = 0;
  uint64_t mixed_ = 0;
  uint64_t outOfOrder_ = 0;
};

}  // namespace osse_test
