// What is left of a queue when a process that uses it is ended from outside: asleep, with each of
// the latches, in the middle of a message, between the steps of create. Latches stay held; nothing
// else breaks; and with the last handle the names are free again.
#include <thread>

#include "harness/childprocess.h"
#include "harness/sharedobjects.h"
#include "ipc/ossipcqueuefixture.h"
#include "osslatch.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr uint8_t kHeld = 0x80;

class QueueDeaths : public QueueTest {
 protected:
  // Waits until an end in another process sleeps. It sets its flag while it holds the state latch:
  // ended before it has released that, it would leave a queue that nobody can use.
  void awaitSleeper(const uint8_t& waiting) const {
    const auto sleeps = [&] { return now(waiting) != 0 && now(header().stateLatch) == 0; };
    for (int i = 0; i < 60'000 && !sleeps(); ++i) ::Sleep(1);
    ASSERT_TRUE(sleeps());
  }

  // The queue is of no use any more, but for its end.
  void expectNamesAreFreeOnceDetached() {
    ASSERT_EQ(queue_.detach(), ECF_OK);
    expectNamesAreFree();
  }
};

CHILD_ROLE(queueSleepsInGet) {
  OtherEnd end(arguments[0]);
  return next(end.queue, 64, OSS_QUEUE_INFINITE).empty() ? 1 : 2;
}

TEST_F(QueueDeaths, AReaderThatIsAsleepLeavesItsLatchHeld) {
  create(64);
  Child child = startChild("queueSleepsInGet", {path_});
  ASSERT_NO_FATAL_FAILURE(awaitSleeper(header().readerWaiting));
  child.kill();

  EXPECT_EQ(header().getLatch, kHeld);
  EXPECT_EQ(header().putLatch, 0);
  EXPECT_EQ(header().stateLatch, 0);
  EXPECT_EQ(put(queue_, "nobody reads this"), ECF_OK);
  EXPECT_EQ(header().readerWaiting, 0);
  EXPECT_TRUE(queue_.hasMessage());
  EXPECT_EQ(queue_.flush(), ECF_OK);
  EXPECT_EQ(put(queue_, "nor this"), ECF_OK);
  expectNamesAreFreeOnceDetached();
}

CHILD_ROLE(queueSleepsInPut) {
  OtherEnd end(arguments[0]);
  return put(end.queue, std::string(std::stoul(arguments[1]), 'x')) == ECF_OK ? 1 : 2;
}

TEST_F(QueueDeaths, AWriterThatIsAsleepLeavesItsLatchHeldAndTheMessagesBefore) {
  create(16);
  ASSERT_EQ(put(queue_, "earlier"), ECF_OK);
  Child child = startChild("queueSleepsInPut", {path_, "1"});
  ASSERT_NO_FATAL_FAILURE(awaitSleeper(header().writerWaiting));
  child.kill();

  EXPECT_EQ(header().putLatch, kHeld);
  EXPECT_EQ(header().stateLatch, 0);
  EXPECT_EQ(next(queue_), "earlier");
  EXPECT_EQ(header().writerWaiting, 0);
  EXPECT_EQ(failingGet(queue_, 8, 0), ECF_QUE_INVALID_MSG_TYPE);
  expectNamesAreFreeOnceDetached();
}

TEST_F(QueueDeaths, AWriterInTheMiddleOfAMessageLeavesAPartThatReadersWaitForTheRestOf) {
  create(64);
  Child child = startChild("queueSleepsInPut", {path_, "1000"});
  ASSERT_NO_FATAL_FAILURE(awaitSleeper(header().writerWaiting));
  child.kill();

  EXPECT_EQ(header().putLatch, kHeld);
  EXPECT_EQ(failingGet(queue_, 1000, 1), ECF_TIMEOUT);
  EXPECT_EQ(header().getLatch, 0);
  EXPECT_FALSE(queue_.hasMessage());
  expectNamesAreFreeOnceDetached();
}

// Takes one byte of the header as an operation does, and waits to be ended.
CHILD_ROLE(queueHoldsLatch) {
  Event held(arguments[1]);
  OtherEnd end(arguments[0]);
  uint8_t* const latches = &headerOf(end.queue).putLatch;
  EXPECT_EQ(ossWin32Lock8ExchangeInternal(latches + std::stoul(arguments[2])), 0);
  held.set();
  ::Sleep(INFINITE);
  return 1;
}

class QueueDeathsWithLatch : public QueueDeaths, public WithParamInterface<int> {};

TEST_P(QueueDeathsWithLatch, LeaveItHeldAndTheNamesFree) {
  create(64);
  ASSERT_EQ(put(queue_, "before"), ECF_OK);
  Event held;
  Child child = startChild("queueHoldsLatch", {path_, held.name(), std::to_string(GetParam())});
  ASSERT_TRUE(held.wait());
  child.kill();

  const uint8_t* const latches = &header().putLatch;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(latches[i], i == GetParam() ? kHeld : 0) << i;
  EXPECT_EQ(header().notEmpty, 1);
  // Who does not need the latch goes on.
  if (GetParam() == 0) {
    EXPECT_EQ(next(queue_), "before");
  } else if (GetParam() == 1) {
    EXPECT_EQ(put(queue_, "behind"), ECF_OK);
  }
  if (GetParam() != 2) {
    EXPECT_EQ(queue_.flush(), ECF_OK);
  }
  expectNamesAreFreeOnceDetached();
}
INSTANTIATE_TEST_SUITE_P(PutGetState, QueueDeathsWithLatch, Values(0, 1, 2),
                         PrintToStringParamName());

// Stops for ever in the system call that is named, at the given time.
CHILD_ROLE(queueStopsInCreate) {
  Event stopped(arguments[1]);
  int calls = 0;
  const ImportHook stops(arguments[2].c_str(), [&](Call& call) {
    if (++calls == std::stoi(arguments[3])) {
      stopped.set();
      ::Sleep(INFINITE);
    }
    return call.passOn();
  });
  const OSSIPCQueueCreateParam param = queueParam(arguments[0], 64);
  OSSHIPCQueue queue;
  static_cast<void>(queue.create(&param));
  return 1;
}

struct Step {
  const char* call;
  int onCall;
};

class QueueDeathsInCreate : public QueueDeaths, public WithParamInterface<Step> {};

TEST_P(QueueDeathsInCreate, LeaveTheNamesFree) {
  const auto& [call, onCall] = GetParam();
  Event stopped;
  Child child =
      startChild("queueStopsInCreate", {path_, stopped.name(), call, std::to_string(onCall)});
  ASSERT_TRUE(stopped.wait());
  // Meanwhile there is no queue, or one that its creator has not finished.
  const bool isComplete = std::string(call) == "WaitForSingleObject";
  EXPECT_EQ(queue_.attach(&queResID_), isComplete ? ECF_OK : ECF_QUE_DOESNT_EXIST);
  if (isComplete) {
    EXPECT_EQ(failingGet(queue_, 8, 0), ECF_QUE_INVALID_MSG_TYPE);
    ASSERT_EQ(queue_.detach(), ECF_OK);
  }
  child.kill();
  expectNamesAreFree();
}
INSTANTIATE_TEST_SUITE_P(Step, QueueDeathsInCreate,
                         Values(Step{"CreateFileMappingA", 1}, Step{"CreateSemaphoreA", 1},
                                Step{"CreateSemaphoreA", 2}, Step{"WaitForSingleObject", 1},
                                Step{"WaitForSingleObject", 2}),
                         [](const auto& step) {
                           return std::string(step.param.call) + '_' +
                                  std::to_string(step.param.onCall);
                         });

}  // namespace
