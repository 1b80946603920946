#include "trace/gtcount.h"

#include <cmath>

#include "numeric/ossatomic.h"

namespace oss {

// Multiplicative hashing by the golden ratio; a step that depends on the function parts those that
// meet.
GTraceFunctionCount* findFunction(FunctionCounts table, uint32_t funcId, bool claim) noexcept {
  constexpr double kGoldenRatio = 0.618033989;
  constexpr uint32_t kStepPrime = 988'927;
  constexpr uint64_t kPlaces = 10;

  const uint64_t entries = table.size();
  const double product = funcId * kGoldenRatio;
  const double fraction = product - std::floor(product);
  const auto first = static_cast<uint64_t>(static_cast<double>(entries) * fraction);
  for (uint64_t place = 0; place < kPlaces; ++place) {
    GTraceFunctionCount& entry = table[(first + place * (funcId % kStepPrime)) % entries];
    uint32_t owner = __atomic_load_n(&entry.funcId, __ATOMIC_RELAXED);
    if (owner == 0 && claim) {
      owner = compareAndSwap(&entry.funcId, funcId, 0);
      if (owner == 0) return &entry;
    }
    if (owner == funcId) return &entry;
  }
  return nullptr;
}

void CallStack::push(uint32_t funcId, uint64_t ticks) noexcept {
  if (depth_ < kDepth) calls_[depth_++] = {funcId, ticks};
}

uint64_t CallStack::pop(uint32_t funcId, uint64_t ticks) noexcept {
  uint64_t spent = 0;
  for (uint32_t i = depth_; i-- != 0;) {
    if (calls_[i].funcId != funcId) continue;
    if (ticks > calls_[i].ticks) spent += ticks - calls_[i].ticks;
    depth_ = i;
  }
  return spent;
}

}  // namespace oss
