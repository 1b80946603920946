// dumpparser.h - the walk over the records of a trace dump.
//
// A walk has slots of its own, numbered from 0 in the order of their age: slot 0 is the oldest. It
// maps them onto the file's slots from `firstSlot` on, round the ring's end. The buffer holds the
// walk's slots from `bufferFirst` to `bufferEnd`, in one piece also where the ring's end lies
// between them. A record is looked at only when as many slots as the largest record takes are in
// the buffer, or all that the walk has.
//
// What a file claims is never trusted: a record must lie in the buffer before its end is looked at.
// The source's position is moved by each read and never asked for, so the caller may move it too.
// One thread uses a parser at a time.
#pragma once

#include <cstring>

#include "osstracedump.h"
#include "trace/dumpsource.h"

namespace oss {

// The public operations, without their checks for null. Opening overwrites the parser; closing one
// that is closed is refused as ECF_INVALID_PARAMETER.
OSSErr openTraceDump(DumpSource& source, GTraceDumpParser& parser, bool forward) noexcept;
OSSErr openRingDump(DumpSource& source, RamboDumpParser& parser, bool forward,
                    bool ringFile) noexcept;
OSSErr closeTraceDump(GTraceDumpParser& parser) noexcept;
OSSErr closeRingDump(RamboDumpParser& parser) noexcept;
uint64_t parseCount(DumpSource& source, GTraceCountParser& parser, uint64_t* recordOffset,
                    void* buffer, uint64_t bufferSize) noexcept;

// The next record of a ring, wherever it lies.
uint64_t searchRecord(DumpSource& source, RamboDumpParser& parser, uint64_t* recordOffset,
                      void* buffer, uint64_t bufferSize) noexcept;

// ---- Inline for the loop of a caller: most records take one slot ----

constexpr uint64_t kOneSlotPayload = RAMBO_SLOT - sizeof(RamboRecordHead) - sizeof(uint32_t);

inline const uint8_t* bufferedSlot(const RamboDumpParser& parser, uint64_t slot) noexcept {
  return parser.buffer + (slot - parser.bufferFirst) * RAMBO_SLOT;
}

inline uint64_t fileSlot(const RamboDumpParser& parser, uint64_t slot) noexcept {
  const uint64_t unwound = parser.firstSlot + slot;
  return unwound < parser.slotCount ? unwound : unwound - parser.slotCount;
}

inline uint64_t payloadOffset(const RamboDumpParser& parser, uint64_t slot) noexcept {
  return parser.dataStart + fileSlot(parser, slot) * RAMBO_SLOT + sizeof(RamboRecordHead);
}

// Whether a sequence number is among the counter's last values; the counter may have come round.
inline bool isFresh(const RamboDumpParser& parser, uint32_t sequence) noexcept {
  return uint64_t{parser.counter - 1 - sequence} < parser.freshCount;
}

// Takes the next record when it is one of one slot that the buffer of a forward walk holds: the
// whole work for nearly every call. Otherwise searchRecord finds it.
inline bool takeOneSlot(RamboDumpParser& parser, uint64_t* recordOffset, void* buffer,
                        uint64_t bufferSize) noexcept {
  if (parser.position >= parser.refillAt || buffer == nullptr || bufferSize < kOneSlotPayload)
      [[unlikely]]
    return false;
  const uint8_t* const slot = bufferedSlot(parser, parser.position);
  RamboRecordHead head;
  uint32_t trailer;
  std::memcpy(&head, slot, sizeof head);
  std::memcpy(&trailer, slot + RAMBO_SLOT - sizeof trailer, sizeof trailer);
  if (head.mark != RAMBO_RECORD_MARK || head.slots != 1 || trailer != ~head.sequence ||
      !isFresh(parser, head.sequence)) [[unlikely]]
    return false;

  if (recordOffset != nullptr) *recordOffset = payloadOffset(parser, parser.position);
  std::memcpy(buffer, slot + sizeof head, kOneSlotPayload);
  ++parser.position;
  return true;
}

inline uint64_t parseRecord(DumpSource& source, RamboDumpParser& parser, uint64_t* recordOffset,
                            void* buffer, uint64_t bufferSize) noexcept {
  return takeOneSlot(parser, recordOffset, buffer, bufferSize)
             ? kOneSlotPayload
             : searchRecord(source, parser, recordOffset, buffer, bufferSize);
}

}  // namespace oss
