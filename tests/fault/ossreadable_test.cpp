// How much of the memory around a fault is captured, with memory as the test makes it.
#include "fault/ossreadable.h"

#include <gtest/gtest.h>

#include <ostream>

using namespace oss;

namespace oss {

void PrintTo(const InstructionArea& area, std::ostream* out) {
  *out << area.bytes << " bytes at 0x" << std::hex << area.address;
}

}  // namespace oss

namespace {

constexpr uint64_t kPage = 4096;
constexpr uint64_t kStart = 0x7FF600000000;  // of a page

// Memory that can be read from one address up to another.
class Region final : public Memory {
 public:
  Region(uint64_t begin, uint64_t end) : begin_(begin), end_(end) {}

  bool isReadable(uint64_t address, uint64_t bytes) const noexcept override {
    EXPECT_LE(bytes, kPage);
    return address >= begin_ && address < end_ && bytes <= end_ - address;
  }

 private:
  uint64_t begin_, end_;
};

// Memory that another thread unmaps once its first bytes have been read.
class Vanishing final : public Memory {
 public:
  bool isReadable(uint64_t, uint64_t) const noexcept override { return asked_++ == 0; }

 private:
  mutable int asked_ = 0;
};

const Region kEverything(0, ~uint64_t{0});
const Region kNothing(0, 0);

InstructionArea area(uint64_t address, uint32_t bytes) { return {address, bytes}; }

// ---- Instructions ----

TEST(InstructionArea, ReachesFrom32BytesInFrontTo32Behind) {
  EXPECT_EQ(findInstructions(kEverything, kStart), area(kStart - 32, 64));
}

TEST(InstructionArea, AnUnreadableStartCancelsTheCapture) {
  // The page with the instruction can be read, the one in front of it cannot.
  const Region page(kStart, kStart + kPage);
  EXPECT_EQ(findInstructions(page, kStart + 32), area(kStart, 64));
  EXPECT_EQ(findInstructions(page, kStart + 31), area(kStart, 0));
  EXPECT_EQ(findInstructions(page, kStart + 3), area(kStart, 0));
  EXPECT_EQ(findInstructions(page, kStart), area(kStart, 0));
}

TEST(InstructionArea, TheStartMovesUntilItPassesTheInstruction) {
  EXPECT_EQ(findInstructions(kNothing, kStart), area(kStart + 1, 0));
  // One byte in front of what can be read: the last start that is tried.
  EXPECT_EQ(findInstructions(Region(kStart + 1, kStart + kPage), kStart), area(kStart + 1, 0));
}

TEST(InstructionArea, AJumpToNothingIsSearchedAcrossTheTopOfTheAddresses) {
  EXPECT_EQ(findInstructions(kNothing, 0), area(1, 0));
  EXPECT_EQ(findInstructions(Region(0, kPage), 0), area(0, 0));
}

// The last of the bytes is one that 7 more follow.
TEST(InstructionArea, ItsEndShrinksUntil8BytesFollow) {
  const uint64_t instruction = kStart + 100;
  const uint64_t begin = instruction - 32;
  for (uint64_t bytes = 8; bytes < 71; ++bytes)
    EXPECT_EQ(findInstructions(Region(kStart, begin + bytes), instruction),
              area(begin, static_cast<uint32_t>(bytes - 7)));
  EXPECT_EQ(findInstructions(Region(kStart, begin + 71), instruction), area(begin, 64));
  EXPECT_EQ(findInstructions(Region(kStart, begin + 72), instruction), area(begin, 64));
}

TEST(InstructionArea, AStartWithFewerThan8BytesIsUnreadable) {
  EXPECT_EQ(findInstructions(Region(kStart, kStart + 7), kStart + 32), area(kStart + 33, 0));
}

TEST(InstructionArea, MemoryThatVanishesMeanwhileHoldsNothing) {
  EXPECT_EQ(findInstructions(Vanishing(), kStart), area(kStart - 32, 0));
}

// ---- The raw stack ----

TEST(WantedStackWords, ReachToTheLastFrameAndItsWord) {
  EXPECT_EQ(wantedStackWords(kStart, kStart + 8192), 1025u);
  EXPECT_EQ(wantedStackWords(kStart, kStart + 20000), 2501u);
}

TEST(WantedStackWords, AShortStackCountsAs8KiB) {
  EXPECT_EQ(wantedStackWords(kStart, kStart), 1024u);
  EXPECT_EQ(wantedStackWords(kStart, kStart + 8192 - 16), 1024u);
  EXPECT_EQ(wantedStackWords(kStart, kStart + 8192 - 8), 1024u);
  EXPECT_EQ(wantedStackWords(kStart, kStart - 8), 1024u);
  EXPECT_EQ(wantedStackWords(kStart, 0), 1024u);
}

TEST(WantedStackWords, ALongStackIsCut) {
  EXPECT_EQ(wantedStackWords(kStart, kStart + 8191 * 8), 8192u);
  EXPECT_EQ(wantedStackWords(kStart, kStart + 8192 * 8), 8193u);
  EXPECT_EQ(wantedStackWords(kStart, kStart + 8193 * 8), 8193u);
  EXPECT_EQ(wantedStackWords(kStart, ~uint64_t{0} - 8), 8193u);
}

TEST(ReadableWords, AllOfThemWhereEverythingCanBeRead) {
  EXPECT_EQ(readableWords(kEverything, kStart, 0), 0u);
  EXPECT_EQ(readableWords(kEverything, kStart, 1), 1u);
  EXPECT_EQ(readableWords(kEverything, kStart + 8, 8193), 8193u);
}

TEST(ReadableWords, EndAtThePageThatCannotBeRead) {
  const Region twoPages(kStart, kStart + 2 * kPage);
  EXPECT_EQ(readableWords(twoPages, kStart, 8193), 1024u);
  EXPECT_EQ(readableWords(twoPages, kStart + 8, 8193), 1023u);
  EXPECT_EQ(readableWords(twoPages, kStart + 2 * kPage - 8, 8193), 1u);
  EXPECT_EQ(readableWords(twoPages, kStart + 2 * kPage, 8193), 0u);
  EXPECT_EQ(readableWords(twoPages, kStart - 8, 8193), 0u);
}

TEST(ReadableWords, AWordThatReachesIntoAnUnreadablePageIsNone) {
  const Region page(kStart, kStart + kPage);
  EXPECT_EQ(readableWords(page, kStart + 1, 8193), 511u);
  EXPECT_EQ(readableWords(page, kStart + kPage - 7, 8193), 0u);
  EXPECT_EQ(readableWords(Region(kStart, kStart + 2 * kPage), kStart + 1, 8193), 1023u);
}

TEST(ReadableWords, EndWhereTheAddressesDo) {
  EXPECT_EQ(readableWords(kEverything, ~uint64_t{0} - 7, 4), 0u);
}

}  // namespace
