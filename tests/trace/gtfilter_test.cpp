// The filters of a trace point, one by one and in their order.
#include "trace/gtfilter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "osscatalog.h"
#include "osstracerecord.h"

using namespace oss;
using testing::ElementsAre;

namespace {

constexpr uint32_t kProcess = 4711;
constexpr uint64_t kThread = 0x1'0000'0007;
// Product 5, component 130, class 6, function 1,234.
constexpr uint32_t kFunction = 5U << 27 | 130U << 19 | 6U << 16 | 1'234;
constexpr uint16_t kType = GTRACE_DATA;

class TraceFilterTest : public testing::Test {
 protected:
  // Bit `bit` of the bitmap at that offset of the options.
  void setBit(size_t offset, size_t bit) {
    uint8_t& byte = bytes()[offset + bit / 8];
    byte = static_cast<uint8_t>(byte | 1U << bit % 8);
  }
  void clearBit(size_t offset, size_t bit) {
    uint8_t& byte = bytes()[offset + bit / 8];
    byte = static_cast<uint8_t>(byte & ~(1U << bit % 8));
  }

  void setThreads(const std::vector<GTraceThreadFilter>& entries) {
    options_->threadFilters = static_cast<uint32_t>(entries.size());
    std::copy(entries.begin(), entries.end(), options_->threads);
  }

  bool passes(uint32_t flags, const TracePoint& point) const {
    return passesFilters(*options_, flags, point);
  }
  bool passes(uint32_t flags) const { return passes(flags, point_); }
  bool passesThread(uint64_t thread) const {
    TracePoint point = point_;
    point.threadId = thread;
    return passes(GTRACE_FILTER_THREADS, point);
  }

  uint8_t* bytes() { return reinterpret_cast<uint8_t*>(options_.get()); }

