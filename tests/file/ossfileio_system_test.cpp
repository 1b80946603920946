// The file handle: read and write.
#include "file/ossfilefixture.h"
#include "harness/twopages.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

OSSFileReadParam readParam(uint64_t size) {
  OSSFileReadParam param;
  param.size = size;
  return param;
}

OSSFileWriteParam writeParam(const void* buffer, uint64_t size) {
  OSSFileWriteParam param;
  param.buffer = buffer;
  param.size = size;
  return param;
}

// A transfer that the library asked the system for: where in the buffer, and how much.
struct Piece {
  uint64_t offset;
  uint64_t size;

  bool operator==(const Piece&) const = default;
  friend void PrintTo(const Piece& piece, std::ostream* out) {
    *out << piece.size << " bytes at " << piece.offset;
  }
};

// Answers ReadFile or WriteFile for one file without moving a byte, so that transfers can be larger
// than memory. Each piece is moved whole but for the one that `shorten` or `refuse` names.
class Transfers {
 public:
  Transfers(const char* function, HANDLE file, const void* buffer)
      : hook_(function, [this, file, buffer](Call& call) -> Word {
          // The log writes through the same function.
          if (call.argument<HANDLE>(0) != file) return call.passOn();
          const auto size = call.argument<DWORD>(2);
          const auto offset = call.argument<uint64_t>(1) - reinterpret_cast<uint64_t>(buffer);
          pieces_.push_back({offset, size});
          if (pieces_.size() == refused_) {
            ::SetLastError(error_);
            return FALSE;
          }
          *call.argument<DWORD*>(3) = pieces_.size() == shortened_ ? moved_ : size;
          return TRUE;
        }) {}

  void shorten(size_t piece, DWORD moved) {
    shortened_ = piece;
    moved_ = moved;
  }
  void refuse(size_t piece, DWORD error) {
    refused_ = piece;
    error_ = error;
  }
  const std::vector<Piece>& pieces() const { return pieces_; }

 private:
  std::vector<Piece> pieces_;
  size_t shortened_ = 0;
  DWORD moved_ = 0;
  size_t refused_ = 0;
  DWORD error_ = 0;
  ImportHook hook_;
};

using OSSHFileReadTest = OSSHFileTest;
using OSSHFileWriteTest = OSSHFileTest;

// ---- read ----

TEST_F(OSSHFileReadTest, ReadsAtTheFilePointerAndMovesIt) {
  openFile(OSS_FILE_READ);
  moveTo(2);
  char buffer[5] = "????";
  uint64_t count = ~uint64_t{0};
  const OSSFileReadParam param = readParam(3);
  EXPECT_EQ(file_.read(&param, buffer, &count), ECF_OK);
  EXPECT_EQ(count, 3u);
  EXPECT_STREQ(buffer, "234?");
  EXPECT_EQ(positionOf(handle()), 5);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileReadTest, FewerBytesThanAskedIsTheEndAndIsNotLogged) {
  openFile();
  moveTo(7);
  char buffer[8] = "???????";
  uint64_t count = ~uint64_t{0};
  const OSSFileReadParam param = readParam(6);
  EXPECT_EQ(file_.read(&param, buffer, &count), ECF_FILE_EOF);
  EXPECT_EQ(count, 3u);
  EXPECT_STREQ(buffer, "789????");
  EXPECT_EQ(positionOf(handle()), 10);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileReadTest, ReadingAtTheEndGivesNoByteAndIsNotLogged) {
  openFile();
  moveTo(10);
  char buffer = '?';
  uint64_t count = ~uint64_t{0};
  const OSSFileReadParam param = readParam(1);
  EXPECT_EQ(file_.read(&param, &buffer, &count), ECF_FILE_EOF);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(buffer, '?');
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileReadTest, ReadingNothingSucceedsAlsoAtTheEnd) {
  openFile();
  moveTo(10);
  uint64_t count = ~uint64_t{0};
  const OSSFileReadParam param = readParam(0);
  EXPECT_EQ(file_.read(&param, nullptr, &count), ECF_OK);
  EXPECT_EQ(count, 0u);
}

