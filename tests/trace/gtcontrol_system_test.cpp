// The control block: how it is formatted, attached, switched and changed, and what of it goes into
// a dump.
#include "osstracedump.h"
#include "trace/tracefixture.h"

using namespace osse_test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr OSSErr kInvalidParameter = 0x9000000C;
constexpr OSSErr kInvalidSize = 0x90000071;
constexpr OSSErr kNotAttached = 0x90000073;
constexpr OSSErr kNotInitialized = 0x90000074;
constexpr OSSErr kInvalidRingSize = 0x90000089;
constexpr OSSErr kNoRing = 0x90000090;

constexpr uint32_t kWrongSizes[] = {0, 1, 0x7FFFF, 0x40000001, 0x80000000, 0xFFFFFFFF};

std::string bytesOf(const GTraceOptions& options) {
  return {reinterpret_cast<const char*>(&options), sizeof options};
}

// Options whose every byte tells its place, in that mode.
OptionsPointer patternedOptions(uint32_t mode) {
  auto options = std::make_unique<GTraceOptions>();
  auto* const bytes = reinterpret_cast<uint8_t*>(options.get());
  for (size_t i = 0; i < sizeof *options; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
  options->bufferSize = kBuffer;
  options->mode = mode;
  options->flags = 0x14;  // no bit of the library's own
  return options;
}

// ---- Sizes and formatting ----

TEST(GTraceAllocSize, IsTheFixedPartAndTheRing) {
  EXPECT_EQ(gtraceGetAllocSize(0x80000), 838'616u);
  EXPECT_EQ(gtraceGetAllocSize(0x100000), 1'362'984u);
  EXPECT_EQ(gtraceGetAllocSize(0x40000000), 1'074'219'912u);
}

TEST(GTraceAllocSize, IsZeroForASizeThatARingCannotHave) {
  for (const uint32_t size : kWrongSizes) EXPECT_EQ(gtraceGetAllocSize(size), 0u) << size;
  for (const uint32_t size : {0x80001u, 0x90000u, 0x3FFFFFFFu})
    EXPECT_EQ(gtraceGetAllocSize(size), 0u) << size;
}

class GTraceInitializeTest : public testing::Test {
 protected:
  OSSErr initialize(uint32_t mode, uint32_t size = kBuffer) {
    return gtraceInitialize(memory_.get(), optionsOf(mode, 0, size).get());
  }
  void expectUntouched(size_t from = 0) const {
    EXPECT_THAT(memory_.bytes(from, memory_.size() - from), Each(kStale));
  }

  BlockMemory memory_;
};

TEST_F(GTraceInitializeTest, RefusesInItsOrder) {
  const auto good = optionsOf(GTRACE_CIRCULAR);
  const auto small = optionsOf(0, 0, 0x7FFFF);
  const auto modeless = optionsOf(0);
  EXPECT_EQ(gtraceInitialize(nullptr, nullptr), kInvalidParameter);
  EXPECT_EQ(gtraceInitialize(memory_.get(), nullptr), kInvalidParameter);
  EXPECT_EQ(gtraceInitialize(nullptr, small.get()), kInvalidSize);
  EXPECT_EQ(gtraceInitialize(memory_.get(), small.get()), kInvalidSize);
  EXPECT_EQ(gtraceInitialize(nullptr, good.get()), kInvalidParameter);
  EXPECT_EQ(gtraceInitialize(memory_.get(), modeless.get()), kInvalidParameter);
  expectUntouched();
}

TEST_F(GTraceInitializeTest, RefusesSizesInEveryMode) {
  for (const uint32_t mode : {0u, 1u, 2u, 4u, 8u, 16u})
    for (const uint32_t size : kWrongSizes) EXPECT_EQ(initialize(mode, size), kInvalidSize);
  expectUntouched();
}

// With no memory for a block of that size at hand, the next check shows that it passed.
TEST_F(GTraceInitializeTest, TakesTheLargestSize) {
  EXPECT_EQ(gtraceInitialize(nullptr, optionsOf(1, 0, 0x40000000).get()), kInvalidParameter);
}

TEST_F(GTraceInitializeTest, LeavesARingOfAnOddSizeToTheRing) {
  EXPECT_EQ(initialize(GTRACE_CIRCULAR, 0x90000), kInvalidRingSize);
  EXPECT_THAT(memory_.bytes(0, kFixedPart), Each('\0'));
  expectUntouched(kFixedPart);
}

TEST_F(GTraceInitializeTest, FormatsHeadAndOptions) {
  const auto options = patternedOptions(GTRACE_FILL_ONCE);
  ASSERT_EQ(gtraceInitialize(memory_.get(), options.get()), ECF_OK);
  EXPECT_EQ(memory_.bytes(0, 16), std::string("\1\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0", 16));
  EXPECT_EQ(memory_.bytes(16, 182'880), bytesOf(*options));
  EXPECT_EQ(memory_.bytes(kRing + 4, 8), std::string("RAMBOCB\0", 8));
  EXPECT_THAT(memory_.bytes(kSlots, kBuffer), Each('\0'));
}

struct RingOfMode {
  uint32_t mode;
  uint8_t circular;
  uint8_t chunked;
  uint32_t indexMask;
};

class GTraceModeTest : public GTraceInitializeTest,
                       public testing::WithParamInterface<RingOfMode> {};

TEST_P(GTraceModeTest, ChoosesTheRing) {
  ASSERT_EQ(initialize(GetParam().mode), ECF_OK);
  EXPECT_EQ(wordAt<uint8_t>(memory_.get(), kRing + 164), GetParam().circular);
  EXPECT_EQ(wordAt<uint8_t>(memory_.get(), kRing + 165), GetParam().chunked);
  EXPECT_EQ(wordAt<uint32_t>(memory_.get(), kRing + 136), GetParam().indexMask);
  EXPECT_EQ(memory_.block().stopCounter, 1u);
  EXPECT_EQ(memory_.block().options.flags, (GetParam().mode & 0x10) != 0 ? 0x800u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Modes, GTraceModeTest,
                         testing::Values(RingOfMode{0x1, 1, 0, 8191}, RingOfMode{0x2, 0, 0, 16383},
                                         RingOfMode{0x4, 1, 1, 8191}, RingOfMode{0x10, 0, 0, 16383},
                                         RingOfMode{0x3, 1, 0, 8191}, RingOfMode{0x7, 1, 1, 8191},
                                         RingOfMode{0x11, 1, 0, 8191},
                                         RingOfMode{0x12, 0, 0, 16383},
                                         RingOfMode{0x17, 1, 1, 8191}));

class GTraceCountingTest : public TraceTest {
 protected:
  void initialize(uint32_t mode = GTRACE_FUNCTION_COUNT, uint32_t flags = 0) {
    ASSERT_EQ(gtraceInitialize(memory_.get(), optionsOf(mode, flags, kOdd).get()), ECF_OK);
  }
  void attach() { ASSERT_EQ(gtraceAttach(memory_.get(), kProcess, nullptr, nullptr), ECF_OK); }

  static constexpr uint32_t kOdd = 0x80010;  // no power of two
};

TEST_F(GTraceCountingTest, HasATableOfAnySizeAndNoRing) {
  initialize();
  EXPECT_EQ(memory_.bytes(0, 16), std::string("\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
  EXPECT_EQ(options().flags, 0x200u);
  EXPECT_THAT(memory_.bytes(kFixedPart, kOdd), Each('\0'));
  EXPECT_THAT(memory_.bytes(kFixedPart + kOdd, kBlock - kFixedPart - kOdd), Each(kStale));
}

TEST_F(GTraceCountingTest, WinsOverEveryOtherMode) {
  initialize(0x1F, 0x6);
  EXPECT_EQ(options().flags, 0xA06u);
  EXPECT_THAT(memory_.bytes(kFixedPart, kOdd), Each('\0'));
}

TEST_F(GTraceCountingTest, OptionsCannotChooseStampsOrStacksLater) {
  initialize(0x18, GTRACE_STAMP | GTRACE_CALL_STACKS);
  EXPECT_EQ(options().flags, 0xE02u);
  attach();
  const auto changed = optionsOf(GTRACE_CIRCULAR, 0xFFFFFFFF);
  EXPECT_EQ(gtraceSetOptions(changed.get()), ECF_OK);
  EXPECT_EQ(changed->flags, 0xFFFFFBFDu);
  EXPECT_EQ(options().flags, 0xFFFFFBFDu);

  changed->flags = 0;
  EXPECT_EQ(gtraceSetOptions(changed.get()), ECF_OK);
  EXPECT_EQ(changed->flags, 0u);
  EXPECT_EQ(options().flags, 0xA00u);
  EXPECT_EQ(options().mode, 0x18u);
}

TEST_F(GTraceCountingTest, ClearEmptiesTheTable) {
  initialize();
  attach();
  std::memset(memory_.at(kFixedPart), kStale, kOdd);
  EXPECT_EQ(gtraceClear(), ECF_OK);
  EXPECT_THAT(memory_.bytes(kFixedPart, kOdd), Each('\0'));
  EXPECT_THAT(memory_.bytes(kFixedPart + kOdd, kBlock - kFixedPart - kOdd), Each(kStale));
}

TEST_F(GTraceCountingTest, HasNothingToDumpChunkByChunk) {
  RamboChunkWalker walker;
  initialize();
  attach();
  EXPECT_EQ(gtraceAutoDumpEnabled(true), kNoRing);
  EXPECT_EQ(gtraceInitializeChunkWalker(&walker), kNoRing);
}

TEST_F(GTraceCountingTest, DumpsItsTableBehindAHeaderWithoutARing) {
  initialize();
  attach();
  const auto header = std::make_unique<GTraceDumpHeader>();
  std::memset(static_cast<void*>(header.get()), kStale, sizeof *header);
  void* data = nullptr;
  uint32_t size = 0;
  EXPECT_EQ(gtraceGetDumpHeaderBuffer(true, header.get(), &data, &size), ECF_OK);
  EXPECT_EQ(data, memory_.at(kFixedPart));
  EXPECT_EQ(size, kOdd);
  EXPECT_EQ(std::string(header->magic, 8), std::string("GTDUMP1\0", 8));
  EXPECT_EQ(bytesOf(header->options), memory_.bytes(16, 182'880));
  EXPECT_THAT(std::string(reinterpret_cast<const char*>(&header->ring), 16), Each(kStale));

  RamboDumpTail tail;
  std::memset(static_cast<void*>(&tail), kStale, sizeof tail);
  EXPECT_EQ(gtraceGetDumpTail(&tail), ECF_OK);
  EXPECT_THAT(std::string(reinterpret_cast<const char*>(&tail), 32), Each(kStale));
  EXPECT_EQ(gtraceGetDumpTail(nullptr), ECF_OK);
}

// ---- Attaching and switching ----

struct Disabled {
  uint32_t reason;
  void* block;

  bool operator==(const Disabled&) const = default;
};
std::vector<Disabled> g_disabled;
void noteDisabled(uint32_t reason, void* block) { g_disabled.push_back({reason, block}); }

class GTraceControlTest : public TraceTest {
 protected:
  GTraceControlTest() { g_disabled.clear(); }

  // Formats and attaches, disabled.
  void attach(uint32_t mode = GTRACE_CIRCULAR) {
    ASSERT_EQ(gtraceInitialize(memory_.get(), optionsOf(mode).get()), ECF_OK);
    ASSERT_EQ(gtraceAttach(memory_.get(), kProcess, nullptr, noteDisabled), ECF_OK);
  }
};

TEST_F(GTraceControlTest, AttachMakesTheBlockCurrentAndNeverEnables) {
  EXPECT_EQ(g_pGTCB, nullptr);
  attach();
  EXPECT_EQ(g_pGTCB, memory_.get());
  EXPECT_FALSE(isEnabled());
}

TEST_F(GTraceControlTest, AttachRefusesNoBlockAndKeepsTheCurrentOne) {
  EXPECT_EQ(gtraceAttach(nullptr, 1, nullptr, nullptr), kInvalidParameter);
  attach();
  EXPECT_EQ(gtraceAttach(nullptr, 1, nullptr, nullptr), kInvalidParameter);
  EXPECT_EQ(g_pGTCB, memory_.get());
  EXPECT_EQ(gtraceDisable(), ECF_OK);
  EXPECT_THAT(g_disabled, ElementsAre(Disabled{0, memory_.get()}));
}

TEST_F(GTraceControlTest, AttachTakesABlockThatIsNotFormatted) {
  block().initialized = 0;
  EXPECT_EQ(gtraceAttach(memory_.get(), 1, nullptr, nullptr), ECF_OK);
  EXPECT_EQ(g_pGTCB, memory_.get());
}

TEST_F(GTraceControlTest, ASecondBlockTakesThePlaceOfTheFirst) {
  BlockMemory second;
  start();
  ASSERT_EQ(gtraceInitialize(second.get(), optionsOf(GTRACE_CIRCULAR).get()), ECF_OK);
  ASSERT_EQ(gtraceAttach(second.get(), kProcess, nullptr, noteDisabled), ECF_OK);
  EXPECT_EQ(g_pGTCB, second.get());
  EXPECT_EQ(gtraceDisable(), ECF_OK);
  EXPECT_THAT(g_disabled, ElementsAre(Disabled{0, second.get()}));
  EXPECT_TRUE(isEnabled());  // nobody asked the first
}

TEST_F(GTraceControlTest, DetachForgetsBlockAndCallbacksAndTouchesNothing) {
  start(*optionsOf(GTRACE_CIRCULAR), nullptr, noteDisabled);
  gtraceEntry(1, 2);
  const std::string before = memory_.bytes(0, kBlock);
  EXPECT_EQ(gtraceDetach(), ECF_OK);
  EXPECT_EQ(g_pGTCB, nullptr);
  EXPECT_TRUE(memory_.bytes(0, kBlock) == before);
  EXPECT_EQ(gtraceDetach(), ECF_OK);

  g_pGTCB = &block();
  EXPECT_EQ(gtraceDisable(), ECF_OK);
  EXPECT_THAT(g_disabled, IsEmpty());
}

TEST_F(GTraceControlTest, EnableAndDisableWriteTheEnableWord) {
  attach();
  EXPECT_EQ(gtraceEnable(), ECF_OK);
  EXPECT_EQ(block().enabled, 1u);
  block().enabled = 7;
  EXPECT_EQ(gtraceEnable(), ECF_OK);
  EXPECT_EQ(block().enabled, 1u);
  EXPECT_THAT(g_disabled, IsEmpty());

  EXPECT_EQ(gtraceDisable(), ECF_OK);
  EXPECT_EQ(block().enabled, 0u);
  EXPECT_EQ(gtraceDisable(), ECF_OK);
  EXPECT_EQ(block().enabled, 0u);
  EXPECT_THAT(g_disabled, ElementsAre(Disabled{0, memory_.get()}, Disabled{0, memory_.get()}));
}

TEST_F(GTraceControlTest, ADisableCallbackFindsTracingOff) {
  start(*optionsOf(GTRACE_CIRCULAR), nullptr, [](uint32_t, void* block) {
    noteDisabled(static_cast<const GTraceControlBlock*>(block)->enabled, block);
  });
  EXPECT_EQ(gtraceDisable(), ECF_OK);
  EXPECT_THAT(g_disabled, ElementsAre(Disabled{0, memory_.get()}));
}

// Every operation on the current block, with arguments that it takes.
std::vector<OSSErr> codesOfAll() {
  auto options = optionsOf(GTRACE_CIRCULAR);
  auto header = std::make_unique<GTraceDumpHeader>();
  GTraceOptions* pointer = nullptr;
  RamboDumpTail tail;
  RamboChunkWalker walker;
  void* data = nullptr;
  uint32_t size = 0;
  return {gtraceEnable(),
          gtraceDisable(),
          gtraceGetOptions(options.get()),
          gtraceGetOptionsPtr(&pointer),
          gtraceSetOptions(options.get()),
          gtraceClear(),
          gtraceAutoDumpEnabled(true),
          gtraceGetDumpHeaderBuffer(true, header.get(), &data, &size),
          gtraceGetDumpTail(&tail),
          gtraceInitializeChunkWalker(&walker)};
}

// The same with null for each pointer; the last three for the header's arguments one by one.
std::vector<OSSErr> codesOfNulls() {
  auto header = std::make_unique<GTraceDumpHeader>();
  void* data = nullptr;
  uint32_t size = 0;
  return {gtraceGetOptions(nullptr),
          gtraceGetOptionsPtr(nullptr),
          gtraceSetOptions(nullptr),
          gtraceGetDumpTail(nullptr),
          gtraceInitializeChunkWalker(nullptr),
          gtraceGetDumpHeaderBuffer(true, nullptr, &data, &size),
          gtraceGetDumpHeaderBuffer(true, header.get(), nullptr, &size),
          gtraceGetDumpHeaderBuffer(true, header.get(), &data, nullptr)};
}

TEST_F(GTraceControlTest, NothingWorksWithoutABlock) {
  EXPECT_THAT(codesOfAll(), Each(kNotAttached));
  EXPECT_THAT(codesOfNulls(), Each(kNotAttached));
  EXPECT_THAT(g_disabled, IsEmpty());
}

TEST_F(GTraceControlTest, NothingWorksOnABlockThatIsNotFormatted) {
  attach();
  block().initialized = 0;
  const std::string before = memory_.bytes(0, kBlock);
  EXPECT_THAT(codesOfAll(), Each(kNotInitialized));
  EXPECT_THAT(codesOfNulls(), Each(kNotInitialized));
  EXPECT_THAT(g_disabled, IsEmpty());
  EXPECT_TRUE(memory_.bytes(0, kBlock) == before);
}

TEST_F(GTraceControlTest, PointersAreNeeded) {
  attach(GTRACE_CHUNKED);
  EXPECT_THAT(codesOfNulls(), Each(kInvalidParameter));
}

// ---- Options ----

TEST_F(GTraceControlTest, OptionsAreCopiedOutWhole) {
  const auto options = patternedOptions(GTRACE_CIRCULAR);
  ASSERT_EQ(gtraceInitialize(memory_.get(), options.get()), ECF_OK);
  ASSERT_EQ(gtraceAttach(memory_.get(), 1, nullptr, nullptr), ECF_OK);
  const auto copy = optionsOf(0);
  EXPECT_EQ(gtraceGetOptions(copy.get()), ECF_OK);
  EXPECT_TRUE(bytesOf(*copy) == bytesOf(*options));

  GTraceOptions* pointer = nullptr;
  EXPECT_EQ(gtraceGetOptionsPtr(&pointer), ECF_OK);
  EXPECT_EQ(static_cast<void*>(pointer), memory_.at(16));
}

TEST_F(GTraceControlTest, SetOptionsKeepsSizeModeAndTheBytesBehindThem) {
  const auto first = patternedOptions(GTRACE_FILL_ONCE);
  ASSERT_EQ(gtraceInitialize(memory_.get(), first.get()), ECF_OK);
  ASSERT_EQ(gtraceAttach(memory_.get(), 1, nullptr, nullptr), ECF_OK);
  const std::string ring = memory_.bytes(kRing, kRingBytes);

  const auto second = optionsOf(GTRACE_PERTURB);
  std::memset(static_cast<void*>(second.get()), 0x3C, sizeof *second);
  second->flags = 0xFFFFFFFF;
  const std::string given = bytesOf(*second);
  EXPECT_EQ(gtraceSetOptions(second.get()), ECF_OK);
  EXPECT_TRUE(bytesOf(*second) == given);
  EXPECT_EQ(memory_.bytes(0, 16), std::string("\1\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0", 16));
  EXPECT_TRUE(memory_.bytes(16, 182'880) == bytesOf(*first).substr(0, 16) + given.substr(16));
  EXPECT_TRUE(memory_.bytes(kRing, kRingBytes) == ring);
}

TEST_F(GTraceControlTest, SetOptionsKeepsTheFlagOfPerturbation) {
  attach(GTRACE_PERTURB);
  const auto options = optionsOf(GTRACE_CIRCULAR, GTRACE_CALLBACK);
  EXPECT_EQ(gtraceSetOptions(options.get()), ECF_OK);
  EXPECT_EQ(options->flags, 0x100u);
  EXPECT_EQ(this->options().flags, 0x900u);
}

TEST_F(GTraceControlTest, TheBlocksOwnOptionsCanBeSet) {
  attach();
  GTraceOptions* own = nullptr;
  ASSERT_EQ(gtraceGetOptionsPtr(&own), ECF_OK);
  own->stopCount = 17;
  const std::string before = memory_.bytes(0, kBlock);
  EXPECT_EQ(gtraceSetOptions(own), ECF_OK);
  EXPECT_TRUE(memory_.bytes(0, kBlock) == before);
}

// ---- The ring beneath ----

TEST_F(GTraceControlTest, ClearStartsASequenceAndKeepsTheBytes) {
  start();
  gtraceEntry(1, 2);
  const Bytes before = slots(0, 8192);
  EXPECT_EQ(gtraceClear(), ECF_OK);
  EXPECT_EQ(reserved(), 8193u);
  EXPECT_EQ(wordAt<uint32_t>(memory_.get(), kRing + 132), 8193u);
  EXPECT_TRUE(slots(0, 8192) == before);
}

TEST_F(GTraceControlTest, AChunkedBufferIsNotCleared) {
  attach(GTRACE_CHUNKED);
  EXPECT_EQ(gtraceClear(), OSSErr{0x90000005});
}

TEST_F(GTraceControlTest, OnlyAChunkedBufferIsDumpedByChunks) {
  RamboChunkWalker walker = {};
  attach(GTRACE_CIRCULAR);
  EXPECT_EQ(gtraceAutoDumpEnabled(true), ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED);
  EXPECT_EQ(gtraceInitializeChunkWalker(&walker), ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED);

  attach(GTRACE_CHUNKED);
  for (const bool isOn : {false, true}) {
    EXPECT_EQ(gtraceAutoDumpEnabled(isOn), ECF_OK);
    EXPECT_EQ(wordAt<uint8_t>(memory_.get(), kRing + 166), isOn ? 1 : 0);
  }
  EXPECT_EQ(gtraceInitializeChunkWalker(&walker), ECF_OK);
  EXPECT_EQ(walker.handle, memory_.at(kRing));
  EXPECT_EQ(static_cast<void*>(walker.chunk), memory_.at(kRing + 256));
  EXPECT_EQ(walker.count, 0u);
  EXPECT_EQ(walker.slots, memory_.at(kSlots));
}

std::string headOf(bool instantaneous, bool circular) {
  std::string head("@HEAD\r\n\0\0\0\x08\0", 12);
  head += {instantaneous ? '\1' : '\2', '\0', circular ? '\1' : '\0', '\0'};
  return head;
}

TEST_F(GTraceControlTest, ADumpHeaderIsMagicOptionsTicksAndRing) {
  LARGE_INTEGER frequency;
  ASSERT_TRUE(::QueryPerformanceFrequency(&frequency));
  for (const uint32_t mode : {GTRACE_CIRCULAR, GTRACE_FILL_ONCE, GTRACE_CHUNKED})
    for (const bool instantaneous : {false, true}) {
      const auto options = patternedOptions(mode);
      ASSERT_EQ(gtraceInitialize(memory_.get(), options.get()), ECF_OK);
      ASSERT_EQ(gtraceAttach(memory_.get(), 1, nullptr, nullptr), ECF_OK);
      std::string header(182'912 + 1, kStale);
      void* data = nullptr;
      uint32_t size = 0;
      EXPECT_EQ(gtraceGetDumpHeaderBuffer(instantaneous, header.data(), &data, &size), ECF_OK);
      EXPECT_EQ(data, memory_.at(kSlots));
      EXPECT_EQ(size, kBuffer);
      EXPECT_EQ(header.substr(0, 8), std::string("GTDUMP1\0", 8));
      EXPECT_TRUE(header.substr(8, 182'880) == bytesOf(*options));
      EXPECT_EQ(wordAt<int64_t>(header.data(), 182'888), frequency.QuadPart);
      EXPECT_EQ(header.substr(182'896), headOf(instantaneous, mode != GTRACE_FILL_ONCE) + kStale);
    }
}

TEST_F(GTraceControlTest, ADumpTailTellsWhereTheRingStands) {
  start();
  EXPECT_EQ(gtraceClear(), ECF_OK);
  gtraceErrorTrans(1, 2, 3, 4, 5);
  std::string tail(32, kStale);
  EXPECT_EQ(gtraceGetDumpTail(reinterpret_cast<RamboDumpTail*>(tail.data())), ECF_OK);
  EXPECT_EQ(tail, std::string("@TAIL\r\n\0\x02\x20\0\0\2\0\0\0\0\x20\0\0\0\0\0\0", 24) +
                      std::string(8, kStale));
}

}  // namespace
