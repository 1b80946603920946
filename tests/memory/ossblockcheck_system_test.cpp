// The check of a block: every byte around the data and of the records damaged in turn, marks and
// modes that are none.
#include <array>
#include <functional>

#include "memory/ossmemoryfixture.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- Damage to what surrounds the data ----------------------------------------------------------

// A byte of a block, and what is found when it is damaged.
struct Place {
  int64_t distance;
  std::function<std::string(void* block)> finding;
};

class Places {
 public:
  void add(int64_t distance, uint64_t bytes,
           const std::function<std::string(void* block)>& finding) {
    for (uint64_t i = 0; i < bytes; ++i)
      all_.push_back({distance + static_cast<int64_t>(i), finding});
  }
  void add(int64_t distance, uint64_t bytes, const char* text) {
    add(distance, bytes, [text](void*) { return text; });
  }

  auto begin() const { return all_.begin(); }
  auto end() const { return all_.end(); }

 private:
  std::vector<Place> all_;
};

// Every byte of guards, slack, pads and trailer, and the size in the record of LIGHT.
Places placesOf(const MemoryMode& mode, uint64_t size) {
  const auto dataEnd = static_cast<int64_t>(size);
  const auto slackEnd = static_cast<int64_t>(roundedTo8(size));
  const uint64_t slack = roundedTo8(size) - size;
  Places places;
  if (mode.eyeCatcher == OSS_MEM_DEBUG_LIGHT) {
    places.add(-32, 8, kLightFront);
    places.add(-24, 4, kLightSize);
    places.add(dataEnd, slack, kLightBack);
    places.add(slackEnd, 8, kLightBack);
    places.add(slackEnd + 8, 4, kLightSize);
    places.add(slackEnd + 12, 4, kLightBack);
  }
  if (mode.eyeCatcher == OSS_MEM_DEBUG_FULL) {
    places.add(-static_cast<int64_t>(mode.before()), 8 * mode.frontPads, kFullFront);
    places.add(dataEnd, slack, kFullSlack);
    for (int64_t pad = slackEnd; pad < slackEnd + 8 * int64_t{mode.backPads}; pad += 8)
      places.add(pad, 8, [pad](void* block) { return backPadIs(wordAt<uint64_t>(block, pad)); });
    const int64_t trailer = slackEnd + 8 * int64_t{mode.backPads};
    places.add(trailer, 8, kFullSize);
    places.add(trailer + 8, 4,
               [trailer](void* block) { return backModeIs(wordAt<uint32_t>(block, trailer + 8)); });
  }
  return places;
}

// Damages a byte for the length of a scope.
class Damage {
 public:
  Damage(void* block, int64_t distance, uint8_t changedBits)
      : byte_(byteAt(block, distance)), whole_(*byte_) {
    *byte_ ^= changedBits;
  }
  ~Damage() { *byte_ = whole_; }
  Damage(const Damage&) = delete;
  Damage& operator=(const Damage&) = delete;

 private:
  uint8_t* byte_;
  uint8_t whole_;
};

class DamagedBlock : public MemoryTest, public WithParamInterface<MemoryMode> {
 protected:
  // Calls test(size) for many sizes.
  template <class Test>
  static void forEachSize(Test test) {
    for (uint64_t size = 1; size <= 33; ++size) test(size);
    test(4096);
  }
};

INSTANTIATE_TEST_SUITE_P(Modes, DamagedBlock,
                         Values(kOff, kLight, kFull, MemoryMode{OSS_MEM_DEBUG_FULL, 0, 0},
                                MemoryMode{OSS_MEM_DEBUG_FULL, 1, 4}));

TEST_P(DamagedBlock, IsFoundByTheCheckOnceForEachDamagedByte) {
  choose(GetParam(), OSS_MEM_FILL_NEW);
  forEachSize([](uint64_t size) {
    void* const block = allocate(size);
    const Places places = placesOf(GetParam(), size);
    for (const Place& place : places) {
      SCOPED_TRACE(Message() << "size " << size << ", byte " << place.distance);
      const Damage damage(block, place.distance, 0x5A);
      check(block);
      EXPECT_THAT(findings(), ElementsAre(place.finding(block)));
    }
    check(block);
    EXPECT_THAT(findings(), IsEmpty());
    release(block);
  });
}

