// Tests of trace masks: what setting and deleting leave, and what the mask then answers.
#include <gtest/gtest.h>

#include "tests/trace/gtmmaskfixture.h"

using namespace oss::gtm_model;

namespace {

class GtmMask : public MaskTest {};

// The bytes of a component whose functions are all set.
void markWhole(std::map<size_t, int>& marks, size_t index, int types0, int types1) {
  const size_t record = kRecordsAt + kRecordBytes * index;
  if (types0 != 0) marks[record] = types0;
  if (types1 != 0) marks[record + 1] = types1;
  for (size_t byte = 2; byte < kRecordBytes; ++byte) marks[record + byte] = 0xFF;
}

// ---- Clearing ----

TEST_F(GtmMask, AClearedMaskHoldsNothing) {
  EXPECT_TRUE(isEmpty());
  EXPECT_EQ(faultOf(table()), "");
  EXPECT_FALSE(records(1, 3, 5, 3));
}

TEST_F(GtmMask, ClearingTakesEverythingAway) {
  ASSERT_TRUE(setType(kAll, kAll, kAll, kAll));
  ASSERT_TRUE(setPoint(1, 3, 5, 10, GTM_EXCLUDED));
  EXPECT_TRUE(mask().gtmClearMask());
  EXPECT_TRUE(isEmpty());
  EXPECT_EQ(table().excludedPoints, 0u);
  EXPECT_EQ(faultOf(table()), "");
}

TEST_F(GtmMask, AMaskOfZerosHoldsTypesButHasNoRoomForPoints) {
  std::memset(static_cast<void*>(&mask()), 0, sizeof(GTM_TRC_MASK));
  EXPECT_FALSE(records(1, 3, 5, 3));
  EXPECT_TRUE(setType(1, 3, 5, 3));
  EXPECT_TRUE(records(1, 3, 5, 3));
  EXPECT_FALSE(setPoint(1, 3, 5, 10));
}

// ---- Setting types ----

TEST_F(GtmMask, ATypeOfAFunctionIsFourBits) {
  EXPECT_TRUE(setType(1, 3, 171, 11));
  EXPECT_EQ(
      marks(),
      (std::map<size_t, int>{
          {0, 1 << 1}, {4, 1 << 4}, {recordAt(4) + 1, 1 << 3}, {recordAt(4) + 2 + 21, 1 << 3}}));
}

TEST_F(GtmMask, ComponentsAreNumberedThroughTheirProductsRanges) {
  ASSERT_TRUE(setType(1, 0, 0, 0) && setType(1, 31, 0, 0));
  ASSERT_TRUE(setType(2, 0, 0, 0) && setType(2, 31, 0, 0));
  ASSERT_TRUE(setType(3, 0, 0, 0) && setType(3, 190, 0, 0));
  std::map<size_t, int> expected = {
      {0, 0b1110}, {4, 1 << 1}, {4 + 4, 1 << 0 | 1 << 1}, {4 + 8, 0b11}, {4 + 31, 1 << 7}};
  for (const size_t index : {1u, 32u, 33u, 64u, 65u, 255u})
    expected[recordAt(index)] = expected[recordAt(index) + 2] = 1;
  EXPECT_EQ(marks(), expected);
}

TEST_F(GtmMask, TheLastComponentHasItsBitBehindTheBitmap) {
  EXPECT_TRUE(setType(3, 191, 4095, 15));
  EXPECT_EQ(marks(),
            (std::map<size_t, int>{
                {0, 1 << 3}, {36, 1}, {recordAt(256) + 1, 1 << 7}, {recordAt(256) + 513, 1 << 7}}));
  EXPECT_TRUE(mask().gtmIsCompInMask(3, 191));
  EXPECT_TRUE(records(3, 191, 4095, 15));
  EXPECT_TRUE(delType(3, 191, 4095, 15));
  EXPECT_TRUE(isEmpty());
}

TEST_F(GtmMask, AllTypesOfAFunctionAreSixteenBits) {
  for (const uint64_t all : {kAll, kOtherAll}) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(1, 3, 5, all));
    EXPECT_EQ(marks(), (std::map<size_t, int>{{0, 1 << 1},
                                              {4, 1 << 4},
                                              {recordAt(4), 0xFF},
                                              {recordAt(4) + 1, 0xFF},
                                              {recordAt(4) + 2, 1 << 5}}));
  }
}

