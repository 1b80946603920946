// The ends of a listing that fail, and what the removal and the copy of a tree tell of them: among
// the fakes, with an allocator that takes a block back only if it is told to.
#include <gmock/gmock.h>
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

#include "ossdirectory.h"
#include "osslog.h"
#include "ossmemory.h"
#include "ossstring.h"
#include "tests/core/tracedtest.h"
#include "tests/harness/importhook.h"
#include "tests/harness/search.h"
#include "tests/harness/tempdir.h"

using oss::fakes::g_mapped;
using oss::fakes::text;
using osse_test::FailingCall;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- The allocator ----

namespace {

std::vector<void*> g_blocks;  // freed with the test that they are of
std::vector<void*> g_released;
int g_refused = 0;  // which release from now is refused, counted from 1

}  // namespace

OSSErr ossMemAlloc(void** out, void*, uint64_t size, uint64_t, const char*, uint64_t) noexcept {
  *out = std::malloc(size);
  g_blocks.push_back(*out);
  return ECF_OK;
}

OSSErr ossMemFree(void** address, void*, uint64_t, const char*, uint64_t) noexcept {
  if (g_refused > 0 && --g_refused == 0) return ECF_MEM_NULL_POINTER;
  g_released.push_back(*address);
  *address = nullptr;
  return ECF_OK;
}

uint64_t ossSnprintf(char* buffer, size_t size, const char* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  return static_cast<uint64_t>(length);
}

namespace {

class DirectoryPoints : public oss::fakes::TracedTest {
 protected:
  DirectoryPoints() {
    g_refused = 0;
    g_released.clear();
    param_.path = dir_.path().c_str();
    param_.typeMask = OSS_FILE_TYPE_DIRECTORY;
  }
  ~DirectoryPoints() override {
    for (void* const block : g_blocks) std::free(block);
    g_blocks.clear();
  }

  // The calls of one kind since the last time.
  static std::vector<std::string> callsOf(const char* kind) {
    std::vector<std::string> ofKind;
    for (const std::string& call : calls())
      if (call.starts_with(kind)) ofKind.push_back(call);
    return ofKind;
  }
  static std::vector<std::string> records() { return callsOf("log "); }

  // One about ossMemFree, which refused.
  static std::string refusal(unsigned probe) {
    return text("log default 081A000F code %08X probe %u level 4 function 081A0059 rc %08X",
                ECF_MEM_NULL_POINTER, probe, ECF_MEM_NULL_POINTER);
  }

  osse_test::TempDirectory dir_;
  OSSDirectoryListingParam param_;
};

// "." and "..": a name and an entry, a name and an entry, the block.
TEST_F(DirectoryPoints, AReleaseThatIsRefusedStopsTheEndAndTheListingStaysActive) {
  const struct {
    int release;
    unsigned probe;
    uint64_t namesLeft;
  } kRows[] = {{1, 20, 2}, {2, 30, 1}, {3, 20, 1}, {4, 30, 0}, {5, 40, 0}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.release);
    OSSDirectoryListing listing;
    ASSERT_EQ(listing.begin(&param_), ECF_OK);
    const char* const block = listing.getFileList();
    EXPECT_THAT(records(), IsEmpty());
    EXPECT_STREQ(listing.getNext(), ".");

    g_released.clear();
    g_refused = row.release;
    EXPECT_EQ(listing.end(), ECF_MEM_NULL_POINTER);
    EXPECT_THAT(records(), ElementsAre(refusal(row.probe)));
    EXPECT_EQ(listing.getNumberOfFiles(), 2u);
    EXPECT_EQ(listing.getFileList(), block);
    // From the first that is left, wherever the last one handed out was.
    uint64_t namesLeft = 0;
    while (listing.getNext() != nullptr) ++namesLeft;
    EXPECT_EQ(namesLeft, row.namesLeft);

    EXPECT_EQ(listing.begin(&param_), ECF_INVALID_INVOCATION_SEQUENCE);
    EXPECT_EQ(records().size(), 1u);
    EXPECT_EQ(listing.end(), ECF_OK);
    EXPECT_EQ(listing.end(), ECF_INVALID_INVOCATION_SEQUENCE);
    EXPECT_EQ(records().size(), 1u);
    // All but an entry that was refused, and none of them twice.
    EXPECT_EQ(g_released.size(), row.probe == 30 ? 4u : 5u);
    EXPECT_EQ(std::set(g_released.begin(), g_released.end()).size(), g_released.size());
  }
}

