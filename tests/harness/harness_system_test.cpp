// The harness's own tests: what it reports, and that it fails a test where it must.
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "harness/childprocess.h"
#include "harness/handles.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/sharedobjects.h"
#include "osscatalog.h"
#include "ossfile.h"
#include "osslog.h"
#include "osstime.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// ---- Hooks ----

TEST(ImportHook, ReplacesACallOfTheLibraryForAScope) {
  std::vector<DWORD> slept;
  {
    ImportHook hook("Sleep", [&](Call& call) { slept.push_back(call.argument<DWORD>(0)); });
    ossSleep(60'000);
    EXPECT_EQ(hook.calls(), 1);
  }
  EXPECT_THAT(slept, ElementsAre(60'000u));

  ossSleep(0);
  EXPECT_THAT(slept, ElementsAre(60'000u));
}

TEST(ImportHook, LeavesTheTestsOwnCallsAlone) {
  CallCounter sleeps("Sleep");
  ::Sleep(0);
  EXPECT_EQ(sleeps.calls(), 0);
}

TEST(ImportHook, PassesEveryArgumentOn) {
  TempDirectory dir;
  const std::string path = dir.file("file");
  std::vector<std::string> paths;
  ImportHook hook("CreateFileA", [&](Call& call) {
    paths.push_back(call.argument<const char*>(0));
    return call.passOn();
  });

  // The flag travels in the sixth argument, on the stack.
  OSSFileOpenParam param;
  param.path = path.c_str();
  param.creation = OSS_FILE_CREATE_NEW;
  param.access = OSS_FILE_READ;
  param.flags = OSS_FILE_DELETE_ON_CLOSE;
  OSSHFile file;
  EXPECT_EQ(file.open(&param), ECF_OK);
  EXPECT_THAT(dir.names(), ElementsAre("file"));
  EXPECT_EQ(file.close(), ECF_OK);
  EXPECT_THAT(dir.names(), IsEmpty());
  EXPECT_THAT(paths, ElementsAre(path));
}

TEST(ImportHook, PassesTheResultAndTheErrorBack) {
  CallCounter flushes("FlushFileBuffers");
  OSSHFile closed;
  EXPECT_EQ(closed.sync(), ECF_INVALID_PARAMETER);
  EXPECT_EQ(flushes.calls(), 1);
}

TEST(ImportHook, HooksOfOneFunctionNest) {
  std::string order;
  ImportHook outer("Sleep", [&](Call& call) {
    order += "outer ";
    return call.passOn();
  });
  {
    ImportHook inner("Sleep", [&](Call& call) {
      order += "inner ";
      return call.passOn();
    });
    ossSleep(0);
  }
  ossSleep(0);
  EXPECT_EQ(order, "inner outer outer ");
}

TEST(ImportHook, ANameThatTheLibraryDoesNotImportFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(CallCounter("NoSuchFunction"),
                          "KT5OSSE_INSTALL64.dll does not import NoSuchFunction");
}

TEST(ImportHook, AHookThatNobodyCallsFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(ImportHook("Sleep", [](Call&) {}), "nobody called Sleep");
}

TEST(ImportHook, HooksThatAreNotRemovedInReverseOrderFailTheTest) {
  auto outer = std::make_unique<CallCounter>("Sleep");
  auto inner = std::make_unique<CallCounter>("Sleep");
  EXPECT_NONFATAL_FAILURE(outer.reset(), "not removed in reverse order");
  inner.reset();

  // The inner hook put the outer one back; what it replaced is put back here.
  for (const Import& import : importsOf(libraryModule()))
    if (import.function == "Sleep")
      *import.entry =
          reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("kernel32"), "Sleep"));
}

TEST(FailingCall, RefusesTheCallItWasToldAndNoOther) {
  FailingCall fails("FlushFileBuffers", ERROR_NOT_READY, {.onCall = 2});
  TempDirectory dir;
  const std::string path = dir.file("file");
  OSSFileOpenParam param;
  param.path = path.c_str();
  param.creation = OSS_FILE_CREATE_NEW;
  param.access = OSS_FILE_WRITE;
  OSSHFile file;
  ASSERT_EQ(file.open(&param), ECF_OK);

  EXPECT_EQ(file.sync(), ECF_OK);
  EXPECT_EQ(file.sync(), ECF_FILE_DEVICE_UNAVAILABLE);
  EXPECT_EQ(file.sync(), ECF_OK);
  EXPECT_EQ(file.close(), ECF_OK);
}

TEST(FailingCall, ACallThatNeverCameFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(FailingCall("FlushFileBuffers", ERROR_NOT_READY),
                          "FlushFileBuffers was to be refused, but the call never came");
}

// ---- The log ----

constexpr char kRecord[] =
    "\r\n2024-01-31-23.59.58.123000+060 I2F315             LEVEL: Info (OS)\r\n"
    "PID     : 4711                 TID : 42\r\n"
    "FUNCTION: KT5, OSSe, OSSHFile::close, probe:20\r\n"
    "MESSAGE : ECF=0x9000000C Invalid parameter\r\n"
    "CALLED  : OS, -, CloseHandle                      OSERR: ERROR_INVALID_FLAGS (6)\r\n"
    "ARG  #1 : Hex, 8 bytes\r\n0xFFFF\r\n";

std::string recordWith(std::string_view part, std::string_view replacement) {
  std::string text = kRecord;
  return text.replace(text.find(part), part.size(), replacement);
}

TEST(LogParser, TakesARecordApart) {
  const ParsedLog log = parseLog(kRecord);
  ASSERT_EQ(log.error, "");
  ASSERT_EQ(log.records.size(), 1u);

  const LogRecord& record = log.records[0];
  EXPECT_EQ(record.timestamp, "2024-01-31-23.59.58.123000");
  EXPECT_EQ(record.zoneMinutes, 60);
  EXPECT_EQ(record.offset, 2u);
  EXPECT_EQ(record.letter, 'F');
  EXPECT_EQ(record.length, sizeof kRecord - 3);
  EXPECT_EQ(record.level, "Info");
  EXPECT_EQ(record.processId, 4711u);
  EXPECT_EQ(record.threadId, 42u);
  EXPECT_EQ(record.product, "KT5");
  EXPECT_EQ(record.component, "OSSe");
  EXPECT_EQ(record.function, "OSSHFile::close");
  EXPECT_EQ(record.probe, 20u);
  EXPECT_EQ(record.code, ECF_INVALID_PARAMETER);
  EXPECT_EQ(record.description, "Invalid parameter");
  EXPECT_EQ(record.called, LogEvidence::Called::System);
  EXPECT_EQ(record.calledProduct, "OS");
  EXPECT_EQ(record.calledComponent, "-");
  EXPECT_EQ(record.calledFunction, "CloseHandle");
  EXPECT_EQ(record.errorName, "ERROR_INVALID_FLAGS");
  EXPECT_EQ(record.error, 6);
  EXPECT_EQ(record.itemKind, "ARG");
  EXPECT_THAT(record.items, ElementsAre(LogItem{1, {"Hex", 8, 0, "0xFFFF"}}));
}

TEST(LogParser, ReadsWhatTheLibraryWrites) {
  LogCapture log;
  const uint64_t number = 18;
  const char text[] = "a\r\nDATA #9";
  EXPECT_EQ(ossLog(nullptr, 0x081A0003, 0, 10, OSS_LOG_ERROR, 4, &number, uint64_t{8}, OSS_LOG_HEX,
                   text, uint64_t{3}, OSS_LOG_STRING, nullptr, uint64_t{8}, OSS_LOG_UINT, text,
                   uint64_t{3}, OSS_LOG_DUMP),
            ECF_OK);
  EXPECT_EQ(
      ossLogRC(nullptr, 0x081A0003, 0x081A0002, ECF_FAILED, ECF_UNKNOWN, 30, OSS_LOG_SEVERE, 0),
      ECF_OK);

  const LogValue dump = {"<hexdump>", 3, 0, "610D0A                                    a.."};
  EXPECT_THAT(log.records(),
              ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_close, 10, ECF_OK,
                                      {Hex(number), String("a\r\n", 3), Null(), dump}),
                          CalledRecord(OSS_LOG_SEVERE, Func::OSSHFile_close, 30,
                                       Func::OSSHFile_open, ECF_FAILED, ECF_UNKNOWN)));
}

TEST(LogParser, RefusesWhatIsNotARecord) {
  const auto errorOf = [](std::string_view part, std::string_view replacement) {
    return parseLog(recordWith(part, replacement)).error;
  };
  EXPECT_THAT(errorOf("\r\n2024", "\n\n2024"), HasSubstr("expected \"\r\n\" at byte 0"));
  EXPECT_THAT(errorOf("123000", "123456"), HasSubstr("a timestamp"));
  EXPECT_THAT(errorOf("+060", " 060"), HasSubstr("a number"));
  EXPECT_THAT(errorOf("I2F", "I3F"), HasSubstr("the place 2"));
  EXPECT_THAT(errorOf("F315", "F999"), HasSubstr("999 bytes of record"));
  EXPECT_THAT(errorOf("F315", "F314"), HasSubstr("a text that ends in"));
  EXPECT_THAT(errorOf("TID :", "TID  "), HasSubstr("expected \"TID : \""));
  EXPECT_THAT(errorOf("MESSAGE", "MASSAGE"), HasSubstr("the called function"));
  EXPECT_THAT(errorOf("  OSERR: ", " OSERR:  "), HasSubstr("the system error at column 50"));
  EXPECT_THAT(errorOf("#1 ", "#A "), HasSubstr("a number"));
  EXPECT_THAT(errorOf("0xFFFF", "0xffff"), HasSubstr("a value of type Hex"));
  EXPECT_THAT(errorOf("Hex", "Oct"), HasSubstr("a value of type Oct"));
}

TEST(LogParser, ARecordThatIsTornQuotesItself) {
  const std::string twoRecords = std::string(kRecord) + "\r\n2024";
  const ParsedLog log = parseLog(twoRecords);
  EXPECT_EQ(log.records.size(), 1u);
  EXPECT_EQ(log.error, "record 2: expected 33 more bytes at byte 0 of\n\r\n2024");
}

TEST(LogExpectation, EveryFieldOfTheEvidenceCounts) {
  const auto expected =
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_close, 20, SysCall::CloseHandle,
                   ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(uint64_t{0xFFFF})}});
  const auto is = [&](const LogEvidence& other) { return other == expected; };
  constexpr auto kCode = ECF_INVALID_PARAMETER;
  const LogItem item = {1, Hex(uint64_t{0xFFFF})};

  EXPECT_TRUE(
      is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::CloseHandle, 6, kCode, {item})));
  EXPECT_FALSE(
      is(SystemRecord(2, Func::OSSHFile_close, 20, SysCall::CloseHandle, 6, kCode, {item})));
  EXPECT_FALSE(
      is(SystemRecord(4, Func::OSSHFile_open, 20, SysCall::CloseHandle, 6, kCode, {item})));
  EXPECT_FALSE(
      is(SystemRecord(4, Func::OSSHFile_close, 21, SysCall::CloseHandle, 6, kCode, {item})));
  EXPECT_FALSE(is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::ReadFile, 6, kCode, {item})));
  EXPECT_FALSE(
      is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::CloseHandle, 87, kCode, {item})));
  EXPECT_FALSE(is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::CloseHandle, 6, 1, {item})));
  EXPECT_FALSE(is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::CloseHandle, 6, kCode)));
  EXPECT_FALSE(is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::CloseHandle, 6, kCode,
                               {{2, item.value}})));
  EXPECT_FALSE(is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::CloseHandle, 6, kCode,
                               {{1, Hex(uint32_t{0xFFFF})}})));
  EXPECT_FALSE(is(SystemRecord(4, Func::OSSHFile_close, 20, SysCall::CloseHandle, 6, kCode,
                               {{1, Uint(uint64_t{0xFFFF})}})));
}

