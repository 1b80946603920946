// The copy of one file.
#include <windows.h>

#include <cstring>

#include "core/ossoperation.h"
#include "file/osspathinternal.h"
#include "osspath.h"

using namespace oss;

OSSErr ossFileCopy(const char* from, const char* to) noexcept {
  Operation op(Func::ossFileCopy);
  if (const OSSErr rc = op.checkNotNull(from)) return rc;
  if (const OSSErr rc = op.checkNotNull(to)) return rc;
  if (std::strcmp(from, to) == 0)
    return op.fail(10, ECF_INVALID_PARAMETER, OSS_LOG_INFO, {string(from), string(to)});

  OSSPathTestParam target;
  target.path = to;
  if (ossPathTest(&target) == ECF_OK)
    return op.fail(20, ECF_FILE_EXISTS, OSS_LOG_INFO, {string(to)});
  if (const OSSErr rc = oss_copy(from, to))
    return op.failCalled(30, Func::oss_copy, rc, {{1, string(from)}, {2, string(to)}});
  return op.exit();
}

OSSErr oss::oss_copy(const char* from, const char* to) noexcept {
  Operation op(Func::oss_copy);
  constexpr BOOL kFailIfExists = TRUE;
  if (!::CopyFileA(from, to, kFailIfExists))
    // Deliberate: mapped in the name of another operation.
    return op.failSystem(
        10, {.mappedAs = SysCall::CopyFileA, .mappedFor = Func::OSSHProcess_createProcess},
        {{1, string(from)}, {2, string(to)}});
  return op.exit();
}
