// Waitposts between processes: messages, ends, and deaths.
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "harness/childprocess.h"
#include "ipc/ossipcwaitpostfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

OSSIPCResID eventOf(const std::string& memoryName) { return resID(memoryName + "-post"); }

// This process's part in a waitpost that another one has created in shared memory.
class Party {
 public:
  explicit Party(const std::string& memoryName) : memory_(memoryName) {
    const OSSIPCResID id = eventOf(memoryName);
    const OSSIPCWaitpostOpenParam param = openParam(*memory_, &id);
    EXPECT_EQ(waitpost.open(&param), ECF_OK);
  }

  OSSHIPCWaitpost waitpost;

 private:
  SharedBlock<WaitpostMemory> memory_;
};

class WaitpostProcessesTest : public Test {
 protected:
  void create(uint64_t type) {
    const OSSIPCWaitpostCreateParam param = createParam(*memory_, &id_, type);
    ASSERT_EQ(waitpost_.create(&param), ECF_OK);
  }

  SharedBlock<WaitpostMemory> memory_;
  const OSSIPCResID id_ = eventOf(memory_.name());
  OSSHIPCWaitpost waitpost_;
};

// ---- Messages ----

CHILD_ROLE(answerOnAWaitpost) {
  Party question(arguments[0]), answer(arguments[1]);
  char message[9] = {};
  EXPECT_EQ(question.waitpost.wait(&kForever, message), ECF_OK);
  EXPECT_STREQ(message, "question");
  EXPECT_EQ(answer.waitpost.post("answer.."), ECF_OK);
  EXPECT_EQ(answer.waitpost.close(), ECF_OK);
  return question.waitpost.close() == ECF_OK ? 0 : 1;
}

TEST_F(WaitpostProcessesTest, AMessageReachesTheOtherProcessAndItsAnswerThisOne) {
  create(OSS_WAITPOST_AUTOMATIC);
  SharedBlock<WaitpostMemory> second;
  const OSSIPCResID id = eventOf(second.name());
  OSSHIPCWaitpost answer;
  const OSSIPCWaitpostCreateParam param = createParam(*second, &id, OSS_WAITPOST_AUTOMATIC);
  ASSERT_EQ(answer.create(&param), ECF_OK);

  Child child = startChild("answerOnAWaitpost", {memory_.name(), second.name()});
  EXPECT_EQ(waitpost_.post("question"), ECF_OK);
  char message[9] = {};
  EXPECT_EQ(answer.wait(&kForever, message), ECF_OK);
  EXPECT_STREQ(message, "answer..");
  EXPECT_EQ(child.wait(), 0u);
  EXPECT_EQ(answer.destroy(), ECF_OK);
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
}

CHILD_ROLE(takeAPostOrTimeOut) {
  Party party(arguments[0]);
  const OSSIPCWaitpostWaitParam param = waitParam(50);
  const OSSErr rc = party.waitpost.wait(&param, nullptr);
  EXPECT_THAT(rc, AnyOf(ECF_OK, ECF_TIMEOUT));
  return rc == ECF_OK ? 1 : 0;
}

TEST_F(WaitpostProcessesTest, OfTwoWaitersOneTakesAnAutomaticPostAndBothAManualOne) {
  const struct {
    uint64_t type;
    uint32_t taken;
  } kRows[] = {{OSS_WAITPOST_AUTOMATIC, 1}, {OSS_WAITPOST_MANUAL, 2}};
  for (const auto& row : kRows) {
    create(row.type);
    EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
    Child first = startChild("takeAPostOrTimeOut", {memory_.name()});
    Child second = startChild("takeAPostOrTimeOut", {memory_.name()});
    EXPECT_EQ(first.wait() + second.wait(), row.taken);
    EXPECT_EQ(waitpost_.destroy(), ECF_OK);
  }
}

// ---- Ends ----

