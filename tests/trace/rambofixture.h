// rambofixture.h - a ring in the test's own memory, and a reader of its records that shares no code
// with the library.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ossrambo.h"
#include "osstracedump.h"

namespace osse_test {

// A formatted region, wherever it is mapped.
class RingView {
 public:
  explicit RingView(void* region) : region_(static_cast<uint8_t*>(region)) {}

  void* handle() const { return region_; }
  RamboControlBlock* operator->() const { return reinterpret_cast<RamboControlBlock*>(region_); }
  RamboChunk& chunk(uint32_t index) const {
    return reinterpret_cast<RamboChunk*>(region_ + (*this)->chunkOffset)[index];
  }
  uint8_t* slot(uint32_t index) const {
    return region_ + (*this)->slotOffset + size_t{index} * RAMBO_SLOT;
  }
  uint8_t* overflow() const { return region_ + (*this)->overflowOffset; }
  bool isLost(const RamboReservation& reservation) const { return reservation.slot == overflow(); }

 private:
  uint8_t* region_;
};

// The memory of a region, exactly as large as it must be, and full of what was there before.
class RingMemory {
 public:
  static constexpr uint8_t kBefore = 0xA5;

  explicit RingMemory(uint32_t bufferSize)
      : bytes_(ramboGetAllocSize(bufferSize)), memory_(new uint64_t[bytes_ / 8]) {
    std::memset(memory_.get(), kBefore, bytes_);
  }

  void* region() const { return memory_.get(); }
  std::string contents() const { return {reinterpret_cast<const char*>(memory_.get()), bytes_}; }

 private:
  size_t bytes_;
  std::unique_ptr<uint64_t[]> memory_;
};

class Ring : private RingMemory, public RingView {
 public:
  explicit Ring(int32_t mode, uint32_t bufferSize = RAMBO_SMALLEST_BUFFER)
      : RingMemory(bufferSize), RingView(region()) {
    EXPECT_EQ(ramboInitialize(region(), bufferSize, mode), 0u);
  }

  using RingMemory::contents;
};

// ---- Reading ------------------------------------------------------------------------------------

struct RingRecord {
  uint32_t index;  // of its first slot
  uint32_t sequence;
  uint32_t slots;
  const uint8_t* payload;
};

// The record that begins here, if one does and is whole. It lies within `room` slots.
inline std::optional<RingRecord> recordAt(const uint8_t* slot, uint32_t room) {
  RamboRecordHead head;
  std::memcpy(&head, slot, sizeof head);
  if (head.mark != 0xCAFE || head.slots == 0 || head.slots > 2048 || head.slots > room) return {};

  uint32_t trailer = 0;
  std::memcpy(&trailer, slot + size_t{head.slots} * 64 - sizeof trailer, sizeof trailer);
  if (trailer != ~head.sequence) return {};
  return RingRecord{0, head.sequence, head.slots, slot + sizeof head};
}

// The whole records of a copy of the slots, oldest first. `counter` is what the counter was after
// the copy: a record that began more than a ring before it may have been overwritten meanwhile.
inline std::vector<RingRecord> readSlots(const uint8_t* slots, uint32_t slotCount,
                                         uint32_t counter) {
  std::vector<RingRecord> records;
  for (uint32_t walked = 0; walked < slotCount;) {
    const uint32_t index = (counter + walked) % slotCount;
    auto record = recordAt(slots + size_t{index} * 64, slotCount - index);
    const bool counts = record && counter - 1 - record->sequence < slotCount;
    walked += counts ? record->slots : 1;
    if (!counts) continue;
    record->index = index;
    records.push_back(*record);
  }
  return records;
}

// The whole records of a ring that nobody writes to.
inline std::vector<RingRecord> readRing(const RingView& ring) {
  RamboDumpTail tail = {};
  EXPECT_EQ(ramboGetDumpTail(ring.handle(), &tail), 0u);
  return readSlots(ring.slot(0), ring->slotCount, tail.counter);
}

// ---- Control operations -------------------------------------------------------------------------

using ControlOperation = OSSErr (*)(void* handle);
inline constexpr ControlOperation kControlOperations[] = {
    [](void* handle) { return ramboNewSequence(handle); },
    [](void* handle) { return ramboAutoDumpEnabled(handle, true); },
    [](void* handle) { return ramboAutoDumpEnabled(handle, false); },
    [](void* handle) {
      RamboDumpHead head;
      void* data = nullptr;
      uint32_t size = 0;
      return ramboGetDumpHeaderBuffer(handle, true, &head, &data, &size);
    },
    [](void* handle) {
      RamboDumpTail tail;
      return ramboGetDumpTail(handle, &tail);
    },
    [](void* handle) {
      RamboChunkWalker walker;
      return ramboInitializeChunkWalker(handle, &walker);
    },
};

}  // namespace osse_test
