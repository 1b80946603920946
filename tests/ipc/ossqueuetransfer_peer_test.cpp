// Tests of a queue that another program uses as well: what lies in the section after each step of
// either, and messages between threads of both. Under ThreadSanitizer as well.
#include <gmock/gmock.h>

#include <string>
#include <thread>

#include "ipc/blockingsleep.h"
#include "ipc/lengthbytes.h"
#include "ipc/literalqueuepeer.h"
#include "ipc/peertraffic.h"
#include "ipc/queueblock.h"

using namespace osse_test;
using namespace testing;

namespace {

using Peer = LiteralQueuePeer<BlockingSemaphore>;

// A queue, and both ends of both programs.
class SharedQueue {
 public:
  explicit SharedQueue(uint64_t capacity) : block_(capacity) {}

  Peer peer() { return {&block_.header(), sleep_.data, sleep_.space}; }

  void put(const std::string& message) {
    EXPECT_EQ(oss::putMessage(block_.ring(), sleep_, message.data(), message.size()).rc, ECF_OK);
  }
  std::string get(uint64_t most) {
    std::string message(most, '\0');
    uint64_t length = 0;
    EXPECT_EQ(oss::getMessage(block_.ring(), sleep_, message.data(), most, &length, 1000).rc,
              ECF_OK);
    message.resize(length);
    return message;
  }

  std::string bytes() const {
    return {reinterpret_cast<const char*>(&block_.header()),
            Peer::sectionBytes(block_.header().capacity)};
  }

 private:
  QueueBlock block_;
  BlockingSleep sleep_;
};

TEST(QueuePeer, MakesTheQueueThatTheLibraryMakes) {
  const SharedQueue made(64);
  std::string section(Peer::sectionBytes(64), '\0');
  section.replace(0, 40, 40, 'x');
  BlockingSemaphore data, space;
  Peer(section.data(), data, space).makeEmpty(64);
  EXPECT_EQ(section, made.bytes());
}

// Two queues through which the same messages pass: one belongs to the library, and at the other
// each of its ends is the peer's in turn. Messages wait in the ring, which they leave and enter at
// every place.
TEST(QueuePeer, LeavesTheSectionByteByByteAsTheLibraryDoes) {
  constexpr uint64_t kCapacity = 72;  // three of the longest
  SharedQueue library(kCapacity), mixed(kCapacity);
  const auto message = [](uint32_t i) { return PeerTraffic{24, 1000}.message(i).substr(0, 16); };
  uint32_t read = 0;
  const auto getNext = [&] {
    EXPECT_EQ(library.get(64), message(read));
    EXPECT_EQ(read % 3 == 0 ? mixed.get(64) : mixed.peer().get(64), message(read));
    EXPECT_EQ(mixed.bytes(), library.bytes()) << "after message " << read << " was read";
    ++read;
  };
  for (uint32_t i = 0; i < 1000; ++i) {
    library.put(message(i));
    if (i % 2 == 0)
      mixed.put(message(i));
    else
      mixed.peer().put(message(i));
    ASSERT_EQ(mixed.bytes(), library.bytes()) << "after message " << i << " was written";
    while (i + 1 - read > i % 3) getNext();
  }
}

TEST(QueuePeer, LeavesTheBodyOfAMessageThatIsTooLongAsTheLibraryDoes) {
  const std::string message = lengthBytes(3) + "abc";
  SharedQueue queue(64);
  queue.put(message);
  EXPECT_EQ(queue.peer().get(10), std::nullopt);
  EXPECT_EQ(queue.get(3), "abc");
  queue.peer().put(message);
  EXPECT_EQ(queue.peer().get(11), message);
}

class QueuePeerInThreads : public TestWithParam<PeerTraffic> {};

TEST_P(QueuePeerInThreads, ReadsWhatTheLibraryWrites) {
  const PeerTraffic traffic = GetParam();
  SharedQueue queue(traffic.capacity);
  std::thread writer([&] {
    for (uint32_t i = 0; i < traffic.messages; ++i) queue.put(traffic.message(i));
  });
  readAsPeer(queue.peer(), traffic);
  writer.join();
}

TEST_P(QueuePeerInThreads, WritesWhatTheLibraryReads) {
  const PeerTraffic traffic = GetParam();
  SharedQueue queue(traffic.capacity);
  std::thread writer([&] { writeAsPeer(queue.peer(), traffic); });
  for (uint32_t i = 0; i < traffic.messages; ++i)
    EXPECT_EQ(queue.get(traffic.most()), traffic.message(i)) << "message " << i;
  writer.join();
}

INSTANTIATE_TEST_SUITE_P(RingOf, QueuePeerInThreads,
                         Values(PeerTraffic{24, 400}, PeerTraffic{64, 400}, PeerTraffic{4096, 100},
                                PeerTraffic{65536, 40}),
                         [](const auto& run) { return std::to_string(run.param.capacity); });

}  // namespace
