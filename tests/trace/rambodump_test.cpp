// Tests of what a dumper gets of a ring: head, tail and chunk walker.
#include "osscatalog.h"
#include "trace/rambofixture.h"

using namespace osse_test;

namespace {

template <class Record>
std::string bytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

std::string words(std::initializer_list<uint32_t> values) {
  std::string text;
  for (const uint32_t value : values) text += bytesOf(value);
  return text;
}

std::string text(const char (&literal)[9]) { return {literal, 8}; }

struct Head {
  int32_t mode;
  bool instantaneous;
  std::string typeAndFlags;
};

TEST(RingDumpHead, TellsSizeTypeAndKindOfBuffer) {
  const std::vector<Head> cases = {
      {RAMBO_CIRCULAR, true, {"\1\0\1\0", 4}},  {RAMBO_CIRCULAR, false, {"\2\0\1\0", 4}},
      {RAMBO_FILL_ONCE, true, {"\1\0\0\0", 4}}, {RAMBO_FILL_ONCE, false, {"\2\0\0\0", 4}},
      {RAMBO_CHUNKED, true, {"\1\0\1\0", 4}},   {RAMBO_CHUNKED, false, {"\2\0\1\0", 4}},
  };
  for (const Head& head : cases) {
    const Ring ring(head.mode, 0x100000);
    std::string filled(16 + 4, '#');
    void* data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(
        ramboGetDumpHeaderBuffer(ring.handle(), head.instantaneous, filled.data(), &data, &size),
        ECF_OK);
    EXPECT_EQ(filled, text("@HEAD\r\n\0") + words({0x100000}) + head.typeAndFlags + "####");
    EXPECT_EQ(data, ring.slot(0));
    EXPECT_EQ(size, 0x100000u);
  }
}

TEST(RingDumpHead, NeedsAllThatItFills) {
  const Ring ring(RAMBO_CIRCULAR);
  RamboDumpHead head = {};
  void* data = nullptr;
  uint32_t size = 0;
  EXPECT_EQ(ramboGetDumpHeaderBuffer(ring.handle(), true, nullptr, &data, &size),
            ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboGetDumpHeaderBuffer(ring.handle(), true, &head, nullptr, &size),
            ECF_INVALID_PARAMETER);
  EXPECT_EQ(ramboGetDumpHeaderBuffer(ring.handle(), true, &head, &data, nullptr),
            ECF_INVALID_PARAMETER);
  EXPECT_EQ(bytesOf(head), std::string(16, '\0'));
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(size, 0u);
}

std::string tailOf(const Ring& ring) {
  std::string filled(32, '#');
  EXPECT_EQ(ramboGetDumpTail(ring.handle(), reinterpret_cast<RamboDumpTail*>(filled.data())),
            ECF_OK);
  return filled;
}

// The last 8 bytes are the caller's.
std::string tail(uint32_t counter, uint32_t index, uint32_t start, uint32_t truncated) {
  return text("@TAIL\r\n\0") + words({counter, index, start, truncated}) + "########";
}

TEST(RingDumpTail, OfACircularBufferTellsWhereItStands) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_CHUNKED}) {
    const Ring ring(mode);
    EXPECT_EQ(tailOf(ring), tail(0, 0, 0, 0));
    ring->counter = 3 * 8192 + 17;
    ring->sequenceStart = 4711;
    EXPECT_EQ(tailOf(ring), tail(3 * 8192 + 17, 17, 4711, 0));
    ring->counter = 0xFFFFFFFF;
    EXPECT_EQ(tailOf(ring), tail(0xFFFFFFFF, 8191, 4711, 0));
  }
}

TEST(RingDumpTail, OfAFillOnceBufferTellsWhetherRecordsWereLost) {
  struct Case {
    uint32_t counter;
    uint32_t told;
    uint32_t truncated;
  };
  const Ring ring(RAMBO_FILL_ONCE);
  for (const Case& one :
       {Case{0, 0, 0}, Case{5, 5, 0}, Case{8191, 8191, 0}, Case{8192, 8192, 0}, Case{8193, 8192, 1},
        Case{16'383, 8192, 1}, Case{16'384, 16'384, 0}, Case{16'389, 16'389, 0},
        Case{24'577, 24'576, 1}, Case{0xFFFFFFFF, 0xFFFFE000, 1}}) {
    ring->counter = one.counter;
    EXPECT_EQ(tailOf(ring), tail(one.told, 0, 0, one.truncated)) << one.counter;
  }
}

TEST(RingDumpTail, NeedsATail) {
  const Ring ring(RAMBO_CIRCULAR);
  EXPECT_EQ(ramboGetDumpTail(ring.handle(), nullptr), ECF_INVALID_PARAMETER);
}

TEST(RingChunkWalker, BeginsAtTheFirstChunk) {
  const Ring ring(RAMBO_CHUNKED);
  ring->counter = 5000;
  RamboChunkWalker walker;
  std::memset(&walker, 0xFF, sizeof walker);
  ASSERT_EQ(ramboInitializeChunkWalker(ring.handle(), &walker), ECF_OK);
  EXPECT_EQ(walker.handle, ring.handle());
  EXPECT_EQ(walker.chunk, &ring.chunk(0));
  EXPECT_EQ(walker.count, 0u);
  EXPECT_EQ(walker.slots, ring.slot(0));
}

TEST(RingChunkWalker, IsForChunkedBuffersOnly) {
  for (const int32_t mode : {RAMBO_CIRCULAR, RAMBO_FILL_ONCE}) {
    const Ring ring(mode);
    RamboChunkWalker walker = {};
    EXPECT_EQ(ramboInitializeChunkWalker(ring.handle(), &walker), ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED);
    EXPECT_EQ(bytesOf(walker), std::string(32, '\0'));
  }
}

TEST(RingChunkWalker, NeedsAWalker) {
  const Ring ring(RAMBO_CHUNKED);
  EXPECT_EQ(ramboInitializeChunkWalker(ring.handle(), nullptr), ECF_INVALID_PARAMETER);
}

}  // namespace
