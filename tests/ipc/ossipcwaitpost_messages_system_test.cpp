// Waitposts: posting, waiting, resetting within one process. What needs two processes is in
// ossipcwaitpost_processes_system_test.cpp.
#include "ipc/ossipcwaitpostfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// ---- post and wait ----

TEST_F(OSSHIPCWaitpostTest, AWaitReturnsTheMessageOfThePost) {
  create();
  openOther();
  char message[9] = "????????";
  EXPECT_EQ(waitpost_.post(kMessage), ECF_OK);
  EXPECT_EQ(area(), kMessage);
  EXPECT_EQ(other_.wait(&kForever, message), ECF_OK);
  EXPECT_STREQ(message, kMessage);
  EXPECT_EQ(block(), blockBytes(0, 0, OSS_WAITPOST_IS_NAMED));
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHIPCWaitpostTest, AMessageHasTheSizeOfItsHandle) {
  OSSIPCWaitpostCreateParam param = createParam(memory_);
  param.postSize = 3;
  ASSERT_EQ(waitpost_.create(&param), ECF_OK);
  EXPECT_EQ(waitpost_.post(kMessage), ECF_OK);
  EXPECT_EQ(area(), "mesA....");
  char message[9] = "????????";
  EXPECT_EQ(waitpost_.wait(&kForever, message), ECF_OK);
  EXPECT_STREQ(message, "mes?????");
}

TEST_F(OSSHIPCWaitpostTest, WithoutAPostAreaNoBytesMove) {
  OSSIPCWaitpostCreateParam param = createParam(memory_);
  param.postArea = nullptr;
  param.postSize = 0;
  ASSERT_EQ(waitpost_.create(&param), ECF_OK);
  char message[9] = "????????";
  EXPECT_EQ(waitpost_.post(message), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kForever, message), ECF_OK);
  EXPECT_STREQ(message, "????????");
}

TEST_F(OSSHIPCWaitpostTest, WithoutAMessageThePostAreaIsNotTouched) {
  create();
  memory_.block.dataLatch = kLatchHeld;  // a copy would wait for ever
  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kForever, nullptr), ECF_OK);
  EXPECT_EQ(area(), kArea);
  EXPECT_EQ(block(), blockBytes(0, kLatchHeld, OSS_WAITPOST_IS_NAMED));
}

// Deliberate: the caller sees both.
TEST_F(OSSHIPCWaitpostTest, APollThatFindsNoPostShowsThePostAreaAndIsNotLogged) {
  create();
  char message[9] = "????????";
  EXPECT_EQ(waitpost_.wait(&kPoll, message), ECF_WAITPOST_NOT_POSTED);
  EXPECT_STREQ(message, kArea);
  EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_WAITPOST_NOT_POSTED);
  EXPECT_EQ(log_.text(), "");
}

TEST_F(OSSHIPCWaitpostTest, AWaitThatTimesOutIsLoggedAndLeavesTheMessage) {
  create();
  char message[9] = "????????";
  const OSSIPCWaitpostWaitParam param = waitParam(1);
  expectRefusal(
      [&] { return waitpost_.wait(&param, message); }, ECF_TIMEOUT,
      {SystemRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_wait, 110, SysCall::WaitForSingleObject,
                    NO_ERROR, ECF_TIMEOUT, {{1, Hex(event())}, {2, Uint(uint32_t{1})}})});
  EXPECT_STREQ(message, "????????");
}

TEST_F(OSSHIPCWaitpostTest, TheSystemTakesTheLower32BitsOfATimeout) {
  create();
  const struct {
    int64_t timeout;
    DWORD asked;
  } kRows[] = {{7, 7},
               {OSS_WAITPOST_FOREVER, INFINITE},
               {-1, INFINITE},
               {0xFFFFFFFE, 0xFFFFFFFE},
               {0x1'0000'0005, 5}};
  for (const auto& row : kRows) {
    ImportHook hook("WaitForSingleObject", [&](Call& call) {
      EXPECT_EQ(call.argument<HANDLE>(0), event());
      EXPECT_EQ(call.argument<DWORD>(1), row.asked);
      return WAIT_OBJECT_0;
    });
    const OSSIPCWaitpostWaitParam param = waitParam(row.timeout);
    EXPECT_EQ(waitpost_.wait(&param, nullptr), ECF_OK);
  }
}

// Deliberate: no record shows an error of the system, and what the system returns otherwise is the
// code, whatever number it is.
TEST_F(OSSHIPCWaitpostTest, AnyOtherEndOfAWaitIsLoggedWithoutASystemError) {
  create();
  const struct {
    DWORD result;
    int64_t timeout;
    OSSErr code;
    uint64_t probe;
  } kRows[] = {{WAIT_ABANDONED, 5, ECF_SEM_WAIT_ABANDONED, 100},
               {WAIT_TIMEOUT, OSS_WAITPOST_FOREVER, ECF_TIMEOUT, 110},
               {WAIT_FAILED, 0, 0xFFFFFFFF, 120},
               {0x1234, -1, 0x1234, 120}};
  for (const auto& row : kRows) {
    FailingCall fails("WaitForSingleObject", ERROR_ACCESS_DENIED, {.result = row.result});
    char message[9] = "????????";
    const OSSIPCWaitpostWaitParam param = waitParam(row.timeout);
    expectRefusal(
        [&] { return waitpost_.wait(&param, message); }, row.code,
        {SystemRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_wait, row.probe,
                      SysCall::WaitForSingleObject, NO_ERROR, row.code,
                      {{1, Hex(event())}, {2, Uint(static_cast<uint32_t>(row.timeout))}})});
    EXPECT_STREQ(message, "????????");
  }
}

