// osscpuusage.h - how busy the processors are, from the system's performance data. Not exported.
#pragma once

#include "osssysvalue.h"

namespace oss {

struct OSSCPUUsageInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t interval = 0;   // milliseconds between the two samples
  OSSSysInfoDouble total;  // per cent of the time of all processors, as are all
  OSSSysInfoDouble user;
  OSSSysInfoDouble privileged;
  OSSSysInfoDouble interrupt;
  OSSSysInfoDouble idle;
};
OSS_LAYOUT(OSSCPUUsageInfo, 96);
OSS_FIELD(OSSCPUUsageInfo, version, 0, 8);
OSS_FIELD(OSSCPUUsageInfo, interval, 8, 8);
OSS_FIELD(OSSCPUUsageInfo, total, 16, 16);
OSS_FIELD(OSSCPUUsageInfo, user, 32, 16);
OSS_FIELD(OSSCPUUsageInfo, privileged, 48, 16);
OSS_FIELD(OSSCPUUsageInfo, interrupt, 64, 16);
OSS_FIELD(OSSCPUUsageInfo, idle, 80, 16);

// Takes two samples and tells what lies between them. 0 when any member was told; the others carry
// ECF_FAILED. Otherwise ECF_FAILED, and so does every member: the machine's name (probe 20), the
// performance-data library or its query (30), a counter (40), the first sample (50), the second
// (60), or no value at all (90). A single value that cannot be told is traced (80). Failures are
// traced and not logged. A query that cannot be closed gives ECF_FAILED with the values as told.
OSSErr ossGetCPUUsage(OSSCPUUsageInfo* info) noexcept;

}  // namespace oss
