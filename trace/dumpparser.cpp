// Opening, walking and closing a trace dump.
#include "trace/dumpparser.h"

#include <algorithm>

#include "osscatalog.h"
#include "trace/dumpheader.h"

namespace oss {
namespace {

constexpr uint64_t kMostBufferBytes = uint64_t{1024} * 1024;
constexpr uint64_t kMostBufferSlots = kMostBufferBytes / RAMBO_SLOT;
constexpr uint64_t kPieceBytes = uint64_t{16} * 1024;
constexpr uint64_t kPieceEntries = kPieceBytes / sizeof(GTraceFunctionCount);
constexpr uint64_t kAnySequence = uint64_t{1} << 32;
constexpr uint64_t kNoSlot = ~uint64_t{0};

// ---- The buffer ----

// Forgets what the buffer holds, so that a walk of either direction refills it.
void emptyBuffer(RamboDumpParser& parser) noexcept {
  parser.bufferFirst = 0;
  parser.bufferEnd = 0;
  parser.refillAt = 0;
  parser.refillBelow = kNoSlot;
}

// Reads the walk's slots from `first` to `end`, or to the end of the file.
OSSErr load(DumpSource& source, RamboDumpParser& parser, uint64_t first, uint64_t end) noexcept {
  emptyBuffer(parser);
  uint64_t loaded = first;
  while (loaded < end) {
    const uint64_t slot = fileSlot(parser, loaded);
    const uint64_t bytes = std::min(end - loaded, parser.slotCount - slot) * RAMBO_SLOT;
    const OSSErr sought = source.seek(parser.dataStart + slot * RAMBO_SLOT);
    if (sought == ECF_FILE_SEEK_BEYOND_EOF) break;
    if (sought != ECF_OK) return sought;

    uint64_t count = 0;
    if (const OSSErr rc = source.read(parser.buffer + (loaded - first) * RAMBO_SLOT, bytes, &count))
      return rc;
    loaded += count / RAMBO_SLOT;
    if (count < bytes) break;
  }
  parser.bufferFirst = first;
  parser.bufferEnd = loaded;
  return ECF_OK;
}

// The walk ends where the file does.
OSSErr refillForward(DumpSource& source, RamboDumpParser& parser) noexcept {
  const uint64_t end = std::min(parser.walkSlots, parser.position + parser.bufferSlots);
  if (const OSSErr rc = load(source, parser, parser.position, end)) return rc;
  if (parser.bufferEnd < end) parser.walkSlots = parser.bufferEnd;
  parser.refillAt = parser.bufferEnd == parser.walkSlots ? parser.walkSlots
                                                         : parser.bufferEnd - RAMBO_CHUNK_SLOTS + 1;
  return ECF_OK;
}

// What the file has lost is stepped over.
OSSErr refillBackward(DumpSource& source, RamboDumpParser& parser) noexcept {
  const uint64_t first = parser.position - std::min(parser.position, parser.bufferSlots);
  if (const OSSErr rc = load(source, parser, first, parser.position)) return rc;
  parser.position = parser.bufferEnd;
  parser.refillBelow = first == 0 ? 0 : first + RAMBO_CHUNK_SLOTS;
  return ECF_OK;
}

// ---- Records ----

RamboRecordHead headAt(const RamboDumpParser& parser, uint64_t slot) noexcept {
  RamboRecordHead head;
  std::memcpy(&head, bufferedSlot(parser, slot), sizeof head);
  return head;
}

bool isHead(const RamboRecordHead& head) noexcept {
  return head.mark == RAMBO_RECORD_MARK && head.slots != 0 && head.slots <= RAMBO_CHUNK_SLOTS;
}

uint32_t trailerBefore(const RamboDumpParser& parser, uint64_t end) noexcept {
  uint32_t trailer;
  std::memcpy(&trailer, bufferedSlot(parser, end) - sizeof trailer, sizeof trailer);
  return trailer;
}

// The slots of the record at a slot of the walk; 0 when there is no whole one.
uint64_t recordAt(const RamboDumpParser& parser, uint64_t slot) noexcept {
  const RamboRecordHead head = headAt(parser, slot);
  if (!isHead(head)) return 0;
  const uint64_t end = slot + head.slots;
  if (end > std::min(parser.bufferEnd, parser.walkSlots)) return 0;
  if (slot < parser.ringEnd && end > parser.ringEnd) return 0;
  if (trailerBefore(parser, end) != ~head.sequence) return 0;
  return isFresh(parser, head.sequence) ? head.slots : 0;
}

// Looks slot by slot for the record that ends in front of the walk's position. Slots in which no
// record begins are looked at once, however many positions follow each other: a buffer that is
// mostly empty takes no longer.
uint64_t searchStartBefore(RamboDumpParser& parser) noexcept {
  const uint64_t end = parser.position;
  const uint64_t last = end - std::min<uint64_t>(end - parser.bufferFirst, RAMBO_CHUNK_SLOTS);
  bool headless = true;
  for (uint64_t slot = std::min(end, parser.headless); slot > last;) {
    --slot;
    headless = headless && !isHead(headAt(parser, slot));
    if (headless) {
      parser.headless = slot;
    } else if (recordAt(parser, slot) == end - slot) {
      return slot;
    }
  }
  return kNoSlot;
}

// Where the record that ends in front of the walk's position starts; kNoSlot when none does.
//
// The trailer tells the record's sequence number, and that, in a ring, the only slot that the
// record can start at: payload that looks like a head is not taken for one. Where the numbers do
// not tell, as in an auto-dump, the nearest start that fits is taken.
uint64_t startBefore(RamboDumpParser& parser) noexcept {
  const uint64_t end = parser.position;
  const uint32_t sequence = ~trailerBefore(parser, end);
  if (!isFresh(parser, sequence)) return kNoSlot;

  const uint64_t ring = parser.slotCount;
  const uint64_t told = (sequence % ring + ring - parser.firstSlot) % ring;
  if (told >= parser.bufferFirst && told < end && recordAt(parser, told) == end - told) return told;
  return searchStartBefore(parser);
}

uint64_t deliver(const RamboDumpParser& parser, uint64_t slot, uint64_t slots,
                 uint64_t* recordOffset, void* buffer, uint64_t bufferSize) noexcept {
  const uint64_t payload = slots * RAMBO_SLOT - sizeof(RamboRecordHead) - sizeof(uint32_t);
  if (recordOffset != nullptr) *recordOffset = payloadOffset(parser, slot);
  if (buffer != nullptr)
    std::memcpy(buffer, bufferedSlot(parser, slot) + sizeof(RamboRecordHead),
                std::min(payload, bufferSize));
  return payload;
}

// ---- Opening ----

// Sets the walk over an instantaneous dump.
void walkRing(RamboDumpParser& parser, const RingDump& dump) noexcept {
  const uint32_t counter = dump.tail.counter;
  const auto slots = static_cast<uint32_t>(parser.slotCount);
  parser.counter = counter;
  parser.freshCount = slots;
  if (dump.head.circular == 0) {
    parser.truncated = dump.tail.truncated != 0;
    parser.walkSlots = counter % slots != 0 ? counter % slots : slots;
  } else {
    // The counter may have come round since the sequence began, so distances are modular.
    const uint32_t written = counter - dump.tail.sequenceStart;
    parser.wrapped = std::min(written, 0 - written) > slots;
    parser.firstSlot = (written > slots ? counter : dump.tail.sequenceStart) % slots;
    parser.walkSlots = std::min(written, slots);
  }
  parser.ringEnd = parser.slotCount - parser.firstSlot;
}

// Finds where the oldest record of an auto-dump that was written round and round begins: behind the
// newest. Sequence numbers fall back there, and nowhere else.
OSSErr walkRingFile(DumpSource& source, RamboDumpParser& parser) noexcept {
  bool anyFound = false;
  uint32_t newest = 0;
  uint64_t behindNewest = 0;
  while (parser.position < parser.walkSlots) {
    if (parser.position >= parser.refillAt) {
      if (const OSSErr rc = refillForward(source, parser)) return rc;
      continue;
    }
    const RamboRecordHead head = headAt(parser, parser.position);
    if (!isHead(head)) {
      ++parser.position;
      continue;
    }
    if (anyFound && head.sequence - newest >= 0x80000000) {
      parser.wrapped = true;
      parser.firstSlot = behindNewest;
      break;
    }
    anyFound = true;
    newest = head.sequence;
    behindNewest = parser.position + head.slots;
    parser.position = behindNewest;
  }
  return ECF_OK;
}

OSSErr walkFile(DumpSource& source, RamboDumpParser& parser, bool ringFile) noexcept {
  parser.freshCount = kAnySequence;
  parser.ringEnd = kNoSlot;
  parser.walkSlots = parser.slotCount;
  if (!ringFile) return ECF_OK;

  emptyBuffer(parser);
  const OSSErr rc = walkRingFile(source, parser);
  parser.walkSlots = parser.slotCount;
  return rc;
}

OSSErr openRingAt(DumpSource& source, uint64_t start, RamboDumpParser& parser, bool forward,
                  bool ringFile) noexcept {
  RingDump dump = {};
  if (const OSSErr rc = readRingDump(source, start, dump)) return rc;

  RamboDumpParser opened = {};
  opened.dataStart = dump.dataStart;
  opened.slotCount = dump.dataBytes / RAMBO_SLOT;
  opened.dumpType = dump.head.dumpType;
  opened.forward = forward;
  opened.open = true;
  opened.bufferSlots = std::clamp<uint64_t>(opened.slotCount, 1, kMostBufferSlots);
  void* buffer = nullptr;
  if (const OSSErr rc = allocateDumpBuffer(opened.bufferSlots * RAMBO_SLOT, &buffer)) return rc;
  opened.buffer = static_cast<uint8_t*>(buffer);

  if (dump.head.dumpType == RAMBO_INSTANTANEOUS_DUMP) {
    walkRing(opened, dump);
  } else if (const OSSErr rc = walkFile(source, opened, ringFile)) {
    releaseDumpBuffer(buffer);
    return rc;
  }
  opened.position = forward ? 0 : opened.walkSlots;
  opened.headless = opened.position;
  emptyBuffer(opened);
  parser = opened;
  return ECF_OK;
}

OSSErr openTable(const TraceDump& dump, GTraceCountParser& parser) noexcept {
  void* piece = nullptr;
  if (const OSSErr rc = allocateDumpBuffer(kPieceBytes, &piece)) return rc;
  parser.piece = static_cast<GTraceFunctionCount*>(piece);
  parser.pieceOffset = dump.ringStart + sizeof(RamboDumpHead);
  parser.entriesLeft = dump.bufferSize / sizeof *parser.piece;
  return ECF_OK;
}

// Reads the next piece of the table. False when there is none, or it cannot be read.
bool loadPiece(DumpSource& source, GTraceCountParser& parser) noexcept {
  parser.pieceOffset += parser.entries * sizeof *parser.piece;
  parser.entries = 0;
  parser.entry = 0;

  const uint64_t entries = std::min(parser.entriesLeft, kPieceEntries);
  uint64_t count = 0;
  if (entries == 0 || source.seek(parser.pieceOffset) != ECF_OK ||
      source.read(parser.piece, entries * sizeof *parser.piece, &count) != ECF_OK)
    return false;
  parser.entries = count / sizeof *parser.piece;
  // The table ends where the file does.
  parser.entriesLeft = parser.entries == entries ? parser.entriesLeft - entries : 0;
  return parser.entries != 0;
}

}  // namespace

OSSErr openRingDump(DumpSource& source, RamboDumpParser& parser, bool forward,
                    bool ringFile) noexcept {
  parser = {};
  uint64_t start = 0;
  if (const OSSErr rc = source.tell(&start)) return rc;
  return openRingAt(source, start, parser, forward, ringFile);
}

OSSErr openTraceDump(DumpSource& source, GTraceDumpParser& parser, bool forward) noexcept {
  parser = {};
  uint64_t start = 0;
  TraceDump dump = {};
  if (const OSSErr rc = source.tell(&start)) return rc;
  if (const OSSErr rc = readTraceDump(source, start, dump)) return rc;

  const OSSErr rc = dump.countsFunctions
                        ? openTable(dump, parser.table)
                        : openRingAt(source, dump.ringStart, parser.ring, forward, dump.ringFile);
  if (rc == ECF_OK) parser.kind = dump.countsFunctions ? GTRACE_COUNT_DUMP : GTRACE_RING_DUMP;
  return rc;
}

OSSErr closeRingDump(RamboDumpParser& parser) noexcept {
  if (!parser.open) return ECF_INVALID_PARAMETER;
  releaseDumpBuffer(parser.buffer);
  parser = {};
  return ECF_OK;
}

OSSErr closeTraceDump(GTraceDumpParser& parser) noexcept {
  OSSErr rc = ECF_OK;
  if (parser.kind == GTRACE_RING_DUMP)
    rc = closeRingDump(parser.ring);
  else if (parser.kind == GTRACE_COUNT_DUMP)
    releaseDumpBuffer(parser.table.piece);
  else
    return ECF_INVALID_PARAMETER;
  parser = {};
  return rc;
}

uint64_t searchRecord(DumpSource& source, RamboDumpParser& parser, uint64_t* recordOffset,
                      void* buffer, uint64_t bufferSize) noexcept {
  if (!parser.open) return 0;
  while (parser.forward && parser.position < parser.walkSlots) {
    if (parser.position >= parser.refillAt) {
      if (refillForward(source, parser) != ECF_OK) return 0;
      continue;
    }
    const uint64_t slot = parser.position;
    const uint64_t slots = recordAt(parser, slot);
    parser.position += slots != 0 ? slots : 1;
    if (slots != 0) return deliver(parser, slot, slots, recordOffset, buffer, bufferSize);
  }
  while (!parser.forward && parser.position > 0) {
    if (parser.position < parser.refillBelow) {
      if (refillBackward(source, parser) != ECF_OK) return 0;
      continue;
    }
    const uint64_t end = parser.position;
    const uint64_t slot = startBefore(parser);
    parser.position = slot != kNoSlot ? slot : end - 1;
    if (slot != kNoSlot) return deliver(parser, slot, end - slot, recordOffset, buffer, bufferSize);
  }
  return 0;
}

uint64_t parseCount(DumpSource& source, GTraceCountParser& parser, uint64_t* recordOffset,
                    void* buffer, uint64_t bufferSize) noexcept {
  for (;;) {
    if (parser.entry == parser.entries && !loadPiece(source, parser)) return 0;
    const uint64_t index = parser.entry++;
    const GTraceFunctionCount& entry = parser.piece[index];
    if (entry.funcId == 0) continue;

    if (recordOffset != nullptr) *recordOffset = parser.pieceOffset + index * sizeof entry;
    if (buffer != nullptr)
      std::memcpy(buffer, &entry, std::min<uint64_t>(sizeof entry, bufferSize));
    return sizeof entry;
  }
}

}  // namespace oss
