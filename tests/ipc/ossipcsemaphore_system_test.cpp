// Semaphores within one process. Two processes: ossipcsemaphore_processes_system_test.cpp.
#include <thread>

#include "ipc/ossipcsemaphorefixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr OSSErr kWaitAbandoned = 0x90000080;
constexpr uint64_t kMost = 32767;

using OSSHIPCSemaphoreCreateTest = OSSHIPCSemaphoreTest;
using OSSHIPCSemaphoreAttachTest = OSSHIPCSemaphoreTest;
using OSSHIPCSemaphoreDetachTest = OSSHIPCSemaphoreTest;
using OSSHIPCSemaphorePostTest = OSSHIPCSemaphoreTest;
using OSSHIPCSemaphoreWaitTest = OSSHIPCSemaphoreTest;

// ---- The records and the handle ----

TEST_F(OSSHIPCSemaphoreTest, AHandleIsConstructedDetached) {
  EXPECT_EQ(handleOf(semaphore_), INVALID_HANDLE_VALUE);
  EXPECT_FALSE(semaphore_.isAttached());
}

TEST_F(OSSHIPCSemaphoreTest, ParametersAreConstructedEmptyAndCurrent) {
  OSSIPCSemaphoreCreateParam create;
  std::memset(static_cast<void*>(&create), 0, sizeof create);
  create.version = 0x09010007;
  create.resID.version = 0x09010007;
  const OSSIPCSemaphoreCreateParam freshCreate;
  EXPECT_EQ(std::memcmp(&freshCreate, &create, sizeof create), 0);

  OSSIPCSemaphoreWaitParam wait;
  std::memset(static_cast<void*>(&wait), 0, sizeof wait);
  wait.version = 0x09010007;
  const OSSIPCSemaphoreWaitParam freshWait;
  EXPECT_EQ(std::memcmp(&freshWait, &wait, sizeof wait), 0);
}

// ---- create ----

TEST_F(OSSHIPCSemaphoreCreateTest, CountsBetweenTwoHandles) {
  create(1);
  OSSHIPCSemaphore other;
  ASSERT_EQ(other.attach(&resID_), ECF_OK);
  EXPECT_TRUE(take(other));
  EXPECT_FALSE(take(semaphore_));
  EXPECT_EQ(other.post(), ECF_OK);
  EXPECT_TRUE(take(semaphore_));
  EXPECT_FALSE(take(other));
  EXPECT_EQ(other.detach(), ECF_OK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHIPCSemaphoreCreateTest, TellsTheSystemTheCountsAndTheName) {
  ImportHook creates("CreateSemaphoreA", [&](Call& call) {
    EXPECT_EQ(call.argument<LONG>(1), 5);
    EXPECT_EQ(call.argument<LONG>(2), 32767);
    EXPECT_STREQ(call.argument<const char*>(3), resID_.name);
    EXPECT_EQ(::GetLastError(), 0u);
    return call.passOn();
  });
  ::SetLastError(ERROR_ALREADY_EXISTS);  // of an earlier call: not this one's
  create(5);
}

TEST_F(OSSHIPCSemaphoreCreateTest, TheGreatestCountIsTakenAndNoneBeyondIt) {
  create(kMost);
  ASSERT_EQ(semaphore_.detach(), ECF_OK);
  // The last ones are 0 and 1 in the 32 bits that the system is told.
  for (const uint64_t count :
       {kMost + 1, uint64_t{1} << 31, uint64_t{1} << 32, (uint64_t{1} << 32) + 1}) {
    param_.initialCount = count;
    EXPECT_EQ(semaphore_.create(&param_), ECF_INVALID_PARAMETER);
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(refusedCreate(80, ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER)));
  }
  forget();
}

