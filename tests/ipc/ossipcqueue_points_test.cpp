// The greatest size of a message where the system tells one, which this platform never does: among
// fakes of what tells it, and of all that the frame calls.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "osscatalog.h"
#include "ossipcqueue.h"
#include "osssysinfo.h"
#include "osstrace.h"
#include "tests/core/ossoperation_fakes.h"

using oss::fakes::g_calls;
using oss::fakes::note;
using testing::ElementsAre;
using testing::ExitedWithCode;

namespace {

// What the system answers.
struct Limit {
  OSSErr rc = ECF_NOT_SUPPORTED;
  uint64_t bytes = 0;
  uint32_t status = ECF_OK;
};
Limit g_limit;

constexpr uint64_t kBytes = 5'000'000'000;

}  // namespace

OSSErr ossGetKernelIPCInfo(OSSKernelIPCInfo* info) noexcept {
  note("limits");
  EXPECT_EQ(info->version, 0x09010007u);
  info->msgMaxMessageSize = {g_limit.bytes, g_limit.status};
  return g_limit.rc;
}

namespace {

class QueueLimit : public testing::Test {
 protected:
  QueueLimit() {
    g_calls.clear();
    g_pGTCB = &trace_;
  }
  ~QueueLimit() override { g_pGTCB = nullptr; }

  static std::vector<std::string> calls() { return std::exchange(g_calls, {}); }

  GTraceControlBlock trace_ = {
      .initialized = 1, .enabled = 1, .stopCounter = 0, .reserved = 0, .options = {}};
};
using QueueLimitDeathTest = QueueLimit;

TEST_F(QueueLimit, ThatCannotBeToldIsNoneAndAskedForAgain) {
  for (const Limit& limit : {Limit{ECF_NOT_SUPPORTED, kBytes}, Limit{ECF_FAILED, kBytes},
                             Limit{ECF_PARTIAL_INFO, kBytes, 5}, Limit{ECF_OK, kBytes, 5}}) {
    g_limit = limit;
    EXPECT_EQ(ossGetMaxQueueMessageSize(), 0);
    EXPECT_EQ(ossGetMaxQueueMessageSize(), 0);
    EXPECT_THAT(calls(), ElementsAre("limits", "limits"));
  }
}

// A process asks until it is told, so each answer takes one of its own.
TEST_F(QueueLimitDeathTest, ThatIsToldIsAskedForOnce) {
  const auto ask = [](OSSErr rc) {
    g_limit = {rc, kBytes};
    const int64_t first = ossGetMaxQueueMessageSize();
    const int64_t second = ossGetMaxQueueMessageSize();
    std::fprintf(stderr, "%lld, %lld, %zu call", static_cast<long long>(first),
                 static_cast<long long>(second), g_calls.size());
    std::exit(0);
  };
  EXPECT_EXIT(ask(ECF_OK), ExitedWithCode(0), "5000000000, 5000000000, 1 call");
  EXPECT_EXIT(ask(ECF_PARTIAL_INFO), ExitedWithCode(0), "5000000000, 5000000000, 1 call");
}

}  // namespace
