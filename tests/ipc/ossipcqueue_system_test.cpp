// Message queues within one process. What a transfer does step by step: ossqueuetransfer_test.cpp;
// what the system refuses: ossipcqueue_failures_system_test.cpp.
#include <thread>

#include "ipc/ossipcqueuefixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr OSSErr kNoQueue = 0x9000005B;
constexpr OSSErr kQueueIsEmpty = 0x9000005F;
constexpr OSSErr kMessageTooBig = 0x90000060;
constexpr OSSErr kUnattached = 0x90000003;
constexpr OSSErr kTimeout = 0x90000013;
constexpr OSSErr kFailed = 0x90000002;

// A count that can be taken at once.
bool hasCount(const OSSIPCResID& resID) {
  OSSHIPCSemaphore semaphore;
  EXPECT_EQ(semaphore.attach(&resID), ECF_OK);
  const OSSIPCSemaphoreWaitParam atOnce;
  const OSSErr rc = semaphore.wait(&atOnce);
  EXPECT_EQ(semaphore.detach(), ECF_OK);
  return rc == ECF_OK;
}

// ---- Handles ----

TEST_F(QueueTest, AConstructedHandleIsNotAttached) {
  const QueueFields fields = fieldsOf(queue_);
  EXPECT_EQ(fields.memory, kNoMemory);
  EXPECT_EQ(fields.dataSemaphore, INVALID_HANDLE_VALUE);
  EXPECT_EQ(fields.spaceSemaphore, INVALID_HANDLE_VALUE);
  EXPECT_EQ(fields.header, nullptr);
  EXPECT_FALSE(queue_.isAttached());
}

TEST(QueueHandle, IsAttachedWithItsSectionAndBothSemaphores) {
  int object = 0;  // any will do: nobody asks what it is
  for (const bool hasMemory : {false, true})
    for (const bool hasData : {false, true})
      for (const bool hasSpace : {false, true}) {
        const QueueFields fields = {
            .memory = {.handle = INVALID_HANDLE_VALUE, .address = hasMemory ? &object : nullptr},
            .dataSemaphore = hasData ? &object : INVALID_HANDLE_VALUE,
            .spaceSemaphore = hasSpace ? &object : INVALID_HANDLE_VALUE,
            .header = nullptr};
        OSSHIPCQueue queue;
        std::memcpy(static_cast<void*>(&queue), &fields, sizeof fields);
        EXPECT_EQ(queue.isAttached(), hasMemory && hasData && hasSpace)
            << hasMemory << hasData << hasSpace;
      }
}

TEST_F(QueueTest, CreateMakesAnEmptyQueueWhoseSemaphoresHaveNoCount) {
  create(17);
  EXPECT_TRUE(queue_.isAttached());
  const QueueFields fields = fieldsOf(queue_);
  EXPECT_EQ(static_cast<void*>(fields.header), fields.memory.address);
  const std::string bytes(static_cast<const char*>(fields.memory.address), 48);
  EXPECT_EQ(bytes, std::string(8, '\0') + '\x18' + std::string(39, '\0'));
  EXPECT_FALSE(hasCount(queResID_.dataSemaphore));
  EXPECT_FALSE(hasCount(queResID_.spaceSemaphore));
  EXPECT_FALSE(queue_.hasMessage());
}

TEST_F(QueueTest, TheSectionTakesTheRingAndItsHeader) {
  const CallCounter maps("MapViewOfFileEx");
  std::vector<uint64_t> sizes;
  const ImportHook creates("CreateFileMappingA", [&](Call& call) {
    sizes.push_back(uint64_t{call.argument<DWORD>(3)} << 32 | call.argument<DWORD>(4));
    return call.passOn();
  });
  for (const uint64_t size :
       {uint64_t{0}, uint64_t{8}, uint64_t{9}, uint64_t{17}, uint64_t{65536}}) {
    create(size);
    ASSERT_EQ(queue_.detach(), ECF_OK);
  }
  EXPECT_THAT(sizes, ElementsAre(48u, 56u, 56u, 64u, 65576u));
  EXPECT_EQ(maps.calls(), 5);
}

