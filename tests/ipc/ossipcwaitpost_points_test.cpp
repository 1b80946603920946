// What the operations of a waitpost trace of themselves, and under which identifiers a failure is
// mapped, logged and traced: each on a real event, among fakes of all that the frame calls.
#include <gmock/gmock.h>
#include <windows.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "osscatalog.h"
#include "ossipcwaitpost.h"
#include "osstrace.h"
#include "tests/core/ossoperation_fakes.h"

using oss::fakes::g_calls;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

class WaitpostPoints : public testing::Test {
 protected:
  WaitpostPoints() {
    oss::fakes::g_mapped = ECF_ACCESS_DENIED;
    oss::fakes::g_mappedLevel = OSS_LOG_INFO;
    oss::fakes::g_levelOfCode = OSS_LOG_INFO;
    oss::fakes::g_duringLog = nullptr;
    g_pGTCB = &trace_;
    create_.controlBlock = &block_;
    calls();
  }
  ~WaitpostPoints() override { g_pGTCB = nullptr; }

  static std::vector<std::string> calls() { return std::exchange(g_calls, {}); }

  // Makes the system refuse whatever the waitpost asks of its event.
  void loseTheEvent() {
    ASSERT_EQ(waitpost_.create(&create_), ECF_OK);
    void* fields[4];
    std::memcpy(fields, &waitpost_, sizeof fields);
    ::CloseHandle(fields[3]);
    fields[3] = nullptr;
    std::memcpy(static_cast<void*>(&waitpost_), fields, sizeof fields);
    calls();
  }

  GTraceControlBlock trace_ = {
      .initialized = 1, .enabled = 1, .stopCounter = 0, .reserved = 0, .options = {}};
  OSSIPCWaitpostControlBlock block_;
  OSSIPCWaitpostCreateParam create_;
  OSSHIPCWaitpost waitpost_;
};

constexpr char kNoEvent[] = " #1 {-1 8 0000000000000000}";

TEST_F(WaitpostPoints, EachOperationIsEntryAndExit) {
  const OSSIPCWaitpostWaitParam poll;
  EXPECT_EQ(waitpost_.create(&create_), ECF_OK);
  EXPECT_EQ(waitpost_.wait(&poll, nullptr), ECF_WAITPOST_NOT_POSTED);
  EXPECT_EQ(waitpost_.post(nullptr), ECF_OK);
  EXPECT_EQ(waitpost_.reset(), ECF_OK);
  EXPECT_EQ(waitpost_.destroy(), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre("entry 0000000089ABCDEF 081A004D",
                                   "exit 0000000089ABCDEF 081A004D rc 0000000000000000 extra 0",
                                   "entry 0000000089ABCDEF 081A0051",
                                   "exit 0000000089ABCDEF 081A0051 rc 0000000090000400 extra 0",
                                   "entry 0000000089ABCDEF 081A0052",
                                   "exit 0000000089ABCDEF 081A0052 rc 0000000000000000 extra 0",
                                   "entry 0000000089ABCDEF 081A0053",
                                   "exit 0000000089ABCDEF 081A0053 rc 0000000000000000 extra 0",
                                   "entry 0000000089ABCDEF 081A004E",
                                   "exit 0000000089ABCDEF 081A004E rc 0000000000000000 extra 0"));
}

// Deliberate: mapped as its own, logged as post's.
TEST_F(WaitpostPoints, AFailedResetIsMappedUnderItsOwnNameAndLoggedUnderPosts) {
  loseTheEvent();
  EXPECT_EQ(waitpost_.reset(), ECF_ACCESS_DENIED);
  EXPECT_THAT(
      calls(),
      ElementsAre("entry 0000000089ABCDEF 081A0053", "map 081A0053 probe 50 call 08140096 error 6",
                  std::string("log default 081A0052 code 90000001 probe 50 level 4 system 08140096 "
                              "error 6") +
                      kNoEvent,
                  "error 0000000089ABCDEF 081A0053 probe 50 type 4 extra 0 {0 4 01000090}",
                  "exit 0000000089ABCDEF 081A0053 rc 0000000090000001 extra 0"));
}

// A wait's end is never mapped.
TEST_F(WaitpostPoints, AFailedWaitIsItsOwnCodeLoggedWithoutASystemError) {
  loseTheEvent();
  const OSSIPCWaitpostWaitParam poll;
  EXPECT_EQ(waitpost_.wait(&poll, nullptr), 0xFFFFFFFF);
  EXPECT_THAT(calls(),
              ElementsAre("entry 0000000089ABCDEF 081A0051", "level FFFFFFFF",
                          std::string("log default 081A0051 code FFFFFFFF probe 120 level 4 system "
                                      "081400A6 error 0") +
                              kNoEvent + " #2 {-3 4 00000000}",
                          "error 0000000089ABCDEF 081A0051 probe 120 type 4 extra 0 {0 4 FFFFFFFF}",
                          "exit 0000000089ABCDEF 081A0051 rc 00000000FFFFFFFF extra 0"));
}

TEST_F(WaitpostPoints, ADestroyWhoseCloseFailsIsTracedToItsEnd) {
  loseTheEvent();
  EXPECT_EQ(waitpost_.destroy(), ECF_ACCESS_DENIED);
  EXPECT_THAT(
      calls(),
      ElementsAre("entry 0000000089ABCDEF 081A004E", "map 081A004E probe 40 call 08140069 error 6",
                  StartsWith("log default 081A004E code 90000001 probe 40 level 4 system 08140069 "
                             "error 6"),
                  "error 0000000089ABCDEF 081A004E probe 40 type 4 extra 0 {0 4 01000090}",
                  "exit 0000000089ABCDEF 081A004E rc 0000000090000001 extra 0"));
  EXPECT_EQ(block_.flags, 0u);
}

// A block that is no waitpost is the operation's own finding: no error point.
TEST_F(WaitpostPoints, ARefusedBlockIsNoErrorPoint) {
  EXPECT_EQ(waitpost_.close(), ECF_WAITPOST_NOT_INITIALIZED);
  EXPECT_THAT(calls(), ElementsAre("entry 0000000089ABCDEF 081A0050",
                                   "log default 081A0050 code 900003FF probe 10 level 4 nothing "
                                   "#1 {-1 8 0000000000000000}",
                                   "exit 0000000089ABCDEF 081A0050 rc 00000000900003FF extra 0"));
}

}  // namespace
