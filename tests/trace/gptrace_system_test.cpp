// The trace points: every kind of record byte for byte, with everything in its slots that it does
// not write, and what becomes of a record that finds the buffer full.
#include "harness/importhook.h"
#include "trace/tracefixture.h"

using namespace osse_test;

namespace {

constexpr uint64_t kTid = 0x1122334455667788;
constexpr uint32_t kFunc = 0x081A0003;
constexpr uint16_t kProbe = 0xBEEF;
constexpr uint64_t kExtra1 = 0xE1E2E3E4E5E6E7E8;
constexpr uint64_t kExtra2 = 0xF1F2F3F4F5F6F7F8;
constexpr uint64_t kRc = 0xABABABAB9000000C;  // only its low half is a code
constexpr uint32_t kCode = 0x9000000C;

constexpr uint64_t kValue = 0x3837363534333231;
constexpr char kBlockItem[] = "a block of memory";  // 17 bytes
constexpr uint64_t kBlockLength = sizeof kBlockItem - 1;

// The arguments of three items, and the bytes that they make.
#define THREE_ITEMS                                                                     \
  uint64_t{3}, uint64_t{1}, uint64_t{4}, kValue, uint64_t{0}, kBlockLength, kBlockItem, \
      uint64_t{2}, uint64_t{8}, kValue

std::string threeItems() {
  return itemDescriptor(1, 4) + itemDescriptor(0, 17) + itemDescriptor(2, 8) + "1234" + kBlockItem +
         "12345678";
}
constexpr uint16_t kSlotsOfThree = 2;  // 56 + 24 + 29 bytes, 12 of the slots' own

class TracePointTest : public TraceTest {
 protected:
  // Everything in the slots must be as the record says, and the slot behind it stale.
  void expectRecord(const Bytes& record) const {
    const size_t count = record.bytes.size() / 64;
    EXPECT_EQ(reserved(), count);
    EXPECT_EQ(slots(0, count), record);
    EXPECT_EQ(slots(count), Bytes{std::string(64, kStale)});
  }
};

// ---- Records of one slot and of two ----

TEST_F(TracePointTest, AnEntryIsWhatEveryRecordHas) {
  start();
  gtraceEntry(kTid, kFunc);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 1));
}

TEST_F(TracePointTest, AnExitAddsItsCodeAndAValue) {
  start();
  gtraceExit(kTid, kFunc, &kRc, kExtra1);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 2).put(40, kExtra1).put(48, kCode));
}

TEST_F(TracePointTest, AnExitWithoutACodeHasCodeZero) {
  start();
  gtraceExit(kTid, kFunc, nullptr, kExtra1);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 2).put(40, kExtra1).put(48, uint32_t{0}));
}

TEST_F(TracePointTest, AMarkerAddsAProbe) {
  start();
  gtraceMarker(kTid, kFunc, kProbe, 0xFFFE0000 | 0x4321);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 0x4321).put(36, kProbe));
}

TEST_F(TracePointTest, AMarkedMarkerHasAFlag) {
  start();
  gtraceMarker(kTid, kFunc, kProbe, 0x10000 | 3);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 3).put(34, uint16_t{2}).put(36, kProbe));
}

TEST_F(TracePointTest, AnErrorAddsProbeAndValue) {
  start();
  gtraceError(kTid, kFunc, kProbe, 4, kExtra1);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 4).put(36, kProbe).put(40, kExtra1));
}

TEST_F(TracePointTest, AnErrorWithACodeHasTwoSlots) {
  start();
  gtraceErrorRc(kTid, kFunc, kProbe, 11, kExtra1, kCode, kExtra2);
  expectRecord(RecordBytes(0, 2)
                   .head(kTid, kFunc, 11)
                   .put(36, kProbe)
                   .put(40, kExtra1)
                   .put(48, kCode)
                   .put(56, kExtra2));
}