// Deliberate: the null handle counts as attached.
TEST_F(OSSHIPCSemaphoreCreateTest, ARefusedSemaphoreLeavesTheNullHandle) {
  {
    FailingCall fails("CreateSemaphoreA", ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(semaphore_.create(&param_), ECF_NO_MEMORY);
  }
  EXPECT_EQ(handleOf(semaphore_), nullptr);
  EXPECT_TRUE(semaphore_.isAttached());
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(refusedCreate(80, ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY)));
  EXPECT_EQ(semaphore_.detach(), ECF_INVALID_PARAMETER);
}

// Deliberate: the value of the closed handle stays.
TEST_F(OSSHIPCSemaphoreCreateTest, ANameThatIsTakenIsRefusedAndItsSemaphoreStaysIntact) {
  OSSHIPCSemaphore first;
  ASSERT_EQ(first.create(&param_), ECF_OK);
  ASSERT_EQ(first.post(), ECF_OK);
  const size_t handles = openHandles();
  param_.initialCount = 7;
  EXPECT_EQ(semaphore_.create(&param_), ECF_SEM_EXISTS);
  EXPECT_EQ(openHandles(), handles);
  EXPECT_TRUE(semaphore_.isAttached());
  EXPECT_NE(handleOf(semaphore_), nullptr);
  EXPECT_FALSE(isOpen(handleOf(semaphore_)));
  EXPECT_THAT(log_.records(), ElementsAre(refusedCreate(90, ERROR_ALREADY_EXISTS, ECF_SEM_EXISTS)));
  EXPECT_TRUE(take(first));
  EXPECT_FALSE(take(first));
  EXPECT_EQ(first.detach(), ECF_OK);
  forget();
}

// Deliberate: it failed, and what was made stays open.
TEST_F(OSSHIPCSemaphoreCreateTest, AnErrorBesideAHandleFailsAndLeavesTheHandleOpen) {
  {
    ImportHook creates("CreateSemaphoreA", [](Call& call) {
      const Word handle = call.passOn();
      ::SetLastError(ERROR_ACCESS_DENIED);
      return handle;
    });
    EXPECT_EQ(semaphore_.create(&param_), ECF_ACCESS_DENIED);
  }
  EXPECT_TRUE(isOpen(handleOf(semaphore_)));
  EXPECT_THAT(log_.records(),
              ElementsAre(refusedCreate(100, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED)));
}

