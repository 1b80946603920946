// The allocator's areas of the caller's memory.
#include <algorithm>
#include <random>

#include "harness/childprocess.h"
#include "harness/logcapture.h"
#include "harness/sharedobjects.h"
#include "memory/ossmemoryfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr uint64_t kNever = ~uint64_t{0};

class Areas : public MemoryTest {
 protected:
  Areas() { EXPECT_EQ(ossMemAreaInit(memory_, 1000), ECF_OK); }

  OSSMemArea& area() { return *reinterpret_cast<OSSMemArea*>(memory_); }
  void* at(uint64_t offset) { return reinterpret_cast<char*>(memory_) + offset; }

  OSSErr allocateChunk(uint64_t size, uint64_t flags = 0) {
    void* nowhere = this;
    const OSSErr rc = ossMemAlloc(&nowhere, memory_, size, flags, kFile, kLine);
    EXPECT_EQ(nowhere, nullptr);  // Deliberate: the chunk is not handed out.
    return rc;
  }
  OSSErr releaseChunk(uint64_t offset, uint64_t size) {
    void* address = at(offset);
    const OSSErr rc = ossMemFree(&address, memory_, size, kFile, kLine);
    EXPECT_EQ(address, at(offset));
    return rc;
  }

  uint64_t memory_[125];
};

TEST_F(Areas, Of1000BytesOffer960) {
  EXPECT_EQ(area().usableSize, 960u);
  EXPECT_EQ(area().firstFree, 32u);
  EXPECT_EQ(wordAt<uint64_t>(at(32), 16), 960u);
}

TEST_F(Areas, AllocationsOf10BytesTake24Each) {
  EXPECT_EQ(allocateChunk(10), ECF_OK);
  EXPECT_EQ(area().firstFree, 56u);
  EXPECT_EQ(allocateChunk(10), ECF_OK);
  EXPECT_EQ(area().firstFree, 80u);
  EXPECT_EQ(wordAt<uint64_t>(at(80), 16), 912u);
}

TEST_F(Areas, ArePreparedFrom32BytesOn) {
  EXPECT_EQ(ossMemAreaInit(memory_, 31), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossMemAreaInit(memory_, 0), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossMemAreaInit(nullptr, 1000), ECF_INVALID_PARAMETER);
  EXPECT_EQ(area().usableSize, 960u);

  EXPECT_EQ(ossMemAreaInit(memory_, 32), ECF_OK);
  EXPECT_EQ(area().usableSize, 0u);
  EXPECT_EQ(ossMemAreaInit(memory_, 55), ECF_OK);
  EXPECT_EQ(allocateChunk(1), ECF_NO_MEMORY);
  EXPECT_EQ(ossMemAreaInit(memory_, 56), ECF_OK);
  EXPECT_EQ(allocateChunk(1), ECF_OK);
}

TEST_F(Areas, RefuseTheSameRequestsAsTheHeap) {
  LogCapture log;
  void* nowhere = nullptr;
  EXPECT_EQ(ossMemAlloc(&nowhere, memory_, 0, 0, kFile, kLine), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossMemAlloc(&nowhere, memory_, 24, 4, kFile, kLine), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossMemAlloc(nullptr, memory_, 24, 0, kFile, kLine), ECF_INVALID_PARAMETER);
  EXPECT_EQ(area().firstFree, 32u);
  EXPECT_EQ(log.text(), "");
}

TEST_F(Areas, MoreThanIsFreeIsNoMemoryAndNotLogged) {
  LogCapture log;
  for (const uint64_t size : {uint64_t{961}, kNever, kNever - 20, kNever / 24 * 24})
    EXPECT_EQ(allocateChunk(size), ECF_NO_MEMORY) << size;
  EXPECT_EQ(area().firstFree, 32u);
  EXPECT_EQ(area().latch, 0);
  EXPECT_EQ(log.text(), "");
}

TEST_F(Areas, AllocationFlag1ZeroesTheWholeChunk) {
  std::memset(at(32 + 24), 0x55, 960 - 24);
  EXPECT_EQ(allocateChunk(25, OSS_MEM_ZERO), ECF_OK);
  EXPECT_EQ(std::string(static_cast<const char*>(at(32)), 48), std::string(48, '\0'));
  // Behind the free chunk that follows nothing is touched.
  EXPECT_EQ(*static_cast<const char*>(at(32 + 48 + 24)), 0x55);
}

