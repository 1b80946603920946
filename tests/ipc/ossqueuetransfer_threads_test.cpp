// Tests of messages between threads: streams through rings of all sizes, many at both ends, and
// what a flush does to a copy that is under way. Under ThreadSanitizer as well.
#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ipc/blockingsleep.h"
#include "ipc/queueblock.h"
#include "numeric/osslatchguard.h"

using namespace osse_test;

namespace {

// Message `number` of a writer: a head that names it, and bytes that follow from both.
std::string messageOf(uint32_t writer, uint32_t number, size_t size) {
  std::string message(size, '\0');
  for (size_t i = 0; i < size; ++i) message[i] = static_cast<char>(writer * 31 + number * 7 + i);
  if (size >= 8) {
    std::memcpy(message.data(), &writer, 4);
    std::memcpy(message.data() + 4, &number, 4);
  }
  return message;
}

std::string getAny(const QueueBlock& block, oss::QueueSleep& sleep, size_t bufferSize) {
  std::string message(bufferSize, '\0');
  uint64_t length = 0;
  EXPECT_EQ(
      oss::getMessage(block.ring(), sleep, message.data(), bufferSize, &length, oss::kWaitForEver)
          .rc,
      ECF_OK);
  message.resize(length);
  return message;
}

void putAll(const QueueBlock& block, oss::QueueSleep& sleep, const std::string& message) {
  EXPECT_EQ(oss::putMessage(block.ring(), sleep, message.data(), message.size()).rc, ECF_OK);
}

// The ring, and both semaphores, look as new but for the offsets.
void expectQuiet(const QueueBlock& block) {
  EXPECT_EQ(block.header().putLatch, 0);
  EXPECT_EQ(block.header().getLatch, 0);
  EXPECT_EQ(block.header().stateLatch, 0);
  EXPECT_EQ(block.header().writerWaiting, 0);
  EXPECT_EQ(block.header().readerWaiting, 0);
  EXPECT_EQ(block.header().notEmpty, 0);
}

class QueueOfThreads : public testing::TestWithParam<uint64_t> {};

// From nothing to four times the ring.
TEST_P(QueueOfThreads, StreamsMessagesOfAllSizesInOrder) {
  constexpr uint32_t kMessages = 400;
  const size_t most = GetParam() * 4;
  const QueueBlock block(GetParam());
  BlockingSleep sleep;
  const auto sizeOf = [&](uint32_t number) { return number * 37 % (most + 1); };
  std::thread writer([&] {
    for (uint32_t i = 0; i < kMessages; ++i) putAll(block, sleep, messageOf(0, i, sizeOf(i)));
  });
  for (uint32_t i = 0; i < kMessages; ++i)
    ASSERT_EQ(getAny(block, sleep, most), messageOf(0, i, sizeOf(i))) << "message " << i;
  writer.join();
  expectQuiet(block);
}

INSTANTIATE_TEST_SUITE_P(RingOf, QueueOfThreads, testing::Values(8, 16, 24, 64, 4096, 65536),
                         testing::PrintToStringParamName());

TEST(QueueOfManyThreads, MixesLosesAndDoublesNothing) {
  constexpr uint32_t kWriters = 3, kReaders = 3, kMessages = 300;
  const QueueBlock block(256);
  BlockingSleep sleep;
  const auto sizeOf = [](uint32_t writer, uint32_t i) { return 8 + (writer * 53 + i * 29) % 1000; };

  std::vector<std::thread> threads;
  for (uint32_t writer = 0; writer < kWriters; ++writer)
    threads.emplace_back([&, writer] {
      for (uint32_t i = 0; i < kMessages; ++i)
        putAll(block, sleep, messageOf(writer, i, sizeOf(writer, i)));
    });
  std::vector<std::vector<std::string>> got(kReaders);
  for (auto& messages : got)
    threads.emplace_back([&] {
      for (uint32_t i = 0; i < kWriters * kMessages / kReaders; ++i)
        messages.push_back(getAny(block, sleep, 1008));
    });
  for (std::thread& thread : threads) thread.join();

  std::vector<uint32_t> seen(kWriters * kMessages);
  for (const auto& messages : got) {
    std::vector<int64_t> last(kWriters, -1);
    for (const std::string& message : messages) {
      uint32_t writer = 0, number = 0;
      ASSERT_GE(message.size(), 8u);
      std::memcpy(&writer, message.data(), 4);
      std::memcpy(&number, message.data() + 4, 4);
      ASSERT_LT(writer, kWriters);
      ASSERT_EQ(message, messageOf(writer, number, sizeOf(writer, number)));
      EXPECT_GT(number, last[writer]) << "each reader sees a writer's messages in order";
      last[writer] = number;
      ++seen[writer * kMessages + number];
    }
  }
  EXPECT_THAT(seen, testing::Each(1u));
  expectQuiet(block);
}

// A flush comes while a long message is copied in behind an earlier one. The message has to be in
// the ring whole, where the flush has moved its place, or to be flushed with the other. The
// scheduler decides which: rounds go on until a flush has met the copy.
TEST(QueueOfThreadsFlushed, ALongMessageOnItsWayInIsPlacedAnew) {
  constexpr size_t kSize = 8 << 20;
  constexpr size_t kEarlier = 16;  // an earlier message with its length
  const std::string message = messageOf(1, 2, kSize);
  bool wasPlacedTwice = false;
  for (int round = 0; round < 200 && !wasPlacedTwice; ++round) {
    const QueueBlock block(2 * kSize);
    BlockingSleep sleep;
    putAll(block, sleep, "earlier");
    ASSERT_EQ(block.state().writeOffset, kEarlier);
    std::atomic<bool> hasPut = false;
    std::thread writer([&] {
      putAll(block, sleep, message);
      hasPut = true;
    });
    while (!hasPut && __atomic_load_n(&block.header().putLatch, __ATOMIC_RELAXED) == 0)
      std::this_thread::yield();
    {
      const oss::LatchGuard state(block.header().stateLatch);
      block.ring().clear();
    }
    writer.join();
    if (!block.ring().looksReadable()) continue;

    // Behind its place at the front, the end of the copy that lay behind the earlier one still
    // stands.
    const uint8_t* const end = block.ringBytes() + oss::kLengthBytes + kSize;
    wasPlacedTwice = std::memcmp(end, message.data() + kSize - kEarlier, kEarlier) == 0;
    ASSERT_TRUE(getAny(block, sleep, kSize) == message) << "round " << round;
    expectQuiet(block);
  }
  EXPECT_TRUE(wasPlacedTwice);
}

}  // namespace
