// Directories by their path: the current one, and creation.
#include "file/osspathfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// ---- The current directory ----

// Puts the process's current directory back.
class OSSCurrentDirectoryTest : public PathTest {
 protected:
  OSSCurrentDirectoryTest() { ::GetCurrentDirectoryA(sizeof before_, before_); }
  ~OSSCurrentDirectoryTest() override { ::SetCurrentDirectoryA(before_); }

 private:
  char before_[512];
};

TEST_F(OSSCurrentDirectoryTest, IsWhatWasSet) {
  EXPECT_EQ(ossDirectorySetCurrent(dir_.path().c_str()), ECF_OK);
  char buffer[512];
  uint64_t size = sizeof buffer;
  EXPECT_EQ(ossDirectoryGetCurrent(buffer, &size), ECF_OK);
  EXPECT_EQ(buffer, dir_.path());
  EXPECT_EQ(size, dir_.path().size());
}

TEST_F(OSSCurrentDirectoryTest, ABufferTooSmallLearnsTheSizeThatItNeeds) {
  ASSERT_TRUE(::SetCurrentDirectoryA(dir_.path().c_str()));
  const uint64_t needed = dir_.path().size() + 1;
  for (const uint64_t given : {uint64_t{0}, uint64_t{1}, needed - 1}) {
    std::string buffer(512, '?');
    uint64_t size = given;
    expectRefusal([&] { return ossDirectoryGetCurrent(buffer.data(), &size); },
                  ECF_BUFFER_TOO_SMALL,
                  FoundRecord(OSS_LOG_INFO, Func::ossDirectoryGetCurrent, 40, ECF_BUFFER_TOO_SMALL,
                              {Uint(needed), Uint(given)}));
    EXPECT_EQ(size, needed);
  }
  std::string buffer(needed, '?');
  uint64_t size = needed;
  EXPECT_EQ(ossDirectoryGetCurrent(buffer.data(), &size), ECF_OK);
  EXPECT_EQ(buffer, dir_.path() + '\0');
  EXPECT_EQ(size, needed - 1);
}

TEST_F(OSSCurrentDirectoryTest, TheSizeMayBeAskedForWithoutABuffer) {
  ASSERT_TRUE(::SetCurrentDirectoryA(dir_.path().c_str()));
  uint64_t size = 0;
  EXPECT_EQ(ossDirectoryGetCurrent(nullptr, &size), ECF_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, dir_.path().size() + 1);
  EXPECT_EQ(log_.newRecords().size(), 1u);
}

TEST_F(OSSCurrentDirectoryTest, ASizeAbove32BitsIsNotCutToItsLowerHalf) {
  ImportHook hook("GetCurrentDirectoryA", [](Call& call) {
    EXPECT_EQ(call.argument<DWORD>(0), ~DWORD{0});
    return 5;
  });
  char buffer[8];
  uint64_t size = (uint64_t{1} << 32) + 2;
  EXPECT_EQ(ossDirectoryGetCurrent(buffer, &size), ECF_OK);
  EXPECT_EQ(size, 5u);
}

TEST_F(OSSCurrentDirectoryTest, ARefusalIsMapped) {
  char buffer[512];
  uint64_t size = sizeof buffer;
  {
    const FailingCall fails("GetCurrentDirectoryA", ERROR_ACCESS_DENIED);
    expectRefusal(
        [&] { return ossDirectoryGetCurrent(buffer, &size); }, ECF_ACCESS_DENIED,
        SystemRecord(OSS_LOG_INFO, Func::ossDirectoryGetCurrent, 40, SysCall::GetCurrentDirectoryA,
                     ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, Uint(uint64_t{512})}}));
  }
  EXPECT_EQ(size, sizeof buffer);

  const std::string file = dir_.file("file");
  writeFile(file, "");
  const struct {
    std::string path;
    DWORD error;
    OSSErr code;
  } kRows[] = {{missing_, ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST},
               {file, ERROR_DIRECTORY, ECF_FILE_NOT_A_DIRECTORY},
               {"", ERROR_INVALID_NAME, ECF_FILE_INVALID_NAME}};
  for (const auto& row : kRows)
    expectRefusal(
        [&] { return ossDirectorySetCurrent(row.path.c_str()); }, row.code,
        SystemRecord(OSS_LOG_INFO, Func::ossDirectorySetCurrent, 30, SysCall::SetCurrentDirectoryA,
                     row.error, row.code, {{1, String(row.path)}}));
}

