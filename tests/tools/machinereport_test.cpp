// What `osse info` writes of a machine: whole texts.
#include "machinereport.h"

#include <gtest/gtest.h>

#include "osscatalog.h"
#include "tools/textsink.h"

using namespace oss::tool;
using osse_test::keep;

namespace {

std::string written(const MachineReport& report, void (*write)(const MachineReport&, Output&)) {
  std::string text;
  Output output(&keep, &text);
  write(report, output);
  EXPECT_TRUE(output.flush());
  return text;
}

// A value of each kind and a status of each, in two groups.
MachineReport twoGroups() {
  return {{"processors",
           {{"online", uint64_t{2}},
            {"speed", uint64_t{18446744073709551615U}, "MHz"},
            {"threads per core", uint64_t{7}, "", ECF_NOT_SUPPORTED}}},
          {"drive C:\\",
           {{"volume", std::string("\"a\"\xFF")},
            {"swap", int64_t{-2}, "MiB"},
            {"load", 12.5},
            {"total", uint64_t{1}, "MiB", ECF_FAILED}}}};
}

TEST(MachineReport, TheTableHasAStatusForEachValue) {
  EXPECT_EQ(written(twoGroups(), &writeTable),
            "processors\n"
            "  online            2                         OK\n"
            "  speed             18446744073709551615 MHz  OK\n"
            "  threads per core  -                         ECF_NOT_SUPPORTED\n"
            "\n"
            "drive C:\\\n"
            "  volume            \"a\"\xFF                      OK\n"
            "  swap              -2 MiB                    OK\n"
            "  load              12.50                     OK\n"
            "  total             -                         ECF_FAILED\n");
}

TEST(MachineReport, JsonHasAnObjectForEachValue) {
  EXPECT_EQ(written(twoGroups(), &writeJson),
            R"({
  "processors": {
    "online": {
      "value": 2,
      "status": "OK"
    },
    "speed": {
      "value": 18446744073709551615,
      "unit": "MHz",
      "status": "OK"
    },
    "threads per core": {
      "value": null,
      "status": "ECF_NOT_SUPPORTED"
    }
  },
  "drive C:\\": {
    "volume": {
      "value": "\"a\")"
            "\xEF\xBF\xBD"
            R"(",
      "status": "OK"
    },
    "swap": {
      "value": -2,
      "unit": "MiB",
      "status": "OK"
    },
    "load": {
      "value": 12.5,
      "status": "OK"
    },
    "total": {
      "value": null,
      "unit": "MiB",
      "status": "ECF_FAILED"
    }
  }
}
)");
}

TEST(MachineReport, OfNothingIsEmpty) {
  EXPECT_EQ(written({}, &writeTable), "");
  EXPECT_EQ(written({}, &writeJson), "{}\n");
}

}  // namespace
