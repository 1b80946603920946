// Tests of what a mask has recorded: points, levels, single bits and full bitmaps.
#include <gtest/gtest.h>

#include "osscatalog.h"
#include "tests/trace/gtmmaskfixture.h"

using namespace oss::gtm_model;

namespace {

constexpr uint16_t kPointTypes[] = {3, 4, 5, 11, 13};
constexpr uint16_t kOtherTypes[] = {0, 1, 2, 6, 7, 8, 9, 10, 12, 14, 15};

class GtmMaskRecording : public MaskTest {};

// ---- Points ----

TEST_F(GtmMaskRecording, WithPointsOnlyExactlyTheyAreRecorded) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 3, 6, 65535));
  for (uint16_t type = 0; type < 20; ++type) {
    EXPECT_TRUE(records(1, 3, 5, type, 10)) << type;
    EXPECT_TRUE(records(1, 3, 6, type, 65535)) << type;
    EXPECT_FALSE(records(1, 3, 5, type, 11)) << type;
    EXPECT_FALSE(records(1, 3, 6, type, 10)) << type;
    EXPECT_FALSE(records(1, 3, 1029, type, 10)) << type;
    EXPECT_FALSE(records(1, 4, 5, type, 10)) << type;
  }
}

TEST_F(GtmMaskRecording, OnlyPointModeMakesPoints) {
  EXPECT_TRUE(mask().gtmSetMask(1, 3, 5, 10, ~GTM_POINT, GTM_EXCLUDED));
  EXPECT_EQ(table().points, 0u);
  EXPECT_TRUE(mask().gtmIsTypeInMask(1, 3, 10));
  EXPECT_TRUE(mask().gtmSetMask(1, 3, 5, 11, ~uint64_t{0}, 0));
  EXPECT_EQ(table().points, 1u);
  EXPECT_FALSE(mask().gtmIsTypeInMask(1, 3, 11));
  EXPECT_TRUE(mask().gtmDelMask(1, 3, 5, 11, ~uint64_t{0}));
  EXPECT_EQ(table().points, 0u);
}

TEST_F(GtmMaskRecording, InPointModeAllSetsNothingBelow) {
  EXPECT_TRUE(setPoint(kAll, kAll, kAll, 3));
  EXPECT_TRUE(isEmpty());
  EXPECT_TRUE(setPoint(1, kAll, kAll, 3));
  EXPECT_EQ(marks(), (std::map<size_t, int>{{0, 1 << 1}}));
  EXPECT_TRUE(setPoint(1, 3, kAll, 3));
  EXPECT_EQ(marks(), (std::map<size_t, int>{{0, 1 << 1}, {4, 1 << 4}}));
}

TEST_F(GtmMaskRecording, InPointModeAllDeletesNothingBelow) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setPoint(1, 3, 5, 10));
  const std::vector<uint8_t> before = bitmaps();
  for (const uint64_t last : {uint64_t{3}, uint64_t{10}, kAll}) {
    EXPECT_TRUE(delPoint(kAll, kAll, kAll, last));
    EXPECT_TRUE(delPoint(1, kAll, kAll, last));
    EXPECT_TRUE(delPoint(1, 3, kAll, last));
  }
  EXPECT_EQ(bitmaps(), before);
  EXPECT_EQ(pointsIn(table()), (Points{{{idOf(1, 3, 5), 10}, 0}}));
}

TEST_F(GtmMaskRecording, TheLastPointTakesItsFunctionAlong) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 3, 5, 11));
  EXPECT_TRUE(delPoint(1, 3, 5, 10));
  EXPECT_TRUE(mask().gtmIsFuncInMask(1, 3, 5));
  EXPECT_TRUE(delPoint(1, 3, 5, 11));
  EXPECT_TRUE(isEmpty());
}

TEST_F(GtmMaskRecording, AFunctionOutlivesItsLastPointWhileItsComponentHasATypeLeft) {
  ASSERT_TRUE(setType(1, 3, 5, 1) && setPoint(1, 3, 5, 10));
  EXPECT_TRUE(delPoint(1, 3, 5, 10));
  EXPECT_TRUE(mask().gtmIsFuncInMask(1, 3, 5));
  EXPECT_EQ(table().points, 0u);
}

