// What a dumper needs of a ring: the head and the tail of its file, and the first chunk.
#include <cstring>

#include "numeric/osslatchguard.h"
#include "osscatalog.h"
#include "osstracedump.h"
#include "trace/rambo.h"

using namespace oss;

OSSErr ramboGetDumpHeaderBuffer(void* handle, bool instantaneous, void* head, void** data,
                                uint32_t* size) noexcept {
  if (const OSSErr rc = checkRing(handle)) return rc;
  if (head == nullptr || data == nullptr || size == nullptr) return ECF_INVALID_PARAMETER;

  auto& ring = *static_cast<RamboControlBlock*>(handle);
  LatchGuard latch(ring.latch);
  RamboDumpHead filled = {};
  std::memcpy(filled.magic, kDumpHeadMagic, sizeof filled.magic);
  filled.bufferSize = ring.bufferSize;
  filled.dumpType = instantaneous ? RAMBO_INSTANTANEOUS_DUMP : RAMBO_AUTO_DUMP;
  filled.circular = ring.circular;
  std::memcpy(head, &filled, sizeof filled);
  *data = slotAt(ring, 0);
  *size = ring.bufferSize;
  return ECF_OK;
}

OSSErr ramboGetDumpTail(void* handle, RamboDumpTail* tail) noexcept {
  if (const OSSErr rc = checkRing(handle)) return rc;
  if (tail == nullptr) return ECF_INVALID_PARAMETER;

  auto& ring = *static_cast<RamboControlBlock*>(handle);
  LatchGuard latch(ring.latch);
  const uint32_t counter = __atomic_load_n(&ring.counter, __ATOMIC_SEQ_CST);
  const uint32_t index = counter & ring.indexMask;
  std::memcpy(tail->magic, kDumpTailMagic, sizeof tail->magic);
  if (ring.circular != 0) {
    tail->counter = counter;
    tail->slotIndex = index;
    tail->sequenceStart = ring.sequenceStart;
    tail->truncated = 0;
  } else {
    // Records that found the buffer full moved the counter, too.
    const bool truncated = index > ring.slotCount;
    tail->counter = truncated ? counter & ~(ring.slotCount - 1) : counter;
    tail->slotIndex = 0;
    tail->sequenceStart = 0;
    tail->truncated = truncated;
  }
  return ECF_OK;
}

OSSErr ramboInitializeChunkWalker(void* handle, RamboChunkWalker* walker) noexcept {
  if (const OSSErr rc = checkRing(handle)) return rc;
  if (walker == nullptr) return ECF_INVALID_PARAMETER;

  auto& ring = *static_cast<RamboControlBlock*>(handle);
  LatchGuard latch(ring.latch);
  if (ring.chunked == 0) return ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED;
  *walker = {handle, chunkAt(ring, 0), 0, slotAt(ring, 0)};
  return ECF_OK;
}