TEST(LogCapture, ClosesTheFacilityAtTheEndOfItsScope) {
  { LogCapture log; }
  EXPECT_EQ(ossLogFacSetLevel(nullptr, OSS_LOG_ERROR), ECF_INVALID_PARAMETER);
}

TEST(LogCapture, NothingWrittenIsNoRecord) {
  LogCapture log;
  EXPECT_THAT(log.records(), IsEmpty());
  EXPECT_EQ(log.text(), "");
}

// ---- Processes ----

CHILD_ROLE(countArguments) { return static_cast<int>(arguments.size()); }

CHILD_ROLE(failExpectation) {
  EXPECT_EQ(arguments.size(), 1u) << "said on purpose";
  return 0;
}

CHILD_ROLE(printVariable) {
  std::printf("%s", std::getenv(arguments.at(0).c_str()));
  return 0;
}

CHILD_ROLE(echo) {
  SharedBlock<int> shared(arguments.at(0));
  Event asked(arguments.at(1));
  Event answered(arguments.at(2));
  if (!asked.wait()) return 1;
  *shared += 1;
  answered.set();
  return 0;
}

CHILD_ROLE(waitForever) {
  Event never(arguments.at(0));
  Event ready(arguments.at(1));
  ready.set();
  return never.wait() ? 1 : 2;
}

