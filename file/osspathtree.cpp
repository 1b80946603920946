// The removal of a directory, alone or with all that is in it.
#include <windows.h>

#include <cstring>

#include "core/ossoperation.h"
#include "file/osspathinternal.h"
#include "file/osspathtext.h"
#include "ossdirectory.h"

using namespace oss;

namespace {

// A link to a directory, or another volume mounted on one: what is behind it is not in the tree.
bool isLink(const char* path) noexcept {
  const DWORD attributes = ::GetFileAttributesA(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// A path holds no more than 130 components, and so many frames are the most.
// NOLINTBEGIN(misc-no-recursion)

OSSErr deleteChild(Operation& op, const char* directory, const char* name) noexcept {
  char child[kPathBytes];
  if (!joinPath(directory, name, child))
    return op.fail(80, ECF_FILE_NAME_TOO_LONG, OSS_LOG_INFO, {string(directory), string(name)});

  if (ossIsDirectory(child)) {
    if (const OSSErr rc = oss_directory_delete_recursive(child))
      return op.failCalled(20, Func::oss_directory_delete_recursive, rc, {{1, string(child)}});
  } else if (const OSSErr rc = ossFileDelete(child)) {
    return op.failCalled(40, Func::ossFileDelete, rc, {{1, string(child)}});
  }
  return ECF_OK;
}

OSSErr deleteContents(Operation& op, const char* path) noexcept {
  OSSDirectoryListingParam param;
  param.path = path;
  param.typeMask = OSS_FILE_TYPE_REGULAR | OSS_FILE_TYPE_DIRECTORY;
  OSSDirectoryListing listing;
  if (const OSSErr rc = listing.begin(&param))
    return op.failCalled(50, Func::OSSDirectoryListing_begin, rc, {{1, string(path)}});

  while (const char* const name = listing.getNext()) {
    if (isSelfOrParent(name)) continue;
    if (const OSSErr rc = deleteChild(op, path, name)) {
      // Not reported: the first failure is the one that counts.
      listing.end();
      return rc;
    }
  }
  if (const OSSErr rc = listing.end())
    return op.failCalled(60, Func::OSSDirectoryListing_end, rc, {{1, string(path)}});
  return ECF_OK;
}

}  // namespace

OSSErr ossDirectoryDelete(const OSSDirectoryDeleteParam* param) noexcept {
  Operation op(Func::ossDirectoryDelete);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(param->path)) return rc;

  return op.exit(param->flags & OSS_DIRECTORY_DELETE_RECURSIVELY
                     ? oss_directory_delete_recursive(param->path)
                     : oss_directory_delete(param->path));
}

OSSErr oss::oss_directory_delete(const char* path) noexcept {
  Operation op(Func::oss_directory_delete);
  if (!::RemoveDirectoryA(path))
    return op.failSystem(30, SysCall::RemoveDirectoryA, {{1, string(path)}});
  return op.exit();
}

OSSErr oss::oss_directory_delete_recursive(const char* path) noexcept {
  Operation op(Func::oss_directory_delete_recursive);
  // Deliberate: the null device in this spelling only.
  if (std::strcmp(path, "NUL") == 0)
    return op.fail(10, ECF_INVALID_PARAMETER, OSS_LOG_INFO, {string(path)});
  if (!ossIsDirectory(path))
    return op.fail(70, ECF_FILE_NOT_A_DIRECTORY, OSS_LOG_INFO, {string(path)});

  if (!isLink(path))
    if (const OSSErr rc = deleteContents(op, path)) return rc;
  if (const OSSErr rc = oss_directory_delete(path))
    return op.failCalled(30, Func::oss_directory_delete, rc, {{1, string(path)}});
  return op.exit();
}

// NOLINTEND(misc-no-recursion)
