// One system call for each operation, and its last error for a result.
#include "ossprimitivefile.h"

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "numeric/ossformat.h"

namespace oss {
namespace {

constexpr size_t kFormatBytes = 2048;

int resultOf(BOOL succeeded) noexcept { return succeeded ? 0 : static_cast<int>(::GetLastError()); }

DWORD accessOf(uint64_t flags) noexcept {
  if (flags & OSS_PRIMITIVE_READ) return GENERIC_READ;
  if (flags & OSS_PRIMITIVE_WRITE) return GENERIC_WRITE;
  return GENERIC_READ | GENERIC_WRITE;
}

DWORD dispositionOf(uint64_t flags) noexcept {
  if (flags & OSS_PRIMITIVE_OPEN_EXISTING) return OPEN_EXISTING;
  return flags & OSS_PRIMITIVE_OPEN_ALWAYS ? OPEN_ALWAYS : OPEN_EXISTING;
}

}  // namespace
}  // namespace oss

using namespace oss;

OSSPrimitiveFileOp::OSSPrimitiveFileOp() noexcept : fileHandle_(INVALID_HANDLE_VALUE) {}

int OSSPrimitiveFileOp::open(const char* name, uint64_t flags) noexcept {
  fileHandle_ = ::CreateFileA(name, accessOf(flags), FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              dispositionOf(flags), FILE_ATTRIBUTE_NORMAL, nullptr);
  return resultOf(isValid());
}

void OSSPrimitiveFileOp::openConsole() noexcept { fileHandle_ = ::GetStdHandle(STD_OUTPUT_HANDLE); }

void OSSPrimitiveFileOp::close() noexcept {
  if (isValid()) ::CloseHandle(fileHandle_);
}

bool OSSPrimitiveFileOp::isValid() const noexcept { return fileHandle_ != INVALID_HANDLE_VALUE; }

int OSSPrimitiveFileOp::write(const void* data, uint64_t size) noexcept {
  if (!isValid()) return 0;

  if (size == 0 && data != nullptr) size = std::strlen(static_cast<const char*>(data));
  const auto asked = static_cast<DWORD>(std::min<uint64_t>(size, MAXDWORD));
  DWORD written = 0;
  return resultOf(::WriteFile(fileHandle_, data, asked, &written, nullptr));
}

void OSSPrimitiveFileOp::fwrite(const char* format, ...) noexcept {
  char text[kFormatBytes] = {};
  va_list arguments;
  va_start(arguments, format);
  formatText(text, sizeof text, format, arguments);
  va_end(arguments);
  write(text, 0);
}

int OSSPrimitiveFileOp::read(uint64_t size, void* buffer, uint64_t* bytesRead) noexcept {
  DWORD count = 0;
  const bool succeeded =
      isValid() && ::ReadFile(fileHandle_, buffer, static_cast<DWORD>(size), &count, nullptr);
  const int result = resultOf(succeeded);
  if (bytesRead != nullptr) *bytesRead = succeeded ? count : 0;
  return result;
}

int OSSPrimitiveFileOp::getSize(offsetType* size) noexcept {
  const DWORD low = ::GetFileSize(fileHandle_, nullptr);
  const bool succeeded = low != INVALID_FILE_SIZE;
  const int result = resultOf(succeeded);
  if (size != nullptr) *size = succeeded ? low : 0;
  return result;
}

OSSPrimitiveFileOp::offsetType OSSPrimitiveFileOp::getCurrentOffset() const noexcept {
  return ::SetFilePointer(fileHandle_, 0, nullptr, FILE_CURRENT);
}

void OSSPrimitiveFileOp::seekToOffset(offsetType offset) noexcept {
  // A null high half makes the system take the low one as signed, so both are given.
  LONG high = 0;
  ::SetFilePointer(fileHandle_, static_cast<LONG>(offset), &high, FILE_BEGIN);
}

void OSSPrimitiveFileOp::seekToEnd() noexcept {
  LONG high = 0;
  ::SetFilePointer(fileHandle_, 0, &high, FILE_END);
}
