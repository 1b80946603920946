// What message queues make of the system's refusals: codes, records, what stays open and what does
// not.
#include <thread>

#include "ipc/ossipcqueuefixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// Refusals that say which part failed: code 0x9000000C.
constexpr DWORD kError = ERROR_INVALID_HANDLE;
constexpr OSSErr kCode = ECF_INVALID_PARAMETER;

class QueueFailures : public QueueTest {
 protected:
  // The last record is the queue's own: the operations that it calls log theirs.
  void expectLastRecord(Func function, uint64_t probe, Func called,
                        std::initializer_list<LogItem> items = {}) {
    const std::vector<LogRecord> records = log_.newRecords();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(static_cast<const LogEvidence&>(records.back()),
              CalledRecord(OSS_LOG_INFO, function, probe, called, kCode, kCode, items));
  }

  // Which of the queue's objects the handle holds.
  std::string attachedParts() const {
    const QueueFields fields = fieldsOf(queue_);
    std::string parts;
    if (fields.memory.address != nullptr) parts += "memory ";
    if (holds(fields.dataSemaphore)) parts += "data ";
    if (holds(fields.spaceSemaphore)) parts += "space ";
    if (fields.header != nullptr) parts += "header ";
    return parts;
  }

  // All ones would be the process itself.
  static bool holds(HANDLE handle) { return handle != INVALID_HANDLE_VALUE && isOpen(handle); }

  // Gives back what a failure has left.
  void release() {
    for (const HANDLE handle : {fieldsOf(queue_).memory.handle, fieldsOf(queue_).dataSemaphore,
                                fieldsOf(queue_).spaceSemaphore})
      if (holds(handle)) ::CloseHandle(handle);
    if (void* const view = fieldsOf(queue_).memory.address) ::UnmapViewOfFile(view);
    queue_ = OSSHIPCQueue();
  }
};

// ---- create ----

struct RefusedCreate {
  const char* call;
  FailingCall::Way way;
  uint64_t probe;
  Func called;
  const char* left;
};

class QueueCreateRefused : public QueueFailures, public WithParamInterface<RefusedCreate> {};

TEST_P(QueueCreateRefused, LeavesWhatWasMadeBefore) {
  const RefusedCreate& refused = GetParam();
  const OSSIPCQueueCreateParam param = queueParam(path_, 64);
  {
    const FailingCall fails(refused.call, kError, refused.way);
    EXPECT_EQ(queue_.create(&param), kCode);
  }
  EXPECT_EQ(attachedParts(), refused.left);
  if (refused.probe != 50)
    expectLastRecord(Func::OSSHIPCQueue_create, refused.probe, refused.called);
  release();
  expectNamesAreFree();
}

INSTANTIATE_TEST_SUITE_P(
    At, QueueCreateRefused,
    Values(
        RefusedCreate{"CreateFileMappingA", {}, 50, Func::OSSHIPCMemory_create, ""},
        RefusedCreate{"MapViewOfFileEx", {}, 50, Func::OSSHIPCMemory_create, ""},
        RefusedCreate{"InitializeSecurityDescriptor", {}, 50, Func::OSSHIPCMemory_create, ""},
        RefusedCreate{"CreateSemaphoreA", {}, 60, Func::OSSHIPCSemaphore_create, "memory "},
        RefusedCreate{
            "CreateSemaphoreA", {.onCall = 2}, 70, Func::OSSHIPCSemaphore_create, "memory data "},
        RefusedCreate{"WaitForSingleObject",
                      {.result = WAIT_FAILED},
                      80,
                      Func::OSSHIPCSemaphore_wait,
                      "memory data space "},
        RefusedCreate{"WaitForSingleObject",
                      {.result = WAIT_FAILED, .onCall = 2},
                      90,
                      Func::OSSHIPCSemaphore_wait,
                      "memory data space "}),
    [](const auto& refusal) {
      return std::string(refusal.param.call) + '_' + std::to_string(refusal.param.way.onCall);
    });

TEST_F(QueueFailures, AFailedSectionIsLoggedWithItsRecord) {
  const OSSIPCQueueCreateParam param = queueParam(path_, 64);
  const FailingCall fails("CreateFileMappingA", kError);
  ASSERT_EQ(queue_.create(&param), kCode);
  const std::vector<LogRecord> records = log_.records();
  const LogRecord& last = records.back();
  EXPECT_EQ(last.probe, 50u);
  EXPECT_EQ(last.calledFunction, "OSSHIPCMemory::create");
  ASSERT_EQ(last.items.size(), 1u);
  EXPECT_EQ(last.items[0].number, 1u);
  EXPECT_EQ(last.items[0].value.type, "<hexdump>");
  EXPECT_EQ(last.items[0].value.size, 312u);
}