// The kinds of objects share their names.
TEST_F(OSSHIPCSemaphoreCreateTest, ANameOfAnotherKindIsInvalid) {
  OSSIPCMemoryCreateParam other;
  other.resID = resID_;
  other.size = 1;
  OSSHIPCMemory memory;
  ASSERT_EQ(memory.create(&other), ECF_OK);
  EXPECT_EQ(semaphore_.create(&param_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(handleOf(semaphore_), nullptr);
  EXPECT_EQ(semaphore_.attach(&resID_), ECF_INVALID_PARAMETER);
  EXPECT_EQ(memory.detach(), ECF_OK);
  EXPECT_THAT(log_.records(),
              ElementsAre(refusedCreate(80, ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER),
                          refusedAttach(resID_, ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER)));
}

TEST_F(OSSHIPCSemaphoreCreateTest, NullAndARecordThatIsTooOldAreRefused) {
  create(0);
  const HANDLE before = handleOf(semaphore_);
  EXPECT_EQ(semaphore_.create(nullptr), ECF_INVALID_PARAMETER);
  param_.version = 20040701;
  EXPECT_EQ(semaphore_.create(&param_), ECF_INVALID_VERSION);
  EXPECT_EQ(handleOf(semaphore_), before);
  EXPECT_THAT(log_.records(), ElementsAre(nullRecord(Func::OSSHIPCSemaphore_create),
                                          oldRecord(Func::OSSHIPCSemaphore_create)));

  ASSERT_EQ(semaphore_.detach(), ECF_OK);
  param_.version = 20040702;
  create(0);
}

// ---- attach ----

TEST_F(OSSHIPCSemaphoreAttachTest, AsksForFullAccess) {
  create(0);
  OSSHIPCSemaphore other;
  {
    ImportHook opens("OpenSemaphoreA", [&](Call& call) {
      EXPECT_EQ(call.argument<DWORD>(0), 0x1F0003u);
      EXPECT_EQ(call.argument<BOOL>(1), FALSE);
      EXPECT_STREQ(call.argument<const char*>(2), resID_.name);
      return call.passOn();
    });
    OSSIPCResID resID = resID_;
    resID.version = 0;  // not examined
    EXPECT_EQ(other.attach(&resID), ECF_OK);
  }
  EXPECT_TRUE(other.isAttached());
  EXPECT_EQ(other.detach(), ECF_OK);
}

TEST_F(OSSHIPCSemaphoreAttachTest, ANameThatNobodyCreatedDoesNotExist) {
  EXPECT_EQ(semaphore_.attach(&resID_), ECF_SEM_DOESNT_EXIST);
  EXPECT_FALSE(semaphore_.isAttached());
  EXPECT_THAT(log_.records(),
              ElementsAre(refusedAttach(resID_, ERROR_FILE_NOT_FOUND, ECF_SEM_DOESNT_EXIST)));
}

TEST_F(OSSHIPCSemaphoreAttachTest, EveryOtherRefusalIsMapped) {
  create(0);
  OSSHIPCSemaphore other;
  {
    FailingCall fails("OpenSemaphoreA", ERROR_ACCESS_DENIED);
    EXPECT_EQ(other.attach(&resID_), ECF_ACCESS_DENIED);
  }
  EXPECT_FALSE(other.isAttached());
  EXPECT_THAT(log_.records(),
              ElementsAre(refusedAttach(resID_, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED)));
}

TEST_F(OSSHIPCSemaphoreAttachTest, NullIsRefused) {
  create(0);
  const HANDLE before = handleOf(semaphore_);
  EXPECT_EQ(semaphore_.attach(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(handleOf(semaphore_), before);
  EXPECT_THAT(log_.records(), ElementsAre(nullRecord(Func::OSSHIPCSemaphore_attach)));
}

// ---- detach, destroy ----

TEST_F(OSSHIPCSemaphoreDetachTest, ClosesTheHandleAndFreesTheName) {
  for (const auto end : {&OSSHIPCSemaphore::detach, &OSSHIPCSemaphore::destroy}) {
    const size_t handles = openHandles();
    create(1);
    EXPECT_EQ((semaphore_.*end)(), ECF_OK);
    EXPECT_FALSE(semaphore_.isAttached());
    EXPECT_EQ(openHandles(), handles);
    EXPECT_EQ(semaphore_.attach(&resID_), ECF_SEM_DOESNT_EXIST);
  }
}

// The record is detach's in both cases.
TEST_F(OSSHIPCSemaphoreDetachTest, AHandleThatIsNotAttachedIsRefused) {
  for (const auto end : {&OSSHIPCSemaphore::detach, &OSSHIPCSemaphore::destroy}) {
    EXPECT_EQ((semaphore_.*end)(), ECF_INVALID_PARAMETER);
    EXPECT_FALSE(semaphore_.isAttached());
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(refusedClose(INVALID_HANDLE_VALUE, ERROR_INVALID_HANDLE,
                                         ECF_INVALID_PARAMETER)));
  }
}

TEST_F(OSSHIPCSemaphoreDetachTest, AHandleThatDoesNotCloseIsForgotten) {
  for (const auto end : {&OSSHIPCSemaphore::detach, &OSSHIPCSemaphore::destroy}) {
    create(0);
    const HANDLE held = handleOf(semaphore_);
    {
      FailingCall fails("CloseHandle", ERROR_ACCESS_DENIED);
      EXPECT_EQ((semaphore_.*end)(), ECF_ACCESS_DENIED);
    }
    EXPECT_FALSE(semaphore_.isAttached());
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(refusedClose(held, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED)));
    EXPECT_TRUE(::CloseHandle(held));
  }
}

TEST_F(OSSHIPCSemaphoreDetachTest, NothingIsReleasedByADestructor) {
  HANDLE held = nullptr;
  {
    OSSHIPCSemaphore dropped;
    ASSERT_EQ(dropped.create(&param_), ECF_OK);
    held = handleOf(dropped);
  }
  EXPECT_TRUE(isOpen(held));
  EXPECT_TRUE(::CloseHandle(held));
}

// ---- post ----

TEST_F(OSSHIPCSemaphorePostTest, GivesOneCountAndAsksForNoMore) {
  create(0);
  {
    ImportHook posts("ReleaseSemaphore", [](Call& call) {
      EXPECT_EQ(call.argument<LONG>(1), 1);
      EXPECT_EQ(call.argument<LONG*>(2), nullptr);
      return call.passOn();
    });
    EXPECT_EQ(semaphore_.post(), ECF_OK);
  }
  EXPECT_TRUE(take(semaphore_));
  EXPECT_FALSE(take(semaphore_));
}

TEST_F(OSSHIPCSemaphorePostTest, AtTheGreatestCountIsRefused) {
  create(kMost - 1);
  EXPECT_EQ(semaphore_.post(), ECF_OK);
  EXPECT_EQ(semaphore_.post(), ECF_UNKNOWN);
  const HANDLE handle = handleOf(semaphore_);
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_ERROR, Func::OSSHIPCSemaphore_post, 40,
                                       SysCall::ReleaseSemaphore, ERROR_TOO_MANY_POSTS, ECF_UNKNOWN,
                                       {{1, Hex(handle)}})));
}

