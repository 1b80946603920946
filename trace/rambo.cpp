// The ring: formatting, control operations, and the rare cases of a reservation.
#include "trace/rambo.h"

#include <atomic>
#include <bit>
#include <cstring>

#include "numeric/osslatchguard.h"
#include "osscatalog.h"
#include "osstime.h"

namespace oss {
namespace {

// "RAMB", "OCB" and a zero, as the words that they are written by. The second one publishes the
// region.
constexpr uint32_t kEyeCatcher[] = {0x424D4152, 0x0042434F};

uint32_t* wordsOf(RamboControlBlock& ring) noexcept {
  return reinterpret_cast<uint32_t*>(ring.eyeCatcher);
}
const uint32_t* wordsOf(const RamboControlBlock& ring) noexcept {
  return reinterpret_cast<const uint32_t*>(ring.eyeCatcher);
}

constexpr char kChunkEyeCatcher[8] = "RAMBOCK";

constexpr uint32_t align8(uint32_t bytes) noexcept { return (bytes + 7) & ~uint32_t{7}; }
constexpr uint32_t chunksOf(uint32_t size) noexcept { return size / RAMBO_CHUNK; }

// The parts of a region in their order.
constexpr uint32_t kChunkOffset = align8(sizeof(RamboControlBlock));
constexpr uint32_t slotOffsetOf(uint32_t size) noexcept {
  return kChunkOffset + align8(chunksOf(size) * static_cast<uint32_t>(sizeof(RamboChunk)));
}
constexpr uint32_t kOverflowBytes = align8(20) + RAMBO_CHUNK;
constexpr uint32_t allocSizeOf(uint32_t size) noexcept {
  return slotOffsetOf(size) + size + kOverflowBytes;
}
static_assert(allocSizeOf(0x80000) == 655'720 && allocSizeOf(0x40000000) == 1'074'037'016);

// Set while writers run.
std::atomic<OSSErr (*)()> g_bufferFull = nullptr;

bool isAutoDumping(const RamboControlBlock& ring) noexcept {
  return __atomic_load_n(&ring.autoDump, __ATOMIC_ACQUIRE) != 0;
}

// Waits until the pass of the ring that began at counter value `passStart` may write the chunk, or
// the auto-dump ends. The generations keep counting when the 32-bit counter comes round, so they
// are compared as counter values, modulo 2^32.
void waitForChunk(RamboControlBlock& ring, uint32_t index, uint32_t passStart) noexcept {
  uint32_t* const generation = &chunkAt(ring, index)->generation;
  while (isAutoDumping(ring)) {
    if (compareAndSwap(generation, 0u, 0u) * ring.slotCount == passStart) return;
    ossYield();
  }
}

void addCompleted(RamboControlBlock& ring, uint32_t index, uint32_t slots) noexcept {
  if (isAutoDumping(ring)) fetchAndAdd(&chunkAt(ring, index)->completed, slots);
}

void zeroSlots(RamboControlBlock& ring, uint32_t index, uint32_t slots) noexcept {
  std::memset(slotAt(ring, index), 0, uint64_t{slots} * RAMBO_SLOT);
}

// A chunked reservation that crosses the ring's end is given up: its slots become empty ones, on
// both sides of the end, so that both chunks can complete.
void giveUpAtEnd(RamboControlBlock& ring, uint32_t slots, uint32_t counter) noexcept {
  const uint32_t index = counter & ring.indexMask;
  const uint32_t passStart = counter - index;
  const uint32_t beforeEnd = ring.slotCount - index;
  waitForChunk(ring, ring.chunkCount - 1, passStart);
  zeroSlots(ring, index, beforeEnd);
  addCompleted(ring, ring.chunkCount - 1, beforeEnd);

  waitForChunk(ring, 0, passStart + ring.slotCount);
  zeroSlots(ring, 0, slots - beforeEnd);
  addCompleted(ring, 0, slots - beforeEnd);
}

RamboReservation reserveInChunks(RamboControlBlock& ring, uint32_t slots,
                                 uint32_t counter) noexcept {
  const uint32_t index = counter & ring.indexMask;
  const uint32_t passStart = counter - index;
  const uint32_t chunk = index / RAMBO_CHUNK_SLOTS;
  const uint32_t room = RAMBO_CHUNK_SLOTS - index % RAMBO_CHUNK_SLOTS;
  waitForChunk(ring, chunk, passStart);
  if (room < slots) waitForChunk(ring, chunk + 1, passStart);
  return {slotAt(ring, index), chunkAt(ring, chunk), counter, static_cast<uint16_t>(slots),
          static_cast<uint16_t>(room < slots ? room : slots)};
}

// The writer may write as much as the largest record holds; nobody reads it.
RamboReservation reserveOverflow(RamboControlBlock& ring, uint32_t counter) noexcept {
  if (OSSErr(*const bufferFull)() = g_bufferFull) bufferFull();
  return {reinterpret_cast<char*>(&ring) + ring.overflowOffset, nullptr, counter, 1, 0};
}

}  // namespace

OSSErr checkRing(const void* handle) noexcept {
  if (handle == nullptr) return ECF_INVALID_PARAMETER;
  const uint32_t* const words = wordsOf(*static_cast<const RamboControlBlock*>(handle));
  const bool formatted = __atomic_load_n(words + 1, __ATOMIC_ACQUIRE) == kEyeCatcher[1] &&
                         __atomic_load_n(words, __ATOMIC_RELAXED) == kEyeCatcher[0];
  return formatted ? ECF_OK : ECF_RAMBO_NOT_INITIALIZED;
}

RamboReservation reserveRarely(RamboControlBlock& ring, uint32_t slots, uint32_t counter) noexcept {
  if (ring.circular == 0) return reserveOverflow(ring, counter);

  while ((counter & ring.indexMask) + slots > ring.slotCount) {
    if (ring.chunked != 0) giveUpAtEnd(ring, slots, counter);
    counter = fetchAndAdd(&ring.counter, slots);
  }
  if (ring.chunked != 0) return reserveInChunks(ring, slots, counter);
  return {slotAt(ring, counter & ring.indexMask), nullptr, counter, static_cast<uint16_t>(slots),
          0};
}

void sealCounted(const RamboControlBlock& ring, RamboReservation reservation) noexcept {
  publish(reservation.slot, reservation.slots, reservation.sequence);
  if (reservation.chunk == nullptr || !isAutoDumping(ring)) return;

  fetchAndAdd(&reservation.chunk->completed, uint32_t{reservation.slotsInChunk});
  const uint32_t inNext = uint32_t{reservation.slots} - reservation.slotsInChunk;
  if (inNext != 0) fetchAndAdd(&reservation.chunk[1].completed, inNext);
}

}  // namespace oss

