// Virtual memory where one of its two parts cannot be told, which this platform never does: among
// fakes of both, and of all that the frame calls.
#include <gmock/gmock.h>

#include <utility>

#include "osscatalog.h"
#include "osssysinfo.h"
#include "osstrace.h"
#include "tests/core/ossoperation_fakes.h"

using oss::fakes::g_calls;
using oss::fakes::note;
using oss::fakes::text;
using testing::ElementsAre;

namespace {

// What a part answers.
struct Part {
  OSSErr rc = ECF_OK;
  uint32_t totalStatus = ECF_OK, availableStatus = ECF_OK;
};
Part g_physical, g_swap;

template <class Info>
OSSErr answer(const Part& part, Info& info, int64_t total, int64_t available) {
  EXPECT_EQ(info.version, OSS_VERSION_CURRENT);
  info.total.value = total;
  info.available.value = available;
  info.total.status = part.totalStatus;
  info.available.status = part.availableStatus;
  return part.rc;
}

}  // namespace

OSSErr ossGetPhysMemInfo(OSSPhysMemInfo* info) noexcept {
  note("physical");
  return answer(g_physical, *info, 100, 40);
}

OSSErr ossGetPhysSwapInfo(OSSPhysSwapInfo* info) noexcept {
  note("swap");
  return answer(g_swap, *info, 20, 3);
}

namespace {

const std::string kEntry = "entry 0000000089ABCDEF 081A0071";

std::string point(unsigned probe, OSSErr rc) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&rc);
  return text("data 0000000089ABCDEF 081A0071 probe %u type 3 {0 4 %02X%02X%02X%02X}", probe,
              bytes[0], bytes[1], bytes[2], bytes[3]);
}
std::string exitWith(OSSErr rc) {
  return text("exit 0000000089ABCDEF 081A0071 rc %016X extra 0", rc);
}

class VirtualMemory : public testing::Test {
 protected:
  VirtualMemory() {
    g_physical = g_swap = {};
    g_calls.clear();
    g_pGTCB = &block_;
  }
  ~VirtualMemory() override { g_pGTCB = nullptr; }

  // The total and available members keep value and status.
  void expectUntouched() const {
    EXPECT_EQ(info_.total.value, 7);
    EXPECT_EQ(info_.total.status, 77u);
    EXPECT_EQ(info_.available.value, 8);
    EXPECT_EQ(info_.available.status, 88u);
    EXPECT_EQ(info_.reserved.status, ECF_NOT_SUPPORTED);
    EXPECT_EQ(info_.committed.status, ECF_NOT_SUPPORTED);
  }

  OSSErr run() {
    info_ = {};
    info_.total = {7, 77};
    info_.available = {8, 88};
    return ossGetVirtualMemInfo(&info_);
  }

  static std::vector<std::string> calls() { return std::exchange(g_calls, {}); }

  OSSVirtualMemInfo info_;
  GTraceControlBlock block_ = {
      .initialized = 1, .enabled = 1, .stopCounter = 0, .reserved = 0, .options = {}};
};

TEST_F(VirtualMemory, IsTheSumAndLeavesTheStatuses) {
  EXPECT_EQ(run(), ECF_OK);
  EXPECT_EQ(info_.total.value, 120);
  EXPECT_EQ(info_.available.value, 43);
  EXPECT_EQ(info_.total.status, 77u);
  EXPECT_EQ(info_.available.status, 88u);
  EXPECT_THAT(calls(), ElementsAre(kEntry, "physical", "swap", exitWith(ECF_OK)));
}

// The code is that of the part, or a failure where a status says so.
struct Case {
  Part part;
  OSSErr rc;
};
constexpr Case kCases[] = {{{ECF_FAILED}, ECF_FAILED},
                           {{ECF_NOT_SUPPORTED}, ECF_NOT_SUPPORTED},
                           {{ECF_OK, ECF_FAILED}, ECF_FAILED},
                           {{ECF_OK, ECF_OK, ECF_NOT_SUPPORTED}, ECF_FAILED},
                           {{ECF_NOT_SUPPORTED, ECF_FAILED}, ECF_NOT_SUPPORTED}};

TEST_F(VirtualMemory, WithoutPhysicalMemoryIsNotToldAndSwapIsNotAsked) {
  for (const Case& each : kCases) {
    g_physical = each.part;
    EXPECT_EQ(run(), each.rc);
    expectUntouched();
    EXPECT_THAT(calls(),
                ElementsAre(kEntry, "physical", point(10, each.part.rc), exitWith(each.rc)));
  }
}

TEST_F(VirtualMemory, WithoutSwapIsNotTold) {
  for (const Case& each : kCases) {
    g_swap = each.part;
    EXPECT_EQ(run(), each.rc);
    expectUntouched();
    EXPECT_THAT(calls(), ElementsAre(kEntry, "physical", "swap", point(20, each.part.rc),
                                     exitWith(each.rc)));
  }
}

// Another code of a part does not count, only its statuses do.
TEST_F(VirtualMemory, OtherCodesOfAPartDoNotCount) {
  g_physical.rc = g_swap.rc = ECF_PARTIAL_INFO;
  EXPECT_EQ(run(), ECF_OK);
  EXPECT_EQ(info_.total.value, 120);
}

}  // namespace
