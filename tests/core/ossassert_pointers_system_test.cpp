// Whether memory can be touched: what is bad without asking, what the system is asked, and its
// answers at the borders of pages.
#include <gmock/gmock.h>
#include <windows.h>

#include <bit>
#include <cstring>
#include <utility>
#include <vector>

#include "harness/importhook.h"
#include "harness/twopages.h"
#include "ossassert.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr uint64_t kPage = TwoPages::kBytes;
constexpr uint64_t kMost64 = ~uint64_t{0};

void* at(uint64_t address) { return std::bit_cast<void*>(address); }
const char* textAt(uint64_t address) { return std::bit_cast<const char*>(address); }

// Answers a question to the system with "not bad" and notes it.
class Question {
 public:
  explicit Question(const char* function)
      : hook_(function, [this](Call& call) {
          asked.emplace_back(call.argument<uint64_t>(0), call.argument<uint64_t>(1));
          return FALSE;
        }) {}

  std::vector<std::pair<uint64_t, uint64_t>> asked;  // address and size

 private:
  ImportHook hook_;
};

// ---- What the system is asked ----

TEST(BadPointer, BelowTheFirstPageEverythingIsBadWithoutAsking) {
  CallCounter reads("IsBadReadPtr"), writes("IsBadWritePtr"), strings("IsBadStringPtrA");
  for (const uint64_t address : {uint64_t{0}, uint64_t{1}, uint64_t{4095}}) {
    EXPECT_NE(ossIsBadReadPtr(at(address), 1), 0);
    EXPECT_NE(ossIsBadWritePtr(at(address), 1, true), 0);
    EXPECT_NE(ossIsBadWritePtr(at(address), 1, false), 0);
    EXPECT_NE(ossIsBadString(textAt(address), 1), 0);
  }
  EXPECT_EQ(reads.calls() + writes.calls() + strings.calls(), 0);
}

TEST(BadPointer, NoBytesAreBadWithoutAsking) {
  CallCounter reads("IsBadReadPtr"), writes("IsBadWritePtr"), strings("IsBadStringPtrA");
  char valid[] = "valid";
  EXPECT_NE(ossIsBadReadPtr(valid, 0), 0);
  EXPECT_NE(ossIsBadWritePtr(valid, 0, true), 0);
  EXPECT_NE(ossIsBadWritePtr(valid, 0, false), 0);
  EXPECT_NE(ossIsBadString(valid, 0), 0);
  EXPECT_EQ(reads.calls() + writes.calls() + strings.calls(), 0);
}

TEST(BadPointer, FromTheFirstPageOnTheSystemIsAsked) {
  Question read("IsBadReadPtr"), write("IsBadWritePtr"), string("IsBadStringPtrA");
  EXPECT_EQ(ossIsBadReadPtr(at(4096), 1), 0);
  EXPECT_EQ(ossIsBadWritePtr(at(4097), 2, true), 0);
  EXPECT_EQ(ossIsBadString(textAt(kMost64), 3), 0);
  EXPECT_THAT(read.asked, ElementsAre(Pair(4096, 1)));
  EXPECT_THAT(write.asked, ElementsAre(Pair(4097, 2)));
  EXPECT_THAT(string.asked, ElementsAre(Pair(kMost64, 3)));
}

TEST(BadPointer, OnlyTheLow32BitsOfASizeAreAskedFor) {
  Question read("IsBadReadPtr"), write("IsBadWritePtr"), string("IsBadStringPtrA");
  for (const uint64_t size : {uint64_t{0xFFFFFFFF}, (uint64_t{3} << 32) + 5, kMost64}) {
    EXPECT_EQ(ossIsBadReadPtr(at(4096), size), 0);
    EXPECT_EQ(ossIsBadWritePtr(at(4096), size, true), 0);
    EXPECT_EQ(ossIsBadString(textAt(4096), size), 0);
  }
  const auto lowBits = ElementsAre(Pair(4096, 0xFFFFFFFF), Pair(4096, 5), Pair(4096, 0xFFFFFFFF));
  EXPECT_THAT(read.asked, lowBits);
  EXPECT_THAT(write.asked, lowBits);
  EXPECT_THAT(string.asked, lowBits);
}

