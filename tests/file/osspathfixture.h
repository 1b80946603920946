// osspathfixture.h - what the tests of the operations on paths share: a directory of their own, the
// log, and paths of any length.
#pragma once

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "harness/importhook.h"
#include "harness/logcapture.h"
#include "harness/tempdir.h"
#include "osscatalog.h"
#include "osspath.h"

namespace osse_test {

inline constexpr uint64_t kTooOld = OSS_VERSION_OLDEST - 1;

inline bool isThere(const std::string& path) {
  return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}
inline bool isDirectoryThere(const std::string& path) {
  const DWORD attributes = ::GetFileAttributesA(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}
inline void makeDirectory(const std::string& path) {
  ASSERT_TRUE(::CreateDirectoryA(path.c_str(), nullptr)) << path << ": " << ::GetLastError();
}

inline OSSErr create(const std::string& path, uint64_t mode) {
  OSSDirectoryCreateParam param;
  param.path = path.c_str();
  param.mode = mode;
  return ossDirectoryCreate(&param);
}
inline OSSErr removeDirectory(const std::string& path,
                              uint64_t flags = OSS_DIRECTORY_DELETE_RECURSIVELY) {
  OSSDirectoryDeleteParam param;
  param.path = path.c_str();
  param.flags = flags;
  return ossDirectoryDelete(&param);
}

// The result that the C run-time's calls fail with.
inline constexpr Word kFailed = kAllOnes;

// Refuses every call of a function of the C run-time, which tells by errno and, mostly, by the last
// error as well.
class FailingRuntimeCall {
 public:
  FailingRuntimeCall(const char* function, int error, DWORD lastError)
      : hook_(function, [=](Call&) {
          ::SetLastError(lastError);
          errno = error;
          return kFailed;
        }) {}

 private:
  ImportHook hook_;
};

// Has the library find the file "1" of a directory under another name, and take that for a file's:
// one whose path is longer than the system lets any be.
class FoundUnderAnotherName {
 public:
  FoundUnderAnotherName(const std::string& directory, const std::string& name)
      : next_("FindNextFileA",
              [name](Call& call) {
                const Word found = call.passOn();
                char* const given = call.argument<WIN32_FIND_DATAA*>(1)->cFileName;
                if (found != 0 && std::strcmp(given, "1") == 0) std::strcpy(given, name.c_str());
                return found;
              }),
        status_("_stat64", [path = directory + '\\' + name](Call& call) {
          if (call.argument<const char*>(0) != path) return call.passOn();
          call.argument<struct _stat64*>(1)->st_mode = OSS_FILE_TYPE_REGULAR;
          return Word{0};
        }) {}

 private:
  ImportHook next_, status_;
};

class PathTest : public testing::Test {
 protected:
  // A path of that many bytes in a directory that exists; nothing has its name.
  std::string pathOfLength(size_t length) {
    std::string directory = dir_.path();
    while (length - directory.size() > 101) {
      directory += '\\' + std::string(49, 'd');
      if (!isDirectoryThere(directory)) makeDirectory(directory);
    }
    return directory + '\\' + std::string(length - directory.size() - 1, 'n');
  }

  // Runs an operation that must be refused with this code and these records.
  template <class Operation, class... Records>
  void expectRefusal(Operation operation, OSSErr code, const Records&... records) {
    EXPECT_EQ(operation(), code);
    EXPECT_THAT(log_.newRecords(), testing::ElementsAre(records...));
  }

  // The two refusals of an operation with a parameter record, and that of a null path in it.
  template <class Param, class Operation>
  void expectRecordChecks(oss::Func function, Operation operation) {
    Param param;
    expectRefusal([&] { return operation(nullptr); }, ECF_INVALID_PARAMETER, nullRecord(function));
    expectRefusal([&] { return operation(&param); }, ECF_INVALID_PARAMETER, nullRecord(function));
    for (const uint64_t version : {uint64_t{0}, kTooOld}) {
      param.version = version;
      expectRefusal(
          [&] { return operation(&param); }, ECF_INVALID_VERSION,
          FoundRecord(OSS_LOG_ERROR, function, 1112, ECF_INVALID_VERSION, {Uint(version)}));
    }
  }

  static LogEvidence nullRecord(oss::Func function) {
    return FoundRecord(OSS_LOG_ERROR, function, 1111, ECF_INVALID_PARAMETER);
  }

  void TearDown() override {
    EXPECT_THAT(log_.newRecords(), testing::IsEmpty());
    // What is so long that nothing can stand in it, the removal of the directory cannot look into.
    for (const size_t length : {260u, 259u}) ::RemoveDirectoryA(pathOfLength(length).c_str());
  }

  TempDirectory dir_;
  const std::string missing_ = dir_.file("missing");
  LogCapture log_;
};

}  // namespace osse_test
