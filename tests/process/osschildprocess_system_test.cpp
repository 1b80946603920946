// Starting other programs: what the system is asked for, and what it refuses. The children are made
// up; osschildprocess_children_system_test.cpp has real ones.
#include "process/osschildprocessfixture.h"

using namespace osse_test;
using namespace testing;
using namespace std::string_literals;
using oss::Func;
using oss::SysCall;

namespace {

// The half that waits is private, and through create it always has a child.
using Wait = OSSErr (OSSHProcess::*)(unsigned long, OSSProcessStatus*) noexcept;
Wait waitOf(OSSHProcess*);
template <Wait kWait>
struct Friend {
  friend Wait waitOf(OSSHProcess*) { return kWait; }
};
template struct Friend<&OSSHProcess::wait>;

// ---- Arguments ----

TEST_F(OSSHProcessTest, AConstructedHandleHasNoChild) {
  EXPECT_EQ(fieldsOf(process_), (ProcessFields{false, false, 0, INVALID_HANDLE_VALUE}));
}

TEST_F(OSSHProcessTest, ARecordThatIsNullOrTooOldIsRefused) {
  OSSProcessParam old;
  old.version = kTooOld;
  old.program = "a";
  EXPECT_EQ(process_.create(nullptr, &processID_, &status_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(process_.create(&old, &processID_, &status_), ECF_INVALID_VERSION);
  EXPECT_THAT(log_.records(), ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::OSSHProcess_create, 1111,
                                                      ECF_INVALID_PARAMETER),
                                          FoundRecord(OSS_LOG_ERROR, Func::OSSHProcess_create, 1112,
                                                      ECF_INVALID_VERSION, {Uint(kTooOld)})));
  EXPECT_EQ(processID_, 77u);
  EXPECT_EQ(status_.reserved0, 1u);
}

// Whatever its version, the flags of a record are all that is written to it.
TEST_F(OSSHProcessTest, RecordsFromTheOldestVersionOnAreTreatedAlike) {
  for (const uint64_t version :
       {OSS_VERSION_OLDEST, OSS_VERSION_OLDEST + 1, OSS_VERSION_CURRENT, kAllOnes}) {
    MadeUpChild child;
    OSSProcessParam param = {version, "a", "b\0", "C=1\0", OSS_PROCESS_INHERIT};
    const OSSProcessParam before = param;
    EXPECT_EQ(process_.create(&param, &processID_, &status_), ECF_OK) << version;
    EXPECT_EQ(param.flags, 0u);
    EXPECT_EQ(std::memcmp(&param, &before, offsetof(OSSProcessParam, flags)), 0) << version;
    EXPECT_EQ(child.commandLine, "\"a\" b");
    EXPECT_EQ(child.environment, before.environment);

    ImportHook exits("GetExitCodeProcess", [](Call& call) {
      *call.argument<DWORD*>(1) = 5;
      return TRUE;
    });
    status_ = {1, 2, 3};
    param.flags = kSynchronous;
    EXPECT_EQ(process_.create(&param, &processID_, &status_), ECF_OK) << version;
    EXPECT_EQ(param.flags, kSynchronous);
    const OSSProcessStatus ended = {0, 5, 0};
    EXPECT_EQ(std::memcmp(&status_, &ended, sizeof ended), 0) << version;
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHProcessTest, ANullProgramIsRefused) {
  OSSProcessParam param;
  EXPECT_EQ(process_.create(&param, nullptr, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.records(), ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHProcess_create, 30,
                                                      ECF_INVALID_PARAMETER)));
}

// Deliberate: 10 is accepted, and inheritance alone is nothing at all.
TEST_F(OSSHProcessTest, EachValueOfTheFlagsIsWhatItsBitsSayOrIsRefused) {
  constexpr DWORD kNormal = NORMAL_PRIORITY_CLASS;
  constexpr DWORD kDetached = NORMAL_PRIORITY_CLASS | DETACHED_PROCESS;
  const struct {
    uint64_t flags, accepted;
    DWORD creation;
    BOOL inherit;
    bool waits;
  } kRows[] = {{0, 0, kNormal, FALSE, false}, {1, 1, kDetached, FALSE, false},
               {2, 2, kNormal, FALSE, true},  {3, 3, kDetached, FALSE, true},
               {4, 0, kNormal, FALSE, false}, {5, 5, kDetached, TRUE, false},
               {6, 6, kNormal, TRUE, true},   {7, 7, kDetached, TRUE, true},
               {10, 10, kNormal, FALSE, true}};
  for (const auto& row : kRows) {
    MadeUpChild child;
    CallCounter waits("WaitForSingleObject");
    std::optional<ImportHook> exits;
    if (row.waits) exits.emplace("GetExitCodeProcess", [](Call&) { return TRUE; });
    EXPECT_EQ(create("a", std::nullopt, row.flags), ECF_OK) << row.flags;
    EXPECT_EQ(acceptedFlags_, row.accepted);
    EXPECT_EQ(fieldsOf(process_).flags, row.accepted);
    EXPECT_EQ(child.flags, row.creation) << row.flags;
    EXPECT_EQ(child.inherit, row.inherit) << row.flags;
    EXPECT_EQ(waits.calls(), row.waits ? 1 : 0) << row.flags;
  }

  CallCounter starts("CreateProcessA");
  for (const uint64_t flags : {uint64_t{8}, uint64_t{9}, uint64_t{11}, uint64_t{12}, uint64_t{16},
                               uint64_t{1} << 32 | 2, ~uint64_t{0}}) {
    const ProcessFields before = fieldsOf(process_);
    EXPECT_EQ(create("a", std::nullopt, flags), ECF_INVALID_PARAMETER);
    EXPECT_EQ(acceptedFlags_, flags);
    EXPECT_EQ(fieldsOf(process_), before);
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHProcess_create, 30,
                                        ECF_INVALID_PARAMETER, {Hex(flags)})));
  }
  EXPECT_EQ(starts.calls(), 0);
}