  std::unique_ptr<GTraceOptions> options_ = std::make_unique<GTraceOptions>();
  TracePoint point_ = {kThread, kProcess, kFunction, kType, 10};
};

TEST_F(TraceFilterTest, WithoutAFilterEverythingPasses) {
  EXPECT_TRUE(passes(0));
  EXPECT_TRUE(passes(
      ~(GTRACE_FILTER_BITMAPS | GTRACE_FILTER_THREADS | GTRACE_FILTER_MASK | GTRACE_ERRORS_ONLY)));
}

TEST_F(TraceFilterTest, ErrorsOnlyLeavesFiveTypes) {
  std::vector<uint16_t> passed;
  for (uint32_t type = 0; type <= 0xFFFF; ++type) {
    point_.type = static_cast<uint16_t>(type);
    if (passes(GTRACE_ERRORS_ONLY)) passed.push_back(point_.type);
  }
  EXPECT_THAT(passed, ElementsAre(2, 4, 5, 11, 13));
}

// ---- Process and thread ----

TEST_F(TraceFilterTest, NoEntryMeansNobody) {
  EXPECT_FALSE(passes(GTRACE_FILTER_THREADS));
  // Behind the entries in use one is not looked at.
  options_->threads[0] = {GTRACE_MATCH_PROCESS, kProcess, 0};
  EXPECT_FALSE(passes(GTRACE_FILTER_THREADS));
}

TEST_F(TraceFilterTest, AProcessPassesWithAllItsThreads) {
  setThreads({{GTRACE_MATCH_PROCESS, kProcess, kThread}});
  EXPECT_TRUE(passesThread(kThread));
  EXPECT_TRUE(passesThread(0));
  point_.processId = kProcess + 1;
  EXPECT_FALSE(passesThread(kThread));
}

TEST_F(TraceFilterTest, AThreadPassesByAll64Bits) {
  setThreads({{GTRACE_MATCH_PROCESS | GTRACE_MATCH_THREAD, kProcess, kThread}});
  EXPECT_TRUE(passesThread(kThread));
  EXPECT_FALSE(passesThread(kThread & 0xFFFFFFFF));
  EXPECT_FALSE(passesThread(kThread + 1));
}

TEST_F(TraceFilterTest, AnEntryThatDoesNotMatchProcessesIsPassedOver) {
  setThreads({{GTRACE_MATCH_THREAD, kProcess, kThread}});
  EXPECT_FALSE(passesThread(kThread));

  setThreads({{GTRACE_MATCH_THREAD, kProcess, kThread + 1},
              {0, kProcess, 0},
              {GTRACE_MATCH_PROCESS, kProcess + 1, 0},
              {GTRACE_MATCH_PROCESS, kProcess, 0}});
  EXPECT_TRUE(passesThread(kThread));
}

TEST_F(TraceFilterTest, TheFirstEntryOfAProcessDecides) {
  setThreads({{GTRACE_MATCH_PROCESS | GTRACE_MATCH_THREAD, kProcess, kThread + 1},
              {GTRACE_MATCH_PROCESS, kProcess, 0}});
  EXPECT_FALSE(passesThread(kThread));
  EXPECT_TRUE(passesThread(kThread + 1));

  setThreads({{GTRACE_MATCH_PROCESS, kProcess, 0},
              {GTRACE_MATCH_PROCESS | GTRACE_MATCH_THREAD, kProcess, kThread + 1}});
  EXPECT_TRUE(passesThread(kThread));
}

TEST_F(TraceFilterTest, ThereAreFiveEntriesWhateverTheCountSays) {
  setThreads({{}, {}, {}, {}, {GTRACE_MATCH_PROCESS, kProcess, 0}});
  EXPECT_TRUE(passes(GTRACE_FILTER_THREADS));

  options_->threads[4].processId = 1;
  // What would be a sixth and matching entry.
  const GTraceThreadFilter sixth = {GTRACE_MATCH_PROCESS, kProcess, 0};
  std::memcpy(bytes() + 120, &sixth, sizeof sixth);
  for (const uint32_t count : {6u, 7u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    options_->threadFilters = count;
    EXPECT_FALSE(passes(GTRACE_FILTER_THREADS)) << count;
  }
}

// ---- Bitmaps ----

constexpr size_t kTypes = 120, kProducts = 122, kComponents = 126, kFunctions = 158, kClasses = 670;

class TraceBitmapTest : public TraceFilterTest {
 protected:
  TraceBitmapTest() {
    for (const Bit& bit : kBits) setBit(bit.offset, bit.bit);
  }

  bool passes() const { return TraceFilterTest::passes(GTRACE_FILTER_BITMAPS); }

  struct Bit {
    size_t offset;
    size_t bit;
  };
  static constexpr Bit kBits[] = {
      {kProducts, 5}, {kTypes, kType}, {kComponents, 130}, {kFunctions, 1'234}, {kClasses, 6}};
};

TEST_F(TraceBitmapTest, APointPassesByFiveBits) {
  EXPECT_TRUE(passes());
  for (const Bit& bit : kBits) {
    clearBit(bit.offset, bit.bit);
    EXPECT_FALSE(passes()) << "offset " << bit.offset;
    setBit(bit.offset, bit.bit);
  }
}

TEST_F(TraceBitmapTest, NoOtherBitMatters) {
  std::memset(bytes() + kTypes, 0xFF, 552);
  for (const Bit& bit : kBits) {
    clearBit(bit.offset, bit.bit);
    EXPECT_FALSE(passes()) << "offset " << bit.offset;
    setBit(bit.offset, bit.bit);
  }
}

TEST_F(TraceBitmapTest, EveryBitOfEveryBitmapHasItsPlace) {
  const auto passesOnlyBy = [&](size_t offset, size_t bits, auto change) {
    for (size_t bit = 0; bit < bits; ++bit) {
      std::memset(bytes() + kTypes, 0xFF, 552);
      change(static_cast<uint32_t>(bit));
      EXPECT_TRUE(passes());
      clearBit(offset, bit);
      EXPECT_FALSE(passes()) << "offset " << offset << " bit " << bit;
    }
  };
  passesOnlyBy(kTypes, 16, [&](uint32_t bit) { point_.type = static_cast<uint16_t>(bit); });
  passesOnlyBy(kProducts, 32, [&](uint32_t bit) { point_.funcId = bit << 27; });
  passesOnlyBy(kComponents, 256, [&](uint32_t bit) { point_.funcId = bit << 19; });
  passesOnlyBy(kClasses, 8, [&](uint32_t bit) { point_.funcId = bit << 16; });
  passesOnlyBy(kFunctions, 4'096, [&](uint32_t bit) { point_.funcId = bit; });
}

TEST_F(TraceBitmapTest, ATypeWithoutABitIsRejected) {
  std::memset(bytes() + kTypes, 0xFF, 552);
  for (const uint32_t type : {16u, 17u, 31u, 32u, 255u, 256u, 0xFFFFu}) {
    point_.type = static_cast<uint16_t>(type);
    EXPECT_FALSE(passes()) << type;
  }
}

// The function bitmap has no bound: what follows it decides on functions from 4,096 on.
TEST_F(TraceBitmapTest, AFunctionFrom4096OnIsLookedUpBehindTheBitmap) {
  for (const uint32_t function : {4'096u, 4'102u, 4'111u, 4'112u, 5'000u, 32'768u, 65'535u}) {
    point_.funcId = (kFunction & 0xFFFF0000) | function;
    clearBit(kFunctions, function);
    EXPECT_FALSE(passes()) << function;
    setBit(kFunctions, function);
    EXPECT_TRUE(passes()) << function;
  }
  EXPECT_EQ(bytes()[kFunctions + 8'191], 0x80);
}

// ---- Mask, and the order ----

TEST_F(TraceFilterTest, TheMaskIsAskedForFunctionTypeAndProbe) {
  constexpr uint32_t kOpen = static_cast<uint32_t>(Func::OSSHFile_open);
  point_.funcId = kOpen;
  options_->mask.gtmClearMask();
  EXPECT_FALSE(passes(GTRACE_FILTER_MASK));
  EXPECT_TRUE(options_->mask.gtmSetMask(1, 3, kOpen & 0xFFFF, kType, 0, 0));
  EXPECT_TRUE(passes(GTRACE_FILTER_MASK));
  point_.type = kType + 1;
  EXPECT_FALSE(passes(GTRACE_FILTER_MASK));

  point_.type = kType;
  EXPECT_TRUE(options_->mask.gtmSetMask(1, 3, kOpen & 0xFFFF, 20, GTM_POINT, GTM_EXCLUDED));
  EXPECT_TRUE(passes(GTRACE_FILTER_MASK));
  point_.probe = 20;
  EXPECT_FALSE(passes(GTRACE_FILTER_MASK));
}

TEST_F(TraceBitmapTest, WhereBitmapsFilterTheMaskIsNotAsked) {
  EXPECT_FALSE(TraceFilterTest::passes(GTRACE_FILTER_MASK));
  EXPECT_TRUE(TraceFilterTest::passes(GTRACE_FILTER_MASK | GTRACE_FILTER_BITMAPS));

  EXPECT_TRUE(options_->mask.gtmSetMask(GTM_ALL, GTM_ALL, GTM_ALL, GTM_ALL, 0, 0));
  clearBit(kTypes, kType);
  EXPECT_FALSE(TraceFilterTest::passes(GTRACE_FILTER_MASK | GTRACE_FILTER_BITMAPS));
}

TEST_F(TraceBitmapTest, APointMustPassEveryFilterThatIsOn) {
  constexpr uint32_t kAll = GTRACE_FILTER_BITMAPS | GTRACE_FILTER_THREADS | GTRACE_ERRORS_ONLY;
  point_.type = GTRACE_ERROR;
  setBit(kTypes, GTRACE_ERROR);
  setThreads({{GTRACE_MATCH_PROCESS, kProcess, 0}});
  EXPECT_TRUE(TraceFilterTest::passes(kAll));

  options_->threads[0].processId = 1;
  EXPECT_FALSE(TraceFilterTest::passes(kAll));
  EXPECT_TRUE(TraceFilterTest::passes(kAll & ~GTRACE_FILTER_THREADS));
  options_->threads[0].processId = kProcess;

  point_.type = kType;
  EXPECT_FALSE(TraceFilterTest::passes(kAll));
  EXPECT_TRUE(TraceFilterTest::passes(kAll & ~GTRACE_ERRORS_ONLY));
}

}  // namespace
