// The operations on paths of every form: names that look odd, separators at the end, forward
// slashes, roots, shares, devices, and texts of no length.
#include <algorithm>

#include "file/ossdirectoryfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;

namespace {

class PathForms : public PathTest {
 protected:
  static OSSErr inform(const std::string& path) {
    OSSFileInfoParam param;
    param.path = path.c_str();
    OSSFileInfo info;
    return ossFileGetInfo(&param, &info);
  }
  static OSSErr test(const std::string& path) {
    OSSPathTestParam param;
    param.path = path.c_str();
    return ossPathTest(&param);
  }
};

// One name through every operation: a directory of that name with a file of that name in it.
TEST_F(PathForms, NamesThatLookOddAreNamesLikeOthers) {
  for (const std::string& name : {
           std::string("a blank, and more"),
           std::string(" ahead"),
           std::string("a.b..c"),
           std::string(".hidden"),
           std::string("...a"),
           std::string("(100%) & 'so' #1;~"),
           std::string("\xE4\xF6\xFC"),
           std::string("\xDF\xE9"),
       }) {
    SCOPED_TRACE(name);
    const std::string directory = dir_.file(name);
    const std::string file = directory + '\\' + name;
    const std::string copied = dir_.file("copied " + name);
    EXPECT_EQ(create(directory, OSS_DIRECTORY_CREATE_ONE), ECF_OK);
    writeFile(file, name);
    EXPECT_TRUE(ossIsFile(file.c_str()));
    EXPECT_TRUE(ossIsDirectory(directory.c_str()));
    EXPECT_TRUE(ossPathExists(file.c_str()));
    EXPECT_EQ(inform(file), ECF_OK);
    EXPECT_EQ(ossFileSetPermissions(file.c_str(), 0), ECF_OK);
    EXPECT_TRUE(ossComparePaths(file.c_str(), file.c_str()));

    char part[260];
    EXPECT_EQ(ossBaseName(file.c_str(), part, sizeof part), ECF_OK);
    EXPECT_EQ(part, name);
    EXPECT_EQ(ossDirectoryName(file.c_str(), part, sizeof part), ECF_OK);
    EXPECT_EQ(part, directory);

    EXPECT_EQ(ossDirectoryCopy(directory.c_str(), copied.c_str()), ECF_OK);
    EXPECT_EQ(readFile(copied + '\\' + name), name);
    EXPECT_EQ(ossFileCopy(file.c_str(), (file + '2').c_str()), ECF_OK);
    EXPECT_EQ(ossFileRename((file + '2').c_str(), (file + '3').c_str()), ECF_OK);
    EXPECT_EQ(ossFileDelete((file + '3').c_str()), ECF_OK);
    for (const std::string& tree : {directory, copied})
      EXPECT_EQ(removeDirectory(tree, OSS_DIRECTORY_DELETE_RECURSIVELY), ECF_OK);
    EXPECT_THAT(dir_.names(), IsEmpty());
  }
}

TEST_F(PathForms, AForwardSlashIsTheSystemsSeparatorAndNotOurs) {
  std::string path = dir_.file("a/b");
  std::replace(path.begin(), path.end(), '\\', '/');
  const std::string around = path.substr(0, path.size() - 2);
  EXPECT_EQ(create(around, OSS_DIRECTORY_CREATE_MISSING), ECF_OK);
  EXPECT_EQ(create(path, OSS_DIRECTORY_CREATE_MISSING), ECF_OK);
  EXPECT_TRUE(ossIsDirectory(path.c_str()));

  char part[260];
  EXPECT_EQ(ossBaseName(path.c_str(), part, sizeof part), ECF_OK);
  EXPECT_EQ(part, path);
  EXPECT_EQ(ossDirectoryName(path.c_str(), part, sizeof part), ECF_OK);
  EXPECT_STREQ(part, ".");
  EXPECT_EQ(ossDirectoryCopy(around.c_str(), dir_.file("copy").c_str()), ECF_OK);
  EXPECT_EQ(treeOf(dir_.file("copy")), (Tree{{"b", "<directory>"}}));
  EXPECT_EQ(removeDirectory(around, OSS_DIRECTORY_DELETE_RECURSIVELY), ECF_OK);
  EXPECT_THAT(dir_.names(), ElementsAre("copy"));
}

TEST_F(PathForms, AnEmptyPathIsNowhere) {
  EXPECT_FALSE(ossIsFile(""));
  EXPECT_FALSE(ossIsDirectory(""));
  EXPECT_FALSE(ossPathExists(""));
  EXPECT_EQ(log_.newRecords().size(), 0u);

  const std::string file = dir_.file("file");
  writeFile(file, "content");
  const char* const path = file.c_str();
  EXPECT_EQ(ossFileDelete(""), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(ossFileRename("", path), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(ossFileRename(path, ""), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(inform(""), ECF_FILE_DOESNT_EXIST);
  EXPECT_EQ(ossFileCopy("", ""), ECF_INVALID_PARAMETER);
  EXPECT_EQ(removeDirectory("", OSS_DIRECTORY_DELETE_RECURSIVELY), ECF_FILE_NOT_A_DIRECTORY);
  EXPECT_EQ(log_.newRecords().size(), 6u);

  // Systems differ in what they call it.
  const auto isNowhere =
      AnyOf(ECF_FILE_DOESNT_EXIST, ECF_FILE_PATH_DOESNT_EXIST, ECF_FILE_INVALID_NAME);
  EXPECT_THAT(ossFileSetPermissions("", 0), isNowhere);
  EXPECT_THAT(removeDirectory("", 0), isNowhere);
  EXPECT_THAT(create("", OSS_DIRECTORY_CREATE_ONE), isNowhere);
  EXPECT_THAT(ossFileCopy("", dir_.file("copy").c_str()), isNowhere);
  EXPECT_THAT(ossFileCopy(path, ""), isNowhere);
  EXPECT_EQ(log_.newRecords().size(), 7u);
  EXPECT_EQ(readFile(file), "content");
  EXPECT_THAT(dir_.names(), ElementsAre("file"));
}

// What the system is given of a path that is none of a file.
TEST_F(PathForms, RootsSharesAndDevicesAreHandedOnAsTheyAre) {
  for (const std::string& path :
       {std::string(R"(C:\)"), std::string("C:"), std::string(R"(\)"), std::string("/"),
        std::string(R"(\\server\share)"), std::string(R"(\\server\share\)"),
        std::string(R"(\\.\C:)"), std::string(R"(\\.\PhysicalDrive0)"),
        std::string(R"(\\?\Volume{1}\)"), std::string(R"(\\?\C:\file)"), std::string("NUL")}) {
    SCOPED_TRACE(path);
    const char* const text = path.c_str();
    std::vector<std::string> given;
    const auto refuse = [&](Call& call) {
      given.emplace_back(call.argument<const char*>(0));
      ::SetLastError(ERROR_ACCESS_DENIED);
      return 0;
    };
    const ImportHook access("_access", refuse);
    const ImportHook deletes("DeleteFileA", refuse);
    const ImportHook stat("_stat64", [](Call&) { return -1; });
    const ImportHook moves("MoveFileA", refuse);
    const ImportHook creates("CreateDirectoryA", refuse);
    const ImportHook removes("RemoveDirectoryA", refuse);
    const ImportHook modes("_chmod", refuse);
    EXPECT_EQ(test(path), ECF_OK);
    EXPECT_EQ(ossFileDelete(text), ECF_ACCESS_DENIED);
    EXPECT_EQ(ossFileRename(text, "b"), ECF_FILE_DOESNT_EXIST);
    EXPECT_EQ(create(path, OSS_DIRECTORY_CREATE_ONE), ECF_ACCESS_DENIED);
    EXPECT_EQ(removeDirectory(path, 0), ECF_ACCESS_DENIED);
    EXPECT_EQ(ossFileSetPermissions(text, 0), ECF_OK);
    EXPECT_EQ(ossFileCopy(text, "b"), ECF_FILE_EXISTS);
    EXPECT_THAT(given, ElementsAre(path, path, path, path, path, path, path, "b"));
    EXPECT_EQ(log_.newRecords().size(), 5u);
  }
}

// A separator at the end is left away for the question only whether it is a directory.
TEST_F(PathForms, ASeparatorAtTheEndOfAFileMakesItNoFile) {
  const std::string file = dir_.file("file");
  writeFile(file, "content");
  for (const char* const end : {"\\", "/", "\\\\"}) {
    SCOPED_TRACE(end);
    const std::string path = file + end;
    EXPECT_FALSE(ossIsFile(path.c_str()));
    EXPECT_FALSE(ossIsDirectory(path.c_str()));
    EXPECT_NE(ossFileDelete(path.c_str()), ECF_OK);
    EXPECT_NE(ossFileCopy(path.c_str(), dir_.file("copy").c_str()), ECF_OK);
    EXPECT_EQ(removeDirectory(path, OSS_DIRECTORY_DELETE_RECURSIVELY), ECF_FILE_NOT_A_DIRECTORY);
    EXPECT_FALSE(log_.newRecords().empty());
  }
  EXPECT_EQ(readFile(file), "content");
}

}  // namespace
