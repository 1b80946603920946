// `osse trace export`: Chrome and folded forms as whole texts.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "tools/toolrun.h"

using namespace osse_test;
using Form = oss::tool::ExportCommand::Form;
using Json = nlohmann::json;

namespace {

// A call in a call, an error with a code and an item, and all that an edge can cut.
DumpBuilder edges() {
  DumpBuilder dump;
  dump.stamp(10).exit(kClose).stamp(20).entry(kOpen).stamp(30).entry(kRead);
  dump.stamp(40).items(GTRACE_ERROR, kRead, 50, {{GTRACE_ITEM_BLOCK, 3, "a\"b"}});
  dump.stamp(60).exit(kRead, ECF_FILE_EOF).stamp(70).entry(kClose).stamp(90).exit(kOpen);
  dump.stamp(100).thread(4242, 18).entry(kRead).stamp(115).marker(kRead, 1, GTRACE_DATA);
  return dump;
}

constexpr std::string_view kEdgesInChrome = R"json({"traceEvents":[
{"ph":"M","name":"process_name","pid":4242,"tid":17,"args":{"name":"process 4242"}},
{"ph":"M","name":"thread_name","pid":4242,"tid":17,"args":{"name":"thread 17"}},
{"ph":"i","ts":1.000,"pid":4242,"tid":17,"name":"OSSHFile::close (cut)","s":"t","args":{"incomplete":"entry"}},
{"ph":"B","ts":2.000,"pid":4242,"tid":17,"name":"OSSHFile::open"},
{"ph":"B","ts":3.000,"pid":4242,"tid":17,"name":"OSSHFile::read"},
{"ph":"i","ts":4.000,"pid":4242,"tid":17,"name":"error OSSHFile::read","s":"t","args":{"probe":50,"items":"[\"a\\\"b\"]"}},
{"ph":"E","ts":6.000,"pid":4242,"tid":17,"args":{"rc":"ECF_FILE_EOF"}},
{"ph":"B","ts":7.000,"pid":4242,"tid":17,"name":"OSSHFile::close"},
{"ph":"E","ts":9.000,"pid":4242,"tid":17,"args":{"incomplete":"exit"}},
{"ph":"E","ts":9.000,"pid":4242,"tid":17},
{"ph":"M","name":"thread_name","pid":4242,"tid":18,"args":{"name":"thread 18"}},
{"ph":"B","ts":10.000,"pid":4242,"tid":18,"name":"OSSHFile::read"},
{"ph":"i","ts":11.500,"pid":4242,"tid":18,"name":"data OSSHFile::read","s":"t","args":{"probe":1}},
{"ph":"E","ts":11.500,"pid":4242,"tid":18,"args":{"incomplete":"exit"}}
],"displayTimeUnit":"ns","otherData":{"times":"performance counter"}}
)json";

}  // namespace

TEST(TraceExport, ChromeHasABeginAndAnEndForEachCall) {
  EXPECT_EQ(exportAs(Form::Chrome, edges().instantaneous()), kEdgesInChrome);
}

TEST(TraceExport, ChromeIsValidJsonWhoseCallsNest) {
  const Json trace = Json::parse(exportAs(Form::Chrome, edges().instantaneous()));

  std::map<uint64_t, int> depth;
  for (const Json& event : trace["traceEvents"]) {
    int& calls = depth[event["tid"].get<uint64_t>()];
    if (event["ph"] == "B") ++calls;
    if (event["ph"] == "E") --calls;
    ASSERT_GE(calls, 0);
  }
  EXPECT_EQ(depth, (std::map<uint64_t, int>{{17, 0}, {18, 0}}));
}

TEST(TraceExport, ChromeSaysThatTimesAreNumbersWhenThereAreNoStamps) {
  DumpBuilder dump;
  dump.options().flags = 0;
  dump.entry(kOpen).exit(kOpen);

  const Json trace = Json::parse(exportAs(Form::Chrome, dump.instantaneous()));
  EXPECT_EQ(trace["otherData"]["times"], "numbers of records, for lack of stamps");
  EXPECT_EQ(trace["traceEvents"][2]["ts"], 1.0);
  EXPECT_EQ(trace["traceEvents"][3]["ts"], 2.0);
}

TEST(TraceExport, AnEmptyDumpIsAnEmptyTrace) {
  EXPECT_EQ(Json::parse(exportAs(Form::Chrome, DumpBuilder().instantaneous()))["traceEvents"],
            Json::array());
  EXPECT_EQ(exportAs(Form::Folded, DumpBuilder().instantaneous()), "");
}

TEST(TraceExport, FoldedHasTheTimeOfEachStackItself) {
  EXPECT_EQ(exportAs(Form::Folded, edges().instantaneous()),
            "process 4242;thread 17;OSSHFile::close (cut) 0\n"
            "process 4242;thread 17;OSSHFile::open 2000\n"
            "process 4242;thread 17;OSSHFile::open;OSSHFile::read 3000\n"
            "process 4242;thread 17;OSSHFile::open;OSSHFile::close (open) 2000\n"
            "process 4242;thread 18;OSSHFile::read (open) 1500\n");
}

TEST(TraceExport, FoldedAddsUpEqualStacksAndCountsCallsWithoutStamps) {
  DumpBuilder dump;
  dump.options().flags = 0;
  dump.entry(kOpen).entry(kRead).exit(kRead).entry(kRead).exit(kRead).exit(kOpen);

  EXPECT_EQ(exportAs(Form::Folded, dump.instantaneous()),
            "process 4242;thread 17;OSSHFile::open 1\n"
            "process 4242;thread 17;OSSHFile::open;OSSHFile::read 2\n");
}

TEST(TraceExport, AFunctionCountDumpIsRefused) {
  DumpBuilder dump;
  dump.options().mode = GTRACE_FUNCTION_COUNT;
  TempDirectory dir;
  writeFile(dir.file("dump"), dump.counts({{1, kOpen, 0}}));
  const oss::tool::ExportCommand command{
      .file = dir.file("dump"), .output = dir.file("output"), .form = Form::Folded};

  EXPECT_EQ(command.run(), oss::tool::kFailed);
}
