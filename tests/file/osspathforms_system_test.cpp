// The operations on paths of every form: names that look odd, separators at the end, forward
// slashes, roots, shares, devices, and texts of no length.
#include <algorithm>
#include <utility>

#include "file/ossdirectoryfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

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

// What the system is given of one where a directory is expected.
TEST_F(PathForms, RootsSharesAndDevicesAreListedAndCopiedInTheirOwnForm) {
  const struct {
    const char *path, *asDirectory, *pattern;
  } kRows[] = {
      {R"(C:\)", R"(C:\)", R"(C:\*)"},
      {"C:", "C:", R"(C:\*)"},
      {R"(\)", R"(\)", R"(\*)"},
      {"/", "/", R"(\*)"},
      {R"(\\server\share)", R"(\\server\share)", R"(\\server\share\*)"},
      {R"(\\server\share\)", R"(\\server\share)", R"(\\server\share\*)"},
      {R"(\\.\C:)", R"(\\.\C:)", R"(\\.\C:\*)"},
      {R"(\\.\PhysicalDrive0)", R"(\\.\PhysicalDrive0)", R"(\\.\PhysicalDrive0\*)"},
      {R"(\\?\Volume{1}\)", R"(\\?\Volume{1})", R"(\\?\Volume{1}\*)"},
      {R"(\\?\C:\dir)", R"(\\?\C:\dir)", R"(\\?\C:\dir\*)"},
  };
  for (const auto& row : kRows) {
    const std::string path = row.path;
    SCOPED_TRACE(path);
    const char* const text = row.path;
    std::vector<std::string> given;
    // Every call writes down what it is given, sets the error and answers.
    const auto answer = [&](DWORD error, Word result) {
      return [&given, error, result](Call& call) {
        given.emplace_back(call.argument<const char*>(0));
        ::SetLastError(error);
        return result;
      };
    };
    const ImportHook access("_access", answer(ERROR_FILE_NOT_FOUND, kFailed));
    const ImportHook stat("_stat64", [&](Call& call) {
      given.emplace_back(call.argument<const char*>(0));
      auto* const status = call.argument<struct _stat64*>(1);
      *status = {};
      status->st_mode = OSS_FILE_TYPE_DIRECTORY;
      return 0;
    });
    // The log asks as well, for its file.
    const ImportHook attributes("GetFileAttributesA", [&](Call& call) {
      if (call.argument<const char*>(0) != path) return call.passOn();
      given.push_back(path);
      return Word{FILE_ATTRIBUTE_DIRECTORY};
    });
    const ImportHook finds("FindFirstFileA", answer(ERROR_ACCESS_DENIED, kAllOnes));
    const ImportHook creates("CreateDirectoryA", answer(0, TRUE));
    const ImportHook copies("CopyFileA", [&](Call& call) {
      given.emplace_back(call.argument<const char*>(1));
      ::SetLastError(ERROR_ACCESS_DENIED);
      return FALSE;
    });
    const ImportHook sets("SetCurrentDirectoryA", answer(ERROR_ACCESS_DENIED, FALSE));
    const ImportHook shortens("GetShortPathNameA", answer(ERROR_ACCESS_DENIED, 0));
    const auto taken = [&] { return std::exchange(given, {}); };

    EXPECT_EQ(inform(path), ECF_OK);
    EXPECT_THAT(taken(), ElementsAre(path));
    EXPECT_EQ(ossDirectorySetCurrent(text), ECF_ACCESS_DENIED);
    EXPECT_THAT(taken(), ElementsAre(path));
    EXPECT_TRUE(ossComparePaths(text, text));
    EXPECT_THAT(taken(), ElementsAre(path, path));
    EXPECT_EQ(removeDirectory(path), ECF_ACCESS_DENIED);
    EXPECT_THAT(taken(), ElementsAre(row.asDirectory, path, row.pattern));
    EXPECT_EQ(ossDirectoryCopy(text, "b"), ECF_ACCESS_DENIED);
    EXPECT_THAT(taken(), ElementsAre("b", row.asDirectory, path, "b", row.pattern));
    EXPECT_EQ(ossDirectoryCopy("a", text), ECF_ACCESS_DENIED);
    EXPECT_THAT(taken(), ElementsAre(path, "a", "a", path, "a\\*"));
    EXPECT_EQ(ossFileCopy("a", text), ECF_ACCESS_DENIED);
    EXPECT_THAT(taken(), ElementsAre(path, path));
    EXPECT_EQ(log_.newRecords().size(), 9u);
  }
}

