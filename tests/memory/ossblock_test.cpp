// Tests of what surrounds a heap block: distances and totals for every mode, base names, hashes.
#include "memory/ossblock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace oss;

namespace {

constexpr uint32_t kModes[] = {OSS_MEM_DEBUG_NONE, OSS_MEM_DEBUG_OFF, OSS_MEM_DEBUG_LIGHT,
                               OSS_MEM_DEBUG_FULL};
constexpr uint32_t kMostPads = 5;
constexpr uint64_t k4GiB = uint64_t{1} << 32;

std::vector<uint64_t> sizes() {
  std::vector<uint64_t> all = {4096, k4GiB - 1, k4GiB, k4GiB + 1};
  for (uint64_t size = 0; size <= 64; ++size) all.push_back(size);
  return all;
}

// Calls test(layout) for every mode, size and count of pads.
template <class Test>
void forEachLayout(Test test) {
  for (const uint32_t mode : kModes)
    for (const uint64_t size : sizes())
      for (uint32_t front = 0; front <= kMostPads; ++front)
        for (uint32_t back = 0; back <= kMostPads; ++back) {
          SCOPED_TRACE(testing::Message() << std::hex << "mode 0x" << mode << std::dec << ", size "
                                          << size << ", pads " << front << " and " << back);
          test(BlockLayout(mode, size, front, back), size, front, back);
        }
}

// ---- Totals ----

TEST(BlockLayout, ABlockOf5BytesTakes21And40And56And136) {
  EXPECT_EQ(BlockLayout(OSS_MEM_DEBUG_NONE, 5, 2, 2).total(), 21u);
  EXPECT_EQ(BlockLayout(OSS_MEM_DEBUG_OFF, 5, 2, 2).total(), 40u);
  EXPECT_EQ(BlockLayout(OSS_MEM_DEBUG_LIGHT, 5, 2, 2).total(), 56u);
  EXPECT_EQ(BlockLayout(OSS_MEM_DEBUG_FULL, 5, 2, 2).total(), 136u);
}

TEST(BlockLayout, ABareBlockIsTheRequestAnd16) {
  for (const uint64_t size : sizes())
    EXPECT_EQ(BlockLayout(OSS_MEM_DEBUG_NONE, size, 2, 2).total(), size + 16) << size;
}

TEST(BlockLayout, EveryOtherModeRoundsTheRequestUpToAMultipleOf8) {
  forEachLayout([](const BlockLayout& layout, uint64_t size, uint32_t front, uint32_t back) {
    const uint64_t rounded = (size + 7) / 8 * 8;
    switch (layout.mode()) {
      case OSS_MEM_DEBUG_NONE: EXPECT_EQ(layout.rounded(), size); break;
      case OSS_MEM_DEBUG_OFF: EXPECT_EQ(layout.total(), rounded + 32); break;
      case OSS_MEM_DEBUG_LIGHT: EXPECT_EQ(layout.total(), rounded + 48); break;
      default: EXPECT_EQ(layout.total(), rounded + 80 + 8 * (front + back) + 16);
    }
    EXPECT_EQ(layout.slack(), layout.rounded() - size);
  });
}

TEST(BlockLayout, AnEyeCatcherThatIsNoModeCountsAsOff) {
  for (const uint32_t eyeCatcher : {1u, 0x1D1EC0DFu, 0xF4EEDA7Au, 0xFFFFFFFFu}) {
    const BlockLayout layout(eyeCatcher, 5, 2, 2);
    EXPECT_EQ(layout.mode(), OSS_MEM_DEBUG_OFF) << eyeCatcher;
    EXPECT_EQ(layout.total(), 40u) << eyeCatcher;
  }
}

TEST(BlockLayout, OnlyFullHasPads) {
  forEachLayout([](const BlockLayout& layout, uint64_t, uint32_t front, uint32_t back) {
    const bool isFull = layout.mode() == OSS_MEM_DEBUG_FULL;
    EXPECT_EQ(layout.frontPads(), isFull ? front : 0);
    EXPECT_EQ(layout.backPads(), isFull ? back : 0);
  });
}

// ---- Distances ----

// From the start on each part begins where the one before it ends, and the last one ends the block.
TEST(BlockLayout, ThePartsFollowEachOtherWithoutAGap) {
  forEachLayout([](const BlockLayout& layout, uint64_t size, uint32_t, uint32_t) {
    const uint64_t record = layout.mode() == OSS_MEM_DEBUG_NONE   ? 0
                            : layout.mode() == OSS_MEM_DEBUG_FULL ? sizeof(FullRecord)
                                                                  : sizeof(ModeRecord);
    const bool hasTrailer =
        layout.mode() == OSS_MEM_DEBUG_LIGHT || layout.mode() == OSS_MEM_DEBUG_FULL;
    EXPECT_EQ(BlockLayout::headerBefore(), 16u);
    EXPECT_EQ(layout.recordBefore(), 16 + record);
    EXPECT_EQ(layout.before(), layout.recordBefore() + 8 * layout.frontPads());
    EXPECT_EQ(layout.slackAt(), size);
    EXPECT_EQ(layout.backPadsAt(), size + layout.slack());
    EXPECT_EQ(layout.trailerAt(), layout.backPadsAt() + 8 * layout.backPads());
    EXPECT_EQ(layout.total(), layout.before() + layout.trailerAt() + (hasTrailer ? 16 : 0));
  });
}

TEST(BlockView, ShowsEachPartAtItsDistanceFromTheUserAddress) {
  alignas(8) char memory[256] = {};
  char* const user = memory + 128;
  const auto distance = [user](const auto* part) {
    return reinterpret_cast<const char*>(part) - user;
  };

  const BlockView light = {user, BlockLayout(OSS_MEM_DEBUG_LIGHT, 5, 9, 9)};
  EXPECT_EQ(distance(light.start()), -32);
  EXPECT_EQ(distance(&light.modeRecord()), -32);
  EXPECT_EQ(distance(&light.header()), -16);
  EXPECT_EQ(distance(light.slack()), 5);
  EXPECT_EQ(distance(&light.modeTrailer()), 8);

  const BlockView full = {user, BlockLayout(OSS_MEM_DEBUG_FULL, 5, 2, 3)};
  EXPECT_EQ(distance(full.start()), -96);
  EXPECT_EQ(distance(full.frontPad()), -96);
  EXPECT_EQ(distance(&full.fullRecord()), -80);
  EXPECT_EQ(distance(&full.header()), -16);
  EXPECT_EQ(distance(full.slack()), 5);
  EXPECT_EQ(distance(full.backPad()), 8);
  EXPECT_EQ(distance(&full.fullTrailer()), 32);
}

TEST(BlockTag, LiesWhereEveryModeKeepsItsModeWordAndItsHeader) {
  alignas(8) char memory[256] = {};
  char* const user = memory + 128;
  const auto* const tag = reinterpret_cast<const BlockTag*>(user - sizeof(BlockTag));

  const BlockView light = {user, BlockLayout(OSS_MEM_DEBUG_LIGHT, 5, 0, 0)};
  light.modeRecord() = {1, 2, 3};
  light.header() = {4, 5, 6, 7};
  EXPECT_EQ(tag->recordSize, 2u);
  EXPECT_EQ(tag->mode, 3u);
  EXPECT_EQ(tag->header.mark, 4u);
  EXPECT_EQ(tag->header.line, 7u);

  const BlockView full = {user, BlockLayout(OSS_MEM_DEBUG_FULL, 5, 0, 0)};
  full.fullRecord().mode = 8;
  EXPECT_EQ(tag->mode, 8u);
}

// ---- Sizes that cannot be ----

TEST(BlockLayout, ASizeNear64BitsIsNotPossible) {
  constexpr uint64_t kOverheadInReserve = uint64_t{1} << 40;
  constexpr uint64_t kMost = ~uint64_t{0} - kOverheadInReserve;
  for (const uint32_t mode : kModes) {
    EXPECT_FALSE(BlockLayout(mode, ~uint64_t{0}, 2, 2).isPossible()) << mode;
    EXPECT_FALSE(BlockLayout(mode, ~uint64_t{0} - 15, 2, 2).isPossible()) << mode;
    EXPECT_FALSE(BlockLayout(mode, kMost + 1, 2, 2).isPossible()) << mode;
    EXPECT_TRUE(BlockLayout(mode, kMost, 2, 2).isPossible()) << mode;
  }
}

TEST(BlockLayout, TheTotalOfAPossibleSizeDoesNotWrapWithAsManyPadsAsCanBeCounted) {
  constexpr uint32_t kAllPads = ~uint32_t{0};
  for (const uint32_t mode : kModes)
    for (uint64_t size = ~uint64_t{0}; size > k4GiB; size /= 2) {
      const BlockLayout layout(mode, size, kAllPads, kAllPads);
      EXPECT_TRUE(!layout.isPossible() || layout.total() > size) << mode << ", " << size;
    }
}

// ---- Marks ----

TEST(BlockMark, IsToldApartByItsUpper28Bits) {
  for (uint32_t low = 0; low < 16; ++low) {
    EXPECT_TRUE(isMark(0xA7C055E0 + low, kMarkAllocated));
    EXPECT_TRUE(isMark(0xDEAD0550 + low, kMarkFreed));
    EXPECT_FALSE(isMark(0xDEAD0550 + low, kMarkAllocated));
  }
  EXPECT_FALSE(isMark(0xA7C055F0, kMarkAllocated));
  EXPECT_FALSE(isMark(0xA7C055D0, kMarkAllocated));
  EXPECT_FALSE(isMark(0x27C055E0, kMarkAllocated));
  EXPECT_FALSE(isMark(0, kMarkAllocated));
}

// ---- Base names ----

TEST(BaseName, IsTheTextBehindTheLastSeparatorOfEitherKind) {
  EXPECT_EQ(baseNameOf("a.c"), "a.c");
  EXPECT_EQ(baseNameOf("dir/a.c"), "a.c");
  EXPECT_EQ(baseNameOf("dir\\a.c"), "a.c");
  EXPECT_EQ(baseNameOf("/x\\y/a.c"), "a.c");
  EXPECT_EQ(baseNameOf("x/y\\a.c"), "a.c");
  EXPECT_EQ(baseNameOf("C:\\x y\\\xE4.c"), "\xE4.c");
  EXPECT_EQ(baseNameOf("C:a.c"), "C:a.c");
}

TEST(BaseName, MayBeEmpty) {
  EXPECT_EQ(baseNameOf(""), "");
  EXPECT_EQ(baseNameOf("/"), "");
  EXPECT_EQ(baseNameOf("dir\\"), "");
  EXPECT_EQ(baseNameOf(nullptr), "");
}

// What surrounds the path is full of separators and ends.
TEST(BaseName, IsFoundWhereverThePathLiesAndHoweverLongItIs) {
  for (size_t offset = 0; offset < 16; ++offset) {
    for (size_t length = 0; length < 40; ++length) {
      for (size_t separator = 0; separator < length; ++separator) {
        alignas(16) char memory[128];
        for (size_t i = 0; i < sizeof memory; ++i) memory[i] = "/\0\\"[i % 3];
        char* const path = memory + offset;
        std::fill_n(path, length, 'a');
        path[length] = '\0';
        path[separator] = separator % 2 == 0 ? '/' : '\\';
        path[separator / 2] = '/';

        const std::string_view name = baseNameOf(path);
        ASSERT_EQ(name.data(), path + separator + 1) << offset << ' ' << length;
        ASSERT_EQ(name.size(), length - separator - 1) << offset << ' ' << length;
      }
    }
  }
}

// ---- Hashes ----

TEST(BaseNameHash, OfAPathIsThatOfItsBaseName) {
  EXPECT_EQ(hashOfFile("dir\\ossfile.C"), 0x6B329AABu);
  EXPECT_EQ(hashOfFile("a.c"), 0x00612E63u);
  EXPECT_EQ(hashOfFile(nullptr), 0u);
}

TEST(BaseNameHash, OfSourceFiles) {
  EXPECT_EQ(hashOf("a.c"), 0x00612E63u);
  EXPECT_EQ(hashOf("abcd"), 0x61626364u);
  EXPECT_EQ(hashOf("abcdef"), 0x61620602u);
  EXPECT_EQ(hashOf("ossfile.C"), 0x6B329AABu);
  EXPECT_EQ(hashOf("ossmemory.C"), 0xD6CA9FBCu);
}

TEST(BaseNameHash, AtEachLengthWhereTheWayChanges) {
  constexpr uint32_t kExpected[] = {0,          0x00000061, 0x00006162, 0x00616263, 0x61626364,
                                    0x61626301, 0x61620602, 0x2DABC9E3, 0x48A8C8EC, 0x48A8C885};
  for (size_t length = 0; length < std::size(kExpected); ++length)
    EXPECT_EQ(hashOf(std::string_view("abcdefghi").substr(0, length)), kExpected[length]) << length;
}

TEST(BaseNameHash, TakesBytesAsUnsigned) {
  EXPECT_EQ(hashOf("\xFF"), 0x000000FFu);
  EXPECT_EQ(hashOf("\x80\xFF\xFE"), 0x0080FFFEu);
  EXPECT_EQ(hashOf("\xFF\xFF\xFF\xFF\xFF\xFF\xFF"), 0x00FFFFE0u);
  EXPECT_EQ(hashOf("\xE4\xF6\xFC\xDF.cpp"), 0x3F59E2AFu);
}

}  // namespace
