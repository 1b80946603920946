// The frame of an operation alone: which calls it makes, in which order, with which arguments.
#include "core/ossoperation.h"

#include <gmock/gmock.h>
#include <windows.h>

#include <bit>
#include <string>
#include <vector>

#include "tests/core/tracedtest.h"

namespace oss {
namespace {

using fakes::g_calls;
using fakes::g_duringLog;
using fakes::g_mapped;
using fakes::g_mappedLevel;
using fakes::note;
using fakes::text;
using testing::ElementsAre;
using testing::IsEmpty;

class OperationTest : public fakes::TracedTest {
 protected:
  OperationTest() : TracedTest(ECF_FILE_DOESNT_EXIST, OSS_LOG_INFO) {}
};

struct Record {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t field = 0;
};

constexpr const char* kCloseEntry = "entry 0000000089ABCDEF 081A0003";
constexpr const char* kCloseExit = "exit 0000000089ABCDEF 081A0003 rc 0000000000000000 extra 0";

std::string closeExit(OSSErr rc) {
  return text("exit 0000000089ABCDEF 081A0003 rc %016X extra 0", rc);
}

// Operations of the usual forms. All go under close's name.

OSSErr answer(OSSErr rc) noexcept {
  Operation op(Func::OSSHFile_close);
  return op.exit(rc);
}

OSSErr takeRecord(const Record* record) noexcept {
  Operation op(Func::OSSHFile_close);
  if (const OSSErr rc = op.check(record)) return rc;
  return op.exit();
}

OSSErr failInSystem(DWORD error) noexcept {
  Operation op(Func::OSSHFile_close);
  const uint64_t handle = 0x1122334455667788;
  ::SetLastError(error);
  return op.failSystem(20, SysCall::CloseHandle, {{1, hex(handle)}});
}

const std::vector<std::string> kFailure = {
    "entry 0000000089ABCDEF 081A0003",
    "map 081A0003 probe 20 call 08140069 error 5",
    "log default 081A0003 code 9000001A probe 20 level 4 system 08140069 error 5 "
    "#1 {-1 8 8877665544332211}",
    "error 0000000089ABCDEF 081A0003 probe 20 type 4 extra 0 {0 4 1A000090}",
    "exit 0000000089ABCDEF 081A0003 rc 000000009000001A extra 0",
};

// ---- Whether ----

TEST_F(OperationTest, WithoutAControlBlockOnlyMapsAndLogs) {
  g_pGTCB = nullptr;

  EXPECT_EQ(failInSystem(5), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kFailure[1], kFailure[2]));
}

TEST_F(OperationTest, WithADisabledControlBlockOnlyMapsAndLogs) {
  block_.enabled = 0;

  EXPECT_EQ(failInSystem(5), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kFailure[1], kFailure[2]));
}

TEST_F(OperationTest, WithTracingOffSuccessCallsNothing) {
  g_pGTCB = nullptr;

  EXPECT_EQ(answer(ECF_OK), ECF_OK);
  EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(OperationTest, AnyEnableWordButZeroTurnsTracingOn) {
  block_ = {
      .initialized = 0, .enabled = 0x80000000, .stopCounter = 0, .reserved = 0, .options = {}};

  EXPECT_EQ(answer(ECF_OK), ECF_OK);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, kCloseExit));
}

// ---- Answers ----

TEST_F(OperationTest, SuccessIsEntryAndExit) {
  EXPECT_EQ(answer(ECF_OK), ECF_OK);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, kCloseExit));
}

TEST_F(OperationTest, ACodeThatNeedsNoRecordIsEntryAndExit) {
  EXPECT_EQ(answer(ECF_FILE_EOF), ECF_FILE_EOF);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, closeExit(0x90000021)));
}

// The exit shows 64 bits of which the code is the lower half.
TEST_F(OperationTest, PassesCodesThroughThatTheCatalogDoesNotKnow) {
  for (const OSSErr rc : {0x90000000U, 0x9000052BU, 0xA0000001U, 0x10000006U, 0xFFFFFFFFU}) {
    g_calls.clear();
    EXPECT_EQ(answer(rc), rc);
    EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, closeExit(rc)));
  }
}

// ---- Records ----

