// ossrambo.h - RAMBO, the ring buffer beneath tracing.
//
//   control block | chunk descriptors | slots ................. | overflow area
//   256 bytes       20 bytes each       bufferSize bytes          room for the largest record
//
// Any number of threads, and of processes when the region is shared, write records into slots of 64
// bytes: one atomic add reserves them, the writer fills them, ramboSync seals them. No writer waits
// for another, except while an auto-dump runs: then it waits for the chunk that it is about to
// overwrite to be dumped. The region holds offsets and counts only, so each process may see it at
// another address. What it holds is trusted by writers: who can write into it can break it.
//
// A record is whole when its first slot says so and its last slot ends in the complement of its
// sequence number:
//
//   sequence u32 | 0xCAFE u16 | slots u16 | payload ... | ~sequence u32
//
// While slots are filled anew, the old record in them still looks whole. A reader of a ring that is
// written to takes the slots first, front to back, then the counter, and believes the records whose
// sequence number is one of the last slotCount counter values.
//
// Writers may call the reservation functions at any time. The control operations (new sequence,
// auto-dump, dump header and tail) are serialised by the region's latch; the memory belongs to the
// caller.
#pragma once

#include "osstypes.h"

inline constexpr uint32_t RAMBO_SLOT = 64;           ///< bytes of a slot
inline constexpr uint32_t RAMBO_CHUNK = 128 * 1024;  ///< bytes of a chunk
inline constexpr uint32_t RAMBO_CHUNK_SLOTS = 2048;  ///< of a chunk, and of the largest record
inline constexpr uint32_t RAMBO_LARGEST_PAYLOAD = RAMBO_CHUNK - 12;
inline constexpr uint32_t RAMBO_SMALLEST_BUFFER = 0x80000;
inline constexpr uint32_t RAMBO_LARGEST_BUFFER = 0x40000000;
inline constexpr uint16_t RAMBO_RECORD_MARK = 0xCAFE;

/// Modes of ramboInitialize.
inline constexpr int32_t RAMBO_CIRCULAR = 1;   ///< old records are overwritten
inline constexpr int32_t RAMBO_FILL_ONCE = 2;  ///< records behind the last slot are lost
inline constexpr int32_t RAMBO_CHUNKED = 4;    ///< circular, dumped chunk by chunk while it runs

struct RamboControlBlock {
  uint32_t counter;  ///< slots reserved so far; grows without end
  char eyeCatcher[8];
  uint8_t zero1[116];
  uint8_t latch;  ///< serialises the control operations
  uint8_t latchReserved[3];
  uint32_t sequenceStart;  ///< circular: the counter at the start of the current sequence
  uint32_t indexMask;      ///< slot count - 1; fill-once: 2 x slot count - 1
  uint32_t slotOffset;     ///< offsets count from the control block
  uint32_t chunkOffset;
  uint32_t overflowOffset;
  uint32_t bufferSize;
  uint32_t chunkCount;
  uint32_t slotCount;
  uint8_t circular;
  uint8_t chunked;   ///< chunk descriptors are maintained
  uint8_t autoDump;  ///< writers wait for the dumper
  uint8_t zero2[89];
};
OSS_LAYOUT(RamboControlBlock, 256);
OSS_FIELD(RamboControlBlock, counter, 0, 4);
OSS_FIELD(RamboControlBlock, eyeCatcher, 4, 8);
OSS_FIELD(RamboControlBlock, latch, 128, 1);
OSS_FIELD(RamboControlBlock, sequenceStart, 132, 4);
OSS_FIELD(RamboControlBlock, indexMask, 136, 4);
OSS_FIELD(RamboControlBlock, slotOffset, 140, 4);
OSS_FIELD(RamboControlBlock, chunkOffset, 144, 4);
OSS_FIELD(RamboControlBlock, overflowOffset, 148, 4);
OSS_FIELD(RamboControlBlock, bufferSize, 152, 4);
OSS_FIELD(RamboControlBlock, chunkCount, 156, 4);
OSS_FIELD(RamboControlBlock, slotCount, 160, 4);
OSS_FIELD(RamboControlBlock, circular, 164, 1);
OSS_FIELD(RamboControlBlock, chunked, 165, 1);
OSS_FIELD(RamboControlBlock, autoDump, 166, 1);

