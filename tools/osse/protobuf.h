// protobuf.h - messages in the wire format of Protocol Buffers, encoded into a memory of the
// caller's.
//
//   field: key (number << 3 | wire type) as a varint, then a varint (type 0) or length and bytes
//   (type 2). A varint has seven bits a byte, the lowest first, and bit 7 on all but the last.
//
// A nested message is closed with its length in front, which has a fixed width of three bytes:
// longer than it need be, and just as valid.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace oss::tool {

class Protobuf {
 public:
  // A message that was begun; end() closes the innermost.
  using Mark = char*;

  // What a nested message's bytes stay below.
  static constexpr size_t kLargestMessage = size_t{1} << 21;

  explicit Protobuf(char* out) : out_(out) {}

  char* position() const { return out_; }

  void number(uint32_t field, uint64_t value) {
    varint(uint64_t{field} << 3);
    varint(value);
  }

  void text(uint32_t field, std::string_view value) {
    varint(uint64_t{field} << 3 | kBytes);
    varint(value.size());
    std::memcpy(out_, value.data(), value.size());
    out_ += value.size();
  }

  Mark begin(uint32_t field) {
    varint(uint64_t{field} << 3 | kBytes);
    const Mark mark = out_;
    out_ += kLengthWidth;
    return mark;
  }

  void end(Mark mark) const {
    const auto length = static_cast<uint64_t>(out_ - mark) - kLengthWidth;
    mark[0] = static_cast<char>(length | 0x80);
    mark[1] = static_cast<char>(length >> 7 | 0x80);
    mark[2] = static_cast<char>(length >> 14);
  }

 private:
  static constexpr uint64_t kBytes = 2;
  static constexpr size_t kLengthWidth = 3;

  void varint(uint64_t value) {
    while (value >= 0x80) {
      *out_++ = static_cast<char>(value | 0x80);
      value >>= 7;
    }
    *out_++ = static_cast<char>(value);
  }

  char* out_;
};

}  // namespace oss::tool