TEST_F(OperationTest, ANullRecordIsAnInvalidParameterAtProbe1111) {
  EXPECT_EQ(takeRecord(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry,
                                   "log default 081A0003 code 9000000C probe 1111 level 2 nothing",
                                   closeExit(0x9000000C)));
}

TEST_F(OperationTest, AnOldRecordIsAnInvalidVersionAtProbe1112AndShowsTheVersion) {
  const Record old = {.version = 20040701, .field = 0};

  EXPECT_EQ(takeRecord(&old), ECF_INVALID_VERSION);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry,
                                   "log default 081A0003 code 90000004 probe 1112 level 2 nothing "
                                   "#1 {-3 8 FDCB310100000000}",
                                   closeExit(0x90000004)));
}

TEST_F(OperationTest, VersionsCountFrom20040702InAll64Bits) {
  for (const uint64_t version : {uint64_t{20040702}, OSS_VERSION_CURRENT, uint64_t{1} << 32,
                                 uint64_t{1} << 63, ~uint64_t{0}}) {
    const Record record = {.version = version, .field = 0};
    EXPECT_EQ(takeRecord(&record), ECF_OK) << version;
  }
  for (const uint64_t version : {uint64_t{0}, uint64_t{1}, uint64_t{20040701}}) {
    const Record record = {.version = version, .field = 0};
    EXPECT_EQ(takeRecord(&record), ECF_INVALID_VERSION) << version;
  }
}

OSSErr takeRecordUnderAnotherName(const Record* record) noexcept {
  Operation op(Func::OSSHFile_lock);
  if (const OSSErr rc = op.check(record, Func::OSSHFile_read)) return rc;
  return op.exit();
}

TEST_F(OperationTest, ARecordMayBeRefusedUnderAnotherFunctionsName) {
  const Record old = {.version = 1, .field = 0};

  EXPECT_EQ(takeRecordUnderAnotherName(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_EQ(takeRecordUnderAnotherName(&old), ECF_INVALID_VERSION);
  EXPECT_THAT(g_calls, ElementsAre("entry 0000000089ABCDEF 081A0009",
                                   "log default 081A0007 code 9000000C probe 1111 level 2 nothing",
                                   "exit 0000000089ABCDEF 081A0009 rc 000000009000000C extra 0",
                                   "entry 0000000089ABCDEF 081A0009",
                                   "log default 081A0007 code 90000004 probe 1112 level 2 nothing "
                                   "#1 {-3 8 0100000000000000}",
                                   "exit 0000000089ABCDEF 081A0009 rc 0000000090000004 extra 0"));
}

OSSErr takePointer(const void* pointer) noexcept {
  Operation op(Func::OSSHFile_close);
  if (const OSSErr rc = op.checkNotNull(pointer)) return rc;
  return op.exit();
}

TEST_F(OperationTest, ANullPointerIsRefusedLikeANullRecord) {
  EXPECT_EQ(takePointer(this), ECF_OK);
  EXPECT_EQ(takePointer(nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, kCloseExit, kCloseEntry,
                                   "log default 081A0003 code 9000000C probe 1111 level 2 nothing",
                                   closeExit(0x9000000C)));
}

// ---- Failures that the operation finds itself ----

OSSErr failItself(LogData data) noexcept {
  Operation op(Func::OSSHFile_close);
  return op.fail(150, ECF_FILE_SEEK_BEYOND_EOF, OSS_LOG_WARNING, data);
}

TEST_F(OperationTest, AFailureOfItsOwnIsLoggedButNeitherMappedNorAnErrorPoint) {
  EXPECT_EQ(failItself({}), ECF_FILE_SEEK_BEYOND_EOF);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry,
                                   "log default 081A0003 code 90000022 probe 150 level 3 nothing",
                                   closeExit(0x90000022)));
}

TEST_F(OperationTest, ItemsOfAFailureOfItsOwnCountFromOne) {
  const uint64_t size = 0x102;
  const uint32_t flags = 0xA0B0C0D0;

  EXPECT_EQ(failItself({uint(size), hex(flags), string("path"), string("part", 2)}),
            ECF_FILE_SEEK_BEYOND_EOF);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry,
                                   "log default 081A0003 code 90000022 probe 150 level 3 nothing "
                                   "#1 {-3 8 0201000000000000} #2 {-1 4 D0C0B0A0} "
                                   "#3 {-5 4 70617468} #4 {-5 2 7061}",
                                   closeExit(0x90000022)));
}

