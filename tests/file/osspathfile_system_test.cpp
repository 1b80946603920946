// Files by their path: delete, rename, permissions, copy.
#include "file/osspathfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

class OSSPathFileTest : public PathTest {
 protected:
  OSSPathFileTest() { writeFile(file_, "content"); }

  const std::string file_ = dir_.file("file");
};

// ---- ossFileDelete ----

TEST_F(OSSPathFileTest, DeleteRemovesAFile) {
  EXPECT_EQ(ossFileDelete(file_.c_str()), ECF_OK);
  EXPECT_FALSE(isThere(file_));
}

TEST_F(OSSPathFileTest, DeleteOfAMissingFileTellsWhatTheTestOfItTold) {
  expectRefusal(
      [&] { return ossFileDelete(missing_.c_str()); }, ECF_FILE_DOESNT_EXIST,
      CalledRecord(OSS_LOG_INFO, Func::ossFileDelete, 20, Func::ossPathTest, ECF_FILE_DOESNT_EXIST,
                   ECF_FILE_DOESNT_EXIST, {{1, String(missing_)}}));
}

TEST_F(OSSPathFileTest, DeleteKeepsADirectory) {
  for (const std::string& path : {dir_.path(), dir_.path() + '\\'})
    expectRefusal([&] { return ossFileDelete(path.c_str()); }, ECF_FILE_IS_A_DIRECTORY,
                  FoundRecord(OSS_LOG_INFO, Func::ossFileDelete, 30, ECF_FILE_IS_A_DIRECTORY,
                              {String(path)}));
  EXPECT_TRUE(isThere(file_));
}

TEST_F(OSSPathFileTest, DeleteThatTheSystemRefusesIsMapped) {
  ASSERT_TRUE(::SetFileAttributesA(file_.c_str(), FILE_ATTRIBUTE_READONLY));
  expectRefusal([&] { return ossFileDelete(file_.c_str()); }, ECF_ACCESS_DENIED,
                SystemRecord(OSS_LOG_INFO, Func::ossFileDelete, 40, SysCall::DeleteFileA,
                             ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{1, String(file_)}}));
  EXPECT_EQ(readFile(file_), "content");
  ASSERT_TRUE(::SetFileAttributesA(file_.c_str(), FILE_ATTRIBUTE_NORMAL));
}

// ---- ossFileRename ----

TEST_F(OSSPathFileTest, RenameMovesFilesAndDirectories) {
  EXPECT_EQ(ossFileRename(file_.c_str(), missing_.c_str()), ECF_OK);
  EXPECT_FALSE(isThere(file_));
  EXPECT_EQ(readFile(missing_), "content");

  const std::string directory = dir_.file("directory");
  makeDirectory(directory);
  EXPECT_EQ(ossFileRename(directory.c_str(), file_.c_str()), ECF_OK);
  EXPECT_TRUE(isDirectoryThere(file_));
}

TEST_F(OSSPathFileTest, RenameHasOneCodeAndTheRecordTellsWhy) {
  const std::string other = dir_.file("other");
  writeFile(other, "other");
  const struct {
    std::string from, to;
    DWORD error;
  } kRows[] = {
      {missing_, other, ERROR_FILE_NOT_FOUND},
      {file_, other, ERROR_ALREADY_EXISTS},
      {file_, dir_.file("no\\where"), ERROR_PATH_NOT_FOUND},
  };
  for (const auto& row : kRows)
    expectRefusal(
        [&] { return ossFileRename(row.from.c_str(), row.to.c_str()); }, ECF_FILE_DOESNT_EXIST,
        SystemRecord(OSS_LOG_INFO, Func::ossFileRename, 30, SysCall::MoveFileA, row.error,
                     ECF_FILE_DOESNT_EXIST, {{1, String(row.from)}, {2, String(row.to)}}));
  const FailingCall fails("MoveFileA", ERROR_SHARING_VIOLATION);
  expectRefusal([] { return ossFileRename("a", "b"); }, ECF_FILE_DOESNT_EXIST,
                SystemRecord(OSS_LOG_INFO, Func::ossFileRename, 30, SysCall::MoveFileA,
                             ERROR_SHARING_VIOLATION, ECF_FILE_DOESNT_EXIST,
                             {{1, String("a")}, {2, String("b")}}));
  EXPECT_EQ(readFile(file_), "content");
  EXPECT_EQ(readFile(other), "other");
}

