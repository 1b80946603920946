// The file handle: seek, getSize, setSize.
#include <limits>
#include <random>
#include <utility>

#include "file/ossfilefixture.h"
#include "harness/wine.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

constexpr int64_t kFarBack = std::numeric_limits<int64_t>::min();
constexpr int64_t kFarAhead = std::numeric_limits<int64_t>::max();
constexpr uint64_t kSize = 10;  // of the fixture's file

OSSFileSeekParam seekParam(int64_t offset, uint64_t origin) {
  OSSFileSeekParam param;
  param.offset = offset;
  param.origin = origin;
  return param;
}

OSSFileSetSizeParam setSizeParam(uint64_t size) {
  OSSFileSetSizeParam param;
  param.size = size;
  return param;
}

class OSSHFileSeekTest : public OSSHFileTest {
 protected:
  OSSHFileSeekTest() { openFile(); }

  // Seeks and expects success at that position, as the result says and as the system says.
  void expectSeek(int64_t offset, uint64_t origin, uint64_t target) {
    SCOPED_TRACE(offset);
    uint64_t position = 77;
    const OSSFileSeekParam param = seekParam(offset, origin);
    EXPECT_EQ(file_.seek(&param, &position), ECF_OK);
    EXPECT_EQ(position, target);
    EXPECT_EQ(positionOf(handle()), static_cast<int64_t>(target));
  }

  // Seeks and expects a refusal that leaves the result alone as well.
  void expectRefusedSeek(OSSFileSeekParam param, OSSErr code, const LogEvidence& record) {
    uint64_t position = 77;
    expectRefusal([&] { return file_.seek(&param, &position); }, code, record);
    EXPECT_EQ(position, 77u);
  }

  LogEvidence beyondEnd(uint64_t target, uint64_t size = kSize) {
    return FoundRecord(OSS_LOG_INFO, Func::OSSHFile_seek, 150, ECF_FILE_SEEK_BEYOND_EOF,
                       {Uint(target), Uint(size)});
  }

  LogEvidence refusedCall(uint64_t probe, SysCall call, DWORD error, OSSErr code) {
    return SystemRecord(OSS_LOG_INFO, Func::OSSHFile_seek, probe, call, error, code,
                        {{1, Hex(handle())}});
  }
};

class OSSHFileSizeTest : public OSSHFileTest {
 protected:
  OSSHFileSizeTest() { openFile(); }
};

// ---- seek ----

TEST_F(OSSHFileSeekTest, MovesFromTheStartThePointerOrTheEnd) {
  expectSeek(4, OSS_FILE_START, 4);
  expectSeek(3, OSS_FILE_CURRENT, 7);
  expectSeek(-2, OSS_FILE_CURRENT, 5);
  expectSeek(0, OSS_FILE_CURRENT, 5);
  expectSeek(-1, OSS_FILE_END, 9);
  expectSeek(0, OSS_FILE_START, 0);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileSeekTest, TheEndItselfIsAllowedAndOneByteFurtherIsNot) {
  expectSeek(10, OSS_FILE_START, 10);
  expectSeek(0, OSS_FILE_END, 10);
  expectSeek(0, OSS_FILE_CURRENT, 10);
  expectRefusedSeek(seekParam(11, OSS_FILE_START), ECF_FILE_SEEK_BEYOND_EOF, beyondEnd(11));
  expectRefusedSeek(seekParam(1, OSS_FILE_END), ECF_FILE_SEEK_BEYOND_EOF, beyondEnd(11));
  expectRefusedSeek(seekParam(2, OSS_FILE_CURRENT), ECF_FILE_SEEK_BEYOND_EOF, beyondEnd(12));
}

TEST_F(OSSHFileSeekTest, BeforeTheStartIsTheStart) {
  for (const int64_t offset : {int64_t{-5}, kFarBack}) {
    moveTo(3);
    expectSeek(offset, OSS_FILE_START, 0);
    moveTo(3);
    expectSeek(offset, OSS_FILE_CURRENT, 0);
  }
  expectSeek(-11, OSS_FILE_END, 0);
  expectSeek(kFarBack, OSS_FILE_END, 0);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileSeekTest, AFarTargetIsBeyondTheEndAndNeverWraps) {
  moveTo(3);
  constexpr uint64_t kFar = static_cast<uint64_t>(kFarAhead);
  expectRefusedSeek(seekParam(kFarAhead, OSS_FILE_START), ECF_FILE_SEEK_BEYOND_EOF,
                    beyondEnd(kFar));
  expectRefusedSeek(seekParam(kFarAhead, OSS_FILE_CURRENT), ECF_FILE_SEEK_BEYOND_EOF,
                    beyondEnd(kFar + 3));
  moveTo(kSize);
  expectRefusedSeek(seekParam(kFarAhead, OSS_FILE_END), ECF_FILE_SEEK_BEYOND_EOF,
                    beyondEnd(kFar + kSize));
}

