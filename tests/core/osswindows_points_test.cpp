// What the question for terminal services traces of itself, and in which order a process attach
// calls the library's other parts.
#include <gmock/gmock.h>

#include <vector>

#include "core/osswindows.h"
#include "osscatalog.h"
#include "osstrace.h"
#include "tests/core/tracedtest.h"

using testing::ElementsAre;

namespace {

class TerminalServicesPoints : public oss::fakes::TracedTest {
 protected:
  // The calls for one suite, as two bytes. Whether this system has it decides the answer.
  static std::vector<std::string> expected(const std::string& suite, uint32_t answer) {
    return {"entry 0000000089ABCDEF 081A00A7",
            "data 0000000089ABCDEF 081A00A7 probe 10 type 3 {0 2 " + suite + "}",
            oss::fakes::text("exit 0000000089ABCDEF 081A00A7 rc %016X extra 0", answer)};
  }
};

TEST_F(TerminalServicesPoints, TheQuestionShowsTheSuite) {
  const uint32_t single = ossCheckTerminalServices(0);
  EXPECT_EQ(calls(), expected("0001", single));
  const uint32_t server = ossCheckTerminalServices(1);
  EXPECT_EQ(calls(), expected("1000", server));
}

TEST_F(TerminalServicesPoints, AModeThatNobodyIsAskedForShowsNoSuite) {
  EXPECT_EQ(ossCheckTerminalServices(2), 2u);
  EXPECT_THAT(calls(), ElementsAre("entry 0000000089ABCDEF 081A00A7",
                                   "exit 0000000089ABCDEF 081A00A7 rc 0000000000000002 extra 0"));
}

// The latches come first, for all that follows may take one.
TEST_F(TerminalServicesPoints, AnAttachTunesTheLatchesThenChoosesTheMemoryModeThenLooksAround) {
  static const std::vector<std::string> attach = [] {
    oss::attachProcess();
    return calls();
  }();
  ASSERT_GE(attach.size(), 3u);
  EXPECT_THAT(attach[0], testing::StartsWith("processors "));
  EXPECT_EQ(attach[1], "memory debugging");
  EXPECT_EQ(attach[2], "entry 0000000089ABCDEF 081A00A7");

  oss::attachProcess();
  EXPECT_THAT(calls(), testing::IsEmpty());
}

TEST_F(TerminalServicesPoints, TerminatingListsTheLeaksAndIsNotTraced) {
  ossTerminate();
  EXPECT_THAT(calls(), ElementsAre("leaks, others alive"));
}

}  // namespace
