// queueview.h - what a message queue's section holds at a moment: header, latches, unread messages.
//
// The section belongs to others, who may change it at any time, and may not be a queue's at all.
// Nothing in it is believed: each place is reckoned within the bytes that are mapped. Nothing in it
// is changed, and no latch is taken; whether others have moved meanwhile shows by isMoving.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipc/ossqueuering.h"

namespace oss::tool {

struct UnreadMessage {
  uint64_t length = 0;  // as its first 8 bytes tell
  uint64_t there = 0;   // so many of its bytes are in the ring
  std::string head;     // the first of them
};

struct QueueView {
  static constexpr uint64_t kHeadBytes = 32;
  static constexpr uint64_t kMostShown = 100;

  OSSIPCQueueHeader header;
  RingState state = {};
  bool isSound = false;                 // else there are no messages
  bool isMoving = false;                // others used the queue while it was read
  std::vector<UnreadMessage> messages;  // the first kMostShown
  uint64_t messageCount = 0;
};

// Looks at a section of `bytes` bytes, 40 at least. It looks again, a few times, when the state has
// moved.
QueueView viewOfQueue(const void* section, uint64_t bytes);

}  // namespace oss::tool
