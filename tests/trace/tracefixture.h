// tracefixture.h - what the tests of tracing share: a control block in memory of its own, attached
// and enabled, and its slots as bytes.
//
// Block, slots and records are described here anew, by offsets; nothing of the library's own
// description is used to read them. Every byte of a fresh block's slots is kStale, so that a field
// that a record does not write shows.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "osscatalog.h"
#include "osstrace.h"
#include "osstracepoint.h"

namespace osse_test {

inline constexpr uint32_t kBuffer = 0x80000;
inline constexpr uint32_t kFixedPart = 182'896;
inline constexpr size_t kRing = kFixedPart;         // offset of the ring buffer
inline constexpr size_t kSlots = kRing + 256 + 80;  // of its slots, with four chunks
inline constexpr uint32_t kRingBytes = 655'720;     // of a ring with kBuffer
inline constexpr uint32_t kBlock = kFixedPart + kRingBytes;
inline constexpr char kStale = '\xA5';
inline constexpr uint32_t kProcess = 0x50524F43;
inline constexpr uint32_t kFixed1 = 0x11223344;
inline constexpr uint32_t kFixed2 = 0x55667788;

// ---- Bytes ----

template <class Word>
Word wordAt(const void* base, size_t offset) {
  Word word;
  std::memcpy(&word, static_cast<const char*>(base) + offset, sizeof word);
  return word;
}

// Bytes that a failed comparison shows in rows of sixteen, the same ones once.
struct Bytes {
  std::string bytes;

  bool operator==(const Bytes&) const = default;
  friend void PrintTo(const Bytes& shown, std::ostream* out) {
    const char* const digits = "0123456789ABCDEF";
    std::string last;
    for (size_t row = 0; row < shown.bytes.size(); row += 16) {
      std::string line;
      for (const char byte : shown.bytes.substr(row, 16)) {
        line += digits[static_cast<uint8_t>(byte) >> 4];
        line += digits[static_cast<uint8_t>(byte) & 15];
        line += ' ';
      }
      if (line != last) *out << "\n  " << row << ": " << line;
      last = line;
    }
  }
};

// A record of one slot or several as it must stand in the buffer. It begins as stale bytes with a
// slot header and a trailer; each field that the record writes is put in by its offset in the
// payload.
class RecordBytes {
 public:
  explicit RecordBytes(uint32_t sequence, uint16_t slots = 1) : bytes_(size_t{64} * slots, kStale) {
    store(0, sequence);
    store(4, uint16_t{0xCAFE});
    store(6, slots);
    store(bytes_.size() - 4, ~sequence);
  }

  // What every record has.
  RecordBytes& head(uint64_t thread, uint32_t funcId, uint16_t type, uint64_t stamp = 0) {
    return put(0, stamp)
        .put(8, thread)
        .put(16, kProcess)
        .put(20, funcId)
        .put(24, kFixed1)
        .put(28, kFixed2)
        .put(32, type)
        .put(34, uint16_t{0})
        .put(38, uint16_t{0});
  }

  template <class Word>
  RecordBytes& put(size_t offset, Word word) {
    store(8 + offset, word);
    return *this;
  }

  // Descriptors and data behind the item count. Such a record says 0 for the values that it does
  // not have.
  RecordBytes& items(uint32_t count, std::string_view bytes) {
    if (isStale(40, 8)) put(40, uint64_t{0});
    if (isStale(48, 4)) put(48, uint32_t{0});
    put(38, static_cast<uint16_t>(bytes.size())).put(52, count);
    bytes_.replace(8 + 56, bytes.size(), bytes);
    return *this;
  }

  operator Bytes() const { return {bytes_}; }

 private:
  bool isStale(size_t offset, size_t size) const {
    return bytes_.compare(8 + offset, size, std::string(size, kStale)) == 0;
  }

  template <class Word>
  void store(size_t offset, Word word) {
    std::memcpy(&bytes_.at(offset), &word, sizeof word);
  }

  std::string bytes_;
};

inline std::string itemDescriptor(uint32_t type, uint32_t length) {
  std::string bytes(8, '\0');
  std::memcpy(bytes.data(), &type, 4);
  std::memcpy(bytes.data() + 4, &length, 4);
  return bytes;
}

// What a test looks at of a record whose bytes are proved elsewhere.
struct TraceEvidence {
  uint32_t funcId;
  uint16_t type;
  uint16_t probe;       // 0 for entry and exit
  uint32_t returnCode;  // of an exit; else 0
  std::string items;    // data, without descriptors

