// Threads: starting, waiting, closing, ending.
#include <cstdlib>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

#include "harness/childprocess.h"
#include "harness/handles.h"
#include "ossmemory.h"
#include "process/ossthreadfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

static_assert(!std::is_copy_constructible_v<OSSHThread> && !std::is_copy_assignable_v<OSSHThread>);

namespace {

class OSSHThreadTest : public Test {
 protected:
  // Starts the thread and waits until it runs.
  void start(const OSSThreadParam& param) {
    ASSERT_EQ(thread_.create(Work::run, &work_, &param, nullptr), ECF_OK);
    ASSERT_TRUE(work_.runs());
  }

  // Lets the thread end and waits for it, whatever its handle thinks.
  void finish() {
    const HANDLE handle = fieldsOf(thread_).handle;
    work_.release();
    EXPECT_TRUE(work_.hasEnded());
    EXPECT_EQ(::WaitForSingleObject(handle, 120'000), WAIT_OBJECT_0);
  }

  // Expects that an operation of thread_ is refused with this one record and changes nothing.
  template <class Operation>
  void expectRefusal(Operation operation, OSSErr code, const LogEvidence& record) {
    const ThreadFields before = fieldsOf(thread_);
    EXPECT_EQ(operation(), code);
    EXPECT_EQ(fieldsOf(thread_), before);
    EXPECT_THAT(log_.newRecords(), ElementsAre(record));
  }

  LogCapture log_;
  Work work_;
  OSSHThread thread_;
};

// ---- create ----

TEST_F(OSSHThreadTest, AConstructedHandleHasNoThread) { EXPECT_EQ(fieldsOf(thread_), kNoThread); }

TEST_F(OSSHThreadTest, AThreadCallsItsEntryWithTheArgumentAndEndsWithCodeZero) {
  struct Seen {
    void* argument = nullptr;
    uint32_t threadID = 0;
  } seen;
  const auto entry = [](void* argument) {
    *static_cast<Seen*>(argument) = {argument, ::GetCurrentThreadId()};
  };
  unsigned long threadID = 0;

  EXPECT_EQ(thread_.create(entry, &seen, &kJoinable, &threadID), ECF_OK);
  EXPECT_EQ(thread_.wait(), ECF_OK);
  EXPECT_EQ(seen.argument, &seen);
  EXPECT_EQ(seen.threadID, threadID);
  EXPECT_NE(threadID, ::GetCurrentThreadId());
  EXPECT_EQ(exitCodeOf(fieldsOf(thread_).handle), 0u);
  EXPECT_EQ(thread_.close(), ECF_OK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHThreadTest, TheHandleHoldsIdentifierHandleAndWhetherItMustBeWaitedFor) {
  unsigned long threadID = 0;
  ASSERT_EQ(thread_.create(Work::run, &work_, &kJoinable, &threadID), ECF_OK);
  const HANDLE handle = fieldsOf(thread_).handle;
  EXPECT_EQ(fieldsOf(thread_), (ThreadFields{threadID, handle, true, true}));
  EXPECT_EQ(::GetThreadId(handle), threadID);
  work_.release();
  EXPECT_EQ(thread_.wait(), ECF_OK);
  EXPECT_EQ(fieldsOf(thread_), (ThreadFields{threadID, handle, true, false}));
  EXPECT_EQ(thread_.close(), ECF_OK);
  EXPECT_EQ(fieldsOf(thread_), kNoThread);
  EXPECT_FALSE(isOpen(handle));
}

TEST_F(OSSHThreadTest, OnlyTheLowestFlagMakesAThreadJoinable) {
  for (const uint64_t flags : {uint64_t{0}, uint64_t{2}, ~uint64_t{1}}) {
    const OSSThreadParam param = threadParam(flags);
    ASSERT_EQ(thread_.create(doNothing, nullptr, &param, nullptr), ECF_OK);
    EXPECT_FALSE(fieldsOf(thread_).joinable) << flags;
    EXPECT_EQ(thread_.close(), ECF_OK);
  }
  const OSSThreadParam all = threadParam(~uint64_t{0});
  ASSERT_EQ(thread_.create(doNothing, nullptr, &all, nullptr), ECF_OK);
  EXPECT_TRUE(fieldsOf(thread_).joinable);
  EXPECT_EQ(thread_.wait(), ECF_OK);
}

TEST_F(OSSHThreadTest, ARecordThatIsNullOrTooOldIsRefused) {
  CallCounter starts("_beginthreadex");
  OSSThreadParam old;
  old.version = OSS_VERSION_OLDEST - 1;
  unsigned long threadID = 77;

  expectRefusal([&] { return thread_.create(doNothing, nullptr, nullptr, &threadID); },
                ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHThread_create, 1111, ECF_INVALID_PARAMETER));
  expectRefusal([&] { return thread_.create(doNothing, nullptr, &old, &threadID); },
                ECF_INVALID_VERSION,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHThread_create, 1112, ECF_INVALID_VERSION,
                            {Uint(OSS_VERSION_OLDEST - 1)}));
  EXPECT_EQ(threadID, 77u);
  EXPECT_EQ(starts.calls(), 0);
}

TEST_F(OSSHThreadTest, TheOldestVersionIsAccepted) {
  OSSThreadParam oldest = kJoinable;
  oldest.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(thread_.create(doNothing, nullptr, &oldest, nullptr), ECF_OK);
  EXPECT_EQ(thread_.wait(), ECF_OK);
}

TEST_F(OSSHThreadTest, ASecondCreateIsRefusedAndLeavesTheThreadAlone) {
  start(kJoinable);
  CallCounter starts("_beginthreadex");
  unsigned long threadID = 77;
  const LogEvidence record =
      FoundRecord(OSS_LOG_INFO, Func::OSSHThread_create, 30, ECF_THREAD_ALREADY_CREATED);

  expectRefusal([&] { return thread_.create(doNothing, nullptr, &kDetached, &threadID); },
                ECF_THREAD_ALREADY_CREATED, record);
  expectRefusal([&] { return thread_.create(nullptr, nullptr, &kDetached, &threadID); },
                ECF_THREAD_ALREADY_CREATED, record);
  EXPECT_EQ(threadID, 77u);
  EXPECT_EQ(starts.calls(), 0);
  finish();

  EXPECT_EQ(thread_.wait(), ECF_OK);  // which leaves the handle created
  expectRefusal([&] { return thread_.create(doNothing, nullptr, &kJoinable, nullptr); },
                ECF_THREAD_ALREADY_CREATED, record);
}

TEST_F(OSSHThreadTest, ANullEntryIsRefused) {
  CallCounter starts("_beginthreadex");
  expectRefusal([&] { return thread_.create(nullptr, this, &kJoinable, nullptr); },
                ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_INFO, Func::OSSHThread_create, 40, ECF_INVALID_PARAMETER));
  EXPECT_EQ(starts.calls(), 0);
}

TEST_F(OSSHThreadTest, AHandleCanBeUsedAgainAfterItsClose) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(thread_.create(doNothing, nullptr, &kJoinable, nullptr), ECF_OK);
    EXPECT_EQ(thread_.wait(), ECF_OK);
    EXPECT_EQ(thread_.close(), ECF_OK);
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

// ---- create: what is asked of the system, and its refusals ----

struct Start {
  const void* security;
  unsigned stackSize;
  void* record[2];
  unsigned flags;
};

// What a thread is started with. The system refuses it.
Start startOf(const OSSThreadParam& param, void (*entry)(void*), void* argument) {
  Start asked = {};
  ImportHook hook("_beginthreadex", [&](Call& call) {
    asked.security = call.argument<const void*>(0);
    asked.stackSize = call.argument<unsigned>(1);
    std::memcpy(asked.record, call.argument<const void*>(3), sizeof asked.record);
    asked.flags = call.argument<unsigned>(4);
    ::SetLastError(ERROR_ACCESS_DENIED);
  });
  OSSHThread thread;
  EXPECT_EQ(thread.create(entry, argument, &param, nullptr), ECF_ACCESS_DENIED);
  return asked;
}

TEST(OSSHThreadStart, GivesEntryAndArgumentAndRunsAtOnce) {
  int argument = 0;
  const Start asked = startOf(kJoinable, doNothing, &argument);
  EXPECT_EQ(asked.security, nullptr);
  EXPECT_EQ(asked.stackSize, 0u);
  EXPECT_EQ(asked.record[0], reinterpret_cast<void*>(&doNothing));
  EXPECT_EQ(asked.record[1], &argument);
  EXPECT_EQ(asked.flags, 0u);
}

TEST(OSSHThreadStart, AStackBeyond32BitsIsCutToTheMostTheyHold) {
  const auto asked = [](uint64_t stackSize) {
    OSSThreadParam param;
    param.stackSize = stackSize;
    return startOf(param, doNothing, nullptr).stackSize;
  };
  EXPECT_EQ(asked(0x123456), 0x123456u);
  EXPECT_EQ(asked(0xFFFFFFFF), 0xFFFFFFFF);
  EXPECT_EQ(asked(uint64_t{1} << 32), 0xFFFFFFFF);
  EXPECT_EQ(asked(~uint64_t{0}), 0xFFFFFFFF);
}

TEST_F(OSSHThreadTest, WithoutMemoryTheAllocatorsCodeIsReturned) {
  const struct {
    DWORD error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {{ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY, OSS_LOG_ERROR},
               {ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, OSS_LOG_INFO}};
  CallCounter starts("_beginthreadex");
  for (const auto& row : kRows) {
    FailingCall fails("malloc", row.error);
    expectRefusal([&] { return thread_.create(doNothing, nullptr, &kJoinable, nullptr); }, row.code,
                  CalledRecord(row.level, Func::OSSHThread_create, 90, Func::ossMemAlloc, row.code,
                               row.code));
  }
  EXPECT_EQ(starts.calls(), 0);
}

TEST_F(OSSHThreadTest, AThreadThatDoesNotStartIsTheSystemsRefusal) {
  const struct {
    DWORD error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {{ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY, OSS_LOG_ERROR},
               {ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, OSS_LOG_INFO},
               {NO_ERROR, ECF_UNKNOWN, OSS_LOG_ERROR}};
  unsigned long threadID = 77;
  for (const auto& row : kRows) {
    FailingCall fails("_beginthreadex", row.error);
    expectRefusal([&] { return thread_.create(doNothing, nullptr, &kJoinable, &threadID); },
                  row.code,
                  SystemRecord(row.level, Func::OSSHThread_create, 100, SysCall::BeginThreadEx,
                               row.error, row.code));
  }
  EXPECT_EQ(threadID, 77u);
  EXPECT_EQ(fieldsOf(thread_), kNoThread);
}

// ---- create: the start record ----

// Each role runs with the allocator's list of live blocks.
std::string runListing(const std::string& role) {
  TempDirectory dir;
  const std::string output = dir.file("output");
  EXPECT_EQ(runChild(role, {},
                     {.environment = {{"OSSEMEMDBG", dir.path() + ",FULL"}}, .outputFile = output}),
            0u);
  return readFile(output);
}

CHILD_ROLE(startAThreadThatListsItsMemory) {
  OSSHThread thread;
  EXPECT_NE(g_pMemDebugCB, nullptr);
  EXPECT_EQ(thread.create([](void*) { ossMemAllocList(0); }, nullptr, &kJoinable, nullptr), ECF_OK);
  EXPECT_EQ(thread.wait(), ECF_OK);
  return g_pMemDebugCB->liveBlocks == nullptr ? 0 : 1;
}

TEST(OSSHThreadRecord, IsFreedBeforeTheEntryRuns) {
  EXPECT_EQ(runListing("startAThreadThatListsItsMemory"), "");
}

CHILD_ROLE(listMemoryAfterAFailedStart) {
  FailingCall fails("_beginthreadex", ERROR_NOT_ENOUGH_MEMORY);
  OSSHThread thread;
  EXPECT_EQ(thread.create(doNothing, nullptr, &kJoinable, nullptr), ECF_NO_MEMORY);
  return ossMemAllocList(0) == ECF_OK ? 0 : 1;
}

TEST(OSSHThreadRecord, StaysAllocatedWhenTheThreadDoesNotStart) {
  EXPECT_THAT(runListing("listMemoryAfterAFailedStart"),
              MatchesRegex("Address: \\w+ Size: 16 Line: \\d+ File: ossthread.cpp\n"));
}

// ---- wait ----

TEST_F(OSSHThreadTest, WaitWithoutAThreadIsRefused) {
  expectRefusal([&] { return thread_.wait(); }, ECF_THREAD_NOT_CREATED,
                FoundRecord(OSS_LOG_INFO, Func::OSSHThread_wait, 10, ECF_THREAD_NOT_CREATED));
}

TEST_F(OSSHThreadTest, WaitForAThreadThatIsNotJoinableIsRefused) {
  start(kDetached);
  CallCounter waits("WaitForSingleObject");
  expectRefusal([&] { return thread_.wait(); }, ECF_THREAD_CANNOT_WAIT,
                FoundRecord(OSS_LOG_INFO, Func::OSSHThread_wait, 20, ECF_THREAD_CANNOT_WAIT));
  EXPECT_EQ(waits.calls(), 0);
  finish();
}

// The thread can end only after the wait has begun.
TEST_F(OSSHThreadTest, WaitReturnsWhenTheThreadHasEnded) {
  start(kJoinable);
  ImportHook hook("WaitForSingleObject", [&](Call& call) {
    EXPECT_EQ(call.argument<HANDLE>(0), fieldsOf(thread_).handle);
    EXPECT_EQ(call.argument<DWORD>(1), INFINITE);
    EXPECT_FALSE(work_.isReleased());
    work_.release();
    return call.passOn();
  });
  EXPECT_EQ(thread_.wait(), ECF_OK);
  EXPECT_TRUE(work_.isReleased());
  EXPECT_EQ(hook.calls(), 1);
}

TEST_F(OSSHThreadTest, ASecondWaitIsRefused) {
  EXPECT_EQ(thread_.create(doNothing, nullptr, &kJoinable, nullptr), ECF_OK);
  EXPECT_EQ(thread_.wait(), ECF_OK);
  expectRefusal([&] { return thread_.wait(); }, ECF_THREAD_CANNOT_WAIT,
                FoundRecord(OSS_LOG_INFO, Func::OSSHThread_wait, 20, ECF_THREAD_CANNOT_WAIT));
}

TEST_F(OSSHThreadTest, AFailedWaitCountsAsOne) {
  start(kJoinable);
  const ThreadFields before = fieldsOf(thread_);
  FailingCall fails("WaitForSingleObject", ERROR_INVALID_HANDLE, {.result = WAIT_FAILED});

  EXPECT_EQ(thread_.wait(), ECF_INVALID_PARAMETER);
  EXPECT_EQ(fieldsOf(thread_), (ThreadFields{before.threadID, before.handle, true, false}));
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHThread_wait, 0,
                                       SysCall::WaitForSingleObject, ERROR_INVALID_HANDLE,
                                       ECF_INVALID_PARAMETER, {{1, Hex(before.handle)}})));
  expectRefusal([&] { return thread_.wait(); }, ECF_THREAD_CANNOT_WAIT,
                FoundRecord(OSS_LOG_INFO, Func::OSSHThread_wait, 20, ECF_THREAD_CANNOT_WAIT));
  finish();
  EXPECT_EQ(thread_.close(), ECF_OK);
}

