// The two halves of thread-specific data: the outer operation is traced, the inner one logs.
#include <gmock/gmock.h>
#include <windows.h>

#include <vector>

#include "osscatalog.h"
#include "ossprocess.h"
#include "osstrace.h"
#include "tests/core/tracedtest.h"

using testing::ElementsAre;

namespace {

class ThreadDataPoints : public oss::fakes::TracedTest {
 protected:
  ThreadDataPoints() : TracedTest(ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO) {}
};

TEST_F(ThreadDataPoints, EachOuterOperationIsEntryAndExitAndTheInnerOneLogs) {
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

  EXPECT_EQ(data.set(&block_), ECF_OK);
  EXPECT_EQ(data.get(&value), ECF_OK);
  EXPECT_EQ(value, &block_);
  EXPECT_EQ(data.destroy(), ECF_OK);
  EXPECT_THAT(calls(), ElementsAre("entry 0000000089ABCDEF 081A0065",
                                   "exit 0000000089ABCDEF 081A0065 rc 0000000000000000 extra 0",
                                   "entry 0000000089ABCDEF 081A0066",
                                   "exit 0000000089ABCDEF 081A0066 rc 0000000000000000 extra 0",
                                   "entry 0000000089ABCDEF 081A0064",
                                   "exit 0000000089ABCDEF 081A0064 rc 0000000000000000 extra 0"));
}

}  // namespace
