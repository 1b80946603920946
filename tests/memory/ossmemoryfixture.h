// ossmemoryfixture.h - what the tests of the allocator share: a mode for a test, the findings that
// were reported meanwhile, and a heap block as its bytes.
//
// Blocks are described here anew, by the distances of their parts from the user address; nothing
// of the library's own description is used.
#pragma once

#include <gmock/gmock.h>
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "harness/importhook.h"
#include "ossassert.h"
#include "osscatalog.h"
#include "ossmemory.h"

namespace osse_test {

// Where every call of the tests comes from.
inline constexpr char kFile[] = "C:\\some\\where/a.c";
inline constexpr char kBaseName[] = "a.c";
inline constexpr uint32_t kBaseNameHash = 0x00612E63;
inline constexpr uint64_t kLine = 4711;

inline constexpr uint64_t kGuard = 0xFEEDFACE600DBEEF;
inline constexpr uint32_t kMarkAllocated = 0xA7C055E0;
inline constexpr uint32_t kMarkAllocatedE1 = 0xA7C055E1;
inline constexpr uint32_t kMarkFreed = 0xDEAD055E;
inline constexpr uint32_t kModeFreed = 0xF4EEDA7A;

inline constexpr uint64_t roundedTo8(uint64_t size) { return (size + 7) / 8 * 8; }

// ---- Modes --------------------------------------------------------------------------------------

struct MemoryMode {
  uint32_t eyeCatcher;
  uint32_t frontPads = 0;
  uint32_t backPads = 0;

  // The system's block, and what of it lies in front of the user data.
  uint64_t before() const {
    return eyeCatcher == OSS_MEM_DEBUG_FULL ? 8 * uint64_t{frontPads} + 80 : 32;
  }
  uint64_t total(uint64_t size) const {
    const uint64_t behind = eyeCatcher == OSS_MEM_DEBUG_FULL    ? 8 * uint64_t{backPads} + 16
                            : eyeCatcher == OSS_MEM_DEBUG_LIGHT ? 16
                                                                : 0;
    return before() + roundedTo8(size) + behind;
  }
};

inline constexpr MemoryMode kOff = {OSS_MEM_DEBUG_OFF};
inline constexpr MemoryMode kLight = {OSS_MEM_DEBUG_LIGHT};
inline constexpr MemoryMode kFull = {OSS_MEM_DEBUG_FULL, 2, 2};
inline constexpr MemoryMode kModes[] = {kOff, kLight, kFull};

inline void PrintTo(const MemoryMode& mode, std::ostream* out) {
  *out << (mode.eyeCatcher == OSS_MEM_DEBUG_FULL    ? "FULL"
           : mode.eyeCatcher == OSS_MEM_DEBUG_LIGHT ? "LIGHT"
                                                    : "OFF");
  if (mode.eyeCatcher == OSS_MEM_DEBUG_FULL)
    *out << ", pads " << mode.frontPads << " and " << mode.backPads;
}

inline void choose(const MemoryMode& mode, uint32_t flags = 0) {
  EXPECT_EQ(ossMemSetDebug(flags, mode.eyeCatcher, mode.frontPads, mode.backPads), ECF_OK);
}

// ---- Blocks -------------------------------------------------------------------------------------

inline uint8_t* byteAt(void* user, int64_t distance) {
  return static_cast<uint8_t*>(user) + distance;
}
template <class Word>
Word wordAt(void* user, int64_t distance) {
  Word word;
  std::memcpy(&word, byteAt(user, distance), sizeof word);
  return word;
}
template <class Word>
void setWordAt(void* user, int64_t distance, Word word) {
  std::memcpy(byteAt(user, distance), &word, sizeof word);
}

// The words that every mode has at the same distance.
inline uint32_t markOf(void* user) { return wordAt<uint32_t>(user, -16); }
inline uint32_t modeOf(void* user) { return wordAt<uint32_t>(user, -20); }

inline void* allocate(uint64_t size, uint64_t flags = 0) {
  void* block = nullptr;
  EXPECT_EQ(ossMemAlloc(&block, nullptr, size, flags, kFile, kLine), ECF_OK);
  EXPECT_NE(block, nullptr);
  return block;
}

inline void release(void* block) {
  EXPECT_EQ(ossMemFree(&block, nullptr, 0, kFile, kLine), ECF_OK);
  EXPECT_EQ(block, nullptr);
}

inline void check(void* block) {
  void* address = block;
  EXPECT_EQ(ossMemAllocCheck(&address, kFile, kLine, 0), ECF_OK);
  EXPECT_EQ(address, block);
}

// The blocks of FULL that are live, newest first, as their user addresses. A new block leads to
// all of them.
inline std::vector<void*> liveBlocks() {
  constexpr int64_t kRecordBefore = 80;
  std::vector<void*> blocks;
  void* const newest = allocate(1);
  uint8_t* previous = byteAt(newest, -kRecordBefore);
  for (auto* record = wordAt<uint8_t*>(previous, 0); record != nullptr;
       previous = std::exchange(record, wordAt<uint8_t*>(record, 0))) {
    if (wordAt<uint8_t*>(record, 8) != previous) {
      ADD_FAILURE() << "a block does not know the one in front of it";
      break;
    }
    blocks.push_back(record + kRecordBefore);
  }
  release(newest);
  return blocks;
}

// Keeps what the library gives back to the heap, so that a test can still look at it. The hook
// wants to be called at least once.
class KeptBlocks {
 public:
  KeptBlocks() : hook_("free", [this](Call& call) { keep(call.argument<void*>(0)); }) {}
  ~KeptBlocks() {
    for (void* const block : all_) std::free(block);
  }
  KeptBlocks(const KeptBlocks&) = delete;
  KeptBlocks& operator=(const KeptBlocks&) = delete;

