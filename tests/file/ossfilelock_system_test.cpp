// The file handle's lock, within a process and between two.
#include "file/ossfilefixture.h"
#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "harness/wine.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr DWORD kSharedFlags = LOCKFILE_FAIL_IMMEDIATELY;
constexpr DWORD kExclusiveFlags = LOCKFILE_FAIL_IMMEDIATELY | LOCKFILE_EXCLUSIVE_LOCK;

OSSErr lock(OSSHFile& file, uint64_t mode, uint64_t wait) {
  const OSSFileLockParam param(mode, wait);
  return file.lock(&param);
}

OSSErr lockAtOnce(OSSHFile& file, uint64_t mode = OSS_FILE_LOCK_EXCLUSIVE) {
  return lock(file, mode, OSS_FILE_LOCK_NO_WAIT);
}

// A second handle of the test's file.
class OtherHandle {
 public:
  explicit OtherHandle(const std::string& path) {
    const OSSFileOpenParam param = openParam(path, OSS_FILE_OPEN_EXISTING, OSS_FILE_READ_WRITE);
    EXPECT_EQ(file.open(&param), ECF_OK);
  }
  ~OtherHandle() { EXPECT_EQ(file.close(), ECF_OK); }
  OtherHandle(const OtherHandle&) = delete;
  OtherHandle& operator=(const OtherHandle&) = delete;

  OSSHFile file;
};

class OSSHFileLockTest : public OSSHFileTest {
 protected:
  OSSHFileLockTest() { openFile(); }
};

using OSSHFileUnlockTest = OSSHFileLockTest;

// ---- lock ----

TEST_F(OSSHFileLockTest, CoversTheFirstByteAndNeverWaitsInTheSystem) {
  struct Asked {
    HANDLE file;
    DWORD flags, reserved, low, high, offset, offsetHigh;
    bool operator==(const Asked&) const = default;
  };
  std::vector<Asked> asked;
  ImportHook hook("LockFileEx", [&](Call& call) {
    const auto* const start = call.argument<const OVERLAPPED*>(5);
    asked.push_back({call.argument<HANDLE>(0), call.argument<DWORD>(1), call.argument<DWORD>(2),
                     call.argument<DWORD>(3), call.argument<DWORD>(4), start->Offset,
                     start->OffsetHigh});
    return TRUE;
  });

  EXPECT_EQ(lock(file_, 1, 1), ECF_OK);
  EXPECT_EQ(lock(file_, 1, 2), ECF_OK);
  EXPECT_EQ(lock(file_, 2, 1), ECF_OK);
  EXPECT_EQ(lock(file_, 2, 2), ECF_OK);
  const Asked exclusive = {handle(), kExclusiveFlags, 0, 1, 0, 0, 0};
  const Asked shared = {handle(), kSharedFlags, 0, 1, 0, 0, 0};
  EXPECT_THAT(asked, ElementsAre(exclusive, exclusive, shared, shared));
}

TEST_F(OSSHFileLockTest, AnExclusiveLockExcludesBothKinds) {
  OtherHandle other(path_);
  EXPECT_EQ(lockAtOnce(file_, OSS_FILE_LOCK_EXCLUSIVE), ECF_OK);
  EXPECT_EQ(lockAtOnce(other.file, OSS_FILE_LOCK_EXCLUSIVE), ECF_FILE_LOCK);
  EXPECT_EQ(lockAtOnce(other.file, OSS_FILE_LOCK_SHARED), ECF_FILE_LOCK);
}

TEST_F(OSSHFileLockTest, ASharedLockExcludesAnExclusiveOneOnly) {
  OtherHandle other(path_);
  EXPECT_EQ(lockAtOnce(file_, OSS_FILE_LOCK_SHARED), ECF_OK);
  EXPECT_EQ(lockAtOnce(other.file, OSS_FILE_LOCK_SHARED), ECF_OK);
  EXPECT_EQ(other.file.unlock(), ECF_OK);
  EXPECT_EQ(lockAtOnce(other.file, OSS_FILE_LOCK_EXCLUSIVE), ECF_FILE_LOCK);
}