TEST_F(TracePointTest, AnErrorTranslationHasTwoSlotsAndNoCode) {
  start();
  gtraceErrorTrans(kTid, kFunc, kProbe, kExtra1, kExtra2);
  expectRecord(
      RecordBytes(0, 2).head(kTid, kFunc, 13).put(36, kProbe).put(40, kExtra1).put(56, kExtra2));
}

// ---- Records with items ----

TEST_F(TracePointTest, AnEntryWithItemsHasProbeZero) {
  start();
  gtraceEntryVar(kTid, kFunc, THREE_ITEMS);
  expectRecord(RecordBytes(0, kSlotsOfThree)
                   .head(kTid, kFunc, 1)
                   .put(36, uint16_t{0})
                   .items(3, threeItems()));
}

TEST_F(TracePointTest, AnExitWithItemsHasProbeZero) {
  start();
  gtraceExitVar(kTid, kFunc, &kRc, kExtra1, THREE_ITEMS);
  expectRecord(RecordBytes(0, kSlotsOfThree)
                   .head(kTid, kFunc, 2)
                   .put(36, uint16_t{0})
                   .put(40, kExtra1)
                   .put(48, kCode)
                   .items(3, threeItems()));
}

TEST_F(TracePointTest, AMarkerWithItemsKeepsTypeAndFlag) {
  start();
  gtraceMarkerVar(kTid, kFunc, kProbe, 0x10000 | 0x4321, THREE_ITEMS);
  expectRecord(RecordBytes(0, kSlotsOfThree)
                   .head(kTid, kFunc, 0x4321)
                   .put(34, uint16_t{2})
                   .put(36, kProbe)
                   .items(3, threeItems()));
}

TEST_F(TracePointTest, ADataPointIsProbeAndItems) {
  start();
  gtraceVar(kTid, kFunc, kProbe, 3, THREE_ITEMS);
  expectRecord(
      RecordBytes(0, kSlotsOfThree).head(kTid, kFunc, 3).put(36, kProbe).items(3, threeItems()));
}

TEST_F(TracePointTest, AnErrorWithItemsHasOneValueAndNoCode) {
  start();
  gtraceErrorVar(kTid, kFunc, kProbe, 4, kExtra1, THREE_ITEMS);
  expectRecord(RecordBytes(0, kSlotsOfThree)
                   .head(kTid, kFunc, 4)
                   .put(36, kProbe)
                   .put(40, kExtra1)
                   .items(3, threeItems()));
}

// Its items lie where the second value would.
TEST_F(TracePointTest, AnErrorWithACodeAndItemsLosesItsSecondValue) {
  start();
  gtraceErrorRcVar(kTid, kFunc, kProbe, 4, kExtra1, kCode, kExtra2, THREE_ITEMS);
  expectRecord(RecordBytes(0, kSlotsOfThree)
                   .head(kTid, kFunc, 4)
                   .put(36, kProbe)
                   .put(40, kExtra1)
                   .put(48, kCode)
                   .items(3, threeItems()));
}

TEST_F(TracePointTest, ACorrelatorStandsInThePlaceOfTheCode) {
  start();
  gtraceCorrelatorVar(kTid, kFunc, kProbe, 0xC0DEC0DE, kExtra1, THREE_ITEMS);
  expectRecord(RecordBytes(0, kSlotsOfThree)
                   .head(kTid, kFunc, 12)
                   .put(36, kProbe)
                   .put(40, kExtra1)
                   .put(48, 0xC0DEC0DE)
                   .items(3, threeItems()));
}

TEST_F(TracePointTest, ARecordMayHaveNoItems) {
  start();
  gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{0});
  // The item count lies where one slot has its trailer.
  expectRecord(RecordBytes(0, 2).head(kTid, kFunc, 3).put(36, kProbe).items(0, ""));
}

