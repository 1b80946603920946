// Memory debugging as the environment chooses it: what the library records of the choice, and what
// a process then sees. Each choice takes a process of its own.
#include <algorithm>
#include <filesystem>

#include "harness/childprocess.h"
#include "harness/tempdir.h"
#include "memory/ossmemoryfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

constexpr char kLogName[] = "ossememdbg.log";

ChildOptions with(const std::string& value) { return {.environment = {{"OSSEMEMDBG", value}}}; }

std::string inHex(uint64_t value) { return "0x" + hexDigits(value, true); }

CHILD_ROLE(startAndEnd) { return 0; }

class MemDebugLog : public Test {
 protected:
  // Starts the library with the directory and what follows it, and returns the process's
  // identifier.
  uint32_t start(const std::string& rest) {
    Child child = startChild("startAndEnd", {}, with(dir_.path() + rest));
    const uint32_t id = child.id();
    EXPECT_EQ(child.wait(), 0u);
    return id;
  }

  std::string log() const { return readFile(dir_.file(kLogName)); }

  // What is recorded of a choice.
  static std::string choice(uint32_t processId, const std::string& level, uint32_t flags) {
    return "PID            = " + inHex(processId) +
           "\n"
           "---------------------------------\n"
           "mode           = " +
           level + "\nflags          = " + inHex(flags) +
           "\n"
           "Front pad size = 2\n"
           "Back pad size  = 2\n"
           "\n";
  }

  // What is recorded of a value that is no choice.
  static std::string refusal(uint32_t processId, const std::string& value) {
    return "PID = " + inHex(processId) +
           "\n"
           "----------------------------------------------------\n"
           "Original Debug String is " +
           value +
           "\n"
           "Invalid OSSEMEMDBG string detected.\n"
           "\n"
           "Usage : export OSSEMEMDBG=<PATH>,<LEVEL>\n"
           "   where <PATH> is the path to store ossememdbg.log\n"
           "         <LEVEL> is one of the OSSFULL, LIGHT, or IDLE\n"
           "\n";
  }

  TempDirectory dir_;
};

// ---- A choice -----------------------------------------------------------------------------------

struct LevelRow {
  const char* level;
  uint32_t eyeCatcher;
  uint32_t flags;
  bool listsLeaks;
};
void PrintTo(const LevelRow& row, std::ostream* out) { *out << row.level; }

class EachLevel : public MemDebugLog, public WithParamInterface<LevelRow> {};

INSTANTIATE_TEST_SUITE_P(Levels, EachLevel,
                         Values(LevelRow{"FULL", OSS_MEM_DEBUG_FULL, 0x0F, false},
                                LevelRow{"full", OSS_MEM_DEBUG_FULL, 0x0F, false},
                                LevelRow{"CORRUPTIONS", OSS_MEM_DEBUG_FULL, 0x0F, false},
                                LevelRow{"Corruptions", OSS_MEM_DEBUG_FULL, 0x0F, false},
                                LevelRow{"LEAKS", OSS_MEM_DEBUG_FULL, 0x2F, true},
                                LevelRow{"leakS", OSS_MEM_DEBUG_FULL, 0x2F, true},
                                LevelRow{"ALL", OSS_MEM_DEBUG_FULL, 0x2F, true},
                                LevelRow{"aLl", OSS_MEM_DEBUG_FULL, 0x2F, true},
                                LevelRow{"LIGHT", OSS_MEM_DEBUG_LIGHT, 0x0B, false},
                                LevelRow{"light", OSS_MEM_DEBUG_LIGHT, 0x0B, false}));

// The level is recorded as it was written.
TEST_P(EachLevel, IsRecorded) {
  const uint32_t id = start(std::string(",") + GetParam().level);
  EXPECT_EQ(log(), choice(id, GetParam().level, GetParam().flags));
  EXPECT_THAT(dir_.names(), ElementsAre(kLogName));
}

// Arguments: eye-catcher, flags, whether leaks are listed, the directory.
CHILD_ROLE(seeChoice) {
  const auto eyeCatcher = static_cast<uint32_t>(std::stoul(arguments[0]));
  const auto flags = static_cast<uint32_t>(std::stoul(arguments[1]));
  EXPECT_EQ(g_bIsMemoryFFDCEnabledFlag, arguments[2] == "1");
  EXPECT_EQ(g_szMemDebugLogPath, arguments[3]);
  EXPECT_EQ(g_bDumpMemAllocListFlag, 0);
  if (eyeCatcher == OSS_MEM_DEBUG_FULL) {
    EXPECT_EQ(g_pMemDebugCB->flags, flags);
    EXPECT_EQ(g_pMemDebugCB->eyeCatcher, eyeCatcher);
    EXPECT_EQ(g_pMemDebugCB->frontPads, 2u);
    EXPECT_EQ(g_pMemDebugCB->backPads, 2u);
    EXPECT_EQ(g_pMemDebugCB->hasAllocated, 0u);
    EXPECT_EQ(g_pMemDebugCB->liveBlocks, nullptr);
    EXPECT_EQ(g_pMemDebugCB->latch, 0);
  } else {
    EXPECT_EQ(g_pMemDebugCB, nullptr);
  }

  KeptBlocks kept;
  void* const block = allocate(3);
  EXPECT_EQ(modeOf(block), eyeCatcher);
  EXPECT_TRUE((flags & OSS_MEM_FILL_NEW) == 0 || *byteAt(block, 2) == 0xFF);
  *byteAt(block, 2) = 0;
  if (eyeCatcher == OSS_MEM_DEBUG_FULL) {
    EXPECT_EQ(g_pMemDebugCB->hasAllocated, 1u);
    EXPECT_EQ(g_pMemDebugCB->liveBlocks, byteAt(block, -80));
    EXPECT_EQ(wordAt<uint32_t>(block, -28), 2u);
    EXPECT_EQ(wordAt<uint32_t>(block, -24), 2u);
  }
  release(block);
  EXPECT_EQ(*byteAt(block, 2), (flags & OSS_MEM_FILL_FREED) != 0 ? 0xFF : 0);
  return 0;
}

