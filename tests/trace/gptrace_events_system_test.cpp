// What a trace point does beside its record: the filters in front of it, and behind it
// stop-on-error and the callbacks.
#include <sstream>

#include "harness/importhook.h"
#include "trace/tracefixture.h"

using namespace osse_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint64_t kTid = 77;
constexpr uint32_t kFunc = 0x081A0003;
constexpr uint64_t kStop = 0x9000000C;
constexpr uint64_t kNoStop = 0x9000000D;
constexpr uint64_t kSuccess = 0;

// ---- Filters ----

class TraceFilteredTest : public TraceTest {
 protected:
  // Makes every kind of trace point and tells which slots they took.
  std::vector<uint32_t> slotsOfEach() {
    std::vector<uint32_t> taken;
    auto note = [&, before = reserved()]() mutable {
      taken.push_back(reserved() - before);
      before = reserved();
    };
    gtraceEntry(kTid, kFunc), note();
    gtraceEntryVar(kTid, kFunc, uint64_t{0}), note();
    gtraceExit(kTid, kFunc, &kSuccess, 0), note();
    gtraceExitVar(kTid, kFunc, &kSuccess, 0, uint64_t{0}), note();
    gtraceExit(kTid, kFunc, &kStop, 0), note();
    gtraceExitVar(kTid, kFunc, &kStop, 0, uint64_t{0}), note();
    gtraceMarker(kTid, kFunc, 10, 3), note();
    gtraceMarkerVar(kTid, kFunc, 10, 3, uint64_t{0}), note();
    gtraceError(kTid, kFunc, 10, 4, 0), note();
    gtraceErrorVar(kTid, kFunc, 10, 5, 0, uint64_t{0}), note();
    gtraceErrorRc(kTid, kFunc, 10, 11, 0, 1, 0), note();
    gtraceErrorRcVar(kTid, kFunc, 10, 4, 0, 1, 0, uint64_t{0}), note();
    gtraceErrorTrans(kTid, kFunc, 10, 0, 0), note();
    gtraceVar(kTid, kFunc, 10, 3, uint64_t{0}), note();
    gtraceCorrelatorVar(kTid, kFunc, 10, 1, 0, uint64_t{0}), note();
    return taken;
  }

  static constexpr uint32_t kAll[] = {1, 2, 1, 2, 1, 2, 1, 2, 1, 2, 2, 2, 2, 2, 2};
};

TEST_F(TraceFilteredTest, WithoutAFilterEveryPointIsWritten) {
  start();
  EXPECT_THAT(slotsOfEach(), testing::ElementsAreArray(kAll));
}

TEST_F(TraceFilteredTest, ErrorsOnlyLeavesErrorsAndFailedExits) {
  start(GTRACE_CIRCULAR, GTRACE_ERRORS_ONLY);
  EXPECT_THAT(slotsOfEach(), ElementsAre(0, 0, 0, 0, 1, 2, 0, 0, 1, 2, 2, 2, 2, 0, 0));
}

// What is no exit has no code that could be zero.
TEST_F(TraceFilteredTest, ErrorsOnlyLeavesAMarkerOfAnExitsType) {
  start(GTRACE_CIRCULAR, GTRACE_ERRORS_ONLY);
  gtraceMarker(kTid, kFunc, 10, GTRACE_EXIT);
  gtraceVar(kTid, kFunc, 10, GTRACE_EXIT, uint64_t{0});
  EXPECT_EQ(reserved(), 3u);
  gtraceExit(kTid, kFunc, nullptr, 0);
  EXPECT_EQ(reserved(), 3u);
}

TEST_F(TraceFilteredTest, AnEmptyFilterRejectsEveryPoint) {
  for (const uint32_t flag : {GTRACE_FILTER_THREADS, GTRACE_FILTER_BITMAPS, GTRACE_FILTER_MASK}) {
    start(GTRACE_CIRCULAR, flag);
    EXPECT_THAT(slotsOfEach(), testing::Each(0u)) << flag;
  }
}

TEST_F(TraceFilteredTest, ARejectedPointAsksForNoTime) {
  start(GTRACE_CIRCULAR, GTRACE_FILTER_BITMAPS | GTRACE_STAMP);
  CallCounter asked("QueryPerformanceCounter");
  slotsOfEach();
  EXPECT_EQ(asked.calls(), 0);
}

TEST_F(TraceFilteredTest, TheProcessIsThatOfTheRecords) {
  start(GTRACE_CIRCULAR, GTRACE_FILTER_THREADS);
  options().threadFilters = 1;
  options().threads[0] = {GTRACE_MATCH_PROCESS | GTRACE_MATCH_THREAD, 4711, kTid};
  gtraceEntry(kTid, kFunc);
  EXPECT_EQ(reserved(), 0u);
  gtraceSetProcessID(4711);
  gtraceEntry(kTid, kFunc);
  EXPECT_EQ(reserved(), 1u);
  gtraceEntry(kTid + 1, kFunc);
  EXPECT_EQ(reserved(), 1u);
}

