#include "queueview.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace oss::tool {
namespace {

template <class T>
T read(const T& field) {
  return std::atomic_ref(const_cast<T&>(field)).load(std::memory_order_acquire);
}

OSSIPCQueueHeader readHeader(const OSSIPCQueueHeader& there) {
  OSSIPCQueueHeader header;
  header.putLatch = read(there.putLatch);
  header.getLatch = read(there.getLatch);
  header.stateLatch = read(there.stateLatch);
  header.capacity = read(there.capacity);
  header.writeOffset = read(there.writeOffset);
  header.readOffset = read(there.readOffset);
  header.writerWaiting = read(there.writerWaiting);
  header.readerWaiting = read(there.readerWaiting);
  header.notEmpty = read(there.notEmpty);
  return header;
}

bool isSame(const OSSIPCQueueHeader& a, const OSSIPCQueueHeader& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The unread bytes of a sound state, from the oldest on.
class Unread {
 public:
  Unread(const RingState& state, const uint8_t* ring)
      : state_(state), ring_(ring), offset_(state.readOffset), left_(state.used()) {}

  uint64_t left() const { return left_; }

  void copy(void* out, uint64_t count) const {
    const uint64_t first = std::min(count, state_.capacity - offset_);
    std::memcpy(out, ring_ + offset_, first);
    std::memcpy(static_cast<uint8_t*>(out) + first, ring_, count - first);
  }
  void pass(uint64_t count) {
    const uint64_t padded = std::min(paddedToUnit(count), left_);
    offset_ = state_.behind(offset_, padded);
    left_ -= padded;
  }

 private:
  const RingState& state_;
  const uint8_t* ring_;
  uint64_t offset_;
  uint64_t left_;
};

void readMessages(QueueView& view, const uint8_t* ring) {
  for (Unread unread(view.state, ring); unread.left() >= kLengthBytes; ++view.messageCount) {
    UnreadMessage message;
    unread.copy(&message.length, kLengthBytes);
    unread.pass(kLengthBytes);
    message.there = std::min(message.length, unread.left());
    if (view.messageCount < QueueView::kMostShown) {
      message.head.resize(std::min(message.there, QueueView::kHeadBytes));
      unread.copy(message.head.data(), message.head.size());
      view.messages.push_back(message);
    }
    unread.pass(message.there);
  }
}

QueueView lookOnce(const OSSIPCQueueHeader& there, uint64_t room) {
  QueueView view;
  view.header = readHeader(there);
  view.state = {.capacity = view.header.capacity,
                .writeOffset = view.header.writeOffset,
                .readOffset = view.header.readOffset,
                .notEmpty = view.header.notEmpty != 0};
  view.isSound = view.state.isSound(room);
  if (view.isSound) readMessages(view, reinterpret_cast<const uint8_t*>(&there + 1));
  view.isMoving = !isSame(view.header, readHeader(there));
  return view;
}

}  // namespace

QueueView viewOfQueue(const void* section, uint64_t bytes) {
  constexpr int kTries = 5;
  const auto& there = *static_cast<const OSSIPCQueueHeader*>(section);
  QueueView view;
  for (int i = 0; i < kTries; ++i) {
    view = lookOnce(there, bytes - sizeof there);
    if (!view.isMoving) break;
  }
  return view;
}

}  // namespace oss::tool