TEST_P(DamagedBlock, IsFoundByTheReleaseAndReleased) {
  choose(GetParam(), OSS_MEM_FILL_NEW | OSS_MEM_FILL_FREED);
  CallCounter freed("free");
  int released = 0;
  forEachSize([&](uint64_t size) {
    const Places places = placesOf(GetParam(), size);
    for (const Place& place : places) {
      SCOPED_TRACE(Message() << "size " << size << ", byte " << place.distance);
      void* const block = allocate(size);
      *byteAt(block, place.distance) ^= 0x5A;
      const std::string finding = place.finding(block);
      release(block);
      EXPECT_THAT(findings(), ElementsAre(finding));
      ++released;
    }
  });
  EXPECT_EQ(freed.calls(), released);
}

// The check goes on behind a finding, and reports from front to back.
TEST_F(MemoryTest, EachDamageOfABlockOfLightIsReported) {
  choose(kLight);
  void* const block = allocate(5);
  *byteAt(block, -32) = 0;
  *byteAt(block, 6) = 0;
  *byteAt(block, 7) = 0;
  *byteAt(block, 8) = 0;
  *byteAt(block, 16) = 4;
  *byteAt(block, 20) = 0;
  check(block);
  EXPECT_THAT(findings(), ElementsAre(kLightFront, kLightBack, kLightBack, kLightSize));
  release(block);
  EXPECT_THAT(findings(), SizeIs(4));
}

TEST_F(MemoryTest, EachDamagedPadAndSlackByteOfABlockOfFullIsReported) {
  choose(kFull);
  void* const block = allocate(5);
  setWordAt<uint64_t>(block, -96, 1);
  setWordAt<uint64_t>(block, -88, 2);
  for (int64_t slack = 5; slack < 8; ++slack) *byteAt(block, slack) = 0;
  setWordAt<uint64_t>(block, 8, 0xABCDEF0123456789);
  setWordAt<uint64_t>(block, 16, 0);
  setWordAt<uint64_t>(block, 24, 6);
  setWordAt<uint32_t>(block, 32, 0xABCDEF);
  check(block);
  const auto all = ElementsAre(
      kFullFront, kFullFront, kFullSlack, kFullSlack, kFullSlack,
      "Back pad corruption (0xABCDEF0123456789) found at:", "Back pad corruption (0x0) found at:",
      "Back pad mode (0xabcdef)found at:", kFullSize);
  EXPECT_THAT(findings(), all);
  release(block);
  EXPECT_THAT(findings(), all);
  EXPECT_THAT(liveBlocks(), IsEmpty());
}

// The most common mistake: one byte too much.
TEST_F(MemoryTest, OneBytePastARequestOf5IsFoundInTheSlack) {
  choose(kLight);
  void* const block = allocate(5);
  *byteAt(block, 5) = 0;
  release(block);
  EXPECT_THAT(findings(), ElementsAre(kLightBack));
}

TEST_F(MemoryTest, TheDefaultModeFindsNothingBehindTheData) {
  choose(kOff);
  void* const block = allocate(5);
  *byteAt(block, 5) = 0;
  *byteAt(block, -32) = 1;
  *byteAt(block, -24) = 1;
  check(block);
  release(block);
}

// ---- Damage to what a block tells about itself --------------------------------------------------

