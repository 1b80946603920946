// The list of live blocks while the process runs: where it goes, and every byte of it.
#include "harness/tempdir.h"
#include "memory/ossleaklistfixture.h"

#include <regex>

using namespace osse_test;
using namespace testing;

namespace {

// Sends standard output to a file for the length of a scope. The run-time's own streams go where
// they went.
class CapturedOutput {
 public:
  CapturedOutput()
      : before_(::GetStdHandle(STD_OUTPUT_HANDLE)),
        file_(::CreateFileA(dir_.file("output").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                            CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)) {
    ::SetStdHandle(STD_OUTPUT_HANDLE, file_);
  }
  ~CapturedOutput() {
    ::SetStdHandle(STD_OUTPUT_HANDLE, before_);
    ::CloseHandle(file_);
  }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  std::string text() const { return readFile(dir_.file("output")); }

 private:
  TempDirectory dir_;
  HANDLE before_;
  HANDLE file_;
};

class LeakList : public MemoryTest {
 protected:
  LeakList() {
    choose(kFull);
    setDirectory(dir_.path());
  }
  ~LeakList() override { setDirectory(""); }

  static void setDirectory(const std::string& directory) {
    std::memcpy(g_szMemDebugLogPath, directory.c_str(), directory.size() + 1);
  }

  static std::string nameWith(const std::string& suffix) {
    return listName(::GetCurrentProcessId(), ::GetCurrentThreadId(), suffix);
  }

  // The one file that there is.
  std::string list() const {
    EXPECT_THAT(dir_.names(), ElementsAre(nameWith(".mem")));
    return readFile(dir_.file(nameWith(".mem")));
  }

  TempDirectory dir_;
};

// ---- Into a file --------------------------------------------------------------------------------

TEST_F(LeakList, IsWrittenToAFileOfTheThreadNewestFirst) {
  void* const first = allocate(5);
  void* const second = allocate(4096, OSS_MEM_MARK_E1);
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_EQ(list(), kHeading + listedInFile(second, 4096, kMarkAllocatedE1) +
                        listedInFile(first, 5) + kEquals);
  release(first);
  release(second);
}

TEST_F(LeakList, IsAppended) {
  void* const block = allocate(5);
  const std::string once = kHeading + listedInFile(block, 5) + kEquals;
  writeFile(dir_.file(nameWith(".mem")), "older\n");
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_EQ(list(), "older\n" + once + once);
  release(block);
}

TEST_F(LeakList, OfLeaksHasItsOwnFileAndALegend) {
  choose(kFull, OSS_MEM_LEAK_REPORT);
  void* const block = allocate(5);
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_THAT(dir_.names(), ElementsAre(nameWith("_leaks.mem")));
  EXPECT_EQ(readFile(dir_.file(nameWith("_leaks.mem"))),
            legendOf(dir_.path()) + listedInFile(block, 5) + kEquals);
  release(block);
}

TEST_F(LeakList, ShowsTheWholeSizeAndTheLow32BitsOfTheLine) {
  constexpr uint64_t kHuge = (uint64_t{1} << 32) + 5;
  void* block = nullptr;
  ASSERT_EQ(ossMemAlloc(&block, nullptr, kHuge, 0, "x/y.cpp", kHuge + 1), ECF_OK);
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_THAT(list(), HasSubstr(" Size: 4294967301 Line: 6 File: y.cpp\n"));
  release(block);
}

TEST_F(LeakList, IsNotWrittenWithoutLiveBlocks) {
  release(allocate(5));
  CapturedOutput output;
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_EQ(ossMemAllocList(0), ECF_OK);
  EXPECT_THAT(dir_.names(), IsEmpty());
  EXPECT_EQ(output.text(), "");
}

TEST_F(LeakList, IsWrittenInTheModeFullAlone) {
  void* const block = allocate(5);
  for (const MemoryMode& mode : {kOff, kLight}) {
    choose(mode, OSS_MEM_LEAK_REPORT);
    EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  }
  EXPECT_THAT(dir_.names(), IsEmpty());
  choose(kFull);
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_EQ(list(), kHeading + listedInFile(block, 5) + kEquals);
  release(block);
}

// ---- On standard output -------------------------------------------------------------------------

TEST_F(LeakList, WithAnyDumpFlagBut1HasNoHeadingAndNoFile) {
  void* const first = allocate(5);
  void* const second = allocate(6);
  for (const uint64_t flag : {uint64_t{0}, uint64_t{2}, (uint64_t{1} << 32) + 1}) {
    CapturedOutput output;
    EXPECT_EQ(ossMemAllocList(flag), ECF_OK);
    EXPECT_EQ(output.text(), listedOnOutput(second, 6) + listedOnOutput(first, 5)) << flag;
  }
  EXPECT_THAT(dir_.names(), IsEmpty());
  release(first);
  release(second);
}

// The legend stays with the file.
TEST_F(LeakList, WithoutAFileGoesToStandardOutput) {
  setDirectory(dir_.file("missing"));
  void* const block = allocate(5);
  for (const uint32_t flags : {0u, OSS_MEM_LEAK_REPORT}) {
    choose(kFull, flags);
    CapturedOutput output;
    EXPECT_EQ(ossMemAllocList(1), ECF_OK);
    EXPECT_EQ(output.text(), kHeading + listedOnOutput(block, 5));
  }
  EXPECT_THAT(dir_.names(), IsEmpty());
  release(block);
}

// ---- By terminating -----------------------------------------------------------------------------

// Both conditions, and each of them alone.
TEST_F(LeakList, IsWrittenByTerminatingWithTheCaptureOnAndADirectory) {
  void* const block = allocate(5);
  CapturedOutput output;
  ossTerminate();
  EXPECT_THAT(dir_.names(), IsEmpty());

  g_bIsMemoryFFDCEnabledFlag = 1;
  setDirectory("");
  ossTerminate();
  EXPECT_THAT(dir_.names(), IsEmpty());

  setDirectory(dir_.path());
  ossTerminate();
  EXPECT_EQ(list(), kHeading + listedInFile(block, 5) + kEquals);
  g_bIsMemoryFFDCEnabledFlag = 0;
  EXPECT_EQ(output.text(), "");
  release(block);
}

// ---- Damaged blocks -----------------------------------------------------------------------------

// A finding goes to the same file; the list goes on behind it.
TEST_F(LeakList, ReportsADamagedBlockAndGoesOn) {
  ossSetAssertionCallback(nullptr);
  void* const first = allocate(5);
  void* const damaged = allocate(6);
  void* const last = allocate(7);
  *byteAt(damaged, 7) = 0;
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);