// An open that failed on a valid block leaves a handle without an event.
TEST_F(OSSHIPCWaitpostTest, AHandleWithoutAnEventIsRefusedBySystemCalls) {
  memory_.block = {};
  memory_.block.flags = OSS_WAITPOST_IS_NAMED;
  const OSSIPCWaitpostOpenParam param = openParam(memory_, &id_);
  ASSERT_EQ(waitpost_.open(&param), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(waitpost_.wait(&kForever, nullptr), 0xFFFFFFFF);
  EXPECT_EQ(waitpost_.post(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(waitpost_.reset(), ECF_INVALID_PARAMETER);
  EXPECT_EQ(waitpost_.close(), ECF_INVALID_PARAMETER);
  EXPECT_EQ(waitpost_.destroy(), ECF_INVALID_PARAMETER);
}

TEST_F(OSSHIPCWaitpostTest, AnAutomaticWaitpostLetsOneWaiterGo) {
  create(OSS_WAITPOST_AUTOMATIC);
  openOther();
  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);  // nobody has consumed the first: one is left
  EXPECT_EQ(other_.wait(&kForever, nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_WAITPOST_NOT_POSTED);
}

TEST_F(OSSHIPCWaitpostTest, AManualWaitpostStaysPostedUntilReset) {
  create(OSS_WAITPOST_MANUAL);
  openOther();
  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
  for (OSSHIPCWaitpost* const each : {&waitpost_, &other_, &waitpost_})
    EXPECT_EQ(each->wait(&kForever, nullptr), ECF_OK);
  EXPECT_EQ(other_.reset(), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_WAITPOST_NOT_POSTED);
  EXPECT_EQ(waitpost_.reset(), ECF_OK);
}

TEST_F(OSSHIPCWaitpostTest, APostThatTheSystemRefusesHasWrittenTheMessage) {
  create();
  FailingCall fails("SetEvent", ERROR_ACCESS_DENIED);
  EXPECT_EQ(waitpost_.post(kMessage), ECF_ACCESS_DENIED);
  EXPECT_EQ(area(), kMessage);
  EXPECT_EQ(block(), blockBytes(0, 0, OSS_WAITPOST_IS_NAMED));
  EXPECT_THAT(log_.records(), ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_post, 70,
                                                       SysCall::SetEvent, ERROR_ACCESS_DENIED,
                                                       ECF_ACCESS_DENIED, {{1, Hex(event())}})));
}

// Deliberate: the record is post's.
TEST_F(OSSHIPCWaitpostTest, AResetThatTheSystemRefusesIsLoggedUnderPost) {
  create();
  FailingCall fails("ResetEvent", ERROR_ACCESS_DENIED);
  expectRefusal([&] { return waitpost_.reset(); }, ECF_ACCESS_DENIED,
                {SystemRecord(OSS_LOG_INFO, Func::OSSHIPCWaitpost_post, 50, SysCall::ResetEvent,
                              ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Hex(event())}})});
}

// ---- The latch ----

// While somebody holds the latch neither side copies. The holder lets go in the first sleep of the
// one who waits.
TEST_F(OSSHIPCWaitpostTest, MessagesAreCopiedUnderTheLatch) {
  create();
  char message[9] = "????????";
  const std::function<OSSErr()> kOperations[] = {
      [&] { return waitpost_.post(kMessage); }, [&] { return waitpost_.wait(&kForever, message); }};
  const std::string copiedBefore[] = {kArea, "????????"};
  for (size_t i = 0; i < 2; ++i) {
    memory_.block.dataLatch = kLatchHeld;
    ImportHook sleeps("Sleep", [&](Call&) {
      EXPECT_EQ(i == 0 ? area() : message, copiedBefore[i]);
      memory_.block.dataLatch = 0;
    });
    EXPECT_EQ(kOperations[i](), ECF_OK);
    EXPECT_EQ(sleeps.calls(), 1);
    EXPECT_EQ(memory_.block.dataLatch, 0);
  }
  EXPECT_STREQ(message, kMessage);
}

TEST_F(OSSHIPCWaitpostTest, WithoutTheLatchMessagesAreCopiedWhoeverHoldsIt) {
  create(OSS_WAITPOST_NO_LATCH);
  memory_.block.dataLatch = kLatchHeld;
  char message[9] = "????????";
  EXPECT_EQ(waitpost_.post(kMessage), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kForever, message), ECF_OK);
  EXPECT_STREQ(message, kMessage);
  EXPECT_EQ(block(), blockBytes(1, kLatchHeld, OSS_WAITPOST_IS_NAMED));
}

}  // namespace
