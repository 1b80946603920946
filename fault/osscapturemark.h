// osscapturemark.h - the threads that are capturing a fault.
//
//   const CaptureMark mark(::GetCurrentThreadId());
//   if (mark.isNested()) return;
//
// A fault inside the capture reaches the host's vectored handler before it ends its section, and
// the handler captures again. On a thread that is marked it finds that out.
#pragma once

#include <atomic>
#include <cstdint>

namespace oss {

// More threads than this go on without a mark.
inline constexpr uint32_t kMostCaptureMarks = 64;

// Marks a thread, by the system's identifier, for the length of a scope. A thread that is killed in
// there leaves the mark to the next one with its identifier.
class CaptureMark {
 public:
  explicit CaptureMark(uint32_t thread) noexcept;
  ~CaptureMark();
  CaptureMark(const CaptureMark&) = delete;
  CaptureMark& operator=(const CaptureMark&) = delete;

  // True when the thread was marked before; that mark stays.
  bool isNested() const noexcept { return isNested_; }

 private:
  std::atomic<uint32_t>* place_ = nullptr;
  const bool isNested_;
};

}  // namespace oss
