// The three destinations of a record: which calls of the system each makes, and what becomes of the
// record when one of them fails.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <io.h>

#include "harness/handles.h"
#include "harness/importhook.h"
#include "tests/log/osslogfixture.h"

namespace oss {
namespace {

using log_test::LogTest;
using log_test::paramFor;
using log_test::probesOf;
using log_test::writeRecord;
using osse_test::Call;
using osse_test::CallCounter;
using osse_test::FailingCall;
using osse_test::ImportHook;
using osse_test::kAllOnes;
using osse_test::openHandles;
using osse_test::readFile;
using osse_test::Word;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- File ----

class FileWriterTest : public LogTest {
 protected:
  // Writes down each call that passes and lets it through.
  auto noting(const char* function) {
    return [this, function](Call& call) {
      calls_.push_back(function);
      return call.passOn();
    };
  }

  std::vector<std::string> calls_;
};

TEST_F(FileWriterTest, OpensLocksSeeksWritesUnlocksAndClosesForEachRecord) {
  {
    ImportHook hooks[] = {
        {"CreateFileA", noting("CreateFileA")},       {"LockFileEx", noting("LockFileEx")},
        {"SetFilePointer", noting("SetFilePointer")}, {"GetFileSize", noting("GetFileSize")},
        {"WriteFile", noting("WriteFile")},           {"UnlockFileEx", noting("UnlockFileEx")},
        {"CloseHandle", noting("CloseHandle")}};
    EXPECT_EQ(write(10), ECF_OK);
  }
  EXPECT_THAT(calls_, ElementsAre("CreateFileA", "LockFileEx", "SetFilePointer", "GetFileSize",
                                  "SetFilePointer", "GetFileSize", "WriteFile", "UnlockFileEx",
                                  "CloseHandle"));
}

TEST_F(FileWriterTest, CreatesTheFileOrOpensItForWritingShared) {
  ImportHook opens("CreateFileA", [this](Call& call) {
    EXPECT_EQ(call.argument<const char*>(0), path_);
    EXPECT_EQ(call.argument<DWORD>(1), DWORD{GENERIC_WRITE});
    EXPECT_EQ(call.argument<DWORD>(2), DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE});
    EXPECT_EQ(call.argument<void*>(3), nullptr);
    EXPECT_EQ(call.argument<DWORD>(4), DWORD{OPEN_ALWAYS});
    EXPECT_EQ(call.argument<DWORD>(5), DWORD{FILE_ATTRIBUTE_NORMAL});
    EXPECT_EQ(call.argument<HANDLE>(6), nullptr);
    return call.passOn();
  });

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_EQ(write(20), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(10, 20));
}

TEST_F(FileWriterTest, LocksTheFirstByteExclusively) {
  ImportHook locks("LockFileEx", [](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(1), DWORD{LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY});
    EXPECT_EQ(call.argument<DWORD>(3), 1U);
    EXPECT_EQ(call.argument<DWORD>(4), 0U);
    const auto* const start = call.argument<const OVERLAPPED*>(5);
    EXPECT_EQ(start->Offset, 0U);
    EXPECT_EQ(start->OffsetHigh, 0U);
    return call.passOn();
  });

  EXPECT_EQ(write(10), ECF_OK);
}

// The file's other writer lets go while this one sleeps.
TEST_F(FileWriterTest, WaitsForAFileThatAnotherWriterHasLocked) {
  bool locked = true;
  std::vector<DWORD> slept;
  ImportHook locks("LockFileEx", [&](Call& call) {
    if (!locked) return call.passOn();
    ::SetLastError(ERROR_LOCK_VIOLATION);
    return Word{FALSE};
  });
  ImportHook sleeps("Sleep", [&](Call& call) {
    slept.push_back(call.argument<DWORD>(0));
    locked = slept.size() < 3;
  });

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_THAT(slept, ElementsAre(100, 100, 100));
  EXPECT_THAT(probes(), ElementsAre(10));
}

TEST_F(FileWriterTest, WritesTheRecordAtTheEndOfWhatTheFileHolds) {
  osse_test::writeFile(path_, "something else");
  EXPECT_EQ(write(10), ECF_OK);

  const std::string log = text();
  EXPECT_EQ(log.substr(0, 16), "something else\r\n");
  EXPECT_EQ(log.substr(14 + 33, 17), "I16F" + std::to_string(log.size() - 16) + "          ");
}

