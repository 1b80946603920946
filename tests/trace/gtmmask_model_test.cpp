// A mask and a model of it, through a million random steps.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "tests/trace/gtmmaskmodel.h"

using namespace oss::gtm_model;

namespace {

constexpr uint32_t kSteps = 1'000'000;
constexpr uint32_t kStepsBetweenComparisons = 20'000;
constexpr uint64_t kHighBits = 0xABCD'0000'0000'0000;

class GtmMaskModel : public testing::Test {
 protected:
  GtmMaskModel() { mask_->gtmClearMask(); }

  uint64_t below(uint64_t end) { return random_() % end; }
  bool oneIn(uint64_t turns) { return below(turns) == 0; }
  template <size_t count>
  uint64_t oneOf(const uint64_t (&values)[count]) {
    return values[below(count)];
  }

  // Mostly numbers that there are, now and then all, and some that there are not.
  uint64_t product() {
    if (oneIn(5000)) return GTM_ALL;
    if (oneIn(5000)) return kHighBits | GTM_ALL;
    if (oneIn(20)) return oneOf({0, 4, 31, 32, 255, kHighBits | 1, 1ULL << 32, ~1ULL});
    return 1 + below(3);
  }
  uint64_t component() {
    if (oneIn(2000)) return GTM_ALL;
    if (oneIn(10))
      return oneOf({0, 31, 32, 33, 63, 64, 191, 192, 223, 224, 255, 256, 257, ~64ULL + 1,
                    ~32ULL + 1, ~0ULL - 1, 1ULL << 32, kHighBits | 3});
    return below(6);
  }
  uint64_t function() {
    if (oneIn(60)) return GTM_ALL;
    if (oneIn(10)) return oneOf({0, 1024, 4095, 4096, 65535, 65536, 65541, 1ULL << 32});
    return below(4) * 1024 + below(40);
  }
  uint64_t type() {
    if (oneIn(8)) return GTM_ALL;
    if (oneIn(10)) return oneOf({15, 16, 17, 64, 1ULL << 32, kHighBits | 3});
    return below(16);
  }
  uint64_t probe() { return oneIn(20) ? oneOf({0, 65534, 65535, 65536 + 3}) : below(12); }
  uint64_t flags() { return oneOf({0, 0, 0, GTM_EXCLUDED, 1, ~0ULL, kHighBits}); }

  void setSomething(bool isPoint) {
    const uint64_t p = product(), c = component(), f = function();
    const uint64_t last = isPoint ? probe() : type(), options = isPoint | below(2) << 1;
    const uint64_t itsFlags = flags();
    ASSERT_EQ(mask_->gtmSetMask(p, c, f, last, options, itsFlags),
              model_->set(p, c, f, last, isPoint, itsFlags))
        << p << ' ' << c << ' ' << f << ' ' << last << ' ' << options;
  }
  void deleteSomething(bool isPoint) {
    const uint64_t p = product(), c = component(), f = function();
    const uint64_t last = isPoint ? probe() : type(), options = isPoint | below(2) << 1;
    ASSERT_EQ(mask_->gtmDelMask(p, c, f, last, options), model_->del(p, c, f, last, isPoint))
        << p << ' ' << c << ' ' << f << ' ' << last << ' ' << options;
  }
  // Deletes the point of a random node, when it has one.
  void deleteAPointThatIsThere() {
    const GTMPoint& point = tableOf(*mask_).nodes[below(2000)];
    if (point.key == 0) return;
    const uint64_t p = point.key >> 27, c = point.key >> 19 & 255, f = point.key & 0xFFFF;
    const uint64_t atProbe = point.probe;
    ASSERT_TRUE(mask_->gtmDelMask(p, c, f, atProbe, GTM_POINT));
    ASSERT_TRUE(model_->del(p, c, f, atProbe, true));
  }
  void testSomething() {
    const uint32_t id = static_cast<uint32_t>(
        idOf(product() & 31, component() & 255, function() & 0xFFFF) | below(8) << 16);
    const auto ofType = static_cast<uint16_t>(type());
    const auto atProbe = static_cast<uint16_t>(probe());
    const bool isIn = mask_->gtmIsElemInMask(id, ofType, atProbe);
    ASSERT_EQ(isIn, model_->isIn(id, ofType, atProbe))
        << std::hex << id << ' ' << ofType << ' ' << atProbe;
    ++(isIn ? found_ : missed_);
  }

  void compareEverything() {
    const std::vector<uint8_t> expected = model_->bitmaps();
    const auto [actual, wanted] =
        std::mismatch(bytesOf(*mask_), bytesOf(*mask_) + kBitmapsEnd, expected.begin());
    ASSERT_EQ(wanted, expected.end()) << "byte " << wanted - expected.begin() << " is "
                                      << uint32_t{*actual} << ", not " << uint32_t{*wanted};
    ASSERT_EQ(faultOf(tableOf(*mask_)), "");
    ASSERT_EQ(pointsIn(tableOf(*mask_)), model_->allPoints());
  }

  std::unique_ptr<GTM_TRC_MASK> mask_ = std::make_unique<GTM_TRC_MASK>();
  std::unique_ptr<MaskModel> model_ = std::make_unique<MaskModel>();
  std::mt19937_64 random_{20040702};
  uint32_t found_ = 0;
  uint32_t missed_ = 0;
};

TEST_F(GtmMaskModel, RandomStepsLeaveTheMaskAsTheyLeaveTheModel) {
  uint32_t timesFull = 0, timesSparse = 0;
  for (uint32_t step = 1; step <= kSteps && !HasFatalFailure(); ++step) {
    // Phases that fill the table with points, and phases that empty it.
    const bool fills = step / 50'000 % 2 == 0;
    const uint64_t choice = below(20);
    if (choice < 6)
      setSomething(fills || oneIn(3));
    else if (choice < 9)
      deleteSomething(oneIn(2));
    else if (choice < (fills ? 11u : 16u))
      deleteAPointThatIsThere();
    else
      testSomething();

    ASSERT_EQ(tableOf(*mask_).points, model_->points()) << step;
    ASSERT_EQ(tableOf(*mask_).excludedPoints, model_->excludedPoints()) << step;
    timesFull += model_->points() == kRoomForPoints;
    timesSparse += model_->points() < 100;
    if (step % kStepsBetweenComparisons == 0) compareEverything();
  }

  // The walk has seen both answers often, and full and nearly empty tables.
  EXPECT_GT(found_, 20'000u);
  EXPECT_GT(missed_, 20'000u);
  EXPECT_GT(timesFull, 1000u);
  EXPECT_GT(timesSparse, 1000u);
  RecordProperty("found", static_cast<int>(found_));
  RecordProperty("missed", static_cast<int>(missed_));
  RecordProperty("timesSparse", static_cast<int>(timesSparse));
  RecordProperty("timesFull", static_cast<int>(timesFull));
}

}  // namespace
