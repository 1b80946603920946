// The primitive file: what it opens, closes and holds.
#include "file/ossprimitivefilefixture.h"
#include "harness/childprocess.h"

using namespace osse_test;
using namespace testing;

namespace {

// Not a handle of the process.
const HANDLE kSomeHandle = reinterpret_cast<HANDLE>(uintptr_t{0x12340});

// ---- open ----

struct CreateFileCall {
  const char* name;
  DWORD access, share;
  const void* security;
  DWORD disposition, attributes;
  HANDLE templateFile;

  bool operator==(const CreateFileCall&) const = default;
};

constexpr char kName[] = "a name that nobody looks up";

// What CreateFileA is asked for. It refuses.
CreateFileCall callOfOpen(uint64_t flags) {
  CreateFileCall asked = {};
  ImportHook hook("CreateFileA", [&](Call& call) {
    asked = {call.argument<const char*>(0), call.argument<DWORD>(1), call.argument<DWORD>(2),
             call.argument<const void*>(3), call.argument<DWORD>(4), call.argument<DWORD>(5),
             call.argument<HANDLE>(6)};
    ::SetLastError(kAnyError);
    return INVALID_HANDLE_VALUE;
  });
  OSSPrimitiveFileOp file;
  EXPECT_EQ(file.open(kName, flags), kAnyError);
  EXPECT_FALSE(file.isValid());
  EXPECT_EQ(hook.calls(), 1);
  return asked;
}

TEST(PrimitiveFileOpen, FlagsBecomeAccessAndDisposition) {
  constexpr DWORD kRead = GENERIC_READ;
  constexpr DWORD kWrite = GENERIC_WRITE;
  constexpr DWORD kBoth = GENERIC_READ | GENERIC_WRITE;
  const struct {
    uint64_t flags;
    DWORD access, disposition;
  } kRows[] = {
      {0, kBoth, OPEN_EXISTING},      {1, kRead, OPEN_EXISTING},
      {2, kWrite, OPEN_EXISTING},     {1 | 2, kRead, OPEN_EXISTING},
      {8, kBoth, OPEN_EXISTING},      {16, kBoth, OPEN_ALWAYS},
      {8 | 16, kBoth, OPEN_EXISTING}, {1 | 16, kRead, OPEN_ALWAYS},
      {2 | 16, kWrite, OPEN_ALWAYS},  {1 | 2 | 8 | 16, kRead, OPEN_EXISTING},
      {4, kBoth, OPEN_EXISTING},      {~uint64_t{1 | 2 | 8 | 16}, kBoth, OPEN_EXISTING},
  };
  for (const auto& row : kRows)
    EXPECT_EQ(callOfOpen(row.flags),
              (CreateFileCall{kName, row.access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              row.disposition, FILE_ATTRIBUTE_NORMAL, nullptr}))
        << row.flags;
}

TEST_F(PrimitiveFileTest, AConstructedObjectHasNoFile) {
  EXPECT_EQ(handleOf(file_), INVALID_HANDLE_VALUE);
  EXPECT_FALSE(file_.isValid());
}

TEST_F(PrimitiveFileTest, WithoutFlagsOpensAFileForReadingAndWriting) {
  openFile();
  EXPECT_TRUE(file_.isValid());
  EXPECT_EQ(file_.write("ab", 2), 0);

  char bytes[2];
  uint64_t count = 0;
  EXPECT_EQ(file_.read(2, bytes, &count), 0);
  EXPECT_EQ(std::string(bytes, count), "23");
  EXPECT_EQ(readFile(path_), "ab23456789");
}

TEST_F(PrimitiveFileTest, AMissingFileIsTheSystemsErrorAndIsNotCreated) {
  const std::string missing = dir_.file("missing");
  EXPECT_EQ(file_.open(missing.c_str(), 0), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(file_.open(missing.c_str(), OSS_PRIMITIVE_OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(file_.isValid());
  EXPECT_THAT(dir_.names(), ElementsAre("file"));
}

TEST_F(PrimitiveFileTest, OpenAlwaysCreatesAMissingFileAndKeepsAPresentOne) {
  const std::string missing = dir_.file("missing");
  EXPECT_EQ(file_.open(missing.c_str(), OSS_PRIMITIVE_OPEN_ALWAYS), 0);
  file_.close();
  EXPECT_EQ(readFile(missing), "");

  openFile(OSS_PRIMITIVE_OPEN_ALWAYS);
  EXPECT_EQ(readFile(path_), "0123456789");
}

TEST_F(PrimitiveFileTest, OthersMayReadAndWriteMeanwhile) {
  openFile();
  OSSPrimitiveFileOp other;
  EXPECT_EQ(other.open(path_.c_str(), 0), 0);
  other.close();
}

TEST_F(PrimitiveFileTest, AFailedOpenForgetsTheFileBeforeAndLeavesItOpen) {
  openFile();
  const HANDLE before = handleOf(file_);
  EXPECT_EQ(file_.open(dir_.file("missing").c_str(), 0), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(handleOf(file_), INVALID_HANDLE_VALUE);
  EXPECT_TRUE(isOpen(before));
  ::CloseHandle(before);
}

TEST_F(PrimitiveFileTest, ANullHandleIsAValidOne) {
  ImportHook hook("CreateFileA", [](Call&) {
    ::SetLastError(kAnyError);
    return HANDLE{nullptr};
  });
  EXPECT_EQ(file_.open(kName, 0), 0);
  EXPECT_TRUE(file_.isValid());
  EXPECT_TRUE(Holder(nullptr).isValid());
}

// ---- openConsole ----

CHILD_ROLE(writeToConsole) {
  OSSPrimitiveFileOp console;
  console.openConsole();
  EXPECT_TRUE(console.isValid());
  EXPECT_EQ(console.write("bytes\n", 0), 0);
  console.fwrite("%d\r\n", 42);
  return 0;
}

TEST(PrimitiveFileConsole, IsTheStandardOutputByteForByte) {
  TempDirectory dir;
  const std::string output = dir.file("output");
  EXPECT_EQ(runChild("writeToConsole", {}, {.outputFile = output}), 0u);
  EXPECT_EQ(readFile(output), "bytes\n42\r\n");
}

TEST(PrimitiveFileConsole, IsAskedForAsTheStandardOutput) {
  DWORD asked = 0;
  ImportHook hook("GetStdHandle", [&](Call& call) {
    asked = call.argument<DWORD>(0);
    return kSomeHandle;
  });
  OSSPrimitiveFileOp file;
  file.openConsole();
  EXPECT_EQ(asked, STD_OUTPUT_HANDLE);
  EXPECT_EQ(handleOf(file), kSomeHandle);
}

// ---- close ----

TEST_F(PrimitiveFileTest, CloseClosesTheHandleAndKeepsItsValue) {
  openFile();
  const HANDLE handle = handleOf(file_);
  file_.close();
  EXPECT_FALSE(isOpen(handle));
  EXPECT_EQ(handleOf(file_), handle);
  EXPECT_TRUE(file_.isValid());
}

TEST_F(PrimitiveFileTest, CloseClosesTheSameValueEachTime) {
  std::vector<HANDLE> closed;
  ImportHook hook("CloseHandle", [&](Call& call) {
    closed.push_back(call.argument<HANDLE>(0));
    return TRUE;
  });
  Holder holder(kSomeHandle);
  holder.close();
  holder.close();
  Holder(nullptr).close();
  EXPECT_THAT(closed, ElementsAre(kSomeHandle, kSomeHandle, nullptr));
}

TEST_F(PrimitiveFileTest, CloseOfAnInvalidHandleDoesNotAskTheSystem) {
  CallCounter closes("CloseHandle");
  file_.close();
  EXPECT_EQ(closes.calls(), 0);
}

TEST_F(PrimitiveFileTest, TheDestructorReleasesNothing) {
  HANDLE handle;
  {
    OSSPrimitiveFileOp file;
    ASSERT_EQ(file.open(path_.c_str(), 0), 0);
    handle = handleOf(file);
  }
  EXPECT_TRUE(isOpen(handle));
  ::CloseHandle(handle);
}

// ---- A deriving class ----

TEST_F(PrimitiveFileTest, ADerivingClassReplacesTheHandleAndTheOldOneStaysOpen) {
  openFile();
  Holder holder(handleOf(file_));
  EXPECT_EQ(holder.write("by the holder", 2), 0);

  holder.setFileHandle(INVALID_HANDLE_VALUE);
  EXPECT_FALSE(holder.isValid());
  EXPECT_TRUE(isOpen(handleOf(file_)));
  EXPECT_EQ(readFile(path_), "by23456789");
}

}  // namespace