TEST_F(QueueFailures, ANameThatIsTakenIsLeftAlone) {
  create(64);
  ASSERT_EQ(put(queue_, "kept"), ECF_OK);
  const OSSIPCQueueCreateParam param = queueParam(path_, 64);
  OSSHIPCQueue second;
  EXPECT_EQ(second.create(&param), ECF_MEM_EXISTS);
  EXPECT_FALSE(second.isAttached());
  EXPECT_EQ(next(queue_), "kept");
}

// Which call refuses it, and whether as invalid or for lack of memory, is the system's choice: Wine
// makes such a section, and finds the size of its view invalid.
TEST_F(QueueFailures, ASizeBeyondTellingIsRefusedByTheSystem) {
  const OSSIPCQueueCreateParam param = queueParam(path_, ~uint64_t{0});
  OSSErr rc = ECF_OK;
  {
    const ImportHook creates("CreateFileMappingA", [](Call& call) {
      EXPECT_EQ(call.argument<DWORD>(3), ~DWORD{0});
      EXPECT_EQ(call.argument<DWORD>(4), ~DWORD{0});
      return call.passOn();
    });
    rc = queue_.create(&param);
  }
  EXPECT_THAT(rc, AnyOf(ECF_INVALID_PARAMETER, ECF_NO_MEMORY));
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 3u);
  EXPECT_THAT(records[0].probe, AnyOf(80u, 100u));
  EXPECT_EQ(records[1].probe, records[0].probe + 1);
  EXPECT_EQ(records[2].function, "OSSHIPCQueue::create");
  EXPECT_EQ(records[2].probe, 50u);
  EXPECT_EQ(records[2].calledFunction, "OSSHIPCMemory::create");
  EXPECT_EQ(records[2].code, rc);
  EXPECT_EQ(attachedParts(), "");
  expectNamesAreFree();
}

// ---- attach ----

struct RefusedAttach {
  const char* call;
  int onCall;
  uint64_t probe;
  Func called;
  DWORD error;
  OSSErr calledCode, code;
};

class QueueAttachRefused : public QueueFailures, public WithParamInterface<RefusedAttach> {};

TEST_P(QueueAttachRefused, LeavesNothingAttached) {
  const RefusedAttach& refused = GetParam();
  create(64);
  OSSHIPCQueue other;
  const size_t handles = openHandles();
  {
    const FailingCall fails(refused.call, refused.error, {.onCall = refused.onCall});
    EXPECT_EQ(other.attach(&queResID_), refused.code);
  }
  EXPECT_EQ(openHandles(), handles);
  EXPECT_EQ(fieldsOf(other).header, nullptr);
  EXPECT_EQ(fieldsOf(other).memory, kNoMemory);
  EXPECT_FALSE(other.isAttached());
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(static_cast<const LogEvidence&>(records[1]),
            CalledRecord(OSS_LOG_INFO, Func::OSSHIPCQueue_attach, refused.probe, refused.called,
                         refused.calledCode, refused.code));
}

constexpr OSSErr kNoQueue = ECF_QUE_DOESNT_EXIST;
INSTANTIATE_TEST_SUITE_P(
    At, QueueAttachRefused,
    Values(
        RefusedAttach{"OpenFileMappingA", 1, 40, Func::OSSHIPCMemory_attach, kError,
                      ECF_MEM_DOESNT_EXIST, kNoQueue},
        RefusedAttach{"MapViewOfFileEx", 1, 40, Func::OSSHIPCMemory_attach, kError, kCode, kCode},
        RefusedAttach{"OpenSemaphoreA", 1, 50, Func::OSSHIPCSemaphore_attach, ERROR_FILE_NOT_FOUND,
                      ECF_SEM_DOESNT_EXIST, kNoQueue},
        RefusedAttach{"OpenSemaphoreA", 1, 50, Func::OSSHIPCSemaphore_attach, kError, kCode, kCode},
        RefusedAttach{"OpenSemaphoreA", 2, 60, Func::OSSHIPCSemaphore_attach, ERROR_FILE_NOT_FOUND,
                      ECF_SEM_DOESNT_EXIST, kNoQueue},
        RefusedAttach{"OpenSemaphoreA", 2, 60, Func::OSSHIPCSemaphore_attach, kError, kCode,
                      kCode}),
    [](const auto& refusal) {
      return std::string(refusal.param.call) + '_' + std::to_string(refusal.param.onCall) + '_' +
             std::to_string(refusal.param.error);
    });

