// The processors of this machine.
#include <cpuid.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>
#include <vector>

#include "harness/childprocess.h"
#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;

namespace {

constexpr char kProcessorKey[] = R"(HARDWARE\DESCRIPTION\System\CentralProcessor\0)";

// ---- What the processors tell of themselves ----

struct Registers {
  uint32_t eax, ebx, ecx, edx;
};

Registers identification(uint32_t leaf) {
  Registers registers;
  __cpuid_count(leaf, 0, registers.eax, registers.ebx, registers.ecx, registers.edx);
  return registers;
}

bool isIntel() { return identification(0).ebx == signature_INTEL_ebx; }
bool isAmd() { return identification(0).ebx == signature_AMD_ebx; }

uint64_t coresPerPackage() {
  if (isIntel() && identification(0).eax >= 4) return (identification(4).eax >> 26) + 1;
  if (isAmd() && identification(0x80000000).eax >= 0x80000008)
    return (identification(0x80000008).ecx & 0xFF) + 1;
  return 1;
}

// The processors of this process whose identifiers differ from the first one's by their lowest bits
// only.
uint64_t processorsBesideTheFirst(uint32_t bits) {
  DWORD_PTR mask = 0, ofSystem = 0;
  EXPECT_TRUE(::GetProcessAffinityMask(::GetCurrentProcess(), &mask, &ofSystem));
  std::vector<uint32_t> packages;
  for (DWORD_PTR processor = 1; processor != 0; processor <<= 1) {
    if ((mask & processor) == 0) continue;
    EXPECT_NE(::SetThreadAffinityMask(::GetCurrentThread(), processor), 0u);
    packages.push_back(identification(1).ebx >> 24 >> bits);
  }
  EXPECT_NE(::SetThreadAffinityMask(::GetCurrentThread(), mask), 0u);
  return static_cast<uint64_t>(std::count(packages.begin(), packages.end(), packages.at(0)));
}

// Only families above 14 of one vendor are asked whether they run several threads on a core.
uint64_t threadsPerCore() {
  const Registers features = identification(1);
  const bool isLate = (features.eax >> 8 & 0xF) == 0xF || (features.eax >> 20 & 0xF) != 0;
  if (!isLate || !isIntel() || (features.edx >> 28 & 1) == 0) return 1;
  const uint32_t threads = features.ebx >> 16 & 0xFF;
  if (threads < 2) return 1 / coresPerPackage();
  return processorsBesideTheFirst(static_cast<uint32_t>(std::bit_width(threads - 1))) /
         coresPerPackage();
}

class CPUInfo : public SysInfoTest {
 protected:
  // The record that an operation must leave: everything told but the speed.
  static Patterned<OSSCPUInfo> expectedRecord(uint64_t version) {
    Patterned<OSSCPUInfo> expected(version);
    const auto fill = [](OSSSysInfoUint& member, uint64_t value) {
      member.value = value;
      member.status = 0;
    };
    fill(expected->onlineProcessors, processors());
    fill(expected->configuredProcessors, processors());
    fill(expected->licensedProcessors, processors());
    fill(expected->threadsPerCore, threadsPerCore());
    if (version >= 20050715) fill(expected->coresPerPackage, coresPerPackage());
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

CHILD_ROLE(probeWhileProbing) {
  bool isFirst = true;
  ImportHook functions("GetProcAddress", [&isFirst](Call& call) {
    if (std::exchange(isFirst, false)) ossSysInfoOneTimeOnly();
    return call.passOn();
  });
  OSSCPUInfo info;
  EXPECT_EQ(ossGetCPUInfo(&info), ECF_OK);
  EXPECT_EQ(functions.calls(), 2);
  return 0;
}

// Deliberate: the first call is over for others as soon as it begins, and holds nobody up.
TEST_F(CPUInfo, AProbeUnderWayIsNeitherRepeatedNorWaitedFor) {
  EXPECT_EQ(runChild("probeWhileProbing"), 0u);
}

}  // namespace