CHILD_ROLE(useAWaitpostThatIsDestroyed) {
  Party party(arguments[0]);
  Event opened(arguments[1]), destroyed(arguments[2]);
  opened.set();
  EXPECT_TRUE(destroyed.wait());
  EXPECT_EQ(party.waitpost.post(nullptr), ECF_WAITPOST_NOT_INITIALIZED);
  EXPECT_EQ(party.waitpost.wait(&kForever, nullptr), ECF_WAITPOST_NOT_INITIALIZED);
  EXPECT_EQ(party.waitpost.reset(), ECF_WAITPOST_NOT_INITIALIZED);
  EXPECT_EQ(party.waitpost.close(), ECF_WAITPOST_NOT_INITIALIZED);
  EXPECT_EQ(party.waitpost.destroy(), ECF_WAITPOST_NOT_INITIALIZED);
  return 0;
}

TEST_F(WaitpostProcessesTest, OnceOneProcessDestroysItEveryOperationOfTheOthersIsRefused) {
  create(OSS_WAITPOST_MANUAL);
  Event opened, destroyed;
  Child child =
      startChild("useAWaitpostThatIsDestroyed", {memory_.name(), opened.name(), destroyed.name()});
  ASSERT_TRUE(opened.wait());
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
  destroyed.set();
  EXPECT_EQ(child.wait(), 0u);
}

CHILD_ROLE(closeAWaitpost) {
  Party party(arguments[0]);
  return party.waitpost.close() == ECF_OK ? 0 : 1;
}

TEST_F(WaitpostProcessesTest, AProcessThatClosesItLeavesItToTheOthers) {
  create(OSS_WAITPOST_MANUAL);
  EXPECT_EQ(runChild("closeAWaitpost", {memory_.name()}), 0u);
  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
}

// ---- Deaths ----

HANDLE g_inTheCopy = nullptr;

// Copies a message that ends in the middle: the fault stops the thread with the latch in its hands.
CHILD_ROLE(dieInTheMiddleOfACopy) {
  Party party(arguments[0]);
  Event inTheCopy(arguments[1]);
  g_inTheCopy = ::OpenEventA(EVENT_MODIFY_STATE, FALSE, arguments[1].c_str());
  ::AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS*) -> LONG {
    ::SetEvent(g_inTheCopy);
    ::SuspendThread(::GetCurrentThread());
    return EXCEPTION_CONTINUE_SEARCH;
  });
  constexpr size_t kPage = 4096;
  auto* const pages =
      static_cast<char*>(::VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE, PAGE_NOACCESS));
  ::VirtualAlloc(pages, kPage, MEM_COMMIT, PAGE_READWRITE);
  static_cast<void>(party.waitpost.post(pages + kPage - 4));
  return kExpectationFailed;
}

TEST_F(WaitpostProcessesTest, AProcessThatDiesWhileItCopiesLeavesTheLatchHeldAndNothingElseBroken) {
  create(OSS_WAITPOST_AUTOMATIC);
  Event inTheCopy;
  Child child = startChild("dieInTheMiddleOfACopy", {memory_.name(), inTheCopy.name()});
  ASSERT_TRUE(inTheCopy.wait());
  child.kill();

  char state[64];
  EXPECT_EQ(ossLockToString(&memory_->block.dataLatch, state, sizeof state), ECF_OK);
  EXPECT_STREQ(state, "{ 0x80 [ locked ] }");
  EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_WAITPOST_NOT_POSTED);
  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kForever, nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
  EXPECT_EQ(memory_->block.dataLatch, kLatchHeld);

  create(OSS_WAITPOST_AUTOMATIC);
  char message[9] = {};
  EXPECT_EQ(waitpost_.post("message!"), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&kForever, message), ECF_OK);
  EXPECT_STREQ(message, "message!");
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
}

CHILD_ROLE(createAndPost) {
  SharedBlock<WaitpostMemory> memory(arguments[0]);
  Event posted(arguments[1]), never(arguments[2]);
  const OSSIPCResID id = eventOf(arguments[0]);
  const OSSIPCWaitpostCreateParam param = createParam(*memory, &id);
  OSSHIPCWaitpost waitpost;
  EXPECT_EQ(waitpost.create(&param), ECF_OK);
  EXPECT_EQ(waitpost.post(nullptr), ECF_OK);
  posted.set();
  return never.wait() ? 1 : 2;
}

