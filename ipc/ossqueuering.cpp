// The copies.
#include "ipc/ossqueuering.h"

#include <algorithm>

namespace oss {
namespace {

// A piece of known size, which the compiler moves through registers.
template <size_t kBytes>
void copyBlock(uint8_t* to, const uint8_t* from) noexcept {
  std::memcpy(to, from, kBytes);
}

// The first and the last bytes, which may overlap: all counts from kBytes to twice as many.
template <size_t kBytes>
void copyEnds(uint8_t* to, const uint8_t* from, uint64_t count) noexcept {
  copyBlock<kBytes>(to, from);
  copyBlock<kBytes>(to + count - kBytes, from + count - kBytes);
}

// Short messages are common, and a call of the run-time's copy takes longer than their bytes do.
void copyBytes(uint8_t* to, const uint8_t* from, uint64_t count) noexcept {
  if (count > 128 || count < 8) {
    if (count != 0) std::memcpy(to, from, count);
  } else if (count <= 16) {
    copyEnds<8>(to, from, count);
  } else if (count <= 32) {
    copyEnds<16>(to, from, count);
  } else if (count <= 64) {
    copyEnds<32>(to, from, count);
  } else {
    copyEnds<64>(to, from, count);
  }
}

}  // namespace

void QueueRing::copyIn(const RingState& state, uint64_t offset, const void* bytes,
                       uint64_t count) const noexcept {
  const auto* const from = static_cast<const uint8_t*>(bytes);
  const uint64_t first = std::min(count, state.capacity - offset);
  copyBytes(this->bytes() + offset, from, first);
  if (first != count) copyBytes(this->bytes(), from + first, count - first);
}

void QueueRing::copyOut(const RingState& state, uint64_t offset, void* bytes,
                        uint64_t count) const noexcept {
  auto* const to = static_cast<uint8_t*>(bytes);
  const uint64_t first = std::min(count, state.capacity - offset);
  copyBytes(to, this->bytes() + offset, first);
  if (first != count) copyBytes(to + first, this->bytes(), count - first);
}

}  // namespace oss
