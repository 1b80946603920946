// The directory listing: what it asks the system for, what it keeps and hands out, and how it ends.
#include "file/ossdirectoryfixture.h"
#include "harness/childprocess.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

using Names = std::vector<std::string>;

constexpr Func kBegin = Func::OSSDirectoryListing_begin;
constexpr Func kEnd = Func::OSSDirectoryListing_end;

class DirectoryListing : public Test {
 protected:
  OSSErr begin(const std::string& path, uint64_t typeMask = kAll) {
    const OSSDirectoryListingParam param = listingParam(path, typeMask);
    return listing_.begin(&param);
  }

  // The names that a listing of its own keeps.
  static Names namesIn(const std::string& path, uint64_t typeMask) {
    const OSSDirectoryListingParam param = listingParam(path, typeMask);
    OSSDirectoryListing listing;
    EXPECT_EQ(listing.begin(&param), ECF_OK);
    Names names = remainingNames(listing);
    EXPECT_EQ(listing.getNumberOfFiles(), names.size());
    EXPECT_EQ(listing.end(), ECF_OK);
    return names;
  }

  void makeFiles(const Names& names) const {
    for (const std::string& name : names) writeFile(dir_.file(name), "");
  }

  // Nothing of a listing is left.
  void expectFresh() {
    const ListingFields fields = fieldsOf(listing_);
    EXPECT_EQ(fields.numberOfFiles, 0u);
    EXPECT_EQ(fields.firstEntry, nullptr);
    EXPECT_EQ(fields.fileList, nullptr);
    EXPECT_EQ(fields.fileListSize, 0u);
    EXPECT_EQ(fields.currentEntry, nullptr);
    EXPECT_TRUE(fields.rewind);
    EXPECT_FALSE(fields.active);
  }

  TempDirectory dir_;
  LogCapture log_;
  OSSDirectoryListing listing_;
};

// ---- Which names are kept ----