// ---- close ----

TEST_F(OSSHThreadTest, CloseWithoutAThreadIsRefused) {
  CallCounter closes("CloseHandle");
  EXPECT_EQ(thread_.close(), ECF_THREAD_NOT_CREATED);
  EXPECT_EQ(fieldsOf(thread_), kNoThread);
  EXPECT_THAT(log_.records(), ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHThread_close, 10,
                                                      ECF_THREAD_NOT_CREATED)));
}

TEST_F(OSSHThreadTest, AJoinableThreadMustBeWaitedForBeforeItsClose) {
  start(kJoinable);
  const HANDLE handle = fieldsOf(thread_).handle;
  expectRefusal([&] { return thread_.close(); }, ECF_THREAD_MUST_WAIT,
                FoundRecord(OSS_LOG_INFO, Func::OSSHThread_close, 20, ECF_THREAD_MUST_WAIT));
  EXPECT_TRUE(isOpen(handle));

  work_.release();
  EXPECT_EQ(thread_.wait(), ECF_OK);
  EXPECT_TRUE(isOpen(handle));
  EXPECT_EQ(thread_.close(), ECF_OK);
  EXPECT_FALSE(isOpen(handle));
}

TEST_F(OSSHThreadTest, AThreadThatIsNotJoinableRunsOnAfterItsClose) {
  start(kDetached);
  EXPECT_EQ(thread_.close(), ECF_OK);
  EXPECT_EQ(fieldsOf(thread_), kNoThread);
  work_.release();
  EXPECT_TRUE(work_.hasEnded());
}