TEST_F(Areas, WithoutItTheChunkKeepsWhatItHeld) {
  std::memset(at(32 + 24), 0x55, 960 - 24);
  EXPECT_EQ(allocateChunk(48), ECF_OK);
  EXPECT_EQ(std::string(static_cast<const char*>(at(32 + 24)), 24), std::string(24, '\x55'));
}

TEST_F(Areas, AReleaseJoinsWhatItTouches) {
  ASSERT_EQ(allocateChunk(10), ECF_OK);
  ASSERT_EQ(allocateChunk(10), ECF_OK);
  EXPECT_EQ(releaseChunk(32, 10), ECF_OK);
  EXPECT_EQ(area().firstFree, 80u);
  EXPECT_EQ(releaseChunk(56, 10), ECF_OK);
  EXPECT_EQ(area().firstFree, 32u);
  EXPECT_EQ(wordAt<uint64_t>(at(32), 16), 960u);
  EXPECT_EQ(area().latch, 0);
}

TEST_F(Areas, RefuseTheReleaseOfWhatIsNotAllocatedInThem) {
  LogCapture log;
  ASSERT_EQ(allocateChunk(48), ECF_OK);
  const std::vector<uint64_t> before(std::begin(memory_), std::end(memory_));
  EXPECT_EQ(releaseChunk(32, 0), ECF_INVALID_PARAMETER);
  EXPECT_EQ(releaseChunk(8, 24), ECF_INVALID_PARAMETER);
  EXPECT_EQ(releaseChunk(33, 24), ECF_INVALID_PARAMETER);
  EXPECT_EQ(releaseChunk(992, 24), ECF_INVALID_PARAMETER);
  EXPECT_EQ(releaseChunk(32, 961), ECF_INVALID_PARAMETER);
  EXPECT_EQ(releaseChunk(32, kNever), ECF_INVALID_PARAMETER);
  EXPECT_EQ(releaseChunk(32, 72), ECF_INVALID_PARAMETER);
  EXPECT_EQ(releaseChunk(80, 24), ECF_INVALID_PARAMETER);
  EXPECT_EQ(std::vector<uint64_t>(std::begin(memory_), std::end(memory_)), before);
  EXPECT_EQ(log.text(), "");
}

// Somebody releases the latch while the call sleeps; until then nothing has changed.
TEST_F(Areas, AreUsedByOneCallAtATime) {
  uint64_t firstFree = 32;
  ImportHook sleep("Sleep", [&](Call&) {
    EXPECT_EQ(area().firstFree, firstFree);
    area().latch = 0;
  });
  area().latch = 0x80;
  EXPECT_EQ(allocateChunk(10), ECF_OK);
  EXPECT_EQ(sleep.calls(), 1);
  EXPECT_EQ(area().firstFree, 56u);

  firstFree = 56;
  area().latch = 0x80;
  EXPECT_EQ(releaseChunk(32, 10), ECF_OK);
  EXPECT_EQ(sleep.calls(), 2);
  EXPECT_EQ(area().firstFree, 32u);
  EXPECT_EQ(area().latch, 0);
}

// A process that maps the memory elsewhere sees the same area.
TEST_F(Areas, WorkAtAnyAddress) {
  SharedMemory here(4096);
  SharedMemory there(here.name(), 4096);
  ASSERT_NE(here.address(), there.address());
  ASSERT_EQ(ossMemAreaInit(here.address(), 4096), ECF_OK);

  void* nowhere = nullptr;
  EXPECT_EQ(ossMemAlloc(&nowhere, there.address(), 100, OSS_MEM_ZERO, kFile, kLine), ECF_OK);
  EXPECT_EQ(ossMemAlloc(&nowhere, here.address(), 100, 0, kFile, kLine), ECF_OK);
  for (const uint64_t offset : {32u, 152u}) {
    void* chunk = static_cast<char*>((offset == 32 ? here : there).address()) + offset;
    EXPECT_EQ(ossMemFree(&chunk, (offset == 32 ? here : there).address(), 100, kFile, kLine),
              ECF_OK);
  }
  EXPECT_EQ(static_cast<OSSMemArea*>(there.address())->firstFree, 32u);
  EXPECT_EQ(wordAt<uint64_t>(here.address(), 32 + 16), 4056u);
}

