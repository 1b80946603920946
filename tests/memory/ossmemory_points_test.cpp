// What the allocator traces, maps and logs of itself: among fakes of all that the frame calls, and
// with a memory debugging that does nothing.
#include <gmock/gmock.h>

#include <cstdarg>
#include <cstdio>
#include <vector>

#include "memory/ossmemdbg.h"
#include "numeric/osslatchguard.h"
#include "osscatalog.h"
#include "ossstring.h"
#include "osstrace.h"
#include "tests/core/tracedtest.h"

using oss::fakes::note;
using testing::ElementsAre;

// ---- Memory debugging, which is off ----

namespace oss {

constinit OSSMemDebugCB g_memDebug = {};

void linkLive(FullRecord&) noexcept { note("link"); }

// Every block is one of the mode OFF.
void* checkBlock(void* address, const char*, uint64_t, bool) noexcept {
  note("check");
  return static_cast<char*>(address) - BlockLayout(OSS_MEM_DEBUG_OFF, 0, 0, 0).before();
}

}  // namespace oss

OSSErr ossMemAllocList(uint64_t dumpFlag) noexcept {
  note(oss::fakes::text("list %u", static_cast<unsigned>(dumpFlag)));
  return ECF_OK;
}

void ossLockGetConflict(volatile uint8_t*) noexcept { note("conflict"); }

uint64_t ossSnprintf(char* buffer, size_t size, const char*, ...) noexcept {
  return static_cast<uint64_t>(std::snprintf(buffer, size, "text"));
}

namespace {

constexpr char kAllocEntry[] = "entry 0000000089ABCDEF 081A0058";
constexpr char kFreeEntry[] = "entry 0000000089ABCDEF 081A0059";

std::string allocExit(OSSErr rc = ECF_OK) {
  return oss::fakes::text("exit 0000000089ABCDEF 081A0058 rc %016X extra 0", rc);
}
std::string freeExit(OSSErr rc = ECF_OK) {
  return oss::fakes::text("exit 0000000089ABCDEF 081A0059 rc %016X extra 0", rc);
}

class MemoryPoints : public oss::fakes::TracedTest {
 protected:
  MemoryPoints() : TracedTest(ECF_NO_MEMORY, OSS_LOG_ERROR) {
    oss::g_memDebug.eyeCatcher = OSS_MEM_DEBUG_OFF;
  }

  void* memory_ = nullptr;
};

TEST_F(MemoryPoints, ABlockIsEntryAndExit) {
  EXPECT_EQ(ossMemAlloc(&memory_, nullptr, 8, 0, "file", 1), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre(kAllocEntry, allocExit()));
  EXPECT_EQ(ossMemFree(&memory_, nullptr, 0, "file", 1), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre(kFreeEntry, freeExit()));
}

// Nothing is logged.
TEST_F(MemoryPoints, AFailedRequestIsMappedAndAnErrorPoint) {
  EXPECT_EQ(ossMemAlloc(&memory_, nullptr, ~uint64_t{0}, 0, "file", 1), ECF_NO_MEMORY);
  EXPECT_THAT(calls(),
              ElementsAre(kAllocEntry, "map 081A0058 probe 40 call 08140020 error 8",
                          "error 0000000089ABCDEF 081A0058 probe 40 type 4 extra 0 {0 4 0D000090}",
                          allocExit(ECF_NO_MEMORY)));
}

TEST_F(MemoryPoints, WrongArgumentsAreEntryAndExit) {
  EXPECT_EQ(ossMemAlloc(&memory_, nullptr, 0, 0, "file", 1), ECF_INVALID_PARAMETER);
  EXPECT_EQ(ossMemFree(nullptr, nullptr, 0, "file", 1), ECF_INVALID_PARAMETER);
  EXPECT_THAT(calls(), ElementsAre(kAllocEntry, allocExit(ECF_INVALID_PARAMETER), kFreeEntry,
                                   freeExit(ECF_INVALID_PARAMETER)));
}

TEST_F(MemoryPoints, AReleaseOfNothingIsLogged) {
  EXPECT_EQ(ossMemFree(&memory_, nullptr, 0, "file", 1), ECF_MEM_NULL_POINTER);
  EXPECT_THAT(calls(), ElementsAre(kFreeEntry,
                                   "log default 081A0059 code 900003EE probe 20 level 2 nothing"
                                   " #1 {-5 4 74657874}",
                                   freeExit(ECF_MEM_NULL_POINTER)));
}

// What an area cannot give is its own answer, not the system's.
TEST_F(MemoryPoints, AnAreaIsEntryAndExit) {
  uint64_t area[7];
  ASSERT_EQ(ossMemAreaInit(area, sizeof area), ECF_OK);
  EXPECT_THAT(calls(), testing::IsEmpty());
  EXPECT_EQ(ossMemAlloc(&memory_, area, 25, 0, "file", 1), ECF_NO_MEMORY);
  EXPECT_EQ(ossMemAlloc(&memory_, area, 24, 0, "file", 1), ECF_OK);
  memory_ = area + 4;
  EXPECT_EQ(ossMemFree(&memory_, area, 24, "file", 1), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre(kAllocEntry, allocExit(ECF_NO_MEMORY), kAllocEntry, allocExit(),
                                   kFreeEntry, freeExit()));
}

// The list comes before everything else of the call.
TEST_F(MemoryPoints, AListOnDemandFollowsTheEntry) {
  g_bDumpMemAllocListFlag = 1;
  EXPECT_EQ(ossMemAlloc(&memory_, nullptr, 0, 0, "file", 1), ECF_INVALID_PARAMETER);
  g_bDumpMemAllocListFlag = 1;
  EXPECT_EQ(ossMemFree(nullptr, nullptr, 0, "file", 1), ECF_INVALID_PARAMETER);
  EXPECT_THAT(calls(), ElementsAre(kAllocEntry, "list 1", allocExit(ECF_INVALID_PARAMETER),
                                   kFreeEntry, "list 1", freeExit(ECF_INVALID_PARAMETER)));
}

}  // namespace
