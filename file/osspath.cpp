// Questions about paths: what is there, what may be done with it, what its parts are.
#include "osspath.h"

#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <cstring>

#include "core/osserrorlevel.h"
#include "core/ossoperation.h"
#include "file/osspathinternal.h"
#include "file/osspathtext.h"

using namespace oss;

namespace {

// ---- The run-time's modes ----

constexpr unsigned kTypeBits = 0xF000;
constexpr unsigned kPermissionBits = 0xFFF;

// The type bits of what the path names; 0 when it cannot be told.
unsigned typeOf(const char* path) noexcept {
  struct _stat64 status;
  return ::_stat64(path, &status) == 0 ? status.st_mode & kTypeBits : 0;
}

int accessModeOf(uint64_t flags) noexcept {
  constexpr int kRead = 4;
  constexpr int kWrite = 2;
  return (flags & OSS_PATH_READABLE ? kRead : 0) | (flags & OSS_PATH_WRITABLE ? kWrite : 0);
}

// ---- The test of a path, for those who log and those who do not ----

enum class Report : bool { No, Yes };

OSSErr testPath(const OSSPathTestParam* param, Report report) noexcept {
  Operation op(Func::ossPathTest);
  if (const OSSErr rc = op.check(param)) return rc;
  op.trace(10, *param);
  if (const OSSErr rc = op.checkNotNull(param->path)) return rc;

  // The run-time sets either only where it has something to tell.
  ::SetLastError(ERROR_SUCCESS);
  errno = 0;
  if (::_access(param->path, accessModeOf(param->flags)) == 0) return op.exit();

  // Not logged: that a path is missing or denied is an answer, not a failure.
  const DWORD error = ::GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
    return op.exit(ECF_FILE_DOESNT_EXIST);
  if (errno == EACCES) return op.exit(ECF_ACCESS_DENIED);

  if (report == Report::No)
    return op.failUnlogged(40, SysCall::Access, static_cast<uint32_t>(errno));
  const OSSErr rc = op.failErrno(40, SysCall::Access, {{1, string(param->path)}});
  return op.fail(40, rc, logLevelOf(rc), {hex(param->flags), hex(param->reserved)});
}

// The path in its short form or, where it has none, as it is.
class ShortPath {
 public:
  explicit ShortPath(const char* path) noexcept : text_(path) {
    const DWORD length = ::GetShortPathNameA(path, buffer_, sizeof buffer_);
    if (length > 0 && length < sizeof buffer_) text_ = buffer_;
  }
  ~ShortPath() = default;
  ShortPath(const ShortPath&) = delete;
  ShortPath& operator=(const ShortPath&) = delete;

  const char* text() const noexcept { return text_; }

 private:
  char buffer_[kPathBytes];
  const char* text_;
};

bool isEmpty(const char* path) noexcept { return path == nullptr || *path == '\0'; }

}  // namespace

// ---- What is there ----

bool oss::ossIsNTVolume(const char* path) noexcept {
  Operation op(Func::ossIsNTVolume);
  return op.exit(path != nullptr && isDevicePath(path)) != 0;
}

bool ossIsFile(const char* path) noexcept {
  return path != nullptr && typeOf(path) == OSS_FILE_TYPE_REGULAR;
}

bool ossIsDirectory(const char* path) noexcept {
  if (path == nullptr) return false;
  char buffer[kPathTextBytes];
  return typeOf(withoutTrailingSeparator(path, buffer)) == OSS_FILE_TYPE_DIRECTORY;
}

OSSErr ossPathTest(const OSSPathTestParam* param) noexcept { return testPath(param, Report::Yes); }

bool ossPathExists(const char* path) noexcept {
  Operation op(Func::ossPathExists);
  if (path == nullptr) return op.exit(false) != 0;

  OSSPathTestParam param;
  param.path = path;
  return op.exit(testPath(&param, Report::No) == ECF_OK) != 0;
}

OSSErr ossFileGetInfoV9(const OSSFileInfoParam* param, OSSFileInfo* info) noexcept {
  Operation op(Func::ossGetFileInfo);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(info)) return rc;
  if (const OSSErr rc = op.checkNotNull(param->path)) return rc;

  struct _stat64 status;
  if (::_stat64(param->path, &status) != 0)
    return op.failErrno(30, SysCall::Stat, {{1, string(param->path)}});

  const uint16_t mode = status.st_mode;
  info->type = mode & kTypeBits;
  if (info->type != OSS_FILE_TYPE_REGULAR && info->type != OSS_FILE_TYPE_DIRECTORY) {
    info->type = 0;
    return op.fail(60, ECF_FILE_UNKNOWN_FILE_TYPE, OSS_LOG_INFO, {hex(mode)});
  }
  info->size = static_cast<uint64_t>(status.st_size);
  info->permissions = mode & kPermissionBits;
  info->owner = static_cast<uint32_t>(status.st_uid);
  info->group = static_cast<uint32_t>(status.st_gid);
  info->modified = static_cast<uint64_t>(status.st_mtime);
  return op.exit();
}

OSSErr ossFileGetInfo(const OSSFileInfoParam* param, OSSFileInfo* info) noexcept {
  return ossFileGetInfoV9(param, info);
}

bool ossComparePaths(const char* a, const char* b) noexcept {
  Operation op(Func::ossComparePaths);
  if (a == nullptr || b == nullptr) return op.exit(false) != 0;

  const ShortPath first(a);
  const ShortPath second(b);
  return op.exit(::_stricmp(first.text(), second.text()) == 0) != 0;
}

OSSErr ossGetLogicalDriveMap(uint32_t* map) noexcept {
  Operation op(Func::ossGetLogicalDriveMap);
  if (const OSSErr rc = op.checkNotNull(map)) return rc;

  *map = ::GetLogicalDrives();
  if (*map == 0) return op.fail(10, ECF_FILE_CANNOT_RETRIEVE_DRIVE_MAP, OSS_LOG_ERROR);
  return op.exit();
}

// ---- Text ----

OSSErr ossDirectoryName(const char* path, char* out, uint64_t outSize) noexcept {
  Operation op(Func::ossDirectoryName);
  if (isEmpty(path)) return op.fail(10, ECF_INVALID_PARAMETER, OSS_LOG_INFO);
  if (outSize != 0)
    if (const OSSErr rc = op.checkNotNull(out)) return rc;

  const DirectoryPart part =
      ossIsNTVolume(path) ? DirectoryPart{path, std::strlen(path) + 1} : directoryPartOf(path);
  if (part.needed > outSize) {
    copyBounded({}, out, outSize);
    return op.fail(30, ECF_BUFFER_TOO_SMALL, OSS_LOG_INFO, {uint(part.needed), uint(outSize)});
  }
  copyBounded(part.text, out, outSize);
  return op.exit();
}

OSSErr ossBaseName(const char* path, char* out, uint64_t outSize) noexcept {
  Operation op(Func::ossBaseName);
  if (isEmpty(path)) return op.fail(10, ECF_INVALID_PARAMETER, OSS_LOG_INFO);
  if (outSize != 0)
    if (const OSSErr rc = op.checkNotNull(out)) return rc;

  const BasePart part = basePartOf(path);
  if (part.needed > outSize)
    return op.fail(30, ECF_BUFFER_TOO_SMALL, OSS_LOG_INFO, {uint(part.needed), uint(outSize)});
  writeBase(part, out);
  return op.exit();
}
