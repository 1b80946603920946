// queueblock.h - the section of a message queue in memory of the process's own, exactly as long as
// it says, so that no byte behind it can be touched unseen; and semaphores that do what a test
// tells them to.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ipc/ossqueuetransfer.h"
#include "osscatalog.h"

namespace osse_test {

class QueueBlock {
 public:
  // `room` bytes behind the header, of which the ring takes `capacity`.
  QueueBlock(uint64_t capacity, uint64_t room)
      : room_(room), bytes_(std::make_unique<uint8_t[]>(sizeof(OSSIPCQueueHeader) + room)) {
    header().capacity = capacity;
  }
  explicit QueueBlock(uint64_t capacity) : QueueBlock(capacity, capacity) {}

  OSSIPCQueueHeader& header() const { return *reinterpret_cast<OSSIPCQueueHeader*>(bytes_.get()); }
  uint8_t* ringBytes() const { return bytes_.get() + sizeof(OSSIPCQueueHeader); }
  oss::QueueRing ring() const { return {&header(), room_}; }

  oss::RingState state() const {
    oss::RingState state = {};
    static_cast<void>(ring().read(state));
    return state;
  }

  // As a ring that has been in use: empty, and both offsets there.
  void startAt(uint64_t offset) const {
    header().writeOffset = offset;
    header().readOffset = offset;
  }

  std::string contents() const {
    return {reinterpret_cast<const char*>(ringBytes()), static_cast<size_t>(room_)};
  }

 private:
  uint64_t room_;
  std::unique_ptr<uint8_t[]> bytes_;
};

// Semaphores that note what is asked of them. What a sleep or a post does and answers stands in the
// script, in order; behind its end, sleeps fail and posts succeed.
class ScriptedSleep final : public oss::QueueSleep {
 public:
  using Step = std::function<OSSErr()>;

  ScriptedSleep() = default;
  explicit ScriptedSleep(std::vector<Step> script) : script_(std::move(script)) {}

  OSSErr awaitData(uint32_t milliseconds) noexcept override {
    return next("awaitData " + std::to_string(milliseconds), ECF_FAILED);
  }
  OSSErr awaitSpace(uint32_t milliseconds) noexcept override {
    return next("awaitSpace " + std::to_string(milliseconds), ECF_FAILED);
  }
  OSSErr postData() noexcept override { return next("postData", ECF_OK); }
  OSSErr postSpace() noexcept override { return next("postSpace", ECF_OK); }

  const std::vector<std::string>& events() const { return events_; }

 private:
  OSSErr next(std::string event, OSSErr otherwise) {
    events_.push_back(std::move(event));
    return at_ < script_.size() ? script_[at_++]() : otherwise;
  }

  std::vector<Step> script_;
  size_t at_ = 0;
  std::vector<std::string> events_;
};

}  // namespace osse_test