TEST_P(EachLevel, IsSeenByTheProcess) {
  const LevelRow& row = GetParam();
  EXPECT_EQ(runChild("seeChoice",
                     {std::to_string(row.eyeCatcher), std::to_string(row.flags),
                      std::to_string(row.listsLeaks), dir_.path()},
                     with(dir_.path() + "," + row.level)),
            0u);
}

TEST_F(MemDebugLog, IsAppendedToByEachProcess) {
  writeFile(dir_.file(kLogName), "older\n");
  const uint32_t first = start(",FULL");
  const uint32_t second = start(",LIGHT");
  EXPECT_EQ(log(), "older\n" + choice(first, "FULL", 0x0F) + choice(second, "LIGHT", 0x0B));
}

TEST_F(MemDebugLog, MayBeInADirectoryByARelativePath) {
  ChildOptions options = with(".,FULL");
  options.directory = dir_.path();
  Child child = startChild("startAndEnd", {}, options);
  const uint32_t id = child.id();
  EXPECT_EQ(child.wait(), 0u);
  EXPECT_EQ(log(), choice(id, "FULL", 0x0F));
}

// The choice holds all the same.
TEST_F(MemDebugLog, ThatCannotBeWrittenIsNone) {
  const std::string missing = dir_.file("missing");
  EXPECT_EQ(runChild("seeChoice",
                     {std::to_string(OSS_MEM_DEBUG_LIGHT), std::to_string(0x0B), "0", missing},
                     with(missing + ",LIGHT")),
            0u);
  EXPECT_THAT(dir_.names(), IsEmpty());
}

TEST_F(MemDebugLog, WhosePlaceIsTakenIsNone) {
  // By a directory of its name, and where its directory should be by a file.
  ASSERT_TRUE(::CreateDirectoryA(dir_.file(kLogName).c_str(), nullptr));
  writeFile(dir_.file("file"), "bytes");
  for (const std::string& directory : {dir_.path(), dir_.file("file")}) {
    EXPECT_EQ(runChild("seeChoice",
                       {std::to_string(OSS_MEM_DEBUG_FULL), std::to_string(0x2F), "1", directory},
                       with(directory + ",LEAKS")),
              0u);
    EXPECT_EQ(runChild("seeChoice", {std::to_string(OSS_MEM_DEBUG_OFF), "0", "0", directory},
                       with(directory + ",IDLE")),
              0u);
  }
  EXPECT_THAT(dir_.names(), ElementsAre("file", kLogName));
  EXPECT_EQ(readFile(dir_.file("file")), "bytes");
}

// A path that the system does not take is not cut to one that it takes.
TEST_F(MemDebugLog, WithTooLongAPathIsNone) {
  std::string directory = dir_.path();
  while (directory.size() < 240) {
    directory += "\\" + std::string(std::min<size_t>(100, 248 - directory.size()), 'd');
    ASSERT_TRUE(::CreateDirectoryA(("\\\\?\\" + directory).c_str(), nullptr));
  }
  EXPECT_EQ(runChild("startAndEnd", {}, with(directory + ",FULL")), 0u);
  EXPECT_THAT(std::filesystem::directory_iterator("\\\\?\\" + directory),
              Eq(std::filesystem::directory_iterator()));
}

// ---- No choice ----------------------------------------------------------------------------------

TEST_F(MemDebugLog, OfAnInvalidLevelTellsTheUsage) {
  for (const char* rest : {",IDLE", ",OSSFULL", ",FULL,x", ",FULL,LIGHT", ""}) {
    const uint32_t id = start(rest);
    EXPECT_EQ(log(), refusal(id, dir_.path() + rest));
  }
}

TEST_F(MemDebugLog, OfAnInvalidLevelIsWrittenAnew) {
  start(",FULL");
  const uint32_t id = start(",IDLE");
  EXPECT_EQ(log(), refusal(id, dir_.path() + ",IDLE"));
}

