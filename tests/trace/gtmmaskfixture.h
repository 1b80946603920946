// gtmmaskfixture.h - a test's own mask, cleared, and short words for what is done with it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "tests/trace/gtmmaskview.h"

namespace oss::gtm_model {

inline constexpr uint64_t kAll = GTM_ALL;
inline constexpr uint64_t kOtherAll = 0x12345678'FFFFFFFF;  // only the low half counts
class MaskTest : public testing::Test {
 protected:
  MaskTest() {
    std::memset(static_cast<void*>(mask_.get()), 0xA5, sizeof(GTM_TRC_MASK));
    EXPECT_TRUE(mask().gtmClearMask());
  }

  GTM_TRC_MASK& mask() { return *mask_; }
  const GTMPointTable& table() const { return tableOf(*mask_); }

  bool setType(uint64_t prod, uint64_t comp, uint64_t func, uint64_t type) {
    return mask().gtmSetMask(prod, comp, func, type, 0, 0);
  }
  bool setPoint(uint64_t prod, uint64_t comp, uint64_t func, uint64_t probe, uint64_t flags = 0) {
    return mask().gtmSetMask(prod, comp, func, probe, GTM_POINT, flags);
  }
  bool delType(uint64_t prod, uint64_t comp, uint64_t func, uint64_t type) {
    return mask().gtmDelMask(prod, comp, func, type, 0);
  }
  bool delPoint(uint64_t prod, uint64_t comp, uint64_t func, uint64_t probe) {
    return mask().gtmDelMask(prod, comp, func, probe, GTM_POINT);
  }
  bool records(uint64_t prod, uint64_t comp, uint64_t func, uint16_t type, uint16_t probe = 0) {
    return mask().gtmIsElemInMask(idOf(prod, comp, func), type, probe);
  }

  // The bytes before the table, and of them those that are not 0, by offset.
  std::vector<uint8_t> bitmaps() const { return {bytesOf(*mask_), bytesOf(*mask_) + kBitmapsEnd}; }
  std::map<size_t, int> marks() const {
    std::map<size_t, int> marks;
    for (size_t offset = 0; offset < kBitmapsEnd; ++offset)
      if (const int byte = bytesOf(*mask_)[offset]; byte != 0) marks[offset] = byte;
    return marks;
  }
  bool isEmpty() const {
    const uint8_t* bytes = bytesOf(*mask_);
    return std::all_of(bytes, bytes + kBitmapsEnd, [](uint8_t byte) { return byte == 0; }) &&
           table().points == 0;
  }

  static size_t recordAt(size_t index) { return kRecordsAt + kRecordBytes * index; }

 private:
  std::unique_ptr<GTM_TRC_MASK> mask_ = std::make_unique<GTM_TRC_MASK>();
};

}  // namespace oss::gtm_model
