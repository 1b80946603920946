// The check of what is no block: addresses without memory, memory of others, blocks at a border.
#include "memory/ossmemoryfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// Three pages, of which only the middle one can be touched.
class LonelyPage {
 public:
  LonelyPage()
      : start_(static_cast<char*>(
            ::VirtualAlloc(nullptr, 3 * kBytes, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS))) {
    DWORD previous;
    EXPECT_TRUE(::VirtualProtect(begin(), kBytes, PAGE_READWRITE, &previous));
  }
  ~LonelyPage() { ::VirtualFree(start_, 0, MEM_RELEASE); }
  LonelyPage(const LonelyPage&) = delete;
  LonelyPage& operator=(const LonelyPage&) = delete;

  static constexpr size_t kBytes = 4096;
  char* begin() const { return start_ + kBytes; }
  char* end() const { return begin() + kBytes; }

 private:
  char* start_;
};

class NoBlock : public MemoryTest {
 protected:
  // Checks and releases what is no block: it is found, left as it is and not given to the heap.
  static void expectFinding(void* address, const Matcher<std::vector<std::string>>& expected) {
    SCOPED_TRACE(address);
    CallCounter freed("free");
    check(address);
    EXPECT_THAT(findings(), expected);
    release(address);
    EXPECT_THAT(findings(), expected);
    EXPECT_EQ(freed.calls(), 0);
  }

  // Calls test() in each mode.
  template <class Test>
  static void inEachMode(Test test) {
    for (const MemoryMode& mode : kModes) {
      SCOPED_TRACE(PrintToString(mode));
      choose(mode, OSS_MEM_FILL_FREED);
      test();
    }
  }
};

TEST_F(NoBlock, NullIsReportedByTheCheck) {
  EXPECT_EQ(ossMemAllocCheck(nullptr, kFile, kLine, 0), ECF_OK);
  EXPECT_EQ(ossMemAllocCheck(nullptr, kFile, kLine, 1), ECF_OK);
  void* nothing = nullptr;
  EXPECT_EQ(ossMemAllocCheck(&nothing, kFile, kLine, 0), ECF_OK);
  EXPECT_EQ(ossMemAllocCheck(&nothing, kFile, kLine, 1), ECF_OK);
  EXPECT_EQ(nothing, nullptr);
  EXPECT_THAT(findings(), ElementsAre(kNullFound, kNullFound, kNullFound, kNullFound));
}

TEST_F(NoBlock, AnAddressWithoutMemoryHasTheMark0) {
  inEachMode([] {
    for (const uintptr_t address :
         {uintptr_t{1}, uintptr_t{8}, uintptr_t{16}, uintptr_t{24}, uintptr_t{4095},
          uintptr_t{0x7FFFFFFFFFF0}, uintptr_t{0x8000000000000000}, ~uintptr_t{0}, ~uintptr_t{15}})
      expectFinding(reinterpret_cast<void*>(address), ElementsAre(markIs(0)));
  });
}

