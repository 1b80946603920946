// Tests of the flattened mask, byte by byte.
#include <gtest/gtest.h>

#include "osscatalog.h"
#include "tests/trace/gtmmaskfixture.h"

using namespace oss::gtm_model;

namespace {

class GtmMaskReplicate : public MaskTest {
 protected:
  // Bytes that are not 0, by offset.
  std::map<size_t, int> flattened() {
    GTMask out;
    std::memset(&out, 0xA5, sizeof out);
    mask().gtmReplicateMask(&out);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&out);
    std::map<size_t, int> marks;
    for (size_t offset = 0; offset < sizeof out; ++offset)
      if (bytes[offset] != 0) marks[offset] = bytes[offset];
    return marks;
  }
};

using Marks = std::map<size_t, int>;
constexpr size_t kProducts = 2, kComponents = 6, kFunctions = 38, kClasses = 550;

TEST_F(GtmMaskReplicate, AnEmptyMaskIsAllZeros) { EXPECT_EQ(flattened(), Marks{}); }

TEST_F(GtmMaskReplicate, AFunctionIsItsBitsByComponentNumber) {
  ASSERT_TRUE(setType(1, 3, 171, 11));
  EXPECT_EQ(flattened(), (Marks{{1, 1 << 3},
                                {kProducts, 1 << 1},
                                {kComponents, 1 << 3},
                                {kFunctions + 21, 1 << 3},
                                {kClasses, 0xFF}}));
}

TEST_F(GtmMaskReplicate, ComponentsOfAllProductsShareTheirNumbers) {
  ASSERT_TRUE(setType(1, 2, 353, 1) && setType(2, 3, 5, 2) && setType(3, 183, 5, 14));
  EXPECT_EQ(flattened(), (Marks{{0, 1 << 1 | 1 << 2},
                                {1, 1 << 6},
                                {kProducts, 1 << 1 | 1 << 2 | 1 << 3},
                                {kComponents, 1 << 2 | 1 << 3},
                                {kComponents + 22, 1 << 7},
                                {kFunctions + 44, 1 << 1},
                                {kClasses, 0xFF}}));
}

TEST_F(GtmMaskReplicate, OfTheTypes1To14AreTaken) {
  ASSERT_TRUE(setType(1, 3, 5, kAll));
  EXPECT_EQ(flattened(), (Marks{{0, 0xFE},
                                {1, 0x7F},
                                {kProducts, 1 << 1},
                                {kComponents, 1 << 3},
                                {kFunctions, 1 << 5},
                                {kClasses, 0xFF}}));
}

TEST_F(GtmMaskReplicate, WithoutATypeThatIsTakenTheClassesAreEmpty) {
  ASSERT_TRUE(setType(1, 3, 5, 0) && setType(1, 3, 5, 15));
  EXPECT_EQ(flattened(), (Marks{{kProducts, 1 << 1}, {kComponents, 1 << 3}, {kFunctions, 1 << 5}}));
}

TEST_F(GtmMaskReplicate, AFunctionWithPointsAddsTypes3To11And13) {
  for (const uint64_t flags : {uint64_t{0}, GTM_EXCLUDED}) {  // an excluded one too
    mask().gtmClearMask();
    ASSERT_TRUE(setPoint(1, 3, 5, 10, flags));
    EXPECT_EQ(flattened(), (Marks{{0, 0xF8},
                                  {1, 0x2F},
                                  {kProducts, 1 << 1},
                                  {kComponents, 1 << 3},
                                  {kFunctions, 1 << 5},
                                  {kClasses, 0xFF}}));
  }
}

TEST_F(GtmMaskReplicate, PointsOfAnotherFunctionOfTheBucketDoNotCount) {
  ASSERT_TRUE(setType(1, 3, 5, 1) && setPoint(1, 4, 5, 10) && setPoint(1, 3, 1029, 10));
  EXPECT_EQ(flattened(), (Marks{{0, 1 << 1},
                                {kProducts, 1 << 1},
                                {kComponents, 1 << 3 | 1 << 4},
                                {kFunctions, 1 << 5},
                                {kClasses, 0xFF}}));
}

TEST_F(GtmMaskReplicate, WhatTheCatalogDoesNotHaveIsLeftOut) {
  ASSERT_TRUE(setType(0, 3, 5, 3) && setType(4, 3, 5, 3));        // products 1 to 3
  ASSERT_TRUE(setType(1, 0, 5, 3) && setType(1, 16, 5, 3));       // components 1 to 15
  ASSERT_TRUE(setType(2, 4, 5, 3) && setType(3, 184, 5, 3));      // 1 to 3, 1 to 183
  ASSERT_TRUE(setPoint(1, 3, 0, 10) && setPoint(1, 3, 174, 10));  // functions 1 to 173
  ASSERT_TRUE(setPoint(1, 2, 354, 10) && setPoint(1, 4, 1, 10));  // 1 to 353; none
  EXPECT_EQ(flattened(), (Marks{{kProducts, 0b1110}, {kComponents, 1 << 2 | 1 << 3 | 1 << 4}}));
}

TEST_F(GtmMaskReplicate, AFullMaskIsTheWholeCatalog) {
  ASSERT_TRUE(setType(kAll, kAll, kAll, kAll));
  Marks expected = {{0, 0xFE}, {1, 0x7F}, {kProducts, 0b1110}, {kClasses, 0xFF}};
  const auto mark = [&](size_t at, size_t end) {  // bits 1 to end - 1
    for (size_t bit = 1; bit < end; ++bit) expected[at + bit / 8] |= 1 << bit % 8;
  };
  mark(kComponents, 184);
  mark(kFunctions, 354);
  EXPECT_EQ(flattened(), expected);
}

TEST_F(GtmMaskReplicate, TheMaskStaysAsItIs) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setPoint(1, 3, 6, 10));
  const std::vector<uint8_t> before(bytesOf(mask()), bytesOf(mask()) + sizeof(GTM_TRC_MASK));
  flattened();
  EXPECT_TRUE(std::equal(before.begin(), before.end(), bytesOf(mask())));
}

}  // namespace
