// Tests of memory debugging's control block, which the DLL shows in the mode FULL only: what each
// value of OSSEMEMDBG makes of it while the library loads.
#include "memory/ossmemdbg.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <ostream>
#include <string>

#include "osscatalog.h"

using namespace oss;

namespace {

struct State {
  uint32_t eyeCatcher;
  uint32_t flags;
  uint32_t frontPads;
  uint32_t backPads;
  std::string directory;
  bool listsLeaks;
  bool isPublished;

  bool operator==(const State&) const = default;
};

void PrintTo(const State& state, std::ostream* out) {
  *out << std::hex << "eye-catcher 0x" << state.eyeCatcher << ", flags 0x" << state.flags
       << ", pads " << state.frontPads << " and " << state.backPads << ", directory \""
       << state.directory << "\", lists leaks " << state.listsLeaks << ", published "
       << state.isPublished;
}

// The library's memory debugging is chosen anew for each test, and left as it was without a choice.
class MemDebugStart : public testing::Test {
 protected:
  ~MemDebugStart() override { start(""); }

  // What the library makes of a value, that of a variable that is not set if it is empty.
  static State start(const std::string& value) {
    g_pMemDebugCB = nullptr;
    g_szMemDebugLogPath[0] = '\0';
    g_bIsMemoryFFDCEnabledFlag = 0;
    ::_putenv(("OSSEMEMDBG=" + value).c_str());
    initializeMemDebug();
    EXPECT_EQ(g_memDebug.hasAllocated, 0u);
    EXPECT_EQ(g_memDebug.liveBlocks, nullptr);
    EXPECT_EQ(g_memDebug.latch, 0);
    EXPECT_TRUE(g_pMemDebugCB == nullptr || g_pMemDebugCB == &g_memDebug);
    return {g_memDebug.eyeCatcher,   g_memDebug.flags,    g_memDebug.frontPads,
            g_memDebug.backPads,     g_szMemDebugLogPath, g_bIsMemoryFFDCEnabledFlag == 1,
            g_pMemDebugCB != nullptr};
  }

  // A directory that is not there: nothing is written.
  static constexpr char kMissing[] = "Q:\\no\\such\\directory";
};

TEST_F(MemDebugStart, WithoutTheVariableIsTheDefaultMode) {
  EXPECT_EQ(start(""), (State{OSS_MEM_DEBUG_OFF, 0, 0, 0, "", false, false}));
}

TEST_F(MemDebugStart, ChoosesWhatTheLevelAsksFor) {
  const std::string directory = kMissing;
  const State full = {OSS_MEM_DEBUG_FULL, 0x0F, 2, 2, directory, false, true};
  const State leaks = {OSS_MEM_DEBUG_FULL, 0x2F, 2, 2, directory, true, true};
  EXPECT_EQ(start(directory + ",FULL"), full);
  EXPECT_EQ(start(directory + ",corruptions"), full);
  EXPECT_EQ(start(directory + ",LEAKS"), leaks);
  EXPECT_EQ(start(directory + ",All"), leaks);
  EXPECT_EQ(start(directory + ",LIGHT"),
            (State{OSS_MEM_DEBUG_LIGHT, 0x0B, 2, 2, directory, false, false}));
}

// Deliberate: the pads are 2 all the same.
TEST_F(MemDebugStart, WithAnInvalidValueIsTheDefaultModeWithPads) {
  const std::string directory = kMissing;
  const State off = {OSS_MEM_DEBUG_OFF, 0, 2, 2, directory, false, false};
  for (const char* rest : {"", ",", ",IDLE", ",OSSFULL", ",FULL,x"})
    EXPECT_EQ(start(directory + rest), off) << rest;
}

TEST_F(MemDebugStart, ForgetsAnEarlierChoice) {
  start(std::string(kMissing) + ",LEAKS");
  ASSERT_EQ(ossMemSetDebug(1, OSS_MEM_DEBUG_FULL, 3, 4), ECF_OK);
  EXPECT_EQ(start(""), (State{OSS_MEM_DEBUG_OFF, 0, 0, 0, "", false, false}));
}

// ---- Choosing by hand ---------------------------------------------------------------------------

class MemSetDebug : public MemDebugStart {
 protected:
  MemSetDebug() { start(""); }

  static void allocateOnce() {
    void* block = nullptr;
    ASSERT_EQ(ossMemAlloc(&block, nullptr, 8, 0, "", 0), ECF_OK);
    ASSERT_EQ(ossMemFree(&block, nullptr, 0, "", 0), ECF_OK);
  }