TEST_F(GtmMaskRecording, APointIsCutOutOfAFunctionThatIsRecordedAsAWhole) {
  for (const uint16_t type : kPointTypes) {
    mask().gtmClearMask();
    ASSERT_TRUE(setType(1, 3, 5, type));
    EXPECT_TRUE(delPoint(1, 3, 5, 10));
    EXPECT_EQ(pointsIn(table()), (Points{{{idOf(1, 3, 5), 10}, GTM_EXCLUDED}}));
    EXPECT_EQ(table().excludedPoints, 1u);
    EXPECT_FALSE(records(1, 3, 5, type, 10));
    EXPECT_TRUE(records(1, 3, 5, type, 11));
  }
}

TEST_F(GtmMaskRecording, APointIsNotCutOutWhenNoTypeOfPointsIsRecorded) {
  for (const uint16_t type : kOtherTypes) ASSERT_TRUE(setType(1, 3, 5, type));
  EXPECT_TRUE(delPoint(1, 3, 5, 10));
  EXPECT_EQ(table().points, 0u);
}

TEST_F(GtmMaskRecording, APointIsNotCutOutOfWhatIsNotInTheMask) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setType(1, 35, 5, 3));
  const std::vector<uint8_t> before = bitmaps();
  EXPECT_TRUE(delPoint(1, 3, 6, 10));    // the function is not
  EXPECT_TRUE(delPoint(1, 4, 5, 10));    // nor the component
  EXPECT_TRUE(delPoint(2, 3, 5, 10));    // nor the product, although its component's record is
  EXPECT_TRUE(delPoint(3, 200, 5, 10));  // nor can it be
  EXPECT_EQ(table().points, 0u);
  EXPECT_EQ(bitmaps(), before);
}

TEST_F(GtmMaskRecording, DeletingAnExcludedPointTakesTheExclusionAway) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && delPoint(1, 3, 5, 10));
  EXPECT_TRUE(delPoint(1, 3, 5, 10));
  EXPECT_EQ(table().points, 0u);
  EXPECT_EQ(table().excludedPoints, 0u);
  EXPECT_TRUE(records(1, 3, 5, 3, 10));
}

TEST_F(GtmMaskRecording, OnlyTypesOfPointsAreCutOut) {
  ASSERT_TRUE(setType(1, 3, 5, kAll) && setPoint(1, 3, 5, 10, GTM_EXCLUDED));
  for (const uint16_t type : kPointTypes) EXPECT_FALSE(records(1, 3, 5, type, 10)) << type;
  for (const uint16_t type : kOtherTypes) EXPECT_TRUE(records(1, 3, 5, type, 10)) << type;
}

TEST_F(GtmMaskRecording, AnExcludedPointIsNotRecordedForATypeThatIsNotSetEither) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10, GTM_EXCLUDED));
  for (uint16_t type = 0; type < 20; ++type) EXPECT_FALSE(records(1, 3, 5, type, 10)) << type;
}

TEST_F(GtmMaskRecording, AnIncludedPointIsRecordedBesideAnExcludedOne) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setPoint(1, 3, 5, 10) && delPoint(1, 3, 5, 11));
  EXPECT_TRUE(records(1, 3, 5, 3, 10));
  EXPECT_TRUE(records(1, 3, 5, 4, 10));  // a type that is not set
  EXPECT_FALSE(records(1, 3, 5, 3, 11));
  EXPECT_FALSE(records(1, 3, 5, 4, 12));
}

// ---- Testing ----

TEST_F(GtmMaskRecording, TheKindBitsOfAnIdentifierDoNotMatter) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10));
  for (uint32_t kind = 0; kind < 8; ++kind)
    EXPECT_TRUE(mask().gtmIsElemInMask(idOf(1, 3, 5) | kind << 16, 3, 10)) << kind;
}

TEST_F(GtmMaskRecording, EachLevelDecides) {
  ASSERT_TRUE(setType(1, 3, 5, 3));
  EXPECT_TRUE(records(1, 3, 5, 3));
  EXPECT_FALSE(records(1, 3, 5, 4));
  EXPECT_FALSE(records(1, 3, 5, 16 + 3));
  EXPECT_FALSE(records(1, 3, 6, 3));
  EXPECT_FALSE(records(1, 4, 5, 3));
  EXPECT_FALSE(records(2, 3, 5, 3));
  ASSERT_TRUE(setType(2, 4, 5, 3));
  EXPECT_FALSE(records(2, 3, 5, 3));
}

TEST_F(GtmMaskRecording, AComponentWithoutItsBitIsNotRecordedWhateverItsRecordHolds) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setType(1, 4, 5, 3));
  reinterpret_cast<uint8_t*>(&mask())[4] = 1 << 5;  // component 4 alone
  EXPECT_FALSE(records(1, 3, 5, 3));
  EXPECT_TRUE(records(1, 4, 5, 3));
  EXPECT_FALSE(mask().gtmIsCompInMask(1, 3));
  EXPECT_TRUE(mask().gtmIsFuncInMask(1, 3, 5));  // each of these is one bit
  EXPECT_TRUE(mask().gtmIsTypeInMask(1, 3, 3));
}