TEST_F(NoBlock, MemoryThatIsGoneHasTheMark0) {
  void* const gone = ::VirtualAlloc(nullptr, 65'536, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  ::VirtualFree(gone, 0, MEM_RELEASE);
  inEachMode([gone] { expectFinding(byteAt(gone, 4096), ElementsAre(markIs(0))); });
}

// Up to 23 bytes behind the border the tag is not whole.
TEST_F(NoBlock, ATagThatReachesOverABorderIsNotRead) {
  LonelyPage page;
  inEachMode([&page] {
    for (int64_t distance = 0; distance < 24; ++distance)
      expectFinding(page.begin() + distance, ElementsAre(markIs(0)));
    expectFinding(page.begin() + 24, ElementsAre(markIs(0), modeIs(0)));
    expectFinding(page.end(), ElementsAre(markIs(0), modeIs(0)));
    expectFinding(page.end() + 1, ElementsAre(markIs(0)));
  });
}

TEST_F(NoBlock, TheStackAndTheProgramAreNone) {
  alignas(16) char local[128];
  std::memset(local, 0x11, sizeof local);
  static const char constant[] = "a text that nobody can write to, longer than any tag of a block";
  inEachMode([&local] {
    expectFinding(local + 64, ElementsAre(markIs(0x11111111), modeIs(0x11111111)));
    expectFinding(const_cast<char*>(constant) + 40, SizeIs(2));
    expectFinding(reinterpret_cast<void*>(&ossMemFree), SizeIs(2));
  });
}

TEST_F(NoBlock, TheMiddleOfABlockIsNone) {
  inEachMode([] {
    void* const block = allocate(256, OSS_MEM_ZERO);
    expectFinding(byteAt(block, 64), ElementsAre(markIs(0), modeIs(0)));
    expectFinding(byteAt(block, 1), SizeIs(2));
    release(block);
  });
}

// ---- Blocks at a border -------------------------------------------------------------------------

// Copies of real blocks, which no heap knows.
class AtABorder : public NoBlock {
 protected:
  // Copies a new block of this size to a place.
  static void* copyOf(const MemoryMode& mode, uint64_t size, char* to) {
    choose(mode, OSS_MEM_FILL_NEW | OSS_MEM_FILL_FREED);
    void* const block = allocate(size);
    std::memcpy(to, byteAt(block, -static_cast<int64_t>(mode.before())), mode.total(size));
    release(block);
    setWordAt(to + mode.before(), -16, kMarkAllocated);
    return to + mode.before();
  }

  LonelyPage page_;
};

// What is behind the border is not read, neither in front of the block nor behind it.
TEST_F(AtABorder, ABlockThatFillsThePageIsChecked) {
  for (const MemoryMode& mode : {kLight, kFull, MemoryMode{OSS_MEM_DEBUG_FULL, 0, 0}}) {
    SCOPED_TRACE(PrintToString(mode));
    const uint64_t size = LonelyPage::kBytes - mode.total(0);
    check(copyOf(mode, size, page_.begin()));
    EXPECT_THAT(findings(), IsEmpty());
  }
}

TEST_F(AtABorder, ABlockAtEitherEndOfThePageIsChecked) {
  for (const MemoryMode& mode : {kLight, kFull, MemoryMode{OSS_MEM_DEBUG_FULL, 0, 0}})
    for (uint64_t size = 1; size <= 33; ++size) {
      SCOPED_TRACE(Message() << PrintToString(mode) << ", size " << size);
      check(copyOf(mode, size, page_.begin()));
      check(copyOf(mode, size, page_.end() - mode.total(size)));
      EXPECT_THAT(findings(), IsEmpty());
    }
}

// By each cut of a block's end, and of its front.
TEST_F(AtABorder, ABlockThatReachesOverTheBorderIsReported) {
  for (const MemoryMode& mode : {kLight, kFull}) {
    const char* const finding = mode.eyeCatcher == OSS_MEM_DEBUG_FULL ? kFullSize : kLightSize;
    for (uint64_t cut = 8; cut <= 32; cut += 8) {
      SCOPED_TRACE(Message() << PrintToString(mode) << ", cut by " << cut);
      choose(mode, OSS_MEM_FILL_FREED);
      void* const block = allocate(16);
      char* const copy = page_.end() - mode.total(16) + cut;
      std::memcpy(copy, byteAt(block, -static_cast<int64_t>(mode.before())), mode.total(16) - cut);
      check(copy + mode.before());
      EXPECT_THAT(findings(), ElementsAre(finding));
      release(block);
    }
  }
}

TEST_F(AtABorder, ARecordThatReachesOverTheBorderIsNoneOfAnyMode) {
  for (const MemoryMode& mode : {kLight, kFull}) {
    const auto firstReadable = mode.eyeCatcher == OSS_MEM_DEBUG_FULL ? 80 : 32;
    choose(mode, OSS_MEM_FILL_FREED);
    void* const block = allocate(16);
    for (int64_t distance = 24; distance < firstReadable; distance += 8) {
      SCOPED_TRACE(Message() << PrintToString(mode) << ", record from " << -distance);
      char* const user = page_.begin() + distance;
      std::memcpy(page_.begin(), byteAt(block, -distance), static_cast<size_t>(distance) + 32);
      expectFinding(user, ElementsAre(modeIs(mode.eyeCatcher)));
    }
    release(block);
  }
}

// Two pages of pads in front of the block and two behind it, one of which is missing.
TEST_F(AtABorder, PadsOverAPageThatIsMissingAreReported) {
  constexpr uint32_t kPads = 1024;
  constexpr size_t kPages = 6;
  const MemoryMode mode = {OSS_MEM_DEBUG_FULL, kPads, kPads};
  const auto memory = static_cast<char*>(::VirtualAlloc(nullptr, kPages * LonelyPage::kBytes,
                                                        MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  void* const copy = copyOf(mode, 1, memory + 512);
  const auto checkWithout = [&](size_t page) {
    DWORD protection;
    EXPECT_TRUE(::VirtualProtect(memory + page * LonelyPage::kBytes, LonelyPage::kBytes,
                                 PAGE_NOACCESS, &protection));
    check(copy);
    EXPECT_TRUE(::VirtualProtect(memory + page * LonelyPage::kBytes, LonelyPage::kBytes,
                                 PAGE_READWRITE, &protection));
    return findings();
  };
  check(copy);
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(checkWithout(0), ElementsAre(kFullFront));
  EXPECT_THAT(checkWithout(1), ElementsAre(kFullFront));
  EXPECT_THAT(checkWithout(3), ElementsAre(kFullSize));
  EXPECT_THAT(checkWithout(4), ElementsAre(kFullSize));
  ::VirtualFree(memory, 0, MEM_RELEASE);
}

// The list of live blocks knows who is in it.
TEST_F(AtABorder, ACopyOfABlockOfFullIsNotReleased) {
  choose(kFull);
  void* const other = allocate(1);
  void* const copy = copyOf(kFull, 16, page_.begin());
  setWordAt(copy, -20, OSS_MEM_DEBUG_FULL);
  std::memset(copy, 0x55, 16);
  CallCounter freed("free");
  release(copy);
  EXPECT_THAT(findings(), ElementsAre(kFullFront));
  EXPECT_EQ(freed.calls(), 0);
  EXPECT_EQ(*byteAt(copy, 0), 0x55);
  EXPECT_THAT(liveBlocks(), ElementsAre(other));
  release(other);
}

}  // namespace
