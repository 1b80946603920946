// input.h - a fuzzer's input, from its front.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

// Behind the input's end numbers are 0 and there are no bytes.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : bytes_(reinterpret_cast<const char*>(data), size) {}

  template <class T>
  T take() {
    T value = 0;
    moveTo(&value, std::min(sizeof value, bytes_.size()));
    return value;
  }

  // A block of its own, exactly as long as it says, so that no byte behind it can be read.
  std::unique_ptr<uint8_t[]> takeBlock(size_t& size) {
    size = std::min(size, bytes_.size());
    auto block = std::make_unique<uint8_t[]>(size);
    moveTo(block.get(), size);
    return block;
  }

  std::string_view rest() const { return bytes_; }
  bool isEmpty() const { return bytes_.empty(); }

 private:
  void moveTo(void* out, size_t count) {
    if (count != 0) std::memcpy(out, bytes_.data(), count);
    bytes_.remove_prefix(count);
  }

  std::string_view bytes_;
};
