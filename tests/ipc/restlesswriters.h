// restlesswriters.h - a queue whose state never rests: for the length of a scope, two threads move
// the write offset from one sound place to the next. There are two of them so that one runs beside
// the test, not in turn with it, on a machine of two processors.
#pragma once

#include <array>
#include <atomic>
#include <thread>

#include "ossipcqueueheader.h"

namespace osse_test {

class RestlessWriters {
 public:
  explicit RestlessWriters(OSSIPCQueueHeader& header) {
    header.notEmpty = 1;
    for (std::thread& thread : threads_)
      thread = std::thread([this, &header] {
        const std::atomic_ref offset(header.writeOffset);
        while (!isOver_) offset.store((offset.load() + 8) % header.capacity);
      });
  }
  ~RestlessWriters() {
    isOver_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  RestlessWriters(const RestlessWriters&) = delete;
  RestlessWriters& operator=(const RestlessWriters&) = delete;

 private:
  std::atomic<bool> isOver_ = false;
  std::array<std::thread, 2> threads_;
};

}  // namespace osse_test
