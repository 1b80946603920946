// The directory listing that does not come about or does not end: refusals, searches that fail,
// memory that is missing.
#include "file/ossdirectorylistingfixture.h"
#include "harness/childprocess.h"
#include "harness/search.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

// ---- Refusals of begin() ----

TEST_F(DirectoryListing, BeginsOnlyWithAWholeRecord) {
  EXPECT_EQ(listing_.begin(nullptr), ECF_INVALID_PARAMETER);
  OSSDirectoryListingParam param = listingParam(dir_.path());
  param.version = OSS_VERSION_OLDEST - 1;
  EXPECT_EQ(listing_.begin(&param), ECF_INVALID_VERSION);
  const OSSDirectoryListingParam noPath;
  EXPECT_EQ(listing_.begin(&noPath), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_ERROR, kBegin, 1111, ECF_INVALID_PARAMETER),
                          FoundRecord(OSS_LOG_ERROR, kBegin, 1112, ECF_INVALID_VERSION,
                                      {Uint(OSS_VERSION_OLDEST - 1)}),
                          FoundRecord(OSS_LOG_ERROR, kBegin, 1111, ECF_INVALID_PARAMETER)));
  expectFresh();

  param.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(listing_.begin(&param), ECF_OK);
}

TEST_F(TwoNames, StayWhenTheListingIsBegunTwice) {
  EXPECT_STREQ(listing_.getNext(), "a");
  EXPECT_EQ(begin(dir_.path()), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, kBegin, 40, ECF_INVALID_INVOCATION_SEQUENCE)));
  EXPECT_EQ(listing_.getNumberOfFiles(), 2u);
  EXPECT_EQ(fileListOf(listing_), std::string("a\0bc\0\0", 6));
  EXPECT_THAT(remainingNames(listing_), ElementsAre("bc"));
}

TEST_F(DirectoryListing, AnEmptyPathHasNoBaseName) {
  EXPECT_EQ(begin(""), ECF_INVALID_PARAMETER);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back(),
            CalledRecord(OSS_LOG_INFO, kBegin, 50, Func::ossBaseName, ECF_INVALID_PARAMETER,
                         ECF_INVALID_PARAMETER, {{1, String("")}}));
}

TEST_F(DirectoryListing, ABaseNameOf260CharactersIsTooLong) {
  const std::string path(260, 'x');
  EXPECT_EQ(begin(path), ECF_BUFFER_TOO_SMALL);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back(),
            CalledRecord(OSS_LOG_INFO, kBegin, 50, Func::ossBaseName, ECF_BUFFER_TOO_SMALL,
                         ECF_BUFFER_TOO_SMALL, {{1, String(path)}}));
}

// A device path is its own directory name, which has less room than the pattern.
TEST_F(DirectoryListing, APatternMayBeTooLongForTheDirectory) {
  const std::string path = "\\\\.\\C:\\" + std::string(252, 'x') + '*';
  ASSERT_EQ(path.size(), 260u);
  EXPECT_EQ(begin(path), ECF_BUFFER_TOO_SMALL);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back(),
            CalledRecord(OSS_LOG_INFO, kBegin, 60, Func::ossDirectoryName, ECF_BUFFER_TOO_SMALL,
                         ECF_BUFFER_TOO_SMALL, {{1, String(path)}}));
}

std::string pathOf(size_t length, const std::string& end) {
  const std::string start = "C:\\" + std::string(100, 'm') + '\\';
  return start + std::string(length - start.size() - end.size(), 'x') + end;
}

