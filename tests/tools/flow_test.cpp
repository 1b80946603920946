// The calls of a thread, seen by a visitor that writes everything down.
#include <gtest/gtest.h>

#include "flow.h"

using namespace oss::tool;

namespace {

struct Diary {
  uint64_t entered_ = 0, left_ = 0, open_ = 0, cut_ = 0, notes_ = 0;
  size_t deepest = 0;

  void began(const Thread&) {}
  void entered(const Thread& thread, const Frame&, const Record&) {
    ++entered_;
    deepest = std::max(deepest, thread.stack.size());
  }
  void left(const Thread&, const Frame&, uint64_t, const Record* exit) {
    ++(exit != nullptr ? left_ : open_);
  }
  void cut(const Thread&, const Record&, uint64_t) { ++cut_; }
  void note(const Thread&, const Record&, uint64_t) { ++notes_; }
};

GTraceRecord recordOf(uint16_t type) {
  GTraceRecord record{};
  record.type = type;
  record.funcId = 7;
  return record;
}

}  // namespace

TEST(TraceFlow, CallsBelowTheDeepestAreOnlyNotedAndSoAreTheirExits) {
  const GTraceRecord entry = recordOf(GTRACE_ENTRY);
  const GTraceRecord exit = recordOf(GTRACE_EXIT);
  constexpr uint64_t kBelow = 3;
  Flow flow(false);
  Diary diary;
  for (uint64_t i = 0; i < Flow::kDeepest + kBelow; ++i) flow.add(Record(&entry, 52), diary);
  for (uint64_t i = 0; i < Flow::kDeepest + kBelow; ++i) flow.add(Record(&exit, 52), diary);
  flow.finish(diary);

  EXPECT_EQ(diary.deepest, Flow::kDeepest);
  EXPECT_EQ(diary.entered_, Flow::kDeepest);
  EXPECT_EQ(diary.left_, Flow::kDeepest);
  EXPECT_EQ(diary.notes_, 2 * kBelow);
  EXPECT_EQ(diary.open_, 0u);
  EXPECT_EQ(diary.cut_, 0u);
}