TEST_F(OSSHFileLockTest, ARefusalThatDoesNotWaitIsNotLoggedAndDoesNotSleep) {
  OtherHandle other(path_);
  ASSERT_EQ(lockAtOnce(other.file), ECF_OK);
  CallCounter sleeps("Sleep");
  CallCounter tries("LockFileEx");
  EXPECT_EQ(lockAtOnce(file_), ECF_FILE_LOCK);
  EXPECT_EQ(tries.calls(), 1);
  EXPECT_EQ(sleeps.calls(), 0);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileLockTest, AWaitTriesAgainEvery100MillisecondsUntilItIsGranted) {
  OtherHandle other(path_);
  ASSERT_EQ(lockAtOnce(other.file), ECF_OK);
  std::vector<DWORD> slept;
  ImportHook sleeps("Sleep", [&](Call& call) {
    slept.push_back(call.argument<DWORD>(0));
    if (slept.size() == 3) static_cast<void>(other.file.unlock());
  });
  CallCounter tries("LockFileEx");

  EXPECT_EQ(lock(file_, OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT), ECF_OK);
  EXPECT_THAT(slept, ElementsAre(100u, 100u, 100u));
  EXPECT_EQ(tries.calls(), 4);
  EXPECT_EQ(lockAtOnce(other.file), ECF_FILE_LOCK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileLockTest, AWaitEndsAtAnyOtherFailure) {
  OtherHandle other(path_);
  ASSERT_EQ(lockAtOnce(other.file), ECF_OK);
  ImportHook sleeps("Sleep", [](Call&) {});
  FailingCall fails("LockFileEx", ERROR_CRC, {.onCall = 3});
  EXPECT_EQ(lock(file_, OSS_FILE_LOCK_SHARED, OSS_FILE_LOCK_WAIT), ECF_UNKNOWN);
  EXPECT_EQ(sleeps.calls(), 2);
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_lock, 160, SysCall::LockFileEx,
                                       ERROR_CRC, ECF_UNKNOWN,
                                       {{1, Hex(handle())}, {2, Hex(kSharedFlags)}})));
}

TEST_F(OSSHFileLockTest, ClosingTheHandleReleasesTheLock) {
  {
    OtherHandle other(path_);
    ASSERT_EQ(lockAtOnce(other.file), ECF_OK);
  }
  EXPECT_EQ(lockAtOnce(file_), ECF_OK);
}

// Deliberate: both refusals carry the identifier of read.
TEST_F(OSSHFileLockTest, ANullRecordIsReportedAsReads) {
  expectRefusal([&] { return file_.lock(nullptr); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_read, 1111, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileLockTest, ARecordThatIsTooOldIsReportedAsReads) {
  OSSFileLockParam param(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_NO_WAIT);
  param.version = kTooOld;
  expectRefusal(
      [&] { return file_.lock(&param); }, ECF_INVALID_VERSION,
      FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_read, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)}));
}

TEST_F(OSSHFileLockTest, TheOldestAcceptedVersionIsAccepted) {
  OSSFileLockParam param(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_NO_WAIT);
  param.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(file_.lock(&param), ECF_OK);
}

TEST_F(OSSHFileLockTest, AnUnknownModeIsRefused) {
  for (const uint64_t mode : kNoEnumerator)
    expectRefusal(
        [&] { return lock(file_, mode, OSS_FILE_LOCK_WAIT); }, ECF_INVALID_PARAMETER,
        FoundRecord(OSS_LOG_INFO, Func::OSSHFile_lock, 130, ECF_INVALID_PARAMETER, {Hex(mode)}));
}

TEST_F(OSSHFileLockTest, AnUnknownWaitIsRefused) {
  for (const uint64_t wait : kNoEnumerator)
    expectRefusal(
        [&] { return lock(file_, OSS_FILE_LOCK_SHARED, wait); }, ECF_INVALID_PARAMETER,
        FoundRecord(OSS_LOG_INFO, Func::OSSHFile_lock, 140, ECF_INVALID_PARAMETER, {Hex(wait)}));
}

TEST_F(OSSHFileLockTest, ASystemThatRefusesIsReportedWithTheFlags) {
  const struct {
    uint64_t mode;
    DWORD flags;
  } kRows[] = {{OSS_FILE_LOCK_EXCLUSIVE, kExclusiveFlags}, {OSS_FILE_LOCK_SHARED, kSharedFlags}};
  for (const auto& row : kRows) {
    FailingCall fails("LockFileEx", ERROR_ACCESS_DENIED);
    expectRefusal([&] { return lock(file_, row.mode, OSS_FILE_LOCK_WAIT); }, ECF_ACCESS_DENIED,
                  SystemRecord(OSS_LOG_INFO, Func::OSSHFile_lock, 160, SysCall::LockFileEx,
                               ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED,
                               {{1, Hex(handle())}, {2, Hex(row.flags)}}));
  }
}

TEST_F(OSSHFileLockTest, AClosedHandleIsRefusedByTheSystem) {
  ASSERT_EQ(file_.close(), ECF_OK);
  expectRefusal([&] { return lock(file_, OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT); },
                ECF_INVALID_PARAMETER,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_lock, 160, SysCall::LockFileEx,
                             ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER,
                             {{1, Hex(INVALID_HANDLE_VALUE)}, {2, Hex(kExclusiveFlags)}}));
}

// ---- unlock ----