TEST(ChildProcess, GetsItsArgumentsAndGivesItsExitCode) {
  EXPECT_EQ(runChild("countArguments"), 0u);
  EXPECT_EQ(runChild("countArguments", {"a", "b c", ""}), 3u);
}

TEST(ChildProcess, AFailedExpectationBecomesItsExitCode) {
  TempDirectory dir;
  EXPECT_EQ(runChild("failExpectation", {}, {.outputFile = dir.file("output")}),
            kExpectationFailed);
  EXPECT_THAT(readFile(dir.file("output")), HasSubstr("said on purpose"));
}

TEST(ChildProcess, AnUnknownRoleIsAFailure) {
  TempDirectory dir;
  EXPECT_EQ(runChild("nobody", {}, {.outputFile = dir.file("output")}), kExpectationFailed);
}

TEST(ChildProcess, SeesItsEnvironmentAndWritesToItsOutput) {
  TempDirectory dir;
  EXPECT_EQ(runChild("printVariable", {"OSSE_TEST_VARIABLE"},
                     {.environment = {{"OSSE_TEST_VARIABLE", "a value"}},
                      .outputFile = dir.file("output")}),
            0u);
  EXPECT_EQ(readFile(dir.file("output")), "a value");
}

TEST(ChildProcess, SharesMemoryAndEventsWithItsParent) {
  SharedBlock<int> shared;
  Event asked;
  Event answered;
  Child child = startChild("echo", {shared.name(), asked.name(), answered.name()});
  *shared = 41;
  asked.set();
  ASSERT_TRUE(answered.wait());
  EXPECT_EQ(*shared, 42);
  EXPECT_EQ(child.wait(), 0u);
}