// The end's position is found by moving there.
TEST_F(OSSHFileSeekTest, ARefusedSeekFromTheEndLeavesThePointerAtTheEnd) {
  moveTo(3);
  const OSSFileSeekParam param = seekParam(1, OSS_FILE_END);
  EXPECT_EQ(file_.seek(&param, nullptr), ECF_FILE_SEEK_BEYOND_EOF);
  EXPECT_EQ(positionOf(handle()), 10);
}

// No file is so long, but a base that the system reports is believed.
TEST_F(OSSHFileSeekTest, ATargetBehindTheLastPositionIsTheLastPosition) {
  bool isAnswered = false;
  ImportHook hook("SetFilePointer", [&](Call& call) -> Word {
    if (std::exchange(isAnswered, true)) return call.passOn();
    *call.argument<LONG*>(2) = -1;
    return 0xFFFFFFF0;
  });
  expectRefusedSeek(seekParam(0x20, OSS_FILE_CURRENT), ECF_FILE_SEEK_BEYOND_EOF,
                    beyondEnd(~uint64_t{0}));
}

TEST_F(OSSHFileSeekTest, AgreesWithExactArithmetic) {
  constexpr auto kEnd = static_cast<int64_t>(kSize);
  std::mt19937_64 random(20040702);
  int64_t position = 0;
  for (int round = 0; round < 500; ++round) {
    // Every magnitude is as likely as any other.
    const auto offset = static_cast<int64_t>(random()) >> random() % 64;
    const uint64_t origin = random() % 3;
    SCOPED_TRACE(testing::Message() << offset << " from " << origin << " at " << position);

    const int64_t base = origin == OSS_FILE_START ? 0 : origin == OSS_FILE_END ? kEnd : position;
    uint64_t result = 77;
    const OSSFileSeekParam param = seekParam(offset, origin);
    if (offset <= kEnd - base) {
      position = offset < -base ? 0 : base + offset;
      EXPECT_EQ(file_.seek(&param, &result), ECF_OK);
      EXPECT_EQ(result, static_cast<uint64_t>(position));
    } else {
      if (origin == OSS_FILE_END) position = kEnd;
      EXPECT_EQ(file_.seek(&param, &result), ECF_FILE_SEEK_BEYOND_EOF);
      EXPECT_EQ(result, 77u);
    }
    EXPECT_EQ(positionOf(handle()), position);
  }
}

TEST_F(OSSHFileSeekTest, TheResultMayBeNull) {
  const OSSFileSeekParam param = seekParam(4, OSS_FILE_START);
  EXPECT_EQ(file_.seek(&param, nullptr), ECF_OK);
  EXPECT_EQ(positionOf(handle()), 4);
}

TEST_F(OSSHFileSeekTest, TheOldestAcceptedVersionIsAccepted) {
  OSSFileSeekParam param = seekParam(4, OSS_FILE_START);
  param.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(file_.seek(&param, nullptr), ECF_OK);
}

TEST_F(OSSHFileSeekTest, ANullRecordIsRefused) {
  uint64_t position = 77;
  expectRefusal([&] { return file_.seek(nullptr, &position); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_seek, 1111, ECF_INVALID_PARAMETER));
  EXPECT_EQ(position, 77u);
}

TEST_F(OSSHFileSeekTest, ARecordThatIsTooOldIsRefused) {
  OSSFileSeekParam param = seekParam(4, OSS_FILE_START);
  param.version = kTooOld;
  expectRefusedSeek(
      param, ECF_INVALID_VERSION,
      FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_seek, 1112, ECF_INVALID_VERSION, {Uint(kTooOld)}));
}

TEST_F(OSSHFileSeekTest, AnUnknownOriginIsRefused) {
  for (const uint64_t origin : {uint64_t{3}, uint64_t{0x100000000}, ~uint64_t{0}})
    expectRefusedSeek(
        seekParam(4, origin), ECF_INVALID_PARAMETER,
        FoundRecord(OSS_LOG_INFO, Func::OSSHFile_seek, 120, ECF_INVALID_PARAMETER, {Hex(origin)}));
}