// One step of the writer that the system refuses, and the result of the record.
struct RefusedStep {
  const char* function;
  Word result;
  int onCall;
  OSSErr rc;
};

const RefusedStep kRefusedSteps[] = {
    {"GetFileAttributesA", INVALID_FILE_ATTRIBUTES, 1, ECF_OK},
    {"CreateFileA", kAllOnes, 1, ECF_FAILED},
    {"LockFileEx", FALSE, 1, ECF_FAILED},
    {"SetFilePointer", INVALID_SET_FILE_POINTER, 1, ECF_FAILED},
    {"GetFileSize", INVALID_FILE_SIZE, 1, ECF_FAILED},
    {"SetFilePointer", INVALID_SET_FILE_POINTER, 2, ECF_FAILED},
    {"GetFileSize", INVALID_FILE_SIZE, 2, ECF_FAILED},
    {"WriteFile", FALSE, 1, ECF_FAILED},
    {"UnlockFileEx", FALSE, 1, ECF_OK},
};

TEST_F(FileWriterTest, AnyRefusedStepUpToTheWriteFailsTheRecordAndNoOther) {
  EXPECT_EQ(write(1), ECF_OK);
  std::vector<uint64_t> expected = {1};
  uint64_t probe = 100;
  for (const RefusedStep& step : kRefusedSteps) {
    SCOPED_TRACE(testing::Message() << step.function << " " << step.onCall);
    const size_t handles = openHandles();
    {
      const FailingCall fails(step.function, ERROR_CRC,
                              {.result = step.result, .onCall = step.onCall});
      EXPECT_EQ(write(++probe), step.rc);
    }
    if (step.rc == ECF_OK) expected.push_back(probe);
    EXPECT_EQ(openHandles(), handles);
    expectFree();

    EXPECT_EQ(write(++probe), ECF_OK);
    expected.push_back(probe);
  }
  EXPECT_EQ(probes(), expected);
}

TEST_F(FileWriterTest, AFailureOfCloseIsIgnored) {
  ImportHook closes("CloseHandle", [](Call& call) {
    call.passOn();
    ::SetLastError(ERROR_INVALID_HANDLE);
    return Word{FALSE};
  });

  EXPECT_EQ(write(10), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(10));
}

TEST_F(FileWriterTest, UnlocksAndClosesAfterAFailedWrite) {
  const FailingCall fails("WriteFile", ERROR_DISK_FULL);
  const CallCounter unlocks("UnlockFileEx"), closes("CloseHandle");

  EXPECT_EQ(write(10), ECF_FAILED);
  EXPECT_EQ(unlocks.calls(), 1);
  EXPECT_EQ(closes.calls(), 1);
}

TEST_F(FileWriterTest, ClosesButDoesNotUnlockWhatItCouldNotLock) {
  const FailingCall fails("LockFileEx", ERROR_NOT_SUPPORTED);
  const CallCounter writes("WriteFile"), unlocks("UnlockFileEx"), closes("CloseHandle");

  EXPECT_EQ(write(10), ECF_FAILED);
  EXPECT_EQ(writes.calls(), 0);
  EXPECT_EQ(unlocks.calls(), 0);
  EXPECT_EQ(closes.calls(), 1);
}

TEST_F(FileWriterTest, ClosesNothingThatItCouldNotOpen) {
  const FailingCall fails("CreateFileA", ERROR_ACCESS_DENIED, {.result = kAllOnes});
  const CallCounter locks("LockFileEx"), closes("CloseHandle");

  EXPECT_EQ(write(10), ECF_FAILED);
  EXPECT_EQ(locks.calls(), 0);
  EXPECT_EQ(closes.calls(), 0);
}

TEST_F(FileWriterTest, AShortWriteFailsTheRecord) {
  {
    ImportHook writes("WriteFile", [](Call& call) {
      *call.argument<DWORD*>(3) = call.argument<DWORD>(2) - 1;
      return Word{TRUE};
    });
    EXPECT_EQ(write(10), ECF_FAILED);
  }
  EXPECT_EQ(write(20), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(20));
}

TEST_F(FileWriterTest, AMissingDirectoryFailsTheRecord) {
  open(facility_, paramFor(dir_.file("missing\\oss.log")));
  EXPECT_EQ(write(10), ECF_FAILED);
  open(facility_, paramFor(path_));
  EXPECT_EQ(write(20), ECF_OK);
  EXPECT_THAT(probes(), ElementsAre(20));
}