TEST_F(OSSHFileReadTest, AllByteValuesArriveUnchanged) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  writeFile(path_, all);
  openFile();
  std::string buffer(256, '?');
  uint64_t count = 0;
  const OSSFileReadParam param = readParam(256);
  EXPECT_EQ(file_.read(&param, buffer.data(), &count), ECF_OK);
  EXPECT_EQ(buffer, all);
}

TEST_F(OSSHFileReadTest, ALongTransferGoesInPiecesOfAGibibyte) {
  openFile();
  char buffer;
  Transfers transfers("ReadFile", handle(), &buffer);
  uint64_t count = 0;
  const OSSFileReadParam param = readParam(2 * kGiB + 5);
  EXPECT_EQ(file_.read(&param, &buffer, &count), ECF_OK);
  EXPECT_EQ(count, 2 * kGiB + 5);
  EXPECT_THAT(transfers.pieces(),
              ElementsAre(Piece{0, kGiB}, Piece{kGiB, kGiB}, Piece{2 * kGiB, 5}));
}

TEST_F(OSSHFileReadTest, AWholeNumberOfPiecesHasNoEmptyOneBehind) {
  openFile();
  char buffer;
  Transfers transfers("ReadFile", handle(), &buffer);
  uint64_t count = 0;
  const OSSFileReadParam param = readParam(5 * kGiB);
  EXPECT_EQ(file_.read(&param, &buffer, &count), ECF_OK);
  EXPECT_EQ(count, 5 * kGiB);
  EXPECT_EQ(transfers.pieces().size(), 5u);
}

TEST_F(OSSHFileReadTest, AShortPieceEndsALongTransfer) {
  openFile();
  char buffer;
  Transfers transfers("ReadFile", handle(), &buffer);
  transfers.shorten(2, 7);
  uint64_t count = 0;
  const OSSFileReadParam param = readParam(~uint64_t{0});
  EXPECT_EQ(file_.read(&param, &buffer, &count), ECF_FILE_EOF);
  EXPECT_EQ(count, kGiB + 7);
  EXPECT_THAT(transfers.pieces(), ElementsAre(Piece{0, kGiB}, Piece{kGiB, kGiB}));
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileReadTest, AFailureTellsHowManyBytesWereMovedBefore) {
  openFile();
  char buffer;
  Transfers transfers("ReadFile", handle(), &buffer);
  transfers.refuse(2, ERROR_CRC);
  uint64_t count = 0;
  const uint64_t size = 2 * kGiB;
  const OSSFileReadParam param = readParam(size);
  expectRefusal([&] { return file_.read(&param, &buffer, &count); }, ECF_UNKNOWN,
                SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_read, 50, SysCall::ReadFile, ERROR_CRC,
                             ECF_UNKNOWN, {{1, Hex(handle())}, {3, Uint(size)}}));
  EXPECT_EQ(count, kGiB);
}

TEST_F(OSSHFileReadTest, ASystemThatRefusesIsReportedWithHandleAndSize) {
  openFile();
  FailingCall fails("ReadFile", ERROR_LOCK_VIOLATION);
  char buffer[4];
  uint64_t count = ~uint64_t{0};
  const uint64_t size = 4;
  const OSSFileReadParam param = readParam(size);
  expectRefusal(
      [&] { return file_.read(&param, buffer, &count); }, ECF_FILE_LOCK,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_read, 50, SysCall::ReadFile, ERROR_LOCK_VIOLATION,
                   ECF_FILE_LOCK, {{1, Hex(handle())}, {3, Uint(size)}}));
  EXPECT_EQ(count, 0u);
}

TEST_F(OSSHFileReadTest, AClosedHandleIsRefusedByTheSystem) {
  char buffer[4] = "???";
  uint64_t count = ~uint64_t{0};
  const uint64_t size = 3;
  const OSSFileReadParam param = readParam(size);
  expectRefusal(
      [&] { return file_.read(&param, buffer, &count); }, ECF_INVALID_PARAMETER,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_read, 50, SysCall::ReadFile, ERROR_INVALID_HANDLE,
                   ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}, {3, Uint(size)}}));
  EXPECT_EQ(count, 0u);
  EXPECT_STREQ(buffer, "???");
}

