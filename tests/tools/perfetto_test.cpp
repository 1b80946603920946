// `osse trace export --perfetto`: every field of every packet.
#include <gtest/gtest.h>

#include "tools/protodecode.h"
#include "tools/toolrun.h"

using namespace osse_test;

namespace {

std::string exported(const DumpBuilder& dump) {
  return decodeMessage(
      exportAs(oss::tool::ExportCommand::Form::Perfetto, dump.instantaneous()),
      {"1", "1.11", "1.11.4", "1.12", "1.12.2", "1.12.3", "1.60", "1.60.3", "1.60.4"});
}

// The packet that every trace begins with: the names of annotations.
constexpr std::string_view kStart = R"text(1
  10 = 1
  13 = 1
  12
    3
      1 = 1
      2 = "probe"
    3
      1 = 2
      2 = "rc"
    3
      1 = 3
      2 = "extra"
    3
      1 = 4
      2 = "extra2"
    3
      1 = 5
      2 = "correlator"
    3
      1 = 6
      2 = "items"
    3
      1 = 7
      2 = "incomplete"
)text";

constexpr std::string_view kTracks = R"text(1
  10 = 1
  60
    1 = 4294967296
    3
      1 = 4242
      6 = "process 4242"
1
  10 = 1
  60
    1 = 1
    5 = 4294967296
    4
      1 = 4242
      2 = 17
      5 = "thread 17"
)text";

}  // namespace

TEST(PerfettoExport, AnEmptyDumpIsAStartWithoutEvents) {
  EXPECT_EQ(exported(DumpBuilder()), kStart);
}

TEST(PerfettoExport, ACallIsASliceWhoseNameIsWrittenOnce) {
  DumpBuilder dump;
  dump.stamp(10).entry(kOpen).stamp(20).exit(kOpen).stamp(30).entry(kOpen);
  dump.stamp(40).exit(kOpen, ECF_FILE_EOF, 0xAB);

  EXPECT_EQ(exported(dump), std::string(kStart) + std::string(kTracks) + R"text(1
  10 = 1
  13 = 2
  8 = 1000
  11
    11 = 1
    9 = 1
    10 = 1
  12
    2
      1 = 1
      2 = "OSSHFile::open"
1
  10 = 1
  13 = 2
  8 = 2000
  11
    11 = 1
    9 = 2
1
  10 = 1
  13 = 2
  8 = 3000
  11
    11 = 1
    9 = 1
    10 = 1
1
  10 = 1
  13 = 2
  8 = 4000
  11
    11 = 1
    9 = 2
    4
      1 = 2
      6 = "ECF_FILE_EOF"
    4
      1 = 3
      7 = 171
)text");
}

TEST(PerfettoExport, ErrorsAreInstantsWithTheirItems) {
  DumpBuilder dump;
  dump.stamp(10).items(GTRACE_ERROR, kRead, 50, {{GTRACE_ITEM_BLOCK, 3, "abc"}});

  EXPECT_EQ(exported(dump), std::string(kStart) + std::string(kTracks) + R"text(1
  10 = 1
  13 = 2
  8 = 1000
  11
    11 = 1
    9 = 3
    10 = 1
    4
      1 = 1
      3 = 50
    4
      1 = 6
      6 = "["abc"]"
  12
    2
      1 = 1
      2 = "error OSSHFile::read"
)text");
}

TEST(PerfettoExport, WhatAnEdgeHasCutIsMarked) {
  DumpBuilder dump;
  dump.stamp(10).exit(kRead).stamp(20).entry(kOpen).stamp(30).marker(kOpen, 1, GTRACE_DATA);

  EXPECT_EQ(exported(dump), std::string(kStart) + std::string(kTracks) + R"text(1
  10 = 1
  13 = 2
  8 = 1000
  11
    11 = 1
    9 = 3
    10 = 1
    4
      1 = 7
      6 = "entry"
  12
    2
      1 = 1
      2 = "OSSHFile::read (cut)"
1
  10 = 1
  13 = 2
  8 = 2000
  11
    11 = 1
    9 = 1
    10 = 2
  12
    2
      1 = 2
      2 = "OSSHFile::open"
1
  10 = 1
  13 = 2
  8 = 3000
  11
    11 = 1
    9 = 3
    10 = 3
    4
      1 = 1
      3 = 1
  12
    2
      1 = 3
      2 = "data OSSHFile::open"
1
  10 = 1
  13 = 2
  8 = 3000
  11
    11 = 1
    9 = 2
    4
      1 = 7
      6 = "exit"
)text");
}