// The file's operations report to the default facility; while a record is written nobody listens.
TEST_F(FileWriterTest, ItsOwnFailuresAreNotLogged) {
  const std::string path = path_ + "2";
  const OSSLogFacOpenParam param = paramFor(path, OSS_LOG_INFO);
  EXPECT_EQ(ossLogFacOpen(&param, nullptr), ECF_OK);
  {
    const FailingCall fails("WriteFile", ERROR_DISK_FULL);
    EXPECT_EQ(write(10), ECF_FAILED);
  }
  EXPECT_EQ(dir_.names(), std::vector<std::string>{"oss.log"});
  EXPECT_EQ(writeRecord(nullptr, 20), ECF_OK);
  EXPECT_THAT(probesOf(readFile(path)), ElementsAre(20));
}

// ---- Event log ----

// The record of this probe as it is without a place: what the other destinations get.
std::string unplaced(std::string record) { return record.replace(33, 18, 18, ' '); }

class EventLogTest : public LogTest {
 protected:
  static constexpr Word kSource = 0xCAFE4242;

  struct Report {
    WORD type, category;
    DWORD event;
    void* user;
    WORD strings;
    DWORD bytes;
    std::string text;
    void* data;
  };

  EventLogTest() { open(facility_, paramFor("", OSS_LOG_INFO, OSS_LOG_TO_EVENT_LOG)); }

  static Report reportOf(const Call& call) {
    EXPECT_EQ(call.argument<Word>(0), kSource);
    return {.type = call.argument<WORD>(1),
            .category = call.argument<WORD>(2),
            .event = call.argument<DWORD>(3),
            .user = call.argument<void*>(4),
            .strings = call.argument<WORD>(5),
            .bytes = call.argument<DWORD>(6),
            .text = call.argument<const char**>(7)[0],
            .data = call.argument<void*>(8)};
  }

  std::vector<std::string> sources_;
  std::vector<Report> reports_;
  int released_ = 0;
  Word registered_ = kSource;
  Word reported_ = TRUE;

  ImportHook register_{"RegisterEventSourceA", [this](Call& call) {
                         EXPECT_EQ(call.argument<const char*>(0), nullptr);
                         sources_.push_back(call.argument<const char*>(1));
                         return registered_;
                       }};
  CallCounter files_{"CreateFileA"};
};

// The writer alone, so that levels can be given that no facility lets through.
class EventLogReportTest : public EventLogTest {
 protected:
  ImportHook report_{"ReportEventA", [this](Call& call) {
                       reports_.push_back(reportOf(call));
                       return reported_;
                     }};
  ImportHook deregister_{"DeregisterEventSource", [this](Call& call) {
                           EXPECT_EQ(call.argument<Word>(0), kSource);
                           ++released_;
                           return Word{TRUE};
                         }};
};

TEST_F(EventLogReportTest, ReportsOneStringUnderTheFacilitysName) {
  EXPECT_EQ(write(10), ECF_OK);

  EXPECT_THAT(sources_, ElementsAre("OSSe test"));
  ASSERT_EQ(reports_.size(), 1U);
  EXPECT_EQ(reports_[0].category, 0U);
  EXPECT_EQ(reports_[0].event, 0U);
  EXPECT_EQ(reports_[0].user, nullptr);
  EXPECT_EQ(reports_[0].strings, 1U);
  EXPECT_EQ(reports_[0].bytes, 0U);
  EXPECT_EQ(reports_[0].data, nullptr);
  EXPECT_EQ(released_, 1);
  EXPECT_EQ(files_.calls(), 0);
}

TEST_F(EventLogReportTest, TheStringIsTheRecordWithoutAPlace) {
  EXPECT_EQ(write(10), ECF_OK);
  ASSERT_EQ(reports_.size(), 1U);

  open(facility_, paramFor(path_));
  EXPECT_EQ(write(10), ECF_OK);
  std::string inFile = unplaced(text());
  EXPECT_EQ(reports_[0].text.substr(28), inFile.substr(28));
}

TEST_F(EventLogReportTest, TheTypeFollowsTheLevel) {
  for (const uint64_t level :
       {OSS_LOG_SEVERE, OSS_LOG_ERROR, OSS_LOG_WARNING, OSS_LOG_INFO, OSS_LOG_EVENT})
    EXPECT_EQ(write(10, level), ECF_OK) << level;

  std::vector<WORD> types;
  for (const Report& report : reports_) types.push_back(report.type);
  EXPECT_THAT(types, ElementsAre(1, 1, 2, 4, 0));
}

