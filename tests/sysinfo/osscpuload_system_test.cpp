// Load averages, which this platform has not.
#include "sysinfo/osssysinfofixture.h"

using namespace osse_test;
using oss::Func;

namespace {

class CPULoad : public SysInfoTest {};

TEST_F(CPULoad, IsNotSupportedAndValuesAreNotTouched) {
  expectRecordChecks<OSSCPULoadInfo>(Func::ossGetAvgCPULoad, ossGetAvgCPULoad);
  for (const uint64_t version : kVersions) {
    Patterned<OSSCPULoadInfo> record(version);
    Patterned<OSSCPULoadInfo> expected = record;
    expected->shortAverage.status = ECF_NOT_SUPPORTED;
    expected->mediumAverage.status = ECF_NOT_SUPPORTED;
    expected->longAverage.status = ECF_NOT_SUPPORTED;
    EXPECT_EQ(ossGetAvgCPULoad(record.get()), ECF_NOT_SUPPORTED);
    EXPECT_EQ(record.differenceFrom(expected), "");
  }
}

}  // namespace
