// The allocator's heap side: refusals, blocks as their bytes, what is asked of the system's heap.
#include "harness/logcapture.h"
#include "memory/ossmemoryfixture.h"

using namespace osse_test;
using namespace testing;
using oss::Func;

namespace {

constexpr uint64_t kNever = ~uint64_t{0};

// ---- Refusals -----------------------------------------------------------------------------------

class Refusals : public MemoryTest {
 protected:
  ~Refusals() override { EXPECT_EQ(log_.text(), ""); }

  LogCapture log_;
};

TEST_F(Refusals, ASizeOf0IsInvalid) {
  void* block = nullptr;
  EXPECT_EQ(ossMemAlloc(&block, nullptr, 0, 0, kFile, kLine), ECF_INVALID_PARAMETER);
  EXPECT_EQ(block, nullptr);
}

TEST_F(Refusals, AllocationFlagsOf4OrMoreAreInvalid) {
  void* block = nullptr;
  for (const uint64_t flags : {uint64_t{4}, uint64_t{5}, uint64_t{8}, uint64_t{1} << 32, kNever})
    EXPECT_EQ(ossMemAlloc(&block, nullptr, 8, flags, kFile, kLine), ECF_INVALID_PARAMETER) << flags;
  EXPECT_EQ(block, nullptr);
}

TEST_F(Refusals, ANullOutAddressIsInvalid) {
  EXPECT_EQ(ossMemAlloc(nullptr, nullptr, 8, 0, kFile, kLine), ECF_INVALID_PARAMETER);
}

TEST_F(Refusals, ANullAddressPointerCannotBeReleased) {
  EXPECT_EQ(ossMemFree(nullptr, nullptr, 0, kFile, kLine), ECF_INVALID_PARAMETER);
}

// The heap is not asked.
TEST_F(Refusals, ASizeNear64BitsIsNoMemory) {
  for (const MemoryMode& mode : kModes) {
    choose(mode);
    CallCounter requests("malloc");
    for (const uint64_t size : {kNever, kNever - 7, kNever - 15, kNever - 31, kNever - 200}) {
      void* block = &block;
      EXPECT_EQ(ossMemAlloc(&block, nullptr, size, 0, kFile, kLine), ECF_NO_MEMORY) << size;
      EXPECT_EQ(block, nullptr);
    }
    EXPECT_EQ(requests.calls(), 0);
  }
}

TEST_F(Refusals, WhatTheHeapCannotGiveIsNoMemory) {
  for (const MemoryMode& mode : kModes) {
    choose(mode, OSS_MEM_FILL_NEW);
    void* block = &block;
    EXPECT_EQ(ossMemAlloc(&block, nullptr, uint64_t{1} << 47, OSS_MEM_ZERO, kFile, kLine),
              ECF_NO_MEMORY);
    EXPECT_EQ(block, nullptr);
  }
}

// The run-time may leave no error; then it is the lack of memory.
TEST_F(Refusals, TheErrorOfAFailedRequestIsMapped) {
  const std::pair<DWORD, OSSErr> kErrors[] = {
      {ERROR_NOT_ENOUGH_MEMORY, ECF_NO_MEMORY}, {ERROR_OUTOFMEMORY, ECF_NO_MEMORY},
      {ERROR_COMMITMENT_LIMIT, ECF_NO_MEMORY},  {NO_ERROR, ECF_NO_MEMORY},
      {ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED}, {ERROR_CRC, ECF_UNKNOWN}};
  for (const auto& [error, code] : kErrors) {
    FailingCall request("malloc", error);
    void* block = &block;
    EXPECT_EQ(ossMemAlloc(&block, nullptr, 8, 0, kFile, kLine), code) << error;
    EXPECT_EQ(block, nullptr);
  }
}

TEST_F(Refusals, ABlockThatWasNotGivenIsNotLive) {
  choose(kFull);
  void* const block = allocate(8);
  {
    FailingCall request("malloc", ERROR_NOT_ENOUGH_MEMORY);
    void* none = nullptr;
    EXPECT_EQ(ossMemAlloc(&none, nullptr, 8, 0, kFile, kLine), ECF_NO_MEMORY);
  }
  EXPECT_THAT(liveBlocks(), ElementsAre(block));
  release(block);
}

// ---- The release of nothing ---------------------------------------------------------------------

class NullRelease : public MemoryTest {
 protected:
  // Releases a pointer that holds null and returns the text of the one record.
  void expectRecord(const char* file, uint64_t line, const std::string& text) {
    LogCapture log;
    void* nothing = nullptr;
    EXPECT_EQ(ossMemFree(&nothing, nullptr, 0, file, line), ECF_MEM_NULL_POINTER);
    EXPECT_THAT(log.records(), ElementsAre(FoundRecord(OSS_LOG_ERROR, Func::ossMemFree, 20,
                                                       ECF_MEM_NULL_POINTER, {String(text)})));
  }

