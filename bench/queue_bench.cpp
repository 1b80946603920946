// Claims: the queue is at least as fast as Boost's for short messages and half as fast again for
// longer ones; a megabyte takes at most twice as long as bytes through a shared ring can; a round
// trip costs no more than the two wake-ups that it may need; and a message that nobody waits for
// costs at most twice its latches and copies.
//
// Beside the claims stand curves without one: writers, and the size of the ring.
//
// Both ends are threads of one program, each with a handle and a view of its own, as two processes
// have; on one core, or on one each.
#include <memory>
#include <thread>
#include <vector>

#include "cores.h"
#include "queuepeers.h"
#include "ratio.h"

namespace {

using namespace oss::bench;

// A turn is a batch of messages, which each benchmark counts as its items.
constexpr int64_t kTurns = 1;

constexpr size_t kKiB = 1024, kMiB = 1024 * kKiB;

// Channels are costly to make, and there as long as the program.
template <class Channel>
Channel& theChannel() {
  static const auto channel = std::make_unique<Channel>();
  return *channel;
}

// Some hundred microseconds of messages.
constexpr int64_t batchOf(size_t bytes) {
  return bytes <= kKiB ? 4000 : bytes <= 64 * kKiB ? 800 : 16;
}

// Writers put, the benchmark's own thread gets: the last message of a turn ends it.
template <class Channel, int kCores, int kWriters = 1>
void oneWay(benchmark::State& state) {
  auto& channel = theChannel<Channel>();
  constexpr int64_t kOfEach = batchOf(Channel::kBytes) / kWriters;
  std::atomic<int> ready = 0;
  std::atomic<bool> starts = false;
  std::atomic<bool> isGood = takeCore(0);
  std::vector<std::thread> writers;
  for (int writer = 0; writer < kWriters; ++writer)
    writers.emplace_back([&] {
      if (!takeCore(kCores - 1)) isGood = false;
      const std::vector<uint8_t> message(Channel::kBytes, 'x');
      ++ready;
      while (!starts) ::SwitchToThread();
      for (int64_t i = 0; i < kOfEach; ++i)
        if (!channel.put(message.data())) isGood = false;
    });
  while (ready < kWriters) ::SwitchToThread();

  std::vector<uint8_t> message(Channel::kBytes);
  for (auto _ : state) {
    starts = true;
    for (int64_t i = 0; i < kOfEach * kWriters; ++i)
      if (!channel.get(message.data())) isGood = false;
  }
  for (std::thread& writer : writers) writer.join();
  state.SetItemsProcessed(kOfEach * kWriters);
  if (!isGood) state.SkipWithError("a message was lost, or there is no core for each end");
}

// There and back through two channels.
template <class Channel>
struct Pair {
  Channel there, back;
};

template <class Channel, int kCores>
void roundTrip(benchmark::State& state) {
  auto& [there, back] = theChannel<Pair<Channel>>();
  constexpr int64_t kTrips = 50;
  std::atomic<bool> isReady = false;
  std::atomic<bool> isGood = takeCore(0);
  std::thread echo([&] {
    if (!takeCore(kCores - 1)) isGood = false;
    std::vector<uint8_t> message(Channel::kBytes);
    isReady = true;
    for (int64_t i = 0; i < kTrips; ++i)
      if (!there.get(message.data()) || !back.put(message.data())) isGood = false;
  });
  while (!isReady) ::SwitchToThread();

  std::vector<uint8_t> message(Channel::kBytes);
  for (auto _ : state)
    for (int64_t i = 0; i < kTrips; ++i)
      if (!there.put(message.data()) || !back.get(message.data())) isGood = false;
  echo.join();
  state.SetItemsProcessed(kTrips);
  if (!isGood) state.SkipWithError("a message was lost, or there is no core for each end");
}

// One thread, which finds each message there.
template <class Channel>
void uncontended(benchmark::State& state) {
  auto& channel = theChannel<Channel>();
  constexpr int64_t kPairs = 10'000;
  std::vector<uint8_t> message(Channel::kBytes);
  bool isGood = takeCore(0);
  for (auto _ : state)
    for (int64_t i = 0; i < kPairs; ++i)
      if (!channel.put(message.data()) || !channel.get(message.data())) isGood = false;
  state.SetItemsProcessed(kPairs);
  if (!isGood) state.SkipWithError("a message was lost");
}

using Ours64 = Ours<64, 64 * kKiB>;
using Boost64 = Boost<64, 64 * kKiB>;
using Ours4K = Ours<4 * kKiB, 256 * kKiB>;
using Boost4K = Boost<4 * kKiB, 256 * kKiB>;
using Ours1M = Ours<kMiB, 4 * kMiB>;
using Boost1M = Boost<kMiB, 4 * kMiB>;
using Limit1M = Limit<kMiB, 4 * kMiB>;

OSS_BENCHMARK(oneWay<Ours64, 1>);
OSS_BENCHMARK(oneWay<Boost64, 1>);
OSS_BENCHMARK(oneWay<Ours64, 2>);
OSS_BENCHMARK(oneWay<Boost64, 2>);
OSS_BENCHMARK(oneWay<Ours4K, 2>);
OSS_BENCHMARK(oneWay<Boost4K, 2>);
OSS_BENCHMARK(oneWay<Ours1M, 2>);
OSS_BENCHMARK(oneWay<Boost1M, 2>);
OSS_BENCHMARK(oneWay<Limit1M, 2>);

OSS_BENCHMARK(roundTrip<Ours64, 1>);
OSS_BENCHMARK(roundTrip<Wake, 1>);
OSS_BENCHMARK(roundTrip<Ours64, 2>);
OSS_BENCHMARK(roundTrip<Wake, 2>);

using Bare64 = LatchesAndCopy<64>;
using Bare4K = LatchesAndCopy<4 * kKiB>;
OSS_BENCHMARK(uncontended<Ours64>);
OSS_BENCHMARK(uncontended<Bare64>);
OSS_BENCHMARK(uncontended<Ours4K>);
OSS_BENCHMARK(uncontended<Bare4K>);

// ---- Curves ----

using Ring4K = Ours<64, 4 * kKiB>;
using Ring256K = Ours<64, 256 * kKiB>;
using Ring1M = Ours<64, kMiB>;
using Ring16M = Ours<64, 16 * kMiB>;
OSS_BENCHMARK(oneWay<Ours64, 2, 2>);
OSS_BENCHMARK(oneWay<Ours64, 2, 4>);
OSS_BENCHMARK(oneWay<Ring4K, 2>);
OSS_BENCHMARK(oneWay<Ring256K, 2>);
OSS_BENCHMARK(oneWay<Ring1M, 2>);
OSS_BENCHMARK(oneWay<Ring16M, 2>);

constexpr Claim kRows[] = {
    {"oneWay<Ours64, 1>", atMostTimes(1), "oneWay<Boost64, 1>"},
    {"oneWay<Ours64, 2>", atMostTimes(1), "oneWay<Boost64, 2>"},
    {"oneWay<Ours4K, 2>", atMostTimes(1 / 1.5), "oneWay<Boost4K, 2>"},
    {"oneWay<Ours1M, 2>", atMostTimes(1 / 1.5), "oneWay<Boost1M, 2>"},
    {"oneWay<Ours1M, 2>", atMostTimes(2), "oneWay<Limit1M, 2>"},
    {"roundTrip<Ours64, 1>", atMostTimes(1.15), "roundTrip<Wake, 1>"},
    {"roundTrip<Ours64, 2>", atMostTimes(1.15), "roundTrip<Wake, 2>"},
    {"uncontended<Ours64>", atMostTimes(2), "uncontended<Bare64>"},
    {"uncontended<Ours4K>", atMostTimes(2), "uncontended<Bare4K>"},
};

}  // namespace

const std::span<const Claim> oss::bench::kClaims{kRows};
