// `osse trace stats`: whole texts.
#include <gtest/gtest.h>

#include "tools/toolrun.h"

using namespace osse_test;

namespace {

constexpr char kNoRejects[] =
    "  not a record 0\n"
    "  slot count out of range 0\n"
    "  cut off 0\n"
    "  trailer mismatch 0\n"
    "  stale 0\n";

// The table of functions.
std::string tableOf(const std::string& text) { return text.substr(0, text.find("\n\n") + 1); }

// The lines behind it that tell of slots.
std::string slotsOf(const std::string& text) { return text.substr(text.find("\nslots") + 1); }

}  // namespace

TEST(TraceStats, CountsCallsErrorsAndTimes) {
  DumpBuilder dump;
  dump.stamp(10).entry(kOpen).stamp(20).entry(kRead).stamp(25).error(kRead, 50, 0);
  dump.stamp(40).exit(kRead, ECF_FILE_EOF).stamp(70).exit(kOpen).stamp(80).exit(kClose);
  dump.stamp(90).entry(kRead);

  EXPECT_EQ(stats(dump.instantaneous()),
            "calls  errors  failed      total s       self s  function\n"
            "    1       0       0  0.000006000  0.000004000  OSSHFile::open\n"
            "    2       1       1  0.000002000  0.000002000  OSSHFile::read\n"
            "    0       0       0  0.000000000  0.000000000  OSSHFile::close\n"
            "\n"
            "records 7, threads 1\n"
            "calls whose exit is missing 1\n"
            "exits whose entry is missing 1\n"
            "\n"
            "slots 8192\n"
            "  of whole records 7\n"
            "  never written 8185\n" +
                std::string(kNoRejects));
}

TEST(TraceStats, ARecursiveFunctionsTotalIsThatOfItsOutermostCall) {
  DumpBuilder dump;
  dump.stamp(10).entry(kOpen).stamp(20).entry(kOpen).stamp(30).exit(kOpen).stamp(50).exit(kOpen);

  EXPECT_EQ(tableOf(stats(dump.instantaneous())),
            "calls  errors  failed      total s       self s  function\n"
            "    2       0       0  0.000004000  0.000004000  OSSHFile::open\n");
}

TEST(TraceStats, WithoutStampsFunctionsAreSortedByCalls) {
  DumpBuilder dump;
  dump.options().flags = 0;
  dump.entry(kOpen).exit(kOpen).entry(kRead).exit(kRead).entry(kRead).exit(kRead);

  EXPECT_EQ(tableOf(stats(dump.instantaneous())),
            "calls  errors  failed  total s  self s  function\n"
            "    2       0       0        -       -  OSSHFile::read\n"
            "    1       0       0        -       -  OSSHFile::open\n");
}

TEST(TraceStats, TellsWhyASlotWasRejected) {
  DumpBuilder dump;
  dump.entry(kOpen).entry(kOpen).entry(kOpen).entry(kOpen).entry(kOpen);
  std::string& slots = dump.slots();
  slots[0 * 64 + 4] = 0;                              // the mark
  slots[1 * 64 + 6] = 0;                              // no slots
  slots[2 * 64 + 6] = 1, slots[2 * 64 + 7] = '\x10';  // 4,097 slots
  slots[3 * 64 + 60] ^= 1;                            // the trailer

  EXPECT_EQ(slotsOf(stats(dump.instantaneous())),
            "slots 8192\n"
            "  of whole records 1\n"
            "  never written 8187\n"
            "  not a record 1\n"
            "  slot count out of range 2\n"
            "  cut off 0\n"
            "  trailer mismatch 1\n"
            "  stale 0\n");
}

TEST(TraceStats, ARecordThatRunsBeyondTheLastSlotIsCutOff) {
  DumpBuilder dump;
  dump.options().mode = GTRACE_CHUNKED;
  dump.entry(kOpen).items(GTRACE_DATA, kRead, 1, {{GTRACE_ITEM_BLOCK, 3, "abc"}});
  dump.slots().resize(2 * 64);

  EXPECT_EQ(slotsOf(stats(dump.autoDump())),
            "slots 2\n"
            "  of whole records 1\n"
            "  never written 0\n"
            "  not a record 0\n"
            "  slot count out of range 0\n"
            "  cut off 1\n"
            "  trailer mismatch 0\n"
            "  stale 0\n");
}

