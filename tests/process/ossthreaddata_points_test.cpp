// The two halves of thread-specific data: the outer operation is traced, the inner one logs.
#include <gmock/gmock.h>
#include <windows.h>

#include <utility>
#include <vector>

#include "osscatalog.h"
#include "ossprocess.h"
#include "osstrace.h"
#include "tests/core/ossoperation_fakes.h"

using oss::fakes::g_calls;
using testing::ElementsAre;

namespace {

std::vector<std::string> calls() { return std::exchange(g_calls, {}); }

TEST(ThreadDataPoints, EachOuterOperationIsEntryAndExitAndTheInnerOneLogs) {
  GTraceControlBlock block = {
      .initialized = 1, .enabled = 1, .stopCounter = 0, .reserved = 0, .options = {}};
  oss::fakes::g_mapped = ECF_INVALID_INVOCATION_SEQUENCE;
  oss::fakes::g_mappedLevel = OSS_LOG_INFO;
  oss::fakes::g_duringLog = nullptr;
  g_pGTCB = &block;
  g_calls.clear();

  OSSHThreadSpecificData data;
  EXPECT_EQ(data.create(), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre("entry 0000000089ABCDEF 081A0063",
                                   "exit 0000000089ABCDEF 081A0063 rc 0000000000000000 extra 0"));

  void* value = &data;
  EXPECT_EQ(data.get(&value), ECF_INVALID_INVOCATION_SEQUENCE);
  EXPECT_EQ(value, nullptr);
  const std::vector<std::string> get = calls();
  ASSERT_EQ(get.size(), 4u);
  EXPECT_EQ(get[0], "entry 0000000089ABCDEF 081A0066");
  EXPECT_EQ(get[1], "map 081A0062 probe 10 call 081400A0 error 0");
  EXPECT_THAT(get[2], testing::StartsWith("log default 081A0062 code 90000003 probe 10 level 4 "
                                          "system 081400A0 error 0 #1 {-3 4 "));
  EXPECT_EQ(get[3], "exit 0000000089ABCDEF 081A0066 rc 0000000090000003 extra 0");

  EXPECT_EQ(data.set(&block), ECF_OK);
  EXPECT_EQ(data.get(&value), ECF_OK);
  EXPECT_EQ(value, &block);
  EXPECT_EQ(data.destroy(), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre("entry 0000000089ABCDEF 081A0065",
                                   "exit 0000000089ABCDEF 081A0065 rc 0000000000000000 extra 0",
                                   "entry 0000000089ABCDEF 081A0066",
                                   "exit 0000000089ABCDEF 081A0066 rc 0000000000000000 extra 0",
                                   "entry 0000000089ABCDEF 081A0064",
                                   "exit 0000000089ABCDEF 081A0064 rc 0000000000000000 extra 0"));
  g_pGTCB = nullptr;
}

}  // namespace
