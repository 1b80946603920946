#include "sysinfo/osscpuusage.h"

#include <windows.h>

#include <pdh.h>

#include <algorithm>
#include <iterator>

#include "core/ossmodule.h"
#include "core/ossoperation.h"
#include "ossstring.h"
#include "osstime.h"
#include "sysinfo/ossrecord.h"

namespace oss {
namespace {

constexpr struct {
  OSSSysInfoDouble OSSCPUUsageInfo::*member;
  const char* path;
} kCounters[] = {
    {&OSSCPUUsageInfo::total, R"(\Processor(_Total)\% Processor Time)"},
    {&OSSCPUUsageInfo::user, R"(\Processor(_Total)\% User Time)"},
    {&OSSCPUUsageInfo::privileged, R"(\Processor(_Total)\% Privileged Time)"},
    {&OSSCPUUsageInfo::interrupt, R"(\Processor(_Total)\% Interrupt Time)"},
    {&OSSCPUUsageInfo::idle, R"(\Processor(_Total)\% Idle Time)"},
};

constexpr size_t kPathBytes = 2049;

// The performance-data library for the length of a call. It is loaded, not imported: a host that
// never asks does not carry it, and the library runs on a system without it.
class PerformanceData {
 public:
  PerformanceData() noexcept : library_(::LoadLibraryA("pdh.dll")) {
    if (library_ == nullptr) return;
    openQuery = functionOf<decltype(openQuery)>(library_, "PdhOpenQueryA");
    addCounter = functionOf<decltype(addCounter)>(library_, "PdhAddCounterA");
    collect = functionOf<decltype(collect)>(library_, "PdhCollectQueryData");
    format = functionOf<decltype(format)>(library_, "PdhGetFormattedCounterValue");
    closeQuery = functionOf<decltype(closeQuery)>(library_, "PdhCloseQuery");
  }
  ~PerformanceData() {
    if (library_ != nullptr) ::FreeLibrary(library_);
  }
  PerformanceData(const PerformanceData&) = delete;
  PerformanceData& operator=(const PerformanceData&) = delete;

  bool isWhole() const noexcept {
    return openQuery != nullptr && addCounter != nullptr && collect != nullptr &&
           format != nullptr && closeQuery != nullptr;
  }

  decltype(&::PdhOpenQueryA) openQuery = nullptr;
  decltype(&::PdhAddCounterA) addCounter = nullptr;
  decltype(&::PdhCollectQueryData) collect = nullptr;
  decltype(&::PdhGetFormattedCounterValue) format = nullptr;
  decltype(&::PdhCloseQuery) closeQuery = nullptr;

 private:
  HMODULE library_;
};

OSSErr failAt(const Operation& op, Probe probe, PDH_STATUS status) noexcept {
  op.trace(probe, status);
  return ECF_FAILED;
}

// Puts "\\machine" before the path of each counter.
OSSErr sample(const Operation& op, const PerformanceData& data, PDH_HQUERY query,
              const char* machine, OSSCPUUsageInfo& info) noexcept {
  PDH_HCOUNTER counters[std::size(kCounters)] = {};
  for (size_t i = 0; i < std::size(kCounters); ++i) {
    char path[kPathBytes];
    ossSnprintf(path, sizeof path, "%s%s", machine, kCounters[i].path);
    if (const PDH_STATUS status = data.addCounter(query, path, 0, &counters[i]))
      return failAt(op, 40, status);
  }

  // Deliberate: the longest interval ends, all ones would not.
  constexpr uint64_t kLongest = 0xFFFFFFFE;
  if (const PDH_STATUS status = data.collect(query)) return failAt(op, 50, status);
  ossSleep(static_cast<uint32_t>(std::min(info.interval, kLongest)));
  if (const PDH_STATUS status = data.collect(query)) return failAt(op, 60, status);

  bool isAnyTold = false;
  for (size_t i = 0; i < std::size(kCounters); ++i) {
    PDH_FMT_COUNTERVALUE value = {};
    if (const PDH_STATUS status = data.format(counters[i], PDH_FMT_DOUBLE, nullptr, &value)) {
      op.trace(80, status);
      continue;
    }
    fill(info.*kCounters[i].member, value.doubleValue);
    isAnyTold = true;
  }
  if (isAnyTold) return ECF_OK;
  op.trace(90, info);
  return ECF_FAILED;
}

}  // namespace

OSSErr ossGetCPUUsage(OSSCPUUsageInfo* info) noexcept {
  Operation op(Func::ossGetCPUUsage);
  if (const OSSErr rc = op.check(info)) return rc;
  for (const auto& counter : kCounters) mark(info->*counter.member, ECF_FAILED);

  char machine[kPathBytes] = R"(\\)";
  DWORD size = sizeof machine - 2;
  if (!::GetComputerNameA(machine + 2, &size)) {
    op.trace(20, ::GetLastError());
    return op.exit(ECF_FAILED);
  }

  const PerformanceData data;
  PDH_HQUERY query = nullptr;
  const PDH_STATUS opened = data.isWhole() ? data.openQuery(nullptr, 0, &query)
                                           : static_cast<PDH_STATUS>(ERROR_MOD_NOT_FOUND);
  if (opened != ERROR_SUCCESS) return op.exit(failAt(op, 30, opened));

  OSSErr answer = sample(op, data, query, machine, *info);
  if (data.closeQuery(query) != ERROR_SUCCESS) answer = ECF_FAILED;
  return op.exit(answer);
}

}  // namespace oss
