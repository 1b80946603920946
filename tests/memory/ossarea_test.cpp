// Tests of an area's free list: single steps, and long random sequences against a model that
// predicts every free chunk and its place in the list.
#include "memory/ossarea.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <ostream>
#include <random>
#include <vector>

using namespace oss;

namespace {

constexpr uint64_t kUnit = 24;
constexpr uint64_t kHead = 32;

// A free or an allocated chunk: its offset in the area, and its bytes.
struct Chunk {
  uint64_t offset;
  uint64_t size;

  bool operator==(const Chunk&) const = default;
};
using Chunks = std::vector<Chunk>;

void PrintTo(const Chunk& chunk, std::ostream* out) {
  *out << chunk.size << " at " << chunk.offset;
}

// An area in memory of its own.
class TestArea {
 public:
  explicit TestArea(uint64_t bytes) : bytes_(bytes), memory_((bytes + 7) / 8) {
    AreaList::format(head(), bytes);
  }

  OSSMemArea& head() { return *reinterpret_cast<OSSMemArea*>(memory_.data()); }
  char* at(uint64_t offset) { return reinterpret_cast<char*>(memory_.data()) + offset; }

  // The offset of what was taken, 0 when nothing was.
  uint64_t take(uint64_t size) {
    const auto* const chunk = static_cast<const char*>(AreaList(head()).take(size));
    return chunk != nullptr ? static_cast<uint64_t>(chunk - at(0)) : 0;
  }
  bool giveBack(uint64_t offset, uint64_t size) {
    return AreaList(head()).giveBack(at(offset), size);
  }

  // The free list in its order. Each chunk must name the one in front of it.
  Chunks freeList() {
    Chunks list;
    uint64_t previous = 0;
    for (uint64_t offset = head().firstFree; offset != 0;) {
      const auto& chunk = *reinterpret_cast<const OSSMemChunk*>(at(offset));
      if (chunk.previous != previous || list.size() > bytes_ / kUnit) {
        ADD_FAILURE() << "the list is broken at offset " << offset;
        break;
      }
      list.push_back({offset, chunk.size});
      previous = offset;
      offset = chunk.next;
    }
    return list;
  }

  std::vector<uint64_t> contents() const { return memory_; }

  // Moves the area to another address; what was there is destroyed.
  void move() {
    std::vector<uint64_t> elsewhere = memory_;
    std::fill(memory_.begin(), memory_.end(), ~uint64_t{0});
    memory_.swap(elsewhere);
  }

