// `osse trace format`: whole texts.
#include <gtest/gtest.h>

#include "tools/toolrun.h"
#include "tools/trapparts.h"

using namespace osse_test;

namespace {

const std::string kBinary("\x01\xFF\x00", 3);
const std::string kWord("\x02\x00\x00\x00", 4);
const std::string kLong("\x08\x07\x06\x05\x04\x03\x02\x01", 8);
const std::string kCode("\x0C\x00\x00\x90", 4);

}  // namespace

TEST(TraceFormat, ShowsTimeProcessThreadKindAndFunction) {
  DumpBuilder dump;
  dump.stamp(123'456'789).entry(kOpen).stamp(123'456'790).exit(kOpen);

  EXPECT_EQ(format(dump.instantaneous()),
            "12.345678900 4242 17 entry OSSHFile::open\n"
            "12.345679000 4242 17 exit OSSHFile::open rc OK\n");
}

TEST(TraceFormat, ADumpWithoutStampsHasNoTimes) {
  DumpBuilder dump;
  dump.options().flags = 0;
  dump.entry(kOpen);

  EXPECT_EQ(format(dump.instantaneous()), "- 4242 17 entry OSSHFile::open\n");
}

TEST(TraceFormat, TicksOfAnUnevenFrequencyAreRoundedDown) {
  DumpBuilder dump;
  dump.setTicksPerSecond(3'579'545);
  dump.stamp(3'579'546).entry(kOpen);

  EXPECT_EQ(format(dump.instantaneous()), "1.000000279 4242 17 entry OSSHFile::open\n");
}

TEST(TraceFormat, NamesCodesAndShowsWhatIsNotNamedAsANumber) {
  DumpBuilder dump;
  dump.exit(kOpen, ECF_INVALID_PARAMETER, 0xAB)
      .exit(0xFFFFFFFF, 0x93FFFFFF)
      .errorRc(kOpen, 50, ECF_FILE_EOF, 0x1234)
      .error(kOpen, 51, 7)
      .marker(kOpen, 9, 10, GTRACE_MARKED)
      .correlator(kOpen, 8, 0xBEEF);

  EXPECT_EQ(format(dump.instantaneous()),
            "0.000000000 4242 17 exit OSSHFile::open rc ECF_INVALID_PARAMETER extra 0xAB\n"
            "0.000000000 4242 17 exit 0xFFFFFFFF rc 0x93FFFFFF\n"
            "0.000000000 4242 17 error OSSHFile::open probe 50 rc ECF_FILE_EOF extra2 0x1234\n"
            "0.000000000 4242 17 error OSSHFile::open probe 51 extra 0x7\n"
            "0.000000000 4242 17 type 10 OSSHFile::open probe 9 marked\n"
            "0.000000000 4242 17 correlator OSSHFile::open probe 8 id 0xBEEF\n");
}

TEST(TraceFormat, ShowsFixedDataThatTheHostHasSet) {
  DumpBuilder dump;
  dump.fixedData(0xAB, 0xFFFFFFFF).entry(kOpen).fixedData(0xFFFFFFFF, 0).exit(kOpen);

  EXPECT_EQ(format(dump.instantaneous()),
            "0.000000000 4242 17 entry OSSHFile::open fixed1 0xAB\n"
            "0.000000000 4242 17 exit OSSHFile::open rc OK fixed2 0x0\n");
}

TEST(TraceFormat, DecodesItemsAsNumbersTextOrBytes) {
  DumpBuilder dump;
  dump.items(GTRACE_DATA, kRead, 40,
             {{GTRACE_ITEM_BLOCK, 4, kWord},
              {GTRACE_ITEM_BLOCK, 8, kLong},
              {GTRACE_ITEM_VALUE_1, 1, "A"},
              {GTRACE_ITEM_BLOCK, 9, R"(a "b" \ c)"},
              {GTRACE_ITEM_BLOCK, 3, kBinary},
              {GTRACE_ITEM_BLOCK, GTRACE_NULL_ITEM, ""},
              {GTRACE_ITEM_BLOCK, 0, ""},
              {GTRACE_ITEM_TRUNCATED, 3, "abc"}});

  EXPECT_EQ(format(dump.instantaneous()),
            "0.000000000 4242 17 data OSSHFile::read probe 40 [0x2] [0x102030405060708] [0x41] "
            "[\"a \\\"b\\\" \\\\ c\"] [01FF00] [null] [\"\"] [\"abc\"...]\n");
}

