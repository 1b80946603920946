// Files by their path: delete, rename, permissions, copy, temporary names.
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "core/ossoperation.h"
#include "file/osspathinternal.h"
#include "file/osspathtext.h"
#include "osspath.h"

using namespace oss;

namespace {

OSSErr testExistence(const char* path) noexcept {
  OSSPathTestParam param;
  param.path = path;
  return ossPathTest(&param);
}

constexpr uint64_t kOwnerReadsAndWrites = 0600;

// ---- Temporary names ----

constexpr uint64_t kLeastNameBytes = 14;
constexpr char kNamePrefix[] = "kt5";

OSSErr makeName(Operation& op, char* buffer, uint64_t size) noexcept {
  // Deliberate: a buffer too small is told and not logged.
  if (size < kLeastNameBytes) return op.exit(ECF_BUFFER_TOO_SMALL);

  // Run-times differ in the length of their names.
  char name[kPathTextBytes];
  if (std::tmpnam(name) == nullptr) return op.exit(ECF_FAILED);
  if (std::strlen(name) >= size) return op.exit(ECF_BUFFER_TOO_SMALL);
  copyBounded(name, buffer, size);
  return op.exit();
}

OSSErr makeFile(Operation& op, char* buffer, uint64_t size) noexcept {
  if (size < kPathBytes) return op.exit(ECF_BUFFER_TOO_SMALL);

  char directory[512];
  const DWORD length = ::GetTempPathA(sizeof directory, directory);
  if (length == 0 || length > sizeof directory) {
    // The system tells the length that it needs and no error; this is its name.
    if (length != 0) ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
    // Deliberate: logged as a buffer that is too small, whatever it is.
    return op.failSystem(10, {.mappedAs = SysCall::GetTempPathA,
                              .loggedAs = SysCall::GetTempPathA,
                              .loggedCode = ECF_BUFFER_TOO_SMALL});
  }
  if (::GetTempFileNameA(directory, kNamePrefix, 0, buffer) == 0)
    // Deliberate: mapped as the directory, logged as the file and as a plain failure.
    return op.failSystem(20,
                         {.mappedAs = SysCall::GetTempPathA,
                          .loggedAs = SysCall::GetTempFileNameA,
                          .loggedCode = ECF_FAILED},
                         {{1, string(directory)}, {2, string(kNamePrefix)}});
  return op.exit();
}

}  // namespace

OSSErr ossFileDelete(const char* path) noexcept {
  Operation op(Func::ossFileDelete);
  if (const OSSErr rc = op.checkNotNull(path)) return rc;

  if (const OSSErr rc = testExistence(path))
    return op.failCalled(20, Func::ossPathTest, rc, {{1, string(path)}});
  if (ossIsDirectory(path))
    return op.fail(30, ECF_FILE_IS_A_DIRECTORY, OSS_LOG_INFO, {string(path)});
  if (!::DeleteFileA(path)) return op.failSystem(40, SysCall::DeleteFileA, {{1, string(path)}});
  return op.exit();
}

OSSErr ossFileRename(const char* from, const char* to) noexcept {
  Operation op(Func::ossFileRename);
  if (const OSSErr rc = op.checkNotNull(from)) return rc;
  if (const OSSErr rc = op.checkNotNull(to)) return rc;

  // Deliberate: one code for every failure; the record tells which.
  if (!::MoveFileA(from, to))
    return op.failUnmapped(30, SysCall::MoveFileA, ECF_FILE_DOESNT_EXIST,
                           {{1, string(from)}, {2, string(to)}});
  return op.exit();
}

OSSErr ossFileSetOwnership(...) noexcept { return ECF_OK; }

OSSErr ossFileSetPermissions(const char* path, uint64_t mode) noexcept {
  Operation op(Func::ossFileSetPermissions);
  if (const OSSErr rc = op.checkNotNull(path)) return rc;

  const uint64_t applied = mode != 0 ? mode : kOwnerReadsAndWrites;
  if (::_chmod(path, static_cast<int>(applied)) < 0)
    return op.failSystem(20, SysCall::Chmod, {{1, string(path)}, {2, hex(applied)}});
  return op.exit();
}

OSSErr osstmpnam(char* buffer, uint64_t size, uint64_t flags) noexcept {
  Operation op(Func::osstmpnam);
  if (const OSSErr rc = op.checkNotNull(buffer)) return rc;

  return flags & OSS_TMPNAM_CREATE ? makeFile(op, buffer, size) : makeName(op, buffer, size);
}