// What the system is asked to look for, when it finds nothing.
std::string patternOf(const std::string& path) {
  std::string pattern;
  const ImportHook first("FindFirstFileA", [&](Call& call) {
    pattern = call.argument<const char*>(0);
    ::SetLastError(ERROR_PATH_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  });
  const OSSDirectoryListingParam param = listingParam(path);
  OSSDirectoryListing listing;
  EXPECT_EQ(listing.begin(&param), ECF_FILE_PATH_DOESNT_EXIST);
  return pattern;
}

TEST_F(DirectoryListing, ThePatternHoldsUpTo260Bytes) {
  EXPECT_EQ(patternOf(pathOf(258, "")), pathOf(258, "") + "\\*");
  EXPECT_EQ(patternOf(pathOf(259, "\\")), pathOf(259, "\\") + '*');
  EXPECT_EQ(patternOf(pathOf(260, "*")), pathOf(260, "*"));
  EXPECT_EQ(log_.newRecords().size(), 3u);
}

// Deliberate: what does not fit is cut. A directory's pattern then has no room for its star.
TEST_F(DirectoryListing, LongerOnesAreCut) {
  const std::string longest = pathOf(259, "") + '\\';
  for (const char* const end : {"", "\\", "/", "x", "xy", "\\y", "x\\y\\"})
    EXPECT_EQ(patternOf(pathOf(259, "") + end), longest) << end;
  EXPECT_EQ(patternOf(pathOf(258, "") + "\\y"), pathOf(258, "") + "\\\\");
  EXPECT_EQ(patternOf(pathOf(260, "*") + "x"), pathOf(260, "*"));
  EXPECT_EQ(patternOf(pathOf(260, "x") + "*"), pathOf(260, "x"));
  const std::vector<LogRecord> records = log_.newRecords();
  ASSERT_EQ(records.size(), 10u);
  EXPECT_EQ(records[0],
            SystemRecord(OSS_LOG_INFO, kBegin, 80, SysCall::FindFirstFileA, ERROR_PATH_NOT_FOUND,
                         ECF_FILE_PATH_DOESNT_EXIST, {{1, String(longest)}}));
}

// A directory whose own name, cut, is that of its neighbour or of the directory around it.
TEST_F(DirectoryListing, OfADirectoryThatIsCutNothingIsFound) {
  std::string around = dir_.path();
  for (; around.size() < 150; makeDirectory(around)) around += '\\' + std::string(99, 'd');
  const std::string neighbour = around + '\\' + std::string(259 - around.size() - 1, 'n');
  makeDirectory(neighbour);
  makeDirectory(neighbour + 'n');
  for (const std::string& path : {neighbour, neighbour + 'n'})
    EXPECT_EQ(begin(path), ECF_FILE_DOESNT_EXIST) << path.size();
  EXPECT_EQ(log_.newRecords().size(), 2u);
  for (const std::string& path : {neighbour + 'n', neighbour})
    EXPECT_TRUE(::RemoveDirectoryA(path.c_str()));
}

TEST_F(DirectoryListing, APatternThatNothingMatchesIsRefused) {
  const std::string pattern = dir_.file("*.log");
  EXPECT_EQ(begin(pattern), ECF_FILE_DOESNT_EXIST);
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kBegin, 80, SysCall::FindFirstFileA,
                                       ERROR_FILE_NOT_FOUND, ECF_FILE_DOESNT_EXIST,
                                       {{1, String(pattern)}})));
  expectFresh();
}

TEST_F(DirectoryListing, ADirectoryThatIsNotThereIsRefused) {
  EXPECT_EQ(begin(dir_.file("missing")), ECF_FILE_PATH_DOESNT_EXIST);
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kBegin, 80, SysCall::FindFirstFileA,
                                       ERROR_PATH_NOT_FOUND, ECF_FILE_PATH_DOESNT_EXIST,
                                       {{1, String(dir_.file("missing\\*"))}})));
}

// ---- Searches that fail ----

TEST_F(DirectoryListing, AFailedStepLeavesTheSearchOpenAndTheNamesAttached) {
  makeFiles({"a"});
  Search search;
  {
    const FailingCall fails("FindNextFileA", ERROR_ACCESS_DENIED, {.onCall = 3});
    EXPECT_EQ(begin(dir_.path()), ECF_ACCESS_DENIED);
  }
  EXPECT_EQ(search.closes(), 0);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kBegin, 90, SysCall::FindNextFileA,
                                       ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED,
                                       {{1, Hex(search.handle())}})));
  EXPECT_FALSE(fieldsOf(listing_).active);
  EXPECT_EQ(listing_.getNumberOfFiles(), 3u);
  EXPECT_EQ(fieldsOf(listing_).fileListSize, 2u + 3u + 2u + 1u);
  EXPECT_EQ(listing_.getFileList(), nullptr);

  EXPECT_EQ(listing_.end(), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_THAT(log_.newRecords(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, kEnd, 10, ECF_INVALID_INVOCATION_SEQUENCE)));
  EXPECT_THAT(remainingNames(listing_), ElementsAre(".", "..", "a"));
}

TEST_F(DirectoryListing, ABeginAfterAFailedOneAddsToItsNames) {
  makeFiles({"a"});
  {
    Search search;
    const FailingCall fails("FindNextFileA", ERROR_ACCESS_DENIED);
    EXPECT_EQ(begin(dir_.path(), kDirectories), ECF_ACCESS_DENIED);
  }
  ASSERT_EQ(begin(dir_.path(), kFiles), ECF_OK);
  EXPECT_THAT(remainingNames(listing_), ElementsAre(".", "a"));
  // The failed one has counted its last NUL, too.
  EXPECT_EQ(fileListOf(listing_), std::string(".\0a\0\0\0", 6));
  EXPECT_EQ(listing_.end(), ECF_OK);
}