TEST_F(MemDebugLog, OfALongValueTellsItsFirst259Characters) {
  const std::string rest = ",FULL,";
  const uint32_t id = start(rest + std::string(300, 'x'));
  EXPECT_EQ(log(), refusal(id, (dir_.path() + rest + std::string(300, 'x')).substr(0, 259)));
}

TEST_F(MemDebugLog, IsNotWrittenWithoutADirectory) {
  ChildOptions options = with(",");
  options.directory = dir_.path();
  EXPECT_EQ(runChild("startAndEnd", {}, options), 0u);
  EXPECT_THAT(dir_.names(), IsEmpty());
  const std::string inTheRoot = dir_.path().substr(0, 3) + kLogName;
  EXPECT_EQ(::GetFileAttributesA(inTheRoot.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(MemDebugLog, AnInvalidLevelLeavesTheDefaultMode) {
  for (const char* rest : {",IDLE", ",FULL,x"})
    EXPECT_EQ(runChild("seeChoice", {std::to_string(OSS_MEM_DEBUG_OFF), "0", "0", dir_.path()},
                       with(dir_.path() + rest)),
              0u);
}

TEST(MemDebugDefault, IsOffWithoutADirectory) {
  EXPECT_EQ(runChild("seeChoice", {std::to_string(OSS_MEM_DEBUG_OFF), "0", "0", ""}), 0u);
}

// ---- Switching off ------------------------------------------------------------------------------

CHILD_ROLE(switchOffTooLate) {
  void* const block = allocate(5);
  EXPECT_EQ(ossMemSetDebug(0x03, OSS_MEM_DEBUG_NONE, 7, 9), 0x90000079u);
  EXPECT_EQ(g_pMemDebugCB->eyeCatcher, OSS_MEM_DEBUG_FULL);
  EXPECT_EQ(g_pMemDebugCB->flags, 0x03u);
  EXPECT_EQ(g_pMemDebugCB->frontPads, 7u);
  EXPECT_EQ(g_pMemDebugCB->backPads, 9u);

  // Debugging is still on, with the new pads.
  collectFindings();
  void* const another = allocate(5);
  EXPECT_EQ(modeOf(another), OSS_MEM_DEBUG_FULL);
  EXPECT_EQ(wordAt<uint32_t>(another, -28), 7u);
  EXPECT_THAT(liveBlocks(), ElementsAre(another, block));
  *byteAt(block, 5) = 0;
  release(another);
  release(block);
  EXPECT_THAT(findings(), ElementsAre(kFullSlack));
  return 0;
}

TEST_F(MemDebugLog, DebuggingIsNotSwitchedOffBehindTheFirstAllocation) {
  EXPECT_EQ(runChild("switchOffTooLate", {}, with(dir_.path() + ",FULL")), 0u);
}

CHILD_ROLE(switchOffInTime) {
  EXPECT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_NONE, 0, 0), 0u);
  EXPECT_EQ(g_pMemDebugCB->eyeCatcher, OSS_MEM_DEBUG_NONE);
  EXPECT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_FULL, 1, 1), 0u);
  EXPECT_EQ(g_pMemDebugCB->eyeCatcher, OSS_MEM_DEBUG_FULL);
  EXPECT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_NONE, 0, 0), 0u);
  void* const block = allocate(5);
  EXPECT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_FULL, 1, 1), 0x90000079u);
  EXPECT_EQ(g_pMemDebugCB->eyeCatcher, OSS_MEM_DEBUG_NONE);
  release(block);
  return 0;
}

TEST_F(MemDebugLog, DebuggingIsSwitchedOffAndOnBeforeTheFirstAllocation) {
  EXPECT_EQ(runChild("switchOffInTime", {}, with(dir_.path() + ",FULL")), 0u);
}

// ---- The latch ----------------------------------------------------------------------------------

// Every call finds the latch held; somebody releases it while the call sleeps.
CHILD_ROLE(findTheLatchHeld) {
  ImportHook sleep("Sleep", [](Call&) { g_pMemDebugCB->latch = 0; });
  int waits = 0;
  const auto expectWait = [&](auto call) {
    g_pMemDebugCB->latch = 0x80;
    call();
    EXPECT_EQ(sleep.calls(), ++waits);
    EXPECT_EQ(g_pMemDebugCB->latch, 0);
  };
  void* block = nullptr;
  expectWait([&] { block = allocate(5); });
  expectWait([&] { release(block); });

  // The request of the heap lies between the choice of the mode and the list.
  {
    ImportHook request("malloc", [](Call& call) {
      g_pMemDebugCB->latch = 0x80;
      return call.passOn();
    });
    block = allocate(5);
  }
  EXPECT_EQ(sleep.calls(), ++waits);
  release(block);
  expectWait([] { EXPECT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_FULL, 1, 1), ECF_OK); });
  expectWait([] { EXPECT_EQ(ossMemAllocList(1), ECF_OK); });
  return 0;
}

TEST_F(MemDebugLog, TheLatchGuardsModeAndListOfLiveBlocks) {
  EXPECT_EQ(runChild("findTheLatchHeld", {}, with(dir_.path() + ",FULL")), 0u);
}

}  // namespace
