// The mount listing: the roots are read at once, each drive is asked when its turn comes.
#include <windows.h>

#include <cstring>

#include "core/ossoperation.h"
#include "file/osspathtext.h"
#include "ossdisk.h"
#include "sysinfo/ossmebibytes.h"

using namespace oss;

struct OSSMountListing::Layout {
  OSS_FIELD(OSSMountListing, roots_, 0, 1024);
  OSS_FIELD(OSSMountListing, cursor_, 1024, 8);
  OSS_FIELD(OSSMountListing, active_, 1032, 1);
};

OSSMountListing::~OSSMountListing() {
  if (active_) static_cast<void>(end());
}

OSSErr OSSMountListing::begin() noexcept {
  Operation op(Func::OSSMountListing_begin);
  if (active_) return op.fail(10, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO);

  // Every letter together takes 105 bytes: the list always fits.
  const DWORD size = sizeof roots_;
  if (::GetLogicalDriveStringsA(size, roots_) == 0)
    return op.failSystem(80, SysCall::GetLogicalDriveStringsA, {{1, uint(size)}});
  active_ = true;
  cursor_ = roots_;
  return op.exit();
}

OSSErr OSSMountListing::getNext(const OSSMountListingGetParam* param, OSSMountInfo& info) noexcept {
  Operation op(Func::OSSMountListing_getNext);
  if (const OSSErr rc = op.check(param)) return rc;
  if (!active_ || param->reserved != 0)
    return op.fail(20, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO, {hex(param->reserved)});

  const char* root = nullptr;
  bool isReady = false;
  while (!isReady) {
    ::SetLastError(ERROR_SUCCESS);
    root = cursor_;
    copyBounded(root, info.mountPoint, sizeof info.mountPoint);
    if (*root == '\0') {
      constexpr OSSErr kEnd = ECF_FILE_EOF;  // an expected end: traced, not logged
      op.trace(30, kEnd);
      return op.exit(kEnd);
    }
    cursor_ += std::strlen(root) + 1;
    const bool isTold =
        ::GetVolumeInformationA(root, info.volume, sizeof info.volume, nullptr, nullptr, nullptr,
                                info.fileSystem, sizeof info.fileSystem) != FALSE;
    // Deliberate: a volume that refuses without an error is taken as it is.
    const DWORD error = isTold ? DWORD{ERROR_SUCCESS} : ::GetLastError();
    isReady = error == ERROR_SUCCESS;
    if (!isReady && error != ERROR_NOT_READY)
      return op.failSystem(40, SysCall::GetVolumeInformationA, {{1, string(root)}});
  }

  ULARGE_INTEGER total;
  ULARGE_INTEGER free;
  if (!::GetDiskFreeSpaceExA(root, nullptr, &total, &free))
    return op.failSystem(50, SysCall::GetDiskFreeSpaceExA, {{1, string(root)}});
  info.totalSize = mebibytes(total.QuadPart);
  info.freeSize = mebibytes(free.QuadPart);
  info.status = ECF_OK;
  return op.exit();
}

OSSErr OSSMountListing::end() noexcept {
  Operation op(Func::OSSMountListing_end);
  if (!active_) return op.fail(10, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO);
  active_ = false;
  return op.exit();
}
