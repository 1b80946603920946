// The mapping of system errors to return codes, and their names. Pure functions of their arguments.
#include <array>
#include <iterator>

#include "core/osserrorlevel.h"
#include "osscatalog.h"

namespace oss {
namespace {

constexpr uint32_t levelOf(OSSErr rc) {
  switch (rc) {
    case ECF_UNKNOWN:
    case ECF_NO_MEMORY:
    case ECF_FILE_PROCESS_MAX:
    case ECF_FILE_DEVICE_UNAVAILABLE:
    case ECF_FILE_SHARE: return OSS_LOG_ERROR;
    default: return OSS_LOG_INFO;
  }
}

// ---- Win32 errors: what GetLastError() gives, for every call but the two of the C run-time ----

struct ErrorRow {
  uint32_t error;
  OSSErr code;
  const char* name;  // null: a record shows the number alone
};

// Deliberate, in the last column: it is not the mirror of the codes. Several errors have none, and
// three share one that is not their own.
constexpr ErrorRow kErrors[] = {
    {0, ECF_UNKNOWN, nullptr},  // every error that has no row of its own
    {2, ECF_FILE_DOESNT_EXIST, "ERROR_FILE_NOT_FOUND"},
    {3, ECF_FILE_PATH_DOESNT_EXIST, "ERROR_PATH_NOT_FOUND"},
    {5, ECF_ACCESS_DENIED, "ERROR_ACCESS_DENIED"},
    {6, ECF_INVALID_PARAMETER, "ERROR_INVALID_FLAGS"},  // Deliberate: not ECF_INVALID_HANDLE.
    {8, ECF_NO_MEMORY, "ERROR_OUTOFMEMORY"},
    {14, ECF_NO_MEMORY, "ERROR_OUTOFMEMORY"},
    {18, ECF_FILE_PROCESS_MAX, "ERROR_NO_MORE_FILES"},
    {21, ECF_FILE_DEVICE_UNAVAILABLE, "ERROR_NOT_READY"},
    {32, ECF_FILE_SHARE, "ERROR_SHARING_VIOLATION"},
    {33, ECF_FILE_LOCK, "ERROR_LOCK_VIOLATION"},
    {38, ECF_FILE_EOF, "ERROR_HANDLE_EOF"},
    {80, ECF_FILE_EXISTS, "ERROR_FILE_EXISTS"},
    {86, ECF_SEC_INVALID_PASSWORD, nullptr},
    {87, ECF_INVALID_PARAMETER, "ERROR_INVALID_FLAGS"},
    {112, ECF_FILE_NO_SPACE, "ERROR_DISK_FULL"},
    {122, ECF_BUFFER_TOO_SMALL, "ERROR_INSUFFICIENT_BUFFER"},
    {123, ECF_FILE_INVALID_NAME, "ERROR_INVALID_NAME"},
    {126, ECF_FILE_DOESNT_EXIST, "ERROR_MOD_NOT_FOUND"},  // Deliberate: a module is a file here.
    {127, ECF_LIB_FUNC_NOT_FOUND, "ERROR_PROC_NOT_FOUND"},
    {145, ECF_FILE_DIR_NOT_EMPTY, "ERROR_DIR_NOT_EMPTY"},
    {183, ECF_FILE_EXISTS, "ERROR_ALREADY_EXISTS"},  // but see map
    {206, ECF_FILE_NAME_TOO_LONG, "ERROR_FILENAME_EXCED_RANGE"},
    {234, ECF_BUFFER_TOO_SMALL, "ERROR_MORE_DATA"},
    {240, ECF_SESSION_CANCELED, "ERROR_VC_DISCONNECTED"},
    {267, ECF_FILE_NOT_A_DIRECTORY, "ERROR_DIRECTORY"},
    {487, ECF_INVALID_ADDRESS, "ERROR_INVALID_ADDRESS"},
    {1004, ECF_INVALID_PARAMETER, "ERROR_INVALID_FLAGS"},
    {1005, ECF_FILE_PATH_DOESNT_EXIST, "ERROR_UNRECOGNIZED_VOLUME"},
    {1113, ECF_NO_UNICODE_TRANSLATION, "ERROR_NO_UNICODE_TRANSLATION"},
    {1132, ECF_INVALID_ADDRESS, nullptr},
    {1455, ECF_NO_MEMORY, nullptr},
};

constexpr uint64_t kGreatestError = 1455;
static_assert(std::size(kErrors) < 256 && std::end(kErrors)[-1].error == kGreatestError);

// ---- The same as one load of a byte and one of a row ----

// What an error is answered with. The order of failures is nobody's to foresee, so the level is
// looked up with the code rather than told by branches.
struct Answer {
  OSSErr code;
  uint32_t level;
  const char* name = nullptr;
};

constexpr Answer answerWith(OSSErr code, const char* name = nullptr) {
  return {code, levelOf(code), name};
}

consteval auto answersByRow() {
  std::array<Answer, std::size(kErrors)> answers{};
  for (size_t row = 0; row < answers.size(); ++row)
    answers[row] = answerWith(kErrors[row].code, kErrors[row].name);
  return answers;
}
constexpr auto kAnswers = answersByRow();

consteval auto rowsByError() {
  std::array<uint8_t, kGreatestError + 1> rows{};
  for (size_t row = 0; row < std::size(kErrors); ++row)
    rows[kErrors[row].error] = static_cast<uint8_t>(row);
  return rows;
}
constexpr auto kRowsByError = rowsByError();

const Answer& answerTo(uint64_t error) {
  return kAnswers[error <= kGreatestError ? kRowsByError[error] : 0];
}

// ---- errno, for the two calls of the C run-time ----

OSSErr mapAccess(uint64_t error) {
  switch (error) {
    case 3: return ECF_FILE_DOESNT_EXIST;  // Deliberate: 3, not 2.
    case 13: return ECF_ACCESS_DENIED;
    case 22: return ECF_INVALID_PARAMETER;
    default: return ECF_UNKNOWN;
  }
}

OSSErr mapStat(uint64_t error) {
  switch (error) {
    case 2: return ECF_FILE_DOESNT_EXIST;
    case 22: return ECF_FILE_DOESNT_EXIST;  // Deliberate: a name that cannot be is a missing file.
    default: return ECF_UNKNOWN;
  }
}

// ---- Calls with answers of their own ----

constexpr uint64_t kErrorNone = 0;
constexpr uint64_t kErrorAlreadyExists = 183;

constexpr bool is(uint64_t sysCallId, SysCall call) {
  return sysCallId == static_cast<uint32_t>(call);
}

Answer map(uint64_t call, uint64_t error) {
  if (is(call, SysCall::Access)) [[unlikely]]
    return answerWith(mapAccess(error));
  if (is(call, SysCall::Stat)) [[unlikely]]
    return answerWith(mapStat(error));
  if (is(call, SysCall::CreateFileMappingA) && error == kErrorAlreadyExists) [[unlikely]]
    return answerWith(ECF_MEM_EXISTS);
  if (is(call, SysCall::CreateSemaphoreA) && error == kErrorAlreadyExists) [[unlikely]]
    return answerWith(ECF_SEM_EXISTS);
  // An empty slot reads as null without an error: it was never set.
  if (is(call, SysCall::TlsGetValue) && error == kErrorNone) [[unlikely]]
    return answerWith(ECF_INVALID_INVOCATION_SEQUENCE);
  return answerTo(error);
}

}  // namespace

uint64_t logLevelOf(OSSErr rc) noexcept { return levelOf(rc); }

}  // namespace oss

using namespace oss;

OSSErr ossErrorMapSystem(uint32_t /*funcId*/, uint64_t /*probe*/, uint64_t sysCallId,
                         uint64_t sysError, uint64_t* logLevelOut) noexcept {
  const Answer answer = map(sysCallId, sysError);
  if (logLevelOut != nullptr) *logLevelOut = answer.level;
  return answer.code;
}

const char* ossErrorNameMapSystem(uint64_t sysCallId, uint64_t sysError) noexcept {
  if (is(sysCallId, SysCall::Access))
    return sysError == 13 ? "EACCES" : sysError == 22 ? "EINVAL" : nullptr;
  if (is(sysCallId, SysCall::Stat)) return sysError == 2 ? "ENOENT" : nullptr;
  if (is(sysCallId, SysCall::TlsGetValue) && sysError == kErrorNone) return "NO_ERROR";
  return answerTo(sysError).name;
}
