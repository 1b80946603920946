// Marked threads, under identifiers as the test makes them.
#include "fault/osscapturemark.h"

#include <gtest/gtest.h>

#include <deque>

using namespace oss;

namespace {

TEST(CaptureMark, TellsAThreadThatIsInsideAlready) {
  const CaptureMark outer(7);
  EXPECT_FALSE(outer.isNested());
  {
    const CaptureMark inner(7);
    EXPECT_TRUE(inner.isNested());
  }
  EXPECT_TRUE(CaptureMark(7).isNested());
  EXPECT_FALSE(CaptureMark(8).isNested());
}

TEST(CaptureMark, EndsWithItsScope) {
  { const CaptureMark mark(7); }
  EXPECT_FALSE(CaptureMark(7).isNested());
}

TEST(CaptureMark, LetsAThreadGoOnThatFindsNoRoom) {
  std::deque<CaptureMark> marks;
  for (uint32_t thread = 1; thread <= kMostCaptureMarks; ++thread) marks.emplace_back(thread);
  EXPECT_FALSE(CaptureMark(1000).isNested());
  EXPECT_TRUE(CaptureMark(1).isNested());
  EXPECT_TRUE(CaptureMark(kMostCaptureMarks).isNested());
}

}  // namespace