TEST_F(OSSHIPCSemaphorePostTest, OnAHandleThatIsNotAttachedIsRefused) {
  EXPECT_EQ(semaphore_.post(), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHIPCSemaphore_post, 40,
                                       SysCall::ReleaseSemaphore, ERROR_INVALID_HANDLE,
                                       ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}})));
}

// ---- wait ----

TEST_F(OSSHIPCSemaphoreWaitTest, TimesOutWithoutARecord) {
  create(0);
  OSSIPCSemaphoreWaitParam param;
  EXPECT_EQ(semaphore_.wait(&param), ECF_TIMEOUT);
  param.timeout = 1;
  EXPECT_EQ(semaphore_.wait(&param), ECF_TIMEOUT);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHIPCSemaphoreWaitTest, TellsTheSystemItsMilliseconds) {
  create(0);
  for (const uint32_t timeout : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    ImportHook waits("WaitForSingleObject", [&](Call& call) {
      EXPECT_EQ(call.argument<HANDLE>(0), handleOf(semaphore_));
      EXPECT_EQ(call.argument<DWORD>(1), timeout);
      return WAIT_OBJECT_0;
    });
    OSSIPCSemaphoreWaitParam param;
    param.timeout = timeout;
    EXPECT_EQ(semaphore_.wait(&param), ECF_OK);
  }
}

TEST_F(OSSHIPCSemaphoreWaitTest, SleepsUntilAnotherThreadPosts) {
  create(0);
  std::thread poster;
  {
    // There is no count before the wait has reached the system.
    const ImportHook waits("WaitForSingleObject", [&](Call& call) {
      poster = std::thread([&] { EXPECT_EQ(semaphore_.post(), ECF_OK); });
      return call.passOn();
    });
    OSSIPCSemaphoreWaitParam param;
    param.timeout = OSS_SEMAPHORE_INFINITE;
    EXPECT_EQ(semaphore_.wait(&param), ECF_OK);
    EXPECT_EQ(waits.calls(), 1);
  }
  if (poster.joinable()) poster.join();
  EXPECT_FALSE(take(semaphore_)) << "the wait took what was posted";
}

