// The table of the function-count mode, and the call stacks by which calls are timed.
#include "trace/gtcount.h"

#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "harness/startline.h"

using namespace oss;
using testing::Each;
using testing::Field;

namespace {

// The smallest table of a block.
constexpr uint64_t kEntries = 0x80000 / 16;

class FunctionTableTest : public testing::Test {
 protected:
  // The place of a function, claimed if need be; -1 for none.
  int64_t claim(uint32_t funcId) { return placeOf(findFunction(table_, funcId, true)); }
  int64_t find(uint32_t funcId) { return placeOf(findFunction(table_, funcId, false)); }

  void occupy(uint64_t place, uint32_t funcId = 0xFFFFFFFF) { table_[place].funcId = funcId; }

  std::vector<GTraceFunctionCount> table_ = std::vector<GTraceFunctionCount>(kEntries);

 private:
  int64_t placeOf(const GTraceFunctionCount* entry) const {
    return entry != nullptr ? entry - table_.data() : -1;
  }
};

// floor(32,768 x frac(n x 0.618033989)), worked out in decimals.
TEST_F(FunctionTableTest, AFunctionsFirstPlaceIsItsGoldenHash) {
  EXPECT_EQ(claim(1), 20'251);
  EXPECT_EQ(claim(2), 7'735);
  EXPECT_EQ(claim(3), 27'987);
  EXPECT_EQ(claim(0x081A0003), 1'557);
  EXPECT_EQ(claim(0x081A0058), 19'019);
  EXPECT_EQ(claim(0x08140069), 7'667);
  EXPECT_EQ(claim(0xFFFFFFFE), 10'988);
}

TEST_F(FunctionTableTest, AClaimedFunctionIsFoundAgain) {
  EXPECT_EQ(find(2), -1);
  EXPECT_EQ(claim(2), 7'735);
  EXPECT_EQ(claim(2), 7'735);
  EXPECT_EQ(find(2), 7'735);
  EXPECT_EQ(table_[7'735].funcId, 2u);
  EXPECT_EQ(table_[7'735].calls, 0u);
  EXPECT_EQ(table_[7'735].ticks, 0u);
}

TEST_F(FunctionTableTest, LookingClaimsNothing) {
  EXPECT_EQ(find(2), -1);
  EXPECT_THAT(table_, Each(Field(&GTraceFunctionCount::funcId, 0u)));
}

TEST_F(FunctionTableTest, AMeetingStepsByTheFunctionModuloAPrime) {
  constexpr uint32_t kFunction = 988'927 + 5;  // a step of 5
  EXPECT_EQ(claim(kFunction), 19'294);
  occupy(19'294);
  for (uint64_t place = 1; place < 10; ++place) {
    EXPECT_EQ(claim(kFunction), static_cast<int64_t>(19'294 + 5 * place));
    occupy(19'294 + 5 * place);
  }
}

TEST_F(FunctionTableTest, ThePlacesComeRoundAtTheTablesEnd) {
  constexpr uint32_t kFunction = 1'000'000;  // a step of 11,073
  EXPECT_EQ(claim(kFunction), 32'407);
  occupy(32'407);
  EXPECT_EQ(claim(kFunction), 32'407 + 11'073 - 32'768);
}

TEST_F(FunctionTableTest, AfterTenPlacesAFunctionIsLost) {
  for (uint64_t place = 0; place < 9; ++place) occupy(20'251 + place);
  EXPECT_EQ(claim(1), 20'260);
  occupy(20'260);
  EXPECT_EQ(claim(1), -1);
  EXPECT_EQ(find(1), -1);
  EXPECT_EQ(table_[20'261].funcId, 0u);
}

// A function whose identifier the prime divides has one place only.
TEST_F(FunctionTableTest, AStepOfZeroStaysAtItsPlace) {
  EXPECT_EQ(claim(988'927), 16'339);
  occupy(16'339);
  EXPECT_EQ(claim(988'927), -1);
}

TEST_F(FunctionTableTest, LookingGoesOnBehindAFreePlace) {
  occupy(20'251 + 4, 1);
  EXPECT_EQ(find(1), 20'255);
}

TEST_F(FunctionTableTest, AnyNumberOfEntriesWillDo) {
  std::vector<GTraceFunctionCount> odd(0x90001 / 16);
  for (const uint32_t funcId : {1u, 0x081A0058u, 0xFFFFFFFFu, 0x80000000u}) {
    GTraceFunctionCount* const entry = findFunction(odd, funcId, true);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->funcId, funcId);
    EXPECT_TRUE(entry >= odd.data() && entry < odd.data() + odd.size());
  }
}

TEST_F(FunctionTableTest, OneFunctionHasOneEntryWhoeverClaimsIt) {
  constexpr int kThreads = 4;
  constexpr uint32_t kFunctions = 2'000;
  osse_test::StartLine start(kThreads);
  std::vector<std::vector<GTraceFunctionCount*>> found(kThreads);
  std::vector<std::thread> threads;
  for (auto& mine : found)
    threads.emplace_back([&] {
      start.pass();
      for (uint32_t funcId = 1; funcId <= kFunctions; ++funcId)
        mine.push_back(findFunction(table_, funcId, true));
    });
  for (std::thread& thread : threads) thread.join();

  for (const auto& mine : found) EXPECT_EQ(mine, found[0]);
  for (uint32_t funcId = 1; funcId <= kFunctions; ++funcId) {
    const GTraceFunctionCount* const entry = found[0][funcId - 1];
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->funcId, funcId);
  }
}

// ---- Call stacks ----

TEST(CallStack, ACallLastsFromItsEntryToItsExit) {
  CallStack stack;
  stack.push(1, 100);
  EXPECT_EQ(stack.pop(1, 130), 30u);
  EXPECT_EQ(stack.pop(1, 200), 0u);
}

TEST(CallStack, ACallerOutlastsWhatItCalls) {
  CallStack stack;
  stack.push(1, 100);
  stack.push(2, 110);
  EXPECT_EQ(stack.pop(2, 115), 5u);
  stack.push(2, 120);
  EXPECT_EQ(stack.pop(2, 127), 7u);
  EXPECT_EQ(stack.pop(1, 200), 100u);
}

TEST(CallStack, AnExitEndsWhatItsCallHasCalled) {
  CallStack stack;
  stack.push(1, 100);
  stack.push(2, 110);
  stack.push(3, 120);
  EXPECT_EQ(stack.pop(1, 150), 50u);
  EXPECT_EQ(stack.pop(3, 160), 0u);
  EXPECT_EQ(stack.pop(2, 160), 0u);
}

TEST(CallStack, EveryNestedCallAddsItsOwnTimeAndTheLowestIsCut) {
  CallStack stack;
  stack.push(9, 50);
  stack.push(1, 100);
  stack.push(2, 105);
  stack.push(1, 110);
  stack.push(1, 120);
  EXPECT_EQ(stack.pop(1, 200), 100u + 90u + 80u);
  EXPECT_EQ(stack.pop(1, 300), 0u);
  EXPECT_EQ(stack.pop(2, 300), 0u);
  EXPECT_EQ(stack.pop(9, 300), 250u);
}

TEST(CallStack, TimeThatRunsBackwardsCountsAsNone) {
  CallStack stack;
  stack.push(1, 100);
  stack.push(1, 40);
  EXPECT_EQ(stack.pop(1, 50), 10u);
}

TEST(CallStack, TicksAre64Bits) {
  constexpr uint64_t kFar = uint64_t{1} << 63;
  CallStack stack;
  stack.push(1, 5);
  EXPECT_EQ(stack.pop(1, kFar + 5), kFar);
}

TEST(CallStack, AnExitWithoutAnEntryChangesNothing) {
  CallStack stack;
  EXPECT_EQ(stack.pop(1, 10), 0u);
  stack.push(1, 10);
  EXPECT_EQ(stack.pop(2, 20), 0u);
  EXPECT_EQ(stack.pop(1, 30), 20u);
}

TEST(CallStack, CallsDeeperThan512AreNotKept) {
  CallStack stack;
  for (uint32_t depth = 1; depth <= 514; ++depth) stack.push(depth, depth);
  EXPECT_EQ(stack.pop(514, 1'000), 0u);
  EXPECT_EQ(stack.pop(513, 1'000), 0u);
  EXPECT_EQ(stack.pop(512, 1'000), 488u);

  stack.push(600, 1'000);
  stack.push(601, 1'000);  // no room again
  EXPECT_EQ(stack.pop(601, 1'001), 0u);
  EXPECT_EQ(stack.pop(600, 1'001), 1u);
  EXPECT_EQ(stack.pop(1, 1'001), 1'000u);
}

}  // namespace
