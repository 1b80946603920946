// `osse trace dump` on a section that another process traces into.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>

#include "harness/childprocess.h"
#include "osstrace.h"
#include "osstracepoint.h"
#include "tools/toolrun.h"

using namespace osse_test;
using oss::tool::DumpCommand;

namespace {

constexpr uint32_t kSmallest = RAMBO_SMALLEST_BUFFER;

// A control block in a named section.
class SharedBlock {
 public:
  explicit SharedBlock(uint32_t mode, uint32_t flags = 0)
      : name_("osse-dump-" + std::to_string(::GetCurrentProcessId())),
        mapping_(::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                      gtraceGetAllocSize(kSmallest), name_.c_str())),
        block_(
            static_cast<GTraceControlBlock*>(::MapViewOfFile(mapping_, FILE_MAP_WRITE, 0, 0, 0))) {
    std::vector<GTraceOptions> options(1);
    options[0].bufferSize = kSmallest;
    options[0].mode = mode;
    options[0].flags = flags;
    EXPECT_EQ(gtraceInitialize(block_, options.data()), ECF_OK);
    block_->enabled = 1;
  }
  ~SharedBlock() {
    ::UnmapViewOfFile(block_);
    ::CloseHandle(mapping_);
  }
  SharedBlock(const SharedBlock&) = delete;
  SharedBlock& operator=(const SharedBlock&) = delete;

  const std::string& name() const { return name_; }
  GTraceControlBlock& block() { return *block_; }

 private:
  std::string name_;
  HANDLE mapping_;
  GTraceControlBlock* block_;
};

// Attaches the section, calls open `count` times with the call's number as the exit's extra value,
// and disables tracing.
CHILD_ROLE(traceCalls) {
  const HANDLE mapping = ::OpenFileMappingA(FILE_MAP_WRITE, FALSE, arguments[0].c_str());
  void* const block = ::MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0);
  const uint64_t count = std::stoull(arguments[1]);
  EXPECT_EQ(gtraceAttach(block, 4242, nullptr, nullptr), ECF_OK);
  const std::string text(100, 'x');
  for (uint64_t i = 1; i <= count; ++i) {
    gtraceEntryVar(17, kOpen, 1, uint64_t{GTRACE_ITEM_BLOCK}, uint64_t{i % 100}, text.data());
    const uint64_t rc = 0;
    gtraceExit(17, kOpen, &rc, i);
  }
  EXPECT_EQ(gtraceDisable(), ECF_OK);
  EXPECT_EQ(gtraceDetach(), ECF_OK);
  return 0;
}

// Follows a section into a file.
CHILD_ROLE(follow) {
  return DumpCommand{.section = arguments[0], .file = arguments[1], .follow = true, .ringBytes = 0}
      .run();
}

std::string formatted(const TempDirectory& dir) {
  const oss::tool::FormatCommand command{
      .file = dir.file("dump"), .output = dir.file("text"), .flow = false};
  EXPECT_EQ(command.run(), oss::tool::kDone);
  return readFile(dir.file("text"));
}

// The lines that those calls give, from call `first` on.
std::string calls(uint64_t first, uint64_t last) {
  std::string text;
  char line[160];
  for (uint64_t i = first; i <= last; ++i) {
    text += "- 4242 17 entry OSSHFile::open [";
    const uint64_t length = i % 100;
    if (length == 4 || length == 8)
      text += length == 4 ? "0x78787878" : "0x7878787878787878";
    else
      text += '"' + std::string(length, 'x') + '"';
    std::snprintf(line, sizeof line, "]\n- 4242 17 exit OSSHFile::open rc OK extra 0x%llX\n",
                  static_cast<unsigned long long>(i));
    text += line;
  }
  return text;
}

DumpCommand dumpOf(const SharedBlock& shared, const TempDirectory& dir) {
  return {.section = shared.name(), .file = dir.file("dump"), .follow = false, .ringBytes = 0};
}

// Another process's calls are all in the file into which they are followed.
void followCalls(const SharedBlock& shared, const TempDirectory& dir, uint64_t count) {
  Child child = startChild("traceCalls", {shared.name(), std::to_string(count)});
  DumpCommand dump = dumpOf(shared, dir);
  dump.follow = true;
  EXPECT_EQ(dump.run(), oss::tool::kDone);
  EXPECT_EQ(child.wait(), 0u);
  EXPECT_TRUE(formatted(dir) == calls(1, count));
}

}  // namespace

TEST(TraceDump, AnInstantaneousDumpHoldsWhatAnotherProcessTraced) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_CIRCULAR);
  ASSERT_EQ(runChild("traceCalls", {shared.name(), "100"}), 0u);

  EXPECT_EQ(dumpOf(shared, dir).run(), oss::tool::kDone);
  EXPECT_EQ(formatted(dir), calls(1, 100));
  EXPECT_EQ(g_pGTCB, nullptr);
}

