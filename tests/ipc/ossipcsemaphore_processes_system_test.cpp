// Semaphores between two processes, one of which may be killed.
#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "ipc/ossipcsemaphorefixture.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr int kRounds = 500;

OSSErr waitLong(OSSHIPCSemaphore& semaphore) {
  OSSIPCSemaphoreWaitParam param;
  param.timeout = 120'000;
  return semaphore.wait(&param);
}

// arguments: path. Answers each count of the first semaphore with one of the second.
CHILD_ROLE(answerPosts) {
  const OSSIPCResID questionID = resIDOf(arguments[0]);
  const OSSIPCResID answerID = resIDOf(arguments[0], 1);
  OSSHIPCSemaphore question;
  OSSHIPCSemaphore answer;
  EXPECT_EQ(question.attach(&questionID), ECF_OK);
  EXPECT_EQ(answer.attach(&answerID), ECF_OK);
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_EQ(waitLong(question), ECF_OK);
    EXPECT_EQ(answer.post(), ECF_OK);
  }
  EXPECT_EQ(question.detach(), ECF_OK);
  EXPECT_EQ(answer.detach(), ECF_OK);
  return 0;
}

// arguments: path, event that is set once one of two counts is taken, event that never is.
CHILD_ROLE(holdSemaphore) {
  Event taken(arguments[1]);
  Event never(arguments[2]);
  OSSIPCSemaphoreCreateParam param;
  param.resID = resIDOf(arguments[0]);
  param.initialCount = 2;
  OSSHIPCSemaphore semaphore;
  EXPECT_EQ(semaphore.create(&param), ECF_OK);
  EXPECT_TRUE(take(semaphore));
  taken.set();
  EXPECT_TRUE(never.wait());
  return 0;
}

class OSSHIPCSemaphoreProcessesTest : public OSSHIPCSemaphoreTest {};

TEST_F(OSSHIPCSemaphoreProcessesTest, EachPostWakesTheOtherOnce) {
  create(0);
  OSSIPCSemaphoreCreateParam answerParam;
  answerParam.resID = resIDOf(path_, 1);
  OSSHIPCSemaphore answer;
  ASSERT_EQ(answer.create(&answerParam), ECF_OK);

  Child child = startChild("answerPosts", {path_});
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_EQ(semaphore_.post(), ECF_OK);
    ASSERT_EQ(waitLong(answer), ECF_OK);
  }
  EXPECT_EQ(child.wait(), 0u);
  EXPECT_FALSE(take(semaphore_));
  EXPECT_FALSE(take(answer));
  EXPECT_EQ(answer.detach(), ECF_OK);
}

// What it took is not given back; the name is free with the last handle.
TEST_F(OSSHIPCSemaphoreProcessesTest, AKilledProcessKeepsItsCountAndFreesTheName) {
  Event taken;
  Event never;
  Child holder = startChild("holdSemaphore", {path_, taken.name(), never.name()});
  ASSERT_TRUE(taken.wait());
  ASSERT_EQ(semaphore_.attach(&resID_), ECF_OK);
  holder.kill();

  EXPECT_TRUE(take(semaphore_));
  EXPECT_FALSE(take(semaphore_));
  OSSHIPCSemaphore second;
  EXPECT_EQ(second.create(&param_), ECF_SEM_EXISTS);
  EXPECT_EQ(semaphore_.detach(), ECF_OK);

  EXPECT_EQ(semaphore_.attach(&resID_), ECF_SEM_DOESNT_EXIST);
  create(0);
}

}  // namespace
