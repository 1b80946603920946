// Failures of an operation that are mapped, logged or returned under another name or code than
// usual: which calls the frame makes, in which order, with which arguments.
#include <gmock/gmock.h>
#include <windows.h>

#include <cerrno>

#include "core/ossoperation.h"
#include "tests/core/tracedtest.h"

namespace oss {
namespace {

using fakes::g_calls;
using testing::ElementsAre;

class NamedFailure : public fakes::TracedTest {
 protected:
  NamedFailure() : TracedTest(ECF_FILE_DOESNT_EXIST, OSS_LOG_INFO) {}
};

OSSErr failUnderTwoNames() noexcept {
  Operation op(Func::OSSHFile_setSize);
  ::SetLastError(6);
  return op.failSystem(110,
                       {.mappedAs = SysCall::GetFileSize, .loggedAs = SysCall::SetFilePointer});
}

TEST_F(NamedFailure, ACallMayBeMappedUnderOneNameAndLoggedUnderAnother) {
  EXPECT_EQ(failUnderTwoNames(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre("entry 0000000089ABCDEF 081A0006", "map 081A0006 probe 110 call 0814007E error 6",
                  "log default 081A0006 code 9000001A probe 110 level 4 system 0814009A error 6",
                  "error 0000000089ABCDEF 081A0006 probe 110 type 4 extra 0 {0 4 1A000090}",
                  "exit 0000000089ABCDEF 081A0006 rc 000000009000001A extra 0"));
}

OSSErr failUnderAnotherCode() noexcept {
  Operation op(Func::osstmpnam);
  ::SetLastError(5);
  return op.failSystem(20, {.mappedAs = SysCall::GetTempPathA,
                            .loggedAs = SysCall::GetTempFileNameA,
                            .loggedCode = ECF_FAILED});
}

TEST_F(NamedFailure, ACodeMayBeLoggedThatIsNotReturned) {
  EXPECT_EQ(failUnderAnotherCode(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre("entry 0000000089ABCDEF 081A00AA", "map 081A00AA probe 20 call 0814015F error 5",
                  "log default 081A00AA code 90000002 probe 20 level 4 system 08140160 error 5",
                  "error 0000000089ABCDEF 081A00AA probe 20 type 4 extra 0 {0 4 1A000090}",
                  "exit 0000000089ABCDEF 081A00AA rc 000000009000001A extra 0"));
}

OSSErr failForAnother() noexcept {
  Operation op(Func::oss_copy);
  ::SetLastError(5);
  return op.failSystem(
      10, {.mappedAs = SysCall::CopyFileA, .mappedFor = Func::OSSHProcess_createProcess});
}

TEST_F(NamedFailure, AFailureMayBeMappedInAnotherOperationsName) {
  EXPECT_EQ(failForAnother(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre("entry 0000000089ABCDEF 081A0024", "map 081A0068 probe 10 call 0814006A error 5",
                  "log default 081A0024 code 9000001A probe 10 level 4 system 0814006A error 5",
                  "error 0000000089ABCDEF 081A0024 probe 10 type 4 extra 0 {0 4 1A000090}",
                  "exit 0000000089ABCDEF 081A0024 rc 000000009000001A extra 0"));
}

OSSErr failInTheNameOfAnother() noexcept {
  Operation op(Func::OSSHIPCWaitpost_reset);
  ::SetLastError(5);
  return op.failSystem(50,
                       {.mappedAs = SysCall::ResetEvent, .loggedFor = Func::OSSHIPCWaitpost_post});
}

TEST_F(NamedFailure, AFailureMayBeLoggedInAnotherOperationsName) {
  EXPECT_EQ(failInTheNameOfAnother(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre("entry 0000000089ABCDEF 081A0053", "map 081A0053 probe 50 call 08140096 error 5",
                  "log default 081A0052 code 9000001A probe 50 level 4 system 08140096 error 5",
                  "error 0000000089ABCDEF 081A0053 probe 50 type 4 extra 0 {0 4 1A000090}",
                  "exit 0000000089ABCDEF 081A0053 rc 000000009000001A extra 0"));
}

OSSErr failInRuntime() noexcept {
  Operation op(Func::ossPathTest);
  errno = 22;
  ::SetLastError(123);
  return op.failErrno(40, SysCall::Access);
}

TEST_F(NamedFailure, AFailureOfTheRuntimeIsMappedByErrno) {
  EXPECT_EQ(failInRuntime(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre("entry 0000000089ABCDEF 081A009C", "map 081A009C probe 40 call 08140001 error 22",
                  "log default 081A009C code 9000001A probe 40 level 4 system 08140001 error 22",
                  "error 0000000089ABCDEF 081A009C probe 40 type 4 extra 0 {0 4 1A000090}",
                  "exit 0000000089ABCDEF 081A009C rc 000000009000001A extra 0"));
}

OSSErr failWithoutMapping() noexcept {
  Operation op(Func::ossFileRename);
  ::SetLastError(183);
  return op.failUnmapped(30, SysCall::MoveFileA, ECF_FILE_DOESNT_EXIST);
}

TEST_F(NamedFailure, AFailureThatIsNotMappedIsLoggedWithItsErrorAtTheLevelOfItsCode) {
  fakes::g_levelOfCode = OSS_LOG_ERROR;
  EXPECT_EQ(failWithoutMapping(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre("entry 0000000089ABCDEF 081A0016", "level 9000001A",
                  "log default 081A0016 code 9000001A probe 30 level 2 system 08140089 error 183",
                  "error 0000000089ABCDEF 081A0016 probe 30 type 4 extra 0 {0 4 1A000090}",
                  "exit 0000000089ABCDEF 081A0016 rc 000000009000001A extra 0"));
}

}  // namespace
}  // namespace oss