TEST_F(OperationTest, AFailureOfItsOwnHasUpToTenItems) {
  const uint8_t one = 1;
  EXPECT_EQ(failItself({hex(one), hex(one), hex(one), hex(one), hex(one), hex(one), hex(one),
                        hex(one), hex(one), uint(one)}),
            ECF_FILE_SEEK_BEYOND_EOF);
  EXPECT_EQ(g_calls[1],
            "log default 081A0003 code 90000022 probe 150 level 3 nothing "
            "#1 {-1 1 01} #2 {-1 1 01} #3 {-1 1 01} #4 {-1 1 01} #5 {-1 1 01} #6 {-1 1 01} "
            "#7 {-1 1 01} #8 {-1 1 01} #9 {-1 1 01} #10 {-3 1 01}");
}

TEST_F(OperationTest, ANullTextIsANullItem) {
  EXPECT_EQ(failItself({string(nullptr)}), ECF_FILE_SEEK_BEYOND_EOF);
  EXPECT_EQ(g_calls[1],
            "log default 081A0003 code 90000022 probe 150 level 3 nothing #1 {-5 0 null}");
}

OSSErr failItselfInTheNameOfAnother() noexcept {
  Operation op(Func::OSSHProcess_wait);
  return op.failAs(Func::OSSHProcess_create, 10, ECF_PROCESS_NOT_CREATED, OSS_LOG_INFO);
}

TEST_F(OperationTest, AFailureOfItsOwnMayBeReportedInAnotherOperationsName) {
  EXPECT_EQ(failItselfInTheNameOfAnother(), ECF_PROCESS_NOT_CREATED);
  EXPECT_THAT(g_calls, ElementsAre("entry 0000000089ABCDEF 081A0069",
                                   "log default 081A0067 code 90000083 probe 10 level 4 nothing",
                                   "exit 0000000089ABCDEF 081A0069 rc 0000000090000083 extra 0"));
}

OSSErr refuseField(const uint64_t& field) noexcept {
  Operation op(Func::OSSHFile_close);
  return op.failField(120, field);
}

TEST_F(OperationTest, AFieldOutOfRangeIsInformationAndShowsTheFieldAsHex) {
  EXPECT_EQ(refuseField(3), ECF_INVALID_PARAMETER);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry,
                                   "log default 081A0003 code 9000000C probe 120 level 4 nothing "
                                   "#1 {-1 8 0300000000000000}",
                                   closeExit(0x9000000C)));
}

// ---- Failures of the system ----

