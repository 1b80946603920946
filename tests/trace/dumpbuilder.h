// dumpbuilder.h - trace dumps made byte by byte, as a controlling program writes them, and as
// nobody should.
//
//   SlotArea slots(kSmallest);
//   slots.put(0, 1);                       // sequence number 0, one slot, at slot 0
//   slots.put(1, 3);
//   const std::string dump = traceDump({}, ringDump(slots, {.counter = 4, .slotIndex = 4}));
//
// A record's payload begins with its sequence number and goes on in a pattern that depends on it,
// so what a parser returns tells which record it is, and that all of it came.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "osstracedump.h"

namespace oss::dumps {

inline constexpr uint32_t kSmallest = RAMBO_SMALLEST_BUFFER;
inline constexpr uint32_t kSmallestSlots = kSmallest / RAMBO_SLOT;
inline constexpr uint64_t kTraceHeaderBytes = 182'896;
inline constexpr uint64_t kTraceDataStart = kTraceHeaderBytes + 16;

template <class Record>
std::string bytesOf(const Record& record) {
  std::string bytes(sizeof record, '\0');
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

constexpr uint64_t payloadBytes(uint32_t slots) { return uint64_t{slots} * RAMBO_SLOT - 12; }

inline std::string payloadOf(uint32_t sequence, uint64_t bytes) {
  std::string payload(bytes, '\0');
  for (uint64_t i = 0; i < bytes; ++i) payload[i] = static_cast<char>(sequence * 31 + i * 7);
  std::memcpy(payload.data(), &sequence, sizeof sequence);
  return payload;
}

inline std::string recordOf(uint32_t sequence, uint16_t slots) {
  return bytesOf(RamboRecordHead{sequence, RAMBO_RECORD_MARK, slots}) +
         payloadOf(sequence, payloadBytes(slots)) + bytesOf(~sequence);
}

// The slots of a ring, or of a file of chunks.
class SlotArea {
 public:
  explicit SlotArea(uint64_t bytes) : bytes_(bytes, '\0') {}

  void clear() { bytes_.assign(bytes_.size(), '\0'); }

  // Puts a sealed record where a writer of the ring does.
  void put(uint32_t sequence, uint16_t slots) {
    putAt(sequence % (bytes_.size() / RAMBO_SLOT), sequence, slots);
  }
  void putAt(uint64_t slot, uint32_t sequence, uint16_t slots) {
    write(slot * RAMBO_SLOT, recordOf(sequence, slots));
  }

  // Records of one slot, from one sequence number up to another.
  void fill(uint32_t first, uint32_t end) {
    for (uint32_t sequence = first; sequence != end; ++sequence) put(sequence, 1);
  }

  // Writes as much as lies in the area.
  void write(uint64_t offset, std::string_view bytes) {
    if (offset < bytes_.size())
      bytes_.replace(offset, bytes.size(), bytes, 0, bytes_.size() - offset);
  }

  void damageTrailer(uint64_t lastSlot) { flip(lastSlot * RAMBO_SLOT + RAMBO_SLOT - 1); }
  void flip(uint64_t offset) { bytes_[offset] = static_cast<char>(~bytes_[offset]); }

  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

struct Head {
  uint32_t bufferSize = kSmallest;
  uint16_t dumpType = RAMBO_INSTANTANEOUS_DUMP;
  uint8_t circular = 1;
};

inline std::string headOf(const Head& head) {
  RamboDumpHead record = {{}, head.bufferSize, head.dumpType, head.circular, 0};
  std::memcpy(record.magic, "@HEAD\r\n", 8);
  return bytesOf(record);
}

struct Tail {
  uint32_t counter = 0;
  uint32_t slotIndex = 0;
  uint32_t sequenceStart = 0;
  uint32_t truncated = 0;
};

inline std::string tailOf(const Tail& tail) {
  RamboDumpTail record = {{}, tail.counter, tail.slotIndex, tail.sequenceStart, tail.truncated, {}};
  std::memcpy(record.magic, "@TAIL\r\n", 8);
  std::memset(record.unused, 0xA5, sizeof record.unused);  // whatever the dumper had there
  return bytesOf(record);
}

// The RAMBO part of an instantaneous dump.
inline std::string circularDump(const SlotArea& slots, const Tail& tail) {
  const auto size = static_cast<uint32_t>(slots.bytes().size());
  return headOf({.bufferSize = size}) + slots.bytes() + tailOf(tail);
}
inline std::string fillOnceDump(const SlotArea& slots, const Tail& tail) {
  const auto size = static_cast<uint32_t>(slots.bytes().size());
  return headOf({.bufferSize = size, .circular = 0}) + slots.bytes() + tailOf(tail);
}

// The RAMBO part of an auto-dump.
inline std::string autoDump(std::string_view chunks) {
  return headOf({.dumpType = RAMBO_AUTO_DUMP}).append(chunks);
}

struct Options {
  uint32_t bufferSize = kSmallest;
  uint32_t mode = GTRACE_CIRCULAR;
  uint64_t ringFile = 0;
};

// A trace header and what follows it.
inline std::string traceDump(const Options& options, std::string_view rest) {
  std::string header(kTraceHeaderBytes, '\0');
  std::memcpy(header.data(), "GTDUMP1", 8);
  std::memcpy(header.data() + 8, &options.bufferSize, 4);
  std::memcpy(header.data() + 12, &options.mode, 4);
  std::memcpy(header.data() + 16, &options.ringFile, 8);
  const uint64_t ticksPerSecond = 10'000'000;
  std::memcpy(header.data() + 182'888, &ticksPerSecond, 8);
  return header.append(rest);
}

// A function-count dump. Its RAMBO head is whatever lay there.
inline std::string countDump(uint32_t bufferSize, const std::vector<GTraceFunctionCount>& table) {
  std::string rest(16, '?');
  for (const GTraceFunctionCount& entry : table) rest += bytesOf(entry);
  return traceDump({.bufferSize = bufferSize, .mode = GTRACE_FUNCTION_COUNT}, rest);
}

}  // namespace oss::dumps