 private:
  uint64_t bytes_;
  std::vector<uint64_t> memory_;
};

// ---- Preparation ----

TEST(Area, Of1000BytesOffers960InOneChunk) {
  TestArea area(1000);
  EXPECT_EQ(area.head().usableSize, 960u);
  EXPECT_EQ(area.head().latch, 0);
  EXPECT_EQ(area.head().zero, 0u);
  EXPECT_EQ(area.freeList(), (Chunks{{kHead, 960}}));
}

TEST(Area, SmallerThanItsHeadAndOneChunkOffersNothing) {
  for (uint64_t bytes = kHead; bytes < kHead + kUnit; ++bytes) {
    TestArea area(bytes);
    EXPECT_EQ(area.head().usableSize, 0u) << bytes;
    EXPECT_EQ(area.freeList(), Chunks()) << bytes;
    EXPECT_EQ(area.take(kUnit), 0u) << bytes;
  }
}

TEST(Area, Of56BytesOffersOneChunkOf24) {
  TestArea area(56);
  EXPECT_EQ(area.head().usableSize, 24u);
  EXPECT_EQ(area.take(kUnit), kHead);
  EXPECT_EQ(area.take(kUnit), 0u);
}

TEST(Area, OfAnyOddSizeIsCutToWholeChunks) {
  for (uint64_t bytes = 56; bytes < 56 + 5 * kUnit; ++bytes) {
    TestArea area(bytes);
    EXPECT_EQ(area.freeList(), (Chunks{{kHead, (bytes - kHead) / kUnit * kUnit}})) << bytes;
  }
}

TEST(Area, PreparingItClearsOnlyTheHeadAndTheFirstChunk) {
  std::vector<uint64_t> memory(16, 0x5555555555555555);
  AreaList::format(*reinterpret_cast<OSSMemArea*>(memory.data()), 16 * 8);
  const std::vector<uint64_t> expected = {0, 0, 96, kHead, 0, 0, 96};
  EXPECT_EQ(std::vector<uint64_t>(memory.begin(), memory.begin() + 7), expected);
  EXPECT_EQ(std::vector<uint64_t>(memory.begin() + 7, memory.end()),
            std::vector<uint64_t>(9, 0x5555555555555555));
}

TEST(Area, PreparingItAnewForgetsWhatWasAllocated) {
  TestArea area(1000);
  ASSERT_EQ(area.take(96), kHead);
  AreaList::format(area.head(), 1000);
  EXPECT_EQ(area.freeList(), (Chunks{{kHead, 960}}));
}

// ---- Sizes ----

TEST(AreaSize, IsRoundedUpToAMultipleOf24) {
  EXPECT_EQ(AreaList::rounded(1), 24u);
  EXPECT_EQ(AreaList::rounded(10), 24u);
  EXPECT_EQ(AreaList::rounded(23), 24u);
  EXPECT_EQ(AreaList::rounded(24), 24u);
  EXPECT_EQ(AreaList::rounded(25), 48u);
  EXPECT_EQ(AreaList::rounded(960), 960u);
}

TEST(AreaSize, ThatCannotBeRoundedUpIs0) {
  constexpr uint64_t kLargest = ~uint64_t{0} / kUnit * kUnit;
  EXPECT_EQ(AreaList::rounded(kLargest), kLargest);
  EXPECT_EQ(AreaList::rounded(kLargest + 1), 0u);
  EXPECT_EQ(AreaList::rounded(~uint64_t{0}), 0u);
  EXPECT_EQ(AreaList::rounded(0), 0u);
}

// ---- Allocation ----

TEST(AreaTake, CutsTheChunkFromTheFrontAndKeepsTheRest) {
  TestArea area(1000);
  EXPECT_EQ(area.take(24), 32u);
  EXPECT_EQ(area.take(24), 56u);
  EXPECT_EQ(area.freeList(), (Chunks{{80, 912}}));
}

TEST(AreaTake, AChunkThatFitsExactlyLeavesNoRest) {
  TestArea area(1000);
  EXPECT_EQ(area.take(960), kHead);
  EXPECT_EQ(area.freeList(), Chunks());
  EXPECT_EQ(area.take(24), 0u);
}

TEST(AreaTake, MoreThanTheLargestChunkTakesNothing) {
  TestArea area(1000);
  const auto before = area.contents();
  EXPECT_EQ(area.take(984), 0u);
  EXPECT_EQ(area.take(~uint64_t{0} / kUnit * kUnit), 0u);
  EXPECT_EQ(area.contents(), before);
}

// Five free chunks with allocated ones between them: 24, 48, 72, 48 and 24 bytes.
class FragmentedArea : public testing::Test {
 protected:
  FragmentedArea() {
    area_.take(area_.head().usableSize);
    for (const Chunk& chunk : kPieces) EXPECT_TRUE(area_.giveBack(chunk.offset, chunk.size));
  }

