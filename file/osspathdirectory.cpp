// Directories by their path: the current one, and creation.
#include <windows.h>

#include <algorithm>
#include <limits>

#include "core/ossoperation.h"
#include "file/osspathtext.h"
#include "osspath.h"

using namespace oss;

namespace {

// Creates what stands along the path. A root is there already and is never created.
OSSErr createAlong(Operation& op, const char* path, uint64_t mode) noexcept {
  const bool acceptsExisting = mode == OSS_DIRECTORY_CREATE_MISSING;
  if (!PathWalk::canWalk(path))
    return op.fail(40, ECF_FILE_NAME_TOO_LONG, OSS_LOG_INFO, {string(path)});
  PathWalk walk(path);
  if (walk.isBareRoot()) {
    if (acceptsExisting) return op.exit();
    return op.fail(40, ECF_FILE_EXISTS, OSS_LOG_INFO, {string(path)});
  }

  do {
    walk.step();
    if (!::CreateDirectoryA(walk.prefix(), nullptr) &&
        !(acceptsExisting && ::GetLastError() == ERROR_ALREADY_EXISTS))
      return op.failSystem(40, SysCall::CreateDirectoryA, {{1, string(walk.prefix())}});
  } while (!walk.atEnd());
  return op.exit();
}

}  // namespace

OSSErr ossDirectoryGetCurrent(char* buffer, uint64_t* size) noexcept {
  Operation op(Func::ossDirectoryGetCurrent);
  if (const OSSErr rc = op.checkNotNull(size)) return rc;
  if (*size != 0)
    if (const OSSErr rc = op.checkNotNull(buffer)) return rc;

  const uint64_t given = *size;
  constexpr uint64_t kMost = std::numeric_limits<DWORD>::max();
  const DWORD length = ::GetCurrentDirectoryA(static_cast<DWORD>(std::min(given, kMost)), buffer);
  if (length == 0) return op.failSystem(40, SysCall::GetCurrentDirectoryA, {{1, uint(given)}});

  *size = length;
  if (length > given)
    return op.fail(40, ECF_BUFFER_TOO_SMALL, OSS_LOG_INFO, {uint(*size), uint(given)});
  return op.exit();
}

OSSErr ossDirectorySetCurrent(const char* path) noexcept {
  Operation op(Func::ossDirectorySetCurrent);
  if (const OSSErr rc = op.checkNotNull(path)) return rc;

  if (!::SetCurrentDirectoryA(path))
    return op.failSystem(30, SysCall::SetCurrentDirectoryA, {{1, string(path)}});
  return op.exit();
}

OSSErr ossDirectoryCreate(const OSSDirectoryCreateParam* param) noexcept {
  Operation op(Func::ossDirectoryCreate);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(param->path)) return rc;

  if (param->mode != OSS_DIRECTORY_CREATE_ONE) return createAlong(op, param->path, param->mode);
  if (!::CreateDirectoryA(param->path, nullptr))
    return op.failSystem(40, SysCall::CreateDirectoryA, {{1, string(param->path)}});
  return op.exit();
}
