// The operating system: what it is, what its kernel limits, where it lives.
#include <cstdlib>

#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;
using oss::SysCall;
using testing::ElementsAre;

namespace {

class OSInfo : public SysInfoTest {};

// ---- What it is ----

// What the system answers to the hooks below.
struct System {
  bool named = true;
  bool versioned = true;
  DWORD platform = 2, major = 6, minor = 1;
  std::string servicePack = "Service Pack 1";
  SYSTEM_INFO info = {};
};

OSSErr tellOf(const System& system, OSSOSInfo* record) {
  ImportHook name("GetComputerNameA", [&](Call& call) {
    EXPECT_EQ(*call.argument<DWORD*>(1), 255u);
    if (!system.named) return FALSE;
    writeText(call.argument<char*>(0), "MACHINE");
    return TRUE;
  });
  ImportHook version("GetVersionExA", [&](Call& call) {
    auto* const told = call.argument<OSVERSIONINFOA*>(0);
    EXPECT_EQ(told->dwOSVersionInfoSize, 148u);
    if (!system.versioned) return FALSE;
    told->dwPlatformId = system.platform;
    told->dwMajorVersion = system.major;
    told->dwMinorVersion = system.minor;
    writeText(told->szCSDVersion, system.servicePack);
    return TRUE;
  });
  ImportHook info("GetSystemInfo",
                  [&](Call& call) { *call.argument<SYSTEM_INFO*>(0) = system.info; });
  return ossGetOSInfo(record);
}

System x64System() {
  System system;
  system.info.wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
  system.info.dwProcessorType = PROCESSOR_AMD_X8664;
  system.info.wProcessorLevel = 6;
  system.info.wProcessorRevision = 0x8F08;
  return system;
}

void expectText(OSSSysInfoStr& member, std::string_view text) {
  writeText(member.value, text);
  member.status = 0;
}

TEST_F(OSInfo, TellsEverythingThatItsVersionHolds) {
  expectRecordChecks<OSSOSInfo>(Func::ossGetOSInfo, ossGetOSInfo);
  const System system = x64System();
  for (const uint64_t version : kVersions) {
    SCOPED_TRACE(version);
    Patterned<OSSOSInfo> record(version);
    Patterned<OSSOSInfo> expected = record;
    expectText(expected->platform, "WIN32_NT");
    expectText(expected->computerName, "MACHINE");
    expectText(expected->release, "6.1");
    expectText(expected->serviceLevel, "Service Pack 1");
    expectText(expected->processor, "AMD64 Family 6, model 143, stepping 8");
    if (version >= 20050715) expected->build.status = ECF_NOT_SUPPORTED;

    EXPECT_EQ(tellOf(system, record.get()), version >= 20050715 ? ECF_PARTIAL_INFO : ECF_OK);
    EXPECT_EQ(record.differenceFrom(expected), "");
  }
}

// Nothing is logged; the processor has no share in the code.
TEST_F(OSInfo, WhatFailsIsMarkedAndTheRestIsTold) {
  for (const bool named : {false, true})
    for (const bool versioned : {false, true})
      for (const WORD architecture : std::initializer_list<WORD>{9, 77}) {
        System system = x64System();
        system.named = named;
        system.versioned = versioned;
        system.info.wProcessorArchitecture = architecture;
        Patterned<OSSOSInfo> record(20040702);
        Patterned<OSSOSInfo> expected = record;
        if (named)
          expectText(expected->computerName, "MACHINE");
        else
          expected->computerName.status = ECF_FAILED;
        if (versioned) {
          expectText(expected->platform, "WIN32_NT");
          expectText(expected->release, "6.1");
          expectText(expected->serviceLevel, "Service Pack 1");
        } else {
          for (auto* const member :
               {&expected->platform, &expected->release, &expected->serviceLevel})
            member->status = ECF_FAILED;
        }
        if (architecture == 9)
          expectText(expected->processor, "AMD64 Family 6, model 143, stepping 8");
        else
          expected->processor.status = ECF_FAILED;

        EXPECT_EQ(tellOf(system, record.get()), named && versioned ? ECF_OK : ECF_PARTIAL_INFO);
        EXPECT_EQ(record.differenceFrom(expected), "");
      }
}

TEST_F(OSInfo, PlatformReleaseAndServiceLevelAreTheSystemsOwn) {
  System system = x64System();
  system.platform = 3;
  system.major = 10;
  system.minor = 22631;
  system.servicePack = std::string(127, 's');
  OSSOSInfo info;
  info.version = 20040702;
  EXPECT_EQ(tellOf(system, &info), ECF_OK);
  EXPECT_STREQ(info.platform.value, "UNKNOWN");
  EXPECT_STREQ(info.release.value, "10.22631");
  EXPECT_EQ(info.serviceLevel.value, std::string(127, 's'));
}

TEST_F(OSInfo, AgreesWithWhatTheSystemTellsElsewhere) {
  OSSOSInfo info;
  EXPECT_EQ(ossGetOSInfo(&info), ECF_PARTIAL_INFO);
  EXPECT_STREQ(info.computerName.value, std::getenv("COMPUTERNAME"));
  EXPECT_STREQ(info.platform.value, "WIN32_NT");
  const DWORD version = ::GetVersion();
  EXPECT_EQ(info.release.value,
            std::to_string(version & 0xFF) + '.' + std::to_string(version >> 8 & 0xFF));
  EXPECT_THAT(info.processor.value, testing::StartsWith("AMD64 Family "));
}

// ---- Limits of the kernel ----

TEST_F(OSInfo, TheKernelHasNoLimitsAndValuesAreNotTouched) {
  expectRecordChecks<OSSKernelIPCInfo>(Func::ossGetKernelIPCInfo, ossGetKernelIPCInfo);
  for (const uint64_t version : kVersions) {
    SCOPED_TRACE(version);
    Patterned<OSSKernelIPCInfo> record(version);
    Patterned<OSSKernelIPCInfo> expected = record;
    auto* const members = &expected->msgMaxQueues;
    for (int index = 0; index < (version >= 20050401 ? 22 : 21); ++index)
      members[index].status = ECF_NOT_SUPPORTED;

    EXPECT_EQ(ossGetKernelIPCInfo(record.get()), ECF_NOT_SUPPORTED);
    EXPECT_EQ(record.differenceFrom(expected), "");
  }
}

// ---- Its directory ----

TEST_F(OSInfo, TheSystemDirectoryIsWrittenAndNothingElse) {
  for (const uint64_t version : kVersions) {
    const Patterned<OSSSystemDirectoryInfo> record(version);
    Patterned<OSSSystemDirectoryInfo> info(0);  // whose version does not count
    Patterned<OSSSystemDirectoryInfo> expected = info;
    char windows[261];
    const UINT length = ::GetWindowsDirectoryA(windows, sizeof windows);
    writeText(expected->directory, std::string(windows, length) + "\\system32");
    EXPECT_EQ(ossGetSystemDirectory(Patterned(record).get(), info.get()), ECF_OK);
    EXPECT_EQ(info.differenceFrom(expected), "");
  }
  OSSSystemDirectoryInfo both;
  EXPECT_EQ(ossGetSystemDirectory(&both, &both), ECF_OK);
  EXPECT_NE(::GetFileAttributesA(both.directory) & FILE_ATTRIBUTE_DIRECTORY, 0u);
}

TEST_F(OSInfo, TheSystemDirectoryIsRefusedWithoutRecords) {
  OSSSystemDirectoryInfo info;
  expectRecordChecks<OSSSystemDirectoryInfo>(Func::ossGetSystemDirectory, [&](auto* record) {
    return ossGetSystemDirectory(record, &info);
  });
  EXPECT_EQ(ossGetSystemDirectory(&info, nullptr), ECF_INVALID_PARAMETER);
  EXPECT_THAT(log_.newRecords(), ElementsAre(nullRecord(Func::ossGetSystemDirectory)));
}

TEST_F(OSInfo, ARefusedSystemDirectoryIsMappedAndLogged) {
  OSSSystemDirectoryInfo info;
  {
    FailingCall fails("GetSystemDirectoryA", ERROR_ACCESS_DENIED);
    EXPECT_EQ(ossGetSystemDirectory(&info, &info), ECF_ACCESS_DENIED);
  }
  // The system tells the size that it needs, its NUL included, and no error.
  ImportHook tooLong("GetSystemDirectoryA", [](Call& call) {
    EXPECT_EQ(call.argument<UINT>(1), 261u);
    ::SetLastError(ERROR_SUCCESS);
    return 262;
  });
  EXPECT_EQ(ossGetSystemDirectory(&info, &info), ECF_BUFFER_TOO_SMALL);
  EXPECT_THAT(
      log_.newRecords(),
      ElementsAre(
          SystemRecord(OSS_LOG_INFO, Func::ossGetSystemDirectory, 20, SysCall::GetSystemDirectoryA,
                       ERROR_ACCESS_DENIED, ECF_ACCESS_DENIED, {{2, Uint(UINT{261})}}),
          SystemRecord(OSS_LOG_INFO, Func::ossGetSystemDirectory, 20, SysCall::GetSystemDirectoryA,
                       ERROR_INSUFFICIENT_BUFFER, ECF_BUFFER_TOO_SMALL, {{2, Uint(UINT{261})}})));
}

}  // namespace