// ---- ossFileSetOwnership, ossFileSetPermissions ----

TEST_F(OSSPathFileTest, SetOwnershipDoesNothingWhateverItsArguments) {
  EXPECT_EQ(ossFileSetOwnership(), ECF_OK);
  EXPECT_EQ(ossFileSetOwnership(file_.c_str(), uint64_t{1}, uint64_t{2}), ECF_OK);
  EXPECT_EQ(ossFileSetOwnership(static_cast<const char*>(nullptr)), ECF_OK);
}

TEST_F(OSSPathFileTest, SetPermissionsHandsTheModeOn) {
  std::vector<int> modes;
  ImportHook hook("_chmod", [&](Call& call) {
    EXPECT_STREQ(call.argument<const char*>(0), "path");
    modes.push_back(call.argument<int>(1));
    return 0;
  });
  for (const uint64_t mode : {uint64_t{0}, uint64_t{0777}, uint64_t{0400}, uint64_t{7} << 32})
    EXPECT_EQ(ossFileSetPermissions("path", mode), ECF_OK);
  EXPECT_THAT(modes, ElementsAre(0600, 0777, 0400, 0));
}

TEST_F(OSSPathFileTest, SetPermissionsSetsAndClearsTheWriteBit) {
  EXPECT_EQ(ossFileSetPermissions(file_.c_str(), 0400), ECF_OK);
  EXPECT_NE(::GetFileAttributesA(file_.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
  EXPECT_EQ(ossFileSetPermissions(file_.c_str(), 0), ECF_OK);
  EXPECT_EQ(::GetFileAttributesA(file_.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST_F(OSSPathFileTest, SetPermissionsThatTheSystemRefusesIsMappedByItsLastError) {
  expectRefusal([&] { return ossFileSetPermissions(missing_.c_str(), 0); }, ECF_FILE_DOESNT_EXIST,
                SystemRecord(OSS_LOG_INFO, Func::ossFileSetPermissions, 20, SysCall::Chmod,
                             ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST,
                             {{1, String(missing_)}, {2, Hex(uint64_t{0600})}}));
  const FailingRuntimeCall fails("_chmod", ENOENT, ERROR_ACCESS_DENIED);
  expectRefusal([] { return ossFileSetPermissions("path", 0777); }, ECF_ACCESS_DENIED,
                SystemRecord(OSS_LOG_INFO, Func::ossFileSetPermissions, 20, SysCall::Chmod,
                             ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED,
                             {{1, String("path")}, {2, Hex(uint64_t{0777})}}));
}

// ---- ossFileCopy ----

TEST_F(OSSPathFileTest, CopyMakesASecondFile) {
  EXPECT_EQ(ossFileCopy(file_.c_str(), missing_.c_str()), ECF_OK);
  EXPECT_EQ(readFile(file_), "content");
  EXPECT_EQ(readFile(missing_), "content");
}

TEST_F(OSSPathFileTest, CopyOntoTheSamePathIsRefusedByteForByte) {
  for (const std::string& path : {file_, missing_, std::string("a"), std::string("")})
    expectRefusal([&] { return ossFileCopy(path.c_str(), path.c_str()); }, ECF_INVALID_PARAMETER,
                  FoundRecord(OSS_LOG_INFO, Func::ossFileCopy, 10, ECF_INVALID_PARAMETER,
                              {String(path), String(path)}));
  const std::string otherCase = dir_.file("FILE");
  expectRefusal(
      [&] { return ossFileCopy(file_.c_str(), otherCase.c_str()); }, ECF_FILE_EXISTS,
      FoundRecord(OSS_LOG_INFO, Func::ossFileCopy, 20, ECF_FILE_EXISTS, {String(otherCase)}));
}

TEST_F(OSSPathFileTest, CopyNeverReplacesWhatIsThere) {
  const std::string other = dir_.file("other");
  writeFile(other, "other");
  for (const std::string& target : {other, dir_.path()})
    expectRefusal(
        [&] { return ossFileCopy(file_.c_str(), target.c_str()); }, ECF_FILE_EXISTS,
        FoundRecord(OSS_LOG_INFO, Func::ossFileCopy, 20, ECF_FILE_EXISTS, {String(target)}));
  EXPECT_EQ(readFile(other), "other");
}

TEST_F(OSSPathFileTest, CopyAsksTheSystemNotToReplace) {
  ImportHook hook("CopyFileA", [](Call& call) {
    EXPECT_STREQ(call.argument<const char*>(0), "from");
    EXPECT_STREQ(call.argument<const char*>(1), "to");
    EXPECT_EQ(call.argument<BOOL>(2), TRUE);
    return TRUE;
  });
  EXPECT_EQ(ossFileCopy("from", "to"), ECF_OK);
}

TEST_F(OSSPathFileTest, CopyThatTheSystemRefusesIsLoggedWhereItHappensAndOnceMore) {
  const std::string target = dir_.file("target");
  const struct {
    std::string from;
    DWORD error;
    OSSErr code;
  } kRows[] = {{missing_, ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST},
               {dir_.path(), ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED}};
  for (const auto& row : kRows)
    expectRefusal([&] { return ossFileCopy(row.from.c_str(), target.c_str()); }, row.code,
                  SystemRecord(OSS_LOG_INFO, Func::oss_copy, 10, SysCall::CopyFileA, row.error,
                               row.code, {{1, String(row.from)}, {2, String(target)}}),
                  CalledRecord(OSS_LOG_INFO, Func::ossFileCopy, 30, Func::oss_copy, row.code,
                               row.code, {{1, String(row.from)}, {2, String(target)}}));
  EXPECT_FALSE(isThere(target));
}

TEST_F(OSSPathFileTest, CopyThatFailsUnexpectedlyIsAnErrorInBothRecords) {
  const FailingCall fails("CopyFileA", ERROR_SHARING_VIOLATION);
  expectRefusal(
      [&] { return ossFileCopy(file_.c_str(), missing_.c_str()); }, ECF_FILE_SHARE,
      SystemRecord(OSS_LOG_ERROR, Func::oss_copy, 10, SysCall::CopyFileA, ERROR_SHARING_VIOLATION,
                   ECF_FILE_SHARE, {{1, String(file_)}, {2, String(missing_)}}),
      CalledRecord(OSS_LOG_ERROR, Func::ossFileCopy, 30, Func::oss_copy, ECF_FILE_SHARE,
                   ECF_FILE_SHARE, {{1, String(file_)}, {2, String(missing_)}}));
}

// A target whose test is refused is one that does not exist.
TEST_F(OSSPathFileTest, CopyGoesOnWhereTheTargetCannotBeTested) {
  const std::string target = dir_.file("<");
  EXPECT_EQ(ossFileCopy(file_.c_str(), target.c_str()), ECF_FILE_INVALID_NAME);
  EXPECT_EQ(log_.newRecords().size(), 4u);
}

// ---- Null paths ----

TEST_F(OSSPathFileTest, NullPathsAreRefused) {
  const char* const path = missing_.c_str();
  const auto refused = [&](Func function, auto operation) {
    expectRefusal(operation, ECF_INVALID_PARAMETER, nullRecord(function));
  };
  refused(Func::ossFileDelete, [&] { return ossFileDelete(nullptr); });
  refused(Func::ossFileRename, [&] { return ossFileRename(nullptr, path); });
  refused(Func::ossFileRename, [&] { return ossFileRename(path, nullptr); });
  refused(Func::ossFileSetPermissions, [&] { return ossFileSetPermissions(nullptr, 0); });
  refused(Func::ossFileCopy, [&] { return ossFileCopy(nullptr, path); });
  refused(Func::ossFileCopy, [&] { return ossFileCopy(path, nullptr); });
}

}  // namespace