CHILD_ROLE(allocateInArea) {
  SharedMemory memory(arguments[0], 4096);
  void* nowhere = nullptr;
  int count = 0;
  while (ossMemAlloc(&nowhere, memory.address(), 24, 0, kFile, kLine) == ECF_OK) ++count;
  return count;
}

// Every chunk goes to one of them, and none to two.
TEST_F(Areas, ServeSeveralProcessesAtATime) {
  SharedMemory memory(4096);
  ASSERT_EQ(ossMemAreaInit(memory.address(), 4096), ECF_OK);
  std::vector<Child> children;
  for (int i = 0; i < 3; ++i) children.push_back(startChild("allocateInArea", {memory.name()}));
  uint32_t count = 0;
  for (Child& child : children) count += child.wait();
  EXPECT_EQ(count, 169u);
  EXPECT_EQ(static_cast<OSSMemArea*>(memory.address())->firstFree, 0u);
}

// ---- Two processes at different addresses -------------------------------------------------------

constexpr int kRounds = 30;
constexpr uint64_t kChunks = 400;
constexpr uint64_t kAreaBytes = 32 + 24 * kChunks;

// The chunks that one of the two gives back in a round, in its order. Together they are all.
std::vector<uint64_t> share(int round, bool isChild) {
  std::mt19937 random(static_cast<uint32_t>(round));
  std::vector<uint64_t> offsets;
  for (uint64_t i = 0; i < kChunks; ++i)
    if ((random() % 2 == 1) == isChild) offsets.push_back(32 + 24 * i);
  std::shuffle(offsets.begin(), offsets.end(), random);
  return offsets;
}

// All chunks are of one size, so whoever takes one, in the end all are taken.
void takeShare(void* area, const std::vector<uint64_t>& offsets) {
  void* nowhere = nullptr;
  for (size_t i = 0; i < offsets.size(); ++i)
    EXPECT_EQ(ossMemAlloc(&nowhere, area, 24, 0, kFile, kLine), ECF_OK);
}

void giveBackShare(void* area, const std::vector<uint64_t>& offsets) {
  for (const uint64_t offset : offsets) {
    void* chunk = static_cast<char*>(area) + offset;
    EXPECT_EQ(ossMemFree(&chunk, area, 24, kFile, kLine), ECF_OK);
  }
}

// Arguments: the memory, where the parent has it, and the two events.
CHILD_ROLE(takeAndGiveBackChunks) {
  SharedMemory here(arguments[0], kAreaBytes);
  SharedMemory there(arguments[0], kAreaBytes);
  const bool isElsewhere = reinterpret_cast<uint64_t>(here.address()) != std::stoull(arguments[1]);
  void* const area = (isElsewhere ? here : there).address();
  Event go(arguments[2]);
  Event done(arguments[3]);
  for (int round = 0; round < kRounds; ++round) {
    const std::vector<uint64_t> offsets = share(round, true);
    for (const auto step : {takeShare, giveBackShare}) {
      EXPECT_TRUE(go.wait());
      step(area, offsets);
      done.set();
    }
  }
  return 0;
}

TEST_F(Areas, AreWholeAgainWhenTwoProcessesHaveGivenEverythingBack) {
  SharedMemory memory(kAreaBytes);
  auto& shared = *static_cast<OSSMemArea*>(memory.address());
  ASSERT_EQ(ossMemAreaInit(&shared, kAreaBytes), ECF_OK);
  Event go;
  Event done;
  Child child = startChild(
      "takeAndGiveBackChunks",
      {memory.name(), std::to_string(reinterpret_cast<uint64_t>(&shared)), go.name(), done.name()});
  for (int round = 0; round < kRounds; ++round) {
    const std::vector<uint64_t> offsets = share(round, false);
    for (const auto step : {takeShare, giveBackShare}) {
      go.set();
      step(&shared, offsets);
      ASSERT_TRUE(done.wait());
      EXPECT_EQ(shared.firstFree, step == takeShare ? 0u : 32u);
      EXPECT_EQ(shared.latch, 0);
    }
    EXPECT_EQ(wordAt<uint64_t>(&shared, 32), 0u);
    EXPECT_EQ(wordAt<uint64_t>(&shared, 32 + 8), 0u);
    EXPECT_EQ(wordAt<uint64_t>(&shared, 32 + 16), 24 * kChunks);
  }
  EXPECT_EQ(child.wait(), 0u);
}

}  // namespace