TEST_F(TraceFilteredTest, BitmapsAndMaskSeeFunctionTypeAndProbe) {
  const auto options = optionsOf(GTRACE_CIRCULAR, GTRACE_FILTER_MASK);
  options->mask.gtmClearMask();
  ASSERT_TRUE(options->mask.gtmSetMask(1, 3, 3, 10, GTM_POINT, 0));
  start(*options);
  EXPECT_THAT(slotsOfEach(), ElementsAre(0, 0, 0, 0, 0, 0, 1, 2, 1, 2, 2, 2, 2, 2, 2));

  ASSERT_TRUE(options->mask.gtmSetMask(1, 3, 3, GTRACE_DATA, 0, 0));
  options->mask.gtmReplicateMask(&options->filter);
  options->filter.types = 1 << GTRACE_DATA;
  options->flags = GTRACE_FILTER_BITMAPS;
  start(*options);
  EXPECT_THAT(slotsOfEach(), ElementsAre(0, 0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 0, 2, 0));
}

// ---- Stop-on-error ----

std::vector<std::string> g_events;
void noteDisabled(uint32_t reason, void*) {
  g_events.push_back("disabled " + std::to_string(reason));
}

class TraceStopTest : public TraceTest {
 protected:
  TraceStopTest() { g_events.clear(); }

  void start(uint32_t flags, uint32_t count, uint32_t code = kStop) {
    const auto options = optionsOf(GTRACE_CIRCULAR, flags);
    options->stopCount = count;
    options->stopCode = code;
    TraceTest::start(*options, nullptr, noteDisabled);
  }

  static constexpr uint32_t kArmed = GTRACE_COUNT_STOPS | GTRACE_STOP_ON_EXIT;
};

TEST_F(TraceStopTest, TheThirdExitOfThreeDisablesAndIsWritten) {
  start(kArmed, 3);
  for (uint32_t exits = 1; exits <= 2; ++exits) {
    gtraceExit(kTid, kFunc, &kStop, 0);
    EXPECT_TRUE(isEnabled());
    EXPECT_EQ(stopCounter(), exits + 1);
  }
  gtraceExit(kTid, kFunc, &kStop, 0);
  EXPECT_FALSE(isEnabled());
  EXPECT_THAT(g_events, ElementsAre("disabled 0"));
  EXPECT_EQ(slots(2), Bytes(RecordBytes(2)
                                .head(kTid, kFunc, 2)
                                .put(40, uint64_t{0})
                                .put(48, static_cast<uint32_t>(kStop))));
}

TEST_F(TraceStopTest, ACountOfOneOrZeroFiresAtOnce) {
  for (const uint32_t count : {1u, 0u}) {
    start(kArmed, count);
    gtraceExitVar(kTid, kFunc, &kStop, 0, uint64_t{0});
    EXPECT_FALSE(isEnabled()) << count;
  }
}

TEST_F(TraceStopTest, EveryHitBehindTheLimitDisablesAgain) {
  start(kArmed, 2);
  gtraceExit(kTid, kFunc, &kStop, 0);
  gtraceExit(kTid, kFunc, &kStop, 0);
  gtraceEnable();
  gtraceExit(kTid, kFunc, &kStop, 0);
  EXPECT_FALSE(isEnabled());
  EXPECT_EQ(stopCounter(), 4u);
}

TEST_F(TraceStopTest, OnlyTheLowHalfOfACodeIsCompared) {
  constexpr uint64_t kWide = 0xFFFFFFFF00000000 | kStop;
  start(kArmed, 1);
  gtraceExit(kTid, kFunc, &kWide, 0);
  EXPECT_FALSE(isEnabled());
}

TEST_F(TraceStopTest, AMissingCodeIsZero) {
  start(kArmed, 1, 0);
  gtraceExit(kTid, kFunc, nullptr, 0);
  EXPECT_FALSE(isEnabled());
}

TEST_F(TraceStopTest, WhatIsNoHitIsNotCounted) {
  start(kArmed, 1);
  gtraceEntry(kTid, kFunc);
  gtraceExit(kTid, kFunc, &kNoStop, 0);
  gtraceExit(kTid, kFunc, &kSuccess, 0);
  gtraceError(kTid, kFunc, 10, 4, kStop);
  gtraceErrorRc(kTid, kFunc, 10, 4, 0, static_cast<uint32_t>(kStop), 0);
  gtraceErrorTrans(kTid, kFunc, 10, kStop, kStop);
  gtraceMarker(kTid, kFunc, 10, GTRACE_EXIT);
  gtraceCorrelatorVar(kTid, kFunc, 10, static_cast<uint32_t>(kStop), 0, uint64_t{0});
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(stopCounter(), 1u);
}