  static constexpr char kText[] = "NULL pointer for memory allocation address found at: ";
};

TEST_F(NullRelease, IsLoggedOnceWithFileAndLine) {
  static_assert(ECF_MEM_NULL_POINTER == 0x900003EE);
  expectRecord(kFile, 7, std::string(kText) + kFile + ", line 7");
  expectRecord("", kNever, std::string(kText) + ", line 18446744073709551615");
}

TEST_F(NullRelease, ANullFileCountsAsEmpty) {
  expectRecord(nullptr, 0, std::string(kText) + ", line 0");
}

TEST_F(NullRelease, InAnAreaIsLoggedAsWell) {
  LogCapture log;
  uint64_t area[16];
  ASSERT_EQ(ossMemAreaInit(area, sizeof area), ECF_OK);
  void* nothing = nullptr;
  EXPECT_EQ(ossMemFree(&nothing, area, 24, kFile, kLine), ECF_MEM_NULL_POINTER);
  EXPECT_EQ(log.records().size(), 1u);
}

// A record shows 512 characters of it at most; the formatter is told of all.
TEST_F(NullRelease, TheTextIsCutAt1024Characters) {
  const std::string file(2000, 'x');
  std::vector<size_t> rooms;
  {
    ImportHook formatter("_vsnprintf", [&](Call& call) {
      if (std::string_view(call.argument<const char*>(2)).starts_with(kText))
        rooms.push_back(call.argument<size_t>(1));
      return call.passOn();
    });
    expectRecord(file.c_str(), 7, (kText + file).substr(0, 512));
  }
  EXPECT_THAT(rooms, ElementsAre(1025u));
}

// ---- Blocks -------------------------------------------------------------------------------------

// What the heap was asked for, and what it gave.
struct Request {
  uint64_t size;
  void* block;
};

class Blocks : public MemoryTest, public WithParamInterface<MemoryMode> {
 protected:
  static Request requestOf(uint64_t size, void** block) {
    Request request = {};
    ImportHook hook("malloc", [&](Call& call) {
      const Word given = call.passOn();
      request = {call.argument<uint64_t>(0), reinterpret_cast<void*>(given)};
      return given;
    });
    *block = allocate(size);
    return request;
  }

