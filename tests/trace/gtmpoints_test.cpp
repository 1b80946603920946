// Tests of the table of points inside a mask: which node a point takes, and where it goes back to.
#include "trace/gtmpoints.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/trace/gtmmaskfixture.h"

using namespace oss::gtm_model;

namespace {

using Nodes = std::vector<uint16_t>;

class GtmMaskPoints : public MaskTest {
 protected:
  ~GtmMaskPoints() override { EXPECT_EQ(faultOf(table()), ""); }

  Nodes chain(uint32_t bucket) const { return chainFrom(table(), table().buckets[bucket]); }

  Nodes firstFree(size_t count) const {
    Nodes nodes = freeNodes(table());
    nodes.resize(count);
    return nodes;
  }

  // 1,999 points: probes 0 to 1998 of function 5.
  void fillTable() {
    for (uint64_t probe = 0; probe < kRoomForPoints; ++probe) ASSERT_TRUE(setPoint(1, 3, 5, probe));
  }
};

TEST_F(GtmMaskPoints, ClearingChainsEveryNodeButTheLastToTheNext) {
  for (uint32_t node = 0; node < 1999; ++node) {
    EXPECT_EQ(table().nodes[node].next, node + 1);
    EXPECT_EQ(table().nodes[node].key, 0u);
    EXPECT_EQ(table().nodes[node].flags, 0u);
    EXPECT_EQ(table().nodes[node].probe, 0u);
  }
  EXPECT_EQ(table().nodes[1999].next, 0);
  EXPECT_EQ(table().firstFree, 1);
  for (const uint16_t bucket : table().buckets) EXPECT_EQ(bucket, 0);
  EXPECT_EQ(table().points, 0u);
  EXPECT_EQ(table().excludedPoints, 0u);

  Nodes all(1999);
  std::iota(all.begin(), all.end(), uint16_t{1});
  EXPECT_EQ(freeNodes(table()), all);
}

TEST_F(GtmMaskPoints, APointTakesTheFirstFreeNode) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10, 0xABCD'0000'0000'0001));
  const GTMPoint& point = table().nodes[1];
  EXPECT_EQ(point.key, 0x08180005u);
  EXPECT_EQ(point.unused, 0u);
  EXPECT_EQ(point.flags, 0xABCD'0000'0000'0001u);
  EXPECT_EQ(point.probe, 10);
  EXPECT_EQ(point.next, 0);
  EXPECT_EQ(table().buckets[5], 1);
  EXPECT_EQ(table().firstFree, 2);
  EXPECT_EQ(table().points, 1u);
}

TEST_F(GtmMaskPoints, OfAProbe16BitsCount) {
  ASSERT_TRUE(setPoint(1, 3, 5, 0xFFFF'0003'000A));
  EXPECT_EQ(table().nodes[1].probe, 10);
  ASSERT_TRUE(delPoint(1, 3, 5, 0x1'000A));
  EXPECT_EQ(table().points, 0u);
}

TEST_F(GtmMaskPoints, ANewPointComesFirstInTheChainOfItsBucket) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 3, 5, 11) && setPoint(1, 3, 1029, 10));
  ASSERT_TRUE(setPoint(3, 191, 5 + 3072, 10) && setPoint(1, 3, 1023, 10));
  EXPECT_EQ(chain(5), (Nodes{4, 3, 2, 1}));
  EXPECT_EQ(chain(1023), (Nodes{5}));
  EXPECT_EQ(firstFree(2), (Nodes{6, 7}));
}

TEST_F(GtmMaskPoints, ARemovedPointLeavesItsChainWholeAndIsTheNextToBeTaken) {
  const uint16_t removed[] = {13, 11, 10};  // the chain's first, a middle one and the last
  const Nodes chains[] = {{3, 2, 1}, {3, 1}, {3}};
  for (uint16_t probe = 10; probe < 14; ++probe) ASSERT_TRUE(setPoint(1, 3, 5, probe));
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(delPoint(1, 3, 5, removed[i]));
    EXPECT_EQ(chain(5), chains[i]);
  }
  EXPECT_EQ(firstFree(5), (Nodes{1, 2, 4, 5, 6}));
  EXPECT_EQ(table().nodes[4].key, 0u);
  EXPECT_EQ(table().nodes[4].flags, 0u);
  EXPECT_EQ(table().nodes[4].probe, 0u);

  ASSERT_TRUE(setPoint(1, 3, 6, 10));
  EXPECT_EQ(chain(6), (Nodes{1}));
}

TEST_F(GtmMaskPoints, TheFunctionOfAChainGoesWithoutTheOthers) {
  for (const uint64_t probe : {10u, 11u, 12u}) {
    ASSERT_TRUE(setPoint(1, 3, 5, probe) && setPoint(1, 3, 1029, probe));
    ASSERT_TRUE(setPoint(1, 4, 5, probe));
  }
  EXPECT_TRUE(delType(1, 3, 5, kAll));
  EXPECT_EQ(chain(5), (Nodes{9, 8, 6, 5, 3, 2}));
  EXPECT_EQ(firstFree(4), (Nodes{1, 4, 7, 10}));
  EXPECT_EQ(table().points, 6u);
}

