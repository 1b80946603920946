// literalqueuepeer.h - another program at the ends of a message queue. It knows where the header's
// fields lie and which steps a put and a get take, and shares nothing with the library.
//
// Each of its steps is the plainest that the queue allows, so the library has to get along with it:
//   - All bytes are copied while the state latch is held, a message in as many pieces as it takes.
//   - A writer that was woken does not look whether there is room: the post has promised it.
//   - It wakes behind a piece of a message, not behind a length. So an empty message reaches a
//     reader that sleeps only with the next one, and with no other bytes than lengths in the ring,
//     two such programs wait for each other: rings for it have 24 bytes at least.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <thread>

namespace osse_test {

// A semaphore has wait(), which comes back with a count, and post().
template <class Semaphore>
class LiteralQueuePeer {
 public:
  // The section is mapped; it and the semaphores outlive the peer.
  LiteralQueuePeer(void* section, Semaphore& data, Semaphore& space)
      : section_(static_cast<uint8_t*>(section)), data_(data), space_(space) {}

  static constexpr uint64_t sectionBytes(uint64_t capacity) { return kRing + capacity; }

  // Makes the section an empty queue.
  void makeEmpty(uint64_t capacity) {
    std::memset(section_, 0, kRing);
    store<uint64_t>(kCapacity, capacity);
  }

  void put(const std::string& message) {
    takeLatch(kPutLatch);
    takeLatch(kStateLatch);
    if (free() < kLengthBytes) sleep(kWriterWaiting, space_);
    const uint64_t size = message.size();
    writePiece(reinterpret_cast<const char*>(&size), kLengthBytes);
    for (uint64_t done = 0; done < size;) {
      if (free() == 0) sleep(kWriterWaiting, space_);
      const uint64_t part = std::min(free(), size - done);
      writePiece(message.data() + done, part);
      done += part;
      wake(kReaderWaiting, data_);
    }
    releaseLatch(kStateLatch);
    releaseLatch(kPutLatch);
  }

  // Waits for a message. Nothing when it is longer than `most` bytes: then its length is gone.
  std::optional<std::string> get(uint64_t most) {
    takeLatch(kGetLatch);
    takeLatch(kStateLatch);
    awaitData();
    uint64_t size = 0;
    readPiece(reinterpret_cast<char*>(&size), kLengthBytes);
    std::optional<std::string> message;
    if (size <= most) {
      message.emplace(size, '\0');
      getBody(*message);
    }
    releaseLatch(kStateLatch);
    releaseLatch(kGetLatch);
    return message;
  }

  // How often it has slept.
  uint64_t sleeps() const { return sleeps_; }

  // Wait until somebody else sleeps at that end.
  void awaitSleepingReader() const { awaitFlag(kReaderWaiting); }
  void awaitSleepingWriter() const { awaitFlag(kWriterWaiting); }

 private:
  // Where the header's fields lie.
  enum : size_t {
    kPutLatch = 0,
    kGetLatch = 1,
    kStateLatch = 2,
    kCapacity = 8,
    kWriteOffset = 16,
    kReadOffset = 24,
    kWriterWaiting = 32,
    kReaderWaiting = 33,
    kNotEmpty = 34,
    kRing = 40,
  };
  static constexpr uint64_t kLengthBytes = 8;
  static constexpr uint8_t kFree = 0, kHeld = 0x80;

  // Others look at the fields without a latch.
  template <class T>
  T load(size_t field) const {
    return __atomic_load_n(reinterpret_cast<const T*>(section_ + field), __ATOMIC_RELAXED);
  }
  template <class T>
  void store(size_t field, T value) {
    __atomic_store_n(reinterpret_cast<T*>(section_ + field), value, __ATOMIC_RELAXED);
  }

  void takeLatch(size_t latch) {
    while (__atomic_exchange_n(section_ + latch, kHeld, __ATOMIC_SEQ_CST) != kFree)
      std::this_thread::yield();
  }
  void releaseLatch(size_t latch) { __atomic_store_n(section_ + latch, kFree, __ATOMIC_RELEASE); }

  uint64_t free() const {
    const auto write = load<uint64_t>(kWriteOffset), read = load<uint64_t>(kReadOffset);
    if (read >= write && load<uint8_t>(kNotEmpty) != 0) return read - write;
    return load<uint64_t>(kCapacity) - (write - read);
  }

  void sleep(size_t flag, Semaphore& semaphore) {
    ++sleeps_;
    store<uint8_t>(flag, 1);
    releaseLatch(kStateLatch);
    semaphore.wait();
    takeLatch(kStateLatch);
  }
  void wake(size_t flag, Semaphore& semaphore) {
    if (load<uint8_t>(flag) == 0) return;
    store<uint8_t>(flag, 0);
    semaphore.post();
  }

  void awaitData() {
    while (load<uint8_t>(kNotEmpty) == 0) sleep(kReaderWaiting, data_);
  }
  void getBody(std::string& message) {
    const auto capacity = load<uint64_t>(kCapacity);
    for (uint64_t done = 0; done < message.size();) {
      if (free() == capacity) awaitData();
      const uint64_t part = std::min(message.size() - done, capacity - free());
      readPiece(message.data() + done, part);
      done += part;
      wake(kWriterWaiting, space_);
    }
  }

  void writePiece(const char* bytes, uint64_t count) {
    const auto at = load<uint64_t>(kWriteOffset);
    const uint64_t first = std::min(count, load<uint64_t>(kCapacity) - at);
    std::memcpy(section_ + kRing + at, bytes, first);
    std::memcpy(section_ + kRing, bytes + first, count - first);
    store<uint64_t>(kWriteOffset, behind(at, count));
    store<uint8_t>(kNotEmpty, 1);
  }
  void readPiece(char* bytes, uint64_t count) {
    auto at = load<uint64_t>(kReadOffset);
    const uint64_t first = std::min(count, load<uint64_t>(kCapacity) - at);
    std::memcpy(bytes, section_ + kRing + at, first);
    std::memcpy(bytes + first, section_ + kRing, count - first);
    at = behind(at, count);
    store<uint64_t>(kReadOffset, at);
    if (at == load<uint64_t>(kWriteOffset)) store<uint8_t>(kNotEmpty, 0);
  }
  // The place behind a piece and what fills it up to 8 bytes.
  uint64_t behind(uint64_t at, uint64_t count) const {
    return (at + count + (8 - count % 8) % 8) % load<uint64_t>(kCapacity);
  }

  void awaitFlag(size_t flag) const {
    while (load<uint8_t>(flag) == 0) std::this_thread::yield();
  }

  uint8_t* section_;
  Semaphore& data_;
  Semaphore& space_;
  uint64_t sleeps_ = 0;
};

}  // namespace osse_test
