// The process-wide spin tuning: its table by processors, and the exported copies in and out.
#include "numeric/ossspintuning.h"

namespace oss {

constinit SpinState g_spinState;

namespace {

constexpr uint32_t OSSSpinTune::*kFields[] = {
    &OSSSpinTune::reserved0, &OSSSpinTune::spinCount,      &OSSSpinTune::spinDelay,
    &OSSSpinTune::reserved3, &OSSSpinTune::sleepIncrement,
};

// Spinning pays only where the holder can run at the same time.
constexpr OSSSpinTune tuningFor(uint32_t processors) noexcept {
  if (processors <= 1) return {};
  if (processors == 2) return {.reserved0 = 2, .spinCount = 10, .spinDelay = 50};
  if (processors <= 4) return {.reserved0 = 5, .spinCount = 20, .spinDelay = 50};
  return {.reserved0 = 5, .spinCount = 30, .spinDelay = 50};
}

}  // namespace

void initializeSpinTuning(uint32_t processors) noexcept {
  OSSLatch::updateSpinCounts(tuningFor(processors));
  g_spinState.processors = processors;
  g_spinState.initialized = 1;
}

}  // namespace oss

void OSSLatch::updateSpinCounts(const OSSSpinTune& tune) noexcept {
  for (const auto field : oss::kFields)
    __atomic_store_n(&(oss::g_spinState.tune.*field), tune.*field, __ATOMIC_RELAXED);
}

void OSSLatch::getSpinCounts(OSSSpinTune& tune) noexcept {
  for (const auto field : oss::kFields) tune.*field = oss::tuned(field);
}