TEST_F(GtmMask, AllFunctionsOfAComponentAreItsWholeBitmap) {
  for (const uint64_t all : {kAll, kOtherAll}) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(2, 3, all, 4));
    std::map<size_t, int> expected = {{0, 1 << 2}, {4 + 36 / 8, 1 << 36 % 8}};
    markWhole(expected, 36, 1 << 4, 0);
    EXPECT_EQ(marks(), expected);
  }
}

TEST_F(GtmMask, AllComponentsOfAProductAreThoseOfItsRange) {
  for (const uint64_t all : {kAll, kOtherAll}) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(2, all, 7, 13));  // whatever the function
    std::map<size_t, int> expected = {{0, 1 << 2}, {8, 0xFE},  {9, 0xFF},
                                      {10, 0xFF},  {11, 0xFF}, {12, 1}};
    for (size_t index = 33; index <= 64; ++index) markWhole(expected, index, 0, 1 << 5);
    EXPECT_EQ(marks(), expected);
  }
}

TEST_F(GtmMask, AllProductsAreEveryBitThatThereIs) {
  for (const uint64_t all : {kAll, kOtherAll}) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(all, 1, 7, kAll));  // whatever the component and the function
    std::map<size_t, int> expected = {{36, 1}};
    for (size_t byte = 0; byte < 36; ++byte) expected[byte] = 0xFF;
    for (size_t index = 1; index <= 256; ++index) markWhole(expected, index, 0xFF, 0xFF);
    EXPECT_EQ(marks(), expected);
  }
}

TEST_F(GtmMask, ATypeFromSixteenOnIsNotSetButItsFunctionIs) {
  for (const uint64_t type : {uint64_t{16}, uint64_t{0x100000003}, ~uint64_t{0} - 1}) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(1, 3, 5, type));
    EXPECT_EQ(marks(),
              (std::map<size_t, int>{{0, 1 << 1}, {4, 1 << 4}, {recordAt(4) + 2, 1 << 5}}));
    EXPECT_TRUE(setType(1, 3, kAll, type));
    EXPECT_FALSE(mask().gtmIsTypeInMask(1, 3, type));
    EXPECT_TRUE(setType(kAll, kAll, kAll, type));
    EXPECT_EQ(bytesOf(mask())[recordAt(4)], 0);
  }
}

// ---- What there is no room for ----

TEST_F(GtmMask, AFunctionFrom4096OnIsNotSet) {
  for (const uint64_t function : {uint64_t{4096}, uint64_t{65536 + 5}, uint64_t{1} << 32}) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(1, 3, function, 3));
    EXPECT_TRUE(setPoint(1, 3, function, 10));
    EXPECT_EQ(marks(), (std::map<size_t, int>{{0, 1 << 1}, {4, 1 << 4}}));
    EXPECT_EQ(table().points, 0u);
    EXPECT_FALSE(mask().gtmIsFuncInMask(1, 3, function));
    EXPECT_TRUE(delType(1, 3, function, 3));
    EXPECT_TRUE(isEmpty());
  }
}

TEST_F(GtmMask, AFunctionFrom4096OnIsNotRecordedWhateverIsSet) {
  ASSERT_TRUE(setType(kAll, kAll, kAll, kAll));
  EXPECT_TRUE(records(1, 3, 4095, 3));
  EXPECT_FALSE(records(1, 3, 4096, 3));
  EXPECT_FALSE(records(1, 3, 65535, 3));
}

