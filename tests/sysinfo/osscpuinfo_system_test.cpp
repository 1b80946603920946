// The processors of this machine.
#include <bit>
#include <cstdlib>

#include "harness/childprocess.h"
#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;

namespace {

constexpr char kProcessorKey[] = R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)";

class CPUInfo : public SysInfoTest {
 protected:
  // The record that an operation must leave: everything told but the speed.
  static Patterned<OSSCPUInfo> expectedRecord(uint64_t version) {
    OSSCPUInfo told;
    EXPECT_NE(ossGetCPUInfo(&told), ECF_INVALID_VERSION);
    Patterned<OSSCPUInfo> expected(version);
    const auto fill = [](OSSSysInfoUint& member, uint64_t value) {
      member.value = value;
      member.status = 0;
    };
    fill(expected->onlineProcessors, processors());
    fill(expected->configuredProcessors, processors());
    fill(expected->licensedProcessors, processors());
    fill(expected->threadsPerCore, told.threadsPerCore.value);
    if (version >= 20050715) fill(expected->coresPerPackage, told.coresPerPackage.value);
    return expected;
  }

  static uint64_t processors() {
    SYSTEM_INFO system;
    ::GetNativeSystemInfo(&system);
    return system.dwNumberOfProcessors;
  }

  static DWORD speed() {
    DWORD megahertz = 0, size = sizeof megahertz;
    EXPECT_EQ(::RegGetValueA(HKEY_LOCAL_MACHINE, kProcessorKey, "~MHz", RRF_RT_REG_DWORD, nullptr,
                             &megahertz, &size),
              ERROR_SUCCESS);
    return megahertz;
  }

  // The operation where the speed is not told.
  void expectNoSpeed(uint32_t status) {
    for (const uint64_t version : kVersions) {
      Patterned<OSSCPUInfo> record(version);
      Patterned<OSSCPUInfo> expected = expectedRecord(version);
      expected->speed.status = status;
      EXPECT_EQ(ossGetCPUInfo(record.get()), ECF_PARTIAL_INFO);
      EXPECT_EQ(record.differenceFrom(expected), "");
    }
  }
};

TEST_F(CPUInfo, TellsEverythingThatItsVersionHolds) {
  expectRecordChecks<OSSCPUInfo>(Func::ossGetCPUInfo, ossGetCPUInfo);
  for (const uint64_t version : kVersions) {
    SCOPED_TRACE(version);
    Patterned<OSSCPUInfo> record(version);
    Patterned<OSSCPUInfo> expected = expectedRecord(version);
    expected->speed.value = speed();
    expected->speed.status = 0;
    EXPECT_EQ(ossGetCPUInfo(record.get()), ECF_OK);
    EXPECT_EQ(record.differenceFrom(expected), "");
  }
}

TEST_F(CPUInfo, AgreesWithWhatTheSystemTellsElsewhere) {
  OSSCPUInfo info;
  ASSERT_EQ(ossGetCPUInfo(&info), ECF_OK);
  const char* const environment = std::getenv("NUMBER_OF_PROCESSORS");
  ASSERT_NE(environment, nullptr);
  EXPECT_EQ(info.onlineProcessors.value, std::strtoull(environment, nullptr, 10));
  DWORD_PTR ofProcess = 0, ofSystem = 0;
  ASSERT_TRUE(::GetProcessAffinityMask(::GetCurrentProcess(), &ofProcess, &ofSystem));
  EXPECT_EQ(info.onlineProcessors.value, static_cast<uint64_t>(std::popcount(ofSystem)));
  EXPECT_GT(info.speed.value, 0u);
  EXPECT_GE(info.coresPerPackage.value, 1u);
  EXPECT_LE(info.threadsPerCore.value, 64u);
}

TEST_F(CPUInfo, ASpeedThatCannotBeReadIsNotLogged) {
  for (const char* const function : {"RegOpenKeyExA", "RegQueryValueExA"}) {
    ImportHook fails(function, [](Call&) { return ERROR_ACCESS_DENIED; });
    expectNoSpeed(ECF_FAILED);
  }
}

TEST_F(CPUInfo, TheKeyIsOpenedForReadingAndClosed) {
  HKEY opened = nullptr;
  ImportHook opens("RegOpenKeyExA", [&](Call& call) {
    EXPECT_EQ(call.argument<HKEY>(0), HKEY_LOCAL_MACHINE);
    EXPECT_STREQ(call.argument<const char*>(1), kProcessorKey);
    EXPECT_EQ(call.argument<REGSAM>(3), REGSAM{KEY_READ});
    const Word result = call.passOn();
    opened = *call.argument<HKEY*>(4);
    return result;
  });
  ImportHook reads("RegQueryValueExA", [&](Call& call) {
    EXPECT_EQ(call.argument<HKEY>(0), opened);
    EXPECT_STREQ(call.argument<const char*>(1), "~MHZ");
    EXPECT_EQ(*call.argument<DWORD*>(5), 4u);
    return call.passOn();
  });
  ImportHook closes("RegCloseKey", [&](Call& call) {
    EXPECT_EQ(call.argument<HKEY>(0), opened);
    return call.passOn();
  });
  OSSCPUInfo info;
  EXPECT_EQ(ossGetCPUInfo(&info), ECF_OK);
  EXPECT_EQ(closes.calls(), 1);
}

TEST_F(CPUInfo, OutsideTheNtFamilyThereIsNoSpeedToTell) {
  g_bIsPlatformID_Win32OnNT = 0;
  CallCounter opens("RegOpenKeyExA");
  expectNoSpeed(ECF_NOT_SUPPORTED);
  EXPECT_EQ(opens.calls(), 0);
  g_bIsPlatformID_Win32OnNT = 1;
}

// ---- Once in a process ----

CHILD_ROLE(probeOnce) {
  CallCounter modules("GetModuleHandleA"), functions("GetProcAddress");
  OSSCPUInfo info;
  EXPECT_EQ(ossGetCPUInfo(&info), ECF_OK);
  EXPECT_EQ(modules.calls(), 1);
  EXPECT_EQ(functions.calls(), 2);
  const OSSCPUInfo first = info;
  ossSysInfoOneTimeOnly();
  EXPECT_EQ(ossGetCPUInfo(&info), ECF_OK);
  EXPECT_EQ(modules.calls(), 1);
  EXPECT_EQ(functions.calls(), 2);
  EXPECT_EQ(std::memcmp(&info, &first, sizeof info), 0);
  return 0;
}

CHILD_ROLE(probeFirst) {
  CallCounter functions("GetProcAddress");
  ossSysInfoOneTimeOnly();
  ossSysInfoOneTimeOnly();
  EXPECT_EQ(functions.calls(), 2);
  OSSCPUInfo info;
  EXPECT_EQ(ossGetCPUInfo(&info), ECF_OK);
  EXPECT_EQ(functions.calls(), 2);
  return 0;
}

TEST_F(CPUInfo, TheTopologyIsProbedOnceInAProcess) {
  EXPECT_EQ(runChild("probeOnce"), 0u);
  EXPECT_EQ(runChild("probeFirst"), 0u);
}

}  // namespace