TEST_F(OSSHFileReadTest, AHandleWithoutReadAccessIsRefusedByTheSystem) {
  openFile(OSS_FILE_WRITE);
  char buffer[4];
  uint64_t count = ~uint64_t{0};
  const uint64_t size = 4;
  const OSSFileReadParam param = readParam(size);
  expectRefusal(
      [&] { return file_.read(&param, buffer, &count); }, ECF_ACCESS_DENIED,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_read, 50, SysCall::ReadFile, ERROR_ACCESS_DENIED,
                   ECF_ACCESS_DENIED, {{1, Hex(handle())}, {3, Uint(size)}}));
}

TEST_F(OSSHFileReadTest, ANullBufferIsRefusedByTheSystem) {
  openFile();
  uint64_t count = ~uint64_t{0};
  const uint64_t size = 4;
  const OSSFileReadParam param = readParam(size);
  expectRefusal([&] { return file_.read(&param, nullptr, &count); }, ECF_UNKNOWN,
                SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_read, 50, SysCall::ReadFile,
                             ERROR_NOACCESS, ECF_UNKNOWN, {{1, Hex(handle())}, {3, Uint(size)}}));
  EXPECT_EQ(count, 0u);
}

TEST_F(OSSHFileReadTest, ANullRecordIsRefused) {
  openFile();
  char buffer[4] = "???";
  uint64_t count = 77;
  expectRefusal([&] { return file_.read(nullptr, buffer, &count); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_read, 1111, ECF_INVALID_PARAMETER));
  EXPECT_EQ(count, 77u);
  EXPECT_STREQ(buffer, "???");
}

TEST_F(OSSHFileReadTest, ARecordThatIsTooOldIsRefused) {
  openFile();
  char buffer[4] = "???";
  uint64_t count = 77;
  OSSFileReadParam param = readParam(3);
  param.version = kTooOld;
  expectRefusal(
      [&] { return file_.read(&param, buffer, &count); }, ECF_INVALID_VERSION,
      FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_read, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)}));
  EXPECT_EQ(count, 77u);
  EXPECT_STREQ(buffer, "???");
}

TEST_F(OSSHFileReadTest, TheOldestAcceptedVersionIsAccepted) {
  openFile();
  char buffer[3];
  uint64_t count = 0;
  OSSFileReadParam param = readParam(3);
  param.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(file_.read(&param, buffer, &count), ECF_OK);
}

TEST_F(OSSHFileReadTest, ANullCountIsRefused) {
  openFile();
  char buffer[4] = "???";
  const OSSFileReadParam param = readParam(3);
  expectRefusal([&] { return file_.read(&param, buffer, nullptr); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_read, 1111, ECF_INVALID_PARAMETER));
  EXPECT_STREQ(buffer, "???");
}

// ---- write ----

TEST_F(OSSHFileWriteTest, WritesAtTheFilePointerAndMovesIt) {
  openFile(OSS_FILE_WRITE);
  moveTo(8);
  uint64_t count = 0;
  const OSSFileWriteParam param = writeParam("abcd", 4);
  EXPECT_EQ(file_.write(&param, &count), ECF_OK);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(positionOf(handle()), 12);
  EXPECT_EQ(readFile(path_), "01234567abcd");
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileWriteTest, TheCountMayBeNull) {
  openFile();
  const OSSFileWriteParam param = writeParam("ab", 2);
  EXPECT_EQ(file_.write(&param, nullptr), ECF_OK);
  EXPECT_EQ(readFile(path_), "ab23456789");
}

TEST_F(OSSHFileWriteTest, WritingNothingSucceedsAndChangesNothing) {
  openFile();
  uint64_t count = ~uint64_t{0};
  const OSSFileWriteParam param = writeParam(nullptr, 0);
  EXPECT_EQ(file_.write(&param, &count), ECF_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(readFile(path_), kContent);
}

TEST_F(OSSHFileWriteTest, AllByteValuesArriveUnchanged) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  openFile();
  const OSSFileWriteParam param = writeParam(all.data(), all.size());
  EXPECT_EQ(file_.write(&param, nullptr), ECF_OK);
  EXPECT_EQ(readFile(path_), all);
}