// Whatever is changed, nothing faults, nothing but the block is given to the heap, nothing beyond
// it is written to, and the call completes. What is found depends on the byte.
TEST_P(DamagedBlock, LeadsNobodyAstrayByAnyByteOfItsRecords) {
  choose(GetParam(), OSS_MEM_FILL_NEW | OSS_MEM_FILL_FREED);
  const bool isFull = GetParam().eyeCatcher == OSS_MEM_DEBUG_FULL;
  const auto before = static_cast<int64_t>(GetParam().before());
  const std::string data = "0123456789";
  KeptBlocks kept;
  for (const uint64_t size : {5u, 64u})
    for (int64_t distance = isFull ? -80 : -32; distance < 0; ++distance)
      for (const uint8_t bits : std::to_array<uint8_t>({0x01, 0x02, 0x40, 0x80, 0xFF})) {
        SCOPED_TRACE(Message() << "size " << size << ", byte " << distance << ", bits " << +bits);
        void* const block = allocate(size);
        void* const neighbour = allocate(data.size());
        std::memcpy(neighbour, data.data(), data.size());
        {
          const Damage damage(block, distance, bits);
          check(block);
          release(block);
          findings();
        }
        // What was left alone is whole again.
        if (markOf(block) == kMarkAllocated) release(block);
        ASSERT_THAT(kept.takeBlocks(), ElementsAre(byteAt(block, -before)));
        EXPECT_EQ(std::string(static_cast<const char*>(neighbour), data.size()), data);
        release(neighbour);
        ASSERT_THAT(kept.takeBlocks(), SizeIs(1));
        ASSERT_THAT(findings(), IsEmpty());
      }
}

// The sizes of a record that reach far beyond the block.
TEST_F(MemoryTest, ASizeThatReachesBeyondTheBlockIsReportedAndNotWrittenTo) {
  for (const MemoryMode& mode : {kLight, kFull}) {
    choose(mode, OSS_MEM_FILL_FREED);
    const bool isFull = mode.eyeCatcher == OSS_MEM_DEBUG_FULL;
    for (const uint64_t size :
         {uint64_t{100'000'000}, uint64_t{0x7FFFFFFF}, uint64_t{0xFFFFFFC5}, uint64_t{0xFFFFFFFF},
          uint64_t{0x100000005}, uint64_t{0x7FFFFFFFFFFFFFFF}, ~uint64_t{0}}) {
      SCOPED_TRACE(Message() << "mode 0x" << std::hex << mode.eyeCatcher << ", size 0x" << size);
      if (!isFull && size > 0xFFFFFFFF) continue;
      void* const block = allocate(5);
      if (isFull)
        setWordAt<uint64_t>(block, -40, size);
      else
        setWordAt<uint32_t>(block, -12, static_cast<uint32_t>(size));
      check(block);
      EXPECT_THAT(findings(), ElementsAre(isFull ? kFullSize : kLightSize));
      release(block);
      EXPECT_THAT(findings(), ElementsAre(isFull ? kFullSize : kLightSize));
    }
  }
}