TEST_F(QueueTest, DetachLeavesNothing) {
  create(64);
  ASSERT_EQ(queue_.detach(), ECF_OK);
  EXPECT_EQ(fieldsOf(queue_).header, nullptr);
  EXPECT_FALSE(queue_.isAttached());
  expectNamesAreFree();
  EXPECT_THAT(log_.records(), IsEmpty());
}

// Deliberate: the header's address stays. It leads nowhere, and operations know it.
TEST_F(QueueTest, DestroyLeavesTheHeadersAddress) {
  create(64);
  ASSERT_EQ(put(queue_, "x"), ECF_OK);
  OSSIPCQueueHeader* const header = fieldsOf(queue_).header;
  ASSERT_EQ(queue_.destroy(), ECF_OK);
  EXPECT_EQ(fieldsOf(queue_).header, header);
  EXPECT_FALSE(queue_.isAttached());
  EXPECT_EQ(put(queue_, "x"), kUnattached);
  EXPECT_FALSE(queue_.hasMessage());
  expectNamesAreFree();

  // Not even when somebody else's memory is there by now.
  void* const taken = ::VirtualAlloc(header, 0x1000, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  ASSERT_EQ(taken, header);
  std::memset(taken, 0x55, 0x1000);
  EXPECT_EQ(put(queue_, "x"), kUnattached);
  EXPECT_EQ(queue_.get(nullptr, 0, nullptr, 0), kUnattached);
  EXPECT_EQ(queue_.flush(), kUnattached);
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_EQ(std::string(static_cast<const char*>(taken), 0x1000), std::string(0x1000, 0x55));
  ::VirtualFree(taken, 0, MEM_RELEASE);
}

TEST_F(QueueTest, AQueueLivesAsLongAsAHandleToIt) {
  create(64);
  const OtherEnd other(path_);
  ASSERT_EQ(put(queue_, "left behind"), ECF_OK);
  ASSERT_EQ(queue_.destroy(), ECF_OK);
  EXPECT_EQ(next(const_cast<OSSHIPCQueue&>(other.queue)), "left behind");
}

TEST_F(QueueTest, AnAttachToWhatWasNeverCreatedFindsNoQueue) {
  const size_t handles = openHandles();
  EXPECT_EQ(queue_.attach(&queResID_), kNoQueue);
  EXPECT_EQ(openHandles(), handles);
  EXPECT_EQ(fieldsOf(queue_).header, nullptr);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(static_cast<const LogEvidence&>(records[1]),
            CalledRecord(OSS_LOG_INFO, Func::OSSHIPCQueue_attach, 40, Func::OSSHIPCMemory_attach,
                         ECF_MEM_DOESNT_EXIST, kNoQueue));
}

// ---- Arguments ----

TEST_F(QueueTest, NullAndOldRecordsAreRefused) {
  OSSIPCQueueCreateParam old = queueParam(path_, 64);
  old.version = kTooOld;
  EXPECT_EQ(queue_.create(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(queue_.create(&old), ECF_INVALID_VERSION);
  EXPECT_EQ(queue_.attach(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(
      log_.records(),
      ElementsAre(
          FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_create, 1111, ECF_INVALID_PARAMETER),
          FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_create, 1112, ECF_INVALID_VERSION,
                      {Uint(kTooOld)}),
          FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_attach, 1111, ECF_INVALID_PARAMETER)));
  old.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(queue_.create(&old), ECF_OK);
}

TEST_F(QueueTest, NullBytesAreRefusedUnlessThereAreNone) {
  create(64);
  EXPECT_EQ(queue_.put(nullptr, 1), ECF_INVALID_PARAMETER);
  EXPECT_EQ(queue_.get(nullptr, 1, nullptr, 0), ECF_INVALID_PARAMETER);
  EXPECT_THAT(
      log_.records(),
      ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_put, 1111, ECF_INVALID_PARAMETER),
                  FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_get, 1111, ECF_INVALID_PARAMETER)));

  EXPECT_EQ(queue_.put(nullptr, 0), ECF_OK);
  EXPECT_TRUE(queue_.hasMessage());
  uint64_t received = 77;
  EXPECT_EQ(queue_.get(nullptr, 0, &received, 0), ECF_OK);
  EXPECT_EQ(received, 0u);
  EXPECT_FALSE(queue_.hasMessage());
}