TEST_F(GtmMaskPoints, APointThatIsThereTakesTheNewFlagsInItsNode) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10));
  EXPECT_TRUE(setPoint(1, 3, 5, 10, GTM_EXCLUDED | 1));
  EXPECT_EQ(table().nodes[1].flags, GTM_EXCLUDED | 1);
  EXPECT_EQ(table().excludedPoints, 1u);
  EXPECT_TRUE(setPoint(1, 3, 5, 10, GTM_EXCLUDED));
  EXPECT_EQ(table().excludedPoints, 1u);
  EXPECT_TRUE(setPoint(1, 3, 5, 10, 4));
  EXPECT_EQ(table().nodes[1].flags, 4u);
  EXPECT_EQ(table().excludedPoints, 0u);
  EXPECT_EQ(table().points, 1u);
  EXPECT_EQ(firstFree(1), (Nodes{2}));
}

TEST_F(GtmMaskPoints, ThereIsRoomFor1999) {
  fillTable();
  EXPECT_EQ(table().points, 1999u);
  EXPECT_EQ(table().firstFree, 0);
  EXPECT_EQ(chain(5).front(), 1999);
  EXPECT_TRUE(records(1, 3, 5, 3, 1998));
}

TEST_F(GtmMaskPoints, The2000thIsRefused) {
  fillTable();
  EXPECT_FALSE(setPoint(1, 3, 5, 1999));
  EXPECT_FALSE(setPoint(3, 7, 8, 0));
  EXPECT_EQ(table().points, 1999u);
  EXPECT_FALSE(records(1, 3, 5, 3, 1999));
}

TEST_F(GtmMaskPoints, AFullTableStillTakesNewFlagsForItsPoints) {
  fillTable();
  EXPECT_TRUE(setPoint(1, 3, 5, 1998));
  EXPECT_TRUE(setPoint(1, 3, 5, 0, GTM_EXCLUDED));
  EXPECT_EQ(table().points, 1999u);
  EXPECT_EQ(table().excludedPoints, 1u);
}

TEST_F(GtmMaskPoints, AFullTableHasNoRoomForAnExclusion) {
  fillTable();
  ASSERT_TRUE(setType(2, 3, 5, 3));
  EXPECT_FALSE(delPoint(2, 3, 5, 10));
  EXPECT_TRUE(records(2, 3, 5, 3, 10));
  EXPECT_TRUE(delPoint(1, 3, 5, 700));
  EXPECT_TRUE(delPoint(2, 3, 5, 10));
  EXPECT_FALSE(records(2, 3, 5, 3, 10));
  EXPECT_EQ(table().nodes[701].key, idOf(2, 3, 5));
}

// ---- Scanning ----

struct Found {
  uint32_t key = 0xAAAAAAAA;
  uint64_t flags = 0xBB;
  uint16_t probe = 0xCC;
  bool operator==(const Found&) const = default;
};

class GtmMaskScan : public MaskTest {
 protected:
  GtmMaskScan() { g_iGtmScanCursor = 1; }
  ~GtmMaskScan() override { g_iGtmScanCursor = 1; }

  bool scan(Found& found) {
    return mask().gtmScanPointsHash(&found.key, &found.flags, &found.probe);
  }
  std::vector<Found> scanAll() {
    std::vector<Found> all;
    for (Found found; scan(found);) all.push_back(found);
    return all;
  }
};

TEST_F(GtmMaskScan, GoesThroughTheNodesInTheirOrderAndSkipsFreeOnes) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 3, 6, 11) && setPoint(3, 191, 4095, 65535, 2));
  ASSERT_TRUE(delPoint(1, 3, 6, 11));
  EXPECT_EQ(scanAll(),
            (std::vector<Found>{{idOf(1, 3, 5), 0, 10}, {idOf(3, 191, 4095), 2, 65535}}));
}

TEST_F(GtmMaskScan, ReachesTheLastNode) {
  for (uint64_t probe = 0; probe < kRoomForPoints; ++probe) ASSERT_TRUE(setPoint(1, 3, 5, probe));
  const std::vector<Found> all = scanAll();
  ASSERT_EQ(all.size(), kRoomForPoints);
  EXPECT_EQ(all.back(), (Found{idOf(1, 3, 5), 0, 1998}));
  EXPECT_EQ(g_iGtmScanCursor, 2000u);
}

TEST_F(GtmMaskScan, AnswersNothingAtTheEndAndStaysThere) {
  Found found;
  EXPECT_FALSE(scan(found));
  EXPECT_EQ(g_iGtmScanCursor, 2000u);
  ASSERT_TRUE(setPoint(1, 3, 5, 10));
  EXPECT_FALSE(scan(found));
  EXPECT_EQ(g_iGtmScanCursor, 2000u);
  EXPECT_EQ(found, Found{});
}

// Deliberate: the cursor is the client's to set, and nothing in the mask touches it.
TEST_F(GtmMaskScan, GoesOnFromTheCursorWhateverTheMask) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 3, 5, 11));
  Found found;
  ASSERT_TRUE(scan(found));
  EXPECT_EQ(g_iGtmScanCursor, 2u);
  mask().gtmClearMask();
  EXPECT_EQ(g_iGtmScanCursor, 2u);
  ASSERT_TRUE(setPoint(1, 3, 5, 10) && setPoint(1, 3, 5, 11));
  ASSERT_TRUE(scan(found));
  EXPECT_EQ(found.probe, 11);
  g_iGtmScanCursor = 1;
  ASSERT_TRUE(scan(found));
  EXPECT_EQ(found.probe, 10);
}

TEST_F(GtmMaskScan, ACursorOutsideTheTableFindsNothing) {
  ASSERT_TRUE(setPoint(1, 3, 5, 10));
  Found found;
  for (const uint32_t cursor : {2000u, 2001u, 0xFFFFFFFFu}) {
    g_iGtmScanCursor = cursor;
    EXPECT_FALSE(scan(found));
    EXPECT_EQ(g_iGtmScanCursor, cursor);
  }
}

}  // namespace