  static constexpr Chunk kPieces[] = {{32, 24}, {80, 48}, {152, 72}, {248, 48}, {320, 24}};
  TestArea area_{32 + 15 * 24};
};

// Among equal sizes the one that came last stands first.
TEST_F(FragmentedArea, TheListDescendsBySize) {
  EXPECT_EQ(area_.freeList(), (Chunks{{152, 72}, {248, 48}, {80, 48}, {320, 24}, {32, 24}}));
}

TEST_F(FragmentedArea, TheLastChunkThatFitsIsTaken) {
  EXPECT_EQ(area_.take(24), 32u);
  EXPECT_EQ(area_.take(24), 320u);
  EXPECT_EQ(area_.take(48), 80u);
  EXPECT_EQ(area_.take(24), 248u);
  EXPECT_EQ(area_.freeList(), (Chunks{{152, 72}, {272, 24}}));
}

TEST_F(FragmentedArea, ARestStandsBeforeTheFirstChunkThatIsNotLarger) {
  EXPECT_EQ(area_.take(48), 80u);
  EXPECT_EQ(area_.take(48), 248u);
  EXPECT_EQ(area_.take(48), 152u);
  EXPECT_EQ(area_.freeList(), (Chunks{{200, 24}, {320, 24}, {32, 24}}));
}

// ---- Release ----

TEST_F(FragmentedArea, AReleaseJoinsTheChunkBehind) {
  EXPECT_TRUE(area_.giveBack(56, 24));
  EXPECT_TRUE(area_.giveBack(296, 24));
  EXPECT_EQ(area_.freeList(), (Chunks{{248, 96}, {32, 96}, {152, 72}}));
}

TEST_F(FragmentedArea, AReleaseJoinsTheChunkInFrontAlone) {
  EXPECT_TRUE(area_.giveBack(344, 24));
  EXPECT_EQ(area_.freeList(), (Chunks{{152, 72}, {320, 48}, {248, 48}, {80, 48}, {32, 24}}));
}

TEST_F(FragmentedArea, AReleaseThatTouchesNothingStandsAlone) {
  EXPECT_EQ(area_.take(72), 152u);
  EXPECT_TRUE(area_.giveBack(176, 24));
  EXPECT_EQ(area_.freeList(), (Chunks{{248, 48}, {80, 48}, {176, 24}, {320, 24}, {32, 24}}));
}

TEST_F(FragmentedArea, EveryReleaseTogetherGivesTheWholeAreaBack) {
  for (const Chunk& chunk : Chunks{{56, 24}, {128, 24}, {224, 24}, {296, 24}, {344, 48}})
    EXPECT_TRUE(area_.giveBack(chunk.offset, chunk.size));
  EXPECT_EQ(area_.freeList(), (Chunks{{32, 360}}));
}

// A chunk may come back in pieces: the area keeps no record of what was allocated together.
TEST(AreaGiveBack, TakesAPieceOfAnAllocatedChunk) {
  TestArea area(1000);
  ASSERT_EQ(area.take(960), kHead);
  EXPECT_TRUE(area.giveBack(56, 24));
  EXPECT_EQ(area.freeList(), (Chunks{{56, 24}}));
}

TEST(AreaGiveBack, RefusesWhatDoesNotLieInTheArea) {
  TestArea area(1000);
  ASSERT_EQ(area.take(960), kHead);
  const auto before = area.contents();
  const uint64_t outside[] = {0, 8, 31, kHead - kUnit, kHead + 960, ~uint64_t{0} - 23};
  for (const uint64_t offset : outside) EXPECT_FALSE(area.giveBack(offset, 24)) << offset;
  EXPECT_FALSE(area.giveBack(kHead, 984));
  EXPECT_FALSE(area.giveBack(kHead + 936, 48));
  EXPECT_FALSE(area.giveBack(kHead, ~uint64_t{0} / kUnit * kUnit));
  EXPECT_FALSE(area.giveBack(kHead + 24, ~uint64_t{0} / kUnit * kUnit));
  EXPECT_EQ(area.contents(), before);
}

TEST(AreaGiveBack, RefusesWhatIsNoChunksStart) {
  TestArea area(1000);
  ASSERT_EQ(area.take(960), kHead);
  const auto before = area.contents();
  for (uint64_t offset = kHead + 1; offset < kHead + kUnit; ++offset)
    EXPECT_FALSE(area.giveBack(offset, 24)) << offset;
  EXPECT_EQ(area.contents(), before);
}

TEST(AreaGiveBack, RefusesASizeOf0) {
  TestArea area(1000);
  ASSERT_EQ(area.take(960), kHead);
  const auto before = area.contents();
  EXPECT_FALSE(area.giveBack(kHead, 0));
  EXPECT_EQ(area.contents(), before);
}

TEST_F(FragmentedArea, AReleaseThatOverlapsAFreeChunkIsRefused) {
  const auto before = area_.contents();
  for (const Chunk& chunk : Chunks{{32, 24}, {32, 48}, {56, 48}, {104, 24}, {56, 312}, {320, 72}})
    EXPECT_FALSE(area_.giveBack(chunk.offset, chunk.size)) << chunk.offset << ' ' << chunk.size;
  EXPECT_EQ(area_.contents(), before);
}

TEST(AreaGiveBack, ASecondReleaseOfTheSameChunkIsRefused) {
  TestArea area(1000);
  ASSERT_EQ(area.take(24), kHead);
  ASSERT_TRUE(area.giveBack(kHead, 24));
  const auto before = area.contents();
  EXPECT_FALSE(area.giveBack(kHead, 24));
  EXPECT_EQ(area.contents(), before);
}

// ---- Where a caller finds its chunk ----

// As the manual says: the last chunk of the list whose size is sufficient, found under the caller's
// own lock before the call.
uint64_t chunkToBeTaken(TestArea& area, uint64_t size) {
  uint64_t found = 0;
  for (uint64_t offset = area.head().firstFree; offset != 0;) {
    const auto& chunk = *reinterpret_cast<const OSSMemChunk*>(area.at(offset));
    if (chunk.size < size) break;
    found = offset;
    offset = chunk.next;
  }
  return found;
}

TEST_F(FragmentedArea, ACallerThatWalksTheListKnowsItsChunk) {
  for (const uint64_t size : std::to_array<uint64_t>({1, 48, 25, 72, 24, 96, 24})) {
    const uint64_t expected = chunkToBeTaken(area_, size);
    EXPECT_EQ(area_.take(AreaList::rounded(size)), expected) << size;
  }
}

// ---- Random sequences ----

// What the list must look like, kept as plainly as possible.
class Model {
 public:
  explicit Model(uint64_t usable) : usable_(usable) { insert({kHead, usable}); }

