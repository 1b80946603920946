// chunks.h - the chunks of a ring that is dumped while it is written, one after the other.
//
// Writers wait to overwrite a chunk until release() lets them; so a complete chunk does not change
// while it is the current one. One dumper walks a ring at a time (solefollower.h).
#pragma once

#include <atomic>

#include "osstracedump.h"

namespace oss::tool {

class Chunks {
 public:
  // Begins at the chunk that an earlier dumper would have taken next: the first that is a
  // generation behind.
  Chunks(const RamboChunkWalker& first, uint32_t count);

  bool isComplete() const { return word(chunk_->completed).load() == RAMBO_CHUNK_SLOTS; }

  const char* slots() const { return static_cast<const char*>(first_.slots) + offset(); }

  // The sequence number of the current chunk's first slot in this pass of the ring.
  uint32_t firstSequence() const {
    return (word(chunk_->generation).load() * count_ + index()) * RAMBO_CHUNK_SLOTS;
  }

  // Gives the current chunk back to the writers and goes on to the next. The count is reset before
  // any writer may add to it again.
  void release() {
    word(chunk_->completed).store(0);
    word(chunk_->generation).fetch_add(1);
    step();
  }

  // Goes on without giving it back.
  void step() { chunk_ = index() + 1 == count_ ? first_.chunk : chunk_ + 1; }

 private:
  static std::atomic_ref<uint32_t> word(uint32_t& value) { return std::atomic_ref(value); }
  uint32_t index() const { return static_cast<uint32_t>(chunk_ - first_.chunk); }
  size_t offset() const { return size_t{index()} * RAMBO_CHUNK; }

  RamboChunkWalker first_;
  uint32_t count_;
  RamboChunk* chunk_;
};

}  // namespace oss::tool
