#include "fault/osscapturemark.h"

#include <algorithm>
#include <iterator>

namespace oss {
namespace {

// No thread has the identifier 0. A thread looks for its own identifier only, so nothing is ordered
// between two of them.
constinit std::atomic<uint32_t> g_threads[kMostCaptureMarks] = {};

bool isMarked(uint32_t thread) noexcept {
  return std::any_of(std::begin(g_threads), std::end(g_threads), [thread](const auto& place) {
    return place.load(std::memory_order_relaxed) == thread;
  });
}

}  // namespace

CaptureMark::CaptureMark(uint32_t thread) noexcept : isNested_(isMarked(thread)) {
  if (isNested_) return;

  for (std::atomic<uint32_t>& place : g_threads) {
    uint32_t free = 0;
    if (!place.compare_exchange_strong(free, thread, std::memory_order_relaxed)) continue;
    place_ = &place;
    return;
  }
}

CaptureMark::~CaptureMark() {
  if (place_ != nullptr) place_->store(0, std::memory_order_relaxed);
}

}  // namespace oss
