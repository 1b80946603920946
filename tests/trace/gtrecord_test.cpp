// Descriptors and items of a record, byte for byte: what fits, what is cut, and what a null pointer
// leaves.
#include "trace/gtrecord.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

using namespace oss;
using testing::Each;

namespace {

constexpr uint32_t kMost = 65'535;
constexpr char kUntouched = '\x5A';

uint64_t addressOf(const void* data) { return reinterpret_cast<uintptr_t>(data); }

GTraceItemArgument blockOf(const std::string& bytes, uint64_t type = GTRACE_ITEM_BLOCK) {
  return {type, bytes.size(), addressOf(bytes.data())};
}
GTraceItemArgument valueOf(uint64_t value, uint64_t length, uint64_t type = GTRACE_ITEM_VALUE_1) {
  return {type, length, value};
}

std::string wordBytes(uint32_t word) {
  return {static_cast<char>(word), static_cast<char>(word >> 8), static_cast<char>(word >> 16),
          static_cast<char>(word >> 24)};
}
std::string descriptor(uint32_t type, uint32_t length) {
  return wordBytes(type) + wordBytes(length);
}

// Bytes that tell their place.
std::string bytesOf(size_t count) {
  std::string bytes(count, '\0');
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i * 31 + i / 251);
  return bytes;
}

struct Written {
  uint32_t count;
  bool cut;
  std::string bytes;  // as many as the record has room for; kUntouched where nothing was written

  bool operator==(const Written&) const = default;
};
void PrintTo(const Written& written, std::ostream* out) {
  *out << written.count << " items, " << written.bytes.size() << " bytes"
       << (written.cut ? ", cut: " : ": ") << testing::PrintToString(written.bytes.substr(0, 200));
}

// Writes the items into memory that ends where their room does; sanitizers see what goes beyond.
Written write(const std::vector<GTraceItemArgument>& items) {
  const ItemRoom room = roomFor(items);
  std::vector<char> memory(room.bytes, kUntouched);
  writeItems(reinterpret_cast<GTraceItem*>(memory.data()), items, room);
  return {room.count, room.cut, {memory.begin(), memory.end()}};
}

TEST(TraceItems, NoItemsNeedNoRoom) { EXPECT_EQ(write({}), (Written{0, false, ""})); }

TEST(TraceItems, DescriptorsStandInFrontOfThePackedItems) {
  const std::string first = "abc", second = "defghijk", third = "l";
  EXPECT_EQ(
      write({blockOf(first), blockOf(second, 3), blockOf(third, 0xFFFFFFFF)}),
      (Written{3, false,
               descriptor(0, 3) + descriptor(3, 8) + descriptor(0xFFFFFFFF, 1) + "abcdefghijkl"}));
}

TEST(TraceItems, ABlockOfEveryShortLengthIsCopiedWhole) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string bytes = bytesOf(length);
    EXPECT_EQ(write({blockOf(bytes)}),
              (Written{1, false, descriptor(0, static_cast<uint32_t>(length)) + bytes}));
  }
}

TEST(TraceItems, AValueIsItsFirstBytes) {
  constexpr uint64_t kValue = 0x3837363534333231;
  const std::string digits = "12345678";
  for (const uint32_t type : {1u, 2u})
    for (uint32_t length = 0; length <= 8; ++length)
      EXPECT_EQ(write({valueOf(kValue, length, type)}),
                (Written{1, false, descriptor(type, length) + digits.substr(0, length)}));
}

TEST(TraceItems, AValueHasEightBytesAndIsZeroBehindThem) {
  const std::string next = "next";
  EXPECT_EQ(
      write({valueOf(0x3837363534333231, 13), blockOf(next)}),
      (Written{2, false,
               descriptor(1, 13) + descriptor(0, 4) + "12345678" + std::string(5, '\0') + "next"}));
}

TEST(TraceItems, AValueOfZeroIsNoNullPointer) {
  for (const uint32_t type : {1u, 2u})
    EXPECT_EQ(write({valueOf(0, 4, type)}),
              (Written{1, false, descriptor(type, 4) + std::string(4, '\0')}));
}