// ---- What the system is asked for ----

TEST_F(OSSHProcessTest, TheChildsWindowIsHidden) {
  MadeUpChild child;
  EXPECT_EQ(create("a", std::nullopt, OSS_PROCESS_DETACHED), ECF_OK);
  STARTUPINFOA expected = {};
  expected.cb = sizeof expected;
  expected.dwFlags = STARTF_USESHOWWINDOW;
  expected.wShowWindow = SW_HIDE;
  EXPECT_EQ(std::memcmp(&child.startup, &expected, sizeof expected), 0);
}

TEST_F(OSSHProcessTest, ProcessAndThreadHaveTheLibrarysSecurityAttributes) {
  {
    MadeUpChild child;
    EXPECT_EQ(create("a", std::nullopt, 0), ECF_OK);
    EXPECT_EQ(child.processAttributes, child.threadAttributes);
    EXPECT_EQ(child.attributes.nLength, 24u);
    EXPECT_NE(child.attributes.lpSecurityDescriptor, nullptr);
    EXPECT_EQ(child.attributes.bInheritHandle, TRUE);
  }
  SECURITY_ATTRIBUTES chosen = {sizeof chosen, nullptr, FALSE};
  ossSetSecurityAttributesForOSS(&chosen);
  MadeUpChild child;
  EXPECT_EQ(create("a", std::nullopt, 0), ECF_OK);
  EXPECT_EQ(child.attributes.lpSecurityDescriptor, nullptr);
  EXPECT_EQ(child.attributes.bInheritHandle, FALSE);
  ossSetSecurityAttributesForOSS(nullptr);
}

TEST_F(OSSHProcessTest, TheCommandLineIsTheProgramQuotedAndTheArgumentsAsTheyAre) {
  const struct {
    std::string program;
    std::optional<std::string> arguments;
    std::string commandLine;
  } kRows[] = {
      {"C:\\tools\\a.exe", "x\0y z\0"s, "\"C:\\tools\\a.exe\" x y z"},
      {"C:\\a b\\c.exe", "\"in quotes\"\0"s, "\"C:\\a b\\c.exe\" \"in quotes\""},
      {"\"C:\\a b\\c.exe\" first", "second\0"s, "\"C:\\a b\\c.exe\" first second"},
      {"\"C:\\a b\\c.exe\"", std::nullopt, "\"C:\\a b\\c.exe\""},
      {"a", std::nullopt, "\"a\""},
      {"a", ""s, "\"a\""},
  };
  for (const auto& row : kRows) {
    MadeUpChild child;
    CallCounter allocated("malloc"), freed("free");
    EXPECT_EQ(create(row.program, row.arguments, 0), ECF_OK);
    EXPECT_EQ(child.commandLine, row.commandLine);
    EXPECT_EQ(allocated.calls(), row.arguments ? 2 : 1);
    EXPECT_GE(freed.calls(), allocated.calls());
  }
}

