// The directory listing: what it asks the system for, what it keeps and hands out.
#include "file/ossdirectorylistingfixture.h"
#include "harness/childprocess.h"

using namespace osse_test;
using namespace testing;

namespace {

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

// Deliberate: the names are looked for where the text of the path leads, not where they were found.
TEST(DirectoryListingPath, SomePatternsAreAskedForElsewhere) {
  // The base name of what is in the root is the root, which has no wild card.
  EXPECT_EQ(askedFor("\\*.log"), (Asked{"\\*.log\\*", "\\*.log\\x"}));
  // No backslash, no directory.
  EXPECT_EQ(askedFor("C:*.log"), (Asked{"C:*.log", ".\\x"}));
  // A device is its own directory.
  EXPECT_EQ(askedFor("\\\\.\\C:\\*"), (Asked{"\\\\.\\C:\\*", "\\\\.\\C:\\*\\x"}));
}

// ---- Handing out ----

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

}  // namespace
