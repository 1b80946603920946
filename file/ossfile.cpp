// The file handle: open, close, size, lock, flush. The file pointer's operations are in
// ossfileio.cpp, the mapping's in ossfilemap.cpp.
#include "ossfile.h"

#include <windows.h>

#include "core/osshandle.h"
#include "core/ossoperation.h"
#include "osstime.h"

using namespace oss;

struct OSSHFile::Layout {
  OSS_FIELD(OSSHFile, fileHandle_, 0, 8);
  OSS_FIELD(OSSHFile, mappingHandle_, 8, 8);
  OSS_FIELD(OSSHFile, view_, 16, 8);
};

namespace {

// The system's word for a creation, or 0 for an unknown one.
DWORD dispositionOf(uint64_t creation) noexcept {
  switch (creation) {
    case OSS_FILE_OPEN_EXISTING: return OPEN_EXISTING;
    case OSS_FILE_OPEN_ALWAYS: return OPEN_ALWAYS;
    case OSS_FILE_TRUNCATE: return TRUNCATE_EXISTING;
    case OSS_FILE_CREATE_NEW: return CREATE_NEW;
    case OSS_FILE_CREATE_ALWAYS: return CREATE_ALWAYS;
    default: return 0;
  }
}

// The system's word for an access, or 0 for an unknown one.
DWORD accessOf(uint64_t access) noexcept {
  switch (access) {
    case OSS_FILE_READ: return GENERIC_READ;
    case OSS_FILE_WRITE: return GENERIC_WRITE;
    case OSS_FILE_READ_WRITE: return GENERIC_READ | GENERIC_WRITE;
    default: return 0;
  }
}

DWORD attributesOf(uint64_t flags) noexcept {
  DWORD attributes = FILE_ATTRIBUTE_NORMAL;
  if (flags & OSS_FILE_WRITE_THROUGH) attributes |= FILE_FLAG_WRITE_THROUGH;
  if (flags & OSS_FILE_DELETE_ON_CLOSE) attributes |= FILE_FLAG_DELETE_ON_CLOSE;
  return attributes;
}

bool exists(const char* path) noexcept {
  return ::GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

// The lock is byte 0 of the file.
constexpr DWORD kLockedBytes = 1;
constexpr uint32_t kLockRetryMilliseconds = 100;

}  // namespace

OSSHFile::OSSHFile() noexcept { reset(); }

void OSSHFile::reset() noexcept {
  fileHandle_ = INVALID_HANDLE_VALUE;
  mappingHandle_ = INVALID_HANDLE_VALUE;
  view_ = nullptr;
}

OSSErr OSSHFile::open(const OSSFileOpenParam* param) noexcept {
  Operation op(Func::OSSHFile_open);
  if (const OSSErr rc = op.check(param)) return rc;
  op.trace(200, *param);
  if (param->path == nullptr) return op.fail(210, ECF_INVALID_PARAMETER, OSS_LOG_INFO);
  op.trace(220, param->path);

  const DWORD disposition = dispositionOf(param->creation);
  if (disposition == 0) return op.fail(230, ECF_INVALID_PARAMETER, OSS_LOG_INFO);
  const DWORD access = accessOf(param->access);
  if (access == 0) return op.fail(240, ECF_INVALID_PARAMETER, OSS_LOG_INFO);
  if (disposition == TRUNCATE_EXISTING && access == GENERIC_READ)
    return op.fail(250, ECF_INVALID_PARAMETER, OSS_LOG_INFO);

  // What can be answered from the attributes is answered without opening anything.
  const bool found = exists(param->path);
  if (found && disposition == CREATE_NEW)
    return op.fail(260, ECF_FILE_EXISTS, OSS_LOG_INFO, {string(param->path)});
  if (!found && disposition == OPEN_EXISTING)
    return op.fail(270, ECF_FILE_DOESNT_EXIST, OSS_LOG_INFO, {string(param->path)});

  reset();
  const DWORD attributes = attributesOf(param->flags);
  const HANDLE file = ::CreateFileA(param->path, access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, disposition, attributes, nullptr);
  if (file == INVALID_HANDLE_VALUE)
    return op.failSystem(
        280, SysCall::CreateFileA,
        {{1, string(param->path)}, {2, hex(disposition)}, {5, hex(access)}, {6, hex(attributes)}});

  fileHandle_ = file;
  return op.exit();
}

OSSErr OSSHFile::close() noexcept {
  Operation op(Func::OSSHFile_close);

  if (!closeHandle(fileHandle_))
    return op.failSystem(20, SysCall::CloseHandle, {{1, hex(fileHandle_)}});

  reset();
  return op.exit();
}

OSSErr OSSHFile::lock(const OSSFileLockParam* param) noexcept {
  Operation op(Func::OSSHFile_lock);
  // Deliberate: these two refusals are reported under read's identifier.
  if (const OSSErr rc = op.check(param, Func::OSSHFile_read)) return rc;
  if (param->mode != OSS_FILE_LOCK_EXCLUSIVE && param->mode != OSS_FILE_LOCK_SHARED)
    return op.failField(130, param->mode);
  if (param->wait != OSS_FILE_LOCK_WAIT && param->wait != OSS_FILE_LOCK_NO_WAIT)
    return op.failField(140, param->wait);

  DWORD flags = LOCKFILE_FAIL_IMMEDIATELY;
  if (param->mode == OSS_FILE_LOCK_EXCLUSIVE) flags |= LOCKFILE_EXCLUSIVE_LOCK;
  OVERLAPPED start = {};
  while (!::LockFileEx(fileHandle_, flags, 0, kLockedBytes, 0, &start)) {
    if (::GetLastError() != ERROR_LOCK_VIOLATION)
      return op.failSystem(160, SysCall::LockFileEx, {{1, hex(fileHandle_)}, {2, hex(flags)}});
    // Not logged: that somebody else holds the lock is an answer, not a failure.
    if (param->wait == OSS_FILE_LOCK_NO_WAIT) return op.exit(ECF_FILE_LOCK);
    ossSleep(kLockRetryMilliseconds);
  }
  return op.exit();
}

OSSErr OSSHFile::unlock() noexcept {
  Operation op(Func::OSSHFile_unlock);

  OVERLAPPED start = {};
  if (!::UnlockFileEx(fileHandle_, 0, kLockedBytes, 0, &start))
    return op.failSystem(20, SysCall::UnlockFileEx, {{1, hex(fileHandle_)}});
  return op.exit();
}

OSSErr OSSHFile::sync() noexcept {
  Operation op(Func::OSSHFile_sync);

  if (!::FlushFileBuffers(fileHandle_))
    return op.failSystem(20, SysCall::FlushFileBuffers, {{1, hex(fileHandle_)}});
  return op.exit();
}