TEST_F(OSSHProcessTest, TheEnvironmentIsHandedOnUnchanged) {
  for (const char* const block : {"A=1\0B=2\0", static_cast<const char*>(nullptr)}) {
    MadeUpChild child;
    OSSProcessParam param;
    param.program = "a";
    param.environment = block;
    EXPECT_EQ(process_.create(&param, nullptr, nullptr), ECF_OK);
    EXPECT_EQ(child.environment, block);
  }
}

TEST_F(OSSHProcessTest, ADetachedCreateTellsTheIdentifierAndLetsGo) {
  MadeUpChild child;
  EXPECT_EQ(create("a", std::nullopt, OSS_PROCESS_DETACHED), ECF_OK);
  EXPECT_EQ(processID_, MadeUpChild::kId);
  EXPECT_EQ(status_.exitCode, 2u);  // untouched
  EXPECT_EQ(fieldsOf(process_),
            (ProcessFields{false, true, OSS_PROCESS_DETACHED, INVALID_HANDLE_VALUE}));
  EXPECT_FALSE(isOpen(child.process) || isOpen(child.thread));
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHProcessTest, AThousandCreatesLeaveNoHandleBehind) {
  const size_t before = openHandles();
  MadeUpChild child;
  ImportHook exits("GetExitCodeProcess", [](Call& call) {
    *call.argument<DWORD*>(1) = 5;
    return TRUE;
  });
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(create("a", "b\0"s, i % 2 == 0 ? 2 : 1), ECF_OK);
  EXPECT_EQ(openHandles(), before);
}

// ---- Failures ----

TEST_F(OSSHProcessTest, WithoutMemoryForTheCommandLineNothingIsStarted) {
  CallCounter starts("CreateProcessA");
  const struct {
    int call;
    uint64_t probe, bytes;
    DWORD error;
  } kRows[] = {{1, 10, 3 + 3 + 2, ERROR_NOT_ENOUGH_MEMORY},
               {2, 20, 5 + 2 + 1, ERROR_NOT_ENOUGH_MEMORY},
               {1, 10, 3 + 3 + 2, NO_ERROR}};  // the run-time may leave none
  for (const auto& row : kRows) {
    FailingCall fails("malloc", row.error, {.onCall = row.call});
    expectFailure(
        "abc", ECF_NO_MEMORY,
        SystemRecord(OSS_LOG_ERROR, Func::OSSHProcess_createProcess, row.probe, SysCall::Malloc,
                     ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY, {{1, Uint(row.bytes)}}),
        OSS_LOG_ERROR);
  }
  EXPECT_EQ(starts.calls(), 0);
  EXPECT_FALSE(fieldsOf(process_).created);
}

TEST_F(OSSHProcessTest, WithoutSecurityAttributesNothingIsStarted) {
  CallCounter starts("CreateProcessA");
  FailingCall fails("InitializeSecurityDescriptor", ERROR_ACCESS_DENIED);
  EXPECT_EQ(create("a", std::nullopt, 0), ECF_ACCESS_DENIED);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 3u);  // the first is the builder's
  EXPECT_EQ(static_cast<const LogEvidence&>(records[1]),
            CalledRecord(OSS_LOG_INFO, Func::OSSHProcess_createProcess, 30,
                         Func::ossInitSecurityAttributes, ECF_ACCESS_DENIED, ECF_ACCESS_DENIED));
  EXPECT_EQ(static_cast<const LogEvidence&>(records[2]),
            CalledRecord(OSS_LOG_INFO, Func::OSSHProcess_create, 40,
                         Func::OSSHProcess_createProcess, ECF_ACCESS_DENIED, ECF_ACCESS_DENIED));
  EXPECT_EQ(starts.calls(), 0);
}

