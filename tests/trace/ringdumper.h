// ringdumper.h - a dumper of a chunked ring, which checks what it takes.
#pragma once

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "trace/ringwriters.h"

namespace osse_test {

// Takes the chunks of a ring as they complete, and reads their records. What the chunks hold, one
// behind the other, is nothing but records, each at its sequence number, and what a record left out
// at the ring's end, which is zero.
class Dumper {
 public:
  explicit Dumper(const RingView& ring)
      : ring_(ring), next_(ring->counter / RAMBO_CHUNK_SLOTS), position_(ring->counter) {
    EXPECT_EQ(position_ % RAMBO_CHUNK_SLOTS, 0u) << "it begins with a whole chunk";
  }

  // Until the writers have ended and no complete chunk is left. Then what the last chunk holds,
  // too.
  void run(const std::atomic<bool>& writersEnded) {
    for (;;) {
      const bool ended = writersEnded;
      if (takeChunk()) continue;
      if (ended) break;
      std::this_thread::yield();
    }
    take(current(), ring_->counter % RAMBO_CHUNK_SLOTS);
    EXPECT_EQ(position_, ring_->counter);
    EXPECT_TRUE(pending_.empty());
  }

  // Takes one chunk if it is complete.
  bool takeChunk() {
    RamboChunk& chunk = ring_.chunk(current());
    std::atomic_ref completed(chunk.completed);
    if (completed.load() != RAMBO_CHUNK_SLOTS) return false;
    take(current(), RAMBO_CHUNK_SLOTS);
    completed.store(0);
    // Visible from here: nothing; writers wait for the generation.
    ++std::atomic_ref(chunk.generation);
    // Visible from here: the chunk is the writers' again.
    ++next_;
    return true;
  }

  const Findings& findings() const { return findings_; }
  uint64_t slotsLeftOut() const { return slotsLeftOut_; }

 private:
  uint32_t current() const { return next_ % ring_->chunkCount; }

  void take(uint32_t chunk, uint32_t slots) {
    const uint8_t* const first = ring_.slot(chunk * RAMBO_CHUNK_SLOTS);
    pending_.insert(pending_.end(), first, first + size_t{slots} * RAMBO_SLOT);
    size_t read = 0;
    while (read < pending_.size()) {
      const size_t taken = readOne(pending_.data() + read, pending_.size() - read);
      if (taken == 0) break;
      read += taken;
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<ptrdiff_t>(read));
  }

  // Returns the bytes of a record or of an empty slot; 0 when more of the record is to come.
  size_t readOne(const uint8_t* slot, size_t bytes) {
    RamboRecordHead head;
    std::memcpy(&head, slot, sizeof head);
    if (head.mark == RAMBO_RECORD_MARK && size_t{head.slots} * RAMBO_SLOT > bytes) return 0;

    uint32_t slots = 1;
    if (const auto record = recordAt(slot, static_cast<uint32_t>(bytes / RAMBO_SLOT))) {
      EXPECT_EQ(record->sequence, position_);
      findings_.add(*record);
      slots = record->slots;
    } else {
      EXPECT_TRUE(std::all_of(slot, slot + RAMBO_SLOT, [](uint8_t byte) { return byte == 0; }));
      ++slotsLeftOut_;
    }
    position_ += slots;
    return size_t{slots} * RAMBO_SLOT;
  }

  const RingView ring_;
  uint32_t next_;                 // chunk since the counter was 0
  uint32_t position_;             // counter value of the next slot to read
  std::vector<uint8_t> pending_;  // a record's beginning
  Findings findings_;
  uint64_t slotsLeftOut_ = 0;
};

}  // namespace osse_test