TEST_F(OSSHFileUnlockTest, FreesTheLockForOthers) {
  OtherHandle other(path_);
  ASSERT_EQ(lockAtOnce(file_), ECF_OK);
  EXPECT_EQ(file_.unlock(), ECF_OK);
  EXPECT_EQ(lockAtOnce(other.file), ECF_OK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileUnlockTest, ReleasesTheFirstByte) {
  std::vector<std::array<Word, 5>> asked;
  ImportHook hook("UnlockFileEx", [&](Call& call) {
    const auto* const start = call.argument<const OVERLAPPED*>(4);
    asked.push_back({call.argument<Word>(0), call.argument<DWORD>(2), call.argument<DWORD>(3),
                     start->Offset, start->OffsetHigh});
    return TRUE;
  });
  EXPECT_EQ(file_.unlock(), ECF_OK);
  EXPECT_THAT(asked, ElementsAre(ElementsAre(reinterpret_cast<Word>(handle()), 1, 0, 0, 0)));
}

TEST_F(OSSHFileUnlockTest, AFileThatIsNotLockedIsRefusedByTheSystem) {
  const auto refusal = [&](DWORD error, OSSErr code, uint64_t level) {
    return SystemRecord(level, Func::OSSHFile_unlock, 20, SysCall::UnlockFileEx, error, code,
                        {{1, Hex(handle())}});
  };
  // Wine reports a lock violation where Windows reports that nothing is locked.
  const LogEvidence expected = isUnderWine()
                                   ? refusal(ERROR_LOCK_VIOLATION, ECF_FILE_LOCK, OSS_LOG_INFO)
                                   : refusal(ERROR_NOT_LOCKED, ECF_UNKNOWN, OSS_LOG_ERROR);
  EXPECT_EQ(file_.unlock(), expected.code);
  EXPECT_THAT(log_.records(), ElementsAre(expected));
}

TEST_F(OSSHFileUnlockTest, ASystemThatRefusesIsReported) {
  FailingCall fails("UnlockFileEx", ERROR_NOT_LOCKED);
  expectRefusal([&] { return file_.unlock(); }, ECF_UNKNOWN,
                SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_unlock, 20, SysCall::UnlockFileEx,
                             ERROR_NOT_LOCKED, ECF_UNKNOWN, {{1, Hex(handle())}}));
}

TEST_F(OSSHFileUnlockTest, AClosedHandleIsRefusedByTheSystem) {
  ASSERT_EQ(file_.close(), ECF_OK);
  expectRefusal(
      [&] { return file_.unlock(); }, ECF_INVALID_PARAMETER,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_unlock, 20, SysCall::UnlockFileEx,
                   ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}}));
}

// ---- Two processes ----

// Holds the lock of the file arguments[0] until told to let go, or for ever when killed.
CHILD_ROLE(holdFileLock) {
  Event held(arguments.at(1));
  Event letGo(arguments.at(2));
  OtherHandle other(arguments.at(0));
  EXPECT_EQ(lockAtOnce(other.file), ECF_OK);
  held.set();
  EXPECT_TRUE(letGo.wait());
  EXPECT_EQ(other.file.unlock(), ECF_OK);
  return 0;
}

class OSSHFileLockOfTwoProcessesTest : public OSSHFileLockTest {
 protected:
  Child startHolder() {
    Child holder = startChild("holdFileLock", {path_, held_.name(), letGo_.name()});
    EXPECT_TRUE(held_.wait());
    return holder;
  }

  Event held_;
  Event letGo_;
};

TEST_F(OSSHFileLockOfTwoProcessesTest, ALockOfAnotherProcessIsRefusedAtOnce) {
  Child holder = startHolder();
  CallCounter sleeps("Sleep");
  EXPECT_EQ(lockAtOnce(file_), ECF_FILE_LOCK);
  EXPECT_EQ(sleeps.calls(), 0);
  EXPECT_THAT(log_.records(), IsEmpty());
  letGo_.set();
  EXPECT_EQ(holder.wait(), 0u);
}

TEST_F(OSSHFileLockOfTwoProcessesTest, AWaitIsGrantedWhenTheOtherProcessLetsGo) {
  Child holder = startHolder();
  ImportHook sleeps("Sleep", [&](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(0), 100u);
    letGo_.set();
    EXPECT_EQ(holder.wait(), 0u);
  });
  EXPECT_EQ(lock(file_, OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT), ECF_OK);
  EXPECT_EQ(sleeps.calls(), 1);
}

TEST_F(OSSHFileLockOfTwoProcessesTest, AWaitIsGrantedWhenTheOtherProcessDies) {
  Child holder = startHolder();
  ImportHook sleeps("Sleep", [&](Call&) { holder.kill(); });
  EXPECT_EQ(lock(file_, OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT), ECF_OK);
}

}  // namespace
