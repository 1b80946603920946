// What a check does to a block that is released: once, twice, by hand, and in the mode NONE.
#include "harness/childprocess.h"
#include "memory/ossmemoryfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- Second releases ----------------------------------------------------------------------------

class SecondRelease : public MemoryTest, public WithParamInterface<MemoryMode> {};
INSTANTIATE_TEST_SUITE_P(Modes, SecondRelease, Values(kOff, kLight, kFull));

// By the mark and by the mode word.
TEST_P(SecondRelease, IsReportedAndNotGivenToTheHeapAgain) {
  choose(GetParam(), OSS_MEM_FILL_FREED);
  KeptBlocks kept;
  void* const block = allocate(5);
  release(block);
  EXPECT_THAT(findings(), IsEmpty());
  for (int again = 0; again < 3; ++again) {
    release(block);
    EXPECT_THAT(findings(), ElementsAre(kFreedAgain, kFreedAgain));
  }
  EXPECT_THAT(kept.takeBlocks(), SizeIs(1));
}

TEST_P(SecondRelease, OfAnyMarkOfItsKindIsReported) {
  choose(GetParam());
  KeptBlocks kept;
  void* const block = allocate(5);
  release(block);
  for (uint32_t low = 0; low < 16; ++low) {
    setWordAt(block, -16, 0xDEAD0550 + low);
    release(block);
    EXPECT_THAT(findings(), ElementsAre(kFreedAgain, kFreedAgain));
  }
}

TEST_P(SecondRelease, DoesNotDisturbTheLiveBlocks) {
  choose(kFull);
  void* const older = allocate(1);
  choose(GetParam());
  KeptBlocks kept;
  void* const block = allocate(5);
  release(block);
  release(block);
  EXPECT_THAT(findings(), SizeIs(2));
  choose(kFull);
  EXPECT_THAT(liveBlocks(), ElementsAre(older));
  release(older);
}

// A check of a block that is freed tells it by the mode.
TEST_P(SecondRelease, IsForeseenByTheCheck) {
  choose(GetParam());
  KeptBlocks kept;
  void* const block = allocate(5);
  release(block);
  check(block);
  EXPECT_THAT(findings(), ElementsAre(markIs(kMarkFreed), kFreedAgain));
}

// ---- The check by hand --------------------------------------------------------------------------

// The caller gives the block back itself.
TEST_F(MemoryTest, TheFreeFlagRetiresABlockAndTellsItsStart) {
  for (const MemoryMode& mode : kModes) {
    choose(mode, OSS_MEM_FILL_FREED);
    void* const block = allocate(5);
    void* address = block;
    EXPECT_EQ(ossMemAllocCheck(&address, kFile, kLine, 1), ECF_OK);
    EXPECT_EQ(address, byteAt(block, -static_cast<int64_t>(mode.before())));
    EXPECT_EQ(markOf(block), kMarkFreed);
    EXPECT_EQ(modeOf(block), kModeFreed);
    std::free(address);
  }
  choose(kFull);
  EXPECT_THAT(liveBlocks(), IsEmpty());
}

TEST_F(MemoryTest, AnyOtherFreeFlagOnlyChecks) {
  for (const MemoryMode& mode : kModes) {
    choose(mode, OSS_MEM_FILL_FREED);
    void* const block = allocate(5, OSS_MEM_ZERO);
    for (const uint64_t flag : {uint64_t{2}, uint64_t{3}, uint64_t{1} << 32, ~uint64_t{0}}) {
      void* address = block;
      EXPECT_EQ(ossMemAllocCheck(&address, kFile, kLine, flag), ECF_OK);
      EXPECT_EQ(address, block);
      EXPECT_EQ(markOf(block), kMarkAllocated);
    }
    release(block);
  }
}

TEST_F(MemoryTest, TheFreeFlagLeavesThePointerToWhatIsNoBlock) {
  choose(kFull);
  char memory[128] = {};
  void* address = memory + 64;
  EXPECT_EQ(ossMemAllocCheck(&address, kFile, kLine, 1), ECF_OK);
  EXPECT_EQ(address, memory + 64);
  EXPECT_THAT(findings(), ElementsAre(markIs(0), modeIs(0)));
}