TEST_F(GtmMaskRecording, SingleBitsAreTested) {
  ASSERT_TRUE(setType(3, 191, 4095, 15));
  EXPECT_TRUE(mask().gtmIsCompInMask(3, 191));
  EXPECT_FALSE(mask().gtmIsCompInMask(3, 190));
  EXPECT_TRUE(mask().gtmIsFuncInMask(3, 191, 4095));
  EXPECT_FALSE(mask().gtmIsFuncInMask(3, 191, 4094));
  EXPECT_TRUE(mask().gtmIsTypeInMask(3, 191, 15));
  EXPECT_FALSE(mask().gtmIsTypeInMask(3, 191, 14));
}

TEST_F(GtmMaskRecording, AllIsNoNumberToTestFor) {
  ASSERT_TRUE(setType(kAll, kAll, kAll, kAll));
  for (const uint64_t all : {kAll, kOtherAll, ~uint64_t{0}}) {
    for (const uint64_t prod : {1u, 2u, 3u}) EXPECT_FALSE(mask().gtmIsCompInMask(prod, all));
    EXPECT_FALSE(mask().gtmIsCompInMask(all, 3));
    EXPECT_FALSE(mask().gtmIsFuncInMask(1, 3, all));
    EXPECT_FALSE(mask().gtmIsTypeInMask(1, 3, all));
    EXPECT_FALSE(mask().gtmIsFuncMaskFull(1, all));
    EXPECT_FALSE(mask().gtmIsTypeMaskFull(1, all));
  }
}

// ---- Full ----

TEST_F(GtmMaskRecording, TheProductsAreFullWithAll32) {
  for (uint64_t prod = 0; prod < 32; ++prod) {
    EXPECT_FALSE(mask().gtmIsProdMaskFull()) << prod;
    ASSERT_TRUE(setType(prod, kAll, kAll, 3));
  }
  EXPECT_TRUE(mask().gtmIsProdMaskFull());
}

TEST_F(GtmMaskRecording, TheComponentsAreFullWithThoseOfTheCatalogButItsLastSlot) {
  for (uint64_t prod = 1; prod <= 3; ++prod) {
    const uint32_t count = ecfGetNumComponents(static_cast<uint32_t>(prod));
    for (uint64_t comp = 1; comp < count; ++comp) {
      EXPECT_FALSE(mask().gtmIsCompMaskFull(prod)) << prod << ' ' << comp;
      ASSERT_TRUE(setPoint(prod, comp, kAll, 0));  // the component's bit alone
    }
    EXPECT_TRUE(mask().gtmIsCompMaskFull(prod)) << prod;
    EXPECT_FALSE(mask().gtmIsCompInMask(prod, count)) << prod;
  }
}

TEST_F(GtmMaskRecording, TheComponentsOfNoProductAreFull) {
  for (const uint64_t prod :
       {uint64_t{0}, uint64_t{4}, uint64_t{31}, uint64_t{32}, (uint64_t{1} << 32) + 1, kAll})
    EXPECT_TRUE(mask().gtmIsCompMaskFull(prod)) << prod;
}

TEST_F(GtmMaskRecording, TheFunctionsAreFullWithAll4096) {
  for (uint64_t func = 0; func < 4096; ++func) {
    EXPECT_FALSE(mask().gtmIsFuncMaskFull(1, 3));
    ASSERT_TRUE(setType(1, 3, func, 3));
  }
  EXPECT_TRUE(mask().gtmIsFuncMaskFull(1, 3));
  EXPECT_FALSE(mask().gtmIsFuncMaskFull(1, 2));
  EXPECT_FALSE(mask().gtmIsFuncMaskFull(4, 3));
}

TEST_F(GtmMaskRecording, TheTypesAreFullWithAllSixteen) {
  for (uint64_t type = 0; type < 16; ++type) {
    EXPECT_FALSE(mask().gtmIsTypeMaskFull(1, 3));
    ASSERT_TRUE(setType(1, 3, 5, type));
  }
  EXPECT_TRUE(mask().gtmIsTypeMaskFull(1, 3));
  EXPECT_FALSE(mask().gtmIsTypeMaskFull(1, 2));
  EXPECT_FALSE(mask().gtmIsTypeMaskFull(4, 3));
}

}  // namespace