TEST_F(GtmMask, DeletingAFunctionFrom4096OnLeavesTheOthersAlone) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setPoint(1, 3, 5, 10));
  const std::vector<uint8_t> before = bitmaps();
  for (const uint64_t function : {uint64_t{4096 + 5}, uint64_t{65536 + 5}})
    for (const uint64_t options : {uint64_t{0}, GTM_POINT})
      for (const uint64_t last : {uint64_t{3}, uint64_t{10}, kAll})
        EXPECT_TRUE(mask().gtmDelMask(1, 3, function, last, options));
  EXPECT_EQ(bitmaps(), before);
  EXPECT_EQ(table().points, 1u);
}

TEST_F(GtmMask, AComponentBehindTheLastRecordIsNotSet) {
  const uint64_t outside[][2] = {{1, 256},
                                 {2, 224},
                                 {3, 192},
                                 {3, 255},
                                 {3, ~uint64_t{0} - 1},
                                 {2, ~uint64_t{31}},
                                 {3, ~uint64_t{63}},
                                 {1, uint64_t{1} << 32}};
  for (const auto& [prod, comp] : outside) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(prod, comp, 5, 3)) << prod << ' ' << comp;
    EXPECT_TRUE(setType(prod, comp, kAll, 3));
    EXPECT_TRUE(setPoint(prod, comp, 5, 10));
    EXPECT_EQ(marks(), (std::map<size_t, int>{{0, 1 << prod}})) << prod << ' ' << comp;
    EXPECT_EQ(table().points, 0u);
    EXPECT_FALSE(mask().gtmIsCompInMask(prod, comp));
    EXPECT_FALSE(mask().gtmIsFuncInMask(prod, comp, 5));
    EXPECT_FALSE(mask().gtmIsTypeInMask(prod, comp, 3));
    EXPECT_TRUE(delType(prod, comp, 5, 3));
    EXPECT_TRUE(isEmpty()) << prod << ' ' << comp;
  }
}

// Deliberate: only the last record is the limit, not the product's own range.
TEST_F(GtmMask, AComponentBeyondItsProductLandsInTheNextOne) {
  EXPECT_TRUE(setType(1, 32 + 3, 5, 3));
  EXPECT_TRUE(records(1, 35, 5, 3));
  EXPECT_TRUE(mask().gtmIsCompInMask(2, 3));
  EXPECT_FALSE(records(2, 3, 5, 3));  // for product 2 itself is not set
}

TEST_F(GtmMask, PointsThatShareARecordAreTwoPoints) {
  ASSERT_TRUE(setPoint(1, 35, 5, 10) && setPoint(2, 3, 5, 10) && setPoint(2, 3, 5, 11));
  EXPECT_EQ(table().points, 3u);
  EXPECT_TRUE(delPoint(2, 3, 5, 10) && delPoint(2, 3, 5, 11));
  EXPECT_TRUE(records(1, 35, 5, 3, 10));
  EXPECT_TRUE(delType(2, 3, 5, kAll));  // their function is one
  EXPECT_TRUE(delType(1, 35, 5, kAll));
  EXPECT_TRUE(isEmpty());
}

TEST_F(GtmMask, AProductWithoutComponentsIsItsBitAlone) {
  for (const uint64_t prod : {0u, 4u, 31u}) {
    mask().gtmClearMask();
    EXPECT_TRUE(setType(prod, 3, 5, 3));
    EXPECT_TRUE(setType(prod, kAll, 5, 3));
    EXPECT_TRUE(setPoint(prod, 3, 5, 10));
    EXPECT_EQ(marks(), (std::map<size_t, int>{{prod / 8, 1 << prod % 8}}));
    EXPECT_EQ(table().points, 0u);
    EXPECT_FALSE(records(prod, 3, 5, 3, 10));
    EXPECT_TRUE(delType(prod, kAll, kAll, 3));
    EXPECT_TRUE(isEmpty());
  }
}