TEST(TraceDump, FollowingWritesEveryRecordWhileTracingGoesOn) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_CHUNKED);
  followCalls(shared, dir, 20'000);
}

TEST(TraceDump, ALaterDumperGoesOnWhereTheFirstOneEnded) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_CHUNKED);
  DumpCommand dump = dumpOf(shared, dir);
  dump.follow = true;
  // More than the ring, and within its third chunk.
  Child child = startChild("traceCalls", {shared.name(), "5000"});
  EXPECT_EQ(dump.run(), oss::tool::kDone);
  EXPECT_EQ(child.wait(), 0u);
  shared.block().enabled = 1;
  Child second = startChild("traceCalls", {shared.name(), "9000"});
  EXPECT_EQ(dump.run(), oss::tool::kDone);
  EXPECT_EQ(second.wait(), 0u);

  const std::string text = formatted(dir);
  const std::string all = calls(1, 9000);
  ASSERT_GE(text.size(), all.size());
  EXPECT_TRUE(text.substr(text.size() - all.size()) == all);
}

// Tracing goes on, so the one that ends is the one that is refused.
TEST(TraceDump, ASectionIsFollowedByOneDumperAtATime) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_CHUNKED);
  std::vector<Child> both;
  for (const char* const name : {"0", "1"})
    both.push_back(startChild("follow", {shared.name(), dir.file(name)},
                              {.outputFile = dir.file(std::string("said ") + name)}));
  const HANDLE processes[] = {both[0].handle(), both[1].handle()};
  const DWORD ended = ::WaitForMultipleObjects(2, processes, FALSE, 240'000);
  ASSERT_LT(ended, 2u);
  EXPECT_EQ(both[ended].wait(), uint32_t{oss::tool::kFailed});
  const std::string number = std::to_string(ended);
  EXPECT_EQ(readFile(dir.file("said " + number)),
            "osse: " + shared.name() + ": is being followed already\n");
  EXPECT_FALSE(std::filesystem::exists(dir.file(number)));

  // One that was ended leaves the right to the next.
  both[1 - ended].kill();
  followCalls(shared, dir, 5000);
}

TEST(TraceDump, AFollowingThatCannotBeginSaysThatTheProgramWaits) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_CHUNKED);
  DumpCommand dump = dumpOf(shared, dir);
  dump.follow = true;
  dump.file = dir.file("missing\\dump");
  testing::internal::CaptureStderr();
  EXPECT_EQ(dump.run(), oss::tool::kFailed);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "osse: " + dump.file + ": cannot be written, system error 3\nosse: " + shared.name() +
                ": its program waits until it is followed into another file, or that is ended by "
                "Ctrl+C\n");

  // Nothing is lost by it.
  followCalls(shared, dir, 5000);
}

TEST(TraceDump, ARingFileKeepsTheNewestChunks) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_CHUNKED);
  Child child = startChild("traceCalls", {shared.name(), "20000"});
  DumpCommand dump = dumpOf(shared, dir);
  dump.follow = true;
  dump.ringBytes = 2 * RAMBO_CHUNK - 1;
  EXPECT_EQ(dump.run(), oss::tool::kDone);
  EXPECT_EQ(child.wait(), 0u);

  EXPECT_EQ(readFile(dir.file("dump")).size(), sizeof(GTraceDumpHeader) + 2 * RAMBO_CHUNK);
  const std::string text = formatted(dir);
  const std::string newest = calls(19'500, 20'000);
  ASSERT_GE(text.size(), newest.size());
  EXPECT_TRUE(text.substr(text.size() - newest.size()) == newest);
}

TEST(TraceDump, AFunctionCountDumpTellsOfLostCalls) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_FUNCTION_COUNT);
  ASSERT_EQ(runChild("traceCalls", {shared.name(), "100"}), 0u);
  shared.block().stopCounter = 5;

  EXPECT_EQ(dumpOf(shared, dir).run(), oss::tool::kDone);
  EXPECT_EQ(formatted(dir),
            "calls  total s  function\n"
            "  100        -  OSSHFile::open\n"
            "lost: the table was full, calls that were not counted: 5\n");
}

TEST(TraceDump, WhatCannotBeDumpedIsRefusedAndNoFileIsMade) {
  TempDirectory dir;
  SharedBlock shared(GTRACE_CIRCULAR);
  DumpCommand dump = dumpOf(shared, dir);
  dump.follow = true;
  EXPECT_EQ(dump.run(), oss::tool::kFailed);  // not chunked

  dump.follow = false;
  shared.block().initialized = 0;
  EXPECT_EQ(dump.run(), oss::tool::kFailed);

  shared.block().options.bufferSize = RAMBO_LARGEST_BUFFER;  // more than the section has
  EXPECT_EQ(dump.run(), oss::tool::kFailed);

  dump.section = "osse-no-such-section";
  EXPECT_EQ(dump.run(), oss::tool::kFailed);
  EXPECT_EQ(dir.names(), std::vector<std::string>{});
}
