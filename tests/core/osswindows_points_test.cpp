// What the question for terminal services traces of itself, and in which order a process attach
// calls the library's other parts.
#include <gmock/gmock.h>

#include <utility>
#include <vector>

#include "core/osswindows.h"
#include "osscatalog.h"
#include "osstrace.h"
#include "tests/core/ossoperation_fakes.h"

using oss::fakes::g_calls;
using testing::ElementsAre;

namespace {

class TerminalServicesPoints : public testing::Test {
 protected:
  TerminalServicesPoints() {
    g_calls.clear();
    g_pGTCB = &block_;
  }
  ~TerminalServicesPoints() override { g_pGTCB = nullptr; }

  static std::vector<std::string> calls() { return std::exchange(g_calls, {}); }

  // The calls for one suite, as two bytes. Whether this system has it decides the answer.
  static std::vector<std::string> expected(const std::string& suite, uint32_t answer) {
    return {"entry 0000000089ABCDEF 081A00A7",
            "data 0000000089ABCDEF 081A00A7 probe 10 type 3 {0 2 " + suite + "}",
            oss::fakes::text("exit 0000000089ABCDEF 081A00A7 rc %016X extra 0", answer)};
  }

 private:
  GTraceControlBlock block_ = {
      .initialized = 1, .enabled = 1, .stopCounter = 0, .reserved = 0, .options = {}};
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
