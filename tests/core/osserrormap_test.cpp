// The mapping of system errors, against copies of its tables, and what lies between their rows.
#include <gtest/gtest.h>

#include <map>
#include <string_view>

#include "osscatalog.h"
#include "tests/core/ossecf_expected_syscalls.h"

namespace oss {
namespace {

constexpr uint64_t kAccess = 0x08140001;
constexpr uint64_t kStat = 0x0814009D;
constexpr uint64_t kTlsGetValue = 0x081400A0;
constexpr uint64_t kCreateFile = 0x0814006D;
constexpr uint64_t kCreateFileMapping = 0x0814006E;
constexpr uint64_t kCreateProcess = 0x0814006F;
constexpr uint64_t kCreateSemaphore = 0x08140070;

constexpr uint64_t kError = 2;
constexpr uint64_t kInfo = 4;

// What the map makes of one error.
struct Answer {
  OSSErr rc;
  uint64_t level;
  const char* name;
};
using Table = std::map<uint64_t, Answer>;

constexpr Answer kUnknown = {0x90000007, kError, nullptr};

const Table kWin32 = {
    {2, {0x9000001A, kInfo, "ERROR_FILE_NOT_FOUND"}},
    {3, {0x90000037, kInfo, "ERROR_PATH_NOT_FOUND"}},
    {5, {0x90000001, kInfo, "ERROR_ACCESS_DENIED"}},
    {6, {0x9000000C, kInfo, "ERROR_INVALID_FLAGS"}},
    {8, {0x9000000D, kError, "ERROR_OUTOFMEMORY"}},
    {14, {0x9000000D, kError, "ERROR_OUTOFMEMORY"}},
    {18, {0x9000002D, kError, "ERROR_NO_MORE_FILES"}},
    {21, {0x9000002F, kError, "ERROR_NOT_READY"}},
    {32, {0x9000003F, kError, "ERROR_SHARING_VIOLATION"}},
    {33, {0x90000014, kInfo, "ERROR_LOCK_VIOLATION"}},
    {38, {0x90000021, kInfo, "ERROR_HANDLE_EOF"}},
    {80, {0x9000001B, kInfo, "ERROR_FILE_EXISTS"}},
    {86, {0x90000315, kInfo, nullptr}},
    {87, {0x9000000C, kInfo, "ERROR_INVALID_FLAGS"}},
    {112, {0x90000028, kInfo, "ERROR_DISK_FULL"}},
    {122, {0x90000008, kInfo, "ERROR_INSUFFICIENT_BUFFER"}},
    {123, {0x9000001E, kInfo, "ERROR_INVALID_NAME"}},
    {126, {0x9000001A, kInfo, "ERROR_MOD_NOT_FOUND"}},
    {127, {0x90000078, kInfo, "ERROR_PROC_NOT_FOUND"}},
    {145, {0x90000039, kInfo, "ERROR_DIR_NOT_EMPTY"}},
    {183, {0x9000001B, kInfo, "ERROR_ALREADY_EXISTS"}},
    {206, {0x9000001F, kInfo, "ERROR_FILENAME_EXCED_RANGE"}},
    {234, {0x90000008, kInfo, "ERROR_MORE_DATA"}},
    {240, {0x900003FE, kInfo, "ERROR_VC_DISCONNECTED"}},
    {267, {0x90000019, kInfo, "ERROR_DIRECTORY"}},
    {487, {0x9000000A, kInfo, "ERROR_INVALID_ADDRESS"}},
    {1004, {0x9000000C, kInfo, "ERROR_INVALID_FLAGS"}},
    {1005, {0x90000037, kInfo, "ERROR_UNRECOGNIZED_VOLUME"}},
    {1113, {0x90000010, kInfo, "ERROR_NO_UNICODE_TRANSLATION"}},
    {1132, {0x9000000A, kInfo, nullptr}},
    {1455, {0x9000000D, kError, nullptr}},
};

const Table kAccessErrno = {
    {3, {0x9000001A, kInfo, nullptr}},
    {13, {0x90000001, kInfo, "EACCES"}},
    {22, {0x9000000C, kInfo, "EINVAL"}},
};

const Table kStatErrno = {
    {2, {0x9000001A, kInfo, "ENOENT"}},
    {22, {0x9000001A, kInfo, nullptr}},
};

Answer expectedOf(uint64_t call, uint64_t error) {
  if (call == kTlsGetValue && error == 0) return {0x90000003, kInfo, "NO_ERROR"};
  if (call == kCreateFileMapping && error == 183)
    return {0x9000004A, kInfo, "ERROR_ALREADY_EXISTS"};
  if (call == kCreateSemaphore && error == 183) return {0x90000052, kInfo, "ERROR_ALREADY_EXISTS"};

  const Table& table = call == kAccess ? kAccessErrno : call == kStat ? kStatErrno : kWin32;
  const auto row = table.find(error);
  return row != table.end() ? row->second : kUnknown;
}

OSSErr map(uint64_t call, uint64_t error) { return ossErrorMapSystem(0, 0, call, error, nullptr); }

uint64_t levelOf(uint64_t call, uint64_t error) {
  uint64_t level = ~uint64_t{0};
  ossErrorMapSystem(0, 0, call, error, &level);
  return level;
}

const char* nameOf(uint64_t call, uint64_t error) { return ossErrorNameMapSystem(call, error); }

void expectAnswer(uint64_t call, uint64_t error, const Answer& answer) {
  SCOPED_TRACE(testing::Message() << "call " << std::hex << call << " error " << std::dec << error);
  EXPECT_EQ(map(call, error), answer.rc);
  EXPECT_EQ(levelOf(call, error), answer.level);
  EXPECT_STREQ(nameOf(call, error), answer.name);
}

// ---- The tables ----

TEST(ErrorMap, AnswersEveryRowOfTheWin32Table) {
  for (const auto& [error, answer] : kWin32) expectAnswer(kCreateFile, error, answer);
}

TEST(ErrorMap, AnswersEveryErrnoOfAccess) {
  for (const auto& [error, answer] : kAccessErrno) expectAnswer(kAccess, error, answer);
}

TEST(ErrorMap, AnswersEveryErrnoOfStat) {
  for (const auto& [error, answer] : kStatErrno) expectAnswer(kStat, error, answer);
}

// Counts what differs instead of asserting each of a million pairs.
TEST(ErrorMap, AnswersEveryErrorOfEveryCallUpToTwentyThousand) {
  for (const expected::SystemCall& call : expected::kSystemCalls) {
    const uint64_t callId = static_cast<uint32_t>(call.call);
    uint32_t wrong = 0;
    for (uint64_t error = 0; error <= 20'000; ++error) {
      const Answer answer = expectedOf(callId, error);
      const std::string_view name = nameOf(callId, error) != nullptr ? nameOf(callId, error) : "";
      wrong += map(callId, error) != answer.rc || levelOf(callId, error) != answer.level ||
               name != (answer.name != nullptr ? answer.name : "");
    }
    EXPECT_EQ(wrong, 0U) << call.name;
  }
}

// ---- What is deliberate in them ----

TEST(ErrorMap, MissingFileOfAccessIsErrnoThreeAndNotTwo) {
  EXPECT_EQ(map(kAccess, 3), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(map(kAccess, 2), ECF_UNKNOWN);
  EXPECT_EQ(levelOf(kAccess, 2), kError);
  EXPECT_STREQ(nameOf(kAccess, 2), nullptr);
  EXPECT_STREQ(nameOf(kAccess, 3), nullptr);
}

TEST(ErrorMap, InvalidArgumentOfStatIsAMissingFileWithoutAName) {
  EXPECT_EQ(map(kStat, 22), ECF_FILE_DOESNT_EXIST);
  EXPECT_STREQ(nameOf(kStat, 22), nullptr);
  EXPECT_EQ(map(kStat, 3), ECF_UNKNOWN);
  EXPECT_EQ(map(kStat, 13), ECF_UNKNOWN);
  EXPECT_STREQ(nameOf(kStat, 13), nullptr);
}

// Numbers that the Win32 table knows mean nothing as errno.
TEST(ErrorMap, TheTwoErrnoCallsDoNotReachTheWin32Table) {
  for (const uint64_t call : {kAccess, kStat})
    for (const uint64_t error : {5U, 6U, 8U, 32U, 87U, 126U, 183U, 1455U}) {
      EXPECT_EQ(map(call, error), ECF_UNKNOWN) << error;
      EXPECT_STREQ(nameOf(call, error), nullptr) << error;
    }
}

TEST(ErrorMap, AnInvalidHandleIsAnInvalidParameter) {
  EXPECT_EQ(map(kCreateFile, 6), ECF_INVALID_PARAMETER);
  EXPECT_NE(map(kCreateFile, 6), ECF_INVALID_HANDLE);
}

TEST(ErrorMap, AMissingModuleIsAMissingFile) {
  EXPECT_EQ(map(static_cast<uint32_t>(SysCall::LoadLibraryExA), 126), ECF_FILE_DOESNT_EXIST);
}

TEST(ErrorMap, NoErrorMeansAnUnsetSlotForTlsGetValueOnly) {
  EXPECT_EQ(map(kTlsGetValue, 0), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(levelOf(kTlsGetValue, 0), kInfo);
  EXPECT_STREQ(nameOf(kTlsGetValue, 0), "NO_ERROR");
  for (const uint64_t call : {kAccess, kStat, kCreateFile, kTlsGetValue - 1, kTlsGetValue + 1})
    expectAnswer(call, 0, kUnknown);
}

TEST(ErrorMap, AlreadyExistsDependsOnTheCall) {
  EXPECT_EQ(map(kCreateFileMapping, 183), ECF_MEM_EXISTS);
  EXPECT_EQ(map(kCreateSemaphore, 183), ECF_SEM_EXISTS);
  EXPECT_EQ(map(kCreateProcess, 183), ECF_FILE_EXISTS);
  EXPECT_EQ(map(kCreateFileMapping - 1, 183), ECF_FILE_EXISTS);
  EXPECT_EQ(map(kCreateSemaphore + 1, 183), ECF_FILE_EXISTS);
}

TEST(ErrorMap, AlreadyExistsHasItsNameForEveryWin32Call) {
  for (const uint64_t call : {kCreateFileMapping, kCreateProcess, kCreateSemaphore, kTlsGetValue})
    EXPECT_STREQ(nameOf(call, 183), "ERROR_ALREADY_EXISTS");
}

TEST(ErrorMap, SpecialCallsAnswerOtherErrorsLikeAnyCall) {
  for (const uint64_t call : {kCreateFileMapping, kCreateSemaphore, kTlsGetValue})
    expectAnswer(call, 5, kWin32.at(5));
}

TEST(ErrorMap, ThreeErrorsHaveACodeButNoName) {
  for (const uint64_t error : {86U, 1132U, 1455U}) {
    EXPECT_NE(map(kCreateFile, error), ECF_UNKNOWN) << error;
    EXPECT_STREQ(nameOf(kCreateFile, error), nullptr) << error;
  }
}

TEST(ErrorMap, ThreeErrorsShareTheNameOfAnother) {
  for (const uint64_t error : {6U, 87U, 1004U})
    EXPECT_STREQ(nameOf(kCreateFile, error), "ERROR_INVALID_FLAGS") << error;
}

// ---- Levels ----

TEST(ErrorMap, FiveCodesAreErrorsAndAllOthersInformation) {
  for (const auto& [error, answer] : kWin32) {
    const OSSErr rc = map(kCreateFile, error);
    const bool isError = rc == ECF_UNKNOWN || rc == ECF_NO_MEMORY || rc == ECF_FILE_PROCESS_MAX ||
                         rc == ECF_FILE_DEVICE_UNAVAILABLE || rc == ECF_FILE_SHARE;
    EXPECT_EQ(levelOf(kCreateFile, error), isError ? kError : kInfo) << error;
  }
  EXPECT_EQ(levelOf(kCreateFile, 31), kError);
}

TEST(ErrorMap, ANullLevelIsAllowed) {
  EXPECT_EQ(ossErrorMapSystem(0x081A0002, 280, kCreateFile, 2, nullptr), ECF_FILE_DOESNT_EXIST);
}

// ---- Arguments ----

TEST(ErrorMap, OperationAndProbeTakeNoPart) {
  for (const uint32_t funcId : {0U, 0x081A0002U, 0x08140001U, 0xFFFFFFFFU})
    for (const uint64_t probe : {uint64_t{0}, uint64_t{183}, ~uint64_t{0}}) {
      EXPECT_EQ(ossErrorMapSystem(funcId, probe, kCreateSemaphore, 183, nullptr), ECF_SEM_EXISTS);
      EXPECT_EQ(ossErrorMapSystem(funcId, probe, kCreateFile, 0, nullptr), ECF_UNKNOWN);
    }
}

TEST(ErrorMap, AnErrorIsComparedInAllItsBits) {
  for (const uint64_t high : {uint64_t{1} << 32, uint64_t{1} << 63, uint64_t{0xFFFFFFFF} << 32}) {
    for (const auto& [error, answer] : kWin32) expectAnswer(kCreateFile, high | error, kUnknown);
    expectAnswer(kCreateSemaphore, high | 183, kUnknown);
    expectAnswer(kTlsGetValue, high, kUnknown);
    expectAnswer(kAccess, high | 13, kUnknown);
    expectAnswer(kStat, high | 2, kUnknown);
  }
  expectAnswer(kCreateFile, ~uint64_t{0}, kUnknown);
}

TEST(ErrorMap, ACallIsComparedInAllItsBits) {
  const uint64_t high = uint64_t{1} << 32;
  expectAnswer(high | kAccess, 13, kUnknown);
  expectAnswer(high | kAccess, 2, kWin32.at(2));
  expectAnswer(high | kStat, 22, kUnknown);
  expectAnswer(high | kTlsGetValue, 0, kUnknown);
  expectAnswer(high | kCreateFileMapping, 183, kWin32.at(183));
  expectAnswer(high | kCreateSemaphore, 183, kWin32.at(183));
}

// The kind of an identifier counts here, although the catalog ignores it.
TEST(ErrorMap, ACallOfAnotherKindIsAnotherCall) {
  EXPECT_EQ(map(0x08120001, 13), ECF_UNKNOWN);
  EXPECT_EQ(map(0x08120070, 183), ECF_FILE_EXISTS);
}

TEST(ErrorMap, CallsThatTheCatalogDoesNotKnowUseTheWin32Table) {
  for (const uint64_t call :
       {uint64_t{0}, uint64_t{0x08140002}, uint64_t{0x081A0002}, ~uint64_t{0}})
    for (const auto& [error, answer] : kWin32) expectAnswer(call, error, answer);
}

}  // namespace
}  // namespace oss
