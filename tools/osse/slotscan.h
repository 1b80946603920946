// slotscan.h - what every slot of a dump is, also those that the parser passes over.
//
// A slot begins a record, belongs to the record before it, was never written, or is rejected for
// one reason. What is rejected advances the scan by one slot, a record by its length, just as the
// parser walks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ossrambo.h"

namespace oss::tool {

enum class Reject { NotARecord, SlotCount, CutOff, Trailer, Stale };
inline constexpr size_t kRejects = 5;

class SlotScan {
 public:
  // The sequence numbers that an instantaneous dump can hold: the last `slots` before `counter`.
  struct Window {
    uint32_t counter;
    uint32_t slots;
  };

  // \param window  null: every sequence number is as good as another
  explicit SlotScan(const Window* window) {
    if (window != nullptr) window_ = *window;
  }

  // Looks at the slots in hand. A record that does not end in them is left for the next call,
  // unless these are the last.
  // \return bytes that are done with: whole slots
  size_t scan(const char* data, size_t size, bool isLast);

  uint64_t slots() const { return slots_; }
  uint64_t records() const { return records_; }
  uint64_t recordSlots() const { return recordSlots_; }
  uint64_t neverWritten() const { return neverWritten_; }
  uint64_t rejected(Reject why) const { return rejected_[static_cast<size_t>(why)]; }

 private:
  bool isStale(uint32_t sequence) const {
    return window_.slots != 0 && window_.counter - sequence - 1 >= window_.slots;
  }
  void reject(Reject why) {
    ++rejected_[static_cast<size_t>(why)];
    ++slots_;
  }

  Window window_{};
  uint64_t slots_ = 0;
  uint64_t records_ = 0;
  uint64_t recordSlots_ = 0;
  uint64_t neverWritten_ = 0;
  uint64_t rejected_[kRejects] = {};
};

}  // namespace oss::tool
