// The primitive file: what it writes and reads, and where.
#include "file/ossprimitivefilefixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- write ----

struct WriteFileCall {
  HANDLE file;
  std::string bytes;
  const void* overlapped;

  bool operator==(const WriteFileCall&) const = default;
};

// Notes the writes of a scope and passes them on.
class Writes {
 public:
  const std::vector<WriteFileCall>& calls() const { return calls_; }

 private:
  std::vector<WriteFileCall> calls_;
  ImportHook hook_{
      "WriteFile", [this](Call& call) {
        const auto* const bytes = call.argument<const char*>(1);
        const auto size = call.argument<DWORD>(2);
        calls_.push_back({call.argument<HANDLE>(0), size != 0 ? std::string(bytes, size) : "",
                          call.argument<const void*>(4)});
        return call.passOn();
      }};
};

TEST_F(PrimitiveFileTest, WriteIsOneCallOfTheSystemAtTheFilePointer) {
  openFile();
  Writes writes;
  EXPECT_EQ(file_.write("a\0b", 3), 0);
  EXPECT_EQ(file_.write("cd", 1), 0);
  EXPECT_THAT(writes.calls(),
              ElementsAre(WriteFileCall{handleOf(file_), std::string("a\0b", 3), nullptr},
                          WriteFileCall{handleOf(file_), "c", nullptr}));
  EXPECT_EQ(readFile(path_), std::string("a\0bc456789", 10));
}

TEST_F(PrimitiveFileTest, WriteOfSizeZeroWritesUpToTheNul) {
  openFile();
  EXPECT_EQ(file_.write("text\0behind", 0), 0);
  EXPECT_EQ(readFile(path_), "text456789");
}

TEST_F(PrimitiveFileTest, WriteOfAnEmptyTextIsAWriteOfNoBytes) {
  openFile();
  Writes writes;
  EXPECT_EQ(file_.write("", 0), 0);
  EXPECT_EQ(file_.write(nullptr, 0), 0);
  const WriteFileCall nothing = {handleOf(file_), "", nullptr};
  EXPECT_THAT(writes.calls(), ElementsAre(nothing, nothing));
  EXPECT_EQ(readFile(path_), "0123456789");
}

TEST_F(PrimitiveFileTest, WriteWithoutAFileSucceedsAndDoesNotAskTheSystem) {
  CallCounter writes("WriteFile");
  ::SetLastError(kAnyError);
  EXPECT_EQ(file_.write("text", 4), 0);
  EXPECT_EQ(file_.write("text", 0), 0);
  file_.fwrite("text");
  EXPECT_EQ(writes.calls(), 0);
}

TEST_F(PrimitiveFileTest, AFailedWriteIsTheSystemsError) {
  openFile(OSS_PRIMITIVE_READ);
  EXPECT_EQ(file_.write("text", 0), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Holder(nullptr).write("text", 0), ERROR_INVALID_HANDLE);

  FailingCall fails("WriteFile", kAnyError);
  EXPECT_EQ(file_.write("text", 0), kAnyError);
}

TEST_F(PrimitiveFileTest, AShortWriteSucceedsAndIsNotRepeated) {
  openFile();
  ImportHook hook("WriteFile", [](Call& call) {
    *call.argument<DWORD*>(3) = 1;
    return TRUE;
  });
  EXPECT_EQ(file_.write("text", 4), 0);
  file_.fwrite("text");
  EXPECT_EQ(hook.calls(), 2);
}

TEST_F(PrimitiveFileTest, ASizeBeyond32BitsIsCutToTheMostTheyHold) {
  std::vector<DWORD> sizes;
  ImportHook hook("WriteFile", [&](Call& call) {
    sizes.push_back(call.argument<DWORD>(2));
    return TRUE;
  });
  Holder holder(nullptr);
  for (const uint64_t size : {uint64_t{0xFFFFFFFF}, uint64_t{1} << 32, ~uint64_t{0}})
    EXPECT_EQ(holder.write("text", size), 0);
  EXPECT_THAT(sizes, Each(0xFFFFFFFF));
  EXPECT_EQ(sizes.size(), 3u);
}

// ---- fwrite ----

