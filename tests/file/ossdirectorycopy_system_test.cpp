// The copy of a directory tree: what arrives, what is refused, and what a failure leaves behind.
#include "file/ossdirectoryfixture.h"
#include "harness/childprocess.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr Func kCopy = Func::ossDirectoryCopy;

class DirectoryCopy : public Test {
 protected:
  DirectoryCopy() { makeDirectory(from_); }

  OSSErr copy() { return ossDirectoryCopy(from_.c_str(), to_.c_str()); }

  void makeFile(const std::string& name, const std::string& bytes = "") const {
    writeFile(from_ + '\\' + name, bytes);
  }
  void makeDirectoryWithin(const std::string& name) const { makeDirectory(from_ + '\\' + name); }

  // Runs the copy with paths that must be refused with this code, this one record, and nothing
  // done.
  void expectRefusal(const std::string& from, const std::string& to, OSSErr code, uint64_t probe) {
    const Tree before = treeOf(dir_.path());
    EXPECT_EQ(ossDirectoryCopy(from.c_str(), to.c_str()), code);
    EXPECT_THAT(log_.newRecords(), ElementsAre(FoundRecord(OSS_LOG_INFO, kCopy, probe, code,
                                                           {String(from), String(to)})));
    EXPECT_EQ(treeOf(dir_.path()), before);
  }

  // A step that failed, as this operation tells of it.
  LogEvidence stepRecord(uint64_t probe, Func step, OSSErr code, const std::string& name = "") {
    const uint64_t level = code == ECF_FILE_SHARE ? OSS_LOG_ERROR : OSS_LOG_INFO;
    return CalledRecord(level, kCopy, probe, step, code, code,
                        {{1, String(from_ + name)}, {2, String(to_ + name)}});
  }

  TempDirectory dir_;
  const std::string from_ = dir_.file("from");
  const std::string to_ = dir_.file("to");
  LogCapture log_;
};

// ---- What arrives ----