// A marker has no code, not even the one that a missing code stands for.
TEST_F(TraceStopTest, AMarkerOfAnExitsTypeIsNoHit) {
  start(kArmed, 1, 0);
  gtraceMarker(kTid, kFunc, 10, GTRACE_EXIT);
  gtraceMarkerVar(kTid, kFunc, 10, GTRACE_EXIT, uint64_t{0});
  EXPECT_TRUE(isEnabled());
}

TEST_F(TraceStopTest, ExitsNeedBothFlags) {
  for (const uint32_t flag : {GTRACE_COUNT_STOPS, GTRACE_STOP_ON_EXIT}) {
    start(flag, 1);
    gtraceExit(kTid, kFunc, &kStop, 0);
    EXPECT_TRUE(isEnabled()) << flag;
    EXPECT_EQ(stopCounter(), 1u) << flag;
  }
}

TEST_F(TraceStopTest, StopErrorsNeedTheCountAlone) {
  start(GTRACE_COUNT_STOPS, 4);
  gtraceError(kTid, kFunc, 10, 5, 0);
  gtraceErrorVar(kTid, kFunc, 10, 5, 0, uint64_t{0});
  gtraceErrorRc(kTid, kFunc, 10, 5, 0, 0, 0);
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(stopCounter(), 4u);
  gtraceErrorRcVar(kTid, kFunc, 10, 5, 0, 0, 0, uint64_t{0});
  EXPECT_FALSE(isEnabled());
  EXPECT_EQ(reserved(), 7u);

  start(GTRACE_STOP_ON_EXIT, 1);
  gtraceError(kTid, kFunc, 10, 5, 0);
  EXPECT_TRUE(isEnabled());
}

TEST_F(TraceStopTest, ARejectedRecordIsNoHit) {
  start(kArmed | GTRACE_FILTER_BITMAPS, 1);
  gtraceExit(kTid, kFunc, &kStop, 0);
  gtraceError(kTid, kFunc, 10, 5, 0);
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(stopCounter(), 1u);
}

// ---- Callbacks ----

std::string hexOf(uint64_t value) {
  std::ostringstream text;
  text << std::hex << std::uppercase << value;
  return text.str();
}

// Writes a call down: type, function, probe, code or "-", and the items by their arguments.
void noteRecord(uint16_t type, uint32_t funcId, uint16_t probe, const uint64_t* rc, uint64_t count,
                const void* items) {
  std::string text = std::to_string(type) + ' ' + hexOf(funcId) + ' ' + std::to_string(probe) +
                     (rc != nullptr ? ' ' + hexOf(*rc) : " -") + ' ' + std::to_string(count);
  if (count == 0) text += items == nullptr ? " null" : "";
  for (uint64_t i = 0; i < 3 * count; ++i)
    text += (i % 3 == 0 ? " | " : " ") + hexOf(static_cast<const uint64_t*>(items)[i]);
  g_events.push_back(text);
}

class TraceCallbackTest : public TraceStopTest {
 protected:
  void start(uint32_t flags, GTraceRecordCallback callback = noteRecord) {
    TraceTest::start(*optionsOf(GTRACE_CIRCULAR, flags), callback, noteDisabled);
  }
};

TEST_F(TraceCallbackTest, TellsARecordsArguments) {
  constexpr uint64_t kWide = 0xABCDEF0100000002;
  start(GTRACE_CALLBACK);
  gtraceEntry(kTid, kFunc);
  gtraceExit(kTid, kFunc, &kWide, 5);
  gtraceExit(kTid, kFunc, nullptr, 5);
  gtraceMarker(kTid, kFunc, 20, 0x10000 | 7);
  gtraceError(kTid, kFunc, 30, 4, 5);
  gtraceErrorRc(kTid, kFunc, 40, 11, 5, 0x9000000C, 6);
  gtraceErrorTrans(kTid, kFunc, 50, 5, 6);
  EXPECT_THAT(g_events,
              ElementsAre("1 81A0003 0 - 0 null", "2 81A0003 0 ABCDEF0100000002 0 null",
                          "2 81A0003 0 - 0 null", "7 81A0003 20 - 0 null", "4 81A0003 30 - 0 null",
                          "11 81A0003 40 9000000C 0 null", "13 81A0003 50 - 0 null"));
}