TEST_F(PrimitiveFileTest, FwriteFormatsAndWritesOnce) {
  openFile();
  Writes writes;
  file_.fwrite("%s %d %I64u", "x", -1, ~uint64_t{0});
  EXPECT_THAT(writes.calls(),
              ElementsAre(WriteFileCall{handleOf(file_), "x -1 18446744073709551615", nullptr}));
}

TEST_F(PrimitiveFileTest, FwriteKeepsTheFirst2047Characters) {
  for (const size_t length : {size_t{2046}, size_t{2047}, size_t{2048}, size_t{5000}}) {
    writeFile(path_, "");
    openFile();
    std::string text;
    for (size_t i = 0; i < length; ++i) text += static_cast<char>('0' + i % 71);
    file_.fwrite("%s", text.c_str());
    file_.close();
    EXPECT_EQ(readFile(path_), text.substr(0, 2047)) << length;
  }
}

TEST_F(PrimitiveFileTest, FwriteOfNothingIsAWriteOfNoBytes) {
  openFile();
  Writes writes;
  file_.fwrite("%s", "");
  EXPECT_THAT(writes.calls(), ElementsAre(WriteFileCall{handleOf(file_), "", nullptr}));
}

TEST_F(PrimitiveFileTest, FwriteDropsAFailure) {
  openFile();
  {
    FailingCall fails("WriteFile", kAnyError);
    file_.fwrite("lost");
    EXPECT_EQ(fails.calls(), 1);
  }
  file_.fwrite("kept");
  EXPECT_EQ(readFile(path_), "kept456789");
}

// ---- read ----