  // The chunk that an allocation takes, of size 0 when there is none.
  Chunk take(uint64_t size) {
    const auto tooSmall = std::find_if(free_.begin(), free_.end(),
                                       [size](const Chunk& chunk) { return chunk.size < size; });
    if (tooSmall == free_.begin()) return {0, 0};

    const Chunk chunk = tooSmall[-1];
    free_.erase(tooSmall - 1);
    if (chunk.size != size) insert({chunk.offset + size, chunk.size - size});
    allocated_[chunk.offset] = size;
    return {chunk.offset, size};
  }

  void giveBack(Chunk chunk) {
    allocated_.erase(chunk.offset);
    const auto absorb = [&](auto touches) {
      const auto found = std::find_if(free_.begin(), free_.end(), touches);
      if (found == free_.end()) return;
      chunk = {std::min(chunk.offset, found->offset), chunk.size + found->size};
      free_.erase(found);
    };
    absorb([&](const Chunk& free) { return free.offset == chunk.offset + chunk.size; });
    absorb([&](const Chunk& free) { return free.offset + free.size == chunk.offset; });
    insert(chunk);
  }

  const Chunks& free() const { return free_; }
  size_t allocatedCount() const { return allocated_.size(); }
  Chunk allocated(size_t index) const {
    const auto& [offset, size] = *std::next(allocated_.begin(), static_cast<ptrdiff_t>(index));
    return {offset, size};
  }