TEST_F(DirectoryListing, ASearchThatDoesNotEndIsMappedAndLoggedAsDifferentCalls) {
  Search search;
  {
    const FailingCall fails("FindClose", ERROR_INVALID_HANDLE);
    EXPECT_EQ(begin(dir_.path()), ECF_INVALID_PARAMETER);
  }
  EXPECT_THAT(log_.records(),
              ElementsAre(SystemRecord(OSS_LOG_INFO, kBegin, 100, SysCall::FindNextFileA,
                                       ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER,
                                       {{1, Hex(search.handle())}})));
  EXPECT_FALSE(fieldsOf(listing_).active);
  EXPECT_EQ(listing_.getNumberOfFiles(), 2u);
}

// ---- Memory ----

// Each name takes two blocks, its copy and its entry; the seventh is the list of three names.
TEST_F(DirectoryListing, WhatCannotBeAllocatedStopsTheSearchAndEndsIt) {
  makeFiles({"a"});
  for (int block = 1; block <= 7; ++block) {
    SCOPED_TRACE(block);
    OSSDirectoryListing listing;
    const OSSDirectoryListingParam param = listingParam(dir_.path());
    const CallCounter closes("FindClose");
    const CallCounter frees("free");
    {
      const FailingCall fails("malloc", ERROR_NOT_ENOUGH_MEMORY, {.onCall = block});
      EXPECT_EQ(listing.begin(&param), ECF_NO_MEMORY);
    }
    EXPECT_EQ(closes.calls(), 1);
    EXPECT_EQ(frees.calls(), block % 2 == 0 ? 1 : 0);
    EXPECT_THAT(log_.newRecords(),
                ElementsAre(CalledRecord(OSS_LOG_ERROR, kBegin, 85, Func::ossMemAlloc,
                                         ECF_NO_MEMORY, ECF_NO_MEMORY)));
    const ListingFields fields = fieldsOf(listing);
    EXPECT_FALSE(fields.active);
    EXPECT_EQ(fields.fileList, nullptr);
    EXPECT_EQ(remainingNames(listing).size(), static_cast<size_t>((block - 1) / 2));
    EXPECT_EQ(listing.getNumberOfFiles(), static_cast<uint64_t>((block - 1) / 2));
  }
}

CHILD_ROLE(listAndForget) {
  const std::string path = arguments[0];
  const OSSDirectoryListingParam param = listingParam(path);
  OSSDirectoryListing ended;
  EXPECT_EQ(ended.begin(&param), ECF_OK);
  EXPECT_EQ(ended.end(), ECF_OK);
  OSSDirectoryListing active;
  EXPECT_EQ(active.begin(&param), ECF_OK);
  OSSDirectoryListing failed;
  const FailingCall fails("FindNextFileA", ERROR_ACCESS_DENIED, {.onCall = 2});
  EXPECT_EQ(failed.begin(&param), ECF_ACCESS_DENIED);
  EXPECT_EQ(failed.getNumberOfFiles(), 2u);
  return 0;
}

// Only the record of the mode is there: no list of blocks that were never freed.
TEST_F(DirectoryListing, NothingIsLeftAllocatedHoweverItEnds) {
  const TempDirectory debug;
  EXPECT_EQ(runChild("listAndForget", {dir_.path()},
                     {.environment = {{"OSSEMEMDBG", debug.path() + ",LEAKS"}}}),
            0u);
  EXPECT_THAT(debug.names(), ElementsAre("ossememdbg.log"));
}

// ---- Refusals of end() ----

TEST_F(DirectoryListing, OnlyAnActiveListingEnds) {
  EXPECT_EQ(listing_.end(), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_THAT(log_.records(),
              ElementsAre(FoundRecord(OSS_LOG_INFO, kEnd, 10, ECF_INVALID_INVOCATION_SEQUENCE)));
  ASSERT_EQ(begin(dir_.path()), ECF_OK);
  EXPECT_EQ(listing_.end(), ECF_OK);
  EXPECT_EQ(listing_.end(), ECF_INVALID_INVOCATION_SEQUENCE);
}

TEST_F(TwoNames, StayActiveWhenOneCannotBeFreed) {
  ListingEntry* const first = fieldsOf(listing_).firstEntry;
  char* const name = std::exchange(first->name, nullptr);
  EXPECT_EQ(listing_.end(), ECF_MEM_NULL_POINTER);
  const std::vector<LogRecord> records = log_.records();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.back(), CalledRecord(OSS_LOG_INFO, kEnd, 20, Func::ossMemFree,
                                         ECF_MEM_NULL_POINTER, ECF_MEM_NULL_POINTER));
  EXPECT_TRUE(fieldsOf(listing_).active);
  EXPECT_EQ(fieldsOf(listing_).firstEntry, first);
  EXPECT_EQ(fileListOf(listing_), std::string("a\0bc\0\0", 6));

  first->name = name;
  EXPECT_EQ(listing_.end(), ECF_OK);
  expectFresh();
}

}  // namespace