TEST_F(DirectoryCopy, OfAnEmptyDirectoryIsEmpty) {
  EXPECT_EQ(copy(), ECF_OK);
  EXPECT_THAT(dir_.names(), ElementsAre("from", "to"));
  EXPECT_THAT(treeOf(to_), IsEmpty());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(DirectoryCopy, HoldsEveryFileAndDirectory) {
  makeFile("a", "first");
  makeDirectoryWithin("b");
  makeFile("b\\c", std::string(100'000, 'c'));
  makeDirectoryWithin("b\\empty");
  makeFile("d");
  EXPECT_EQ(copy(), ECF_OK);
  EXPECT_EQ(treeOf(to_), (Tree{{"a", "first"},
                               {"b", "<directory>"},
                               {"b\\c", std::string(100'000, 'c')},
                               {"b\\empty", "<directory>"},
                               {"d", ""}}));
  EXPECT_EQ(treeOf(from_), treeOf(to_));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(DirectoryCopy, GoesDepthFirstInTheOrderOfTheListing) {
  makeFile("a");
  makeDirectoryWithin("b");
  makeFile("b\\c");
  makeFile("d");
  std::vector<std::string> steps;
  const ImportHook directories("CreateDirectoryA", [&](Call& call) {
    steps.emplace_back(call.argument<const char*>(0));
    return call.passOn();
  });
  const ImportHook files("CopyFileA", [&](Call& call) {
    steps.emplace_back(call.argument<const char*>(0));
    steps.emplace_back(call.argument<const char*>(1));
    EXPECT_TRUE(call.argument<BOOL>(2));
    return call.passOn();
  });
  EXPECT_EQ(copy(), ECF_OK);
  EXPECT_THAT(steps, ElementsAre(to_, from_ + "\\a", to_ + "\\a", to_ + "\\b", from_ + "\\b\\c",
                                 to_ + "\\b\\c", from_ + "\\d", to_ + "\\d"));
}

TEST_F(DirectoryCopy, BesideItsSourceMayBeginWithTheSourcesName) {
  makeFile("a", "bytes");
  const std::string beside = from_ + "2";
  EXPECT_EQ(ossDirectoryCopy(from_.c_str(), beside.c_str()), ECF_OK);
  EXPECT_EQ(treeOf(beside), (Tree{{"a", "bytes"}}));
}

// ---- Refusals ----

TEST_F(DirectoryCopy, NeedsBothPaths) {
  EXPECT_EQ(ossDirectoryCopy(nullptr, to_.c_str()), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossDirectoryCopy(from_.c_str(), nullptr), ECF_INVALID_PARAMETER);
  const LogEvidence refusal = FoundRecord(OSS_LOG_ERROR, kCopy, 1111, ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.records(), ElementsAre(refusal, refusal));
  EXPECT_THAT(dir_.names(), ElementsAre("from"));
}

TEST_F(DirectoryCopy, OntoItselfIsRefused) {
  makeFile("a", "bytes");
  expectRefusal(from_, from_, ECF_INVALID_PARAMETER, 10);
}

// Unlike the copy of a file, which tells that its target exists.
TEST_F(DirectoryCopy, OntoAnythingThatExistsIsRefused) {
  makeFile("a", "bytes");
  writeFile(to_, "file");
  makeDirectory(dir_.file("directory"));
  expectRefusal(from_, to_, ECF_INVALID_PARAMETER, 10);
  expectRefusal(from_, dir_.file("directory"), ECF_INVALID_PARAMETER, 10);
  expectRefusal(from_, from_ + '\\', ECF_INVALID_PARAMETER, 10);
}

TEST_F(DirectoryCopy, IntoItsOwnSourceIsRefused) {
  makeFile("a", "bytes");
  expectRefusal(from_, from_ + "\\copy", ECF_INVALID_PARAMETER, 10);
  expectRefusal(from_ + '\\', from_ + "\\copy", ECF_INVALID_PARAMETER, 10);
  expectRefusal(from_, dir_.file("FROM\\copy"), ECF_INVALID_PARAMETER, 10);
}

TEST_F(DirectoryCopy, OfAFileOrOfNothingIsRefused) {
  makeFile("a", "bytes");
  expectRefusal(from_ + "\\a", to_, ECF_FILE_NOT_A_DIRECTORY, 70);
  expectRefusal(dir_.file("missing"), to_, ECF_FILE_NOT_A_DIRECTORY, 70);
  expectRefusal("", to_, ECF_FILE_NOT_A_DIRECTORY, 70);
}

// ---- Steps that fail ----

// The first call asks whether the source is a directory, the second for its information.
TEST_F(DirectoryCopy, NeedsTheInformationOfItsSource) {
  {
    int calls = 0;
    const ImportHook stat("_stat64", [&](Call& call) -> Word {
      if (++calls != 2) return call.passOn();
      errno = ENOENT;
      return kAllOnes;
    });
    EXPECT_EQ(copy(), ECF_FILE_DOESNT_EXIST);
  }
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1], stepRecord(20, Func::ossGetFileInfo, ECF_FILE_DOESNT_EXIST));
  EXPECT_THAT(dir_.names(), ElementsAre("from"));
}

// The C run-time finds no directory under a name that ends in a separator.
TEST_F(DirectoryCopy, OfANameThatEndsInASeparatorIsRefused) {
  const std::string from = from_ + '\\';
  EXPECT_EQ(ossDirectoryCopy(from.c_str(), to_.c_str()), ECF_FILE_DOESNT_EXIST);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1],
            CalledRecord(OSS_LOG_INFO, kCopy, 20, Func::ossGetFileInfo, ECF_FILE_DOESNT_EXIST,
                         ECF_FILE_DOESNT_EXIST, {{1, String(from)}, {2, String(to_)}}));
  EXPECT_THAT(dir_.names(), ElementsAre("from"));
}

TEST_F(DirectoryCopy, NeedsTheDirectoryAroundItsTarget) {
  const std::string to = dir_.file("missing\\to");
  EXPECT_EQ(ossDirectoryCopy(from_.c_str(), to.c_str()), ECF_FILE_PATH_DOESNT_EXIST);
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, Func::ossDirectoryCreate, 40,
                                       SysCall::CreateDirectoryA, ERROR_PATH_NOT_FOUND,
                                       ECF_FILE_PATH_DOESNT_EXIST, {{1, String(to)}}),
                          CalledRecord(OSS_LOG_INFO, kCopy, 30, Func::ossDirectoryCreate,
                                       ECF_FILE_PATH_DOESNT_EXIST, ECF_FILE_PATH_DOESNT_EXIST,
                                       {{1, String(from_)}, {2, String(to)}})));
  EXPECT_THAT(dir_.names(), ElementsAre("from"));
}

TEST_F(DirectoryCopy, NeedsTheListingOfItsSource) {
  {
    const FailingCall fails("FindFirstFileA", ERROR_ACCESS_DENIED, {.result = kAllOnes});
    EXPECT_EQ(copy(), ECF_ACCESS_DENIED);
  }
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSDirectoryListing_begin, 80,
                                       SysCall::FindFirstFileA, ERROR_ACCESS_DENIED,
                                       ECF_ACCESS_DENIED, {{1, String(from_ + "\\*")}}),
                          stepRecord(40, Func::OSSDirectoryListing_begin, ECF_ACCESS_DENIED)));
  // The target is created before the source is read.
  EXPECT_THAT(dir_.names(), ElementsAre("from", "to"));
}