TEST_F(QueueTest, OperationsOnAHandleThatIsNotAttachedAreRefused) {
  EXPECT_EQ(put(queue_, "x"), kUnattached);
  EXPECT_EQ(failingGet(queue_, 8, 0), kUnattached);
  EXPECT_EQ(queue_.flush(), kUnattached);
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_put, 10, kUnattached),
                          FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_get, 10, kUnattached),
                          FoundRecord(OSS_LOG_ERROR, Func::OSSHIPCQueue_flush, 10, kUnattached)));
}

// ---- Messages ----

TEST_F(QueueTest, MessagesPassBetweenTwoHandles) {
  create(64);
  OtherEnd other(path_);
  EXPECT_NE(fieldsOf(other.queue).header, fieldsOf(queue_).header);
  ASSERT_EQ(put(queue_, "there"), ECF_OK);
  ASSERT_EQ(put(queue_, ""), ECF_OK);
  EXPECT_EQ(next(other.queue), "there");
  EXPECT_EQ(next(other.queue), "");
  ASSERT_EQ(put(other.queue, "and back"), ECF_OK);
  EXPECT_EQ(next(queue_), "and back");
  EXPECT_EQ(queue_.put("y", 1), ECF_OK);
  char byte = 0;
  EXPECT_EQ(other.queue.get(&byte, 1, nullptr, 0), ECF_OK);
  EXPECT_EQ(byte, 'y');
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(QueueTest, AnEmptyQueueIsToldAtOnceAndNotLogged) {
  create(64);
  const CallCounter waits("WaitForSingleObject");
  EXPECT_EQ(failingGet(queue_, 8, 0), kQueueIsEmpty);
  EXPECT_EQ(waits.calls(), 0);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(QueueTest, PutsAndGetsWithoutASleeperDoNotCallTheSystem) {
  create(4096);
  ASSERT_EQ(put(queue_, "the first asks for the size of the view"), ECF_OK);
  const CallCounter waits("WaitForSingleObject"), posts("ReleaseSemaphore"), sleeps("Sleep"),
      asks("VirtualQuery");
  EXPECT_EQ(next(queue_), "the first asks for the size of the view");
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(put(queue_, std::string(2000, 'x')), ECF_OK);
    EXPECT_TRUE(queue_.hasMessage());
    EXPECT_EQ(next(queue_).size(), 2000u);
  }
  EXPECT_EQ(waits.calls() + posts.calls() + sleeps.calls() + asks.calls(), 0);
}

// A timeout is for a message; other users of the end are waited for.
TEST_F(QueueTest, AnEndThatIsInUseIsWaitedForWhateverTheTimeout) {
  create(64);
  const auto whileHeld = [](uint8_t& latch, const auto& operation) {
    __atomic_store_n(&latch, uint8_t{0x80}, __ATOMIC_SEQ_CST);
    const ImportHook releases("Sleep", [&](Call& call) {
      __atomic_store_n(&latch, uint8_t{0}, __ATOMIC_SEQ_CST);
      return call.passOn();
    });
    operation();
    EXPECT_EQ(latch, 0);
  };
  whileHeld(header().getLatch, [&] { EXPECT_EQ(failingGet(queue_, 8, 0), kQueueIsEmpty); });
  whileHeld(header().putLatch, [&] { EXPECT_EQ(put(queue_, "x"), ECF_OK); });
  whileHeld(header().getLatch, [&] { EXPECT_EQ(next(queue_), "x"); });
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(QueueTest, TheTimeoutIsHandedToTheSemaphoreAndLogged) {
  create(64);
  std::vector<DWORD> waited;
  const ImportHook waits("WaitForSingleObject", [&](Call& call) {
    EXPECT_EQ(call.argument<HANDLE>(0), fieldsOf(queue_).dataSemaphore);
    waited.push_back(call.argument<DWORD>(1));
    return WAIT_TIMEOUT;
  });
  EXPECT_EQ(failingGet(queue_, 8, 250), kTimeout);
  EXPECT_EQ(failingGet(queue_, 9, OSS_QUEUE_INFINITE), kTimeout);
  EXPECT_THAT(waited, ElementsAre(250u, INFINITE));
  EXPECT_EQ(header().readerWaiting, 1) << "who gives up leaves the flag";
  EXPECT_EQ(header().stateLatch, 0);
  EXPECT_EQ(header().getLatch, 0);
  const auto record = [](uint64_t bufferSize, uint32_t timeout) {
    return CalledRecord(OSS_LOG_INFO, Func::OSSHIPCQueue_get, 80, Func::OSSHIPCSemaphore_wait,
                        kTimeout, kTimeout, {{2, Uint(bufferSize)}, {4, Uint(timeout)}});
  };
  EXPECT_THAT(log_.records(), ElementsAre(record(8, 250), record(9, INFINITE)));
}

// What a time-out leaves wakes a later sleeper too early: it looks again and sleeps on.
TEST_F(QueueTest, ACountThatWasLeftBehindIsUsedUp) {
  create(64);
  EXPECT_EQ(failingGet(queue_, 8, 1), kTimeout);
  ASSERT_EQ(put(queue_, "x"), ECF_OK);
  EXPECT_EQ(next(queue_), "x");
  const CallCounter waits("WaitForSingleObject");
  EXPECT_EQ(failingGet(queue_, 8, 1), kTimeout);
  EXPECT_EQ(waits.calls(), 2);
}

// Deliberate: the length is gone, and the next get takes the body for a message.
TEST_F(QueueTest, AMessageThatDoesNotFitLeavesItsBody) {
  create(64);
  const uint64_t length = 3;
  std::string body(reinterpret_cast<const char*>(&length), sizeof length);
  body += "abc";
  ASSERT_EQ(put(queue_, body), ECF_OK);
  EXPECT_EQ(failingGet(queue_, 10, 0), kMessageTooBig);
  EXPECT_EQ(next(queue_), "abc");
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHIPCQueue_get, 100, kMessageTooBig,
                                      {Uint(uint64_t{11}), Uint(uint64_t{10})})));
}