  const std::string finding =
      "NON-FATAL ASSERTION FAILED!!!\r\nTime       = now\nExpr       = " + std::string(kFullSlack) +
      "\r\nPID        = " + std::to_string(::GetCurrentProcessId()) +
      "\r\nTID        = " + std::to_string(::GetCurrentThreadId()) +
      "\r\nFile       = a.c\r\nLine       = 4711\r\n";
  EXPECT_EQ(std::regex_replace(list(), std::regex("Time       = .*\n"), "Time       = now\n"),
            kHeading + listedInFile(last, 7) + finding + listedInFile(damaged, 6) +
                listedInFile(first, 5) + kEquals);
  *byteAt(damaged, 7) = 0xCC;
  for (void* const block : {first, damaged, last}) release(block);
}

// What a damaged record names is not followed.
TEST_F(LeakList, EndsEarlyWhereItIsBroken) {
  void* const first = allocate(5);
  void* const middle = allocate(6);
  void* const last = allocate(7);
  const int64_t kNext = -80;
  const int64_t kPrevious = -72;
  const auto broken = [&](void* block, int64_t link, void* value) {
    SCOPED_TRACE(value);
    auto* const whole = wordAt<void*>(block, link);
    setWordAt(block, link, value);
    EXPECT_EQ(ossMemAllocList(1), ECF_OK);
    setWordAt(block, link, whole);
    const std::string text = list();
    EXPECT_TRUE(::DeleteFileA(dir_.file(nameWith(".mem")).c_str()));
    return text;
  };
  const std::string lastOnly = kHeading + listedInFile(last, 7) + kEquals;
  for (void* const value : {byteAt(nullptr, 8), byteAt(nullptr, -8), byteAt(last, -80),
                            byteAt(first, -80), byteAt(last, 0)})
    EXPECT_EQ(broken(last, kNext, value), lastOnly);
  EXPECT_EQ(broken(middle, kPrevious, nullptr), lastOnly);
  EXPECT_EQ(broken(last, kPrevious, byteAt(first, -80)), kHeading + kEquals);
  for (void* const block : {first, middle, last}) release(block);
}

TEST_F(LeakList, ShowsAFileNameWithoutAnEndAsFarAsItsField) {
  void* const block = allocate(5);
  std::memset(byteAt(block, -64), 'x', 24);
  EXPECT_EQ(ossMemAllocList(1), ECF_OK);
  EXPECT_THAT(list(), HasSubstr(" File: " + std::string(23, 'x') + "\n="));
  release(block);
}

// ---- On demand ----------------------------------------------------------------------------------

TEST_F(LeakList, IsWrittenBeforeAnAllocationOnDemand) {
  void* const older = allocate(5);
  g_bDumpMemAllocListFlag = 1;
  void* const block = allocate(6);
  EXPECT_EQ(g_bDumpMemAllocListFlag, 0);
  void* const another = allocate(7);
  EXPECT_EQ(list(), kHeading + listedInFile(older, 5) + kEquals);
  for (void* const each : {older, block, another}) release(each);
}

TEST_F(LeakList, IsWrittenBeforeAReleaseOnDemand) {
  void* const block = allocate(5);
  g_bDumpMemAllocListFlag = 0xFF;
  const std::string expected = kHeading + listedInFile(block, 5) + kEquals;
  release(block);
  EXPECT_EQ(g_bDumpMemAllocListFlag, 0);
  EXPECT_EQ(list(), expected);
}

TEST_F(LeakList, IsWrittenOnDemandOfACallThatIsRefused) {
  void* const block = allocate(5);
  void* none = nullptr;
  const std::string once = kHeading + listedInFile(block, 5) + kEquals;
  g_bDumpMemAllocListFlag = 1;
  EXPECT_EQ(ossMemAlloc(&none, nullptr, 0, 0, kFile, kLine), ECF_INVALID_PARAMETER);
  g_bDumpMemAllocListFlag = 1;
  EXPECT_EQ(ossMemFree(nullptr, nullptr, 0, kFile, kLine), ECF_INVALID_PARAMETER);
  EXPECT_EQ(g_bDumpMemAllocListFlag, 0);
  EXPECT_EQ(list(), once + once);
  release(block);
}

}  // namespace
