// tracedtest.h - a test of operations among the fakes, with tracing on.
//
// Each test starts with nothing written down and with fakes that answer as set here.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "osscatalog.h"
#include "osstrace.h"
#include "tests/core/ossoperation_fakes.h"

namespace oss::fakes {

class TracedTest : public testing::Test {
 protected:
  // A failure of the system is mapped to this code and level.
  explicit TracedTest(OSSErr mapped = ECF_OK, uint64_t mappedLevel = OSS_LOG_INFO) {
    g_calls.clear();
    g_mapped = mapped;
    g_mappedLevel = mappedLevel;
    g_levelOfCode = OSS_LOG_INFO;
    g_duringLog = nullptr;
    g_pGTCB = &block_;
  }
  ~TracedTest() override { g_pGTCB = nullptr; }

  // The calls since the last time.
  static std::vector<std::string> calls() { return std::exchange(g_calls, {}); }

  GTraceControlBlock block_ = {
      .initialized = 1, .enabled = 1, .stopCounter = 0, .reserved = 0, .options = {}};
};

}  // namespace oss::fakes
