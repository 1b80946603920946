// What the file handle's operations trace of themselves, and where among their other steps: each on
// a real file, among fakes of all that the frame calls.
#include <gmock/gmock.h>
#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

#include "harness/tempdir.h"
#include "osscatalog.h"
#include "ossfile.h"
#include "osstrace.h"
#include "tests/core/tracedtest.h"

using namespace osse_test;
using oss::fakes::g_calls;
using oss::fakes::text;
using testing::ElementsAre;

namespace {

constexpr unsigned kOpen = 0x081A0002;
constexpr unsigned kClose = 0x081A0003;
constexpr unsigned kSeek = 0x081A0004;
constexpr unsigned kGetSize = 0x081A0005;
constexpr unsigned kSetSize = 0x081A0006;
constexpr unsigned kRead = 0x081A0007;
constexpr unsigned kWrite = 0x081A0008;
constexpr unsigned kLock = 0x081A0009;
constexpr unsigned kUnlock = 0x081A000A;
constexpr unsigned kMap = 0x081A000B;
constexpr unsigned kUnmap = 0x081A000C;
constexpr unsigned kSync = 0x081A000D;

// ---- The lines of the fakes ----

std::string entry(unsigned function) { return text("entry 0000000089ABCDEF %08X", function); }

std::string exitWith(unsigned function, OSSErr rc = ECF_OK) {
  return text("exit 0000000089ABCDEF %08X rc %016X extra 0", function, rc);
}

std::string itemOf(const void* data, size_t size) {
  std::string item = text(" {0 %u ", static_cast<unsigned>(size));
  for (size_t i = 0; i < size; ++i)
    item += text("%02X", static_cast<unsigned>(static_cast<const uint8_t*>(data)[i]));
  return item + "}";
}

// A data point with the bytes of these values.
template <class... T>
std::string point(unsigned function, unsigned probe, const T&... values) {
  return text("data 0000000089ABCDEF %08X probe %u type 3", function, probe) +
         (itemOf(&values, sizeof values) + ...);
}

std::string pathPoint(const std::string& path) {
  return text("data 0000000089ABCDEF %08X probe 220 type 3", kOpen) +
         itemOf(path.data(), path.size());
}

std::string found(unsigned function, OSSErr code, unsigned probe, unsigned level) {
  return text("log default %08X code %08X probe %u level %u nothing", function, code, probe, level);
}

// ---- The operations ----

// Tracing is on. The calls of a step are those since the last.
class FilePoints : public oss::fakes::TracedTest {
 protected:
  FilePoints() : TracedTest(ECF_INVALID_PARAMETER, OSS_LOG_INFO) { writeFile(path_, "0123456789"); }
  ~FilePoints() override {
    if (file_.getFileHandle() != INVALID_HANDLE_VALUE) ::CloseHandle(file_.getFileHandle());
  }

  OSSFileOpenParam openParam() const {
    OSSFileOpenParam param;
    param.path = path_.c_str();
    param.creation = OSS_FILE_OPEN_EXISTING;
    param.access = OSS_FILE_READ_WRITE;
    param.flags = 4;
    param.mode = 0x1FF;
    return param;
  }

  void openFile() {
    const OSSFileOpenParam param = openParam();
    ASSERT_EQ(file_.open(&param), ECF_OK);
    g_calls.clear();
  }