TEST_F(WaitpostProcessesTest, ANameIsFreeOnceItsLastHandleIsGone) {
  Event posted, never;
  Child child = startChild("createAndPost", {memory_.name(), posted.name(), never.name()});
  ASSERT_TRUE(posted.wait());
  const OSSIPCWaitpostOpenParam param = openParam(*memory_, &id_);
  ASSERT_EQ(waitpost_.open(&param), ECF_OK);
  child.kill();
  EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_OK);  // this handle keeps the event
  EXPECT_EQ(waitpost_.close(), ECF_OK);

  EXPECT_EQ(waitpost_.open(&param), ECF_FILE_DOESNT_EXIST);
  create(OSS_WAITPOST_MANUAL);
  EXPECT_EQ(waitpost_.wait(&kPoll, nullptr), ECF_WAITPOST_NOT_POSTED);
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
}

// ---- Many at once ----

// Messages that show whether they are whole: one number, over and over.
using WideMessage = std::array<uint64_t, 512>;
struct WideMemory {
  OSSIPCWaitpostControlBlock block;
  std::atomic<uint32_t> posting;  // posters that are not done yet
  WideMessage postArea;
};
constexpr uint32_t kPosters = 4;
constexpr uint64_t kPostsEach = 2000;

void postMessages(OSSHIPCWaitpost& waitpost, uint64_t poster) {
  WideMessage message;
  for (uint64_t i = 0; i < kPostsEach; ++i) {
    message.fill(poster << 32 | i);
    if (waitpost.post(message.data()) != ECF_OK) ADD_FAILURE() << "post " << i;
  }
}

template <class Body>
void runThreads(uint32_t count, Body body) {
  std::vector<std::thread> threads;
  for (uint32_t i = 0; i < count; ++i) threads.emplace_back(body, i);
  for (std::thread& thread : threads) thread.join();
}

CHILD_ROLE(postWideMessages) {
  const SharedMemory memory(arguments[0], sizeof(WideMemory));
  auto& wide = *static_cast<WideMemory*>(memory.address());
  const OSSIPCResID id = eventOf(arguments[0]);
  const OSSIPCWaitpostOpenParam param = openParam(wide, &id);
  OSSHIPCWaitpost waitpost;
  EXPECT_EQ(waitpost.open(&param), ECF_OK);
  runThreads(kPosters, [&](uint32_t i) {
    postMessages(waitpost, i);
    --wide.posting;
  });
  return waitpost.close() == ECF_OK ? 0 : 1;
}

TEST(WaitpostMessages, AreNeverTornBetweenFourPostersAndFourWaiters) {
  const SharedMemory memory(sizeof(WideMemory));
  auto& wide = *static_cast<WideMemory*>(memory.address());
  wide.posting = kPosters;
  const OSSIPCResID id = eventOf(memory.name());
  const OSSIPCWaitpostCreateParam param = createParam(wide, &id);
  OSSHIPCWaitpost waitpost;
  ASSERT_EQ(waitpost.create(&param), ECF_OK);

  Child child = startChild("postWideMessages", {memory.name()});
  std::atomic<uint64_t> torn{0}, seen{0};
  runThreads(4, [&](uint32_t) {
    while (wide.posting != 0) {
      WideMessage message;
      const OSSErr rc = waitpost.wait(&kPoll, message.data());
      if (rc == ECF_WAITPOST_NOT_POSTED) continue;
      EXPECT_EQ(rc, ECF_OK);
      ++seen;
      for (const uint64_t word : message)
        if (word != message.front()) {
          ++torn;
          break;
        }
    }
  });
  EXPECT_EQ(child.wait(), 0u);
  EXPECT_EQ(torn, 0u);
  EXPECT_GT(seen, 0u);
  EXPECT_EQ(waitpost.destroy(), ECF_OK);
}

}  // namespace
