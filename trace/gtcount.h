// gtcount.h - the function-count mode: a table of calls instead of a ring of records, and for each
// thread a stack of the calls that it is in, by which they are timed.
//
// Always true: an entry of the table, once claimed, keeps its function until the table is cleared.
// Counts and ticks are added without a lock or an atomic step; calls that come at once may be lost.
#pragma once

#include <span>

#include "osstrace.h"

namespace oss {

using FunctionCounts = std::span<GTraceFunctionCount>;

// The entry of a function; null when there is none among the places where it may stand.
// `claim` takes a free place for it.
GTraceFunctionCount* findFunction(FunctionCounts table, uint32_t funcId, bool claim) noexcept;

class CallStack {
 public:
  // A call too deep is not kept, and so not timed.
  void push(uint32_t funcId, uint64_t ticks) noexcept;

  // Ends every call of the function, and what they called: the stack is cut at the lowest of them.
  // Returns the ticks of all its calls, nested ones each with their own.
  uint64_t pop(uint32_t funcId, uint64_t ticks) noexcept;

  CallStack* next = nullptr;  // of the list of all stacks

 private:
  static constexpr uint32_t kDepth = 512;

  struct Call {
    uint32_t funcId;
    uint64_t ticks;
  };

  uint32_t depth_ = 0;
  Call calls_[kDepth];
};

}  // namespace oss