  TempDirectory dir_;
  const std::string path_ = dir_.file("file");
  OSSHFile file_;
};

TEST_F(FilePoints, OpenShowsItsRecordAndItsPath) {
  static_assert(sizeof(OSSFileOpenParam) == 56);
  const OSSFileOpenParam param = openParam();
  EXPECT_EQ(file_.open(&param), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre(entry(kOpen), point(kOpen, 200, param), pathPoint(path_),
                                   exitWith(kOpen)));
}

// Whatever else is wrong with the record.
TEST_F(FilePoints, OpenShowsThemOfARecordThatItRefuses) {
  OSSFileOpenParam param = openParam();
  param.creation = 3;
  EXPECT_EQ(file_.open(&param), ECF_INVALID_PARAMETER);
  EXPECT_THAT(calls(), ElementsAre(entry(kOpen), point(kOpen, 200, param), pathPoint(path_),
                                   found(kOpen, ECF_INVALID_PARAMETER, 230, OSS_LOG_INFO),
                                   exitWith(kOpen, ECF_INVALID_PARAMETER)));
}

TEST_F(FilePoints, OpenShowsNoPathWhereThereIsNone) {
  OSSFileOpenParam param = openParam();
  param.path = nullptr;
  EXPECT_EQ(file_.open(&param), ECF_INVALID_PARAMETER);
  EXPECT_THAT(calls(), ElementsAre(entry(kOpen), point(kOpen, 200, param),
                                   found(kOpen, ECF_INVALID_PARAMETER, 210, OSS_LOG_INFO),
                                   exitWith(kOpen, ECF_INVALID_PARAMETER)));
}

TEST_F(FilePoints, OpenShowsNothingOfARecordThatIsTooOld) {
  OSSFileOpenParam param = openParam();
  param.version = OSS_VERSION_OLDEST - 1;
  EXPECT_EQ(file_.open(&param), ECF_INVALID_VERSION);
  EXPECT_THAT(calls(), ElementsAre(entry(kOpen),
                                   found(kOpen, ECF_INVALID_VERSION, 1112, OSS_LOG_ERROR) +
                                       " #1 {-3 8 FDCB310100000000}",
                                   exitWith(kOpen, ECF_INVALID_VERSION)));
}

TEST_F(FilePoints, GetSizeShowsTheSize) {
  openFile();
  uint64_t size = 0;
  EXPECT_EQ(file_.getSize(&size), ECF_OK);
  EXPECT_THAT(calls(),
              ElementsAre(entry(kGetSize), point(kGetSize, 30, uint64_t{10}), exitWith(kGetSize)));
}

TEST_F(FilePoints, ReadShowsCountAndSizeOfAShortReadAlone) {
  openFile();
  char buffer[16];
  uint64_t count = 0;
  OSSFileReadParam param;
  param.size = 7;
  EXPECT_EQ(file_.read(&param, buffer, &count), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre(entry(kRead), exitWith(kRead)));

  EXPECT_EQ(file_.read(&param, buffer, &count), ECF_FILE_EOF);
  EXPECT_THAT(calls(), ElementsAre(entry(kRead), point(kRead, 40, uint64_t{3}, uint64_t{7}),
                                   exitWith(kRead, ECF_FILE_EOF)));
}

TEST_F(FilePoints, WriteShowsWhereItsBytesAreHowManyAndWhereTheirCountGoes) {
  openFile();
  const void* const buffer = "abc";
  uint64_t count = 0;
  OSSFileWriteParam param;
  param.buffer = buffer;
  param.size = 3;
  for (uint64_t* const out : {&count, static_cast<uint64_t*>(nullptr)}) {
    EXPECT_EQ(file_.write(&param, out), ECF_OK);
    EXPECT_THAT(calls(), ElementsAre(entry(kWrite), point(kWrite, 30, buffer, uint64_t{3}, out),
                                     exitWith(kWrite)));
  }
}

TEST_F(FilePoints, MapShowsItsRecordAndTheView) {
  static_assert(sizeof(OSSFileMapParam) == 32);
  openFile();
  OSSFileMapParam param;
  param.protection = OSS_FILE_MAP_READ_ONLY;
  void* view = nullptr;
  EXPECT_EQ(file_.map(&param, &view), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre(entry(kMap), point(kMap, 10, param), point(kMap, 90, view),
                                   exitWith(kMap)));
  EXPECT_EQ(file_.unmap(view), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre(entry(kUnmap), exitWith(kUnmap)));
}

TEST_F(FilePoints, MapShowsARecordThatItRefuses) {
  openFile();
  OSSFileMapParam param;
  param.protection = 3;
  void* view = nullptr;
  EXPECT_EQ(file_.map(&param, &view), ECF_INVALID_PARAMETER);
  EXPECT_THAT(calls(), ElementsAre(entry(kMap), point(kMap, 10, param),
                                   found(kMap, ECF_INVALID_PARAMETER, 60, OSS_LOG_INFO) +
                                       " #1 {-1 8 0300000000000000}",
                                   exitWith(kMap, ECF_INVALID_PARAMETER)));
}

TEST_F(FilePoints, TheOtherOperationsShowNothing) {
  openFile();
  const OSSFileSeekParam start;
  OSSFileSetSizeParam size;
  size.size = 5;
  const OSSFileLockParam lock(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_NO_WAIT);
  EXPECT_EQ(file_.seek(&start, nullptr), ECF_OK);
  EXPECT_EQ(file_.setSize(&size), ECF_OK);
  EXPECT_EQ(file_.lock(&lock), ECF_OK);
  EXPECT_EQ(file_.unlock(), ECF_OK);
  EXPECT_EQ(file_.sync(), ECF_OK);
  EXPECT_EQ(file_.close(), ECF_OK);
  EXPECT_THAT(calls(),
              ElementsAre(entry(kSeek), exitWith(kSeek), entry(kSetSize), exitWith(kSetSize),
                          entry(kLock), exitWith(kLock), entry(kUnlock), exitWith(kUnlock),
                          entry(kSync), exitWith(kSync), entry(kClose), exitWith(kClose)));
}

// A failure that the operation finds itself is no error point, nor is a refused lock.
TEST_F(FilePoints, WhatAnOperationFindsItselfIsNoErrorPoint) {
  openFile();
  OSSFileSeekParam beyond;
  beyond.offset = 11;
  EXPECT_EQ(file_.seek(&beyond, nullptr), ECF_FILE_SEEK_BEYOND_EOF);
  EXPECT_THAT(calls(), ElementsAre(entry(kSeek),
                                   found(kSeek, ECF_FILE_SEEK_BEYOND_EOF, 150, OSS_LOG_INFO) +
                                       " #1 {-3 8 0B00000000000000} #2 {-3 8 0A00000000000000}",
                                   exitWith(kSeek, ECF_FILE_SEEK_BEYOND_EOF)));

  const OSSFileLockParam lock(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_NO_WAIT);
  EXPECT_EQ(file_.lock(&lock), ECF_OK);
  OSSHFile second;
  const OSSFileOpenParam param = openParam();
  EXPECT_EQ(second.open(&param), ECF_OK);
  calls();
  EXPECT_EQ(second.lock(&lock), ECF_FILE_LOCK);
  EXPECT_THAT(calls(), ElementsAre(entry(kLock), exitWith(kLock, ECF_FILE_LOCK)));
  EXPECT_EQ(second.close(), ECF_OK);
}

// ---- Failures of the system ----

// Where a call failed, and under which identifiers its failure is mapped and logged.
struct Failure {
  unsigned probe;
  unsigned mappedAs, loggedAs;
  unsigned error;
};

// The calls behind the entry and the data points: the items are those of the record.
std::vector<std::string> failing(unsigned function, const Failure& failure,
                                 const std::string& items) {
  return {text("map %08X probe %u call %08X error %u", function, failure.probe, failure.mappedAs,
               failure.error),
          text("log default %08X code 9000000C probe %u level 4 system %08X error %u", function,
               failure.probe, failure.loggedAs, failure.error) +
              items,
          text("error 0000000089ABCDEF %08X probe %u type 4 extra 0 {0 4 0C000090}", function,
               failure.probe),
          exitWith(function, ECF_INVALID_PARAMETER)};
}

constexpr char kClosedHandle[] = " #1 {-1 8 FFFFFFFFFFFFFFFF}";

TEST_F(FilePoints, AClosedHandleIsMappedLoggedAndAnErrorPointInThisOrder) {
  const auto expectFailure = [](unsigned function, const Failure& failure, const std::string& items,
                                auto operation) {
    g_calls.clear();
    EXPECT_EQ(operation(), ECF_INVALID_PARAMETER);
    std::vector<std::string> expected = failing(function, failure, items);
    expected.insert(expected.begin(), entry(function));
    EXPECT_EQ(calls(), expected);
  };
  OSSFileSeekParam toCurrent;
  toCurrent.origin = OSS_FILE_CURRENT;
  const OSSFileSeekParam toStart;
  const OSSFileSetSizeParam size;
  const OSSFileLockParam lock(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_NO_WAIT);
  uint64_t told = 0;
  expectFailure(kClose, {20, 0x08140069, 0x08140069, 6}, kClosedHandle,
                [&] { return file_.close(); });
  expectFailure(kSeek, {130, 0x0814009A, 0x0814009A, 6}, kClosedHandle,
                [&] { return file_.seek(&toCurrent, nullptr); });
  expectFailure(kSeek, {140, 0x0814007E, 0x0814007E, 6}, kClosedHandle,
                [&] { return file_.seek(&toStart, nullptr); });
  expectFailure(kGetSize, {20, 0x0814007E, 0x0814007E, 6}, kClosedHandle,
                [&] { return file_.getSize(&told); });
  // Deliberate: mapped as a size query, logged as a move.
  expectFailure(kSetSize, {110, 0x0814007E, 0x0814009A, 6}, kClosedHandle,
                [&] { return file_.setSize(&size); });
  expectFailure(kLock, {160, 0x08140087, 0x08140087, 6},
                std::string(kClosedHandle) + " #2 {-1 4 03000000}",
                [&] { return file_.lock(&lock); });
  expectFailure(kUnlock, {20, 0x081400A3, 0x081400A3, 6}, kClosedHandle,
                [&] { return file_.unlock(); });
  expectFailure(kSync, {20, 0x08140076, 0x08140076, 6}, kClosedHandle,
                [&] { return file_.sync(); });
}

TEST_F(FilePoints, AFailureFollowsTheDataPointsBeforeIt) {
  const void* const bytes = "ab";
  OSSFileWriteParam write;
  write.buffer = bytes;
  write.size = 2;
  EXPECT_EQ(file_.write(&write, nullptr), ECF_INVALID_PARAMETER);
  std::vector<std::string> expected =
      failing(kWrite, {40, 0x081400A8, 0x081400A8, 6},
              std::string(kClosedHandle) + " #2 {-5 2 6162} #3 {-3 8 0200000000000000}");
  uint64_t* const nowhere = nullptr;
  expected.insert(expected.begin(),
                  {entry(kWrite), point(kWrite, 30, bytes, uint64_t{2}, nowhere)});
  EXPECT_EQ(calls(), expected);

  OSSFileReadParam read;
  read.size = 2;
  char buffer[2];
  uint64_t count = 0;
  EXPECT_EQ(file_.read(&read, buffer, &count), ECF_INVALID_PARAMETER);
  expected = failing(kRead, {50, 0x08140092, 0x08140092, 6},
                     std::string(kClosedHandle) + " #3 {-3 8 0200000000000000}");
  expected.insert(expected.begin(), entry(kRead));
  EXPECT_EQ(calls(), expected);
}

// Deliberate: mapped as a view, logged as a mapping.
TEST_F(FilePoints, AFailedViewIsMappedUnderItsNameAndLoggedUnderTheMappings) {
  openFile();
  OSSFileMapParam param;
  param.protection = OSS_FILE_MAP_READ_ONLY;
  param.length = uint64_t{1} << 20;
  void* view = nullptr;
  EXPECT_EQ(file_.map(&param, &view), ECF_INVALID_PARAMETER);
  const HANDLE handle = file_.getFileHandle();
  std::vector<std::string> expected =
      failing(kMap, {80, 0x0814008A, 0x0814006E, ERROR_ACCESS_DENIED},
              " #1 {-1 8 " + itemOf(&handle, sizeof handle).substr(6));
  expected.insert(expected.begin(), {entry(kMap), point(kMap, 10, param)});
  EXPECT_EQ(calls(), expected);
}

}  // namespace
