// bytes.h - the bytes of a file that may end anywhere, and records taken from them.
//
// Always true: nothing outside the bytes is read, whatever offset is asked for.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace oss::tool {

class Bytes {
 public:
  explicit Bytes(std::string_view bytes) : bytes_(bytes) {}

  uint64_t size() const { return bytes_.size(); }
  // How many bytes lie at the offset and behind it.
  uint64_t left(uint64_t offset) const { return offset < size() ? size() - offset : 0; }

  // At most `count` bytes, fewer at the end.
  std::string_view piece(uint64_t offset, uint64_t count) const {
    const uint64_t there = std::min(count, left(offset));
    return there == 0 ? std::string_view() : bytes_.substr(offset, there);
  }

  // Nothing, when it does not lie in the bytes as a whole.
  template <class Value>
  std::optional<Value> get(uint64_t offset) const {
    if (left(offset) < sizeof(Value)) return std::nullopt;
    Value value;
    std::memcpy(&value, bytes_.data() + offset, sizeof value);
    return value;
  }

 private:
  std::string_view bytes_;
};

// A record of which the end may be cut off; what is not there is zero.
template <class Record>
struct Part {
  Record value{};
  uint64_t bytes = 0;

  Part() = default;
  Part(const Bytes& file, uint64_t offset) {
    const std::string_view there = file.piece(offset, sizeof value);
    bytes = there.size();
    if (bytes != 0) std::memcpy(static_cast<void*>(&value), there.data(), bytes);
  }

  bool isWhole() const { return bytes == sizeof value; }

  // Whether this member lies before the cut.
  template <class Member>
  bool holds(Member Record::*member) const {
    const auto* const record = reinterpret_cast<const char*>(&value);
    const auto* const end = reinterpret_cast<const char*>(&(value.*member)) + sizeof(Member);
    return static_cast<uint64_t>(end - record) <= bytes;
  }
};

}  // namespace oss::tool
