// Threads. Everything that a thread needs to start lies in its start record, so that its handle may
// go away first.
#include <process.h>
#include <windows.h>

#include <algorithm>

#include "core/ossoperation.h"
#include "ossmemory.h"
#include "ossthread.h"

using namespace oss;

struct OSSHThread::Layout {
  OSS_FIELD(OSSHThread, threadID_, 0, 4);
  OSS_FIELD(OSSHThread, handle_, 8, 8);
  OSS_FIELD(OSSHThread, created_, 16, 1);
  OSS_FIELD(OSSHThread, joinable_, 17, 1);
};

namespace {

// Hands entry and argument to the new thread, which frees it.
struct StartRecord {
  void (*entry)(void*);
  void* argument;
};
OSS_LAYOUT(StartRecord, 16);

unsigned __stdcall runThread(void* parameter) {
  const StartRecord start = *static_cast<StartRecord*>(parameter);
  ossMemFree(&parameter, nullptr, sizeof start, __FILE__, __LINE__);
  start.entry(start.argument);
  return 0;
}

}  // namespace

OSSHThread::~OSSHThread() {
  if (created_) static_cast<void>(close());  // what it refuses, it has logged
}

OSSErr OSSHThread::create(void (*entry)(void*), void* argument, const OSSThreadParam* param,
                          unsigned long* threadID) noexcept {
  Operation op(Func::OSSHThread_create);
  if (const OSSErr rc = op.check(param)) return rc;
  if (created_) return op.fail(30, ECF_THREAD_ALREADY_CREATED, OSS_LOG_INFO);
  if (entry == nullptr) return op.fail(40, ECF_INVALID_PARAMETER, OSS_LOG_INFO);

  threadID_ = 0;
  handle_ = nullptr;
  joinable_ = false;
  void* record = nullptr;
  if (const OSSErr rc = ossMemAlloc(&record, nullptr, sizeof(StartRecord), 0, __FILE__, __LINE__))
    return op.failCalled(90, Func::ossMemAlloc, rc);
  *static_cast<StartRecord*>(record) = {entry, argument};

  unsigned identifier = 0;
  const auto stackSize = static_cast<unsigned>(std::min<uint64_t>(param->stackSize, MAXDWORD));
  const uintptr_t thread = ::_beginthreadex(nullptr, stackSize, runThread, record, 0, &identifier);
  // Deliberate: the start record is not freed.
  if (thread == 0) return op.failSystem(100, SysCall::BeginThreadEx);

  handle_ = reinterpret_cast<void*>(thread);
  threadID_ = identifier;
  created_ = true;
  joinable_ = (param->flags & OSS_THREAD_JOINABLE) != 0;
  if (threadID != nullptr) *threadID = identifier;
  return op.exit();
}

OSSErr OSSHThread::wait() noexcept {
  Operation op(Func::OSSHThread_wait);
  if (!created_) return op.fail(10, ECF_THREAD_NOT_CREATED, OSS_LOG_INFO);
  if (!joinable_) return op.fail(20, ECF_THREAD_CANNOT_WAIT, OSS_LOG_INFO);

  const DWORD result = ::WaitForSingleObject(handle_, INFINITE);
  joinable_ = false;  // Deliberate: also when the wait failed.
  if (result == WAIT_FAILED)
    return op.failSystem(0, SysCall::WaitForSingleObject, {{1, hex(handle_)}});
  return op.exit();
}

OSSErr OSSHThread::close() noexcept {
  Operation op(Func::OSSHThread_close);
  if (!created_) return op.fail(10, ECF_THREAD_NOT_CREATED, OSS_LOG_INFO);
  if (joinable_) return op.fail(20, ECF_THREAD_MUST_WAIT, OSS_LOG_INFO);

  ::CloseHandle(handle_);  // Its result is not asked for: there is nothing left to do with it.
  threadID_ = 0;
  handle_ = nullptr;
  created_ = false;
  return op.exit();
}

uint32_t ossThreadID() noexcept { return ::GetCurrentThreadId(); }

void ossThreadExit() noexcept {
  ::_endthreadex(0);
  __builtin_unreachable();
}
