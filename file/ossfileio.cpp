// The operations of the file handle that work at, or move, the file pointer.
#include <windows.h>

#include <algorithm>
#include <limits>

#include "core/ossoperation.h"
#include "file/ossfilepointer.h"
#include "ossfile.h"

using namespace oss;

namespace {

// The system takes 32-bit sizes; a longer transfer goes in pieces.
constexpr uint64_t kMostBytesAtOnce = uint64_t{1} << 30;

// Moves bytes in pieces until `size` of them are moved, the system moves fewer than asked, or
// refuses. *moved counts them in every case.
template <class MovePiece>
bool moveInPieces(uint64_t size, uint64_t* moved, MovePiece movePiece) noexcept {
  *moved = 0;
  for (;;) {
    const auto piece = static_cast<DWORD>(std::min(size - *moved, kMostBytesAtOnce));
    DWORD count = 0;
    if (!movePiece(*moved, piece, &count)) return false;
    *moved += count;
    if (count < piece || *moved == size) return true;
  }
}

// Saturates, so that no sum wraps to a valid position.
uint64_t targetOf(uint64_t base, int64_t offset) noexcept {
  if (offset < 0) {
    const uint64_t back = 0 - static_cast<uint64_t>(offset);
    return back < base ? base - back : 0;
  }
  const auto forward = static_cast<uint64_t>(offset);
  return forward <= std::numeric_limits<uint64_t>::max() - base
             ? base + forward
             : std::numeric_limits<uint64_t>::max();
}

}  // namespace

OSSErr OSSHFile::seek(const OSSFileSeekParam* param, uint64_t* position) noexcept {
  Operation op(Func::OSSHFile_seek);
  if (const OSSErr rc = op.check(param)) return rc;
  if (param->origin > OSS_FILE_END) return op.failField(120, param->origin);

  uint64_t base = 0;
  if (param->origin != OSS_FILE_START) {
    const DWORD origin = param->origin == OSS_FILE_CURRENT ? FILE_CURRENT : FILE_END;
    if (!moveFilePointer(fileHandle_, 0, origin, &base))
      return op.failSystem(130, SysCall::SetFilePointer, {{1, hex(fileHandle_)}});
  }

  // Deliberate: a target before the start is the start.
  const uint64_t target = targetOf(base, param->offset);
  uint64_t size = 0;
  if (!fileSizeOf(fileHandle_, &size))
    return op.failSystem(140, SysCall::GetFileSize, {{1, hex(fileHandle_)}});
  if (target > size)
    return op.fail(150, ECF_FILE_SEEK_BEYOND_EOF, OSS_LOG_INFO, {uint(target), uint(size)});

  uint64_t reached = 0;
  if (!moveFilePointer(fileHandle_, static_cast<int64_t>(target), FILE_BEGIN, &reached))
    return op.failSystem(160, SysCall::SetFilePointer, {{1, hex(fileHandle_)}});
  if (position != nullptr) *position = reached;
  return op.exit();
}

OSSErr OSSHFile::getSize(uint64_t* size) noexcept {
  Operation op(Func::OSSHFile_getSize);
  if (const OSSErr rc = op.checkNotNull(size)) return rc;

  if (!fileSizeOf(fileHandle_, size))
    return op.failSystem(20, SysCall::GetFileSize, {{1, hex(fileHandle_)}});
  op.trace(30, *size);
  return op.exit();
}

OSSErr OSSHFile::setSize(const OSSFileSetSizeParam* param) noexcept {
  Operation op(Func::OSSHFile_setSize);
  if (const OSSErr rc = op.check(param)) return rc;
  if (param->reserved != 0) return op.failField(30, param->reserved);

  uint64_t position = 0;
  if (!moveFilePointer(fileHandle_, 0, FILE_CURRENT, &position))
    // Deliberate: mapped as a size query, logged as a pointer move.
    return op.failSystem(110,
                         {.mappedAs = SysCall::GetFileSize, .loggedAs = SysCall::SetFilePointer},
                         {{1, hex(fileHandle_)}});

  uint64_t reached = 0;
  if (!moveFilePointer(fileHandle_, static_cast<int64_t>(param->size), FILE_BEGIN, &reached))
    return op.failSystem(130, SysCall::SetFilePointer, {{1, hex(fileHandle_)}});
  if (!::SetEndOfFile(fileHandle_)) {
    const OSSErr rc = op.failSystem(150, SysCall::SetEndOfFile, {{1, hex(fileHandle_)}});
    // Not reported: the pointer is put back as well as it can be.
    moveFilePointer(fileHandle_, static_cast<int64_t>(position), FILE_BEGIN, &reached);
    return rc;
  }
  if (!moveFilePointer(fileHandle_, static_cast<int64_t>(position), FILE_BEGIN, &reached))
    return op.failSystem(170, SysCall::SetFilePointer, {{1, hex(fileHandle_)}});
  return op.exit();
}

OSSErr OSSHFile::read(const OSSFileReadParam* param, void* buffer, uint64_t* bytesRead) noexcept {
  Operation op(Func::OSSHFile_read);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(bytesRead)) return rc;

  const auto readPiece = [&](uint64_t at, DWORD size, DWORD* count) {
    return ::ReadFile(fileHandle_, static_cast<char*>(buffer) + at, size, count, nullptr);
  };
  if (!moveInPieces(param->size, bytesRead, readPiece))
    return op.failSystem(50, SysCall::ReadFile, {{1, hex(fileHandle_)}, {3, uint(param->size)}});
  if (*bytesRead == param->size) return op.exit();

  op.trace(40, *bytesRead, param->size);
  return op.exit(ECF_FILE_EOF);  // an expected end: traced, not logged
}

// What the record of a failed write shows of its bytes. None if they cannot be read, which may be
// why it has failed.
static LogItem shownOf(const void* buffer, uint64_t size) noexcept {
  constexpr uint64_t kMostBytesShown = 512;
  const DWORD error = ::GetLastError();
  const bool isReadable = !::IsBadReadPtr(buffer, std::min(size, kMostBytesShown));
  ::SetLastError(error);
  return isReadable ? string(static_cast<const char*>(buffer), size) : string(nullptr, 0);
}

OSSErr OSSHFile::write(const OSSFileWriteParam* param, uint64_t* bytesWritten) noexcept {
  Operation op(Func::OSSHFile_write);
  if (const OSSErr rc = op.check(param)) return rc;
  op.trace(30, param->buffer, param->size, bytesWritten);

  uint64_t written = 0;
  const auto writePiece = [&](uint64_t at, DWORD size, DWORD* count) {
    const char* const bytes = static_cast<const char*>(param->buffer) + at;
    return ::WriteFile(fileHandle_, bytes, size, count, nullptr);
  };
  const bool accepted = moveInPieces(param->size, &written, writePiece);
  if (bytesWritten != nullptr) *bytesWritten = written;
  if (!accepted)
    return op.failSystem(
        40, SysCall::WriteFile,
        {{1, hex(fileHandle_)}, {2, shownOf(param->buffer, param->size)}, {3, uint(param->size)}});
  if (written != param->size)
    return op.fail(60, ECF_FILE_INCOMPLETE_WRITE, OSS_LOG_INFO, {uint(param->size), uint(written)});
  return op.exit();
}
