// ossipcsemaphorefixture.h - what the tests of semaphores share: a handle, the record that creates
// its semaphore, and the log records of refusals.
#pragma once

#include <initializer_list>

#include "ipc/ossipcfixture.h"

namespace osse_test {

// Whether there is a count, which is taken.
inline bool take(OSSHIPCSemaphore& semaphore) {
  const OSSIPCSemaphoreWaitParam now;
  return semaphore.wait(&now) == ECF_OK;
}

class OSSHIPCSemaphoreTest : public IPCTest {
 protected:
  using Func = oss::Func;
  using SysCall = oss::SysCall;

  OSSHIPCSemaphoreTest() { param_.resID = resID_; }

  ~OSSHIPCSemaphoreTest() override {
    if (semaphore_.isAttached()) {
      EXPECT_EQ(semaphore_.detach(), ECF_OK);
    }
  }

  void create(uint64_t initialCount) {
    param_.initialCount = initialCount;
    ASSERT_EQ(semaphore_.create(&param_), ECF_OK);
  }

  // For a handle with a value that is not the test's to close.
  void forget() {
    const HANDLE none = INVALID_HANDLE_VALUE;
    std::memcpy(static_cast<void*>(&semaphore_), &none, sizeof none);
  }

  LogEvidence refusedCreate(uint64_t probe, uint32_t error, OSSErr code) const {
    return SystemRecord(code == ECF_NO_MEMORY ? OSS_LOG_ERROR : OSS_LOG_INFO,
                        Func::OSSHIPCSemaphore_create, probe, SysCall::CreateSemaphoreA, error,
                        code,
                        {{1, Uint(param_.initialCount)},
                         {2, Uint(uint64_t{32767})},
                         {3, String(param_.resID.name)}});
  }

  static LogEvidence refusedAttach(const OSSIPCResID& resID, uint32_t error, OSSErr code) {
    return SystemRecord(OSS_LOG_INFO, Func::OSSHIPCSemaphore_attach, 40, SysCall::OpenSemaphoreA,
                        error, code, {{1, String(resID.name)}});
  }

  static LogEvidence refusedClose(HANDLE handle, uint32_t error, OSSErr code) {
    return SystemRecord(OSS_LOG_INFO, Func::OSSHIPCSemaphore_detach, 30, SysCall::CloseHandle,
                        error, code, {{1, Hex(handle)}});
  }

  static LogEvidence refusedWait(HANDLE handle, uint32_t error, OSSErr code) {
    return SystemRecord(OSS_LOG_INFO, Func::OSSHIPCSemaphore_wait, 110,
                        SysCall::WaitForSingleObject, error, code,
                        {{1, Hex(handle)}, {2, Uint(uint32_t{0})}});
  }

  OSSIPCSemaphoreCreateParam param_;
  OSSHIPCSemaphore semaphore_;
};

}  // namespace osse_test
