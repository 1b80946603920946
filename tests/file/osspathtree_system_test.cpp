// The removal of directories, alone and with all that is in them.
#include "file/osspathfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr uint64_t kAlone = 0;

constexpr Func kAll = Func::oss_directory_delete_recursive;
constexpr Func kOne = Func::oss_directory_delete;

// A tree for each test: a directory with a file and a directory, and a file in that.
class OSSDirectoryDeleteTest : public PathTest {
 protected:
  OSSDirectoryDeleteTest() {
    makeDirectory(tree_);
    makeDirectory(inner_);
    writeFile(file_, "file");
    writeFile(innerFile_, "inner");
  }

  static LogEvidence refused(const std::string& path, DWORD error, OSSErr code) {
    return SystemRecord(OSS_LOG_INFO, kOne, 30, SysCall::RemoveDirectoryA, error, code,
                        {{1, String(path)}});
  }
  static LogEvidence called(uint64_t probe, Func function, OSSErr code, const std::string& path) {
    return CalledRecord(OSS_LOG_INFO, kAll, probe, function, code, code, {{1, String(path)}});
  }

  const std::string tree_ = dir_.file("tree");
  const std::string inner_ = tree_ + "\\b";
  const std::string file_ = tree_ + "\\c";
  const std::string innerFile_ = inner_ + "\\d";
};

TEST_F(OSSDirectoryDeleteTest, AloneItMustBeEmpty) {
  expectRefusal([&] { return removeDirectory(tree_, kAlone); }, ECF_FILE_DIR_NOT_EMPTY,
                refused(tree_, ERROR_DIR_NOT_EMPTY, ECF_FILE_DIR_NOT_EMPTY));
  EXPECT_TRUE(isThere(innerFile_));
  ASSERT_TRUE(::DeleteFileA(innerFile_.c_str()));
  EXPECT_EQ(removeDirectory(inner_, kAlone), ECF_OK);
  EXPECT_FALSE(isThere(inner_));
}

TEST_F(OSSDirectoryDeleteTest, OneBitOfTheFlagsCounts) {
  expectRefusal([&] { return removeDirectory(tree_, ~OSS_DIRECTORY_DELETE_RECURSIVELY); },
                ECF_FILE_DIR_NOT_EMPTY,
                refused(tree_, ERROR_DIR_NOT_EMPTY, ECF_FILE_DIR_NOT_EMPTY));
  EXPECT_EQ(removeDirectory(tree_, ~uint64_t{0}), ECF_OK);
  EXPECT_FALSE(isThere(tree_));
}

TEST_F(OSSDirectoryDeleteTest, RecursivelyAllIsGoneAndNothingElse) {
  const std::string beside = dir_.file("tree2");
  makeDirectory(beside);
  EXPECT_EQ(removeDirectory(tree_), ECF_OK);
  EXPECT_THAT(dir_.names(), ElementsAre("tree2"));
}

TEST_F(OSSDirectoryDeleteTest, ABackslashAtTheEndChangesNothing) {
  EXPECT_EQ(removeDirectory(tree_ + '\\'), ECF_OK);
  EXPECT_FALSE(isThere(tree_));
}

TEST_F(OSSDirectoryDeleteTest, WhatIsNoDirectoryIsRefused) {
  for (const std::string& path : {file_, missing_, std::string(""), std::string("nul")})
    expectRefusal([&] { return removeDirectory(path); }, ECF_FILE_NOT_A_DIRECTORY,
                  FoundRecord(OSS_LOG_INFO, kAll, 70, ECF_FILE_NOT_A_DIRECTORY, {String(path)}));
  EXPECT_EQ(readFile(file_), "file");
}

TEST_F(OSSDirectoryDeleteTest, TheNullDeviceIsRefusedInOneSpelling) {
  CallCounter asked("_stat64");
  expectRefusal([&] { return removeDirectory("NUL"); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_INFO, kAll, 10, ECF_INVALID_PARAMETER, {String("NUL")}));
  EXPECT_EQ(asked.calls(), 0);
}

