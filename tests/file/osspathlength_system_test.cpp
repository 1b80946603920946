// Trees whose directories have the longest paths: what 258 bytes still allow, because "\*" behind
// them is the longest pattern, 259 and 260 do not. Nothing is taken for the whole that is not.
#include "file/ossdirectoryfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr Func kCopy = Func::ossDirectoryCopy;
constexpr Func kRemove = Func::oss_directory_delete_recursive;

class LongestDirectory : public PathTest {
 protected:
  // Makes one, with a directory around it that holds nothing else.
  void make(size_t length) {
    path_ = pathOfLength(length);
    around_ = path_.substr(0, path_.rfind('\\'));
    makeDirectory(path_);
  }

  OSSErr copy(const std::string& from) { return ossDirectoryCopy(from.c_str(), to_.c_str()); }

  // The listing's pattern is cut behind the separator, and nothing matches.
  LogEvidence unlisted() const {
    return SystemRecord(OSS_LOG_INFO, Func::OSSDirectoryListing_begin, 80, SysCall::FindFirstFileA,
                        ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST,
                        {{1, String(path_.substr(0, 259) + '\\')}});
  }
  static LogEvidence step(Func function, uint64_t probe, Func called,
                          std::initializer_list<LogItem> items) {
    return CalledRecord(OSS_LOG_INFO, function, probe, called, ECF_FILE_DOESNT_EXIST,
                        ECF_FILE_DOESNT_EXIST, items);
  }

  std::string path_, around_;
  const std::string to_ = dir_.file("to");
};

TEST_F(LongestDirectory, Of258BytesIsCopiedAndRemoved) {
  make(258);
  EXPECT_EQ(copy(path_), ECF_OK);
  EXPECT_THAT(treeOf(to_), IsEmpty());
  EXPECT_EQ(removeDirectory(to_), ECF_OK);
  EXPECT_EQ(copy(around_), ECF_OK);
  EXPECT_EQ(treeOf(to_), (Tree{{path_.substr(around_.size() + 1), "<directory>"}}));

  EXPECT_EQ(removeDirectory(path_), ECF_OK);
  EXPECT_FALSE(isThere(path_));
  makeDirectory(path_);
  EXPECT_EQ(removeDirectory(around_), ECF_OK);
  EXPECT_FALSE(isThere(around_));
}

TEST_F(LongestDirectory, Of259Or260BytesIsNeitherCopiedNorRemoved) {
  for (const size_t length : {259u, 260u}) {
    SCOPED_TRACE(length);
    make(length);
    expectRefusal(
        [&] { return copy(path_); }, ECF_FILE_DOESNT_EXIST, unlisted(),
        step(kCopy, 40, Func::OSSDirectoryListing_begin, {{1, String(path_)}, {2, String(to_)}}));
    EXPECT_THAT(treeOf(to_), IsEmpty());
    EXPECT_EQ(removeDirectory(to_), ECF_OK);
    expectRefusal([&] { return removeDirectory(path_); }, ECF_FILE_DOESNT_EXIST, unlisted(),
                  step(kRemove, 50, Func::OSSDirectoryListing_begin, {{1, String(path_)}}));
    EXPECT_TRUE(isDirectoryThere(path_));
    EXPECT_TRUE(::RemoveDirectoryA(path_.c_str()));
  }
}

TEST_F(LongestDirectory, Of259BytesStopsTheOperationOnWhatIsAroundIt) {
  make(259);
  const std::string copied = to_ + path_.substr(around_.size());
  expectRefusal(
      [&] { return copy(around_); }, ECF_FILE_DOESNT_EXIST, unlisted(),
      step(kCopy, 40, Func::OSSDirectoryListing_begin, {{1, String(path_)}, {2, String(copied)}}),
      step(kCopy, 50, kCopy, {{1, String(path_)}, {2, String(copied)}}));
  expectRefusal([&] { return removeDirectory(around_); }, ECF_FILE_DOESNT_EXIST, unlisted(),
                step(kRemove, 50, Func::OSSDirectoryListing_begin, {{1, String(path_)}}),
                step(kRemove, 20, kRemove, {{1, String(path_)}}));
  EXPECT_TRUE(isDirectoryThere(path_));
}

TEST_F(LongestDirectory, Of260BytesIsTooLongForTheOperationOnWhatIsAroundIt) {
  make(260);
  const std::string name = path_.substr(around_.size() + 1);
  expectRefusal([&] { return copy(around_); }, ECF_FILE_NAME_TOO_LONG,
                FoundRecord(OSS_LOG_INFO, kCopy, 80, ECF_FILE_NAME_TOO_LONG,
                            {String(around_), String(to_), String(name)}));
  EXPECT_THAT(treeOf(to_), IsEmpty());
  expectRefusal([&] { return removeDirectory(around_); }, ECF_FILE_NAME_TOO_LONG,
                FoundRecord(OSS_LOG_INFO, kRemove, 80, ECF_FILE_NAME_TOO_LONG,
                            {String(around_), String(name)}));
  EXPECT_TRUE(isDirectoryThere(path_));
}

}  // namespace