TEST_F(TraceCallbackTest, HandsItemsOnAsTheyWerePassed) {
  constexpr uint64_t kRc = 9;
  start(GTRACE_CALLBACK);
#define TWO_ITEMS \
  uint64_t{2}, uint64_t{1}, uint64_t{4}, uint64_t{0x1234567890}, uint64_t{5}, uint64_t{6}, nullptr
  gtraceEntryVar(kTid, kFunc, TWO_ITEMS);
  gtraceExitVar(kTid, kFunc, &kRc, 5, TWO_ITEMS);
  gtraceMarkerVar(kTid, kFunc, 20, 7, TWO_ITEMS);
  gtraceErrorVar(kTid, kFunc, 30, 4, 5, TWO_ITEMS);
  gtraceErrorRcVar(kTid, kFunc, 40, 11, 5, 0x9000000C, 6, TWO_ITEMS);
  gtraceVar(kTid, kFunc, 50, 3, TWO_ITEMS);
  gtraceCorrelatorVar(kTid, kFunc, 60, 7, 5, TWO_ITEMS);
#undef TWO_ITEMS
  const std::string items = " 2 | 1 4 1234567890 | 5 6 0";
  EXPECT_THAT(g_events, ElementsAre("1 81A0003 0 -" + items, "2 81A0003 0 9" + items,
                                    "7 81A0003 20 -" + items, "4 81A0003 30 -" + items,
                                    "11 81A0003 40 9000000C" + items, "3 81A0003 50 -" + items,
                                    "12 81A0003 60 -" + items));
}

TEST_F(TraceCallbackTest, TellsOfItemsThatTheRecordHasNoRoomFor) {
  const std::string item(65'527, 'i');
  start(GTRACE_CALLBACK);
  gtraceVar(kTid, kFunc, 10, 3, uint64_t{2}, uint64_t{0}, uint64_t{65'527}, item.data(),
            uint64_t{1}, uint64_t{8}, uint64_t{3});
  const std::string address = hexOf(reinterpret_cast<uint64_t>(item.data()));
  EXPECT_THAT(g_events, ElementsAre("3 81A0003 10 - 2 | 0 FFF7 " + address + " | 1 8 3"));
}

TEST_F(TraceCallbackTest, IsCalledBehindTheSeal) {
  start(GTRACE_CALLBACK, [](uint16_t, uint32_t, uint16_t, const uint64_t*, uint64_t, const void*) {
    const char* const slot = reinterpret_cast<const char*>(g_pGTCB) + kSlots;
    const bool isWhole = wordAt<uint16_t>(slot, 4) == 0xCAFE && wordAt<uint32_t>(slot, 60) == ~0U;
    g_events.push_back(isWhole ? "whole" : "not whole");
  });
  gtraceEntry(kTid, kFunc);
  EXPECT_THAT(g_events, ElementsAre("whole"));
}

TEST_F(TraceCallbackTest, IsCalledBehindStopOnError) {
  const auto options = optionsOf(GTRACE_CIRCULAR, kArmed | GTRACE_CALLBACK);
  options->stopCount = 1;
  options->stopCode = static_cast<uint32_t>(kStop);
  TraceTest::start(*options, noteRecord, noteDisabled);
  gtraceExit(kTid, kFunc, &kStop, 0);
  EXPECT_THAT(g_events, ElementsAre("disabled 0", "2 81A0003 0 9000000C 0 null"));
}

TEST_F(TraceCallbackTest, IsCalledForALostRecordToo) {
  TraceTest::start(*optionsOf(GTRACE_FILL_ONCE, GTRACE_CALLBACK), noteRecord, noteDisabled);
  for (int i = 0; i < 8192; ++i) gtraceEntry(kTid, kFunc);
  g_events.clear();
  gtraceEntry(kTid, kFunc);
  EXPECT_THAT(g_events, ElementsAre("disabled 0", "1 81A0003 0 - 0 null"));
}

TEST_F(TraceCallbackTest, IsCalledOnlyByItsFlagAndForWhatIsWritten) {
  start(0);
  gtraceEntry(kTid, kFunc);
  start(GTRACE_CALLBACK | GTRACE_FILTER_BITMAPS);
  gtraceEntry(kTid, kFunc);
  gtraceVar(kTid, kFunc, 10, 3, uint64_t{0});
  EXPECT_THAT(g_events, IsEmpty());
}

TEST_F(TraceCallbackTest, NeedNotBeThere) {
  start(GTRACE_CALLBACK, nullptr);
  gtraceEntry(kTid, kFunc);
  gtraceVar(kTid, kFunc, 10, 3, uint64_t{0});
  EXPECT_EQ(reserved(), 3u);
  EXPECT_THAT(g_events, IsEmpty());
}

TEST_F(TraceCallbackTest, NoItemsAreANullPointer) {
  start(GTRACE_CALLBACK);
  gtraceVar(kTid, kFunc, 10, 3, uint64_t{0});
  EXPECT_THAT(g_events, ElementsAre("3 81A0003 10 - 0 null"));
}

}  // namespace
