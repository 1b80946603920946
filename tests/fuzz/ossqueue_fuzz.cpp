// Puts, gets and flushes messages as the input says. With a sound header, what must hold is what a
// stream of bytes that is handed over in a model gives: the same codes, the same messages, the same
// count of unread bytes. With a header that the input overwrites at any time, also while an end
// sleeps, what must hold is that nothing outside the section is touched and every transfer ends.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>

#include "tests/fuzz/require.h"
#include "tests/ipc/queueblock.h"

namespace {

using osse_test::QueueBlock;

class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool isEmpty() const { return size_ == 0; }

  // 0 behind the input's end.
  uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }
  uint32_t below(uint32_t end) {
    const uint32_t low = byte(), high = byte();
    return (low | high << 8) % end;
  }

 private:
  const uint8_t* data_;
  size_t size_;
};

// Fails every sleep at once.
class NoSleep final : public oss::QueueSleep {
 public:
  OSSErr awaitData(uint32_t) noexcept override { return ECF_TIMEOUT; }
  OSSErr awaitSpace(uint32_t) noexcept override { return ECF_TIMEOUT; }
  OSSErr postData() noexcept override { return ECF_OK; }
  OSSErr postSpace() noexcept override { return ECF_OK; }
};

// ---- Against the model ----

// The ring as a stream of bytes without end.
class Model {
 public:
  explicit Model(uint64_t capacity) : capacity_(capacity) {}

  uint64_t unread() const { return bytes_.size(); }
  void flush() { bytes_.clear(); }

  uint64_t put(const std::string& message) {
    if (free() < 8) return 50;
    const uint64_t length = message.size();
    append(reinterpret_cast<const char*>(&length), sizeof length);
    const size_t fits = std::min<size_t>(free(), message.size());
    append(message.data(), fits);
    return fits == message.size() ? 0 : 60;
  }

  uint64_t get(uint64_t bufferSize, std::string& message) {
    message.clear();
    if (bytes_.empty()) return 0;
    uint64_t length = 0;
    take(reinterpret_cast<char*>(&length), sizeof length);
    if (length > bufferSize) return 100;
    const size_t there = std::min<size_t>(bytes_.size(), length);
    message.resize(there);
    take(message.data(), there);
    return there == length ? 0 : 110;
  }

 private:
  uint64_t free() const { return capacity_ - bytes_.size(); }
  void append(const char* bytes, size_t count) {
    bytes_.insert(bytes_.end(), bytes, bytes + count);
    bytes_.resize(oss::paddedToUnit(bytes_.size()));
  }
  void take(char* bytes, size_t count) {
    std::copy_n(bytes_.begin(), count, bytes);
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(oss::paddedToUnit(count)));
  }

  uint64_t capacity_;
  std::deque<char> bytes_;
};

// What lies between a message's end and the next unit is whatever lay there before: messages that
// are out of step may read it, so it is made the model's zeros.
void clearFree(const QueueBlock& block) {
  const oss::RingState state = block.state();
  const std::string zeros(state.free(), '\0');
  block.ring().copyIn(state, state.writeOffset, zeros.data(), zeros.size());
}

void compare(Input& input) {
  const uint64_t capacity = 8 + input.below(600) * 8;
  const QueueBlock block(capacity);
  block.startAt(input.below(600) * 8 % capacity);
  Model model(capacity);
  NoSleep sleep;
  for (int step = 0; step < 24 && !input.isEmpty(); ++step) {
    const uint8_t choice = input.byte();
    if (choice < 120) {
      std::string message(input.below(6000), '\0');
      for (size_t i = 0; i < message.size(); ++i) message[i] = static_cast<char>(choice + i * 3);
      clearFree(block);
      const oss::TransferEnd end =
          oss::putMessage(block.ring(), sleep, message.data(), message.size());
      require(end.probe == model.put(message));
    } else if (choice < 250) {
      const uint64_t bufferSize = input.below(6000);
      const bool wasEmpty = model.unread() == 0;
      std::string expected, buffer(bufferSize, '\0');
      uint64_t length = 0;
      const uint64_t probe = model.get(bufferSize, expected);
      const oss::TransferEnd end =
          oss::getMessage(block.ring(), sleep, buffer.data(), bufferSize, &length, 0);
      require(end.probe == probe);
      require((end.rc == ECF_QUE_INVALID_MSG_TYPE) == wasEmpty);
      require(buffer.compare(0, expected.size(), expected) == 0);
    } else {
      block.ring().clear();
      model.flush();
    }
    require(block.state().isSound(capacity) && block.state().used() == model.unread());
  }
}

// ---- Garbage ----

// Overwrites the header, but for the latches, and wakes the sleeper, as long as there is input.
class HostileSleep final : public oss::QueueSleep {
 public:
  HostileSleep(Input& input, const QueueBlock& block) : input_(input), block_(block) {}

  OSSErr awaitData(uint32_t) noexcept override { return meddle(); }
  OSSErr awaitSpace(uint32_t) noexcept override { return meddle(); }
  OSSErr postData() noexcept override { return meddle(); }
  OSSErr postSpace() noexcept override { return meddle(); }

  OSSErr meddle() {
    if (input_.isEmpty() || --patience_ < 0) return ECF_FAILED;
    OSSIPCQueueHeader& header = block_.header();
    const auto number = [&]() -> uint64_t {
      const uint8_t kind = input_.byte();
      if (kind < 200) return input_.below(2) != 0 ? kind & 0xF8U : kind;
      return (uint64_t{0} - 128) + kind / 2;
    };
    const uint8_t which = input_.byte();
    if ((which & 1) != 0) header.capacity = number();
    if ((which & 2) != 0) header.writeOffset = number();
    if ((which & 4) != 0) header.readOffset = number();
    if ((which & 8) != 0) header.writerWaiting = input_.byte();
    if ((which & 16) != 0) header.readerWaiting = input_.byte();
    if ((which & 32) != 0) header.notEmpty = input_.byte();
    return ECF_OK;
  }

 private:
  Input& input_;
  const QueueBlock& block_;
  int patience_ = 20;
};

void endure(Input& input) {
  const uint64_t capacity = input.below(32) * 8;
  const QueueBlock block(capacity, capacity + input.below(3));
  HostileSleep sleep(input, block);
  while (sleep.meddle() == ECF_OK) {
    std::string message(input.below(3000), 'm');
    if (input.below(2) != 0) {
      oss::putMessage(block.ring(), sleep, message.data(), message.size());
    } else {
      uint64_t length = 0;
      oss::getMessage(block.ring(), sleep, message.data(), message.size(), &length, input.below(2));
    }
    require(block.header().putLatch == 0 && block.header().getLatch == 0 &&
            block.header().stateLatch == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  if (input.byte() % 2 == 0)
    compare(input);
  else
    endure(input);
  return 0;
}