TEST_F(GtmMask, AProductFrom32OnIsNothing) {
  for (const uint64_t prod : {uint64_t{32}, uint64_t{1} << 32 | 1, ~uint64_t{0} - 1}) {
    EXPECT_TRUE(setType(prod, 3, 5, 3));
    EXPECT_TRUE(setType(prod, kAll, kAll, 3));
    EXPECT_TRUE(setPoint(prod, 3, 5, 10));
    EXPECT_TRUE(delType(prod, kAll, kAll, kAll));
    EXPECT_TRUE(isEmpty());
  }
}

// ---- Deleting types ----

TEST_F(GtmMask, DeletingIsTheInverseOfSetting) {
  const uint64_t scopes[][3] = {{1, 3, 5},       {3, 191, 4095},     {1, 3, kAll},
                                {3, kAll, kAll}, {kAll, kAll, kAll}, {kOtherAll, 1, 1}};
  for (const auto& [prod, comp, func] : scopes)
    for (const uint64_t type : {uint64_t{0}, uint64_t{3}, uint64_t{15}, uint64_t{16}, kAll}) {
      ASSERT_TRUE(setType(prod, comp, func, type));
      EXPECT_FALSE(isEmpty());
      EXPECT_TRUE(delType(prod, comp, func, type));
      EXPECT_TRUE(isEmpty()) << prod << ' ' << comp << ' ' << func << ' ' << type;
    }
}

TEST_F(GtmMask, DeletingOneOfTwoTypesLeavesTheOther) {
  const uint64_t scopes[][3] = {{1, 3, 5}, {1, 3, kAll}, {3, kAll, kAll}};
  for (const auto& [prod, comp, func] : scopes) {
    mask().gtmClearMask();
    ASSERT_TRUE(setType(prod, comp, func, 4));
    const std::vector<uint8_t> before = bitmaps();
    ASSERT_TRUE(setType(prod, comp, func, 3));
    EXPECT_TRUE(delType(prod, comp, func, 3));
    EXPECT_EQ(bitmaps(), before);
  }
}

// Deliberate: the functions of a component share its types.
TEST_F(GtmMask, DeletingOneTypeOfOneFunctionChangesNothingWhileOthersRemain) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setType(1, 3, 6, 4) && setPoint(1, 3, 5, 10));
  const std::vector<uint8_t> before = bitmaps();
  EXPECT_TRUE(delType(1, 3, 5, 3));
  EXPECT_TRUE(delType(1, 3, 6, 4));
  EXPECT_TRUE(delType(1, 3, 7, 3));  // nor of one that is not there
  EXPECT_EQ(bitmaps(), before);
  EXPECT_EQ(table().points, 1u);
  EXPECT_TRUE(records(1, 3, 6, 3));
}

TEST_F(GtmMask, ThatHoldsBeyondTheProductsRangeToo) {
  ASSERT_TRUE(setType(1, 35, 5, 3) && setType(1, 35, 6, 3));
  const std::vector<uint8_t> before = bitmaps();
  EXPECT_TRUE(delType(1, 35, 5, 3));
  EXPECT_EQ(bitmaps(), before);
}

TEST_F(GtmMask, DeletingAllTypesOfOneFunctionTakesItAndItsPointsAway) {
  ASSERT_TRUE(setType(1, 3, 6, 4));
  const std::vector<uint8_t> before = bitmaps();
  ASSERT_TRUE(setType(1, 3, 5, 4) && setPoint(1, 3, 5, 10) && setPoint(1, 3, 5, 11, GTM_EXCLUDED));
  ASSERT_TRUE(setPoint(1, 3, 6, 10));
  EXPECT_TRUE(delType(1, 3, 5, kOtherAll));
  EXPECT_EQ(bitmaps(), before);
  EXPECT_EQ(pointsIn(table()), (Points{{{idOf(1, 3, 6), 10}, 0}}));
  EXPECT_EQ(table().excludedPoints, 0u);
}