TEST_F(TracePointTest, SlotsGrowWithTheItems) {
  for (const auto& [length, count] :
       {std::pair{uint64_t{52}, uint16_t{2}}, {53, 3}, {116, 3}, {117, 4}}) {
    const std::string item(length, 'i');
    start();
    gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{1}, uint64_t{0}, length, item.data());
    expectRecord(RecordBytes(0, count)
                     .head(kTid, kFunc, 3)
                     .put(36, kProbe)
                     .items(1, itemDescriptor(0, static_cast<uint32_t>(length)) + item));
  }
}

TEST_F(TracePointTest, ANullPointersRoomStaysAsItWas) {
  start();
  gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{2}, uint64_t{0}, uint64_t{10}, nullptr, uint64_t{0},
            uint64_t{4}, "next");
  expectRecord(RecordBytes(0, 2)
                   .head(kTid, kFunc, 3)
                   .put(36, kProbe)
                   .items(2, itemDescriptor(0, 0xFFFFFFFF) + itemDescriptor(0, 4) + "next" +
                                 std::string(10, kStale)));
}

TEST_F(TracePointTest, TheMostItemsAreWrittenWholeAndOneByteMoreIsCut) {
  std::string item(65'528, '\0');
  for (size_t i = 0; i < item.size(); ++i) item[i] = static_cast<char>(i * 13 + i / 256);
  const std::string most = item.substr(0, 65'527);

  start();
  gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{1}, uint64_t{0}, uint64_t{65'527}, item.data());
  expectRecord(RecordBytes(0, 1026)
                   .head(kTid, kFunc, 3)
                   .put(36, kProbe)
                   .items(1, itemDescriptor(0, 65'527) + most));

  start();
  gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{2}, uint64_t{0}, uint64_t{65'528}, item.data(),
            uint64_t{1}, uint64_t{8}, kValue);
  expectRecord(RecordBytes(0, 1026)
                   .head(kTid, kFunc, 3)
                   .put(36, kProbe)
                   .items(1, itemDescriptor(4, 65'527) + most));
}

// ---- What every record has ----

TEST_F(TracePointTest, ProcessValuesAreThoseOfTheMoment) {
  start();
  gtraceSetProcessID(1);
  gtraceSetFixedData1(2);
  gtraceSetFixedData2(3);
  gtraceEntry(kTid, kFunc);
  expectRecord(RecordBytes(0)
                   .head(kTid, kFunc, 1)
                   .put(16, uint32_t{1})
                   .put(24, uint32_t{2})
                   .put(28, uint32_t{3}));
}

TEST_F(TracePointTest, RecordsFollowEachOther) {
  start();
  gtraceEntry(kTid, kFunc);
  gtraceErrorTrans(kTid, kFunc, kProbe, kExtra1, kExtra2);
  gtraceExit(kTid, kFunc, &kRc, kExtra1);
  EXPECT_EQ(reserved(), 4u);
  EXPECT_EQ(slots(0), Bytes(RecordBytes(0).head(kTid, kFunc, 1)));
  EXPECT_EQ(slots(1, 2), Bytes(RecordBytes(1, 2)
                                   .head(kTid, kFunc, 13)
                                   .put(36, kProbe)
                                   .put(40, kExtra1)
                                   .put(56, kExtra2)));
  EXPECT_EQ(slots(3), Bytes(RecordBytes(3).head(kTid, kFunc, 2).put(40, kExtra1).put(48, kCode)));
}

TEST_F(TracePointTest, ACircularBufferBeginsAnewOverWhatStoodThere) {
  start();
  gtraceError(kTid, kFunc, kProbe, 4, kExtra1);
  for (int i = 1; i < 8191; ++i) gtraceEntry(kTid, kFunc);
  // Two slots do not fit into the last one, which stays unused.
  gtraceErrorRc(kTid, kFunc, 1, 4, 2, 3, 4);
  EXPECT_EQ(slots(8190), Bytes(RecordBytes(8190).head(kTid, kFunc, 1)));
  EXPECT_EQ(slots(8191), Bytes{std::string(64, kStale)});
  gtraceClear();
  while (reserved() % 8192 != 0) gtraceEntry(kTid, kFunc);
  gtraceEntry(kTid + 1, kFunc);
  // Probe and value are those of the first record of all.
  EXPECT_EQ(
      slots(0),
      Bytes(RecordBytes(reserved() - 1).head(kTid + 1, kFunc, 1).put(36, kProbe).put(40, kExtra1)));
}

// ---- Time ----

TEST_F(TracePointTest, WithoutAStampTheTimeIsNotAsked) {
  // Every flag that neither filters nor stamps.
  start(GTRACE_CIRCULAR, ~uint32_t{0x6A3E | 0x1C0});
  CallCounter asked("QueryPerformanceCounter");
  gtraceEntry(kTid, kFunc);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 1));
  EXPECT_EQ(asked.calls(), 0);
}

TEST_F(TracePointTest, AStampIsThePerformanceCounter) {
  start(GTRACE_CIRCULAR, GTRACE_STAMP);
  uint64_t ticks = 0xFEDCBA9876543210;
  ImportHook hook("QueryPerformanceCounter", [&](Call& call) {
    *call.argument<uint64_t*>(0) = ticks++;
    return TRUE;
  });
  gtraceEntry(kTid, kFunc);
  gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{0});
  EXPECT_EQ(slots(0), Bytes(RecordBytes(0).head(kTid, kFunc, 1, 0xFEDCBA9876543210)));
  EXPECT_EQ(
      slots(1, 2),
      Bytes(
          RecordBytes(1, 2).head(kTid, kFunc, 3, 0xFEDCBA9876543211).put(36, kProbe).items(0, "")));
  EXPECT_EQ(hook.calls(), 2);
}

TEST_F(TracePointTest, ATimeThatCannotBeReadIsZero) {
  start(GTRACE_CIRCULAR, GTRACE_STAMP);
  ImportHook hook("QueryPerformanceCounter", [](Call& call) {
    *call.argument<uint64_t*>(0) = 4711;
    return FALSE;
  });
  gtraceEntry(kTid, kFunc);
  expectRecord(RecordBytes(0).head(kTid, kFunc, 1));
}

// ---- A full buffer ----

uint32_t g_disabled;

TEST_F(TracePointTest, AFullBufferDisablesAndKeepsItsRecords) {
  g_disabled = 0;
  start(*optionsOf(GTRACE_FILL_ONCE), nullptr, [](uint32_t, void*) { ++g_disabled; });
  for (int i = 0; i < 8192; ++i) gtraceEntry(kTid, kFunc);
  EXPECT_TRUE(isEnabled());
  const Bytes full = slots(0, 8192);

  gtraceErrorTrans(kTid, kFunc, kProbe, kExtra1, kExtra2);
  EXPECT_FALSE(isEnabled());
  EXPECT_EQ(g_disabled, 1u);
  EXPECT_TRUE(slots(0, 8192) == full);

  const std::string item(65'527, 'i');  // as large as a record can be
  gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{1}, uint64_t{0}, uint64_t{65'527}, item.data());
  EXPECT_EQ(g_disabled, 2u);
  EXPECT_TRUE(slots(0, 8192) == full);
}

TEST_F(TracePointTest, ARecordThatDoesNotFitWholeIsLost) {
  start(GTRACE_FILL_ONCE);
  for (int i = 0; i < 8191; ++i) gtraceEntry(kTid, kFunc);
  gtraceErrorTrans(kTid, kFunc, kProbe, kExtra1, kExtra2);
  EXPECT_FALSE(isEnabled());
  EXPECT_EQ(slots(8191), Bytes{std::string(64, kStale)});
}

TEST_F(TracePointTest, WithoutABlockNothingHappens) {
  start();
  gtraceDetach();
  gtraceEntry(kTid, kFunc);
  gtraceExit(kTid, kFunc, nullptr, 0);
  gtraceVar(kTid, kFunc, kProbe, 3, uint64_t{0});
  EXPECT_EQ(reserved(), 0u);
}

}  // namespace
