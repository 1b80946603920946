// The list of live blocks at the end of a process, or of the library in it.
#include <regex>

#include "harness/childprocess.h"
#include "harness/peimage.h"
#include "harness/sharedobjects.h"
#include "harness/tempdir.h"
#include "memory/ossleaklistfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// What a child tells its parent before it ends.
struct LeftBehind {
  uint32_t threadId;
  uint64_t older;
  uint64_t newer;
};

// Leaves two blocks of 5 and 6 bytes.
void leaveBlocks(const std::string& report) {
  SharedBlock<LeftBehind> left(report);
  left->threadId = ::GetCurrentThreadId();
  left->older = reinterpret_cast<uint64_t>(allocate(5));
  left->newer = reinterpret_cast<uint64_t>(allocate(6));
}

class LeakListAtEnd : public Test {
 protected:
  // Runs a child in this level. Its report becomes left_.
  uint32_t run(const std::string& role, const std::string& level) {
    Child child = startChild(role, {left_.name()},
                             {.environment = {{"OSSEMEMDBG", dir_.path() + "," + level}}});
    processId_ = child.id();
    const uint32_t exitCode = child.wait();
    EXPECT_TRUE(::DeleteFileA(dir_.file("ossememdbg.log").c_str()));
    return exitCode;
  }

  // The one file that there is.
  std::string list() const {
    const std::string name = listName(processId_, left_->threadId, "_leaks.mem");
    EXPECT_THAT(dir_.names(), ElementsAre(name));
    return readFile(dir_.file(name));
  }

  std::string listOf(uint64_t block, uint64_t size) const {
    return listedInFile(reinterpret_cast<const void*>(block), size);
  }
  std::string listOfBoth() const {
    return legendOf(dir_.path()) + listOf(left_->newer, 6) + listOf(left_->older, 5) + kEquals;
  }

  TempDirectory dir_;
  SharedBlock<LeftBehind> left_;
  uint32_t processId_ = 0;
};

// ---- Ways to end --------------------------------------------------------------------------------

CHILD_ROLE(leaveAndReturn) {
  leaveBlocks(arguments[0]);
  return 0;
}

CHILD_ROLE(leaveAndExit) {
  leaveBlocks(arguments[0]);
  std::exit(3);
}

CHILD_ROLE(leaveAndExitProcess) {
  leaveBlocks(arguments[0]);
  ::ExitProcess(4);
}

TEST_F(LeakListAtEnd, IsWrittenWhenMainReturns) {
  for (const char* level : {"LEAKS", "all"}) {
    EXPECT_EQ(run("leaveAndReturn", level), 0u);
    EXPECT_EQ(list(), listOfBoth());
    EXPECT_TRUE(::DeleteFileA(dir_.file(dir_.names().front()).c_str()));
  }
}

TEST_F(LeakListAtEnd, IsWrittenAtExit) {
  EXPECT_EQ(run("leaveAndExit", "LEAKS"), 3u);
  EXPECT_EQ(list(), listOfBoth());
}

TEST_F(LeakListAtEnd, IsWrittenAtExitProcess) {
  EXPECT_EQ(run("leaveAndExitProcess", "LEAKS"), 4u);
  EXPECT_EQ(list(), listOfBoth());
}

// Deliberate: the other levels keep the list, but do not write it.
TEST_F(LeakListAtEnd, IsNotWrittenInOtherLevels) {
  for (const char* level : {"FULL", "CORRUPTIONS", "LIGHT", "IDLE"}) {
    EXPECT_EQ(run("leaveAndReturn", level), 0u);
    EXPECT_THAT(dir_.names(), IsEmpty()) << level;
  }
}

CHILD_ROLE(leaveNothing) {
  release(allocate(5));
  return 0;
}

TEST_F(LeakListAtEnd, IsNotWrittenWithoutLiveBlocks) {
  EXPECT_EQ(run("leaveNothing", "LEAKS"), 0u);
  EXPECT_THAT(dir_.names(), IsEmpty());
}

// What the program's own clean-up releases is no leak.
CHILD_ROLE(releaseOneAtExit) {
  leaveBlocks(arguments[0]);
  static void* const late = reinterpret_cast<void*>(SharedBlock<LeftBehind>(arguments[0])->newer);
  std::atexit([] { release(late); });
  return 0;
}

TEST_F(LeakListAtEnd, IsWrittenBehindTheProgramsOwnCleanUp) {
  EXPECT_EQ(run("releaseOneAtExit", "LEAKS"), 0u);
  EXPECT_EQ(list(), legendOf(dir_.path()) + listOf(left_->older, 5) + kEquals);
}

TEST_F(LeakListAtEnd, GoesToStandardOutputWithoutItsDirectory) {
  const std::string output = dir_.file("output");
  EXPECT_EQ(runChild("leaveAndReturn", {left_.name()},
                     {.environment = {{"OSSEMEMDBG", dir_.file("missing") + ",LEAKS"}},
                      .outputFile = output}),
            0u);
  EXPECT_EQ(readFile(output), kHeading +
                                  listedOnOutput(reinterpret_cast<const void*>(left_->newer), 6) +
                                  listedOnOutput(reinterpret_cast<const void*>(left_->older), 5));
}

