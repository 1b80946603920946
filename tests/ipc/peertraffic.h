// peertraffic.h - the messages that the library and another program send each other through a ring,
// and that program's part of it.
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <optional>
#include <string>

namespace osse_test {

struct PeerTraffic {
  uint64_t capacity;
  uint32_t messages;

  uint64_t most() const { return 4 * capacity; }

  // Ten messages take all the sizes, in an order of their own. No two empty ones follow each other,
  // and the last message is none.
  uint64_t size(uint32_t number) const {
    const uint64_t sizes[] = {0,     1, 7, 8, 9, capacity - 8, capacity - 1, capacity, capacity + 1,
                              most()};
    return sizes[(number * 3 + number / 10) % 10];
  }

  // Bytes that follow from the number.
  std::string message(uint32_t number) const {
    std::string message(size(number), '\0');
    uint32_t state = number * 0x9E3779B9U + 1;
    for (char& byte : message) {
      state = state * 1664525 + 1013904223;
      byte = static_cast<char>(state >> 24);
    }
    return message;
  }

  // Now and then the peer waits until the other end sleeps. A writer does so in each twenty
  // messages that nobody reads.
  bool lullsReader(uint32_t number) const { return number % 50 == 0; }
  bool lullsWriter(uint32_t number) const { return number % 50 == 0 && number + 20 <= messages; }
};

// The longest messages make the peer itself sleep: it keeps the state latch until the ring is full,
// or empty, in the middle of one.
template <class Peer>
void expectSleeps(const Peer& peer, const PeerTraffic& traffic) {
  EXPECT_GE(peer.sleeps(), traffic.messages / 10);
}

template <class Peer>
void writeAsPeer(Peer peer, const PeerTraffic& traffic) {
  for (uint32_t number = 0; number < traffic.messages; ++number) {
    if (traffic.lullsReader(number)) peer.awaitSleepingReader();
    peer.put(traffic.message(number));
  }
  expectSleeps(peer, traffic);
}

template <class Peer>
void readAsPeer(Peer peer, const PeerTraffic& traffic) {
  for (uint32_t number = 0; number < traffic.messages; ++number) {
    if (traffic.lullsWriter(number)) peer.awaitSleepingWriter();
    ASSERT_EQ(peer.get(traffic.most()), traffic.message(number)) << "message " << number;
  }
  expectSleeps(peer, traffic);
}

}  // namespace osse_test