// Each call above spoils the last error, so error 5 shows that it was read before all of them.
TEST_F(OperationTest, AFailureOfTheSystemIsMappedThenLoggedThenAnErrorPoint) {
  EXPECT_EQ(failInSystem(5), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(g_calls, kFailure);
}

TEST_F(OperationTest, CodeAndLevelOfTheMappingAreThoseOfTheRecord) {
  g_mapped = ECF_UNKNOWN;
  g_mappedLevel = OSS_LOG_ERROR;

  EXPECT_EQ(failInSystem(31), ECF_UNKNOWN);
  EXPECT_THAT(
      g_calls,
      ElementsAre(kCloseEntry, "map 081A0003 probe 20 call 08140069 error 31",
                  "log default 081A0003 code 90000007 probe 20 level 2 system 08140069 error 31 "
                  "#1 {-1 8 8877665544332211}",
                  "error 0000000089ABCDEF 081A0003 probe 20 type 4 extra 0 {0 4 07000090}",
                  closeExit(0x90000007)));
}

TEST_F(OperationTest, TheWholeSystemErrorIsMapped) {
  EXPECT_EQ(failInSystem(0xFFFFFFFF), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(g_calls[1], "map 081A0003 probe 20 call 08140069 error 4294967295");
}

OSSErr failWithManyArguments() noexcept {
  Operation op(Func::OSSHFile_open);
  const uint32_t disposition = 3;
  const uint64_t access = 0x80000000;
  ::SetLastError(3);
  return op.failSystem(
      280, SysCall::CreateFileA,
      {{1, string("C:")}, {2, hex(disposition)}, {5, hex(access)}, {31, uint(disposition)}});
}

TEST_F(OperationTest, ItemsOfAFailedCallKeepTheirArgumentsNumbers) {
  EXPECT_EQ(failWithManyArguments(), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(g_calls[2],
            "log default 081A0002 code 9000001A probe 280 level 4 system 0814006D error 3 "
            "#1 {-5 2 433A} #2 {-1 4 03000000} #5 {-1 8 0000008000000000} #31 {-3 4 03000000}");
}

OSSErr failAtAHighProbe() noexcept {
  Operation op(Func::OSSHFile_close);
  op.trace(0x12'0003, uint16_t{7});
  ::SetLastError(5);
  return op.failSystem(0x34'0004, SysCall::CloseHandle);
}

TEST_F(OperationTest, AProbeIsWholeInMapAndLogAndCutTo16BitsInTraceRecords) {
  EXPECT_EQ(failAtAHighProbe(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre(
          kCloseEntry, "data 0000000089ABCDEF 081A0003 probe 3 type 3 {0 2 0700}",
          "map 081A0003 probe 3407876 call 08140069 error 5",
          "log default 081A0003 code 9000001A probe 3407876 level 4 system 08140069 error 5",
          "error 0000000089ABCDEF 081A0003 probe 4 type 4 extra 0 {0 4 1A000090}",
          closeExit(0x9000001A)));
}

// ---- Guards ----

class NotingGuard {
 public:
  NotingGuard() = default;
  ~NotingGuard() { note("clean up"); }
  NotingGuard(const NotingGuard&) = delete;
  NotingGuard& operator=(const NotingGuard&) = delete;
};

OSSErr failHoldingAGuard() noexcept {
  Operation op(Func::OSSHFile_close);
  const NotingGuard guard;
  ::SetLastError(5);
  return op.failSystem(20, SysCall::CloseHandle);
}

TEST_F(OperationTest, AGuardCleansUpAfterTheErrorIsReadAndBeforeTheExitIsRecorded) {
  EXPECT_EQ(failHoldingAGuard(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(
      g_calls,
      ElementsAre(kCloseEntry, "map 081A0003 probe 20 call 08140069 error 5",
                  "log default 081A0003 code 9000001A probe 20 level 4 system 08140069 error 5",
                  "error 0000000089ABCDEF 081A0003 probe 20 type 4 extra 0 {0 4 1A000090}",
                  "clean up", closeExit(0x9000001A)));
}

// ---- Switching while an operation runs ----

// An operation that lets something happen before it fails.
template <class Event>
OSSErr failAfter(Event event) noexcept {
  Operation op(Func::OSSHFile_close);
  event();
  ::SetLastError(5);
  return op.failSystem(20, SysCall::CloseHandle);
}

constexpr const char* kMap = "map 081A0003 probe 20 call 08140069 error 5";
constexpr const char* kLog =
    "log default 081A0003 code 9000001A probe 20 level 4 system 08140069 error 5";
constexpr const char* kErrorPoint =
    "error 0000000089ABCDEF 081A0003 probe 20 type 4 extra 0 {0 4 1A000090}";

TEST_F(OperationTest, TracingThatIsSwitchedOnInBetweenRecordsFromThereOn) {
  block_.enabled = 0;

  EXPECT_EQ(failAfter([this] { block_.enabled = 1; }), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kMap, kLog, kErrorPoint, closeExit(0x9000001A)));
}

TEST_F(OperationTest, TracingThatIsSwitchedOffInBetweenRecordsNothingFromThereOn) {
  EXPECT_EQ(failAfter([this] { block_.enabled = 0; }), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, kMap, kLog));
}

TEST_F(OperationTest, ABlockThatIsAttachedInBetweenIsUsedFromThereOn) {
  g_pGTCB = nullptr;

  EXPECT_EQ(failAfter([this] { g_pGTCB = &block_; }), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kMap, kLog, kErrorPoint, closeExit(0x9000001A)));
}

TEST_F(OperationTest, ABlockThatIsDetachedInBetweenIsNotUsedAgain) {
  EXPECT_EQ(failAfter([] { g_pGTCB = nullptr; }), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, kMap, kLog));
}

TEST_F(OperationTest, TheErrorPointAsksAfterTheRecordIsWritten) {
  block_.enabled = 0;
  g_duringLog = [this] { block_.enabled = 1; };

  EXPECT_EQ(failAfter([] {}), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kMap, kLog, kErrorPoint, closeExit(0x9000001A)));
}

TEST_F(OperationTest, TheExitAsksAfterTheGuardsHaveCleanedUp) {
  struct SwitchingOff {
    ~SwitchingOff() { g_pGTCB->enabled = 0; }
  };
  const auto operation = []() noexcept -> OSSErr {
    Operation op(Func::OSSHFile_close);
    const SwitchingOff guard;
    ::SetLastError(5);
    return op.failSystem(20, SysCall::CloseHandle);
  };

  EXPECT_EQ(operation(), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(g_calls, ElementsAre(kCloseEntry, kMap, kLog, kErrorPoint));
}

// ---- Data points ----

// One operation that traces its values at probe 30 and succeeds.
template <class... T>
OSSErr traceData(const T&... values) noexcept {
  Operation op(Func::OSSHFile_close);
  op.trace(30, values...);
  return op.exit();
}

TEST_F(OperationTest, ADataPointIsOfTypeThreeAndCarriesOneToThreeBlocks) {
  const uint64_t wide = 0x0102030405060708;
  const uint16_t narrow = 0xABCD;
  const Record record = {.version = 1, .field = 2};

  traceData(wide);
  traceData(wide, narrow);
  traceData(narrow, record, wide);
  EXPECT_THAT(g_calls,
              ElementsAre(kCloseEntry,
                          "data 0000000089ABCDEF 081A0003 probe 30 type 3 {0 8 0807060504030201}",
                          kCloseExit, kCloseEntry,
                          "data 0000000089ABCDEF 081A0003 probe 30 type 3 {0 8 0807060504030201} "
                          "{0 2 CDAB}",
                          kCloseExit, kCloseEntry,
                          "data 0000000089ABCDEF 081A0003 probe 30 type 3 {0 2 CDAB} "
                          "{0 16 01000000000000000200000000000000} {0 8 0807060504030201}",
                          kCloseExit));
}

TEST_F(OperationTest, ATextIsTracedAsItsCharacters) {
  const char* const path = "C:";
  const char* const none = nullptr;

  traceData(path);
  traceData(none);
  EXPECT_EQ(g_calls[1], "data 0000000089ABCDEF 081A0003 probe 30 type 3 {0 2 433A}");
  EXPECT_EQ(g_calls[4], "data 0000000089ABCDEF 081A0003 probe 30 type 3 {0 0 null}");
}

// A text at this address could not be read.
TEST_F(OperationTest, WithTracingOffADataPointDoesNotLookAtItsValues) {
  const char* const nowhere = std::bit_cast<const char*>(uint64_t{1});
  g_pGTCB = nullptr;

  EXPECT_EQ(traceData(nowhere), ECF_OK);
  EXPECT_THAT(g_calls, IsEmpty());
}

// ---- Slips of an operation's author ----

OSSErr returnWithoutTheFrame() noexcept {
  const Operation op(Func::OSSHFile_close);
  return ECF_OK;
}

TEST_F(OperationTest, AnOperationThatReturnsWithoutItsFrameIsCaught) {
  EXPECT_DEATH(returnWithoutTheFrame(), "an operation must return through its frame");
}

OSSErr failWithItemsOutOfOrder() noexcept {
  Operation op(Func::OSSHFile_close);
  const uint32_t flags = 0;
  return op.failSystem(20, SysCall::CloseHandle, {{2, hex(flags)}, {1, hex(flags)}});
}

TEST_F(OperationTest, ItemsWhoseNumbersDoNotRiseAreCaught) {
  EXPECT_DEATH(failWithItemsOutOfOrder(), "numbersRise");
}

TEST_F(OperationTest, ADataPointOfMoreThanThreeItemsIsCaught) {
  EXPECT_DEATH(traceData(1, 2, 3, 4), "one to three items");
}

}  // namespace
}  // namespace oss