using namespace oss;

uint32_t ramboRoundNearest2(int32_t n) noexcept {
  return n > 0 ? std::bit_floor(static_cast<uint32_t>(n)) : 0;
}

uint32_t ramboGetAllocSize(uint32_t size) noexcept {
  return isRamboBuffer(size) ? allocSizeOf(size) : 0;
}

OSSErr ramboInitialize(void* region, uint32_t size, int32_t mode) noexcept {
  if (region == nullptr) return ECF_INVALID_PARAMETER;
  if (mode != RAMBO_CIRCULAR && mode != RAMBO_FILL_ONCE && mode != RAMBO_CHUNKED)
    return ECF_INVALID_PARAMETER;
  if (!isRamboBuffer(size)) return ECF_RAMBO_INVALID_BUFFER_SIZE;

  auto& ring = *static_cast<RamboControlBlock*>(region);
  ring = {};
  ring.slotCount = size / RAMBO_SLOT;
  ring.chunkCount = chunksOf(size);
  ring.bufferSize = size;
  ring.chunkOffset = kChunkOffset;
  ring.slotOffset = slotOffsetOf(size);
  ring.overflowOffset = ring.slotOffset + size;
  ring.circular = mode != RAMBO_FILL_ONCE;
  ring.chunked = mode == RAMBO_CHUNKED;
  ring.autoDump = mode == RAMBO_CHUNKED;
  // Fill-once spans twice the slots: an index behind the last slot means full.
  ring.indexMask = (mode == RAMBO_FILL_ONCE ? 2 * ring.slotCount : ring.slotCount) - 1;

  zeroSlots(ring, 0, ring.slotCount);
  for (uint32_t index = 0; index < ring.chunkCount; ++index) {
    RamboChunk& chunk = *chunkAt(ring, index);
    chunk = {};
    std::memcpy(chunk.eyeCatcher, kChunkEyeCatcher, sizeof kChunkEyeCatcher);
    chunk.index = index;
  }
  __atomic_store_n(wordsOf(ring), kEyeCatcher[0], __ATOMIC_RELAXED);
  __atomic_store_n(wordsOf(ring) + 1, kEyeCatcher[1], __ATOMIC_RELEASE);
  return ECF_OK;
}

void ramboSetCallBack(OSSErr (*callback)()) noexcept { g_bufferFull = callback; }

OSSErr ramboNewSequence(void* handle) noexcept {
  if (const OSSErr rc = checkRing(handle)) return rc;
  auto& ring = *static_cast<RamboControlBlock*>(handle);
  if (ring.chunked != 0) return ECF_NOT_SUPPORTED;

  LatchGuard latch(ring.latch);
  if (ring.circular != 0) {
    // A whole ring forward: indexes stay where they are, and what stands there is stale.
    ring.sequenceStart = fetchAndAdd(&ring.counter, ring.slotCount) + ring.slotCount;
    return ECF_OK;
  }
  // To slot 0 of the next pass but one.
  uint32_t seen = __atomic_load_n(&ring.counter, __ATOMIC_RELAXED);
  for (;;) {
    const uint32_t next = seen + 2 * ring.slotCount - (seen & ring.indexMask);
    const uint32_t found = compareAndSwap(&ring.counter, next, seen);
    if (found == seen) return ECF_OK;
    seen = found;
  }
}

OSSErr ramboAutoDumpEnabled(void* handle, bool enabled) noexcept {
  if (const OSSErr rc = checkRing(handle)) return rc;
  auto& ring = *static_cast<RamboControlBlock*>(handle);
  if (ring.chunked == 0) return ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED;

  LatchGuard latch(ring.latch);
  __atomic_store_n(&ring.autoDump, static_cast<uint8_t>(enabled), __ATOMIC_RELEASE);
  return ECF_OK;
}

void* ramboReserveOneSlot(void* handle, RamboReservation* reservation) noexcept {
  *reservation = Slots(*static_cast<RamboControlBlock*>(handle), 1).reservation();
  return payloadOf(reservation->slot);
}

void* ramboReserveSlots(void* handle, uint32_t payloadBytes,
                        RamboReservation* reservation) noexcept {
  if (payloadBytes > RAMBO_LARGEST_PAYLOAD) return nullptr;
  *reservation =
      Slots(*static_cast<RamboControlBlock*>(handle), slotsOf(payloadBytes)).reservation();
  return payloadOf(reservation->slot);
}

void ramboSync(void* handle, const RamboReservation* reservation) noexcept {
  sealCounted(*static_cast<const RamboControlBlock*>(handle), *reservation);
}