TEST_F(EventLogReportTest, AFailedReportFailsTheRecordAndReleasesTheSource) {
  reported_ = FALSE;
  EXPECT_EQ(write(10), ECF_FAILED);
  EXPECT_EQ(released_, 1);
  expectFree();

  reported_ = TRUE;
  EXPECT_EQ(write(20), ECF_OK);
  EXPECT_EQ(released_, 2);
}

TEST_F(EventLogTest, AFailedRegistrationFailsTheRecordAndReportsNothing) {
  const CallCounter reports("ReportEventA"), releases("DeregisterEventSource");
  registered_ = 0;
  EXPECT_EQ(write(10), ECF_FAILED);
  EXPECT_EQ(reports.calls(), 0);
  EXPECT_EQ(releases.calls(), 0);
  expectFree();
}

TEST_F(LogTest, TheEventLogKnowsNoOtherLevels) {
  open(facility_, paramFor("", OSS_LOG_INFO, OSS_LOG_TO_EVENT_LOG));
  const CallCounter registers("RegisterEventSourceA");
  for (const uint64_t level : {uint64_t{0}, uint64_t{6}, uint64_t{1} << 32 | 1, ~uint64_t{0}})
    EXPECT_FALSE(writeToEventLog(facility_, level, "text")) << level;

  EXPECT_EQ(ossLogFacSetLevel(&facility_, ~uint64_t{0}), ECF_OK);
  EXPECT_EQ(write(10, 6), ECF_FAILED);
  EXPECT_EQ(registers.calls(), 0);
  expectFree();
}

// ---- Standard error ----

// Points the standard error stream, which is descriptor 2, to a file for a scope.
class StandardErrorTo {
 public:
  StandardErrorTo(const std::string& path, int mode) : saved_(::_dup(2)) {
    const int file = ::_open(path.c_str(), mode | _O_BINARY, _S_IREAD | _S_IWRITE);
    EXPECT_GE(file, 0) << path;
    std::fflush(stderr);
    ::_dup2(file, 2);
    ::_close(file);
  }
  ~StandardErrorTo() {
    std::fflush(stderr);
    ::_dup2(saved_, 2);
    ::_close(saved_);
    std::clearerr(stderr);
  }
  StandardErrorTo(const StandardErrorTo&) = delete;
  StandardErrorTo& operator=(const StandardErrorTo&) = delete;

 private:
  int saved_;
};

TEST_F(LogTest, StandardErrorGetsTheRecordWithoutAPlace) {
  EXPECT_EQ(write(10), ECF_OK);
  const std::string inFile = unplaced(text());

  open(facility_, paramFor("", OSS_LOG_INFO, OSS_LOG_TO_STDERR));
  const std::string path = dir_.file("stderr");
  {
    const StandardErrorTo file(path, _O_WRONLY | _O_CREAT);
    EXPECT_EQ(write(10), ECF_OK);
    EXPECT_EQ(write(10), ECF_OK);
  }
  const std::string record = inFile.substr(28);
  const std::string printed = readFile(path);
  ASSERT_EQ(printed.size(), 2 * inFile.size());
  EXPECT_EQ(printed.substr(28, record.size()), record);
  EXPECT_EQ(printed.substr(inFile.size() + 28), record);
}

TEST_F(LogTest, StandardErrorPrintsTextsAsTheyAre) {
  const std::string path = dir_.file("stderr");
  {
    const StandardErrorTo file(path, _O_WRONLY | _O_CREAT);
    EXPECT_TRUE(writeToStandardError("%s%n 100%"));
  }
  EXPECT_EQ(readFile(path), "%s%n 100%");
}

TEST_F(LogTest, AStandardErrorThatTakesNothingFailsTheRecord) {
  open(facility_, paramFor("", OSS_LOG_INFO, OSS_LOG_TO_STDERR));
  const std::string path = dir_.file("stderr");
  osse_test::writeFile(path, "");
  {
    const StandardErrorTo readOnly(path, _O_RDONLY);
    EXPECT_EQ(write(10), ECF_FAILED);
  }
  expectFree();
  {
    const StandardErrorTo file(path, _O_WRONLY);
    EXPECT_EQ(write(20), ECF_OK);
  }
  EXPECT_THAT(probesOf(readFile(path)), ElementsAre(20));
}

}  // namespace
}  // namespace oss
