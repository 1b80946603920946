// The copy of a directory tree, by recursion: one frame of the operation for each directory.
#include <cstring>
#include <string_view>

#include "core/ossoperation.h"
#include "file/osspathtext.h"
#include "ossdirectory.h"

using namespace oss;

namespace {

// True when the text of a path leads into a directory. A copy into its own source would find itself
// there and never end.
bool liesWithin(std::string_view path, std::string_view directory) noexcept {
  if (directory.empty()) return false;
  if (directory.back() == '\\') directory.remove_suffix(1);
  return path.size() > directory.size() && path[directory.size()] == '\\' &&
         ::_strnicmp(path.data(), directory.data(), directory.size()) == 0;
}

// Tells of a step that failed and of the two paths that it was about.
OSSErr failStep(Operation& op, Probe probe, Func step, OSSErr rc, const char* from,
                const char* to) noexcept {
  return op.failCalled(probe, step, rc, {{1, string(from)}, {2, string(to)}});
}

// A path holds no more than 130 components, and so many frames are the most.
// NOLINTBEGIN(misc-no-recursion)

// Copies what the listing names. A failure is told already.
OSSErr copyContent(Operation& op, OSSDirectoryListing& listing, const char* from,
                   const char* to) noexcept {
  char source[kPathBytes];
  char target[kPathBytes];
  while (const char* const name = listing.getNext()) {
    if (isSelfOrParent(name)) continue;
    if (!joinPath(from, name, source) || !joinPath(to, name, target))
      return op.fail(80, ECF_FILE_NAME_TOO_LONG, OSS_LOG_INFO,
                     {string(from), string(to), string(name)});

    if (ossIsDirectory(source)) {
      if (const OSSErr rc = ossDirectoryCopy(source, target))
        return failStep(op, 50, Func::ossDirectoryCopy, rc, source, target);
    } else if (const OSSErr rc = ossFileCopy(source, target)) {
      return failStep(op, 60, Func::ossFileCopy, rc, source, target);
    }
  }
  return ECF_OK;
}

}  // namespace

OSSErr ossDirectoryCopy(const char* from, const char* to) noexcept {
  Operation op(Func::ossDirectoryCopy);
  if (const OSSErr rc = op.checkNotNull(from)) return rc;
  if (const OSSErr rc = op.checkNotNull(to)) return rc;
  OSSPathTestParam target;
  target.path = to;
  if (std::strcmp(from, to) == 0 || liesWithin(to, from) || ossPathTest(&target) == ECF_OK)
    return op.fail(10, ECF_INVALID_PARAMETER, OSS_LOG_INFO, {string(from), string(to)});
  if (!ossIsDirectory(from))
    return op.fail(70, ECF_FILE_NOT_A_DIRECTORY, OSS_LOG_INFO, {string(from), string(to)});

  OSSFileInfoParam source;
  source.path = from;
  OSSFileInfo info;
  if (const OSSErr rc = ossFileGetInfoV9(&source, &info))
    return failStep(op, 20, Func::ossGetFileInfo, rc, from, to);
  OSSDirectoryCreateParam create;
  create.path = to;
  create.permissions = info.permissions;
  create.mode = OSS_DIRECTORY_CREATE_ONE;
  if (const OSSErr rc = ossDirectoryCreate(&create))
    return failStep(op, 30, Func::ossDirectoryCreate, rc, from, to);

  OSSDirectoryListingParam content;
  content.path = from;
  content.typeMask = OSS_FILE_TYPE_REGULAR | OSS_FILE_TYPE_DIRECTORY;
  OSSDirectoryListing listing;
  if (const OSSErr rc = listing.begin(&content))
    return failStep(op, 40, Func::OSSDirectoryListing_begin, rc, from, to);

  const OSSErr copied = copyContent(op, listing, from, to);
  const OSSErr ended = listing.end();
  if (copied != ECF_OK) return op.exit(copied);
  if (ended != ECF_OK) return failStep(op, 90, Func::OSSDirectoryListing_end, ended, from, to);
  return op.exit();
}

// NOLINTEND(misc-no-recursion)