TEST(TraceItems, TheLowHalfOfATypeDecides) {
  EXPECT_EQ(write({valueOf(0x34333231, 4, 0xABCD'00000001)}),
            (Written{1, false, descriptor(1, 4) + "1234"}));
}

TEST(TraceItems, ANullPointerLeavesItsRoomAtTheEnd) {
  const std::string first = "first", next = "next";
  EXPECT_EQ(write({blockOf(first), {0, 10, 0}, blockOf(next)}),
            (Written{3, false,
                     descriptor(0, 5) + descriptor(0, GTRACE_NULL_ITEM) + descriptor(0, 4) +
                         "firstnext" + std::string(10, kUntouched)}));
}

TEST(TraceItems, ANullPointerOfNoLengthIsAnEmptyItem) {
  const std::string next = "next";
  EXPECT_EQ(write({{7, 0, 0}, blockOf(next)}),
            (Written{2, false, descriptor(7, 0) + descriptor(0, 4) + "next"}));
}

TEST(TraceItems, ItemsOfExactlyTheMostBytesAreWhole) {
  const std::string one = bytesOf(kMost - 8);
  EXPECT_EQ(write({blockOf(one)}), (Written{1, false, descriptor(0, kMost - 8) + one}));

  const std::string first = bytesOf(40'000), second = bytesOf(kMost - 40'000 - 16);
  EXPECT_EQ(
      write({blockOf(first), blockOf(second)}),
      (Written{2, false, descriptor(0, 40'000) + descriptor(0, kMost - 40'016) + first + second}));
}

TEST(TraceItems, OneByteMoreCutsTheLastItem) {
  const std::string one = bytesOf(kMost - 7);
  EXPECT_EQ(
      write({blockOf(one)}),
      (Written{1, true, descriptor(GTRACE_ITEM_TRUNCATED, kMost - 8) + one.substr(0, kMost - 8)}));

  const std::string first = bytesOf(40'000), second = bytesOf(kMost - 40'000 - 15);
  EXPECT_EQ(write({blockOf(first), blockOf(second)}),
            (Written{2, true,
                     descriptor(0, 40'000) + descriptor(GTRACE_ITEM_TRUNCATED, kMost - 40'016) +
                         first + second.substr(0, kMost - 40'016)}));
}

TEST(TraceItems, NothingFollowsACutItem) {
  const std::string one = bytesOf(70'000), next = "next";
  EXPECT_EQ(
      write({blockOf(one), blockOf(next)}),
      (Written{1, true, descriptor(GTRACE_ITEM_TRUNCATED, kMost - 8) + one.substr(0, kMost - 8)}));
}

// The last room that an item can begin in is that of its descriptor.
TEST(TraceItems, AnEmptyItemFitsIntoTheRoomOfItsDescriptor) {
  const std::string one = bytesOf(kMost - 16);
  EXPECT_EQ(write({blockOf(one), {3, 0, 0}}),
            (Written{2, false, descriptor(0, kMost - 16) + descriptor(3, 0) + one}));
  EXPECT_EQ(
      write({blockOf(one), valueOf(1, 4)}),
      (Written{2, true, descriptor(0, kMost - 16) + descriptor(GTRACE_ITEM_TRUNCATED, 0) + one}));
}

TEST(TraceItems, AnItemWithoutRoomForItsDescriptorIsDropped) {
  const std::string one = bytesOf(kMost - 15), next = "next";
  const Written alone = {1, false, descriptor(0, kMost - 15) + one};
  EXPECT_EQ(write({blockOf(one), blockOf(next)}), alone);
  EXPECT_EQ(write({blockOf(one), {0, 0, 0}}), alone);
}

TEST(TraceItems, MoreItemsThanThereIsRoomForAreDropped) {
  const Written written = write(std::vector<GTraceItemArgument>(9'000, {3, 0, 0}));
  EXPECT_EQ(written.count, 8'191u);  // 65,528 bytes; a further descriptor has no room
  EXPECT_FALSE(written.cut);
  std::string expected;
  for (int i = 0; i < 8'191; ++i) expected += descriptor(3, 0);
  EXPECT_EQ(written.bytes, expected);
}

TEST(TraceItems, ACutValueIsStillAValue) {
  constexpr uint32_t kRoom = kMost - 8;
  const Written written = write({valueOf(0x3837363534333231, 100'000, GTRACE_ITEM_VALUE_2)});
  EXPECT_EQ(written, (Written{1, true,
                              descriptor(GTRACE_ITEM_TRUNCATED, kRoom) + "12345678" +
                                  std::string(kRoom - 8, '\0')}));
}

TEST(TraceItems, ACutNullPointerIsANullItem) {
  const std::string first = "first";
  EXPECT_EQ(write({blockOf(first), {0, 70'000, 0}}),
            (Written{2, true,
                     descriptor(0, 5) + descriptor(GTRACE_ITEM_TRUNCATED, GTRACE_NULL_ITEM) +
                         "first" + std::string(kMost - 16 - 5, kUntouched)}));
}

// A sum of lengths that wraps would pass for a small one.
TEST(TraceItems, LengthsBeyond32BitsAreCutToo) {
  for (const uint64_t length :
       {uint64_t{1} << 32, (uint64_t{1} << 32) + 4, std::numeric_limits<uint64_t>::max(),
        std::numeric_limits<uint64_t>::max() - 7}) {
    const Written written = write({valueOf(1, 2), {0, length, 0}, valueOf(2, 2)});
    EXPECT_EQ(written.count, 2u);
    EXPECT_TRUE(written.cut);
    EXPECT_EQ(written.bytes.size(), kMost);
    EXPECT_EQ(written.bytes.substr(0, 18), descriptor(1, 2) +
                                               descriptor(GTRACE_ITEM_TRUNCATED, GTRACE_NULL_ITEM) +
                                               std::string("\1\0", 2));
    EXPECT_THAT(written.bytes.substr(18), Each(kUntouched));
  }
}

}  // namespace
