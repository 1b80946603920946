// Memory and swap space, of this machine and of others.
#include <windows.h>

#include <psapi.h>

#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "harness/childprocess.h"
#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;
using testing::AllOf;
using testing::Each;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint64_t kMebibyte = 1'048'576;

// What a machine answers, in bytes.
MEMORYSTATUSEX machine() {
  MEMORYSTATUSEX status = {};
  status.ullTotalPhys = 8 * kMebibyte + 1;
  status.ullAvailPhys = 5 * kMebibyte;
  status.ullTotalPageFile = 20 * kMebibyte;
  status.ullAvailPageFile = 11 * kMebibyte;
  status.ullTotalVirtual = 0x7FFFFFFE0000;
  status.ullAvailVirtual = 4 * kMebibyte - 1;
  return status;
}

// ---- A machine that answers so ----

// The ways in which the newer call can be had, or not.
enum class Newer { Answers, Fails, IsMissing, HasNoModule };

// A machine for the length of a scope. The library keeps the newer call once it has found it, so
// each machine has a process of its own.
class Machine {
 public:
  explicit Machine(Newer newer) : newer_(newer) {
    if (newer != Newer::HasNoModule)
      lookUp_.emplace("GetProcAddress", [newer](Call& call) -> void* {
        EXPECT_STREQ(call.argument<const char*>(1), "GlobalMemoryStatusEx");
        return newer == Newer::IsMissing ? nullptr : reinterpret_cast<void*>(&readNewer);
      });
    if (newer != Newer::Answers)
      older_.emplace("GlobalMemoryStatus", [](Call& call) {
        lookAtRecord();
        auto* const status = call.argument<MEMORYSTATUS*>(0);
        status->dwTotalPhys = g_status.ullTotalPhys;
        status->dwAvailPhys = g_status.ullAvailPhys;
        status->dwTotalPageFile = g_status.ullTotalPageFile;
        status->dwAvailPageFile = g_status.ullAvailPageFile;
        status->dwTotalVirtual = g_status.ullTotalVirtual;
        status->dwAvailVirtual = g_status.ullAvailVirtual;
      });
    g_fails = newer == Newer::Fails;
  }

  int moduleCalls() const { return module_.calls(); }
  int lookUps() const { return lookUp_ ? lookUp_->calls() : 0; }

  static inline MEMORYSTATUSEX g_status = machine();
  // The record that is being filled, and what its status is each time the machine is asked.
  static inline const OSSPhysMemInfo* g_record = nullptr;
  static inline std::vector<uint32_t> g_statuses;

 private:
  static void lookAtRecord() {
    if (g_record != nullptr) g_statuses.push_back(g_record->usable.status);
  }

  static BOOL WINAPI readNewer(MEMORYSTATUSEX* status) {
    EXPECT_EQ(status->dwLength, 64u);
    lookAtRecord();
    if (g_fails) return FALSE;
    *status = g_status;
    return TRUE;
  }

  static inline bool g_fails = false;

  Newer newer_;
  ImportHook module_{"GetModuleHandleA", [this](Call& call) -> Word {
                       EXPECT_STREQ(call.argument<const char*>(0), "KERNEL32");
                       return newer_ == Newer::HasNoModule ? 0 : call.passOn();
                     }};
  std::optional<ImportHook> lookUp_, older_;
};

// Records of every version, of which these members are written.
template <class Info>
void expectRecords(OSSErr (*operation)(Info*), void (*fill)(Info&)) {
  for (const uint64_t version : kVersions) {
    Patterned<Info> record(version);
    Patterned<Info> expected = record;
    fill(expected.record());
    EXPECT_EQ(operation(record.get()), ECF_OK);
    EXPECT_EQ(record.differenceFrom(expected), "") << version;
  }
}

