// startline.h - lets threads start together.
//
// std::barrier is not used: where the system has no futex, GCC 12's reads the barrier's phase
// before it takes the lock under which it waits, so that a thread can sleep through the last
// arrival.
#pragma once

#include <atomic>
#include <thread>

namespace osse_test {

class StartLine {
 public:
  explicit StartLine(int threads) : missing_(threads) {}

  // Returns once all threads have come. Used once by each of them.
  void pass() {
    --missing_;
    while (missing_ > 0) std::this_thread::yield();
  }

 private:
  std::atomic<int> missing_;
};

}  // namespace osse_test