TEST_F(DirectoryCopy, StopsAtAFileThatCannotBeReadAndLeavesWhatIsDone) {
  makeFile("a", "before");
  makeDirectoryWithin("b");
  makeFile("b\\c", "before");
  makeFile("b\\held", "held");
  makeFile("b\\later", "after");
  makeFile("d", "after");
  const HANDLE held = ::CreateFileA((from_ + "\\b\\held").c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  EXPECT_EQ(copy(), ECF_FILE_SHARE);
  ::CloseHandle(held);

  EXPECT_EQ(treeOf(to_), (Tree{{"a", "before"}, {"b", "<directory>"}, {"b\\c", "before"}}));
  const LogItem source = {1, String(from_ + "\\b\\held")};
  const LogItem target = {2, String(to_ + "\\b\\held")};
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_ERROR, Func::oss_copy, 10, SysCall::CopyFileA,
                                       ERROR_SHARING_VIOLATION, ECF_FILE_SHARE, {source, target}),
                          CalledRecord(OSS_LOG_ERROR, Func::ossFileCopy, 30, Func::oss_copy,
                                       ECF_FILE_SHARE, ECF_FILE_SHARE, {source, target}),
                          stepRecord(60, Func::ossFileCopy, ECF_FILE_SHARE, "\\b\\held"),
                          stepRecord(50, Func::ossDirectoryCopy, ECF_FILE_SHARE, "\\b")));
}

// The file's path as the copy's target would have 260 characters.
TEST_F(DirectoryCopy, OfAPathThatDoesNotFitIsRefusedAndNeverCut) {
  const std::string to = dir_.file(std::string(259 - dir_.path().size() - 3, 't'));
  makeFile("a", "fits");
  makeFile("bb", "does not");
  EXPECT_EQ(ossDirectoryCopy(from_.c_str(), to.c_str()), ECF_FILE_NAME_TOO_LONG);
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, kCopy, 80, ECF_FILE_NAME_TOO_LONG,
                                      {String(from_), String(to), String("bb")})));
  EXPECT_EQ(treeOf(to), (Tree{{"a", "fits"}}));
}

// A name makes 259 bytes, 260 that no path may have here, and 261 that the listing leaves out.
TEST_F(DirectoryCopy, OfASourceThatDoesNotFitIsRefusedAndNeverCut) {
  std::string from = dir_.path();
  for (; from.size() < 250; makeDirectory(from))
    from += '\\' + std::string(from.size() < 150 ? 99 : 250 - from.size() - 1, 'd');
  const auto copyWith = [&](const std::string& name) {
    writeFile(from + "\\1", "bytes");
    const FoundUnderAnotherName found(from, name);
    return ossDirectoryCopy(from.c_str(), (to_ + name).c_str());
  };
  EXPECT_EQ(copyWith("1234567890"), ECF_OK);
  EXPECT_THAT(log_.newRecords(), IsEmpty());
  EXPECT_EQ(copyWith("123456789"), ECF_FILE_NAME_TOO_LONG);
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(FoundRecord(OSS_LOG_INFO, kCopy, 80, ECF_FILE_NAME_TOO_LONG,
                              {String(from), String(to_ + "123456789"), String("123456789")})));
  EXPECT_TRUE(::MoveFileA((from + "\\1").c_str(), (from + "\\12345678").c_str()));
  EXPECT_EQ(ossDirectoryCopy(from.c_str(), to_.c_str()), ECF_OK);
  EXPECT_EQ(treeOf(to_), (Tree{{"12345678", "bytes"}}));
}

// ---- Memory ----

CHILD_ROLE(copyTwice) {
  const std::string from = arguments[0];
  EXPECT_EQ(ossDirectoryCopy(from.c_str(), arguments[1].c_str()), ECF_OK);
  const FailingCall fails("CopyFileA", ERROR_ACCESS_DENIED);
  EXPECT_EQ(ossDirectoryCopy(from.c_str(), arguments[2].c_str()), ECF_ACCESS_DENIED);
  return 0;
}

TEST_F(DirectoryCopy, LeavesNothingAllocated) {
  makeDirectoryWithin("b");
  makeFile("b\\c");
  const TempDirectory debug;
  EXPECT_EQ(runChild("copyTwice", {from_, to_, dir_.file("to2")},
                     {.environment = {{"OSSEMEMDBG", debug.path() + ",LEAKS"}}}),
            0u);
  EXPECT_THAT(debug.names(), ElementsAre("ossememdbg.log"));
}

}  // namespace