TEST_F(OSSHThreadTest, CloseDoesNotAskWhetherTheSystemClosedTheHandle) {
  start(kDetached);
  const HANDLE handle = fieldsOf(thread_).handle;
  finish();
  FailingCall fails("CloseHandle", ERROR_INVALID_HANDLE);
  EXPECT_EQ(thread_.close(), ECF_OK);
  EXPECT_EQ(fieldsOf(thread_), kNoThread);
  EXPECT_EQ(log_.text(), "");
  ::CloseHandle(handle);
}

// ---- The destructor ----

TEST_F(OSSHThreadTest, TheDestructorClosesTheHandle) {
  HANDLE detached, waitedFor;
  {
    OSSHThread first, second;
    EXPECT_EQ(first.create(doNothing, nullptr, &kDetached, nullptr), ECF_OK);
    EXPECT_EQ(second.create(doNothing, nullptr, &kJoinable, nullptr), ECF_OK);
    EXPECT_EQ(second.wait(), ECF_OK);
    detached = fieldsOf(first).handle;
    waitedFor = fieldsOf(second).handle;
    EXPECT_TRUE(isOpen(detached) && isOpen(waitedFor));
  }
  EXPECT_FALSE(isOpen(detached) || isOpen(waitedFor));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHThreadTest, TheDestructorLeavesTheHandleOfAThreadThatMustBeWaitedFor) {
  HANDLE handle;
  {
    OSSHThread thread;
    EXPECT_EQ(thread.create(doNothing, nullptr, &kJoinable, nullptr), ECF_OK);
    handle = fieldsOf(thread).handle;
  }
  EXPECT_THAT(log_.records(), ElementsAre(FoundRecord(OSS_LOG_INFO, Func::OSSHThread_close, 20,
                                                      ECF_THREAD_MUST_WAIT)));
  EXPECT_EQ(::WaitForSingleObject(handle, 120'000), WAIT_OBJECT_0);
  ::CloseHandle(handle);
}

TEST_F(OSSHThreadTest, TheDestructorOfAHandleWithoutAThreadDoesNothing) {
  CallCounter closes("CloseHandle");
  { OSSHThread empty; }
  EXPECT_EQ(closes.calls(), 0);
  EXPECT_EQ(log_.text(), "");
}

// ---- The calling thread ----

TEST_F(OSSHThreadTest, ThreadExitEndsTheThreadWithCodeZero) {
  bool reached[2] = {};
  const auto entry = [](void* argument) {
    auto* const flags = static_cast<bool*>(argument);
    flags[0] = true;
    ossThreadExit();
    flags[1] = true;
  };
  EXPECT_EQ(thread_.create(entry, reached, &kJoinable, nullptr), ECF_OK);
  EXPECT_EQ(thread_.wait(), ECF_OK);
  EXPECT_TRUE(reached[0]);
  EXPECT_FALSE(reached[1]);
  EXPECT_EQ(exitCodeOf(fieldsOf(thread_).handle), 0u);
}

TEST(OSSThreadID, IsTheSystemsIdentifierOfTheCallingThread) {
  EXPECT_EQ(ossThreadID(), ::GetCurrentThreadId());
  EXPECT_EQ(ossProcessID(), ::GetCurrentProcessId());

  uint32_t seen = 0;
  unsigned long threadID = 0;
  OSSHThread thread;
  EXPECT_EQ(thread.create([](void* out) { *static_cast<uint32_t*>(out) = ossThreadID(); }, &seen,
                          &kJoinable, &threadID),
            ECF_OK);
  EXPECT_EQ(thread.wait(), ECF_OK);
  EXPECT_EQ(seen, threadID);
}

// ---- Many ----

TEST_F(OSSHThreadTest, EightThreadsRunAtOnce) {
  Work works[8];
  OSSHThread threads[8];
  for (size_t i = 0; i < std::size(threads); ++i)
    ASSERT_EQ(threads[i].create(Work::run, &works[i], &kJoinable, nullptr), ECF_OK);
  for (Work& work : works) EXPECT_TRUE(work.runs());
  for (Work& work : works) work.release();
  for (OSSHThread& thread : threads) EXPECT_EQ(thread.wait(), ECF_OK);
  for (const Work& work : works) EXPECT_TRUE(work.isReleased());
}

TEST_F(OSSHThreadTest, AThousandThreadsLeaveNoHandleBehind) {
  // The first thread of a process may leave handles of the system's own.
  const auto runOne = [this] {
    return thread_.create(doNothing, nullptr, &kJoinable, nullptr) == ECF_OK &&
           thread_.wait() == ECF_OK && thread_.close() == ECF_OK;
  };
  ASSERT_TRUE(runOne());
  const size_t before = openHandles();
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(runOne()) << i;
  EXPECT_EQ(openHandles(), before);
}

}  // namespace
