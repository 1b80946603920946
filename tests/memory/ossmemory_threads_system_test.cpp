// The allocator used by several threads, and the library loaded and unloaded many times.
#include <windows.h>

#include <algorithm>
#include <array>
#include <random>
#include <thread>

#include "harness/childprocess.h"
#include "harness/loadedlibrary.h"
#include "memory/ossmemoryfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- Threads ------------------------------------------------------------------------------------

class Workers {
 public:
  static constexpr int kThreads = 8;
  static constexpr int kSteps = 4000;
  static constexpr size_t kBlocks = 16;  // of one thread

  struct Block {
    void* address;
    uint64_t size;
    uint8_t content;
  };

  enum class Checks : bool { No, Yes };

  // Allocates, checks and releases blocks, in a random order; what they hold must stay. Returns
  // the blocks that are left.
  static std::vector<void*> work(uint32_t seed, Checks checks) {
    std::mt19937 random(seed);
    std::array<Block, kBlocks> blocks = {};
    for (int step = 0; step < kSteps; ++step) {
      Block& block = blocks[random() % kBlocks];
      if (block.address == nullptr) {
        block = {nullptr, 1 + random() % 300, static_cast<uint8_t>(random())};
        block.address = allocate(block.size, random() % 2);
        std::memset(block.address, block.content, block.size);
      } else if (random() % 3 == 0) {
        if (checks == Checks::Yes) check(block.address);
      } else {
        const uint8_t* const data = byteAt(block.address, 0);
        EXPECT_TRUE(std::all_of(data, data + block.size,
                                [&](uint8_t byte) { return byte == block.content; }));
        release(block.address);
        block.address = nullptr;
      }
    }

    std::vector<void*> left;
    for (const Block& block : blocks)
      if (block.address != nullptr) left.push_back(block.address);
    return left;
  }

  static std::vector<void*> workInThreads(Checks checks = Checks::Yes) {
    std::array<std::vector<void*>, kThreads> left;
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < kThreads; ++i)
      threads.emplace_back([&left, i, checks] { left[i] = work(i, checks); });
    for (std::thread& thread : threads) thread.join();

    std::vector<void*> all;
    for (const auto& some : left) all.insert(all.end(), some.begin(), some.end());
    return all;
  }
};

class Threads : public MemoryTest, protected Workers {};
class ThreadsInEachMode : public Threads, public WithParamInterface<MemoryMode> {};

INSTANTIATE_TEST_SUITE_P(Modes, ThreadsInEachMode, Values(kOff, kLight, kFull));

TEST_P(ThreadsInEachMode, ThatAllocateAndReleaseLoseNoBlockAndDamageNone) {
  choose(GetParam(), OSS_MEM_FILL_NEW | OSS_MEM_FILL_FREED);
  const std::vector<void*> left = workInThreads();
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(left, Not(IsEmpty()));

  if (GetParam().eyeCatcher == OSS_MEM_DEBUG_FULL) {
    EXPECT_THAT(liveBlocks(), UnorderedElementsAreArray(left));
  }
  for (void* const block : left) release(block);
  choose(kFull);
  EXPECT_THAT(liveBlocks(), IsEmpty());
}

// Debugging can be switched off only before the first allocation. A check has no answer then, so
// there is none.
CHILD_ROLE(workInThreadsWithoutDebugging) {
  EXPECT_EQ(ossMemSetDebug(OSS_MEM_FILL_NEW, OSS_MEM_DEBUG_NONE, 0, 0), ECF_OK);
  collectFindings();
  const std::vector<void*> left = Workers::workInThreads(Workers::Checks::No);
  EXPECT_THAT(left, Not(IsEmpty()));
  for (void* const block : left) release(block);
  EXPECT_THAT(findings(), IsEmpty());
  return 0;
}

TEST(ThreadsWithoutDebugging, ThatAllocateAndReleaseLoseNoBlockAndDamageNone) {
  EXPECT_EQ(runChild("workInThreadsWithoutDebugging"), 0u);
}

// Blocks keep the mode in which they were allocated, whatever the others choose meanwhile.
TEST_F(Threads, MayChangeTheModeMeanwhile) {
  std::atomic<bool> done = false;
  std::thread changer([&done] {
    for (uint32_t i = 0; !done; ++i) choose(kModes[i % std::size(kModes)], i % 4);
  });
  const std::vector<void*> left = workInThreads();
  done = true;
  changer.join();
  for (void* const block : left) release(block);
  EXPECT_THAT(findings(), IsEmpty());
  choose(kFull);
  EXPECT_THAT(liveBlocks(), IsEmpty());
}

// ---- Loading and unloading ----------------------------------------------------------------------

TEST(Library, LoadedAThousandTimesLeavesNothingBehind) {
  constexpr int kTimes = 1000;
  const LoadedLibrary kept("advapi32.dll");
  TempDirectory dir;
  const std::string path = copyOfLibrary(dir);

  const auto loadAndUse = [&path] {
    const LoadedLibrary library(path);
    void* block = nullptr;
    EXPECT_EQ(library.find<decltype(ossMemSetDebug)>("ossMemSetDebug")(0, OSS_MEM_DEBUG_FULL, 2, 2),
              ECF_OK);
    EXPECT_EQ(
        library.find<decltype(ossMemAlloc)>("ossMemAlloc")(&block, nullptr, 64, 0, kFile, kLine),
        ECF_OK);
    EXPECT_EQ(library.find<decltype(ossMemFree)>("ossMemFree")(&block, nullptr, 0, kFile, kLine),
              ECF_OK);
  };
  for (int i = 0; i < 10; ++i) loadAndUse();

  const Holdings before = Holdings::now();
  for (int i = 0; i < kTimes; ++i) loadAndUse();
  const Holdings after = Holdings::now();
  EXPECT_EQ(after.handles, before.handles);
  EXPECT_EQ(after.nextSlot, before.nextSlot);
  // The system itself may keep a page or two.
  EXPECT_LT(after.privateBytes, before.privateBytes + size_t{16} * 4096);
}

}  // namespace