TEST_F(OSSHFileSeekTest, ABaseThatTheSystemRefusesIsReported) {
  for (const uint64_t origin : {OSS_FILE_CURRENT, OSS_FILE_END}) {
    FailingCall fails("SetFilePointer", ERROR_ACCESS_DENIED, {.result = INVALID_SET_FILE_POINTER});
    expectRefusedSeek(
        seekParam(0, origin), ECF_ACCESS_DENIED,
        refusedCall(130, SysCall::SetFilePointer, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED));
  }
}

TEST_F(OSSHFileSeekTest, ASizeThatTheSystemRefusesIsReported) {
  FailingCall fails("GetFileSize", ERROR_ACCESS_DENIED, {.result = INVALID_FILE_SIZE});
  expectRefusedSeek(seekParam(4, OSS_FILE_START), ECF_ACCESS_DENIED,
                    refusedCall(140, SysCall::GetFileSize, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED));
}

TEST_F(OSSHFileSeekTest, AMoveThatTheSystemRefusesIsReported) {
  const struct {
    uint64_t origin;
    int move;  // which call of SetFilePointer is the move
  } kRows[] = {{OSS_FILE_START, 1}, {OSS_FILE_CURRENT, 2}, {OSS_FILE_END, 2}};
  moveTo(kSize);
  for (const auto& row : kRows) {
    FailingCall fails("SetFilePointer", ERROR_ACCESS_DENIED,
                      {.result = INVALID_SET_FILE_POINTER, .onCall = row.move});
    expectRefusedSeek(
        seekParam(0, row.origin), ECF_ACCESS_DENIED,
        refusedCall(160, SysCall::SetFilePointer, ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED));
  }
}