TEST_F(OSSHFileWriteTest, ALongTransferGoesInPiecesOfAGibibyte) {
  openFile();
  const char buffer = '\0';
  Transfers transfers("WriteFile", handle(), &buffer);
  uint64_t count = 0;
  const OSSFileWriteParam param = writeParam(&buffer, 3 * kGiB + 1);
  EXPECT_EQ(file_.write(&param, &count), ECF_OK);
  EXPECT_EQ(count, 3 * kGiB + 1);
  EXPECT_THAT(transfers.pieces(), ElementsAre(Piece{0, kGiB}, Piece{kGiB, kGiB},
                                              Piece{2 * kGiB, kGiB}, Piece{3 * kGiB, 1}));
}

TEST_F(OSSHFileWriteTest, FewerBytesThanAskedIsAnIncompleteWrite) {
  openFile();
  const char buffer[] = "abcd";
  Transfers transfers("WriteFile", handle(), buffer);
  transfers.shorten(1, 3);
  uint64_t count = 0;
  const uint64_t size = 4;
  const OSSFileWriteParam param = writeParam(buffer, size);
  expectRefusal([&] { return file_.write(&param, &count); }, ECF_FILE_INCOMPLETE_WRITE,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_write, 60, ECF_FILE_INCOMPLETE_WRITE,
                            {Uint(size), Uint(uint64_t{3})}));
  EXPECT_EQ(count, 3u);
}

TEST_F(OSSHFileWriteTest, AnIncompleteWriteIsReportedWithoutACountToo) {
  openFile();
  const char buffer[] = "abcd";
  Transfers transfers("WriteFile", handle(), buffer);
  transfers.shorten(1, 0);
  const uint64_t size = 4;
  const OSSFileWriteParam param = writeParam(buffer, size);
  expectRefusal([&] { return file_.write(&param, nullptr); }, ECF_FILE_INCOMPLETE_WRITE,
                FoundRecord(OSS_LOG_INFO, Func::OSSHFile_write, 60, ECF_FILE_INCOMPLETE_WRITE,
                            {Uint(size), Uint(uint64_t{0})}));
}

TEST_F(OSSHFileWriteTest, AFullDiskIsReportedWithHandleBufferAndSize) {
  openFile();
  FailingCall fails("WriteFile", ERROR_DISK_FULL);
  uint64_t count = ~uint64_t{0};
  const uint64_t size = 4;
  const OSSFileWriteParam param = writeParam("abcd", size);
  expectRefusal(
      [&] { return file_.write(&param, &count); }, ECF_FILE_NO_SPACE,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_write, 40, SysCall::WriteFile, ERROR_DISK_FULL,
                   ECF_FILE_NO_SPACE, {{1, Hex(handle())}, {2, String("abcd")}, {3, Uint(size)}}));
  EXPECT_EQ(count, 0u);
}

TEST_F(OSSHFileWriteTest, AFailureTellsHowManyBytesWereMovedBefore) {
  openFile();
  const char buffer[513] = "short";
  Transfers transfers("WriteFile", handle(), buffer);
  transfers.refuse(3, ERROR_DISK_FULL);
  uint64_t count = 0;
  const uint64_t size = 3 * kGiB;
  const OSSFileWriteParam param = writeParam(buffer, size);
  expectRefusal([&] { return file_.write(&param, &count); }, ECF_FILE_NO_SPACE,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_write, 40, SysCall::WriteFile,
                             ERROR_DISK_FULL, ECF_FILE_NO_SPACE,
                             {{1, Hex(handle())}, {2, String("short", 512)}, {3, Uint(size)}}));
  EXPECT_EQ(count, 2 * kGiB);
}

