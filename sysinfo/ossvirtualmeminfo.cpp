// Physical memory and swap space together.
#include "core/ossoperation.h"
#include "osssysinfo.h"
#include "sysinfo/ossrecord.h"

using namespace oss;

namespace {

template <class Info>
bool isTold(OSSErr rc, const Info& info) noexcept {
  return rc != ECF_FAILED && rc != ECF_NOT_SUPPORTED && info.total.status == ECF_OK &&
         info.available.status == ECF_OK;
}

constexpr OSSErr failureOf(OSSErr rc) noexcept {
  return rc == ECF_NOT_SUPPORTED ? ECF_NOT_SUPPORTED : ECF_FAILED;
}

}  // namespace

OSSErr ossGetVirtualMemInfo(OSSVirtualMemInfo* info) noexcept {
  Operation op(Func::ossGetVirtualMemInfo);
  if (const OSSErr rc = op.check(info)) return rc;
  mark(info->reserved, ECF_NOT_SUPPORTED);
  mark(info->committed, ECF_NOT_SUPPORTED);

  // Deliberate: whatever fails, the statuses of the caller's total and available stay.
  OSSPhysMemInfo physical;
  if (const OSSErr rc = ossGetPhysMemInfo(&physical); !isTold(rc, physical)) {
    op.trace(10, rc);
    return op.exit(failureOf(rc));
  }
  OSSPhysSwapInfo swap;
  if (const OSSErr rc = ossGetPhysSwapInfo(&swap); !isTold(rc, swap)) {
    op.trace(20, rc);
    return op.exit(failureOf(rc));
  }
  info->total.value = physical.total.value + swap.total.value;
  info->available.value = physical.available.value + swap.available.value;
  return op.exit();
}