  // The bytes of a whole block of 0xFF, but for the links of FULL.
  static std::string expectedBytes(uint64_t size) {
    const MemoryMode& mode = GetParam();
    std::string bytes;
    const auto add = [&bytes](auto value) {
      bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    const auto addPads = [&](uint32_t count) {
      for (uint32_t i = 0; i < count; ++i) add(kGuard);
    };
    const auto addModeRecord = [&](uint64_t guard) {
      add(guard);
      add(static_cast<uint32_t>(size));
      add(mode.eyeCatcher);
    };
    if (mode.eyeCatcher == OSS_MEM_DEBUG_FULL) {
      addPads(mode.frontPads);
      bytes.append(kBaseName).append(24 - (sizeof kBaseName - 1), '\0');
      add(size);
      add(static_cast<uint32_t>(kLine));
      add(mode.frontPads);
      add(mode.backPads);
      add(mode.eyeCatcher);
    } else {
      addModeRecord(mode.eyeCatcher == OSS_MEM_DEBUG_LIGHT ? kGuard : 0);
    }
    add(kMarkAllocated);
    add(static_cast<uint32_t>(size));
    add(kBaseNameHash);
    add(static_cast<uint32_t>(kLine));
    bytes.append(size, '\xFF');
    if (mode.eyeCatcher == OSS_MEM_DEBUG_OFF) return bytes;

    bytes.append(roundedTo8(size) - size, '\xCC');
    if (mode.eyeCatcher == OSS_MEM_DEBUG_LIGHT) {
      addModeRecord(kGuard);
    } else {
      addPads(mode.backPads);
      add(size);
      add(mode.eyeCatcher);
    }
    return bytes;
  }

  // The bytes of a whole block as they are, but for the links of FULL.
  static std::string bytesOf(void* block, uint64_t size) {
    const MemoryMode& mode = GetParam();
    const auto* const start = reinterpret_cast<const char*>(byteAt(block, 0)) - mode.before();
    std::string bytes(start, expectedBytes(size).size() + linkBytes());
    return bytes.erase(8 * mode.frontPads, linkBytes());
  }

  static size_t linkBytes() { return GetParam().eyeCatcher == OSS_MEM_DEBUG_FULL ? 16 : 0; }
};

INSTANTIATE_TEST_SUITE_P(Modes, Blocks,
                         Values(kOff, kLight, kFull, MemoryMode{OSS_MEM_DEBUG_FULL, 0, 0},
                                MemoryMode{OSS_MEM_DEBUG_FULL, 5, 1}));

TEST_P(Blocks, TheSystemBlockHoldsTheDataAndWhatSurroundsIt) {
  choose(GetParam());
  for (const uint64_t size : {1u, 7u, 8u, 9u, 15u, 16u, 17u, 4096u}) {
    void* block = nullptr;
    const Request request = requestOf(size, &block);
    EXPECT_EQ(request.size, GetParam().total(size)) << size;
    EXPECT_EQ(block, byteAt(request.block, static_cast<int64_t>(GetParam().before()))) << size;
    release(block);
  }
}

TEST_P(Blocks, EveryByteAroundTheDataIsWritten) {
  choose(GetParam(), OSS_MEM_FILL_NEW);
  for (uint64_t size = 1; size <= 33; ++size) {
    void* const block = allocate(size);
    EXPECT_EQ(bytesOf(block, size), expectedBytes(size)) << size;
    release(block);
  }
}

TEST_P(Blocks, TheDataIsAlignedTo8Bytes) {
  choose(GetParam());
  for (uint64_t size = 1; size <= 33; ++size) {
    void* const block = allocate(size);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 8, 0u) << size;
    release(block);
  }
}

TEST_P(Blocks, TheHeaderKeepsTheLow32BitsOfSizeAndLine) {
  choose(GetParam());
  constexpr uint64_t kHuge = (uint64_t{1} << 32) + 5;
  void* block = nullptr;
  ASSERT_EQ(ossMemAlloc(&block, nullptr, kHuge, 0, kFile, kHuge + 1), ECF_OK);
  EXPECT_EQ(wordAt<uint32_t>(block, -12), 5u);
  EXPECT_EQ(wordAt<uint32_t>(block, -4), 6u);

  // LIGHT keeps no more of the size anywhere, so its check would look for the trailer too early.
  if (GetParam().eyeCatcher == OSS_MEM_DEBUG_LIGHT)
    std::free(byteAt(block, -32));
  else
    release(block);
}

TEST_P(Blocks, AllocationFlag2ChoosesTheOtherMark) {
  choose(GetParam());
  for (const uint64_t flags : {0u, 1u, 2u, 3u}) {
    void* const block = allocate(5, flags);
    EXPECT_EQ(markOf(block), flags >= 2 ? kMarkAllocatedE1 : kMarkAllocated);
    release(block);
  }
}

TEST_P(Blocks, ANullSourceFileHasTheHash0) {
  choose(GetParam());
  void* block = nullptr;
  ASSERT_EQ(ossMemAlloc(&block, nullptr, 5, 0, nullptr, kLine), ECF_OK);
  EXPECT_EQ(wordAt<uint32_t>(block, -8), 0u);
  release(block);
}

// The slack is no part of the request.
TEST_P(Blocks, AllocationFlag1ZeroesTheRequestAlone) {
  choose(GetParam(), OSS_MEM_FILL_NEW);
  void* const block = allocate(5, OSS_MEM_ZERO);
  EXPECT_EQ(wordAt<uint32_t>(block, 0), 0u);
  EXPECT_EQ(*byteAt(block, 4), 0);
  EXPECT_TRUE(GetParam().eyeCatcher == OSS_MEM_DEBUG_OFF || *byteAt(block, 5) == 0xCC);
  release(block);
}

TEST_P(Blocks, WithoutFlagsTheDataIsLeftAsTheHeapGaveIt) {
  choose(GetParam());
  alignas(16) char memory[256];
  std::memset(memory, 0x55, sizeof memory);
  void* block = nullptr;
  {
    ImportHook hook("malloc", [&](Call&) { return static_cast<void*>(memory); });
    block = allocate(64);
  }
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(byteAt(block, 0)), 64),
            std::string(64, '\x55'));

  ImportHook hook("free", [](Call&) {});
  release(block);
}

