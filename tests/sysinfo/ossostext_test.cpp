// What numbers of the operating system mean.
#include "sysinfo/ossostext.h"

#include <gtest/gtest.h>

#include "osscatalog.h"

using namespace oss;

namespace {

TEST(PlatformName, IsUnknownForAnyOtherNumberThanThree) {
  EXPECT_STREQ(platformName(0), "WIN32s");
  EXPECT_STREQ(platformName(1), "WIN32_WINDOWS");
  EXPECT_STREQ(platformName(2), "WIN32_NT");
  EXPECT_STREQ(platformName(3), "UNKNOWN");
  EXPECT_STREQ(platformName(0xFFFFFFFF), "UNKNOWN");
}

struct Described {
  uint32_t status;
  std::string text;

  bool operator==(const Described&) const = default;
  friend void PrintTo(const Described& described, std::ostream* out) {
    *out << std::hex << described.status << " \"" << described.text << '"';
  }
};

// Into a member that held another text and status.
Described described(const ProcessorNumbers& processor) {
  OSSSysInfoStr text;
  std::strcpy(text.value, "before");
  text.status = ECF_UNKNOWN;
  describeProcessor(processor, text);
  return {text.status, text.value};
}

TEST(ProcessorDescription, NamesArchitectureFamilyModelAndStepping) {
  EXPECT_EQ(described({9, 8664, 6, 0x8F08}),
            (Described{0, "AMD64 Family 6, model 143, stepping 8"}));
  EXPECT_EQ(described({6, 2200, 31, 0x0207}),
            (Described{0, "IA64 Family 31, model 2, stepping 7"}));
  EXPECT_EQ(described({0, 586, 15, 0x0209}), (Described{0, "x86 Family 15, model 2, stepping 9"}));
  EXPECT_EQ(described({9, 0, 0xFFFF, 0xFFFF}),
            (Described{0, "AMD64 Family 65535, model 255, stepping 255"}));
}

TEST(ProcessorDescription, IsNotSupportedForA386AndA486AndEmptyForOtherX86) {
  EXPECT_EQ(described({0, 386, 3, 0}), (Described{ECF_NOT_SUPPORTED, "before"}));
  EXPECT_EQ(described({0, 486, 4, 0}), (Described{ECF_NOT_SUPPORTED, "before"}));
  EXPECT_EQ(described({0, 686, 6, 0}), (Described{0, ""}));
}

TEST(ProcessorDescription, FailsForAnotherArchitecture) {
  for (const uint16_t architecture : std::initializer_list<uint16_t>{1, 5, 7, 12, 0xFFFF})
    EXPECT_EQ(described({architecture, 586, 6, 0}), (Described{ECF_FAILED, "before"}));
}

}  // namespace