// What a tree's operation says of a listing that did not end, with its paths.
std::string unended(uint32_t function, unsigned probe, const std::vector<std::string>& paths) {
  std::string record = text("log default %08X code %08X probe %u level 4 function 081A000F rc %08X",
                            function, ECF_MEM_NULL_POINTER, probe, ECF_MEM_NULL_POINTER);
  for (size_t i = 0; i < paths.size(); ++i) {
    record += text(" #%u {%d %u ", static_cast<unsigned>(i + 1), OSS_LOG_STRING,
                   static_cast<unsigned>(paths[i].size()));
    for (const char byte : paths[i]) record += text("%02X", static_cast<unsigned char>(byte));
    record += '}';
  }
  return record;
}

TEST_F(DirectoryPoints, ARemovalTellsOfTheListingThatDidNotEnd) {
  const std::string tree = dir_.file("tree");
  ASSERT_TRUE(::CreateDirectoryA(tree.c_str(), nullptr));
  OSSDirectoryDeleteParam param;
  param.path = tree.c_str();
  param.flags = OSS_DIRECTORY_DELETE_RECURSIVELY;
  g_refused = 5;
  EXPECT_EQ(ossDirectoryDelete(&param), ECF_MEM_NULL_POINTER);
  EXPECT_THAT(records(), ElementsAre(refusal(40), unended(0x081A0023, 60, {tree})));
  EXPECT_THAT(dir_.names(), ElementsAre("tree"));
}

TEST_F(DirectoryPoints, ACopyTellsOfTheListingThatDidNotEnd) {
  const std::string from = dir_.file("from");
  const std::string to = dir_.file("to");
  ASSERT_TRUE(::CreateDirectoryA(from.c_str(), nullptr));
  osse_test::writeFile(from + "\\a", "bytes");
  g_refused = 7;
  EXPECT_EQ(ossDirectoryCopy(from.c_str(), to.c_str()), ECF_MEM_NULL_POINTER);
  EXPECT_THAT(records(), ElementsAre(refusal(40), unended(0x081A0026, 90, {from, to})));
  EXPECT_EQ(osse_test::readFile(to + "\\a"), "bytes");
}

// The first failure is the one that counts, though the end of the listing is logged, too.
TEST_F(DirectoryPoints, AFailureOnTheWayIsNotReplacedByThatOfTheEnd) {
  const std::string tree = dir_.file("tree");
  const std::string file = tree + "\\a";
  ASSERT_TRUE(::CreateDirectoryA(tree.c_str(), nullptr));
  osse_test::writeFile(file, "bytes");
  const HANDLE held =
      ::CreateFileA(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  g_mapped = ECF_FILE_SHARE;

  OSSDirectoryDeleteParam param;
  param.path = tree.c_str();
  param.flags = OSS_DIRECTORY_DELETE_RECURSIVELY;
  g_refused = 7;
  EXPECT_EQ(ossDirectoryDelete(&param), ECF_FILE_SHARE);
  EXPECT_EQ(records().size(), 3u);
  g_refused = 7;
  EXPECT_EQ(ossDirectoryCopy(tree.c_str(), dir_.file("to").c_str()), ECF_FILE_SHARE);
  EXPECT_EQ(records().size(), 4u);
  ::CloseHandle(held);
}

// ---- What is mapped in another name than it is logged in ----

TEST_F(DirectoryPoints, AFileThatIsNotCopiedIsMappedForAnotherOperation) {
  g_mapped = ECF_FILE_DOESNT_EXIST;
  {
    const FailingCall fails("CopyFileA", 10);
    EXPECT_EQ(ossFileCopy("a", dir_.file("b").c_str()), ECF_FILE_DOESNT_EXIST);
  }
  EXPECT_THAT(callsOf("map "), ElementsAre("map 081A0068 probe 10 call 0814006A error 10"));
}

TEST_F(DirectoryPoints, ASearchThatDoesNotEndIsMappedAsItsEnd) {
  g_mapped = ECF_FAILED;
  const osse_test::Search search;
  OSSDirectoryListing listing;
  {
    const FailingCall fails("FindClose", 100);
    EXPECT_EQ(listing.begin(&param_), ECF_FAILED);
  }
  EXPECT_THAT(callsOf("map "), ElementsAre("map 081A000E probe 100 call 08140075 error 100"));
}

TEST_F(DirectoryPoints, ATemporaryFileThatCannotBeMadeIsMappedAsItsDirectory) {
  g_mapped = ECF_ACCESS_DENIED;
  char buffer[260];
  {
    const FailingCall fails("GetTempFileNameA", 20);
    EXPECT_EQ(osstmpnam(buffer, sizeof buffer, OSS_TMPNAM_CREATE), ECF_ACCESS_DENIED);
  }
  EXPECT_THAT(callsOf("map "), ElementsAre("map 081A00AA probe 20 call 0814015F error 20"));
}

}  // namespace
