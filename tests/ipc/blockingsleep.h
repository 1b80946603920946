// blockingsleep.h - the semaphores of a message queue between threads of one process, on any
// system.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "ipc/ossqueuetransfer.h"

namespace osse_test {

// A counting semaphore, as the library's are. A count above 1 would be a post without a sleeper.
class BlockingSemaphore {
 public:
  void wait() {
    std::unique_lock lock(mutex_);
    posted_.wait(lock, [&] { return count_ != 0; });
    --count_;
  }
  void post() {
    const std::lock_guard lock(mutex_);
    EXPECT_EQ(++count_, 1);
    posted_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable posted_;
  int count_ = 0;
};

class BlockingSleep final : public oss::QueueSleep {
 public:
  OSSErr awaitData(uint32_t) noexcept override { return data.wait(), ECF_OK; }
  OSSErr awaitSpace(uint32_t) noexcept override { return space.wait(), ECF_OK; }
  OSSErr postData() noexcept override { return data.post(), ECF_OK; }
  OSSErr postSpace() noexcept override { return space.post(), ECF_OK; }

  BlockingSemaphore data, space;
};

}  // namespace osse_test