  // The four values, in the order of the arguments.
  static void expectChoice(uint32_t flags, uint32_t eyeCatcher, uint32_t frontPads,
                           uint32_t backPads) {
    EXPECT_EQ(g_memDebug.flags, flags);
    EXPECT_EQ(g_memDebug.eyeCatcher, eyeCatcher);
    EXPECT_EQ(g_memDebug.frontPads, frontPads);
    EXPECT_EQ(g_memDebug.backPads, backPads);
    EXPECT_EQ(g_memDebug.latch, 0);
  }
};

TEST_F(MemSetDebug, StoresAllFourValues) {
  EXPECT_EQ(ossMemSetDebug(0x12345678, OSS_MEM_DEBUG_FULL, 3, 4), ECF_OK);
  expectChoice(0x12345678, OSS_MEM_DEBUG_FULL, 3, 4);
}

TEST_F(MemSetDebug, SwitchesOffAndOnBeforeTheFirstAllocation) {
  EXPECT_EQ(ossMemSetDebug(1, OSS_MEM_DEBUG_NONE, 3, 4), ECF_OK);
  expectChoice(1, OSS_MEM_DEBUG_NONE, 3, 4);
  EXPECT_EQ(ossMemSetDebug(2, OSS_MEM_DEBUG_LIGHT, 5, 6), ECF_OK);
  expectChoice(2, OSS_MEM_DEBUG_LIGHT, 5, 6);
}

// Deliberate: what does not switch is stored.
TEST_F(MemSetDebug, DoesNotSwitchOffAfterTheFirstAllocation) {
  static_assert(ECF_MEM_CANNOT_TOGGLE_MEM_DEBUG_AFTER_ALLOC == 0x90000079);
  ASSERT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_LIGHT, 0, 0), ECF_OK);
  allocateOnce();
  EXPECT_EQ(ossMemSetDebug(1, OSS_MEM_DEBUG_NONE, 3, 4),
            ECF_MEM_CANNOT_TOGGLE_MEM_DEBUG_AFTER_ALLOC);
  expectChoice(1, OSS_MEM_DEBUG_LIGHT, 3, 4);
}

TEST_F(MemSetDebug, DoesNotSwitchOnAfterTheFirstAllocation) {
  ASSERT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_NONE, 0, 0), ECF_OK);
  allocateOnce();
  EXPECT_EQ(ossMemSetDebug(1, OSS_MEM_DEBUG_OFF, 3, 4),
            ECF_MEM_CANNOT_TOGGLE_MEM_DEBUG_AFTER_ALLOC);
  expectChoice(1, OSS_MEM_DEBUG_NONE, 3, 4);
}

TEST_F(MemSetDebug, ChangesBetweenModesAtAnyTime) {
  allocateOnce();
  for (const uint32_t mode : {OSS_MEM_DEBUG_FULL, OSS_MEM_DEBUG_OFF, OSS_MEM_DEBUG_LIGHT}) {
    EXPECT_EQ(ossMemSetDebug(mode, mode, 1, 2), ECF_OK);
    expectChoice(mode, mode, 1, 2);
  }
}

TEST_F(MemSetDebug, NoneMayBeChosenAgainWhereItIsTheMode) {
  ASSERT_EQ(ossMemSetDebug(0, OSS_MEM_DEBUG_NONE, 0, 0), ECF_OK);
  allocateOnce();
  EXPECT_EQ(ossMemSetDebug(1, OSS_MEM_DEBUG_NONE, 3, 4), ECF_OK);
  expectChoice(1, OSS_MEM_DEBUG_NONE, 3, 4);
}

// A refused request counts, too: the mode was read for it. An area does not ask for the mode.
TEST_F(MemSetDebug, TheFirstRequestOfTheHeapDecides) {
  uint64_t area[16];
  void* block = nullptr;
  ASSERT_EQ(ossMemAreaInit(area, sizeof area), ECF_OK);
  ASSERT_EQ(ossMemAlloc(&block, area, 8, 0, "", 0), ECF_OK);
  ASSERT_EQ(ossMemAlloc(&block, nullptr, 0, 0, "", 0), ECF_INVALID_PARAMETER);
  EXPECT_EQ(g_memDebug.hasAllocated, 0u);
  ASSERT_EQ(ossMemAlloc(&block, nullptr, ~uint64_t{0}, 0, "", 0), ECF_NO_MEMORY);
  EXPECT_EQ(g_memDebug.hasAllocated, 1u);
}

}  // namespace