TEST_F(OSSCurrentDirectoryTest, NullIsRefused) {
  char buffer[8];
  uint64_t size = sizeof buffer;
  expectRefusal([&] { return ossDirectoryGetCurrent(buffer, nullptr); }, ECF_INVALID_PARAMETER,
                nullRecord(Func::ossDirectoryGetCurrent));
  expectRefusal([&] { return ossDirectoryGetCurrent(nullptr, &size); }, ECF_INVALID_PARAMETER,
                nullRecord(Func::ossDirectoryGetCurrent));
  EXPECT_EQ(size, sizeof buffer);
  expectRefusal([] { return ossDirectorySetCurrent(nullptr); }, ECF_INVALID_PARAMETER,
                nullRecord(Func::ossDirectorySetCurrent));
}

// ---- ossDirectoryCreate ----

constexpr uint64_t kEveryOneNew = 0;

class OSSDirectoryCreateTest : public PathTest {
 protected:
  static LogEvidence refused(const std::string& prefix, DWORD error, OSSErr code) {
    return SystemRecord(OSS_LOG_INFO, Func::ossDirectoryCreate, 40, SysCall::CreateDirectoryA,
                        error, code, {{1, String(prefix)}});
  }
};

// What the system is asked to create, when it creates everything.
std::vector<std::string> prefixesOf(const char* path, uint64_t mode) {
  std::vector<std::string> prefixes;
  ImportHook hook("CreateDirectoryA", [&](Call& call) {
    prefixes.emplace_back(call.argument<const char*>(0));
    EXPECT_EQ(call.argument<void*>(1), nullptr);
    return TRUE;
  });
  OSSDirectoryCreateParam param;
  param.path = path;
  param.mode = mode;
  param.permissions = 0777;
  EXPECT_EQ(ossDirectoryCreate(&param), ECF_OK);
  return prefixes;
}

TEST_F(OSSDirectoryCreateTest, ModeOneMakesOneCall) {
  for (const char* const path : {R"(C:\a\b)", R"(C:\)", R"(\\s\h\)", "a", ""})
    EXPECT_THAT(prefixesOf(path, 1), ElementsAre(path));
}

TEST_F(OSSDirectoryCreateTest, OtherModesWalkAlongThePath) {
  for (const uint64_t mode : {uint64_t{0}, uint64_t{2}, uint64_t{3}, ~uint64_t{0}}) {
    EXPECT_THAT(prefixesOf(R"(C:\a\b\c)", mode),
                ElementsAre(R"(C:\a\)", R"(C:\a\b\)", R"(C:\a\b\c)"));
    EXPECT_THAT(prefixesOf(R"(C:\a\)", mode), ElementsAre(R"(C:\a\)"));
    EXPECT_THAT(prefixesOf(R"(\\server\share\a\b)", mode),
                ElementsAre(R"(\\server\share\a\)", R"(\\server\share\a\b)"));
    EXPECT_THAT(prefixesOf("a/b", mode), ElementsAre("a/b"));
    EXPECT_THAT(prefixesOf(R"(\dir)", mode), ElementsAre(R"(\)", R"(\dir)"));
    EXPECT_THAT(prefixesOf(R"(\)", mode), ElementsAre(R"(\)"));
    EXPECT_THAT(prefixesOf(R"(C:a\b)", mode), ElementsAre(R"(C:a\)", R"(C:a\b)"));
    EXPECT_THAT(prefixesOf("\xE4\\\xFF", mode), ElementsAre("\xE4\\", "\xE4\\\xFF"));
  }
}

TEST_F(OSSDirectoryCreateTest, ModeTwoMakesWhatIsMissing) {
  const std::string path = dir_.file(R"(a\b\c)");
  EXPECT_EQ(create(path, OSS_DIRECTORY_CREATE_MISSING), ECF_OK);
  EXPECT_TRUE(isDirectoryThere(path));
  EXPECT_EQ(create(path, OSS_DIRECTORY_CREATE_MISSING), ECF_OK);
  EXPECT_EQ(create(path + '\\', OSS_DIRECTORY_CREATE_MISSING), ECF_OK);
}