TEST_F(DirectoryListing, AnEmptyDirectoryHoldsItselfAndItsParent) {
  ASSERT_EQ(begin(dir_.path(), kDirectories), ECF_OK);
  EXPECT_EQ(listing_.getNumberOfFiles(), 2u);
  EXPECT_EQ(fieldsOf(listing_).fileListSize, 6u);
  EXPECT_EQ(fileListOf(listing_), std::string(".\0..\0\0", 6));
  EXPECT_THAT(remainingNames(listing_), ElementsAre(".", ".."));
  EXPECT_EQ(listing_.end(), ECF_OK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(DirectoryListing, NoNamesAreABlockOfOneByte) {
  ASSERT_EQ(begin(dir_.path(), kFiles), ECF_OK);
  EXPECT_EQ(listing_.getNumberOfFiles(), 0u);
  EXPECT_EQ(fieldsOf(listing_).fileListSize, 1u);
  EXPECT_EQ(fileListOf(listing_), std::string(1, '\0'));
  EXPECT_EQ(listing_.getNext(), nullptr);
  EXPECT_EQ(listing_.end(), ECF_OK);
}

TEST_F(DirectoryListing, TheMaskChoosesTheKinds) {
  makeFiles({"a", "c.txt"});
  makeDirectory(dir_.file("b"));
  EXPECT_THAT(namesIn(dir_.path(), kFiles), ElementsAre("a", "c.txt"));
  EXPECT_THAT(namesIn(dir_.path(), kDirectories), ElementsAre(".", "..", "b"));
  EXPECT_THAT(namesIn(dir_.path(), kAll), ElementsAre(".", "..", "a", "b", "c.txt"));
  EXPECT_THAT(namesIn(dir_.path(), 0), IsEmpty());
}

// The mask is compared with the whole mode: here with the right to execute.
TEST_F(DirectoryListing, AnyBitOfTheModeCounts) {
  makeFiles({"a.exe", "b.txt"});
  EXPECT_THAT(namesIn(dir_.path(), 0x40), ElementsAre(".", "..", "a.exe"));
}

TEST_F(DirectoryListing, APatternChoosesByName) {
  makeFiles({"a1.log", "a2.log", "a22.log", "b.txt"});
  EXPECT_THAT(namesIn(dir_.file("*.log"), kAll), ElementsAre("a1.log", "a2.log", "a22.log"));
  EXPECT_THAT(namesIn(dir_.file("a?.log"), kAll), ElementsAre("a1.log", "a2.log"));
}

TEST_F(DirectoryListing, NamesComeInTheOrderOfTheSystem) {
  makeFiles({"a", "b", "c"});
  // The system's first and last name in each other's place.
  const ImportHook first("FindFirstFileA", [](Call& call) {
    const Word search = call.passOn();
    std::strcpy(call.argument<WIN32_FIND_DATAA*>(1)->cFileName, "c");
    return search;
  });
  EXPECT_THAT(namesIn(dir_.path(), kFiles), ElementsAre("c", "a", "b", "c"));
}

TEST_F(DirectoryListing, AFileThatCannotBeAskedIsLeftOut) {
  makeFiles({"a", "b"});
  const FailingCall fails("_stat64", ERROR_FILE_NOT_FOUND, {.result = kAllOnes, .onCall = 3});
  EXPECT_THAT(namesIn(dir_.path(), kAll), ElementsAre(".", "..", "b"));
  EXPECT_THAT(log_.records(), IsEmpty());
}

// A path of 260 characters is asked for, one of 261 would be another file's.
TEST_F(DirectoryListing, AFileWhosePathDoesNotFitIsNotAskedFor) {
  const size_t longest = 260 - (dir_.path().size() + 1);
  for (const size_t length : {longest, longest + 1}) {
    const ImportHook first("FindFirstFileA", [&](Call& call) {
      const Word search = call.passOn();
      char* const name = call.argument<WIN32_FIND_DATAA*>(1)->cFileName;
      std::memset(name, 'x', length);
      name[length] = '\0';
      return search;
    });
    Names asked;
    const ImportHook stat("_stat64", [&](Call& call) {
      asked.emplace_back(call.argument<const char*>(0));
      return call.passOn();
    });
    EXPECT_THAT(namesIn(dir_.path(), kAll), ElementsAre(".."));
    Names expected = {dir_.file("..")};
    if (length == longest) expected.insert(expected.begin(), dir_.file(std::string(length, 'x')));
    EXPECT_EQ(asked, expected);
  }
}

// ---- What is asked of the system ----

// The pattern that a path becomes, and the path of the name "x" if it were found.
struct Asked {
  std::string pattern;
  std::string file;

  bool operator==(const Asked&) const = default;
  friend void PrintTo(const Asked& asked, std::ostream* out) {
    *out << asked.pattern << " and " << asked.file;
  }
};

Asked askedFor(const std::string& path) {
  Asked asked;
  const ImportHook first("FindFirstFileA", [&](Call& call) {
    asked.pattern = call.argument<const char*>(0);
    std::strcpy(call.argument<WIN32_FIND_DATAA*>(1)->cFileName, "x");
    return Word{0x5EA7C4};
  });
  const ImportHook next("FindNextFileA", [](Call&) {
    ::SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  });
  const ImportHook close("FindClose", [](Call&) { return TRUE; });
  const ImportHook stat("_stat64", [&](Call& call) {
    asked.file = call.argument<const char*>(0);
    return -1;
  });
  const OSSDirectoryListingParam param = listingParam(path);
  OSSDirectoryListing listing;
  EXPECT_EQ(listing.begin(&param), ECF_OK);
  EXPECT_EQ(listing.end(), ECF_OK);
  return asked;
}

TEST(DirectoryListingPath, ADirectoryBecomesAPattern) {
  EXPECT_EQ(askedFor("C:\\dir"), (Asked{"C:\\dir\\*", "C:\\dir\\x"}));
  EXPECT_EQ(askedFor("dir"), (Asked{"dir\\*", "dir\\x"}));
  EXPECT_EQ(askedFor("."), (Asked{".\\*", ".\\x"}));
  EXPECT_EQ(askedFor("C:"), (Asked{"C:\\*", "C:\\x"}));
  EXPECT_EQ(askedFor("C:/a b/c.d"), (Asked{"C:/a b/c.d\\*", "C:/a b/c.d\\x"}));
  EXPECT_EQ(askedFor("\\\\server\\share"), (Asked{"\\\\server\\share\\*", "\\\\server\\share\\x"}));
  EXPECT_EQ(askedFor("\\\\.\\C:"), (Asked{"\\\\.\\C:\\*", "\\\\.\\C:\\x"}));
  EXPECT_EQ(askedFor("\xE4"), (Asked{"\xE4\\*", "\xE4\\x"}));
}

TEST(DirectoryListingPath, OneSeparatorAtTheEndIsDropped) {
  EXPECT_EQ(askedFor("C:\\dir\\"), (Asked{"C:\\dir\\*", "C:\\dir\\x"}));
  EXPECT_EQ(askedFor("C:\\dir/"), (Asked{"C:\\dir\\*", "C:\\dir\\x"}));
  EXPECT_EQ(askedFor("C:\\dir\\\\"), (Asked{"C:\\dir\\\\*", "C:\\dir\\\\x"}));
  EXPECT_EQ(askedFor("C:\\"), (Asked{"C:\\*", "C:\\x"}));
  EXPECT_EQ(askedFor("\\"), (Asked{"\\*", "\\x"}));
  EXPECT_EQ(askedFor("/"), (Asked{"\\*", "\\x"}));
  EXPECT_EQ(askedFor("\\\\server\\share\\"),
            (Asked{"\\\\server\\share\\*", "\\\\server\\share\\x"}));
}

TEST(DirectoryListingPath, AWildCardInTheLastComponentMakesAPattern) {
  EXPECT_EQ(askedFor("C:\\dir\\*.log"), (Asked{"C:\\dir\\*.log", "C:\\dir\\x"}));
  EXPECT_EQ(askedFor("C:\\dir\\a?"), (Asked{"C:\\dir\\a?", "C:\\dir\\x"}));
  EXPECT_EQ(askedFor("C:/dir/*"), (Asked{"C:/dir/*", ".\\x"}));
  EXPECT_EQ(askedFor("\\\\?\\C:\\dir\\*"), (Asked{"\\\\?\\C:\\dir\\*", "\\\\?\\C:\\dir\\x"}));
  EXPECT_EQ(askedFor("*.log"), (Asked{"*.log", ".\\x"}));
  EXPECT_EQ(askedFor("C:\\d*r\\file"), (Asked{"C:\\d*r\\file\\*", "C:\\d*r\\file\\x"}));
}

// ---- Handing out ----

class TwoNames : public DirectoryListing {
 protected:
  TwoNames() {
    makeFiles({"a", "bc"});
    EXPECT_EQ(begin(dir_.path(), kFiles), ECF_OK);
  }
};

TEST_F(TwoNames, AreHandedOutOnceAndAgainAfterARewind) {
  EXPECT_THAT(remainingNames(listing_), ElementsAre("a", "bc"));
  EXPECT_EQ(listing_.getNext(), nullptr);
  listing_.rewind();
  EXPECT_STREQ(listing_.getNext(), "a");
  listing_.rewind();
  EXPECT_THAT(remainingNames(listing_), ElementsAre("a", "bc"));
}

TEST_F(TwoNames, AreOneBlock) {
  EXPECT_EQ(fieldsOf(listing_).fileListSize, 6u);
  EXPECT_EQ(fileListOf(listing_), std::string("a\0bc\0\0", 6));
}

TEST_F(TwoNames, AreGoneWithTheEnd) {
  EXPECT_EQ(listing_.end(), ECF_OK);
  expectFresh();
  EXPECT_EQ(listing_.getFileList(), nullptr);
  EXPECT_EQ(listing_.getNext(), nullptr);
}

TEST_F(TwoNames, AreReadAgainByTheNextBegin) {
  EXPECT_EQ(listing_.end(), ECF_OK);
  makeFiles({"d"});
  ASSERT_EQ(begin(dir_.path(), kFiles), ECF_OK);
  EXPECT_THAT(remainingNames(listing_), ElementsAre("a", "bc", "d"));
}

CHILD_ROLE(dumpListing) {
  const OSSDirectoryListingParam param = listingParam(arguments[0], kFiles);
  OSSDirectoryListing listing;
  EXPECT_EQ(listing.begin(&param), ECF_OK);
  // The dump reads the entries, not the block.
  std::memset(listing.getFileList(), '#', fieldsOf(listing).fileListSize);
  listing.dumpFileList();
  EXPECT_EQ(listing.end(), ECF_OK);
  listing.dumpFileList();
  return 0;
}

TEST_F(TwoNames, ArePrinted) {
  const TempDirectory output;
  EXPECT_EQ(runChild("dumpListing", {dir_.path()}, {.outputFile = output.file("out")}), 0u);
  // Standard output is in text mode, which turns each line feed into a carriage return and one.
  EXPECT_EQ(readFile(output.file("out")),
            "========================================= \r\r\n"
            "m_iFileListSize = 6\r\r\n"
            "There is/are 2 file(s) \r\r\n"
            "========> File List Dump Start <========= \r\r\n"
            "File 1 : |a|\r\r\n"
            "File 2 : |bc|\r\r\n"
            "========>  File List Dump End  <========= \r\r\n"
            "========================================= \r\r\n"
            "m_iFileListSize = 0\r\r\n"
            "There is/are 0 file(s) \r\r\n"
            "========> File List Dump Start <========= \r\r\n"
            "========>  File List Dump End  <========= \r\r\n");
}

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

// Remembers the search handle, and closes it when the listing did not.
class Search {
 public:
  ~Search() { EXPECT_TRUE(::FindClose(handle_)); }

  HANDLE handle() const { return handle_; }
  int closes() const { return closes_.calls(); }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  const ImportHook first_{"FindFirstFileA", [this](Call& call) {
                            const Word search = call.passOn();
                            std::memcpy(&handle_, &search, sizeof handle_);
                            return search;
                          }};
  const CallCounter closes_{"FindClose"};
};

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