TEST_F(OSSHFileSeekTest, AClosedHandleIsRefusedByTheSystem) {
  ASSERT_EQ(file_.close(), ECF_OK);
  expectRefusedSeek(
      seekParam(0, OSS_FILE_START), ECF_INVALID_PARAMETER,
      refusedCall(140, SysCall::GetFileSize, ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER));
  expectRefusedSeek(
      seekParam(0, OSS_FILE_CURRENT), ECF_INVALID_PARAMETER,
      refusedCall(130, SysCall::SetFilePointer, ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileSeekTest, PositionsAbove4GiBAreExact) {
  const OSSFileSetSizeParam size = setSizeParam(5 * kGiB);
  ASSERT_EQ(file_.setSize(&size), ECF_OK);
  expectSeek(static_cast<int64_t>(5 * kGiB), OSS_FILE_START, 5 * kGiB);
  expectSeek(-1, OSS_FILE_CURRENT, 5 * kGiB - 1);
  expectSeek(0, OSS_FILE_CURRENT, 5 * kGiB - 1);
  expectSeek(-static_cast<int64_t>(kGiB), OSS_FILE_END, 4 * kGiB);
  // A low half of all ones is a position like any other.
  expectSeek(-1, OSS_FILE_CURRENT, 4 * kGiB - 1);
  expectSeek(0, OSS_FILE_CURRENT, 4 * kGiB - 1);
  EXPECT_THAT(log_.records(), IsEmpty());

  // Not through the fixture, which would read five gibibytes.
  const OSSFileSeekParam param = seekParam(1, OSS_FILE_END);
  EXPECT_EQ(file_.seek(&param, nullptr), ECF_FILE_SEEK_BEYOND_EOF);
  EXPECT_THAT(log_.records(), ElementsAre(beyondEnd(5 * kGiB + 1, 5 * kGiB)));
}

// ---- getSize ----

TEST_F(OSSHFileSizeTest, TellsTheSizeAndLeavesThePointer) {
  moveTo(3);
  uint64_t size = 77;
  EXPECT_EQ(file_.getSize(&size), ECF_OK);
  EXPECT_EQ(size, kSize);
  EXPECT_EQ(positionOf(handle()), 3);
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileSizeTest, SizesAbove4GiBAreExact) {
  for (const uint64_t expected : {4 * kGiB - 1, 4 * kGiB, 5 * kGiB, uint64_t{0}}) {
    const OSSFileSetSizeParam param = setSizeParam(expected);
    ASSERT_EQ(file_.setSize(&param), ECF_OK);
    uint64_t size = 77;
    EXPECT_EQ(file_.getSize(&size), ECF_OK);
    EXPECT_EQ(size, expected);
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileSizeTest, ALowHalfOfAllOnesIsAFailureOnlyWithAnError) {
  DWORD error = NO_ERROR;
  ImportHook hook("GetFileSize", [&](Call& call) -> Word {
    if (call.argument<HANDLE>(0) != handle()) return call.passOn();
    if (error != NO_ERROR) ::SetLastError(error);
    *call.argument<DWORD*>(1) = 2;
    return INVALID_FILE_SIZE;
  });

  // An error of some earlier call does not count.
  ::SetLastError(ERROR_CRC);
  uint64_t size = 77;
  EXPECT_EQ(file_.getSize(&size), ECF_OK);
  EXPECT_EQ(size, 0x2FFFFFFFFu);

  error = ERROR_DISK_FULL;
  size = 77;
  expectRefusal([&] { return file_.getSize(&size); }, ECF_FILE_NO_SPACE,
                SystemRecord(OSS_LOG_INFO, Func::OSSHFile_getSize, 20, SysCall::GetFileSize,
                             ERROR_DISK_FULL, ECF_FILE_NO_SPACE, {{1, Hex(handle())}}));
  EXPECT_EQ(size, 77u);
}

TEST_F(OSSHFileSizeTest, ANullResultIsRefused) {
  expectRefusal([&] { return file_.getSize(nullptr); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_getSize, 1111, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileSizeTest, TheSizeOfAClosedHandleIsRefusedByTheSystem) {
  ASSERT_EQ(file_.close(), ECF_OK);
  uint64_t size = 77;
  expectRefusal(
      [&] { return file_.getSize(&size); }, ECF_INVALID_PARAMETER,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_getSize, 20, SysCall::GetFileSize,
                   ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}}));
  EXPECT_EQ(size, 77u);
}

// ---- setSize ----

class OSSHFileSetSizeTest : public OSSHFileSizeTest {
 protected:
  OSSErr setSize(uint64_t size) {
    const OSSFileSetSizeParam param = setSizeParam(size);
    return file_.setSize(&param);
  }

  // Refuses one of the three moves of the pointer that make up the operation.
  static FailingCall failingMove(int move) {
    return FailingCall("SetFilePointer", ERROR_CRC,
                       {.result = INVALID_SET_FILE_POINTER, .onCall = move});
  }

  LogEvidence refusedCall(uint64_t probe, SysCall call) {
    return SystemRecord(OSS_LOG_ERROR, Func::OSSHFile_setSize, probe, call, ERROR_CRC, ECF_UNKNOWN,
                        {{1, Hex(handle())}});
  }
};

TEST_F(OSSHFileSetSizeTest, TruncatesAndExtendsAndLeavesThePointer) {
  const struct {
    uint64_t size;
    std::string_view bytes;
  } kRows[] = {{4, "0123"}, {4, "0123"}, {6, {"0123\0\0", 6}}, {0, ""}, {2, {"\0\0", 2}}};
  for (const int64_t position : {int64_t{0}, int64_t{7}}) {
    writeFile(path_, kContent);
    moveTo(position);
    for (const auto& row : kRows) {
      EXPECT_EQ(setSize(row.size), ECF_OK);
      EXPECT_EQ(readFile(path_), row.bytes);
      EXPECT_EQ(positionOf(handle()), position);
    }
  }
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(OSSHFileSetSizeTest, TheOldestAcceptedVersionIsAccepted) {
  OSSFileSetSizeParam param = setSizeParam(4);
  param.version = OSS_VERSION_OLDEST;
  EXPECT_EQ(file_.setSize(&param), ECF_OK);
}

TEST_F(OSSHFileSetSizeTest, ANullRecordIsRefused) {
  expectRefusal([&] { return file_.setSize(nullptr); }, ECF_INVALID_PARAMETER,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_setSize, 1111, ECF_INVALID_PARAMETER));
}

TEST_F(OSSHFileSetSizeTest, ARecordThatIsTooOldIsRefused) {
  OSSFileSetSizeParam param = setSizeParam(4);
  param.version = kTooOld;
  expectRefusal([&] { return file_.setSize(&param); }, ECF_INVALID_VERSION,
                FoundRecord(OSS_LOG_ERROR, Func::OSSHFile_setSize, 1112, ECF_INVALID_VERSION,
                            {Uint(kTooOld)}));
}

TEST_F(OSSHFileSetSizeTest, AReservedWordThatIsNotZeroIsRefused) {
  for (const uint64_t reserved : {uint64_t{1}, ~uint64_t{0}}) {
    OSSFileSetSizeParam param = setSizeParam(4);
    param.reserved = reserved;
    expectRefusal([&] { return file_.setSize(&param); }, ECF_INVALID_PARAMETER,
                  FoundRecord(OSS_LOG_INFO, Func::OSSHFile_setSize, 30, ECF_INVALID_PARAMETER,
                              {Hex(reserved)}));
  }
}

// Deliberate: mapped as a failed size query, logged as a failed move.
TEST_F(OSSHFileSetSizeTest, APositionThatTheSystemRefusesIsLoggedAsAMove) {
  moveTo(3);
  const FailingCall fails = failingMove(1);
  expectRefusal([&] { return setSize(4); }, ECF_UNKNOWN, refusedCall(110, SysCall::SetFilePointer));
}

TEST_F(OSSHFileSetSizeTest, AMoveThatTheSystemRefusesChangesNothing) {
  moveTo(3);
  const FailingCall fails = failingMove(2);
  expectRefusal([&] { return setSize(4); }, ECF_UNKNOWN, refusedCall(130, SysCall::SetFilePointer));
}

TEST_F(OSSHFileSetSizeTest, ASizeThatTheSystemRefusesLeavesThePointerWhereItWas) {
  moveTo(3);
  FailingCall fails("SetEndOfFile", ERROR_CRC);
  expectRefusal([&] { return setSize(4); }, ECF_UNKNOWN, refusedCall(150, SysCall::SetEndOfFile));
}

TEST_F(OSSHFileSetSizeTest, ASizeThatTheSystemRefusesIsReportedOnceEvenIfThePointerIsLost) {
  FailingCall size("SetEndOfFile", ERROR_CRC);
  int moves = 0;
  ImportHook restore("SetFilePointer", [&](Call& call) -> Word {
    if (call.argument<HANDLE>(0) != handle() || ++moves != 3) return call.passOn();
    ::SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_SET_FILE_POINTER;
  });
  EXPECT_EQ(setSize(4), ECF_UNKNOWN);
  EXPECT_EQ(moves, 3);
  EXPECT_EQ(positionOf(handle()), 4);
  EXPECT_EQ(readFile(path_), kContent);
  EXPECT_THAT(log_.records(), ElementsAre(refusedCall(150, SysCall::SetEndOfFile)));
}

TEST_F(OSSHFileSetSizeTest, APointerThatCannotBeRestoredIsReportedBehindTheChange) {
  moveTo(3);
  const FailingCall fails = failingMove(3);
  EXPECT_EQ(setSize(4), ECF_UNKNOWN);
  EXPECT_THAT(log_.records(), ElementsAre(refusedCall(170, SysCall::SetFilePointer)));
  EXPECT_EQ(readFile(path_), "0123");
}

TEST_F(OSSHFileSetSizeTest, AClosedHandleIsRefusedByTheSystem) {
  ASSERT_EQ(file_.close(), ECF_OK);
  expectRefusal(
      [&] { return setSize(4); }, ECF_INVALID_PARAMETER,
      SystemRecord(OSS_LOG_INFO, Func::OSSHFile_setSize, 110, SysCall::SetFilePointer,
                   ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER, {{1, Hex(INVALID_HANDLE_VALUE)}}));
}

TEST_F(OSSHFileSetSizeTest, AHandleWithoutWriteAccessIsRefusedByTheSystem) {
  ASSERT_EQ(file_.close(), ECF_OK);
  openFile(OSS_FILE_READ);
  const auto refusal = [&](DWORD error, OSSErr code) {
    return SystemRecord(OSS_LOG_INFO, Func::OSSHFile_setSize, 150, SysCall::SetEndOfFile, error,
                        code, {{1, Hex(handle())}});
  };
  // Wine takes the handle for a bad parameter where Windows denies access.
  const LogEvidence expected = isUnderWine()
                                   ? refusal(ERROR_INVALID_PARAMETER, ECF_INVALID_PARAMETER)
                                   : refusal(ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED);
  EXPECT_EQ(setSize(4), expected.code);
  EXPECT_THAT(log_.records(), ElementsAre(expected));
  EXPECT_EQ(readFile(path_), kContent);
}

}  // namespace