TEST_F(OSSDirectoryCreateTest, ModeOneMakesTheLastComponentOnly) {
  const std::string deep = dir_.file(R"(a\b)");
  expectRefusal([&] { return create(deep, OSS_DIRECTORY_CREATE_ONE); }, ECF_FILE_PATH_DOESNT_EXIST,
                refused(deep, ERROR_PATH_NOT_FOUND, ECF_FILE_PATH_DOESNT_EXIST));
  EXPECT_EQ(create(dir_.file("a"), OSS_DIRECTORY_CREATE_ONE), ECF_OK);
  expectRefusal([&] { return create(dir_.file("a"), OSS_DIRECTORY_CREATE_ONE); }, ECF_FILE_EXISTS,
                refused(dir_.file("a"), ERROR_ALREADY_EXISTS, ECF_FILE_EXISTS));
}

TEST_F(OSSDirectoryCreateTest, OtherModesStopAtTheFirstThatExists) {
  const std::string path = dir_.file("a");
  const std::string first = path.substr(0, path.find('\\', 3) + 1);
  expectRefusal([&] { return create(path, kEveryOneNew); }, ECF_FILE_EXISTS,
                refused(first, ERROR_ALREADY_EXISTS, ECF_FILE_EXISTS));
  EXPECT_FALSE(isThere(path));
}

TEST_F(OSSDirectoryCreateTest, WhatIsMadeBeforeAFailureStays) {
  const std::string path = dir_.file(R"(a\<\b)");
  expectRefusal([&] { return create(path, OSS_DIRECTORY_CREATE_MISSING); }, ECF_FILE_INVALID_NAME,
                refused(dir_.file("a\\<\\"), ERROR_INVALID_NAME, ECF_FILE_INVALID_NAME));
  EXPECT_TRUE(isDirectoryThere(dir_.file("a")));
}

TEST_F(OSSDirectoryCreateTest, ARootIsThereAndIsNotCreated) {
  CallCounter calls("CreateDirectoryA");
  for (const char* const root : {R"(C:\)", R"(Q:\)", R"(\\server\share\)", R"(\\server)"}) {
    EXPECT_EQ(create(root, OSS_DIRECTORY_CREATE_MISSING), ECF_OK);
    expectRefusal(
        [&] { return create(root, kEveryOneNew); }, ECF_FILE_EXISTS,
        FoundRecord(OSS_LOG_INFO, Func::ossDirectoryCreate, 40, ECF_FILE_EXISTS, {String(root)}));
  }
  EXPECT_EQ(calls.calls(), 0);
}

TEST_F(OSSDirectoryCreateTest, PathsOf260BytesAreWalkedAndLongerOnesRefused) {
  for (const size_t length : {259u, 260u}) {
    const std::string path = pathOfLength(length);
    EXPECT_EQ(create(path, OSS_DIRECTORY_CREATE_MISSING), ECF_OK) << length;
    EXPECT_TRUE(isDirectoryThere(path)) << length;
  }
  const std::string path = pathOfLength(261);
  CallCounter calls("CreateDirectoryA");
  for (const uint64_t mode : {kEveryOneNew, OSS_DIRECTORY_CREATE_MISSING})
    expectRefusal([&] { return create(path, mode); }, ECF_FILE_NAME_TOO_LONG,
                  FoundRecord(OSS_LOG_INFO, Func::ossDirectoryCreate, 40, ECF_FILE_NAME_TOO_LONG,
                              {String(path)}));
  EXPECT_EQ(calls.calls(), 0);
  expectRefusal([&] { return create(path, OSS_DIRECTORY_CREATE_ONE); }, ECF_FILE_NAME_TOO_LONG,
                refused(path, ERROR_FILENAME_EXCED_RANGE, ECF_FILE_NAME_TOO_LONG));
}

TEST_F(OSSDirectoryCreateTest, AnEmptyPathIsTheSystemsToRefuse) {
  const FailingCall fails("CreateDirectoryA", ERROR_PATH_NOT_FOUND);
  expectRefusal([&] { return create("", OSS_DIRECTORY_CREATE_MISSING); },
                ECF_FILE_PATH_DOESNT_EXIST,
                refused("", ERROR_PATH_NOT_FOUND, ECF_FILE_PATH_DOESNT_EXIST));
}

TEST_F(OSSDirectoryCreateTest, NullAndOldRecordsAreRefused) {
  expectRecordChecks<OSSDirectoryCreateParam>(Func::ossDirectoryCreate, ossDirectoryCreate);
}

}  // namespace
