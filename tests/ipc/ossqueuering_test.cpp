// Tests of the byte ring: sizes, what is free, which states can be, the copies.
#include "ipc/ossqueuering.h"

#include <gmock/gmock.h>

#include <string>

#include "ipc/queueblock.h"

using namespace osse_test;
using oss::RingState;

namespace {

TEST(QueueSizing, RoundsUpToTheUnitAndGivesShortMessagesRoomForTheirLength) {
  EXPECT_EQ(oss::ringBytesFor(0), 8u);
  EXPECT_EQ(oss::ringBytesFor(1), 16u);
  EXPECT_EQ(oss::ringBytesFor(8), 16u);
  EXPECT_EQ(oss::ringBytesFor(9), 16u);
  EXPECT_EQ(oss::ringBytesFor(16), 16u);
  EXPECT_EQ(oss::ringBytesFor(17), 24u);
  EXPECT_EQ(oss::ringBytesFor(65536), 65536u);
  EXPECT_EQ(oss::sectionBytesFor(oss::ringBytesFor(17)), 64u);
}

// The system refuses what is asked for then; a size that wraps around would be granted.
TEST(QueueSizing, ASizeBeyondTellingAsksForMoreThanThereIs) {
  EXPECT_EQ(oss::ringBytesFor(~uint64_t{0}), 0u);
  EXPECT_EQ(oss::sectionBytesFor(0), ~uint64_t{0});
  EXPECT_EQ(oss::sectionBytesFor(oss::ringBytesFor(~uint64_t{0} - 7)), ~uint64_t{0});
  EXPECT_EQ(oss::sectionBytesFor(~uint64_t{0} - 47), ~uint64_t{0} - 7);
}

TEST(RingState, TellsWhatIsFreeAndUsed) {
  const auto free = [](uint64_t write, uint64_t read, bool notEmpty) {
    const RingState state = {64, write, read, notEmpty};
    EXPECT_TRUE(state.isSound(64));
    EXPECT_EQ(state.used(), 64 - state.free());
    return state.free();
  };
  EXPECT_EQ(free(0, 0, false), 64u);
  EXPECT_EQ(free(0, 0, true), 0u);
  EXPECT_EQ(free(24, 24, false), 64u);
  EXPECT_EQ(free(24, 24, true), 0u);
  EXPECT_EQ(free(40, 8, true), 32u);
  EXPECT_EQ(free(8, 40, true), 32u);
  EXPECT_EQ(free(0, 56, true), 56u);
}

TEST(RingState, IsSoundOnlyAsARingCanBe) {
  constexpr uint64_t kHuge = ~uint64_t{0} - 7;
  const auto sound = [](const RingState& state) { return state.isSound(64); };
  EXPECT_TRUE(sound({64, 56, 0, true}));
  EXPECT_TRUE(sound({8, 0, 0, true}));
  EXPECT_TRUE(sound({0, 0, 0, false}));

  EXPECT_FALSE(sound({72, 0, 0, false})) << "longer than the section";
  EXPECT_FALSE(sound({kHuge, 0, 0, false}));
  EXPECT_FALSE(sound({60, 0, 0, false})) << "no multiple of 8";
  EXPECT_FALSE(sound({64, 64, 0, true})) << "offsets outside the ring";
  EXPECT_FALSE(sound({64, 0, 64, true}));
  EXPECT_FALSE(sound({64, kHuge, 0, true}));
  EXPECT_FALSE(sound({64, 0, kHuge, true}));
  EXPECT_FALSE(sound({64, 12, 8, true})) << "offsets between the units";
  EXPECT_FALSE(sound({64, 8, 12, true}));
  EXPECT_FALSE(sound({64, 16, 8, false})) << "empty with something in it";
  EXPECT_FALSE(sound({0, 0, 0, true})) << "nothing, and not empty";
  EXPECT_FALSE(sound({0, 8, 8, false}));
}

TEST(QueueRing, ReadsWhatTheHeaderHolds) {
  const QueueBlock block(64);
  block.header().writeOffset = 40;
  block.header().readOffset = 8;
  block.header().notEmpty = 7;  // whatever is not 0
  RingState state = {};
  EXPECT_TRUE(block.ring().read(state));
  EXPECT_EQ(state.capacity, 64u);
  EXPECT_EQ(state.writeOffset, 40u);
  EXPECT_EQ(state.readOffset, 8u);
  EXPECT_TRUE(state.notEmpty);

  block.header().capacity = 72;
  EXPECT_FALSE(block.ring().read(state));
}

TEST(QueueRing, CopiesAroundItsEnd) {
  const QueueBlock block(16);
  block.ring().copyIn(block.state(), 8, "abcdefghijklm", 13);
  EXPECT_EQ(block.contents(), std::string("ijklm\0\0\0abcdefgh", 16));

  char out[13] = {};
  block.ring().copyOut(block.state(), 8, out, sizeof out);
  EXPECT_EQ(std::string(out, sizeof out), "abcdefghijklm");
}

TEST(QueueRing, CopiesUpToItsEndAndNothingAtAll) {
  const QueueBlock block(16);
  block.ring().copyIn(block.state(), 8, "abcdefgh", 8);
  block.ring().copyIn(block.state(), 8, nullptr, 0);
  EXPECT_EQ(block.contents(), std::string("\0\0\0\0\0\0\0\0abcdefgh", 16));
  block.ring().copyOut(block.state(), 0, nullptr, 0);
}

TEST(QueueRing, PublishesAndConsumesInUnitsAndKnowsFullFromEmpty) {
  const QueueBlock block(24);
  block.startAt(8);
  const oss::QueueRing ring = block.ring();
  EXPECT_FALSE(ring.looksReadable());
  EXPECT_TRUE(ring.looksWritable());

  RingState state = block.state();
  ring.publish(state, 13);
  EXPECT_EQ(block.header().writeOffset, 0u);
  EXPECT_EQ(block.header().notEmpty, 1);
  ring.publish(state, 8);
  EXPECT_EQ(block.header().writeOffset, 8u);
  EXPECT_EQ(state.free(), 0u);
  EXPECT_TRUE(ring.looksReadable());
  EXPECT_FALSE(ring.looksWritable());

  ring.consume(state, 16);
  EXPECT_EQ(block.header().readOffset, 0u);
  EXPECT_EQ(block.header().notEmpty, 1);
  EXPECT_TRUE(ring.looksWritable());
  ring.consume(state, 1);
  EXPECT_EQ(block.header().readOffset, 8u);
  EXPECT_EQ(block.header().notEmpty, 0);
  EXPECT_EQ(state.free(), 24u);
}

TEST(QueueRing, ClearingForgetsWhatIsUnreadAndNothingElse) {
  const QueueBlock block(24);
  RingState state = block.state();
  block.header().putLatch = 0x80;
  block.header().writerWaiting = 1;
  block.ring().publish(state, 16);
  block.ring().consume(state, 8);
  block.ring().clear();
  EXPECT_EQ(block.header().capacity, 24u);
  EXPECT_EQ(block.header().writeOffset, 0u);
  EXPECT_EQ(block.header().readOffset, 0u);
  EXPECT_EQ(block.header().notEmpty, 0);
  EXPECT_EQ(block.header().putLatch, 0x80);
  EXPECT_EQ(block.header().writerWaiting, 1);
}

// Until its creator has stored the capacity, a ring can neither be read nor written.
TEST(QueueRing, WithoutCapacityLooksNeitherReadableNorWritable) {
  const QueueBlock block(0, 64);
  RingState state = {};
  EXPECT_TRUE(block.ring().read(state));
  EXPECT_EQ(state.free(), 0u);
  EXPECT_FALSE(block.ring().looksReadable());
  EXPECT_FALSE(block.ring().looksWritable());
}

}  // namespace
