// Sets, deletes and tests what the bytes say in a trace mask and in a model of it. What must hold:
// both answer the same, the counts of points agree, and every node of the table is in its place.
#include <cstdint>
#include <memory>

#include "tests/fuzz/require.h"
#include "tests/trace/gtmmaskmodel.h"

using namespace oss::gtm_model;

namespace {

constexpr size_t kStepBytes = 6;
constexpr size_t kMostSteps = 64;

// Small numbers, the largest ones, and in between what stands for all and what there is no room
// for.
uint64_t numberFrom(uint8_t byte, uint64_t end) {
  if (byte < 128) return byte;
  if (byte < 192) return end + 32 - (byte - 128U);
  if (byte < 208) return GTM_ALL;
  return uint64_t{0} - (byte - 192U);
}

struct Step {
  uint8_t choice, product, component, function, functionHigh, last;
};

class Masks {
 public:
  void clear() {
    mask_->gtmClearMask();
    model_->clear();
  }

  void take(const Step& step) {
    // Bit 7 makes a product or component of all rare: it takes long.
    const bool mayBeAll = step.choice >> 7 != 0;
    const uint64_t product = mayBeAll ? numberFrom(step.product, 32) : step.product % 5;
    const uint64_t component = mayBeAll ? numberFrom(step.component, 192) : step.component;
    const uint64_t function = step.functionHigh < 128
                                  ? numberFrom(step.function, 4096)
                                  : step.function | (step.functionHigh & 0x1FU) << 8;
    const bool isPoint = (step.choice & 4) != 0;
    const uint64_t last = numberFrom(step.last, isPoint ? 65536 : 16);
    const uint64_t flags = step.choice >> 3 & 3;

    if ((step.choice & 3) == 0)
      require(mask_->gtmDelMask(product, component, function, last, isPoint) ==
              model_->del(product, component, function, last, isPoint));
    else
      require(mask_->gtmSetMask(product, component, function, last, isPoint, flags) ==
              model_->set(product, component, function, last, isPoint, flags));

    const uint32_t id = idOf(product & 31, component & 255, function & 0xFFFF);
    for (const uint64_t type : {uint64_t{3}, uint64_t{6}, last})
      for (const uint64_t probe : {uint64_t{0}, last})
        compare(id, static_cast<uint16_t>(type), static_cast<uint16_t>(probe));
    require(tableOf(*mask_).points == model_->points());
    require(tableOf(*mask_).excludedPoints == model_->excludedPoints());
  }

  void compareTables() const {
    require(faultOf(tableOf(*mask_)).empty());
    require(pointsIn(tableOf(*mask_)) == model_->allPoints());
  }

 private:
  void compare(uint32_t id, uint16_t type, uint16_t probe) const {
    require(mask_->gtmIsElemInMask(id, type, probe) == model_->isIn(id, type, probe));
  }

  std::unique_ptr<GTM_TRC_MASK> mask_ = std::make_unique<GTM_TRC_MASK>();
  std::unique_ptr<MaskModel> model_ = std::make_unique<MaskModel>();
};

}  // namespace

// Six bytes are one step.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Masks masks;  // so large that to make it anew takes longer than to use it
  masks.clear();
  for (size_t step = 0; step < kMostSteps && size >= kStepBytes; ++step) {
    masks.take({data[0], data[1], data[2], data[3], data[4], data[5]});
    data += kStepBytes;
    size -= kStepBytes;
  }
  masks.compareTables();
  return 0;
}
