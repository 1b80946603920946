// Parses dumps of any bytes, and real dumps that were damaged. What must hold: a parser opens when,
// and only when, the dump is valid; it ends; it reads and writes nothing outside its memory; what
// it returns is what a second reader, by the plain reading of the rules, finds in the same bytes.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/fuzz/input.h"
#include "tests/fuzz/require.h"
#include "tests/trace/dumpbuilder.h"
#include "tests/trace/memorysource.h"
#include "trace/dumpheader.h"
#include "trace/dumpparser.h"

namespace {

using namespace oss;
using namespace oss::dumps;

// ---- The second reader ----

struct Found {
  uint64_t offset;
  uint64_t bytes;
  std::string payload;  // as much of it as the caller has room for

  bool operator==(const Found&) const = default;
};
using Records = std::vector<Found>;

// The slots of an instantaneous dump that its walk covers, the oldest first, by the file's slots.
std::vector<uint64_t> coveredSlots(const RamboDumpHead& head, const RamboDumpTail& tail) {
  const uint32_t slots = head.bufferSize / RAMBO_SLOT;
  const uint32_t written = tail.counter - tail.sequenceStart;
  uint64_t first = 0;
  uint64_t count = tail.counter % slots == 0 ? slots : tail.counter % slots;
  if (head.circular != 0) {
    first = written > slots ? tail.counter : tail.sequenceStart;
    count = std::min(written, slots);
  }
  std::vector<uint64_t> covered;
  for (uint64_t i = 0; i < count; ++i) covered.push_back((first + i) % slots);
  return covered;
}

// The records of a valid dump whose RAMBO head is at `start`, the oldest first.
Records recordsOf(const std::string& file, uint64_t start) {
  RamboDumpHead head;
  RamboDumpTail tail = {};
  std::memcpy(&head, file.data() + start, sizeof head);
  const uint64_t dataStart = start + sizeof head;
  const bool instantaneous = head.dumpType == RAMBO_INSTANTANEOUS_DUMP;
  std::vector<uint64_t> covered;
  if (instantaneous) {
    std::memcpy(&tail, file.data() + dataStart + head.bufferSize, sizeof tail);
    covered = coveredSlots(head, tail);
  } else {
    for (uint64_t i = 0; i < (file.size() - dataStart) / RAMBO_SLOT; ++i) covered.push_back(i);
  }

  Records records;
  for (size_t i = 0; i < covered.size();) {
    const uint64_t offset = dataStart + covered[i] * RAMBO_SLOT;
    RamboRecordHead record;
    std::memcpy(&record, file.data() + offset, sizeof record);
    const size_t end = i++ + record.slots;
    if (record.mark != RAMBO_RECORD_MARK || record.slots == 0 || record.slots > 2048) continue;
    if (end > covered.size() || covered[end - 1] != covered[i - 1] + record.slots - 1) continue;
    const std::string payload = file.substr(offset + 8, payloadBytes(record.slots));
    if (file.compare(offset + 8 + payload.size(), 4, bytesOf(~record.sequence)) != 0) continue;
    const uint32_t age = tail.counter - record.sequence;
    if (instantaneous && (age == 0 || age > head.bufferSize / RAMBO_SLOT)) continue;
    records.push_back({offset + 8, payload.size(), payload});
    i = end;
  }
  return records;
}

// ---- The parser ----

// All records of a walk, by a caller that has room for `room` bytes of each.
template <class Parse>
Records walk(uint64_t room, Parse parse) {
  // A block of its own, so that no byte behind it can be written.
  const auto buffer = std::make_unique<char[]>(room);
  Records records;
  for (;;) {
    uint64_t offset = 0;
    const uint64_t bytes = parse(&offset, room != 0 ? buffer.get() : nullptr);
    if (bytes == 0) return records;
    records.push_back({offset, bytes, std::string(buffer.get(), std::min(bytes, room))});
    require(records.size() < 100'000);
  }
}

Records cutTo(Records records, uint64_t room) {
  for (Found& record : records) record.payload.resize(std::min(record.payload.size(), room));
  return records;
}

// Records of a backward or ring walk: whole ones, wherever they were found, none of them twice.
void requireWhole(const std::string& file, Records records) {
  const auto byOffset = [](const Found& a, const Found& b) { return a.offset < b.offset; };
  std::sort(records.begin(), records.end(), byOffset);
  uint64_t free = 0;
  for (const Found& record : records) {
    require(record.offset >= free + 8);
    free = record.offset + record.bytes + 4;
    if (free > file.size()) continue;  // round the end of a ring file
    RamboRecordHead head;
    std::memcpy(&head, file.data() + record.offset - 8, sizeof head);
    require(head.mark == RAMBO_RECORD_MARK && payloadBytes(head.slots) == record.bytes);
  }
}

void checkRing(const std::string& file, uint64_t start, uint64_t room) {
  MemorySource source(file);
  for (const bool forward : {true, false})
    for (const bool ringFile : {false, true}) {
      if (ringFile && file.size() > kSmallest) continue;  // an instantaneous dump is none
      source.seek(start);
      const OSSErr valid = validateRingDump(source);
      require(source.position() == start);
      RamboDumpParser parser;
      require(openRingDump(source, parser, forward, ringFile) == valid);
      const Records records = walk(room, [&](uint64_t* offset, void* buffer) {
        return parseRecord(source, parser, offset, buffer, room);
      });
      if (valid == ECF_OK && forward && !ringFile)
        require(records == cutTo(recordsOf(file, start), room));
      else
        requireWhole(file, records);
      require(closeRingDump(parser) == (valid == ECF_OK ? ECF_OK : ECF_INVALID_PARAMETER));
    }
  require(source.mostRead <= 1 << 20);
}

void checkTrace(const std::string& file, uint64_t room) {
  MemorySource source(file);
  const OSSErr valid = validateTraceDump(source, GTRACE_ANY_DUMP);
  require(source.position() == 0);
  GTraceDumpParser parser;
  require(openTraceDump(source, parser, true) == valid);
  if (parser.kind == GTRACE_COUNT_DUMP) {
    Records expected;
    for (uint64_t at = kTraceDataStart; at + 16 <= file.size(); at += 16) {
      uint32_t size;
      std::memcpy(&size, file.data() + 8, sizeof size);
      if (at + 16 - kTraceDataStart > size) break;
      if (file.compare(at + 4, 4, std::string(4, '\0')) != 0)
        expected.push_back({at, 16, file.substr(at, 16)});
    }
    const auto parse = [&](auto* offset, auto* to) {
      return parseCount(source, parser.table, offset, to, room);
    };
    require(walk(room, parse) == cutTo(expected, room));
  }
  require(closeTraceDump(parser) == (valid == ECF_OK ? ECF_OK : ECF_INVALID_PARAMETER));
}

// ---- The files ----

// Writes records into the slots: sealed ones near the counter's value, each where its number says
// or elsewhere, and single bytes of damage.
void writeRecords(Input& input, SlotArea& area, uint32_t counter) {
  const uint64_t slots = area.bytes().size() / RAMBO_SLOT;
  uint32_t sequence = counter - input.take<uint16_t>();
  while (!input.isEmpty()) {
    const auto action = input.take<uint8_t>();
    const auto count = static_cast<uint16_t>(
        1 + (action < 224 ? action % 5 : input.take<uint16_t>() % RAMBO_CHUNK_SLOTS));
    switch (action % 4) {
      case 0: sequence += input.take<uint8_t>(); break;
      case 1: area.flip(input.take<uint32_t>() % area.bytes().size()); break;
      case 2: area.putAt((sequence + input.take<uint8_t>()) % slots, sequence, count); break;
      default: area.put(sequence, count); sequence += count;
    }
  }
}

// The memory of these files is kept: what is fresh from the system costs most of a run.
const std::string& builtRing(Input& input) {
  static SlotArea area(kSmallest);
  static std::string file;
  const Head head = {.circular = input.take<uint8_t>()};
  const auto counter = input.take<uint32_t>();
  // Mostly a short sequence: a walk over thousands of empty slots teaches nothing.
  const uint8_t length = input.take<uint8_t>();
  const uint32_t once = (length + 1u) % 256;
  const Tail tail = {
      .counter = head.circular != 0 ? counter : counter / kSmallestSlots * kSmallestSlots + once,
      .slotIndex = counter % kSmallestSlots,
      .sequenceStart = counter - (length < 250 ? length * 4u : counter)};
  area.clear();
  writeRecords(input, area, tail.counter);
  return file.assign(headOf(head)).append(area.bytes()).append(tailOf(tail));
}

std::string builtAutoDump(Input& input) {
  SlotArea area(RAMBO_SLOT + input.take<uint8_t>() * RAMBO_SLOT);
  writeRecords(input, area, input.take<uint32_t>());
  return autoDump(area.bytes());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const uint8_t form = input.take<uint8_t>() % 16;
  const uint64_t room = input.take<uint8_t>();
  if (form == 0) {
    checkRing(builtRing(input), 0, room);
  } else if (form < 9) {
    checkRing(builtAutoDump(input), 0, room);
  } else if (form < 12) {
    checkRing(std::string(input.rest()), 0, room);
  } else {
    // The front of the trace header, and what follows it. The rest of the header is made once.
    static const std::string kHeader = traceDump({}, "");
    static std::string file = kHeader;
    const std::string_view front = input.rest().substr(0, 24);
    file.replace(0, 24, kHeader, 0, 24);
    if (form == 12) file.replace(0, front.size(), front);
    if (form == 13) file[12] = GTRACE_FUNCTION_COUNT;
    file.resize(kTraceHeaderBytes);
    file += input.rest().substr(front.size());
    checkTrace(file, room);
  }
  return 0;
}