struct RamboChunk {
  char eyeCatcher[8];
  uint32_t completed;   ///< slots sealed since the chunk was last dumped; atomic
  uint32_t generation;  ///< the pass of the ring that may write the chunk; atomic
  uint32_t index;
};
OSS_LAYOUT(RamboChunk, 20);
OSS_FIELD(RamboChunk, eyeCatcher, 0, 8);
OSS_FIELD(RamboChunk, completed, 8, 4);
OSS_FIELD(RamboChunk, generation, 12, 4);
OSS_FIELD(RamboChunk, index, 16, 4);

/// The start of a record, in its first slot.
struct RamboRecordHead {
  uint32_t sequence;  ///< the counter at the reservation
  uint16_t mark;      ///< RAMBO_RECORD_MARK
  uint16_t slots;
};
OSS_LAYOUT(RamboRecordHead, 8);
OSS_FIELD(RamboRecordHead, sequence, 0, 4);
OSS_FIELD(RamboRecordHead, mark, 4, 2);
OSS_FIELD(RamboRecordHead, slots, 6, 2);

/// What a writer holds between reservation and seal.
struct RamboReservation {
  void* slot;
  RamboChunk* chunk;  ///< null where chunks are not counted
  uint32_t sequence;
  uint16_t slots;
  uint16_t slotsInChunk;  ///< of these, the ones that lie in `chunk`
};
OSS_LAYOUT(RamboReservation, 24);
OSS_FIELD(RamboReservation, slot, 0, 8);
OSS_FIELD(RamboReservation, chunk, 8, 8);
OSS_FIELD(RamboReservation, sequence, 16, 4);
OSS_FIELD(RamboReservation, slots, 20, 2);
OSS_FIELD(RamboReservation, slotsInChunk, 22, 2);

extern "C" {

/// The largest power of two not above n; 0 for n below 1. (It rounds down.)
OSS_API uint32_t ramboRoundNearest2(int32_t n) noexcept;

/// Bytes of a region with a buffer of `size` bytes; 0 when size is not a power of two from
/// RAMBO_SMALLEST_BUFFER to RAMBO_LARGEST_BUFFER.
OSS_API uint32_t ramboGetAllocSize(uint32_t size) noexcept;

/// Formats a region. Its eye-catcher is written last, so a half-built region is never valid.
/// \param region  ramboGetAllocSize(size) bytes, aligned to 8
/// \param mode    RAMBO_CIRCULAR, RAMBO_FILL_ONCE or RAMBO_CHUNKED
/// \retval 0                              formatted
/// \retval ECF_RAMBO_INVALID_BUFFER_SIZE  ramboGetAllocSize(size) is 0
/// \retval ECF_INVALID_PARAMETER          an unknown mode, or `region` is null
OSS_API OSSErr ramboInitialize(void* region, uint32_t size, int32_t mode) noexcept;

/// Sets the process's function that a writer calls, once per reservation, when it finds a fill-once
/// buffer full; null for none. Its result is ignored. Any time; a writer may still call the old
/// one.
OSS_API void ramboSetCallBack(OSSErr (*callback)()) noexcept;

/// Starts a new sequence: what the buffer holds no longer counts.
/// \retval 0                          started
/// \retval ECF_INVALID_PARAMETER      `handle` is null; so the other control operations
/// \retval ECF_RAMBO_NOT_INITIALIZED  it is no formatted region; so the other control operations
/// \retval ECF_NOT_SUPPORTED          the buffer is chunked
OSS_API OSSErr ramboNewSequence(void* handle) noexcept;

/// Switches the waiting for the dumper; off releases every waiting writer. Slots are not counted
/// while it is off: the region is formatted anew before it is dumped in chunks again.
/// \retval 0                                switched
/// \retval ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED  the buffer is not chunked
OSS_API OSSErr ramboAutoDumpEnabled(void* handle, bool enabled) noexcept;

/// Reserves one slot, or as many as a payload needs. The region must be formatted: writers do not
/// check it.
/// \param payloadBytes  at most RAMBO_LARGEST_PAYLOAD
/// \param reservation   receives what ramboSync needs
/// \return where the payload goes: 52 bytes of one slot, 64 x slots - 12 of several. Null for a
///         payload that is too large. A record that a full fill-once buffer takes is lost
OSS_API void* ramboReserveOneSlot(void* handle, RamboReservation* reservation) noexcept;
OSS_API void* ramboReserveSlots(void* handle, uint32_t payloadBytes,
                                RamboReservation* reservation) noexcept;

/// Seals the record: from here on a reader takes it for whole.
OSS_API void ramboSync(void* handle, const RamboReservation* reservation) noexcept;

}  // extern "C"
