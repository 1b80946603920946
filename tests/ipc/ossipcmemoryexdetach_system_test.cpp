// Extended shared memory: detach and destroy.
#include "ipc/ossipcmemoryexfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// Each operation that ends a handle, under its own identifier.
struct Ending {
  OSSErr (OSSHIPCMemoryEx::*run)() noexcept;
  Func loggedAs;
};
constexpr Ending kDetach = {&OSSHIPCMemoryEx::detach, Func::OSSHIPCMemoryEx_detach};
constexpr Ending kDestroy = {&OSSHIPCMemoryEx::destroy, Func::OSSHIPCMemoryEx_destroy};

class OSSHIPCMemoryExDetachTest : public OSSHIPCMemoryExTest {
 protected:
  static LogEvidence unmapRecord(Func function, uint32_t error, OSSErr code,
                                 const MemoryExFields& held) {
    return SystemRecord(
        OSS_LOG_INFO, function, 30, SysCall::UnmapViewOfFile, error, code,
        {{1, String(held.name, 261)}, {2, Uint(held.size)}, {3, Hex(held.address)}});
  }
  static LogEvidence closeRecord(Func function, uint32_t error, OSSErr code, HANDLE handle) {
    return SystemRecord(OSS_LOG_INFO, function, 40, SysCall::CloseHandle, error, code,
                        {{1, Hex(handle)}});
  }
};

TEST_F(OSSHIPCMemoryExDetachTest, UnmapsClosesAndFreesTheName) {
  for (const Ending& ending : {kDetach, kDestroy}) {
    const size_t handles = openHandles();
    create();
    EXPECT_EQ((memory_.*ending.run)(), ECF_OK);
    EXPECT_TRUE(isReset(memory_));
    EXPECT_EQ(openHandles(), handles);
    EXPECT_EQ(attachOther(), ECF_FILE_DOESNT_EXIST);
  }
}

TEST_F(OSSHIPCMemoryExDetachTest, AHandleThatIsNotAttachedIsRefusedTwice) {
  for (const Ending& ending : {kDetach, kDestroy}) {
    EXPECT_EQ((memory_.*ending.run)(), ECF_INVALID_ADDRESS);
    EXPECT_TRUE(isReset(memory_));
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(unmapRecord(ending.loggedAs, ERROR_INVALID_ADDRESS, ECF_INVALID_ADDRESS,
                                        fieldsOf(memory_)),
                            closeRecord(ending.loggedAs, ERROR_INVALID_HANDLE,
                                        ECF_INVALID_PARAMETER, INVALID_HANDLE_VALUE)));
  }
}

TEST_F(OSSHIPCMemoryExDetachTest, AViewThatStaysIsReportedAndTheHandleReset) {
  for (const Ending& ending : {kDetach, kDestroy}) {
    create();
    const MemoryExFields held = fieldsOf(memory_);
    {
      FailingCall fails("UnmapViewOfFile", ERROR_ACCESS_DENIED);
      EXPECT_EQ((memory_.*ending.run)(), ECF_ACCESS_DENIED);
    }
    EXPECT_TRUE(isReset(memory_));
    EXPECT_FALSE(isOpen(held.handle));
    EXPECT_THAT(log_.newRecords(), ElementsAre(unmapRecord(ending.loggedAs, ERROR_ACCESS_DENIED,
                                                           ECF_ACCESS_DENIED, held)));
    EXPECT_TRUE(::UnmapViewOfFile(held.address));
  }
}

TEST_F(OSSHIPCMemoryExDetachTest, OnlyDestroyForgetsASectionThatDoesNotClose) {
  for (const Ending& ending : {kDetach, kDestroy}) {
    create();
    const MemoryExFields held = fieldsOf(memory_);
    {
      FailingCall fails("CloseHandle", ERROR_ACCESS_DENIED);
      EXPECT_EQ((memory_.*ending.run)(), ECF_ACCESS_DENIED);
    }
    EXPECT_FALSE(memory_.isAttached());
    const MemoryExFields after = fieldsOf(memory_);
    const bool forgets = ending.loggedAs == Func::OSSHIPCMemoryEx_destroy;
    EXPECT_EQ(after.handle, forgets ? INVALID_HANDLE_VALUE : held.handle);
    EXPECT_EQ(after.size, forgets ? 0u : held.size);
    EXPECT_STREQ(after.name, forgets ? "" : held.name);
    EXPECT_THAT(log_.newRecords(), ElementsAre(closeRecord(ending.loggedAs, ERROR_ACCESS_DENIED,
                                                           ECF_ACCESS_DENIED, held.handle)));
    EXPECT_TRUE(::CloseHandle(held.handle));
  }
}

TEST_F(OSSHIPCMemoryExDetachTest, OfTwoRefusalsTheFirstIsReturned) {
  create();
  const MemoryExFields held = fieldsOf(memory_);
  {
    FailingCall unmap("UnmapViewOfFile", ERROR_ACCESS_DENIED);
    ImportHook closes("CloseHandle", [&](Call& call) {
      if (call.argument<HANDLE>(0) != held.handle) return call.passOn();
      ::SetLastError(ERROR_INVALID_HANDLE);
      return Word{0};
    });
    EXPECT_EQ(memory_.detach(), ECF_ACCESS_DENIED);
  }
  EXPECT_TRUE(memory_.isAttached());
  EXPECT_THAT(log_.records(),
              ElementsAre(unmapRecord(Func::OSSHIPCMemoryEx_detach, ERROR_ACCESS_DENIED,
                                      ECF_ACCESS_DENIED, held),
                          closeRecord(Func::OSSHIPCMemoryEx_detach, ERROR_INVALID_HANDLE,
                                      ECF_INVALID_PARAMETER, held.handle)));
}

}  // namespace
