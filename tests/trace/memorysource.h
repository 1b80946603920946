// memorysource.h - a file in memory for the parser of trace dumps. It can be cut anywhere, at any
// time, and can refuse one of its calls.
#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>

#include "osscatalog.h"
#include "trace/dumpsource.h"

namespace oss::dumps {

class MemorySource final : public DumpSource {
 public:
  // The bytes stay the caller's.
  explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}

  OSSErr read(void* to, uint64_t size, uint64_t* count) noexcept override {
    *count = 0;
    ++reads;
    mostRead = std::max(mostRead, size);
    if (isRefused()) return ECF_UNKNOWN;
    *count = std::min(size, bytes_.size() - std::min<uint64_t>(position_, bytes_.size()));
    if (*count != 0) std::memcpy(to, bytes_.data() + position_, *count);
    position_ += *count;
    return ECF_OK;
  }

  OSSErr seek(uint64_t position) noexcept override {
    if (isRefused()) return ECF_UNKNOWN;
    if (position > bytes_.size()) return ECF_FILE_SEEK_BEYOND_EOF;
    position_ = position;
    return ECF_OK;
  }

  OSSErr tell(uint64_t* position) noexcept override {
    if (isRefused()) return ECF_UNKNOWN;
    *position = position_;
    return ECF_OK;
  }

  OSSErr size(uint64_t* bytes) noexcept override {
    if (isRefused()) return ECF_UNKNOWN;
    *bytes = bytes_.size();
    return ECF_OK;
  }

  void cutTo(uint64_t bytes) { bytes_ = bytes_.substr(0, bytes); }

  // Refuses the call with that number, counted from 1, once.
  void refuse(uint64_t call) { refused_ = calls_ + call; }
  bool hasRefused() const { return refused_ != 0 && calls_ >= refused_; }

  uint64_t position() const { return position_; }

  uint64_t reads = 0;
  uint64_t mostRead = 0;  // bytes that one call asked for

 private:
  bool isRefused() { return ++calls_ == refused_; }

  std::string_view bytes_;
  uint64_t position_ = 0;
  uint64_t calls_ = 0;
  uint64_t refused_ = 0;
};

}  // namespace oss::dumps