class QueueOfCapacity : public QueueTest, public WithParamInterface<uint64_t> {};

// The smallest rings, messages of none to twice the ring's bytes, whoever comes first.
TEST_P(QueueOfCapacity, PassesAllSizes) {
  create(GetParam());
  const uint64_t most = header().capacity * 2;
  std::thread writer([&] {
    OtherEnd other(path_);
    for (uint64_t size = 0; size <= most; ++size)
      EXPECT_EQ(put(other.queue, std::string(size, static_cast<char>('a' + size % 26))), ECF_OK);
  });
  for (uint64_t size = 0; size <= most; ++size)
    EXPECT_EQ(next(queue_, most, OSS_QUEUE_INFINITE),
              std::string(size, static_cast<char>('a' + size % 26)));
  writer.join();
  EXPECT_EQ(header().writerWaiting, 0);
  EXPECT_EQ(header().readerWaiting, 0);
  EXPECT_FALSE(hasCount(queResID_.dataSemaphore));
  EXPECT_FALSE(hasCount(queResID_.spaceSemaphore));
}
INSTANTIATE_TEST_SUITE_P(RingFor, QueueOfCapacity, Values(0, 8, 17), PrintToStringParamName());

// ---- Flush ----

TEST_F(QueueTest, AFlushForgetsWhatIsUnread) {
  create(64);
  ASSERT_EQ(put(queue_, "one"), ECF_OK);
  ASSERT_EQ(put(queue_, "two"), ECF_OK);
  EXPECT_EQ(next(queue_), "one");
  EXPECT_EQ(queue_.flush(), ECF_OK);
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_EQ(header().writeOffset, 0u);
  EXPECT_EQ(header().readOffset, 0u);
  EXPECT_EQ(header().stateLatch, 0);
  EXPECT_EQ(failingGet(queue_, 8, 0), kQueueIsEmpty);
  ASSERT_EQ(put(queue_, "three"), ECF_OK);
  EXPECT_EQ(next(queue_), "three");
}