TEST(TraceFormat, AnItemOfAnErrorThatIsACodeIsNamed) {
  DumpBuilder dump;
  dump.items(GTRACE_ERROR, kRead, 40, {{GTRACE_ITEM_BLOCK, 4, kCode}})
      .items(GTRACE_DATA, kRead, 41, {{GTRACE_ITEM_BLOCK, 4, kCode}});

  EXPECT_EQ(format(dump.instantaneous()),
            "0.000000000 4242 17 error OSSHFile::read probe 40 "
            "[0x9000000C ECF_INVALID_PARAMETER]\n"
            "0.000000000 4242 17 data OSSHFile::read probe 41 [0x9000000C]\n");
}

TEST(TraceFormat, ItemsThatClaimMoreThanTheRecordHasAreCutAtItsEnd) {
  DumpBuilder dump;
  dump.items(GTRACE_DATA, kRead, 40, {{GTRACE_ITEM_BLOCK, 5000, "abc"}});

  EXPECT_EQ(format(dump.instantaneous()),
            "0.000000000 4242 17 data OSSHFile::read probe 40 [\"abc\"...]\n");
}

TEST(TraceFlow, IndentsByDepthAndShowsDurations) {
  DumpBuilder dump;
  dump.stamp(10).entry(kOpen).stamp(20).entry(kRead).stamp(25).error(kRead, 50, 0);
  dump.stamp(40).exit(kRead, ECF_FILE_EOF).stamp(70).exit(kOpen);

  EXPECT_EQ(format(dump.instantaneous(), true),
            "0.000001000 4242 17 entry OSSHFile::open\n"
            "0.000002000 4242 17 entry   OSSHFile::read\n"
            "0.000002500 4242 17 error     OSSHFile::read probe 50\n"
            "0.000004000 4242 17 exit   OSSHFile::read rc ECF_FILE_EOF (0.000002000 s)\n"
            "0.000007000 4242 17 exit OSSHFile::open rc OK (0.000006000 s)\n");
}

TEST(TraceFlow, KeepsThreadsApartAlsoWhenTheyShareANumber) {
  DumpBuilder dump;
  dump.thread(1, 5).stamp(10).entry(kOpen).thread(2, 5).stamp(20).entry(kRead);
  dump.thread(1, 5).stamp(30).exit(kOpen).thread(2, 5).stamp(40).exit(kRead);

  EXPECT_EQ(format(dump.instantaneous(), true),
            "0.000001000 1 5 entry OSSHFile::open\n"
            "0.000002000 2 5 entry OSSHFile::read\n"
            "0.000003000 1 5 exit OSSHFile::open rc OK (0.000002000 s)\n"
            "0.000004000 2 5 exit OSSHFile::read rc OK (0.000002000 s)\n");
}

TEST(TraceFlow, AnExitWithoutEntryIsMarkedAsCut) {
  DumpBuilder dump;
  dump.stamp(10).exit(kRead).stamp(20).entry(kOpen).stamp(30).exit(kRead).stamp(40).exit(kOpen);

  EXPECT_EQ(format(dump.instantaneous(), true),
            "0.000001000 4242 17 exit OSSHFile::read rc OK (cut)\n"
            "0.000002000 4242 17 entry OSSHFile::open\n"
            "0.000003000 4242 17 exit   OSSHFile::read rc OK (cut)\n"
            "0.000004000 4242 17 exit OSSHFile::open rc OK (0.000002000 s)\n");
}

TEST(TraceFlow, ACallWhoseExitIsMissingEndsWithItsCallerOrTheTraceAndIsMarkedAsOpen) {
  DumpBuilder dump;
  dump.stamp(10).entry(kOpen).stamp(20).entry(kRead).stamp(30).exit(kOpen);
  dump.stamp(40).entry(kClose).stamp(50).thread(9, 9).entry(kRead);

  EXPECT_EQ(format(dump.instantaneous(), true),
            "0.000001000 4242 17 entry OSSHFile::open\n"
            "0.000002000 4242 17 entry   OSSHFile::read\n"
            "- 4242 17 exit   OSSHFile::read (open) (0.000001000 s)\n"
            "0.000003000 4242 17 exit OSSHFile::open rc OK (0.000002000 s)\n"
            "0.000004000 4242 17 entry OSSHFile::close\n"
            "0.000005000 9 9 entry OSSHFile::read\n"
            "- 4242 17 exit OSSHFile::close (open) (0.000001000 s)\n"
            "- 9 9 exit OSSHFile::read (open) (0.000000000 s)\n");
}