CHILD_ROLE(tellMemory) {
  const auto newer = static_cast<Newer>(std::stoi(arguments[0]));
  const Machine machine(newer);

  // The first two statuses are not written.
  expectRecords<OSSPhysMemInfo>(ossGetPhysMemInfo, [](OSSPhysMemInfo& info) {
    info.total.value = 9;
    info.available.value = 5;
    info.usable.value = 4;
    info.usable.status = 0;
    info.addressSpace.value = 0x8000000;
    info.addressSpace.status = 0;
  });
  expectRecords<OSSPhysSwapInfo>(ossGetPhysSwapInfo, [](OSSPhysSwapInfo& info) {
    info.total.value = 12;  // 12 MiB less a byte
    info.available.value = 6;
  });
  expectRecords<OSSVirtualMemInfo>(ossGetVirtualMemInfo, [](OSSVirtualMemInfo& info) {
    info.total.value = 9 + 12;
    info.reserved.status = ECF_NOT_SUPPORTED;
    info.committed.status = ECF_NOT_SUPPORTED;
    info.available.value = 5 + 6;
  });

  // What is usable is not supported until the machine has answered.
  Patterned<OSSPhysMemInfo> record(OSS_VERSION_CURRENT);
  Machine::g_record = record.get();
  EXPECT_EQ(ossGetPhysMemInfo(record.get()), ECF_OK);
  Machine::g_record = nullptr;
  EXPECT_THAT(Machine::g_statuses, AllOf(Not(IsEmpty()), Each(ECF_NOT_SUPPORTED)));
  EXPECT_EQ(record->usable.status, ECF_OK);

  // What is found is looked up once, what is missing each time.
  constexpr int kReads = 4 * static_cast<int>(std::size(kVersions)) + 1;
  const bool isFound = newer == Newer::Answers || newer == Newer::Fails;
  EXPECT_EQ(machine.moduleCalls(), isFound ? 1 : kReads);
  EXPECT_EQ(machine.lookUps(), newer == Newer::HasNoModule ? 0 : isFound ? 1 : kReads);

  // Deliberate: no clamp.
  Machine::g_status.ullTotalPageFile = Machine::g_status.ullTotalPhys - 2 * kMebibyte;
  Machine::g_status.ullAvailPageFile = Machine::g_status.ullAvailPhys - 1;
  expectRecords<OSSPhysSwapInfo>(ossGetPhysSwapInfo, [](OSSPhysSwapInfo& info) {
    info.total.value = 0xFFFFFFFFFFE;
    info.available.value = 0;
  });
  return 0;
}

class MemoryInfo : public SysInfoTest {};

TEST_F(MemoryInfo, IsToldAlikeByEitherCall) {
  for (const Newer newer : {Newer::Answers, Newer::Fails, Newer::IsMissing, Newer::HasNoModule})
    EXPECT_EQ(runChild("tellMemory", {std::to_string(static_cast<int>(newer))}), 0u);
}

TEST_F(MemoryInfo, IsRefusedWithoutAWholeRecord) {
  expectRecordChecks<OSSPhysMemInfo>(Func::ossGetPhysMemInfo, ossGetPhysMemInfo);
  expectRecordChecks<OSSPhysSwapInfo>(Func::ossGetPhysSwapInfo, ossGetPhysSwapInfo);
  expectRecordChecks<OSSVirtualMemInfo>(Func::ossGetVirtualMemInfo, ossGetVirtualMemInfo);
}

// ---- This machine ----

TEST_F(MemoryInfo, AgreesWithWhatTheSystemTellsElsewhere) {
  OSSPhysMemInfo physical;
  OSSPhysSwapInfo swap;
  OSSVirtualMemInfo both;
  ASSERT_EQ(ossGetPhysMemInfo(&physical), ECF_OK);
  ASSERT_EQ(ossGetPhysSwapInfo(&swap), ECF_OK);
  ASSERT_EQ(ossGetVirtualMemInfo(&both), ECF_OK);
  PERFORMANCE_INFORMATION told = {};
  ASSERT_TRUE(::GetPerformanceInfo(&told, sizeof told));
  const auto mebibytes = [&](SIZE_T pages) {
    return static_cast<double>(pages * told.PageSize / kMebibyte);
  };
  const auto amount = [](const OSSSysInfoSint& member) {
    return static_cast<double>(member.value);
  };

  EXPECT_NEAR(amount(physical.total), mebibytes(told.PhysicalTotal), 1);
  // Others allocate and free meanwhile.
  EXPECT_NEAR(amount(physical.available), mebibytes(told.PhysicalAvailable),
              amount(physical.total) / 8);
  EXPECT_EQ(physical.usable.value, physical.available.value);
  EXPECT_NEAR(amount(physical.addressSpace), 1 << 27, 1);
  EXPECT_NEAR(amount(swap.total), mebibytes(told.CommitLimit - told.PhysicalTotal), 1);
  EXPECT_EQ(both.total.value, physical.total.value + swap.total.value);
  // Deliberate: where less can be committed than is free, the swap space wraps around. The sum is
  // right but for what wrapped, 2 to the 44 MiB.
  constexpr int64_t kWrapped = int64_t{1} << 44;
  EXPECT_NEAR(static_cast<double>(both.available.value % kWrapped),
              mebibytes(told.CommitLimit - told.CommitTotal), amount(physical.total) / 8);
}

}  // namespace
