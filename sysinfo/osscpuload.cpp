// Load averages, which this platform has not.
#include "core/ossoperation.h"
#include "osssysinfo.h"
#include "sysinfo/ossrecord.h"

using namespace oss;

OSSErr ossGetAvgCPULoad(OSSCPULoadInfo* info) noexcept {
  Operation op(Func::ossGetAvgCPULoad);
  if (const OSSErr rc = op.check(info)) return rc;

  mark(info->shortAverage, ECF_NOT_SUPPORTED);
  mark(info->mediumAverage, ECF_NOT_SUPPORTED);
  mark(info->longAverage, ECF_NOT_SUPPORTED);
  op.trace(10, *info);
  return op.exit(ECF_NOT_SUPPORTED);
}
