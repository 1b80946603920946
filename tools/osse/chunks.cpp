#include "chunks.h"

namespace oss::tool {

Chunks::Chunks(const RamboChunkWalker& first, uint32_t count)
    : first_(first), count_(count), chunk_(first.chunk) {
  const uint32_t newest = word(chunk_->generation).load();
  for (uint32_t i = 1; i < count_; ++i) {
    if (word(first_.chunk[i].generation).load() == newest) continue;
    chunk_ = first_.chunk + i;
    return;
  }
}

}  // namespace oss::tool
