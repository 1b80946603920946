// One log and several writers: threads that drop each other's records, processes that wait for each
// other; and the clock of a process that lives in another time zone.
#include <gmock/gmock.h>

#include <ctime>
#include <map>
#include <set>
#include <thread>
#include <tuple>

#include "harness/childprocess.h"
#include "harness/importhook.h"
#include "harness/logrecord.h"
#include "harness/sharedobjects.h"
#include "harness/tempdir.h"
#include "osscatalog.h"
#include "osslog.h"
#include "ossprocess.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr uint32_t kFunction = static_cast<uint32_t>(oss::Func::OSSHFile_open);

void openLog(OSSLogFacility* facility, const std::string& path) {
  OSSLogFacOpenParam param;
  path.copy(param.path, sizeof param.path - 1);
  param.name[0] = 'n';
  param.level = OSS_LOG_INFO;
  param.destination = OSS_LOG_TO_FILE;
  EXPECT_EQ(ossLogFacOpen(&param, facility), ECF_OK);
}

// Writes `count` records that carry the writer's number and their own; returns how many calls did
// not succeed.
uint32_t writeRecords(uint32_t writer, uint32_t count) {
  uint32_t failed = 0;
  for (uint32_t number = 0; number < count; ++number)
    failed += ossLog(nullptr, kFunction, ECF_FAILED, 10, OSS_LOG_INFO, 2,
                     static_cast<const void*>(&writer), uint64_t{4}, OSS_LOG_UINT,
                     static_cast<const void*>(&number), uint64_t{4}, OSS_LOG_UINT) != ECF_OK;
  return failed;
}

// Who wrote a record, and which of its own it was.
struct Mark {
  uint32_t process, writer, number;

  auto operator<=>(const Mark&) const = default;
};

// Takes the log apart, which fails the test unless every byte belongs to a whole record at the
// place that the record states.
std::vector<Mark> marksIn(const std::string& path) {
  const ParsedLog log = parseLog(readFile(path));
  EXPECT_EQ(log.error, "");
  std::vector<Mark> marks;
  for (const LogRecord& record : log.records) {
    EXPECT_EQ(record.items.size(), 2U);
    if (record.items.size() != 2) continue;
    marks.push_back({record.processId,
                     static_cast<uint32_t>(std::stoul(record.items[0].value.text)),
                     static_cast<uint32_t>(std::stoul(record.items[1].value.text))});
  }
  return marks;
}

// Every record is there at most once, and those of one writer stand in the order of writing.
void expectUniqueAndInOrder(const std::vector<Mark>& marks) {
  EXPECT_EQ(std::set<Mark>(marks.begin(), marks.end()).size(), marks.size());
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> last;
  for (const Mark& mark : marks) {
    const auto [at, first] = last.try_emplace({mark.process, mark.writer}, mark.number);
    EXPECT_TRUE(first || at->second < mark.number)
        << mark.process << "/" << mark.writer << ": " << at->second << " before " << mark.number;
    at->second = mark.number;
  }
}

// ---- Processes ----

// Two children in this role write to the log at once, each until it has done its part.
void writeFromTwoProcesses(const char* role, const std::string& path) {
  Event ready, goFirst, goSecond;
  Child first = startChild(role, {path, ready.name(), goFirst.name()});
  ASSERT_TRUE(ready.wait());
  Child second = startChild(role, {path, ready.name(), goSecond.name()});
  ASSERT_TRUE(ready.wait());
  goFirst.set();
  goSecond.set();
  EXPECT_EQ(first.wait(), 0U);
  EXPECT_EQ(second.wait(), 0U);
}

constexpr uint32_t kRecordsOfAProcess = 150;

CHILD_ROLE(writeLogAlone) {
  openLog(nullptr, arguments[0]);
  Event ready(arguments[1]), go(arguments[2]);
  ready.set();
  if (!go.wait()) return 1;
  return writeRecords(0, kRecordsOfAProcess) == 0 ? 0 : 2;
}

// With one thread in each process nothing is dropped: the file's lock makes a process wait.
TEST(LogSharing, ProcessesWaitForEachOther) {
  const TempDirectory dir;
  const std::string path = dir.file("oss.log");
  writeFromTwoProcesses("writeLogAlone", path);

  const std::vector<Mark> marks = marksIn(path);
  EXPECT_EQ(marks.size(), 2 * kRecordsOfAProcess);
  expectUniqueAndInOrder(marks);
}

// ---- Threads ----