TEST_F(GtmMask, TheLastFunctionTakesTheTypesAlong) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && delType(1, 3, 5, kAll));
  ASSERT_TRUE(setType(1, 3, 6, 4));
  EXPECT_TRUE(records(1, 3, 6, 4));
  EXPECT_FALSE(records(1, 3, 6, 3));
}

TEST_F(GtmMask, AFunctionWithPointsOutlivesItsLastType) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setPoint(1, 3, 5, 10));
  EXPECT_TRUE(delType(1, 3, 5, 3));
  EXPECT_FALSE(mask().gtmIsTypeInMask(1, 3, 3));
  EXPECT_TRUE(records(1, 3, 5, 3, 10));
  EXPECT_FALSE(records(1, 3, 5, 3, 11));
}

TEST_F(GtmMask, AComponentKeepsTheFunctionsThatHavePoints) {
  ASSERT_TRUE(setType(1, 3, kAll, 3) && setPoint(1, 3, 5, 10));
  EXPECT_TRUE(delType(1, 3, kAll, 3));
  EXPECT_EQ(marks(), (std::map<size_t, int>{{0, 1 << 1}, {4, 1 << 4}, {recordAt(4) + 2, 1 << 5}}));
}

TEST_F(GtmMask, DeletingAllOfAComponentTakesItsPointsAwayAndNoOthers) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 3, 1029, 10) && setPoint(1, 4, 5, 10));
  EXPECT_TRUE(delType(1, 3, kAll, kAll));
  EXPECT_FALSE(mask().gtmIsCompInMask(1, 3));
  EXPECT_EQ(pointsIn(table()), (Points{{{idOf(1, 4, 5), 10}, 0}}));
}

TEST_F(GtmMask, DeletingAllOfAProductTakesItsPointsAwayAndNoOthers) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 31, 5, 10) && setPoint(2, 3, 5, 10));
  EXPECT_TRUE(delType(1, kOtherAll, 7, kAll));
  EXPECT_EQ(bytesOf(mask())[0], 1 << 2);
  EXPECT_EQ(pointsIn(table()), (Points{{{idOf(2, 3, 5), 10}, 0}}));
}

TEST_F(GtmMask, DeletingEverythingClearsTheMask) {
  ASSERT_TRUE(setType(kAll, kAll, kAll, 3) && setPoint(1, 3, 5, 10));
  EXPECT_TRUE(delType(kOtherAll, 1, 5, kAll));
  EXPECT_TRUE(isEmpty());
  EXPECT_EQ(faultOf(table()), "");
}

TEST_F(GtmMask, DeletingOneTypeOfAllProductsKeepsWhatHasPoints) {
  ASSERT_TRUE(setType(kAll, kAll, kAll, 3) && setPoint(2, 3, 5, 10));
  EXPECT_TRUE(delType(kAll, kAll, kAll, 3));
  EXPECT_EQ(marks(), (std::map<size_t, int>{
                         {0, 1 << 2}, {4 + 36 / 8, 1 << 36 % 8}, {recordAt(36) + 2, 1 << 5}}));
}

TEST_F(GtmMask, AComponentAndAProductStayWhileOthersBelowThemDo) {
  ASSERT_TRUE(setType(1, 3, 5, 3) && setType(1, 4, 5, 3) && setType(2, 3, 5, 3));
  EXPECT_TRUE(delType(1, 3, 5, 3));
  EXPECT_FALSE(mask().gtmIsCompInMask(1, 3));
  EXPECT_TRUE(mask().gtmIsCompInMask(1, 4));
  EXPECT_EQ(bytesOf(mask())[0], 1 << 1 | 1 << 2);
  EXPECT_TRUE(delType(1, 4, 5, 3));
  EXPECT_EQ(bytesOf(mask())[0], 1 << 2);
}

}  // namespace
