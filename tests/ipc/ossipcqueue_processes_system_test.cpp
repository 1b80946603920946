// Message queues between processes: a conversation, messages that are longer than the ring, and the
// traffic of four writers and four readers in four processes.
#include <cstdlib>
#include <thread>

#include "harness/childprocess.h"
#include "ipc/ossipcqueuefixture.h"
#include "ipc/queuetraffic.h"

using namespace osse_test;
using namespace testing;

namespace {

// ---- A conversation ----

// Sends each message back, until an empty one comes.
CHILD_ROLE(queueEcho) {
  OtherEnd there(arguments[0]);
  OtherEnd back(arguments[1]);
  for (;;) {
    const std::string message = next(there.queue, 1 << 20, OSS_QUEUE_INFINITE);
    EXPECT_EQ(put(back.queue, message), ECF_OK);
    if (message.empty()) return 0;
  }
}

// Shorter than the ring, exactly as long, with its length exactly as long, and much longer.
TEST_F(QueueTest, TwoProcessesExchangeMessagesOfAnyLength) {
  constexpr uint64_t kCapacity = 4096;
  create(kCapacity);
  OSSHIPCQueue back;
  const std::string backPath = path_ + " back";
  const OSSIPCQueueCreateParam param = queueParam(backPath, kCapacity);
  ASSERT_EQ(back.create(&param), ECF_OK);
  Child child = startChild("queueEcho", {path_, backPath});
  for (const size_t size : {1u, 100u, 4088u, 4096u, 4097u, 100'000u, 1u << 20, 0u}) {
    std::string message(size, '\0');
    for (size_t i = 0; i < size; ++i) message[i] = static_cast<char>(i * 13 + size);
    ASSERT_EQ(put(queue_, message), ECF_OK);
    ASSERT_EQ(next(back, 1 << 20, OSS_QUEUE_INFINITE), message) << size;
  }
  EXPECT_EQ(child.wait(), 0u);
  EXPECT_EQ(back.detach(), ECF_OK);
  EXPECT_THAT(log_.records(), IsEmpty());
}

// ---- Traffic ----

void writeTraffic(const std::string& path, uint32_t writer, uint32_t messages) {
  OtherEnd end(path);
  std::string message;
  for (uint32_t number = 0; number < messages; ++number) {
    fillTraffic(message, writer, number);
    ASSERT_EQ(put(end.queue, message), ECF_OK);
  }
}

// Whether a message is what its head says, and newer than the last one of its writer.
bool isGenuine(const std::string& message, uint32_t messages, int64_t (&last)[kTrafficWriters],
               TrafficHead& head) {
  std::memcpy(&head, message.data(), sizeof head);
  if (head.writer >= kTrafficWriters || head.number >= messages) return false;
  std::string expected;
  fillTraffic(expected, head.writer, head.number);
  const bool inOrder = head.number > last[head.writer];
  last[head.writer] = head.number;
  return inOrder && message == expected;
}

void readTraffic(const std::string& path, TrafficBook& book, uint32_t messages) {
  OtherEnd end(path);
  std::string buffer(kTrafficMostBytes, '\0');
  int64_t last[kTrafficWriters] = {-1, -1, -1, -1};
  while (book.unclaimed-- > 0) {
    uint64_t received = 0;
    ASSERT_EQ(end.queue.get(buffer.data(), buffer.size(), &received, OSS_QUEUE_INFINITE), ECF_OK);
    if (received < TrafficBook::kShort) {
      ++book.shortOnes[received];
      continue;
    }
    TrafficHead head;
    if (!isGenuine(buffer.substr(0, received), messages, last, head))
      ++book.wrong;
    else
      ++book.times()[head.writer * messages + head.number];
  }
}

// One writer and one reader.
CHILD_ROLE(queueTraffic) {
  const auto writer = static_cast<uint32_t>(std::stoul(arguments[2]));
  const auto messages = static_cast<uint32_t>(std::stoul(arguments[3]));
  const SharedMemory memory(arguments[1], trafficBookBytes(messages));
  auto& book = *static_cast<TrafficBook*>(memory.address());
  std::thread writes([&] { writeTraffic(arguments[0], writer, messages); });
  readTraffic(arguments[0], book, messages);
  writes.join();
  return 0;
}

// 20,000 messages, or as many as the environment asks for.
uint32_t messagesOfEachWriter() {
  const char* const asked = std::getenv("OSSE_QUEUE_MESSAGES");
  return asked != nullptr ? static_cast<uint32_t>(std::stoul(asked)) / kTrafficWriters : 5000;
}

TEST_F(QueueTest, NothingIsLostDoubledMixedOrReorderedBetweenFourProcesses) {
  const uint32_t messages = messagesOfEachWriter();
  const SharedMemory memory(trafficBookBytes(messages));
  auto& book = *static_cast<TrafficBook*>(memory.address());
  book.unclaimed = int64_t{kTrafficWriters} * messages;
  create(kTrafficCapacity);

  std::vector<Child> children;
  for (uint32_t writer = 0; writer < kTrafficWriters; ++writer)
    children.push_back(startChild(
        "queueTraffic", {path_, memory.name(), std::to_string(writer), std::to_string(messages)}));
  for (Child& child : children) EXPECT_EQ(child.wait(), 0u);

  uint32_t shortOnes[TrafficBook::kShort] = {};
  uint64_t missed = 0;
  for (uint32_t writer = 0; writer < kTrafficWriters; ++writer)
    for (uint32_t number = 0; number < messages; ++number) {
      const uint32_t size = trafficSize(writer, number);
      if (size < TrafficBook::kShort)
        ++shortOnes[size];
      else if (book.times()[writer * messages + number] != 1)
        ++missed;
    }
  EXPECT_EQ(missed, 0u);
  EXPECT_EQ(book.wrong, 0u);
  for (uint32_t size = 0; size < TrafficBook::kShort; ++size)
    EXPECT_EQ(book.shortOnes[size], shortOnes[size]) << size;
  EXPECT_FALSE(queue_.hasMessage());
  EXPECT_EQ(header().putLatch, 0);
  EXPECT_EQ(header().getLatch, 0);
}

}  // namespace