TEST_F(OSSHIPCSemaphoreWaitTest, AnAbandonedObjectIsTold) {
  create(0);
  OSSIPCSemaphoreWaitParam param;
  param.timeout = 25;
  {
    ImportHook abandoned("WaitForSingleObject", [](Call&) { return WAIT_ABANDONED; });
    EXPECT_EQ(semaphore_.wait(&param), kWaitAbandoned);
  }
  EXPECT_EQ(ECF_SEM_WAIT_ABANDONED, kWaitAbandoned);
  // Told as a called function that returned the code; the function is a call of the system.
  LogEvidence record =
      CalledRecord(OSS_LOG_INFO, Func::OSSHIPCSemaphore_wait, 100, Func{0x081400A6}, kWaitAbandoned,
                   kWaitAbandoned, {{1, Hex(handleOf(semaphore_))}, {2, Uint(uint32_t{25})}});
  record.calledProduct = "OS";
  record.calledComponent = "-";
  EXPECT_THAT(log_.records(), ElementsAre(record));
}

TEST_F(OSSHIPCSemaphoreWaitTest, ARefusalIsMapped) {
  create(0);
  const OSSIPCSemaphoreWaitParam param;
  {
    FailingCall fails("WaitForSingleObject", ERROR_ACCESS_DENIED, {.result = WAIT_FAILED});
    EXPECT_EQ(semaphore_.wait(&param), ECF_ACCESS_DENIED);
  }
  EXPECT_THAT(log_.records(), ElementsAre(refusedWait(handleOf(semaphore_), ERROR_ACCESS_DENIED,
                                                      ECF_ACCESS_DENIED)));
}

// The system would wait for the end of the process itself.
TEST_F(OSSHIPCSemaphoreWaitTest, OnAHandleThatIsNotAttachedIsRefusedWithoutAWait) {
  CallCounter waits("WaitForSingleObject");
  const OSSIPCSemaphoreWaitParam param;
  EXPECT_EQ(semaphore_.wait(&param), ECF_INVALID_PARAMETER);
  EXPECT_EQ(waits.calls(), 0);
  EXPECT_THAT(log_.records(), ElementsAre(refusedWait(INVALID_HANDLE_VALUE, ERROR_INVALID_HANDLE,
                                                      ECF_INVALID_PARAMETER)));
}

TEST_F(OSSHIPCSemaphoreWaitTest, NullAndARecordThatIsTooOldAreRefused) {
  create(1);
  OSSIPCSemaphoreWaitParam param;
  EXPECT_EQ(semaphore_.wait(nullptr), ECF_INVALID_PARAMETER);
  param.version = 20040701;
  EXPECT_EQ(semaphore_.wait(&param), ECF_INVALID_VERSION);
  EXPECT_THAT(log_.records(), ElementsAre(nullRecord(Func::OSSHIPCSemaphore_wait),
                                          oldRecord(Func::OSSHIPCSemaphore_wait)));
  param.version = 20040702;
  EXPECT_EQ(semaphore_.wait(&param), ECF_OK);  // nothing was taken before
}

// ---- authorize ----

TEST_F(OSSHIPCSemaphoreTest, AuthorizingChangesNothing) {
  create(0);
  const HANDLE before = handleOf(semaphore_);
  OSSIPCSecurityParam param;
  param.version = 20040702;
  EXPECT_EQ(semaphore_.authorize(&param), ECF_OK);
  param.version = 20040701;
  EXPECT_EQ(semaphore_.authorize(&param), ECF_INVALID_VERSION);
  EXPECT_EQ(semaphore_.authorize(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(handleOf(semaphore_), before);
  EXPECT_THAT(log_.records(), ElementsAre(oldRecord(Func::OSSHIPCSemaphore_authorize),
                                          nullRecord(Func::OSSHIPCSemaphore_authorize)));
}

}  // namespace
