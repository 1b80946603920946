#include "follow.h"

#include <windows.h>

#include <algorithm>

namespace oss::tool {
namespace {

std::atomic<bool> g_interrupted = false;

BOOL WINAPI interrupt(DWORD) {
  g_interrupted = true;
  return TRUE;
}

}  // namespace

Follow::Follow(Section& section, const RamboChunkWalker& first, ChunkFile& file)
    : section_(section), chunks_(first, section.ring().chunkCount), file_(file) {}

bool Follow::run() {
  ::SetConsoleCtrlHandler(&interrupt, TRUE);
  const bool written = writeWhileEnabled() && writeRest();
  // Nobody gives chunks back any more, so nobody may wait for that.
  if (g_interrupted || !written) section_.endAutoDump();
  return written;
}

bool Follow::writeWhileEnabled() {
  for (;;) {
    // Asked before the chunks are looked at: what was sealed before tracing ended is seen.
    const bool goesOn = section_.isEnabled() && !g_interrupted;
    while (chunks_.isComplete() && !g_interrupted)
      if (!writeComplete()) return false;
    if (!goesOn) return true;
    ::Sleep(1);
  }
}

bool Follow::writeComplete() {
  filter_.pass(chunks_.slots(), chunks_.firstSequence());
  if (!file_.append(chunks_.slots(), RAMBO_CHUNK)) return false;
  chunks_.release();
  return true;
}

bool Follow::writeRest() {
  std::vector<char> copy(RAMBO_CHUNK);
  uint32_t sequence = chunks_.firstSequence();
  uint32_t left = Section::read(section_.ring().counter) - sequence;
  left = std::min(left, section_.ring().slotCount);
  for (; left != 0; chunks_.step()) {
    const uint32_t slots = std::min(left, RAMBO_CHUNK_SLOTS);
    std::copy_n(chunks_.slots(), size_t{slots} * RAMBO_SLOT, copy.begin());
    filter_.clear(copy.data(), slots, sequence);
    if (!file_.append(copy.data(), uint64_t{slots} * RAMBO_SLOT)) return false;
    sequence += slots;
    left -= slots;
  }
  return true;
}

}  // namespace oss::tool