TEST_F(MemoryTest, ABlockThatIsOnlyCheckedStaysAsItIs) {
  for (const MemoryMode& mode : kModes) {
    choose(mode, OSS_MEM_FILL_NEW | OSS_MEM_FILL_FREED);
    void* const block = allocate(5);
    const auto* const start = reinterpret_cast<const char*>(byteAt(block, 0)) - mode.before();
    const std::string before(start, mode.total(5));
    check(block);
    EXPECT_EQ(std::string(start, mode.total(5)), before);
    release(block);
  }
}

// ---- The mode NONE ------------------------------------------------------------------------------

// It can be chosen before the first allocation only, so each test has a process of its own.
void chooseNone(uint32_t flags = 0) {
  EXPECT_EQ(ossMemSetDebug(flags, OSS_MEM_DEBUG_NONE, 2, 2), ECF_OK);
  collectFindings();
}

CHILD_ROLE(allocateBareBlocks) {
  chooseNone(OSS_MEM_FILL_NEW);
  for (const uint64_t size : {1u, 7u, 8u, 9u, 4096u}) {
    uint64_t asked = 0;
    void* start = nullptr;
    void* block = nullptr;
    {
      ImportHook hook("malloc", [&](Call& call) {
        asked = call.argument<uint64_t>(0);
        const Word given = call.passOn();
        start = reinterpret_cast<void*>(given);
        return given;
      });
      block = allocate(size, OSS_MEM_MARK_E1);
    }
    EXPECT_EQ(asked, size + 16);
    EXPECT_EQ(block, byteAt(start, 16));
    EXPECT_EQ(wordAt<uint32_t>(block, -16), kMarkAllocatedE1);
    EXPECT_EQ(wordAt<uint32_t>(block, -12), size);
    EXPECT_EQ(wordAt<uint32_t>(block, -8), kBaseNameHash);
    EXPECT_EQ(wordAt<uint32_t>(block, -4), kLine);
    EXPECT_EQ(*byteAt(block, static_cast<int64_t>(size) - 1), 0xFF);

    ImportHook hook("free", [&](Call& call) {
      EXPECT_EQ(call.argument<void*>(0), start);
      return call.passOn();
    });
    release(block);
  }
  EXPECT_THAT(findings(), IsEmpty());
  return 0;
}
TEST(BareBlocks, HaveNothingButAHeader) { EXPECT_EQ(runChild("allocateBareBlocks"), 0u); }

// Only the mark is checked; the answer is all ones, whatever is found.
CHILD_ROLE(checkBareBlocks) {
  chooseNone(OSS_MEM_FILL_FREED);
  void* block = allocate(8);
  const std::string before(reinterpret_cast<const char*>(byteAt(block, -16)), 24);
  for (const uint64_t freeFlag : {0u, 1u}) {
    void* address = block;
    EXPECT_EQ(ossMemAllocCheck(&address, kFile, kLine, freeFlag), 0xFFFFFFFFu);
    EXPECT_EQ(address, block);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(byteAt(block, -16)), 24), before);
  }
  EXPECT_THAT(findings(), IsEmpty());

  setWordAt(block, -16, kMarkFreed);
  EXPECT_EQ(ossMemAllocCheck(&block, kFile, kLine, 0), 0xFFFFFFFFu);
  EXPECT_EQ(ossMemAllocCheck(&block, kFile, kLine, 1), 0xFFFFFFFFu);
  void* nothing = nullptr;
  EXPECT_EQ(ossMemAllocCheck(&nothing, kFile, kLine, 0), 0xFFFFFFFFu);
  EXPECT_EQ(ossMemAllocCheck(nullptr, kFile, kLine, 1), 0xFFFFFFFFu);
  EXPECT_THAT(findings(), ElementsAre(markIs(kMarkFreed), kFreedAgain, kNullFound, kNullFound));
  return 0;
}
TEST(BareBlocks, AreCheckedByTheirMarkAlone) { EXPECT_EQ(runChild("checkBareBlocks"), 0u); }

CHILD_ROLE(releaseBareBlockTwice) {
  chooseNone();
  KeptBlocks kept;
  void* const block = allocate(8);
  release(block);
  EXPECT_THAT(findings(), IsEmpty());
  release(block);
  EXPECT_THAT(findings(), ElementsAre(kFreedAgain));
  EXPECT_THAT(kept.takeBlocks(), SizeIs(1));
  return 0;
}
TEST(BareBlocks, AreReleasedOnce) { EXPECT_EQ(runChild("releaseBareBlockTwice"), 0u); }

}  // namespace