TEST_F(QueueTest, AFlushWakesBothEnds) {
  create(64);
  header().readerWaiting = 1;
  header().writerWaiting = 1;
  EXPECT_EQ(queue_.flush(), ECF_OK);
  EXPECT_EQ(header().readerWaiting, 0);
  EXPECT_EQ(header().writerWaiting, 0);
  EXPECT_TRUE(hasCount(queResID_.dataSemaphore));
  EXPECT_TRUE(hasCount(queResID_.spaceSemaphore));
}

// ---- Sections that are no queue's ----

// The three objects, made by hand.
class ForeignSection : public QueueTest {
 protected:
  ForeignSection() {
    OSSIPCMemoryCreateParam section;
    section.resID = queResID_.memory;
    section.size = 100;  // a page of it is mapped
    EXPECT_EQ(memory_.create(&section), ECF_OK);
    void* address = nullptr;
    EXPECT_EQ(memory_.getAddress(&address), ECF_OK);
    header_ = static_cast<OSSIPCQueueHeader*>(address);
    createSemaphore(data_, queResID_.dataSemaphore);
    createSemaphore(space_, queResID_.spaceSemaphore);
    EXPECT_EQ(queue_.attach(&queResID_), ECF_OK);
  }
  ~ForeignSection() override {
    EXPECT_EQ(memory_.detach(), ECF_OK);
    EXPECT_EQ(data_.detach(), ECF_OK);
    EXPECT_EQ(space_.detach(), ECF_OK);
  }

  static void createSemaphore(OSSHIPCSemaphore& semaphore, const OSSIPCResID& resID) {
    OSSIPCSemaphoreCreateParam param;
    param.resID = resID;
    EXPECT_EQ(semaphore.create(&param), ECF_OK);
  }

  OSSHIPCMemory memory_;
  OSSHIPCSemaphore data_, space_;
  OSSIPCQueueHeader* header_ = nullptr;
};

TEST_F(ForeignSection, AHeaderThatIsNoneIsRefusedAndTold) {
  constexpr uint64_t kRoom = 4096 - 40;
  struct Header {
    uint64_t capacity, writeOffset, readOffset;
    uint8_t notEmpty;
  };
  for (const Header& garbage :
       {Header{kRoom + 8, 0, 0, 0}, Header{0xFFFFFFFFFFFFFFF8, 8, 16, 1}, Header{64, 64, 0, 1},
        Header{64, 0, 0xDEADBEEF, 1}, Header{63, 0, 0, 1}, Header{0, 0, 0, 1}}) {
    header_->capacity = garbage.capacity;
    header_->writeOffset = garbage.writeOffset;
    header_->readOffset = garbage.readOffset;
    header_->notEmpty = garbage.notEmpty;
    EXPECT_EQ(put(queue_, "x"), kFailed);
    EXPECT_EQ(failingGet(queue_, 8, 0), kFailed);
    const auto record = [&](Func function) {
      return FoundRecord(
          OSS_LOG_ERROR, function, 20, kFailed,
          {Hex(garbage.capacity), Hex(garbage.writeOffset), Hex(garbage.readOffset), Uint(kRoom)});
    };
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(record(Func::OSSHIPCQueue_put), record(Func::OSSHIPCQueue_get)));
  }
  EXPECT_EQ(queue_.flush(), ECF_OK);
  EXPECT_EQ(header_->writeOffset, 0u);
}

// As large as the view is, up to its last byte.
TEST_F(ForeignSection, ARingMayFillTheViewThatIsMapped) {
  header_->capacity = 4096 - 40;
  ASSERT_EQ(put(queue_, std::string(4096 - 48, 'x')), ECF_OK);
  EXPECT_EQ(next(queue_), std::string(4096 - 48, 'x'));
}

// Zeros are a queue that its creator has not finished.
TEST_F(ForeignSection, ASectionOfZerosIsEmptyAndFull) {
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_EQ(failingGet(queue_, 8, 0), kQueueIsEmpty);
  EXPECT_EQ(failingGet(queue_, 8, 1), kTimeout);
}

// ---- The system's limit ----

TEST(QueueLimit, IsNoneOnThisPlatform) {
  EXPECT_EQ(ossGetMaxQueueMessageSize(), 0);
  EXPECT_EQ(ossGetMaxQueueMessageSize(), 0);
}

}  // namespace