// What is left of the size is 0, of which the system finds nothing bad.
TEST(BadPointer, ASizeOfTwoToThe32IsNotBad) {
  constexpr uint64_t kSize = uint64_t{1} << 32;
  char valid[] = "valid";
  EXPECT_EQ(ossIsBadReadPtr(valid, kSize), 0);
  EXPECT_EQ(ossIsBadWritePtr(valid, kSize, true), 0);
  EXPECT_EQ(ossIsBadString(valid, kSize), 0);
}

TEST(BadPointer, WithoutForWriteOnlyReadingIsAskedFor) {
  CallCounter writes("IsBadWritePtr");
  Question read("IsBadReadPtr");
  EXPECT_EQ(ossIsBadWritePtr(at(4096), 7, false), 0);
  EXPECT_THAT(read.asked, ElementsAre(Pair(4096, 7)));
  EXPECT_EQ(writes.calls(), 0);
}

// ---- What it answers ----

TEST(BadPointer, ReadingEndsAtAPageWithoutAccess) {
  const TwoPages pages(PAGE_NOACCESS);
  EXPECT_EQ(ossIsBadReadPtr(pages.first(), kPage), 0);
  EXPECT_EQ(ossIsBadReadPtr(pages.second() - 1, 1), 0);
  EXPECT_NE(ossIsBadReadPtr(pages.second() - 1, 2), 0);
  EXPECT_NE(ossIsBadReadPtr(pages.first(), kPage + 1), 0);
  EXPECT_NE(ossIsBadReadPtr(pages.second(), 1), 0);
}

TEST(BadPointer, WritingEndsAtAReadOnlyPage) {
  const TwoPages pages(PAGE_READONLY);
  EXPECT_EQ(ossIsBadWritePtr(pages.first(), kPage, true), 0);
  EXPECT_NE(ossIsBadWritePtr(pages.first(), kPage + 1, true), 0);
  EXPECT_NE(ossIsBadWritePtr(pages.second(), 1, true), 0);
  EXPECT_EQ(ossIsBadReadPtr(pages.first(), 2 * kPage), 0);
  EXPECT_EQ(ossIsBadWritePtr(pages.first(), 2 * kPage, false), 0);
}

TEST(BadPointer, WritingEndsAtAPageWithoutAccess) {
  const TwoPages pages(PAGE_NOACCESS);
  EXPECT_EQ(ossIsBadWritePtr(pages.second() - 8, 8, true), 0);
  EXPECT_NE(ossIsBadWritePtr(pages.second() - 8, 9, true), 0);
  EXPECT_NE(ossIsBadWritePtr(pages.second(), 1, false), 0);
}

TEST(BadPointer, AskingDoesNotChangeTheMemory) {
  const TwoPages pages(PAGE_READWRITE);
  EXPECT_EQ(ossIsBadWritePtr(pages.first(), 2 * kPage, true), 0);
  EXPECT_THAT(std::vector<char>(pages.first(), pages.first() + 2 * kPage), Each('x'));
}

TEST(BadPointer, AStringMayEndAtItsNulOrItsMostCharacters) {
  const TwoPages pages(PAGE_NOACCESS);
  char* const text = pages.second() - 4;  // "xxxx"
  EXPECT_EQ(ossIsBadString(text, 4), 0);
  EXPECT_NE(ossIsBadString(text, 5), 0);
  EXPECT_NE(ossIsBadString(text, kMost64), 0);
  EXPECT_NE(ossIsBadString(pages.second(), 1), 0);

  text[3] = '\0';
  EXPECT_EQ(ossIsBadString(text, 5), 0);
  EXPECT_EQ(ossIsBadString(text, kMost64), 0);
}

TEST(BadPointer, NothingIsThereAtOnes) {
  EXPECT_NE(ossIsBadReadPtr(at(kMost64), 1), 0);
  EXPECT_NE(ossIsBadWritePtr(at(kMost64), 1, true), 0);
  EXPECT_NE(ossIsBadString(textAt(kMost64), 1), 0);
}

}  // namespace