  bool operator==(const TraceEvidence&) const = default;
  friend void PrintTo(const TraceEvidence& record, std::ostream* out) {
    const char* const name = ::ecfGetFunctionName(record.funcId);
    *out << (name != nullptr ? name : "?") << " type " << record.type << " probe " << record.probe
         << " rc " << std::hex << record.returnCode << std::dec << " items "
         << testing::PrintToString(record.items);
  }
};

// ---- Blocks ----

using OptionsPointer = std::unique_ptr<GTraceOptions>;

inline OptionsPointer optionsOf(uint32_t mode, uint32_t flags = 0, uint32_t size = kBuffer) {
  auto options = std::make_unique<GTraceOptions>();
  options->bufferSize = size;
  options->mode = mode;
  options->flags = flags;
  return options;
}

// Memory for a block; all stale.
class BlockMemory {
 public:
  explicit BlockMemory(size_t bytes = kBlock)
      : bytes_(bytes), memory_(::operator new (bytes, std::align_val_t{64})) {
    std::memset(memory_.get(), kStale, bytes);
  }

  void* get() const { return memory_.get(); }
  char* at(size_t offset) const { return static_cast<char*>(memory_.get()) + offset; }
  size_t size() const { return bytes_; }
  std::string bytes(size_t offset, size_t count) const { return {at(offset), count}; }
  GTraceControlBlock& block() const { return *static_cast<GTraceControlBlock*>(memory_.get()); }

 private:
  struct Free {
    void operator()(void* memory) const { ::operator delete (memory, std::align_val_t{64}); }
  };

  size_t bytes_;
  std::unique_ptr<void, Free> memory_;
};

// A block that is current for the length of a test.
class TraceTest : public testing::Test {
 protected:
  TraceTest() {
    ::gtraceSetFixedData1(kFixed1);
    ::gtraceSetFixedData2(kFixed2);
  }
  ~TraceTest() override {
    ::gtraceDetach();
    ::ramboSetCallBack(nullptr);
    ::gtraceSetProcessID(0xFFFFFFFF);
    ::gtraceSetFixedData1(0xFFFFFFFF);
    ::gtraceSetFixedData2(0xFFFFFFFF);
  }

  // Formats, attaches and enables the block, in a mode with a ring.
  void start(const GTraceOptions& options, GTraceRecordCallback recorded = nullptr,
             GTraceDisableCallback disabled = nullptr) {
    ASSERT_EQ(::gtraceInitialize(memory_.get(), &options), ECF_OK);
    std::memset(memory_.at(kSlots), kStale, kBuffer);
    ASSERT_EQ(::gtraceAttach(memory_.get(), kProcess, recorded, disabled), ECF_OK);
    ASSERT_EQ(::gtraceEnable(), ECF_OK);
  }
  void start(uint32_t mode = GTRACE_CIRCULAR, uint32_t flags = 0) {
    start(*optionsOf(mode, flags));
  }

  GTraceControlBlock& block() const { return memory_.block(); }
  GTraceOptions& options() const { return block().options; }
  bool isEnabled() const { return wordAt<uint32_t>(memory_.get(), 4) != 0; }
  uint32_t stopCounter() const { return wordAt<uint32_t>(memory_.get(), 8); }

  // Slots reserved so far.
  uint32_t reserved() const { return wordAt<uint32_t>(memory_.get(), kRing); }

  Bytes slots(size_t first, size_t count = 1) const {
    return {memory_.bytes(kSlots + 64 * first, 64 * count)};
  }

  // The records of this thread since the start, oldest first; all must be whole.
  std::vector<TraceEvidence> records() const {
    std::vector<TraceEvidence> found;
    for (uint32_t slot = 0; slot < reserved();) {
      const char* const at = memory_.at(kSlots + size_t{64} * slot);
      const auto count = wordAt<uint16_t>(at, 6);
      const bool isWhole = wordAt<uint32_t>(at, 0) == slot && wordAt<uint16_t>(at, 4) == 0xCAFE &&
                           wordAt<uint32_t>(at, size_t{64} * count - 4) == ~slot;
      EXPECT_TRUE(isWhole) << "slot " << slot;
      if (!isWhole || count == 0) break;
      if (wordAt<uint64_t>(at, 8 + 8) == ::GetCurrentThreadId()) found.push_back(evidence(at + 8));
      slot += count;
    }
    return found;
  }

  BlockMemory memory_;

 private:
  static TraceEvidence evidence(const char* payload) {
    const auto type = wordAt<uint16_t>(payload, 32);
    const bool isFrame = type == 1 || type == 2;
    TraceEvidence record = {wordAt<uint32_t>(payload, 20),
                            type,
                            isFrame ? uint16_t{0} : wordAt<uint16_t>(payload, 36),
                            type == 2 ? wordAt<uint32_t>(payload, 48) : 0,
                            {}};
    if (const auto length = wordAt<uint16_t>(payload, 38); length != 0) {
      const size_t descriptors = size_t{8} * wordAt<uint32_t>(payload, 52);
      record.items.assign(payload + 56 + descriptors, length - descriptors);
    }
    return record;
  }
};

}  // namespace osse_test