  // The blocks since the last call. They are kept on.
  std::vector<void*> takeBlocks() { return std::exchange(new_, {}); }

 private:
  void keep(void* block) {
    all_.push_back(block);
    new_.push_back(block);
  }

  std::vector<void*> all_;
  std::vector<void*> new_;
  ImportHook hook_;
};

// ---- Findings -----------------------------------------------------------------------------------

using Texts = std::vector<std::string>;

struct CollectedFindings {
  std::mutex mutex;
  Texts texts;
};
inline CollectedFindings& collected() {
  static CollectedFindings all;
  return all;
}

// The findings since the last call.
inline Texts findings() {
  const std::lock_guard lock(collected().mutex);
  return std::exchange(collected().texts, {});
}

// Lets findings be collected from now on. Each must be told for kFile and kLine, with the directory
// of memory debugging as its dump path, not as fatal, and without memory items.
inline void collectFindings() {
  ossSetAssertionCallback([](const char* expression, const char* file, uint64_t line,
                             const char* dumpPath, uint8_t fatal, va_list items) {
    EXPECT_STREQ(file, kFile);
    EXPECT_EQ(line, kLine);
    EXPECT_STREQ(dumpPath, g_szMemDebugLogPath);
    EXPECT_EQ(fatal, 0);
    EXPECT_EQ(va_arg(items, const void*), nullptr);
    const std::lock_guard lock(collected().mutex);
    collected().texts.push_back(expression);
  });
}

// Collects findings; each must be asked for. Leaves the default mode behind.
class MemoryTest : public testing::Test {
 protected:
  MemoryTest() { collectFindings(); }
  ~MemoryTest() override {
    ossSetAssertionCallback(nullptr);
    ossMemSetDebug(0, OSS_MEM_DEBUG_OFF, 0, 0);
    EXPECT_THAT(findings(), testing::IsEmpty());
  }
};

// The texts of findings.
inline constexpr char kNullFound[] = "NULL pointer for memory allocation address found at:";
inline constexpr char kFreedAgain[] = "Freeing freed memory found at:";
inline constexpr char kLightFront[] = "Front memory pad corruption found at:";
inline constexpr char kLightBack[] = "Back memory pad corruption found at:";
inline constexpr char kLightSize[] = "Memory pad size corruption found at:";
inline constexpr char kFullFront[] = "Front pad corruption found at:";
inline constexpr char kFullSlack[] = "Back Uint8 memory pad corruption found at:";
inline constexpr char kFullSize[] =
    "Allocation size does not match between front and back pad structures found at:";

inline std::string hexDigits(uint64_t value, bool inUpperCase) {
  std::ostringstream out;
  out << std::hex << (inUpperCase ? std::uppercase : std::nouppercase) << value;
  return out.str();
}
inline std::string backPadIs(uint64_t value) {
  return "Back pad corruption (0x" + hexDigits(value, true) + ") found at:";
}
inline std::string backModeIs(uint32_t value) {
  return "Back pad mode (0x" + hexDigits(value, false) + ")found at:";
}
inline std::string markIs(uint32_t value) {
  return "Invalid block eye-catcher (0x" + hexDigits(value, true) + ") found at:";
}
inline std::string modeIs(uint32_t value) {
  return "Invalid pad type (0x" + hexDigits(value, true) + ") found at:";
}

}  // namespace osse_test
