// passfilter.h - tells, in a chunk that is not complete, the records of this pass of the ring from
// what an earlier pass left there.
//
// A record of this pass has the sequence number that belongs to its slot. It may begin in one chunk
// and end in the next, so every chunk is shown in turn, the complete ones too.
#pragma once

#include <cstdint>

#include "ossrambo.h"

namespace oss::tool {

class PassFilter {
 public:
  // Walks over a complete chunk.
  void pass(const char* slots, uint32_t firstSequence) {
    walk(slots, RAMBO_CHUNK_SLOTS, firstSequence, nullptr);
  }

  // Zeroes, among the first `count` slots of a copy of a chunk, all that is not of this pass.
  void clear(char* slots, uint32_t count, uint32_t firstSequence) {
    walk(slots, count, firstSequence, slots);
  }

 private:
  void walk(const char* slots, uint32_t count, uint32_t firstSequence, char* clear);

  uint32_t carried_ = 0;  // slots of a record that runs into the next chunk
};

}  // namespace oss::tool