// Our own operations on text keep what the system drops.
TEST_F(PathForms, ABlankOrADotAtTheEndIsDroppedByTheSystem) {
  for (const std::string& end :
       {std::string(" "), std::string("."), std::string(". ."), std::string("...")}) {
    SCOPED_TRACE(end);
    const auto odd = [&](const char* name) { return dir_.file(name) + end; };
    EXPECT_EQ(create(odd("directory"), OSS_DIRECTORY_CREATE_MISSING), ECF_OK);
    EXPECT_TRUE(ossIsDirectory(odd("directory").c_str()));
    writeFile(dir_.file("file"), "content");
    const std::string file = odd("file");
    EXPECT_TRUE(ossIsFile(file.c_str()));
    EXPECT_TRUE(ossPathExists(file.c_str()));
    EXPECT_EQ(inform(file), ECF_OK);
    EXPECT_EQ(ossFileSetPermissions(file.c_str(), 0), ECF_OK);

    char part[260];
    EXPECT_EQ(ossBaseName(file.c_str(), part, sizeof part), ECF_OK);
    EXPECT_EQ(part, "file" + end);

    EXPECT_EQ(ossFileCopy(file.c_str(), odd("copy").c_str()), ECF_OK);
    EXPECT_EQ(ossFileRename(file.c_str(), odd("renamed").c_str()), ECF_OK);
    EXPECT_EQ(ossDirectoryCopy(dir_.file("directory").c_str(), odd("tree").c_str()), ECF_OK);
    EXPECT_THAT(dir_.names(), ElementsAre("copy", "directory", "renamed", "tree"));
    EXPECT_EQ(ossFileCopy(dir_.file("copy").c_str(), odd("copy").c_str()), ECF_FILE_EXISTS);
    EXPECT_EQ(log_.newRecords().size(), 1u);

    EXPECT_EQ(ossFileDelete(odd("copy").c_str()), ECF_OK);
    EXPECT_EQ(ossFileDelete(odd("renamed").c_str()), ECF_OK);
    EXPECT_EQ(removeDirectory(odd("directory"), 0), ECF_OK);
    EXPECT_EQ(removeDirectory(odd("tree"), 0), ECF_OK);
    EXPECT_THAT(dir_.names(), IsEmpty());
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
    // Whether nothing is there or the name is none, the run-time decides.
    const OSSErr deleted = ossFileDelete(path.c_str());
    EXPECT_THAT(deleted, AnyOf(ECF_FILE_DOESNT_EXIST, ECF_INVALID_PARAMETER));
    EXPECT_THAT(log_.newRecords(),
                Contains(CalledRecord(OSS_LOG_INFO, Func::ossFileDelete, 20, Func::ossPathTest,
                                      deleted, deleted, {{1, String(path)}})));

    const std::string copy = dir_.file("copy");
    EXPECT_EQ(ossFileCopy(path.c_str(), copy.c_str()), ECF_FILE_INVALID_NAME);
    EXPECT_THAT(
        log_.newRecords(),
        ElementsAre(
            SystemRecord(OSS_LOG_INFO, Func::oss_copy, 10, SysCall::CopyFileA, ERROR_INVALID_NAME,
                         ECF_FILE_INVALID_NAME, {{1, String(path)}, {2, String(copy)}}),
            CalledRecord(OSS_LOG_INFO, Func::ossFileCopy, 30, Func::oss_copy, ECF_FILE_INVALID_NAME,
                         ECF_FILE_INVALID_NAME, {{1, String(path)}, {2, String(copy)}})));

    EXPECT_EQ(removeDirectory(path, OSS_DIRECTORY_DELETE_RECURSIVELY), ECF_FILE_NOT_A_DIRECTORY);
    EXPECT_FALSE(log_.newRecords().empty());
  }
  EXPECT_EQ(readFile(file), "content");
}

}  // namespace
