// Threads: joinable and detached ones that write the log at once.
#include <atomic>

#include "osslog.h"
#include "ossnumeric.h"
#include "ossprocess.h"
#include "tour.h"

namespace tour {
namespace {

constexpr int kThreads = 4;
constexpr int kRecords = 3;
std::atomic<int> g_running{0};

// Each record that comes while another is being written is dropped, so not all of them arrive.
void writeRecords(void*) {
  for (int i = 0; i < kRecords; ++i)
    ossLog(nullptr, static_cast<uint32_t>(oss::Func::OSSHThread_create), ECF_OK, 0, OSS_LOG_EVENT,
           0);
  --g_running;
}

}  // namespace

void runThreads(const Stage&) {
  act("Threads use the log at once");
  OSSThreadParam joinable;
  joinable.flags = OSS_THREAD_JOINABLE;
  const OSSThreadParam detached;

  OSSHThread threads[kThreads];
  for (int i = 0; i < kThreads; ++i) {
    ++g_running;
    told(i % 2 == 0 ? "OSSHThread::create, joinable" : "OSSHThread::create, detached",
         threads[i].create(writeRecords, nullptr, i % 2 == 0 ? &joinable : &detached, nullptr));
  }
  expected("OSSHThread::close, a joinable thread before its wait", threads[0].close(),
           ECF_THREAD_MUST_WAIT);
  expected("OSSHThread::wait, a detached thread", threads[1].wait(), ECF_THREAD_CANNOT_WAIT);
  for (int i = 0; i < kThreads; i += 2) told("OSSHThread::wait", threads[i].wait());
  for (OSSHThread& thread : threads) told("OSSHThread::close", thread.close());
  while (g_running != 0) ossYield();

  OSSHThreadSpecificData slot;
  told("OSSHThreadSpecificData::create", slot.create());
  void* value = nullptr;
  expected("OSSHThreadSpecificData::get, nothing set", slot.get(&value),
           ECF_INVALID_INVOCATION_SEQUENCE);
  told("OSSHThreadSpecificData::set", slot.set(&slot));
  told("OSSHThreadSpecificData::get", slot.get(&value));
  told("OSSHThreadSpecificData::destroy", slot.destroy());
}

}  // namespace tour