TEST_F(OSSDirectoryDeleteTest, AFileThatStaysStopsTheWalk) {
  ASSERT_TRUE(::SetFileAttributesA(innerFile_.c_str(), FILE_ATTRIBUTE_READONLY));
  expectRefusal([&] { return removeDirectory(tree_); }, ECF_ACCESS_DENIED,
                SystemRecord(OSS_LOG_INFO, Func::ossFileDelete, 40, SysCall::DeleteFileA,
                             ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, String(innerFile_)}}),
                called(40, Func::ossFileDelete, ECF_ACCESS_DENIED, innerFile_),
                called(20, kAll, ECF_ACCESS_DENIED, inner_));
  ASSERT_TRUE(::SetFileAttributesA(innerFile_.c_str(), FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(readFile(file_), "file");
}

TEST_F(OSSDirectoryDeleteTest, ADirectoryThatStaysIsReportedByEachAboveIt) {
  FailingCall fails("RemoveDirectoryA", ERROR_SHARING_VIOLATION);
  const auto grave = [](uint64_t probe, Func function, const std::string& path) {
    return CalledRecord(OSS_LOG_ERROR, kAll, probe, function, ECF_FILE_SHARE, ECF_FILE_SHARE,
                        {{1, String(path)}});
  };
  expectRefusal([&] { return removeDirectory(tree_); }, ECF_FILE_SHARE,
                SystemRecord(OSS_LOG_ERROR, kOne, 30, SysCall::RemoveDirectoryA,
                             ERROR_SHARING_VIOLATION, ECF_FILE_SHARE, {{1, String(inner_)}}),
                grave(30, kOne, inner_), grave(20, kAll, inner_));
}

TEST_F(OSSDirectoryDeleteTest, ALinkToADirectoryIsRemovedAndNotFollowed) {
  std::vector<std::string> removed;
  ImportHook attributes("GetFileAttributesA", [&](Call& call) {
    const DWORD known = static_cast<DWORD>(call.passOn());
    return call.argument<const char*>(0) == inner_ ? known | FILE_ATTRIBUTE_REPARSE_POINT : known;
  });
  ImportHook removes("RemoveDirectoryA", [&](Call& call) {
    removed.emplace_back(call.argument<const char*>(0));
    return TRUE;
  });
  EXPECT_EQ(removeDirectory(tree_), ECF_OK);
  EXPECT_THAT(removed, ElementsAre(inner_, tree_));
  EXPECT_EQ(readFile(innerFile_), "inner");
}

TEST_F(OSSDirectoryDeleteTest, AListingThatCannotBeginIsReported) {
  FailingCall fails("FindFirstFileA", ERROR_ACCESS_DENIED, {.result = kAllOnes});
  expectRefusal(
      [&] { return removeDirectory(tree_); }, ECF_ACCESS_DENIED,
      SystemRecord(OSS_LOG_INFO, Func::OSSDirectoryListing_begin, 80, SysCall::FindFirstFileA,
                   ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, String(tree_ + "\\*")}}),
      called(50, Func::OSSDirectoryListing_begin, ECF_ACCESS_DENIED, tree_));
  EXPECT_TRUE(isThere(innerFile_));
}

TEST_F(OSSDirectoryDeleteTest, WhatHasAPathTooLongIsNotTouchedAndStopsTheWalk) {
  const std::string directory = pathOfLength(250);
  makeDirectory(directory);
  const std::string longest = directory + "\\12345678";  // 259 bytes
  writeFile(longest, "");
  EXPECT_EQ(removeDirectory(directory), ECF_OK);
  EXPECT_FALSE(isThere(directory));

  // A name makes 260 bytes that no path may have here, and 261 that the listing leaves out.
  const auto removeWith = [&](const char* name, auto... records) {
    makeDirectory(directory);
    writeFile(directory + "\\1", "");
    const FoundUnderAnotherName found(directory, name);
    const OSSErr rc = removeDirectory(directory);
    EXPECT_THAT(log_.newRecords(), ElementsAre(records...)) << name;
    EXPECT_TRUE(::DeleteFileA((directory + "\\1").c_str()));
    EXPECT_TRUE(::RemoveDirectoryA(directory.c_str()));
    return rc;
  };
  EXPECT_EQ(removeWith("123456789", FoundRecord(OSS_LOG_INFO, kAll, 80, ECF_FILE_NAME_TOO_LONG,
                                                {String(directory), String("123456789")})),
            ECF_FILE_NAME_TOO_LONG);
  EXPECT_EQ(
      removeWith("1234567890", refused(directory, ERROR_DIR_NOT_EMPTY, ECF_FILE_DIR_NOT_EMPTY),
                 called(30, kOne, ECF_FILE_DIR_NOT_EMPTY, directory)),
      ECF_FILE_DIR_NOT_EMPTY);
}

TEST_F(OSSDirectoryDeleteTest, NullAndOldRecordsAreRefused) {
  expectRecordChecks<OSSDirectoryDeleteParam>(Func::ossDirectoryDelete, ossDirectoryDelete);
}

}  // namespace