constexpr uint32_t kThreads = 8;
constexpr uint32_t kRecordsOfAThread = 60;

// All threads of the process write; returns how many calls did not succeed.
uint32_t writeFromThreads() {
  std::atomic<uint32_t> failed{0};
  std::vector<std::thread> threads;
  for (uint32_t writer = 0; writer < kThreads; ++writer)
    threads.emplace_back([&failed, writer] { failed += writeRecords(writer, kRecordsOfAThread); });
  for (std::thread& thread : threads) thread.join();
  return failed;
}

// Deliberate: a thread that finds another one writing drops its record, and its call succeeds.
TEST(LogSharing, ThreadsDropRecordsButTearNone) {
  const TempDirectory dir;
  const std::string path = dir.file("oss.log");
  openLog(nullptr, path);
  EXPECT_EQ(writeFromThreads(), 0U);
  EXPECT_EQ(ossLogFacClose(nullptr), ECF_OK);

  const std::vector<Mark> marks = marksIn(path);
  EXPECT_GE(marks.size(), 1U);
  EXPECT_LE(marks.size(), kThreads * kRecordsOfAThread);
  expectUniqueAndInOrder(marks);
}

CHILD_ROLE(writeLogFromThreads) {
  openLog(nullptr, arguments[0]);
  Event ready(arguments[1]), go(arguments[2]);
  ready.set();
  if (!go.wait()) return 1;
  return writeFromThreads() == 0 ? 0 : 2;
}

TEST(LogSharing, ThreadsOfTwoProcessesTearNoRecord) {
  const TempDirectory dir;
  const std::string path = dir.file("oss.log");
  writeFromTwoProcesses("writeLogFromThreads", path);

  const std::vector<Mark> marks = marksIn(path);
  EXPECT_GE(marks.size(), 2U);
  EXPECT_LE(marks.size(), 2 * kThreads * kRecordsOfAThread);
  expectUniqueAndInOrder(marks);
}

// The other thread's record comes while the first one lies between its lock and its write.
TEST(LogSharing, ARecordOfAnotherThreadIsDroppedWhileOneIsBeingWritten) {
  const TempDirectory dir;
  const std::string path = dir.file("oss.log");
  openLog(nullptr, path);
  {
    ImportHook writes("WriteFile", [](Call& call) {
      std::thread other([] { EXPECT_EQ(writeRecords(2, 1), 0U); });
      other.join();
      return call.passOn();
    });
    EXPECT_EQ(writeRecords(1, 1), 0U);
    EXPECT_EQ(writes.calls(), 1);
  }
  EXPECT_EQ(writeRecords(3, 1), 0U);
  EXPECT_EQ(ossLogFacClose(nullptr), ECF_OK);

  const std::vector<Mark> marks = marksIn(path);
  ASSERT_EQ(marks.size(), 2U);
  EXPECT_EQ(marks[0].writer, 1U);
  EXPECT_EQ(marks[1].writer, 3U);
}

// ---- Time zones ----

CHILD_ROLE(writeOneRecord) {
  openLog(nullptr, arguments[0]);
  return static_cast<int>(writeRecords(0, 1));
}

// A zone as the C run-time spells it (hours west of Greenwich), and what a record shows for it.
struct Zone {
  const char* name;
  int32_t minutes;
};

class LogZoneTest : public TestWithParam<Zone> {};

TEST_P(LogZoneTest, ARecordShowsItsOffset) {
  const TempDirectory dir;
  const std::string path = dir.file("oss.log");
  ASSERT_EQ(runChild("writeOneRecord", {path}, {.environment = {{"TZ", GetParam().name}}}), 0U);

  const ParsedLog log = parseLog(readFile(path));
  EXPECT_EQ(log.error, "");
  ASSERT_EQ(log.records.size(), 1U);
  EXPECT_EQ(log.records[0].zoneMinutes, GetParam().minutes);
}

// Deliberate, in the last rows: whatever lies further east than 12 hours is shown as a zone in the
// west, and 12 hours west as 12 hours east.
INSTANTIATE_TEST_SUITE_P(Zones, LogZoneTest,
                         Values(Zone{"UTC0", 0}, Zone{"STD-1", 60}, Zone{"STD5", -300},
                                Zone{"STD-5:30", 330}, Zone{"STD3:30", -210}, Zone{"STD-12", 720},
                                Zone{"STD12", 720}, Zone{"STD-12:45", -675}, Zone{"STD-13", -660},
                                Zone{"STD-14", -600}),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });

}  // namespace