TEST_F(OSSHFileWriteTest, TheLoggedBufferNeedNotEndInANul) {
  openFile();
  const std::string buffer(600, 'x');
  for (const uint64_t size : {uint64_t{3}, uint64_t{512}, uint64_t{600}}) {
    const uint64_t shown = std::min<uint64_t>(size, 512);
    FailingCall fails("WriteFile", ERROR_DISK_FULL);
    const OSSFileWriteParam param = writeParam(buffer.data(), size);
    expectRefusal(
        [&] { return file_.write(&param, nullptr); }, ECF_FILE_NO_SPACE,
        SystemRecord(
            OSS_LOG_INFO, Func::OSSHFile_write, 40, SysCall::WriteFile, ERROR_DISK_FULL,
            ECF_FILE_NO_SPACE,
            {{1, Hex(handle())}, {2, String(std::string(shown, 'x'), shown)}, {3, Uint(size)}}));
  }
}

TEST_F(OSSHFileWriteTest, ANullBufferIsRefusedByTheSystemAndShownAsNull) {
  openFile();
  uint64_t count = ~uint64_t{0};
  const uint64_t size = 4;
  const OSSFileWriteParam param = writeParam(nullptr, size);
  expectRefusal([&] { return file_.write(&param, &count); }, ECF_UNKNOWN,
                SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_write, 40, SysCall::WriteFile,
                             ERROR_INVALID_USER_BUFFER, ECF_UNKNOWN,
                             {{1, Hex(handle())}, {2, Null()}, {3, Uint(size)}}));
  EXPECT_EQ(count, 0u);
}

// The record does not read what the system could not.
TEST_F(OSSHFileWriteTest, ABufferThatCannotBeReadIsRefusedByTheSystemAndShownAsNull) {
  openFile();
  const TwoPages pages(PAGE_NOACCESS);
  const uint64_t size = 20;
  for (const char* const buffer : {pages.second() - 6, pages.second()}) {
    uint64_t count = ~uint64_t{0};
    const OSSFileWriteParam param = writeParam(buffer, size);
    expectRefusal([&] { return file_.write(&param, &count); }, ECF_UNKNOWN,
                  SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_write, 40, SysCall::WriteFile,
                               ERROR_INVALID_USER_BUFFER, ECF_UNKNOWN,
                               {{1, Hex(handle())}, {2, Null()}, {3, Uint(size)}}));
    EXPECT_EQ(count, 0u);
  }
}

TEST_F(OSSHFileWriteTest, AClosedHandleIsRefusedByTheSystem) {
  uint64_t count = ~uint64_t{0};
  const uint64_t size = 2;
  const OSSFileWriteParam param = writeParam("ab", size);
  expectRefusal([&] { return file_.write(&param, &count); }, ECF_INVALID_PARAMETER,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_write, 40, SysCall::WriteFile,
                             ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER,
                             {{1, Hex(INVALID_HANDLE_VALUE)}, {2, String("ab")}, {3, Uint(size)}}));
  EXPECT_EQ(count, 0u);
}

TEST_F(OSSHFileWriteTest, AHandleWithoutWriteAccessIsRefusedByTheSystem) {
  openFile(OSS_FILE_READ);
  const uint64_t size = 2;
  const OSSFileWriteParam param = writeParam("ab", size);
  expectRefusal(
      [&] { return file_.write(&param, nullptr); }, ECF_ACCESS_DENIED,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_write, 40, SysCall::WriteFile, ERROR_ACCESS_DENIED,
                   ECF_ACCESS_DENIED, {{1, Hex(handle())}, {2, String("ab")}, {3, Uint(size)}}));
}

TEST_F(OSSHFileWriteTest, ANullRecordIsRefused) {
  openFile();
  uint64_t count = 77;
  expectRefusal([&] { return file_.write(nullptr, &count); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_write, 1111, ECF_INVALID_PARAMETER));
  EXPECT_EQ(count, 77u);
}

TEST_F(OSSHFileWriteTest, ARecordThatIsTooOldIsRefused) {
  openFile();
  uint64_t count = 77;
  OSSFileWriteParam param = writeParam("ab", 2);
  param.version = kTooOld;
  expectRefusal(
      [&] { return file_.write(&param, &count); }, ECF_INVALID_VERSION,
      FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_write, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)}));
  EXPECT_EQ(count, 77u);
}

TEST_F(OSSHFileWriteTest, TheOldestAcceptedVersionIsAccepted) {
  openFile();
  OSSFileWriteParam param = writeParam("ab", 2);
  param.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(file_.write(&param, nullptr), ECF_OK);
}

}  // namespace
