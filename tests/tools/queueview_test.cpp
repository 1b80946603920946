// Tests of what osse reads of a queue's section: messages, parts of messages, and garbage.
#include "queueview.h"

#include <gmock/gmock.h>

#include <random>

#include "ipc/queueblock.h"
#include "ipc/restlesswriters.h"

using namespace osse_test;
using oss::tool::QueueView;
using oss::tool::viewOfQueue;

namespace {

QueueView viewOf(const QueueBlock& block) {
  return viewOfQueue(&block.header(), sizeof(OSSIPCQueueHeader) + block.ring().room());
}

void put(const QueueBlock& block, const std::string& message) {
  ScriptedSleep sleep;
  oss::putMessage(block.ring(), sleep, message.data(), message.size());
}

// Offsets are multiples of 8 inside the ring, which lies inside the section, and are equal where
// nothing is unread. A section that has just been made is all zeros, and a queue as well.
bool canBeAQueue(const OSSIPCQueueHeader& header, uint64_t room) {
  const bool isUnread = header.notEmpty != 0;
  if (header.capacity == 0) return header.writeOffset == 0 && header.readOffset == 0 && !isUnread;
  for (const uint64_t number : {header.capacity, header.writeOffset, header.readOffset})
    if (number % 8 != 0) return false;
  return header.capacity <= room && header.writeOffset < header.capacity &&
         header.readOffset < header.capacity &&
         (isUnread || header.writeOffset == header.readOffset);
}

TEST(QueueView, ShowsTheMessagesFromTheOldestOnAroundTheEnd) {
  const QueueBlock block(64);
  block.startAt(40);
  put(block, "first");
  put(block, "");
  put(block, "the third");
  const QueueView view = viewOf(block);
  EXPECT_TRUE(view.isSound);
  EXPECT_FALSE(view.isMoving);
  EXPECT_EQ(view.state.used(), 48u);
  ASSERT_EQ(view.messageCount, 3u);
  EXPECT_EQ(view.messages[0].length, 5u);
  EXPECT_EQ(view.messages[0].head, "first");
  EXPECT_EQ(view.messages[1].length, 0u);
  EXPECT_EQ(view.messages[2].head, "the third");
}

TEST(QueueView, ShowsHeadsOfLongMessagesAndWhatIsThereOfAPart) {
  const QueueBlock block(128);
  put(block, std::string(1000, 'x'));
  const QueueView view = viewOf(block);
  ASSERT_EQ(view.messageCount, 1u);
  EXPECT_EQ(view.messages[0].length, 1000u);
  EXPECT_EQ(view.messages[0].there, 120u);
  EXPECT_EQ(view.messages[0].head, std::string(QueueView::kHeadBytes, 'x'));
}

TEST(QueueView, CountsMoreMessagesThanItShows) {
  const QueueBlock block(8 * 150);
  for (int i = 0; i < 150; ++i) put(block, "");
  const QueueView view = viewOf(block);
  EXPECT_EQ(view.messageCount, 150u);
  EXPECT_EQ(view.messages.size(), QueueView::kMostShown);
}

TEST(QueueView, LeavesTheQueueAsItIs) {
  const QueueBlock block(64);
  put(block, "abc");
  const std::string before = block.contents();
  const OSSIPCQueueHeader header = block.header();
  viewOf(block);
  EXPECT_EQ(block.contents(), before);
  EXPECT_EQ(std::memcmp(&header, &block.header(), sizeof header), 0);
}

// Five looks in a row are rarely at one state while a writer runs. New threads find a processor
// beside this one sooner than old ones are moved to it.
TEST(QueueView, TellsThatTheQueueMovesWhileItIsRead) {
  const QueueBlock block(8 * 64);
  QueueView view;
  for (int round = 0; round < 1000 && !view.isMoving; ++round) {
    const RestlessWriters writers(block.header());
    for (int i = 0; i < 200 && !view.isMoving; ++i) view = viewOf(block);
  }
  EXPECT_TRUE(view.isMoving);
  EXPECT_TRUE(view.isSound);
  EXPECT_FALSE(viewOf(block).isMoving);
}

// Any bytes: nothing behind the section is read, and a header that is none shows no messages.
TEST(QueueView, EnduresGarbage) {
  std::mt19937_64 random(1);
  int queues = 0;
  for (int round = 0; round < 2000; ++round) {
    const uint64_t capacity = random() % 64 * 8;
    const QueueBlock block(capacity);
    for (uint64_t i = 0; i < capacity; ++i) block.ringBytes()[i] = static_cast<uint8_t>(random());
    // Half of the headers are nearly right.
    const bool isNear = random() % 2 != 0;
    const auto any = [&] { return isNear ? random() % (capacity / 8 + 2) * 8 : random(); };
    if (!isNear) block.header().capacity = any();
    block.header().writeOffset = any();
    block.header().readOffset = any();
    block.header().notEmpty = static_cast<uint8_t>(random() % 2);
    const QueueView view = viewOf(block);
    EXPECT_EQ(view.isSound, canBeAQueue(block.header(), capacity));
    queues += view.isSound;
    if (!view.isSound) {
      EXPECT_EQ(view.messageCount, 0u);
    }
  }
  EXPECT_GT(queues, 0);
}

}  // namespace
