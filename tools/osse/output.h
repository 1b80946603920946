// output.h - where a command's text goes: a large buffer in front of a file, or of a test's string.
//
// A writer asks for room, fills it with the functions of digits.h and says where it ended:
//
//   char* out = output.room(64);
//   out = putDecimal(out, value);
//   output.end(out);
//
// Always true: what was ended is in the buffer or with the sink, in order. The first write that the
// sink refuses is remembered, and the rest is dropped. One thread uses an output.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

namespace oss::tool {

class Output {
 public:
  // Takes `size` bytes; false when they could not be written.
  using Sink = bool (*)(void* target, const char* data, size_t size);

  static constexpr size_t kLargestRoom = size_t{96} << 10;

  Output(Sink sink, void* target)
      : sink_(sink), target_(target), buffer_(new char[kBuffer]), next_(buffer_.get()) {}
  ~Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Room for `size` bytes, at most kLargestRoom.
  char* room(size_t size) {
    if (size > left()) [[unlikely]]
      flush();
    return next_;
  }
  void end(char* behind) { next_ = behind; }

  void write(std::string_view text) {
    if (text.size() > left()) [[unlikely]] {
      flush();
      if (text.size() > kBuffer) return pass(text.data(), text.size());
    }
    std::memcpy(next_, text.data(), text.size());
    next_ += text.size();
  }

  // Hands everything to the sink. \return false when it has refused anything so far
  bool flush() {
    const auto size = static_cast<size_t>(next_ - buffer_.get());
    next_ = buffer_.get();
    if (size != 0) pass(next_, size);
    return !failed_;
  }

  bool failed() const { return failed_; }

 private:
  static constexpr size_t kBuffer = size_t{1} << 19;

  size_t left() const { return kBuffer - static_cast<size_t>(next_ - buffer_.get()); }
  void pass(const char* data, size_t size) {
    if (!failed_) failed_ = !sink_(target_, data, size);
  }

  Sink sink_;
  void* target_;
  std::unique_ptr<char[]> buffer_;
  char* next_;
  bool failed_ = false;
};

}  // namespace oss::tool
