// ossqueuering.h - the byte ring of a message queue: its size, what is free and used, and the
// copies in and out.
//
// The header lies in memory that any process may write, so nothing in it is believed: RingState is
// one reading of it, and whoever copies does so by a state that isSound, which no garbage and no
// process can change any more. Then every copy stays inside the section.
//
// Fields are read and written one by one with relaxed atomics: the state latch orders them, and who
// looks without it sees whole numbers. A ring is used under the state latch, but for copyIn and
// copyOut, which touch only bytes, and for looksReadable and looksWritable, which look without a
// latch and may be wrong by the time they answer.
#pragma once

#include <cstdint>
#include <cstring>

#include "ossipcqueueheader.h"

namespace oss {

// A piece takes a multiple of these many bytes, so offsets stay multiples, too.
inline constexpr uint64_t kRingUnit = 8;
// What stands in front of each message.
inline constexpr uint64_t kLengthBytes = sizeof(uint64_t);

constexpr uint64_t paddedToUnit(uint64_t bytes) noexcept {
  return (bytes + kRingUnit - 1) & ~(kRingUnit - 1);
}

// The ring's size for messages of at most that many bytes. Short ones get room for their length as
// well; longer ones stream through the ring if need be. 0 when the size cannot be told in 64 bits.
constexpr uint64_t ringBytesFor(uint64_t maxMessageSize) noexcept {
  constexpr uint64_t kShort = 9;
  return paddedToUnit(maxMessageSize < kShort ? maxMessageSize + kRingUnit : maxMessageSize);
}

// The size of a section for a ring. One of 0 bytes stands for a size beyond telling: its section is
// larger than any that the system grants.
constexpr uint64_t sectionBytesFor(uint64_t ringBytes) noexcept {
  const uint64_t bytes = ringBytes + sizeof(OSSIPCQueueHeader);
  return ringBytes != 0 && bytes > ringBytes ? bytes : ~uint64_t{0};
}

// One reading of a ring's offsets.
struct RingState {
  uint64_t capacity;
  uint64_t writeOffset;
  uint64_t readOffset;
  bool notEmpty;

  constexpr uint64_t free() const noexcept {
    if (readOffset >= writeOffset && notEmpty) return readOffset - writeOffset;
    return capacity - (writeOffset - readOffset);
  }
  constexpr uint64_t used() const noexcept { return capacity - free(); }

  // Whether a ring of at most `room` bytes can be in this state. A ring without capacity, as its
  // section is until the creator has stored one, is both empty and full.
  constexpr bool isSound(uint64_t room) const noexcept {
    const bool inUnits = ((capacity | writeOffset | readOffset) & (kRingUnit - 1)) == 0;
    if (!inUnits || capacity > room) return false;
    if (capacity == 0) return (writeOffset | readOffset) == 0 && !notEmpty;
    return writeOffset < capacity && readOffset < capacity &&
           (notEmpty || writeOffset == readOffset);
  }

  // The place `bytes`, at most the capacity, behind an offset.
  constexpr uint64_t behind(uint64_t offset, uint64_t bytes) const noexcept {
    const uint64_t toEnd = capacity - offset;
    return bytes < toEnd ? offset + bytes : bytes - toEnd;
  }
};

class QueueRing {
 public:
  // Of the `room` bytes behind the header, which are mapped.
  QueueRing(OSSIPCQueueHeader* header, uint64_t room) noexcept : header_(header), room_(room) {}

  OSSIPCQueueHeader& header() const noexcept { return *header_; }
  uint64_t room() const noexcept { return room_; }

  // Reads the state. False when it is none that a ring can be in.
  [[nodiscard]] bool read(RingState& state) const noexcept {
    state = {.capacity = load(header_->capacity),
             .writeOffset = load(header_->writeOffset),
             .readOffset = load(header_->readOffset),
             .notEmpty = load(header_->notEmpty) != 0};
    return state.isSound(room_);
  }

  // Copies bytes to, or from, an offset of a sound state; at most its capacity of them.
  void copyIn(const RingState& state, uint64_t offset, const void* bytes,
              uint64_t count) const noexcept;
  void copyOut(const RingState& state, uint64_t offset, void* bytes, uint64_t count) const noexcept;

  // The length of a message, where the next one begins: of a sound state, in which 8 bytes are
  // free, or used. It never wraps around.
  void setLength(const RingState& state, uint64_t length) const noexcept {
    std::memcpy(bytes() + state.writeOffset, &length, sizeof length);
  }
  uint64_t length(const RingState& state) const noexcept {
    uint64_t length = 0;
    std::memcpy(&length, bytes() + state.readOffset, sizeof length);
    return length;
  }

  // Makes what has been copied in visible to readers; frees what has been copied out. `count` is at
  // most what is free, or used, and is padded here.
  void publish(RingState& state, uint64_t count) const noexcept {
    state.writeOffset = state.behind(state.writeOffset, paddedToUnit(count));
    state.notEmpty = true;
    store(header_->writeOffset, state.writeOffset);
    store(header_->notEmpty, uint8_t{1});
  }
  void consume(RingState& state, uint64_t count) const noexcept {
    state.readOffset = state.behind(state.readOffset, paddedToUnit(count));
    store(header_->readOffset, state.readOffset);
    if (state.readOffset != state.writeOffset) return;
    state.notEmpty = false;
    store(header_->notEmpty, uint8_t{0});
  }

  // Forgets what is unread.
  void clear() const noexcept {
    store(header_->writeOffset, uint64_t{0});
    store(header_->readOffset, uint64_t{0});
    store(header_->notEmpty, uint8_t{0});
  }

  bool looksReadable() const noexcept { return load(header_->notEmpty) != 0; }
  bool looksWritable() const noexcept {
    if (load(header_->notEmpty) == 0) return load(header_->capacity) != 0;
    return load(header_->readOffset) != load(header_->writeOffset);
  }

 private:
  template <class T>
  static T load(const T& field) noexcept {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
  }
  template <class T>
  static void store(T& field, T value) noexcept {
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
  }

  uint8_t* bytes() const noexcept { return reinterpret_cast<uint8_t*>(header_ + 1); }

  OSSIPCQueueHeader* header_;
  uint64_t room_;
};

}  // namespace oss