TEST_F(OSSHProcessTest, AProgramThatTheSystemRefusesIsLoggedWithInheritanceAndFlags) {
  TempDirectory dir;
  const std::string text = dir.file("text.exe");
  writeFile(text, "This is no program.");
  const struct {
    std::string program;
    uint64_t flags;
    BOOL inherit;
    DWORD creation, error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {
      {dir.file("missing.exe"), 5, TRUE, 0x28, ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST, 4},
      {"", 2, FALSE, 0x20, ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER, 4},
      {text, 0, FALSE, 0x20, ERROR_BAD_EXE_FORMAT, ECF_UNKNOWN, 2},
      {dir.path(), 0, FALSE, 0x20, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, 4},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(create(row.program, std::nullopt, row.flags), row.code) << row.program;
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(SystemRecord(row.level, Func::OSSHProcess_createProcess, 40,
                                         SysCall::CreateProcessA, row.error, row.code,
                                         {{5, Uint(static_cast<uint32_t>(row.inherit))},
                                          {6, Hex(row.creation)}}),
                            CalledRecord(row.level, Func::OSSHProcess_create, 40,
                                         Func::OSSHProcess_createProcess, row.code, row.code)));
    EXPECT_FALSE(fieldsOf(process_).created);
  }
  EXPECT_EQ(processID_, 77u);
}

TEST_F(OSSHProcessTest, AWaitThatFailsLeavesTheIdentifierUnwrittenAndNoHandle) {
  const struct {
    const char* call;
    Word result;
    OSSErr code;
    bool mustWait;
    std::function<LogEvidence(HANDLE)> record;
  } kRows[] = {
      {"WaitForSingleObject", WAIT_FAILED, ECF_ACCESS_DENIED, true,
       [](HANDLE process) {
         return SystemRecord(OSS_LOG_INFO, Func::OSSHProcess_wait, 50, SysCall::WaitForSingleObject,
                             ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Hex(process)}});
       }},
      {"WaitForSingleObject", WAIT_ABANDONED, ECF_FAILED, true,
       [](HANDLE) {
         return FoundRecord(OSS_LOG_INFO, Func::OSSHProcess_wait, 60, ECF_FAILED,
                            {Hex(DWORD{WAIT_ABANDONED})});
       }},
      {"GetExitCodeProcess", FALSE, ECF_ACCESS_DENIED, false,
       [](HANDLE process) {
         return SystemRecord(OSS_LOG_INFO, Func::OSSHProcess_wait, 70, SysCall::GetExitCodeProcess,
                             ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Hex(process)}});
       }},
  };
  for (const auto& row : kRows) {
    MadeUpChild child;
    FailingCall fails(row.call, ERROR_ACCESS_DENIED, {.result = row.result});
    status_ = {1, 2, 3};
    EXPECT_EQ(create("a", std::nullopt, kSynchronous), row.code);
    EXPECT_EQ(processID_, 77u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&status_), 12), std::string(12, '\0'));
    EXPECT_EQ(fieldsOf(process_),
              (ProcessFields{row.mustWait, true, kSynchronous, INVALID_HANDLE_VALUE}));
    EXPECT_FALSE(isOpen(child.process) || isOpen(child.thread));
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(row.record(child.process),
                            CalledRecord(OSS_LOG_INFO, Func::OSSHProcess_create, 40,
                                         Func::OSSHProcess_createProcess, row.code, row.code)));
  }
}

// Deliberate: the record is create's.
TEST_F(OSSHProcessTest, AWaitWithoutAChildIsReportedUnderCreate) {
  EXPECT_EQ((process_.*waitOf(nullptr))(1, &status_), ECF_PROCESS_NOT_CREATED);
  EXPECT_EQ(status_.exitCode, 2u);
  EXPECT_THAT(log_.records(), ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHProcess_create, 10,
                                                      ECF_PROCESS_NOT_CREATED)));
}

}  // namespace