// Blocks are checked at the end as well; what is found goes to a file of its own.
CHILD_ROLE(leaveADamagedBlock) {
  leaveBlocks(arguments[0]);
  *byteAt(reinterpret_cast<void*>(SharedBlock<LeftBehind>(arguments[0])->newer), 6) = 0;
  return 0;
}

TEST_F(LeakListAtEnd, ReportsADamagedBlockAndGoesOn) {
  EXPECT_EQ(run("leaveADamagedBlock", "LEAKS"), 0u);
  const std::string list = listName(processId_, left_->threadId, "_leaks.mem");
  const std::string findings = listName(processId_, left_->threadId, ".mem");
  EXPECT_THAT(dir_.names(), ElementsAre(findings, list));
  EXPECT_EQ(readFile(dir_.file(list)), listOfBoth());
  EXPECT_EQ(std::regex_replace(readFile(dir_.file(findings)), std::regex("Time       = .*\n"),
                               "Time       = now\n"),
            "NON-FATAL ASSERTION FAILED!!!\r\nTime       = now\nExpr       = " +
                std::string(kFullSlack) + "\r\nPID        = " + std::to_string(processId_) +
                "\r\nTID        = " + std::to_string(left_->threadId) +
                "\r\nFile       = a.c\r\nLine       = 4711\r\n");
}

// ---- The other threads --------------------------------------------------------------------------

// A thread takes the latch and never gives it back: the end of the process kills it.
CHILD_ROLE(leaveWithTheLatchHeld) {
  leaveBlocks(arguments[0]);
  static HANDLE const held = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
  const auto hold = [](void*) -> DWORD {
    g_pMemDebugCB->latch = 0x80;
    ::SetEvent(held);
    ::Sleep(INFINITE);
    return 0;
  };
  UniqueHandle thread(::CreateThread(nullptr, 0, hold, nullptr, 0, nullptr));
  EXPECT_EQ(::WaitForSingleObject(held, 120'000), WAIT_OBJECT_0);
  return 0;
}

TEST_F(LeakListAtEnd, IsWrittenAlthoughADeadThreadHoldsTheLatch) {
  EXPECT_EQ(run("leaveWithTheLatchHeld", "LEAKS"), 0u);
  EXPECT_EQ(list(), listOfBoth());
}

// ---- Asked for ----------------------------------------------------------------------------------

// The host's call writes the list, and the end writes it again.
CHILD_ROLE(terminateTwice) {
  leaveBlocks(arguments[0]);
  ossTerminate();
  return 0;
}

TEST_F(LeakListAtEnd, IsWrittenEachTimeThatTheLibraryTerminates) {
  EXPECT_EQ(run("terminateTwice", "LEAKS"), 0u);
  EXPECT_EQ(list(), listOfBoth() + listOfBoth());
}

TEST_F(LeakListAtEnd, IsNotWrittenByTerminatingInOtherLevels) {
  for (const char* level : {"FULL", "LIGHT", "IDLE"}) {
    EXPECT_EQ(run("terminateTwice", level), 0u);
    EXPECT_THAT(dir_.names(), IsEmpty()) << level;
  }
}

// ---- The library alone --------------------------------------------------------------------------

// A second library in the process, under another name, which it can let go.
class SecondLibrary {
 public:
  explicit SecondLibrary(const TempDirectory& dir) : path_(dir.file("second.dll")) {
    char original[MAX_PATH + 1] = {};
    ::GetModuleFileNameA(libraryModule(), original, MAX_PATH);
    EXPECT_TRUE(::CopyFileA(original, path_.c_str(), TRUE)) << original;
    module_ = ::LoadLibraryA(path_.c_str());
    EXPECT_NE(module_, nullptr) << "error " << ::GetLastError();
  }
  ~SecondLibrary() {
    EXPECT_TRUE(::FreeLibrary(module_));
    EXPECT_EQ(::GetModuleHandleA(path_.c_str()), nullptr);
  }
  SecondLibrary(const SecondLibrary&) = delete;
  SecondLibrary& operator=(const SecondLibrary&) = delete;

  template <class Function>
  Function* find(const char* name) const {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(module_, name)));
  }

 private:
  std::string path_;
  HMODULE module_;
};

CHILD_ROLE(unloadWithABlock) {
  TempDirectory dir;
  SharedBlock<LeftBehind> left(arguments[0]);
  left->threadId = ::GetCurrentThreadId();
  void* block = nullptr;
  {
    const SecondLibrary second(dir);
    EXPECT_EQ(
        second.find<decltype(ossMemAlloc)>("ossMemAlloc")(&block, nullptr, 5, 0, kFile, kLine),
        ECF_OK);
    EXPECT_EQ(modeOf(block), OSS_MEM_DEBUG_FULL);
  }
  left->older = reinterpret_cast<uint64_t>(block);
  return 0;
}

TEST_F(LeakListAtEnd, IsWrittenWhenTheLibraryIsUnloaded) {
  EXPECT_EQ(run("unloadWithABlock", "LEAKS"), 0u);
  EXPECT_EQ(list(), legendOf(dir_.path()) + listOf(left_->older, 5) + kEquals);
}

}  // namespace