TEST_P(Blocks, AReleaseMarksTheBlockAndGivesItsStartToTheHeap) {
  choose(GetParam());
  KeptBlocks kept;
  void* const block = allocate(5);
  release(block);
  EXPECT_EQ(markOf(block), kMarkFreed);
  EXPECT_EQ(modeOf(block), kModeFreed);
  EXPECT_THAT(kept.takeBlocks(),
              ElementsAre(byteAt(block, -static_cast<int64_t>(GetParam().before()))));
}

// Where the block tells its size: so not in the mode OFF.
TEST_P(Blocks, AReleasedBlockIsFilledWhereItsSizeIsKnown) {
  const std::string data = "12345";
  for (const uint32_t flags : {0u, OSS_MEM_FILL_FREED}) {
    choose(GetParam(), flags);
    KeptBlocks kept;
    void* const block = allocate(5);
    std::memcpy(block, data.data(), 5);
    release(block);
    const bool isFilled = flags != 0 && GetParam().eyeCatcher != OSS_MEM_DEBUG_OFF;
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(byteAt(block, 0)), 5),
              isFilled ? std::string(5, '\xFF') : data);
    EXPECT_TRUE(GetParam().eyeCatcher == OSS_MEM_DEBUG_OFF || *byteAt(block, 5) == 0xCC);
  }
}

// ---- Blocks of FULL -----------------------------------------------------------------------------

using FullBlocks = MemoryTest;

TEST_F(FullBlocks, AreLinkedNewestFirst) {
  choose(kFull);
  void* const first = allocate(1);
  void* const second = allocate(2);
  void* const third = allocate(3);
  EXPECT_THAT(liveBlocks(), ElementsAre(third, second, first));

  release(second);
  EXPECT_THAT(liveBlocks(), ElementsAre(third, first));
  release(third);
  EXPECT_THAT(liveBlocks(), ElementsAre(first));
  release(first);
  EXPECT_THAT(liveBlocks(), IsEmpty());
}

TEST_F(FullBlocks, KeepAtMost23CharactersOfTheBaseName) {
  choose(kFull);
  const std::pair<std::string, std::string> kNames[] = {
      {"dir/12345678901234567890123", "12345678901234567890123"},
      {"dir/1234567890123456789012345", "12345678901234567890123"},
      {"", ""},
      {"dir\\", ""}};
  for (const auto& [file, name] : kNames) {
    void* block = nullptr;
    ASSERT_EQ(ossMemAlloc(&block, nullptr, 1, 0, file.c_str(), kLine), ECF_OK);
    std::string kept = name;
    kept.resize(24);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(byteAt(block, -64)), 24), kept);
    release(block);
  }
}

// Each block goes by its own counts of pads, and by its own mode.
TEST_F(FullBlocks, OutliveAChangeOfTheMode) {
  choose(kFull);
  void* const withTwo = allocate(5);
  choose({OSS_MEM_DEBUG_FULL, 7, 9});
  void* const withMany = allocate(5);
  choose(kLight);
  void* const light = allocate(5);
  choose(kOff);
  void* const off = allocate(5);

  KeptBlocks kept;
  for (void* const block : {withTwo, withMany, light, off}) {
    check(block);
    release(block);
  }
  EXPECT_THAT(kept.takeBlocks(), ElementsAre(byteAt(withTwo, -96), byteAt(withMany, -136),
                                             byteAt(light, -32), byteAt(off, -32)));
}

}  // namespace
