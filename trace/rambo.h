// rambo.h - reservation and seal, inline for the trace points.
//
// Writers: any thread, any time. A slot belongs to the writer whose add returned it, until the ring
// comes round. Order: every read-modify-write is sequentially consistent; a record is published by
// its seal, whose two stores release the payload before them.
#pragma once

#include "numeric/ossatomic.h"
#include "ossrambo.h"

namespace oss {

inline RamboChunk* chunkAt(RamboControlBlock& ring, uint32_t index) noexcept {
  return reinterpret_cast<RamboChunk*>(reinterpret_cast<char*>(&ring) + ring.chunkOffset) + index;
}

inline char* slotAt(RamboControlBlock& ring, uint32_t index) noexcept {
  return reinterpret_cast<char*>(&ring) + ring.slotOffset + uint64_t{index} * RAMBO_SLOT;
}

// A region that ramboInitialize has formatted: 0, or why it is none.
OSSErr checkRing(const void* handle) noexcept;

// What the parts of a dump file begin with.
inline constexpr char kDumpHeadMagic[8] = "@HEAD\r\n";
inline constexpr char kDumpTailMagic[8] = "@TAIL\r\n";

constexpr bool isRamboBuffer(uint32_t size) noexcept {
  return size >= RAMBO_SMALLEST_BUFFER && size <= RAMBO_LARGEST_BUFFER && (size & (size - 1)) == 0;
}

constexpr uint32_t slotsOf(uint32_t payloadBytes) noexcept { return (payloadBytes + 75) >> 6; }

// What a reservation meets beside a slot in the middle of an unchunked ring: the ring's end, a full
// buffer, a chunk's border. `counter` is what the add returned. What is cold takes and returns
// values: the hot path keeps its own in registers.
[[gnu::cold]] RamboReservation reserveRarely(RamboControlBlock& ring, uint32_t slots,
                                             uint32_t counter) noexcept;

// Whether slots that begin at this counter value lie in the middle of an unchunked ring.
inline bool isPlain(const RamboControlBlock& ring, uint32_t slots, uint32_t counter) noexcept {
  return (counter & ring.indexMask) + slots <= ring.slotCount && ring.chunked == 0;
}

inline void* payloadOf(void* slot) noexcept {
  return static_cast<char*>(slot) + sizeof(RamboRecordHead);
}

// Makes a record whole.
inline void publish(void* slot, uint32_t slots, uint32_t sequence) noexcept {
  auto* const trailer =
      reinterpret_cast<uint32_t*>(static_cast<char*>(slot) + uint64_t{slots} * RAMBO_SLOT) - 1;
  const uint64_t head = uint64_t{slots} << 48 | uint64_t{RAMBO_RECORD_MARK} << 32 | sequence;
  __atomic_store_n(static_cast<uint64_t*>(slot), head, __ATOMIC_RELEASE);
  // Visible from here: nothing; the record lacks its trailer.
  __atomic_store_n(trailer, ~sequence, __ATOMIC_RELEASE);
  // Visible from here: the record.
}

[[gnu::cold]] void sealCounted(const RamboControlBlock& ring,
                               RamboReservation reservation) noexcept;

// A reservation whose usual case lives in registers.
class Slots {
 public:
  [[gnu::always_inline]] Slots(RamboControlBlock& ring, uint32_t slots) noexcept
      : ring_(ring),
        slots_(slots),
        counter_(fetchAndAdd(&ring.counter, slots)),
        // Visible from here: other writers get later slots; a reader sees these as not whole.
        isPlain_(isPlain(ring, slots, counter_)),
        slot_(slotAt(ring, counter_ & ring.indexMask)) {
    if (isPlain_) [[likely]]
      return;
    rare_ = reserveRarely(ring, slots, counter_);
    slot_ = rare_.slot;
  }

  void* payload() const noexcept { return payloadOf(slot_); }

  [[gnu::always_inline]] void seal() const noexcept {
    if (isPlain_) [[likely]]
      publish(slot_, slots_, counter_);
    else
      sealCounted(ring_, rare_);
  }

  RamboReservation reservation() const noexcept {
    if (!isPlain_) return rare_;
    return {slot_, nullptr, counter_, static_cast<uint16_t>(slots_), 0};
  }

 private:
  const RamboControlBlock& ring_;
  uint32_t slots_;
  uint32_t counter_;
  bool isPlain_;
  void* slot_;
  RamboReservation rare_ = {};
};

}  // namespace oss