TEST(ChildProcess, CanBeKilled) {
  Event never;
  Event ready;
  Child child = startChild("waitForever", {never.name(), ready.name()});
  ASSERT_TRUE(ready.wait());
  child.kill();
  EXPECT_EQ(child.wait(), kExpectationFailed);
}

TEST(ChildProcess, DoesNotOutliveTheScopeThatStartedIt) {
  Event never;
  Event ready;
  HANDLE process = nullptr;
  {
    Child child = startChild("waitForever", {never.name(), ready.name()});
    ASSERT_TRUE(ready.wait());
    process = ::OpenProcess(SYNCHRONIZE, FALSE, child.id());
    ASSERT_NE(process, nullptr);
  }
  EXPECT_EQ(::WaitForSingleObject(process, 0), WAIT_OBJECT_0);
  ::CloseHandle(process);
}

// ---- Files and handles ----

TEST(TempDirectory, IsFreshAndRemovedWithItsFiles) {
  std::string path;
  {
    TempDirectory dir;
    path = dir.path();
    EXPECT_THAT(dir.names(), IsEmpty());
    writeFile(dir.file("b"), "1");
    writeFile(dir.file("a"), std::string_view("\0\r\n", 3));
    EXPECT_THAT(dir.names(), ElementsAre("a", "b"));
    EXPECT_EQ(readFile(dir.file("a")), std::string_view("\0\r\n", 3));
  }
  EXPECT_EQ(::GetFileAttributesA(path.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(TempDirectory, AFileThatIsStillOpenFailsTheTest) {
  auto dir = std::make_unique<TempDirectory>();
  const std::string path = dir->path();
  const UniqueHandle file(::CreateFileA(dir->file("open").c_str(), GENERIC_WRITE, 0, nullptr,
                                        CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  EXPECT_NONFATAL_FAILURE(dir.reset(), "cannot remove");
}

TEST(OpenHandles, CountsWhatIsOpenedAndClosed) {
  const size_t before = openHandles();
  {
    const UniqueHandle one(::CreateEventA(nullptr, TRUE, FALSE, nullptr));
    const UniqueHandle two(::CreateEventA(nullptr, TRUE, FALSE, nullptr));
    EXPECT_EQ(openHandles(), before + 2);
  }
  EXPECT_EQ(openHandles(), before);
}

TEST(OpenHandles, AreToldFromThoseThatAreClosed) {
  HANDLE handle = nullptr;
  {
    const UniqueHandle event(::CreateEventA(nullptr, TRUE, FALSE, nullptr));
    handle = event.get();
    EXPECT_TRUE(isOpen(handle));
  }
  EXPECT_FALSE(isOpen(handle));
  EXPECT_FALSE(isOpen(nullptr));
}

}  // namespace
