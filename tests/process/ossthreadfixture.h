// ossthreadfixture.h - what the tests of threads share: threads of the usual kinds, and the fields
// of a handle.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <atomic>
#include <ostream>

#include "harness/fields.h"
#include "harness/handles.h"
#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/sharedobjects.h"
#include "osscatalog.h"
#include "ossprocess.h"

namespace osse_test {

inline OSSThreadParam threadParam(uint64_t flags) {
  OSSThreadParam param;
  param.flags = flags;
  return param;
}
inline const OSSThreadParam kJoinable = threadParam(OSS_THREAD_JOINABLE);
inline const OSSThreadParam kDetached = threadParam(0);

// The fields of a handle, which it keeps to itself.
struct ThreadFields {
  uint32_t threadID;
  void* handle;
  bool created, joinable;

  bool operator==(const ThreadFields&) const = default;
};

inline ThreadFields fieldsOf(const OSSHThread& thread) { return copyOf<ThreadFields>(thread); }

inline void PrintTo(const ThreadFields& fields, std::ostream* out) {
  *out << "{id " << fields.threadID << ", handle " << fields.handle
       << (fields.created ? ", created" : "") << (fields.joinable ? ", joinable}" : "}");
}

inline const ThreadFields kNoThread = {0, nullptr, false, false};

// A thread's work that tells when it runs and ends when it may.
class Work {
 public:
  static void run(void* work) {
    auto* const self = static_cast<Work*>(work);
    self->runs_.set();
    self->isReleased_ = self->mayEnd_.wait();
    self->ended_.set();
  }

  // Each false when it did not come to pass within two minutes.
  [[nodiscard]] bool runs() { return runs_.wait(); }
  [[nodiscard]] bool hasEnded() { return ended_.wait() && isReleased_; }

  void release() { mayEnd_.set(); }

  // True once a released thread is about to end. Does not wait.
  bool isReleased() const { return isReleased_; }

 private:
  Event runs_, mayEnd_, ended_;
  std::atomic<bool> isReleased_{false};
};

inline void doNothing(void*) {}

inline DWORD exitCodeOf(HANDLE thread) {
  DWORD code = STILL_ACTIVE;
  EXPECT_TRUE(::GetExitCodeThread(thread, &code));
  return code;
}

}  // namespace osse_test
