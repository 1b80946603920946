// Private shared memory.
#include <windows.h>

#include <type_traits>

#include "core/ossoperation.h"
#include "ossipcmemoryex.h"
#include "ossprocess.h"
#include "ossstring.h"

using namespace oss;

// The base has members of its own: both compilers know the offset nevertheless.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct OSSHIPCPrivateMemory::Layout {
  OSS_FIELD(OSSHIPCPrivateMemory, resID_, 16, 272);
};
#pragma GCC diagnostic pop

// Its bytes are handed to another process.
static_assert(std::is_trivially_copyable_v<OSSHIPCPrivateMemory>);

namespace {

constexpr int32_t kNumbers = 100;
constexpr size_t kPathBytes = 261;

// A name that cannot be opened for want of a right, or because another kind of object has it, is
// taken as well.
bool isTaken(const OSSIPCResID& resID) noexcept {
  const HANDLE section = ::OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, resID.name);
  if (section != nullptr) {
    ::CloseHandle(section);
    return true;
  }
  const DWORD error = ::GetLastError();
  return error == ERROR_ACCESS_DENIED || error == ERROR_INVALID_HANDLE;
}

}  // namespace

OSSErr OSSHIPCPrivateMemory::create(OSSIPCMemoryCreateParam* param) noexcept {
  Operation op(Func::OSSHIPCPrivateMemory_create);
  if (const OSSErr rc = op.check(param)) return rc;

  char path[kPathBytes];
  ossSnprintf(path, sizeof path, "PRIVMEMPID%uTID%I64u", ossProcessID(), uint64_t{ossThreadID()});
  OSSIPCGetResIDParam in;
  in.path = path;
  for (; in.projectID < kNumbers; ++in.projectID) {
    if (const OSSErr rc = ossIPCGetResID(&in, &param->resID)) return op.exit(rc);
    if (isTaken(param->resID)) continue;
    resID_ = param->resID;
    return op.exit(OSSHIPCMemory::create(param));
  }
  return op.fail(100, ECF_NO_RESOURCE, OSS_LOG_INFO, {string(path)});
}

OSSErr OSSHIPCPrivateMemory::attach(const void* address) noexcept {
  Operation op(Func::OSSHIPCPrivateMemory_attach);
  return op.exit(OSSHIPCMemory::attach(&resID_, address));
}

OSSErr OSSHIPCPrivateMemory::remoteInitialization() noexcept {
  Operation op(Func::OSSHIPCPrivateMemory_remoteInitialization);

  resID_.name[sizeof resID_.name - 1] = '\0';
  if (resID_.name[0] == '\0') return op.fail(100, ECF_MEM_DOESNT_EXIST, OSS_LOG_INFO);
  reset();
  return op.exit();
}
