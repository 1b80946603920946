// Temporary names, in both modes.
#include <algorithm>
#include <thread>

#include "file/osspathfixture.h"
#include "harness/startline.h"

using namespace osse_test;
using namespace testing;
using oss::Func;
using oss::SysCall;

namespace {

using OSSTmpnamTest = PathTest;

TEST_F(OSSTmpnamTest, ANameIsOneOfNothing) {
  char buffer[14];
  EXPECT_EQ(osstmpnam(buffer, sizeof buffer, 0), ECF_OK);
  EXPECT_GT(std::strlen(buffer), 1u);
  EXPECT_FALSE(isThere(buffer));
}

TEST_F(OSSTmpnamTest, AFileIsNewEmptyAndInTheTemporaryDirectory) {
  char temporary[512];
  ASSERT_GT(::GetTempPathA(sizeof temporary, temporary), 0u);
  for (const uint64_t flags : {OSS_TMPNAM_CREATE, ~uint64_t{0}}) {
    char buffer[260];
    EXPECT_EQ(osstmpnam(buffer, sizeof buffer, flags), ECF_OK);
    EXPECT_THAT(buffer, StartsWith(std::string(temporary) + "kt5"));
    EXPECT_EQ(readFile(buffer), "");
    EXPECT_TRUE(::DeleteFileA(buffer));
  }
}

TEST_F(OSSTmpnamTest, ABufferTooSmallIsLeftAlone) {
  char buffer[260];
  for (const auto& [size, flags] :
       {std::pair<uint64_t, uint64_t>{13, 0}, {0, 0}, {13, 2}, {259, 1}, {14, 1}, {0, 3}}) {
    std::memset(buffer, '?', sizeof buffer);
    EXPECT_EQ(osstmpnam(buffer, size, flags), ECF_BUFFER_TOO_SMALL) << size;
    EXPECT_EQ(std::count(buffer, buffer + sizeof buffer, '?'), 260);
  }
}

TEST_F(OSSTmpnamTest, ANameTooLongForTheBufferIsNotCut) {
  ImportHook hook(
      "tmpnam", [](Call& call) { return std::strcpy(call.argument<char*>(0), "\\1234567890123"); });
  char buffer[15];
  EXPECT_EQ(osstmpnam(buffer, 14, 0), ECF_BUFFER_TOO_SMALL);
  EXPECT_EQ(osstmpnam(buffer, 15, 0), ECF_OK);
  EXPECT_STREQ(buffer, "\\1234567890123");
}

TEST_F(OSSTmpnamTest, WithoutANameLeftItFails) {
  ImportHook hook("tmpnam", [](Call&) { return static_cast<char*>(nullptr); });
  char buffer[14];
  EXPECT_EQ(osstmpnam(buffer, sizeof buffer, 0), ECF_FAILED);
}

TEST_F(OSSTmpnamTest, NullIsRefusedInBothModes) {
  for (const uint64_t flags : {0u, 1u})
    expectRefusal([&] { return osstmpnam(nullptr, 260, flags); }, ECF_INVALID_PARAMETER,
                  nullRecord(Func::osstmpnam));
}

// Deliberate: what is returned and what is logged differ.
TEST_F(OSSTmpnamTest, AMissingDirectoryIsMappedAndLoggedAsASmallBuffer) {
  char buffer[260];
  const FailingCall fails("GetTempPathA", ERROR_ACCESS_DENIED);
  expectRefusal([&] { return osstmpnam(buffer, sizeof buffer, 1); }, ECF_ACCESS_DENIED,
                SystemRecord(OSS_LOG_INFO, Func::osstmpnam, 10, SysCall::GetTempPathA,
                             ERROR_ACCESS_DENIED, ECF_BUFFER_TOO_SMALL));
}

TEST_F(OSSTmpnamTest, ADirectoryOfMoreThan512BytesIsABufferTooSmall) {
  char buffer[260];
  for (const DWORD length : {513u, 100000u}) {
    ImportHook hook("GetTempPathA", [=](Call& call) {
      EXPECT_EQ(call.argument<DWORD>(0), 512u);
      ::SetLastError(ERROR_SUCCESS);
      return length;
    });
    expectRefusal([&] { return osstmpnam(buffer, sizeof buffer, 1); }, ECF_BUFFER_TOO_SMALL,
                  SystemRecord(OSS_LOG_INFO, Func::osstmpnam, 10, SysCall::GetTempPathA,
                               ERROR_INSUFFICIENT_BUFFER, ECF_BUFFER_TOO_SMALL));
  }
}

// Deliberate: mapped as the directory, logged as the file; what is returned and logged differ.
TEST_F(OSSTmpnamTest, AFileThatCannotBeMadeIsMappedAndLoggedAsAFailure) {
  char temporary[512];
  ASSERT_GT(::GetTempPathA(sizeof temporary, temporary), 0u);
  const struct {
    DWORD error;
    OSSErr code;
    uint64_t level;
  } kRows[] = {{ERROR_DIRECTORY, ECF_FILE_NOT_A_DIRECTORY, OSS_LOG_INFO},
               {ERROR_CRC, ECF_UNKNOWN, OSS_LOG_ERROR}};
  char buffer[260];
  for (const auto& row : kRows) {
    const FailingCall fails("GetTempFileNameA", row.error);
    expectRefusal([&] { return osstmpnam(buffer, sizeof buffer, 1); }, row.code,
                  SystemRecord(row.level, Func::osstmpnam, 20, SysCall::GetTempFileNameA, row.error,
                               ECF_FAILED, {{1, String(temporary)}, {2, String("kt5")}}));
  }
}

TEST_F(OSSTmpnamTest, TheFileIsAskedForInTheDirectoryWithItsPrefixAndNoNumber) {
  ImportHook directory("GetTempPathA", [](Call& call) {
    std::strcpy(call.argument<char*>(1), "some directory");
    return 14;
  });
  char buffer[260];
  ImportHook hook("GetTempFileNameA", [&](Call& call) {
    EXPECT_STREQ(call.argument<const char*>(0), "some directory");
    EXPECT_STREQ(call.argument<const char*>(1), "kt5");
    EXPECT_EQ(call.argument<UINT>(2), 0u);
    EXPECT_EQ(call.argument<char*>(3), buffer);
    return 1;
  });
  EXPECT_EQ(osstmpnam(buffer, sizeof buffer, 1), ECF_OK);
}

// Gathers 250 names on each of four threads that start together.
std::vector<std::string> namesOfFourThreads(uint64_t flags) {
  constexpr int kThreads = 4, kNames = 250;
  std::vector<std::vector<std::string>> names(kThreads);
  StartLine start(kThreads);
  std::vector<std::thread> threads;
  for (std::vector<std::string>& own : names)
    threads.emplace_back([&start, &own, flags] {
      start.pass();
      for (int i = 0; i < kNames; ++i) {
        char buffer[260];
        EXPECT_EQ(osstmpnam(buffer, sizeof buffer, flags), ECF_OK);
        own.emplace_back(buffer);
      }
    });
  for (std::thread& thread : threads) thread.join();

  std::vector<std::string> all;
  for (const std::vector<std::string>& own : names) all.insert(all.end(), own.begin(), own.end());
  std::sort(all.begin(), all.end());
  EXPECT_EQ(all.size(), 1000u);
  return all;
}

TEST_F(OSSTmpnamTest, AThousandNamesOfFourThreadsAreAllDifferent) {
  const std::vector<std::string> names = namesOfFourThreads(0);
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST_F(OSSTmpnamTest, AThousandFilesOfFourThreadsAreAllDifferent) {
  const std::vector<std::string> names = namesOfFourThreads(OSS_TMPNAM_CREATE);
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
  for (const std::string& name : names) EXPECT_TRUE(::DeleteFileA(name.c_str())) << name;
}

}  // namespace
