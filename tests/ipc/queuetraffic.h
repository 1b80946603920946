// queuetraffic.h - messages that tell what they are, and the book in which processes that read them
// strike them off.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>

#include "harness/sharedobjects.h"

namespace osse_test {

inline constexpr uint32_t kTrafficWriters = 4;
inline constexpr uint32_t kTrafficCapacity = 256;
inline constexpr uint32_t kTrafficMostBytes = 4 * kTrafficCapacity;

// What names a message; shorter ones are known by their length alone.
struct TrafficHead {
  uint32_t writer;
  uint32_t number;
};

inline uint32_t mixed(uint32_t value) {
  value = (value ^ value >> 16) * 0x7FEB352DU;
  value = (value ^ value >> 15) * 0x846CA68BU;
  return value ^ value >> 16;
}

// From 0 to four times the ring, small ones more often.
inline uint32_t trafficSize(uint32_t writer, uint32_t number) {
  const uint32_t random = mixed(writer << 28 ^ number);
  return random % ((random & 0x10000) != 0 ? kTrafficMostBytes + 1 : 65);
}

// Bytes that follow from writer and number, all of them.
inline void fillTraffic(std::string& message, uint32_t writer, uint32_t number) {
  message.resize(trafficSize(writer, number));
  uint32_t state = mixed(number * kTrafficWriters + writer + 1);
  for (char& byte : message) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  const TrafficHead head = {writer, number};
  if (message.size() >= sizeof head) std::memcpy(message.data(), &head, sizeof head);
}

// How often each message was read; messages without a head by their length.
struct TrafficBook {
  static constexpr uint32_t kShort = sizeof(TrafficHead);

  std::atomic<int64_t> unclaimed;  // messages that no reader has set out to get
  std::atomic<uint32_t> shortOnes[kShort];
  std::atomic<uint64_t> wrong;  // messages that are none, or out of order

  // Behind the record: one byte for each message, by writer and number.
  std::atomic<uint8_t>* times() { return reinterpret_cast<std::atomic<uint8_t>*>(this + 1); }
};

inline size_t trafficBookBytes(uint32_t messagesOfEach) {
  return sizeof(TrafficBook) + size_t{kTrafficWriters} * messagesOfEach;
}

}  // namespace osse_test