TEST(TraceStats, RecordsOfAnEarlierPassAreStaleAndALossIsTold) {
  DumpBuilder dump;
  for (uint32_t i = 0; i < 8192; ++i) dump.marker(kRead, 1, GTRACE_DATA);
  dump.wrap();
  const std::string before = dump.slots().substr(0, 3 * 64);
  dump.marker(kRead, 2, GTRACE_DATA).marker(kRead, 2, GTRACE_DATA).marker(kRead, 2, GTRACE_DATA);
  // A writer reserved the second slot and has not sealed it.
  dump.slots().replace(64, 64, before, 64, 64);

  EXPECT_EQ(slotsOf(stats(dump.instantaneous())),
            "slots 8192\n"
            "  of whole records 8191\n"
            "  never written 0\n"
            "  not a record 0\n"
            "  slot count out of range 0\n"
            "  cut off 0\n"
            "  trailer mismatch 0\n"
            "  stale 1\n"
            "lost: the ring wrapped, and old records were overwritten, 3 slots of 8195\n");
}

TEST(TraceStats, AFilledBufferLostWhatCameLater) {
  DumpBuilder dump;
  dump.options().mode = GTRACE_FILL_ONCE;
  for (uint32_t i = 0; i < 8192; ++i) dump.marker(kRead, 1, GTRACE_DATA);

  EXPECT_EQ(slotsOf(stats(dump.instantaneous(1))),
            "slots 8192\n"
            "  of whole records 8192\n"
            "  never written 0\n" +
                std::string(kNoRejects) +
                "lost: the buffer filled, and later records were dropped\n");
}

namespace {

// What is told of a dump by the command and on standard error, without its path.
template <class Command>
std::pair<std::string, std::string> shownAndTold(const std::string& dump) {
  testing::internal::CaptureStderr();
  const std::string shown = run(Command{}, dump);
  const std::string told = testing::internal::GetCapturedStderr();
  return {shown, told.empty() ? "" : told.substr(told.rfind(": ") + 2)};
}

}  // namespace

TEST(TraceStats, ACutTableOfFunctionsIsTold) {
  using oss::tool::FormatCommand;
  using oss::tool::StatsCommand;
  DumpBuilder dump;
  dump.options().mode = GTRACE_FUNCTION_COUNT;
  dump.options().flags = GTRACE_COUNTING;
  const std::string whole = dump.counts({{12, kRead, 0}, {3, kOpen, 0}});
  EXPECT_EQ(shownAndTold<StatsCommand>(whole).second, "");

  // In the second entry.
  const std::string cut = whole.substr(0, sizeof(GTraceDumpHeader) + 24);
  const std::string missing = "is cut off, it lacks 524264 of 524288 bytes of its table\n";
  const auto [shown, told] = shownAndTold<StatsCommand>(cut);
  EXPECT_EQ(told, missing);
  EXPECT_EQ(shown,
            "calls  total s  function\n"
            "   12        -  OSSHFile::read\n"
            "lost: the file " +
                missing);
  EXPECT_EQ(shownAndTold<FormatCommand>(cut).second, missing);
}

TEST(TraceStats, AChunkThatEndsWithinASlotIsTold) {
  using oss::tool::StatsCommand;
  DumpBuilder dump;
  const std::string whole = dump.entry(kOpen).entry(kRead).autoDump();
  EXPECT_EQ(shownAndTold<StatsCommand>(whole).second, "");
  const auto [shown, told] = shownAndTold<StatsCommand>(whole.substr(0, whole.size() - 1));
  EXPECT_EQ(told, "is cut off, it lacks the end of a slot\n");
  EXPECT_EQ(slotsOf(shown).substr(slotsOf(shown).find("lost")),
            "lost: the file is cut off, it lacks the end of a slot\n");
}