// ---- detach, destroy ----

TEST_F(QueueFailures, DetachStopsAtTheFirstFailure) {
  create(64);
  {
    const FailingCall fails("UnmapViewOfFile", kError);
    EXPECT_EQ(queue_.detach(), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_detach, 30, Func::OSSHIPCMemory_detach);
  EXPECT_EQ(attachedParts(), "memory data space header ");
  release();

  create(64);
  const HANDLE data = fieldsOf(queue_).dataSemaphore;
  {
    const FailingCall fails("CloseHandle", kError, {.onCall = 2});
    EXPECT_EQ(queue_.detach(), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_detach, 40, Func::OSSHIPCSemaphore_detach);
  EXPECT_EQ(attachedParts(), "space header ");
  EXPECT_TRUE(::CloseHandle(data)) << "it was forgotten, not closed";
  release();
}

TEST_F(QueueFailures, DetachReportsTheLastSemaphoreAndKeepsTheHeadersAddress) {
  create(64);
  const HANDLE space = fieldsOf(queue_).spaceSemaphore;
  {
    const FailingCall fails("CloseHandle", kError, {.onCall = 3});
    EXPECT_EQ(queue_.detach(), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_detach, 50, Func::OSSHIPCSemaphore_detach);
  EXPECT_EQ(attachedParts(), "header ");
  EXPECT_TRUE(::CloseHandle(space));
}

TEST_F(QueueFailures, DetachOfAHandleThatWasNeverAttachedIsRefused) {
  EXPECT_EQ(queue_.detach(), kCode);
  expectLastRecord(Func::OSSHIPCQueue_detach, 30, Func::OSSHIPCMemory_detach);
}

// Deliberate: destroying the memory never fails, so the semaphores come next.
TEST_F(QueueFailures, DestroyOvercomesTheSectionAndStopsAtASemaphore) {
  create(64);
  const HANDLE data = fieldsOf(queue_).dataSemaphore;
  {
    const FailingCall fails("CloseHandle", kError, {.onCall = 2});
    EXPECT_EQ(queue_.destroy(), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_destroy, 50, Func::OSSHIPCSemaphore_destroy);
  EXPECT_EQ(attachedParts(), "space header ");
  EXPECT_TRUE(::CloseHandle(data)) << "it was forgotten, not closed";
  release();

  create(64);
  const HANDLE space = fieldsOf(queue_).spaceSemaphore;
  {
    const FailingCall fails("CloseHandle", kError, {.onCall = 3});
    EXPECT_EQ(queue_.destroy(), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_destroy, 60, Func::OSSHIPCSemaphore_destroy);
  EXPECT_EQ(attachedParts(), "header ");
  EXPECT_TRUE(::CloseHandle(space));
}

// ---- put, get, flush ----

TEST_F(QueueFailures, PutTellsWhereItCouldNotSleep) {
  create(16);
  ASSERT_EQ(put(queue_, "12345678"), ECF_OK);
  const std::string data = "abc";
  {
    const FailingCall fails("WaitForSingleObject", kError, {.result = WAIT_FAILED});
    EXPECT_EQ(put(queue_, data), kCode);
  }
  EXPECT_EQ(header().writerWaiting, 1);
  EXPECT_EQ(header().stateLatch, 0);
  EXPECT_EQ(header().putLatch, 0);
  const std::vector<LogRecord> records = log_.newRecords();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1].probe, 50u);
  EXPECT_EQ(records[1].calledFunction, "OSSHIPCSemaphore::wait");
  ASSERT_EQ(records[1].items.size(), 2u);
  EXPECT_EQ(records[1].items[0].value.type, "<hexdump>");
  EXPECT_EQ(records[1].items[0].value.size, 3u);
  EXPECT_EQ(records[1].items[1].value, Uint(uint64_t{3}));

  ASSERT_EQ(queue_.flush(), ECF_OK);
  {
    const FailingCall fails("WaitForSingleObject", kError, {.result = WAIT_FAILED, .onCall = 2});
    EXPECT_EQ(put(queue_, std::string(20, 'x')), kCode);  // the first takes the count of the flush
  }
  expectLastRecord(Func::OSSHIPCQueue_put, 60, Func::OSSHIPCSemaphore_wait,
                   {{2, Uint(uint64_t{20})}});
}

TEST_F(QueueFailures, PostsThatFailAreTold) {
  create(64);
  header().readerWaiting = 1;
  {
    const FailingCall fails("ReleaseSemaphore", kError);
    EXPECT_EQ(put(queue_, "abc"), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_put, 70, Func::OSSHIPCSemaphore_post,
                   {{2, Uint(uint64_t{3})}});

  header().writerWaiting = 1;
  {
    const FailingCall fails("ReleaseSemaphore", kError);
    EXPECT_EQ(failingGet(queue_, 8, 0), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_get, 130, Func::OSSHIPCSemaphore_post,
                   {{2, Uint(uint64_t{8})}, {4, Uint(0U)}});
  EXPECT_EQ(header().stateLatch, 0);
}

TEST_F(QueueFailures, GetTellsWhereItCouldNotSleep) {
  create(16);
  {
    const FailingCall fails("WaitForSingleObject", kError, {.result = WAIT_FAILED});
    EXPECT_EQ(failingGet(queue_, 8, 5), kCode);
  }
  expectLastRecord(Func::OSSHIPCQueue_get, 90, Func::OSSHIPCSemaphore_wait,
                   {{2, Uint(uint64_t{8})}, {4, Uint(5U)}});

  // Half a message: its writer could not sleep.
  {
    const FailingCall fails("WaitForSingleObject", kError, {.result = WAIT_FAILED});
    EXPECT_EQ(put(queue_, std::string(20, 'x')), kCode);
  }
  {
    const FailingCall fails("WaitForSingleObject", kError, {.result = WAIT_FAILED, .onCall = 2});
    EXPECT_EQ(failingGet(queue_, 20, 5), kCode);  // the first takes the count that was left
  }
  expectLastRecord(Func::OSSHIPCQueue_get, 120, Func::OSSHIPCSemaphore_wait,
                   {{2, Uint(uint64_t{20})}, {4, Uint(5U)}});
}

TEST_F(QueueFailures, ATimeOutInTheMiddleOfAMessageIsTold) {
  create(16);
  {
    const FailingCall fails("WaitForSingleObject", kError, {.result = WAIT_FAILED});
    EXPECT_EQ(put(queue_, std::string(20, 'x')), kCode);
  }
  static_cast<void>(log_.newRecords());
  EXPECT_EQ(failingGet(queue_, 20, 1), ECF_TIMEOUT);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(CalledRecord(OSS_LOG_INFO, Func::OSSHIPCQueue_get, 110,
                                       Func::OSSHIPCSemaphore_wait, ECF_TIMEOUT, ECF_TIMEOUT,
                                       {{2, Uint(uint64_t{20})}, {4, Uint(1U)}})));
  EXPECT_FALSE(queue_.hasMessage());
}

// Deliberate: a post that fails leaves the state latch held, and the queue stuck.
TEST_F(QueueFailures, AFlushThatCannotWakeKeepsTheStateLatch) {
  create(64);
  const auto flushFails = [&](uint64_t probe) {
    {
      const FailingCall fails("ReleaseSemaphore", kError);
      EXPECT_EQ(queue_.flush(), kCode);
    }
    expectLastRecord(Func::OSSHIPCQueue_flush, probe, Func::OSSHIPCSemaphore_post);
    EXPECT_EQ(header().stateLatch, 0x80);
    header().stateLatch = 0;
  };
  ASSERT_EQ(put(queue_, "x"), ECF_OK);
  header().readerWaiting = 1;
  flushFails(40);
  EXPECT_EQ(header().notEmpty, 0);
  EXPECT_EQ(header().readerWaiting, 0);
  header().writerWaiting = 1;
  flushFails(50);
  EXPECT_EQ(header().writerWaiting, 0);
}

// A view whose size the system does not tell is not touched.
TEST_F(QueueFailures, AViewOfUnknownSizeCountsAsNone) {
  create(64);
  const FailingCall fails("VirtualQuery", kError);
  EXPECT_EQ(put(queue_, "x"), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(put(queue_, "x"), ECF_OK);
}

}  // namespace
