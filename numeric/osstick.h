// osstick.h - the frequency of the performance counter, asked for once.
#pragma once

#include <cstdint>

namespace oss {

// Remembers the answer to a query. Any thread at any time; all zero it is ready for use.
class TickFrequency {
 public:
  using Query = uint64_t() noexcept;  // 0 means that the query failed

  // The answer of the first call's query, or 1 if that failed; no later call asks again.
  uint64_t get(Query& query) noexcept;

 private:
  uint64_t ticksPerSecond_ = 0;
  bool cached_ = false;
  uint8_t latch_ = 0;  // guards the other two
};

}  // namespace oss