TEST_F(PrimitiveFileTest, ReadTellsHowManyBytesThereWere) {
  openFile(OSS_PRIMITIVE_READ);
  char bytes[20] = {};
  uint64_t count = 77;
  EXPECT_EQ(file_.read(4, bytes, &count), 0);
  EXPECT_EQ(std::string(bytes, count), "0123");
  EXPECT_EQ(file_.read(20, bytes, &count), 0);
  EXPECT_EQ(std::string(bytes, count), "456789");
  EXPECT_EQ(file_.read(20, bytes, &count), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(file_.read(0, bytes, nullptr), 0);
}

TEST_F(PrimitiveFileTest, AFailedReadIsTheSystemsErrorAndNoBytes) {
  openFile(OSS_PRIMITIVE_WRITE);
  char byte;
  uint64_t count = 77;
  EXPECT_EQ(file_.read(1, &byte, &count), ERROR_ACCESS_DENIED);
  EXPECT_EQ(count, 0u);

  FailingCall fails("ReadFile", kAnyError);
  EXPECT_EQ(file_.read(1, &byte, nullptr), kAnyError);
}

// The system may have counted before it failed.
TEST_F(PrimitiveFileTest, AFailedReadCountsNoBytesWhateverTheSystemCounted) {
  openFile();
  ImportHook hook("ReadFile", [](Call& call) {
    *call.argument<DWORD*>(3) = 5;
    ::SetLastError(kAnyError);
    return FALSE;
  });
  char byte;
  uint64_t count = 77;
  EXPECT_EQ(file_.read(1, &byte, &count), kAnyError);
  EXPECT_EQ(count, 0u);
}

TEST_F(PrimitiveFileTest, ReadWithoutAFileIsWhateverErrorWasPending) {
  CallCounter reads("ReadFile");
  char byte;
  for (const int pending : {kAnyError, 0}) {
    uint64_t count = 77;
    ::SetLastError(static_cast<DWORD>(pending));
    EXPECT_EQ(file_.read(1, &byte, &count), pending);
    EXPECT_EQ(count, 0u);
  }
  EXPECT_EQ(reads.calls(), 0);
}

TEST_F(PrimitiveFileTest, OnlyTheLow32BitsOfASizeToReadCount) {
  openFile();
  std::vector<DWORD> sizes;
  ImportHook hook("ReadFile", [&](Call& call) {
    sizes.push_back(call.argument<DWORD>(2));
    return TRUE;
  });
  char byte;
  for (const uint64_t size : {uint64_t{0xFFFFFFFF}, uint64_t{1} << 32, (uint64_t{5} << 32) + 3})
    EXPECT_EQ(file_.read(size, &byte, nullptr), 0);
  EXPECT_THAT(sizes, ElementsAre(0xFFFFFFFF, 0u, 3u));
}

// ---- Size and offsets ----

TEST_F(PrimitiveFileTest, GetSizeTellsTheLow32Bits) {
  openFile();
  OSSPrimitiveFileOp::offsetType size = 77;
  EXPECT_EQ(file_.getSize(&size), 0);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(file_.getSize(nullptr), 0);

  stretch(handleOf(file_), 3 * kGiB);
  EXPECT_EQ(file_.getSize(&size), 0);
  EXPECT_EQ(size, 3u << 30);

  stretch(handleOf(file_), 4 * kGiB + 5);
  EXPECT_EQ(file_.getSize(&size), 0);
  EXPECT_EQ(size, 5u);
}

TEST_F(PrimitiveFileTest, AFailedGetSizeIsTheSystemsErrorAndZero) {
  OSSPrimitiveFileOp::offsetType size = 77;
  EXPECT_EQ(file_.getSize(&size), ERROR_INVALID_HANDLE);
  EXPECT_EQ(size, 0u);

  FailingCall fails("GetFileSize", kAnyError, {.result = INVALID_FILE_SIZE});
  EXPECT_EQ(file_.getSize(nullptr), kAnyError);
}

// One byte less than 4 GiB looks like a failure, but there is no error.
TEST_F(PrimitiveFileTest, ASizeOfAllOnesCountsAsAFailureWithWhateverErrorThereIs) {
  FailingCall fails("GetFileSize", NO_ERROR, {.result = INVALID_FILE_SIZE});
  OSSPrimitiveFileOp::offsetType size = 77;
  EXPECT_EQ(file_.getSize(&size), 0);
  EXPECT_EQ(size, 0u);
}

TEST_F(PrimitiveFileTest, SeeksCountFromTheStartAndMayGoBehindTheEnd) {
  openFile();
  EXPECT_EQ(file_.getCurrentOffset(), 0u);
  file_.seekToOffset(7);
  EXPECT_EQ(file_.getCurrentOffset(), 7u);
  file_.seekToOffset(2);
  EXPECT_EQ(positionOf(handleOf(file_)), 2);
  file_.seekToEnd();
  EXPECT_EQ(positionOf(handleOf(file_)), 10);
  file_.seekToOffset(12);
  EXPECT_EQ(file_.write("x", 0), 0);
  EXPECT_EQ(readFile(path_), std::string("0123456789\0\0x", 13));
}

TEST_F(PrimitiveFileTest, OffsetsReachUpTo4GiB) {
  openFile();
  for (const uint32_t offset : {0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    file_.seekToOffset(offset);
    EXPECT_EQ(positionOf(handleOf(file_)), offset);
    EXPECT_EQ(file_.getCurrentOffset(), offset);
  }
}

// Without the high half the system takes the low one as signed.
TEST_F(PrimitiveFileTest, ATargetIsGivenToTheSystemInTwoHalves) {
  struct Move {
    uint32_t low;
    int32_t high;
    DWORD from;

    bool operator==(const Move&) const = default;
  };
  std::vector<Move> moves;
  ImportHook hook("SetFilePointer", [&](Call& call) {
    const auto* const high = call.argument<const LONG*>(2);
    ASSERT_NE(high, nullptr);
    moves.push_back({call.argument<uint32_t>(1), *high, call.argument<DWORD>(3)});
  });
  file_.seekToOffset(0xFFFFFFFF);
  file_.seekToEnd();
  EXPECT_THAT(moves, ElementsAre(Move{0xFFFFFFFF, 0, FILE_BEGIN}, Move{0, 0, FILE_END}));
}

TEST_F(PrimitiveFileTest, TheEndMayLieBeyond4GiB) {
  openFile();
  stretch(handleOf(file_), 5 * kGiB);
  file_.seekToEnd();
  EXPECT_EQ(positionOf(handleOf(file_)), int64_t{5 * kGiB});
}

TEST_F(PrimitiveFileTest, SeeksWithoutAFileReportNothing) {
  file_.seekToOffset(5);
  file_.seekToEnd();
  EXPECT_EQ(file_.getCurrentOffset(), INVALID_SET_FILE_POINTER);
  EXPECT_FALSE(file_.isValid());
}

}  // namespace