// The block does not start where its count says: it is left alone.
TEST_F(MemoryTest, ADamagedCountOfFrontPadsIsReportedOnce) {
  choose(kFull);
  CallCounter freed("free");
  void* const block = allocate(5);
  for (const uint32_t count : {0u, 1u, 3u, 258u, 65'538u, 0x20000002u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(Message() << count << " pads");
    setWordAt<uint32_t>(block, -28, count);
    check(block);
    EXPECT_THAT(findings(), ElementsAre(kFullFront));
    release(block);
    EXPECT_THAT(findings(), ElementsAre(kFullFront));
  }
  EXPECT_EQ(freed.calls(), 0);
  setWordAt<uint32_t>(block, -28, 2);
  release(block);
}

// Nor does it end there; but it can be given back.
TEST_F(MemoryTest, ACountOfBackPadsThatNoBlockCanHaveIsReportedOnce) {
  // No test chooses more pads.
  constexpr uint32_t kMost = 1024;
  choose({OSS_MEM_DEBUG_FULL, 2, kMost});
  choose(kFull);
  CallCounter freed("free");
  for (const uint32_t count : {kMost + 1, 65'538u, 0x20000002u, 0x80000002u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(Message() << count << " pads");
    void* const block = allocate(5);
    setWordAt<uint32_t>(block, -24, count);
    check(block);
    EXPECT_THAT(findings(), ElementsAre(kFullSize));
    release(block);
    EXPECT_THAT(findings(), ElementsAre(kFullSize));
  }
  EXPECT_EQ(freed.calls(), 5);
}

TEST_F(MemoryTest, ASmallerCountOfBackPadsFindsNoTrailer) {
  choose(kFull);
  void* const block = allocate(5);
  setWordAt<uint32_t>(block, -24, 0);
  check(block);
  EXPECT_THAT(findings(), ElementsAre(backModeIs(0x600DBEEF), kFullSize));
  release(block);
  EXPECT_THAT(findings(), SizeIs(2));
}

// Taking it out would break the list, or write to a stranger's memory.
TEST_F(MemoryTest, ABlockWhoseNeighboursDoNotKnowItIsReportedAndStaysInTheList) {
  constexpr int64_t kNext = -80;
  constexpr int64_t kPrevious = -72;
  choose(kFull);
  void* const older = allocate(1);
  void* const block = allocate(2);
  void* const newer = allocate(3);
  CallCounter freed("free");
  const auto expectRefusal = [block](int64_t link, void* damaged) {
    SCOPED_TRACE(damaged);
    auto* const whole = wordAt<void*>(block, link);
    setWordAt(block, link, damaged);
    release(block);
    EXPECT_THAT(findings(), ElementsAre(kFullFront));
    EXPECT_EQ(markOf(block), kMarkAllocated);
    setWordAt(block, link, whole);
  };
  for (void* const damaged : {byteAt(nullptr, 8), byteAt(nullptr, -4096), byteAt(older, -79),
                              byteAt(older, -72), byteAt(block, -80), byteAt(newer, -80)})
    expectRefusal(kNext, damaged);
  for (void* const damaged : {byteAt(nullptr, 0), byteAt(nullptr, 8), byteAt(nullptr, -4096),
                              byteAt(newer, -79), byteAt(block, -80), byteAt(older, -80)})
    expectRefusal(kPrevious, damaged);
  EXPECT_EQ(freed.calls(), 0);
  EXPECT_THAT(liveBlocks(), ElementsAre(newer, block, older));
  for (void* const each : {older, newer, block}) release(each);
}

// ---- Marks --------------------------------------------------------------------------------------

TEST_F(MemoryTest, AnInvalidMarkIsShownAndTheBlockLeftAlone) {
  for (const MemoryMode& mode : kModes) {
    choose(mode);
    void* const block = allocate(5);
    CallCounter freed("free");
    for (const uint32_t mark : {0u, 1u, 0xA7C055F0u, 0xABCDEF01u, ~0u}) {
      setWordAt(block, -16, mark);
      check(block);
      EXPECT_THAT(findings(), ElementsAre(markIs(mark)));
      release(block);
      EXPECT_THAT(findings(), ElementsAre(markIs(mark)));
      EXPECT_EQ(markOf(block), mark);
    }
    EXPECT_EQ(freed.calls(), 0);
    setWordAt(block, -16, kMarkAllocated);
    release(block);
  }
}

TEST_F(MemoryTest, TheLowFourBitsOfAMarkDoNotCount) {
  choose(kOff);
  void* const block = allocate(5);
  for (uint32_t low = 0; low < 16; ++low) {
    setWordAt(block, -16, kMarkAllocated + low);
    check(block);
  }
  release(block);
}

// A check alone does not know of freeing.
TEST_F(MemoryTest, AFreedMarkIsAnInvalidOneForTheCheck) {
  choose(kOff);
  void* const block = allocate(5);
  setWordAt(block, -16, kMarkFreed);
  check(block);
  EXPECT_THAT(findings(), ElementsAre(markIs(kMarkFreed)));
  setWordAt(block, -16, kMarkAllocated);
  release(block);
}

TEST_F(MemoryTest, AnUnknownModeIsShownAndTheBlockLeftAlone) {
  for (const MemoryMode& mode : kModes) {
    choose(mode);
    void* const block = allocate(5);
    CallCounter freed("free");
    for (const uint32_t word : {0u, 1u, 0xABCDEF01u, ~0u}) {
      setWordAt(block, -20, word);
      check(block);
      EXPECT_THAT(findings(), ElementsAre(modeIs(word)));
      release(block);
      EXPECT_THAT(findings(), ElementsAre(modeIs(word)));
      EXPECT_EQ(markOf(block), kMarkAllocated);
    }
    EXPECT_EQ(freed.calls(), 0);
    setWordAt(block, -20, mode.eyeCatcher);
    release(block);
  }
}

}  // namespace
