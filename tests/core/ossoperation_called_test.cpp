// The frame alone, where an operation fails because something that it called did: another operation
// of the library, the system without a record, or its own inner half.
#include <gmock/gmock.h>
#include <windows.h>

#include <string>
#include <vector>

#include "core/ossoperation.h"
#include "tests/core/tracedtest.h"

namespace oss {
namespace {

using fakes::g_calls;
using fakes::g_levelOfCode;
using fakes::g_mapped;
using fakes::g_mappedLevel;
using fakes::note;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

class CalledOperationTest : public fakes::TracedTest {
 protected:
  CalledOperationTest() : TracedTest(ECF_NO_MEMORY, OSS_LOG_ERROR) {}
};

constexpr const char* kEntry = "entry 0000000089ABCDEF 081A005B";

std::string exitWith(OSSErr rc) {
  return text("exit 0000000089ABCDEF 081A005B rc %016X extra 0", rc);
}

// ---- A called operation of the library ----

OSSErr failCalled(OSSErr rc, LogArgs args = {}) noexcept {
  Operation op(Func::OSSHThread_create);
  return op.failCalled(90, Func::ossMemAlloc, rc, args);
}

TEST_F(CalledOperationTest, TheCodeOfACalledOperationIsLoggedAndReturned) {
  EXPECT_EQ(failCalled(ECF_NO_MEMORY), ECF_NO_MEMORY);
  EXPECT_THAT(g_calls, ElementsAre(kEntry, "level 9000000D",
                                   "log default 081A005B code 9000000D probe 90 level 4 "
                                   "function 081A0058 rc 9000000D",
                                   exitWith(ECF_NO_MEMORY)));
}

// Its own code tells the level; the caller hears the other.
TEST_F(CalledOperationTest, ACalledOperationsCodeMayBeToldByAnother) {
  const auto failAs = []() noexcept {
    Operation op(Func::OSSHThread_create);
    return op.failCalledAs(90, Func::ossMemAlloc, ECF_NO_MEMORY, ECF_FAILED);
  };
  EXPECT_EQ(failAs(), ECF_FAILED);
  EXPECT_THAT(g_calls, ElementsAre(kEntry, "level 9000000D",
                                   "log default 081A005B code 90000002 probe 90 level 4 "
                                   "function 081A0058 rc 9000000D",
                                   exitWith(ECF_FAILED)));
}

TEST_F(CalledOperationTest, TheCodesRuleChoosesTheLevelOfItsRecord) {
  for (const uint64_t level : {OSS_LOG_ERROR, OSS_LOG_WARNING, OSS_LOG_INFO}) {
    g_calls.clear();
    g_levelOfCode = level;
    EXPECT_EQ(failCalled(ECF_FILE_SHARE), ECF_FILE_SHARE);
    EXPECT_EQ(g_calls[2], "log default 081A005B code 9000003F probe 90 level " +
                              std::to_string(level) + " function 081A0058 rc 9000003F");
  }
}

TEST_F(CalledOperationTest, ACodeOfAnyKindIsPassedOn) {
  for (const OSSErr rc : {0x10000006U, 0x90000000U, 0x9000052BU, 0xFFFFFFFFU}) {
    g_calls.clear();
    EXPECT_EQ(failCalled(rc), rc);
    EXPECT_THAT(g_calls, ElementsAre(kEntry, text("level %08X", rc),
                                     text("log default 081A005B code %08X probe 90 level 4 "
                                          "function 081A0058 rc %08X",
                                          rc, rc),
                                     exitWith(rc)));
  }
}

TEST_F(CalledOperationTest, ItemsOfACalledOperationKeepTheirArgumentsNumbers) {
  const uint64_t size = 16;
  EXPECT_EQ(failCalled(ECF_FAILED, {{2, hex(size)}, {5, string("path")}}), ECF_FAILED);
  EXPECT_EQ(g_calls[2],
            "log default 081A005B code 90000002 probe 90 level 4 function 081A0058 rc 90000002 "
            "#2 {-1 8 1000000000000000} #5 {-5 4 70617468}");
}

TEST_F(CalledOperationTest, WithTracingOffACalledOperationIsLoggedAllTheSame) {
  g_pGTCB = nullptr;
  EXPECT_EQ(failCalled(ECF_NO_MEMORY), ECF_NO_MEMORY);
  EXPECT_THAT(g_calls, ElementsAre("level 9000000D",
                                   "log default 081A005B code 9000000D probe 90 level 4 "
                                   "function 081A0058 rc 9000000D"));
}

// ---- A called operation, without a record ----

OSSErr passOn(OSSErr rc) noexcept {
  Operation op(Func::ossIPCGetQueResID);
  return op.failTraced(30, rc);
}

TEST_F(CalledOperationTest, AFailureThatIsLoggedAlreadyIsAnErrorPoint) {
  EXPECT_EQ(passOn(ECF_INVALID_VERSION), ECF_INVALID_VERSION);
  EXPECT_THAT(g_calls,
              ElementsAre("entry 0000000089ABCDEF 081A008E",
                          "error 0000000089ABCDEF 081A008E probe 30 type 4 extra 0 {0 4 04000090}",
                          "exit 0000000089ABCDEF 081A008E rc 0000000090000004 extra 0"));
}

TEST_F(CalledOperationTest, WithTracingOffAFailureThatIsLoggedAlreadyIsOnlyReturned) {
  g_pGTCB = nullptr;
  EXPECT_EQ(passOn(ECF_INVALID_VERSION), ECF_INVALID_VERSION);
  EXPECT_THAT(g_calls, IsEmpty());
}

// ---- The system, without a record ----

class NotingGuard {
 public:
  NotingGuard() = default;
  ~NotingGuard() { note("clean up"); }
  NotingGuard(const NotingGuard&) = delete;
  NotingGuard& operator=(const NotingGuard&) = delete;
};

OSSErr failUnlogged(uint32_t error) noexcept {
  Operation op(Func::OSSHThread_create);
  const NotingGuard guard;
  ::SetLastError(5);
  return op.failUnlogged(40, SysCall::Malloc, error);
}

constexpr const char* kErrorPoint =
    "error 0000000089ABCDEF 081A005B probe 40 type 4 extra 0 {0 4 0D000090}";

TEST_F(CalledOperationTest, AnUnloggedFailureIsMappedAndAnErrorPoint) {
  EXPECT_EQ(failUnlogged(8), ECF_NO_MEMORY);
  EXPECT_THAT(g_calls, ElementsAre(kEntry, "map 081A005B probe 40 call 08140020 error 8",
                                   kErrorPoint, "clean up", exitWith(ECF_NO_MEMORY)));
}

TEST_F(CalledOperationTest, AnUnloggedFailureHasTheErrorThatItIsGiven) {
  for (const uint32_t error : {0u, 12u, 0xFFFFFFFFu}) {
    g_calls.clear();
    EXPECT_EQ(failUnlogged(error), ECF_NO_MEMORY);
    EXPECT_EQ(g_calls[1], "map 081A005B probe 40 call 08140020 error " + std::to_string(error));
  }
}

TEST_F(CalledOperationTest, WithTracingOffAnUnloggedFailureIsOnlyMapped) {
  block_.enabled = 0;
  EXPECT_EQ(failUnlogged(8), ECF_NO_MEMORY);
  EXPECT_THAT(g_calls, ElementsAre("map 081A005B probe 40 call 08140020 error 8", "clean up"));
}

// ---- The inner half of an operation ----

OSSErr failInside(DWORD error) noexcept {
  const uint32_t index = 7;
  ::SetLastError(error);
  return logSystemFailure(Func::OSSHThreadSpecificDataInternal_get, 10, SysCall::TlsGetValue,
                          {{1, uint(index)}});
}

constexpr const char* kInnerMap = "map 081A0062 probe 10 call 081400A0 error 31";
constexpr const char* kInnerLog =
    "log default 081A0062 code 9000000D probe 10 level 2 system 081400A0 error 31 "
    "#1 {-3 4 07000000}";

// Each call above spoils the last error, so error 31 shows that it was read before all of them.
TEST_F(CalledOperationTest, AnInnerFailureIsMappedThenLoggedButNotTraced) {
  EXPECT_EQ(failInside(31), ECF_NO_MEMORY);
  EXPECT_THAT(g_calls, ElementsAre(kInnerMap, kInnerLog));
}

TEST_F(CalledOperationTest, CodeAndLevelOfAnInnerFailureAreTheMappings) {
  g_mapped = ECF_INVALID_INVOCATION_SEQUENCE;
  g_mappedLevel = OSS_LOG_INFO;
  EXPECT_EQ(failInside(0), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_THAT(g_calls, ElementsAre("map 081A0062 probe 10 call 081400A0 error 0",
                                   "log default 081A0062 code 90000003 probe 10 level 4 "
                                   "system 081400A0 error 0 #1 {-3 4 07000000}"));
}

TEST_F(CalledOperationTest, AnInnerCallMayBeMappedUnderOneNameAndLoggedUnderAnother) {
  ::SetLastError(6);
  EXPECT_EQ(
      logSystemFailure(Func::OSSHThreadSpecificDataInternal_set, 20,
                       {.mappedAs = SysCall::GetFileSize, .loggedAs = SysCall::SetFilePointer}),
      ECF_NO_MEMORY);
  EXPECT_THAT(
      g_calls,
      ElementsAre("map 081A0061 probe 20 call 0814007E error 6",
                  "log default 081A0061 code 9000000D probe 20 level 2 system 0814009A error 6"));
}

OSSErr failInTheInnerHalf() noexcept {
  Operation op(Func::OSSHThread_create);
  return op.exit(failInside(31));
}

TEST_F(CalledOperationTest, TheOuterHalfIsTracedWithTheInnerHalfsCode) {
  EXPECT_EQ(failInTheInnerHalf(), ECF_NO_MEMORY);
  EXPECT_THAT(g_calls, ElementsAre(kEntry, kInnerMap, kInnerLog, exitWith(ECF_NO_MEMORY)));
}

// ---- Slips of an operation's author ----

TEST_F(CalledOperationTest, ItemsWhoseNumbersDoNotRiseAreCaught) {
  const uint32_t value = 0;
  EXPECT_DEATH(failCalled(ECF_FAILED, {{2, hex(value)}, {1, hex(value)}}), "numbersRise");
  EXPECT_DEATH(logSystemFailure(Func::OSSHFile_close, 20, SysCall::CloseHandle,
                                {{2, hex(value)}, {1, hex(value)}}),
               "numbersRise");
}

}  // namespace
}  // namespace oss