TEST(TraceFormat, AWrappedRingIsShownFromItsOldestRecordOn) {
  DumpBuilder dump;
  for (uint32_t i = 0; i < 8192; ++i) dump.stamp(i).marker(kRead, 1, GTRACE_DATA);
  dump.wrap().stamp(100'000).marker(kRead, 2, GTRACE_DATA);

  const std::string text = format(dump.instantaneous());
  EXPECT_EQ(text.substr(0, text.find('\n')), "0.000000100 4242 17 data OSSHFile::read probe 1");
  const std::string last = "0.010000000 4242 17 data OSSHFile::read probe 2\n";
  EXPECT_EQ(text.substr(text.size() - last.size()), last);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8192);
}

TEST(TraceFormat, AnAutoDumpIsReadToItsEnd) {
  DumpBuilder dump;
  dump.options().mode = GTRACE_CHUNKED;
  dump.stamp(10).entry(kOpen).stamp(20).exit(kOpen);

  EXPECT_EQ(format(dump.autoDump()),
            "0.000001000 4242 17 entry OSSHFile::open\n"
            "0.000002000 4242 17 exit OSSHFile::open rc OK\n");
}

TEST(TraceFormat, AFunctionCountDumpIsATableOfTheMostCalledFirst) {
  DumpBuilder dump;
  dump.options().mode = GTRACE_FUNCTION_COUNT;
  dump.options().flags = GTRACE_COUNTING | GTRACE_CALL_STACKS;
  const std::string file = dump.counts({{3, kOpen, 15'000'000}, {0, 0, 0}, {12, kRead, 5}});

  EXPECT_EQ(format(file),
            "calls      total s  function\n"
            "   12  0.000000500  OSSHFile::read\n"
            "    3  1.500000000  OSSHFile::open\n");
  EXPECT_EQ(stats(file), format(file));
}

TEST(TraceFormat, AFileThatIsNoDumpIsRefused) {
  TempDirectory dir;
  writeFile(dir.file("dump"), "no dump");
  const oss::tool::FormatCommand command{
      .file = dir.file("dump"), .output = dir.file("output"), .flow = false};

  EXPECT_EQ(command.run(), oss::tool::kFailed);
  EXPECT_EQ(dir.names(), std::vector<std::string>{"dump"});
}

TEST(TraceFormat, AFileThatIsNoDumpIsCalledWhatItIs) {
  TempDirectory dir;
  const oss::tool::FormatCommand command{
      .file = dir.file("dump"), .output = dir.file("output"), .flow = false};
  const auto complaintOf = [&](const std::string& bytes) {
    writeFile(command.file, bytes);
    testing::internal::CaptureStderr();
    EXPECT_EQ(command.run(), oss::tool::kFailed);
    return testing::internal::GetCapturedStderr();
  };
  const std::string start = "osse: " + command.file + ": ";
  const std::string noDump =
      start + "is no trace dump: " + "ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER, " +
      ecfErrorGetDescription(ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER) + '\n';
  EXPECT_EQ(complaintOf(""), noDump);
  EXPECT_EQ(complaintOf("a text of any length"), noDump);
  EXPECT_EQ(complaintOf(TrapParts().whole()), start + "is a trap file; see osse trap\n");
  // A dump that was cut off remains one, and says what is missing.
  const std::string whole = DumpBuilder().instantaneous();
  EXPECT_EQ(complaintOf(whole.substr(0, whole.size() - 1)),
            start + "ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED, " +
                ecfErrorGetDescription(ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED) + '\n');
  EXPECT_EQ(complaintOf(whole.substr(0, 1000)),
            start + "ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED, " +
                ecfErrorGetDescription(ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED) + '\n');
}