  // Free and allocated chunks together cover the area, and no two free ones touch.
  bool isWhole() const {
    std::map<uint64_t, uint64_t> free;
    for (const Chunk& chunk : free_) free[chunk.offset] = chunk.size;
    uint64_t offset = kHead;
    bool previousIsFree = false;
    while (offset < kHead + usable_) {
      const auto found = free.find(offset);
      const bool isFree = found != free.end();
      if (isFree && previousIsFree) return false;
      const auto allocated = allocated_.find(offset);
      if (!isFree && allocated == allocated_.end()) return false;
      offset += isFree ? found->second : allocated->second;
      previousIsFree = isFree;
    }
    return offset == kHead + usable_;
  }

 private:
  void insert(Chunk chunk) {
    const auto notLarger = std::find_if(free_.begin(), free_.end(),
                                        [&](const Chunk& free) { return free.size <= chunk.size; });
    free_.insert(notLarger, chunk);
  }

  uint64_t usable_;
  Chunks free_;
  std::map<uint64_t, uint64_t> allocated_;
};

struct Sequence {
  uint64_t units;      // the area's
  uint64_t mostUnits;  // of a request
  int steps;
};

void PrintTo(const Sequence& sequence, std::ostream* out) {
  *out << sequence.steps << " steps in " << sequence.units << " units";
}

class AreaSequence : public testing::TestWithParam<Sequence> {
 protected:
  static constexpr uint64_t kSeed = 20240229;

  // Requests a random size; what it holds is filled with its number.
  void allocate() {
    const uint64_t size = 1 + random_() % (kUnit * GetParam().mostUnits);
    const Chunk expected = model_.take(AreaList::rounded(size));
    const uint64_t taken = area_.take(AreaList::rounded(size));
    ASSERT_EQ(taken, expected.offset);
    if (expected.size != 0) std::memset(area_.at(taken), contentOf(expected), expected.size);
  }

  void release() {
    const Chunk chunk = model_.allocated(random_() % model_.allocatedCount());
    const char* const begin = area_.at(chunk.offset);
    ASSERT_TRUE(std::all_of(begin, begin + chunk.size,
                            [&](char byte) { return byte == contentOf(chunk); }));
    ASSERT_TRUE(area_.giveBack(chunk.offset, chunk.size));
    model_.giveBack(chunk);
  }

  void check() {
    ASSERT_EQ(area_.freeList(), model_.free());
    ASSERT_TRUE(model_.isWhole());
    ASSERT_EQ(area_.head().usableSize, kUnit * GetParam().units);
    ASSERT_EQ(area_.head().zero, 0u);
  }

  static char contentOf(const Chunk& chunk) { return static_cast<char>(chunk.offset / 8); }

  std::mt19937_64 random_{kSeed};
  TestArea area_{kHead + kUnit * GetParam().units + 5};
  Model model_{kUnit * GetParam().units};
};

INSTANTIATE_TEST_SUITE_P(Areas, AreaSequence,
                         testing::Values(Sequence{3, 2, 50'000}, Sequence{20, 6, 550'000},
                                         Sequence{60, 10, 350'000}, Sequence{300, 12, 60'000}));

// The area is moved now and then: it holds no addresses.
TEST_P(AreaSequence, EveryStepLeavesTheListThatTheModelPredicts) {
  constexpr int kStepsBetweenMoves = 500;
  for (int step = 0; step < GetParam().steps; ++step) {
    SCOPED_TRACE(testing::Message() << "step " << step);
    // Ever more or ever less is allocated, by turns.
    const bool isGrowing = (step / 200) % 2 == 0;
    const bool isAllocation = random_() % 100 < (isGrowing ? 60 : 40);
    if (isAllocation || model_.allocatedCount() == 0)
      allocate();
    else
      release();
    check();
    if (HasFatalFailure()) return;
    if (step % kStepsBetweenMoves == 0) area_.move();
  }

  while (model_.allocatedCount() != 0) release();
  EXPECT_EQ(area_.freeList(), (Chunks{{kHead, kUnit * GetParam().units}}));
}

}  // namespace
