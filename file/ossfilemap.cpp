// The operations of the file handle that map the file into memory.
#include <windows.h>

#include "core/osshandle.h"
#include "core/ossoperation.h"
#include "ossfile.h"

using namespace oss;

namespace {

// What the mapping object and the view are asked for; 0 for an unknown protection.
struct Protection {
  DWORD page = 0;
  DWORD view = 0;
};

Protection protectionOf(uint64_t protection) noexcept {
  switch (protection) {
    case OSS_FILE_MAP_READ_ONLY: return {PAGE_READONLY, FILE_MAP_READ};
    case OSS_FILE_MAP_COPY_ON_WRITE: return {PAGE_WRITECOPY, FILE_MAP_COPY};
    case OSS_FILE_MAP_READ_WRITE: return {PAGE_READWRITE, FILE_MAP_WRITE};
    default: return {};
  }
}

}  // namespace

OSSErr OSSHFile::map(const OSSFileMapParam* param, void** address) noexcept {
  Operation op(Func::OSSHFile_map);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(address)) return rc;
  op.trace(10, *param);

  const Protection protection = protectionOf(param->protection);
  if (protection.page == 0) return op.failField(60, param->protection);

  // The handle fields hold nothing unless both steps succeed.
  mappingHandle_ = INVALID_HANDLE_VALUE;
  ScopedHandle mapping(::CreateFileMappingA(fileHandle_, nullptr, protection.page, 0, 0, nullptr));
  if (mapping.get() == nullptr)
    return op.failSystem(70, SysCall::CreateFileMappingA, {{1, hex(fileHandle_)}});

  void* const view =
      ::MapViewOfFileEx(mapping.get(), protection.view, 0, 0, param->length, *address);
  if (view == nullptr)
    // Deliberate: mapped as a failure of the view, logged as one of the mapping.
    return op.failSystem(
        80, {.mappedAs = SysCall::MapViewOfFileEx, .loggedAs = SysCall::CreateFileMappingA},
        {{1, hex(fileHandle_)}});

  mappingHandle_ = mapping.release();
  view_ = view;
  *address = view;
  op.trace(90, view);
  return op.exit();
}

OSSErr OSSHFile::unmap(void* view) noexcept {
  Operation op(Func::OSSHFile_unmap);

  if (!::UnmapViewOfFile(view))
    return op.failSystem(30, SysCall::UnmapViewOfFile, {{1, hex(fileHandle_)}});
  view_ = nullptr;
  if (!closeHandle(mappingHandle_))
    return op.failSystem(40, SysCall::CloseHandle, {{1, hex(mappingHandle_)}});

  mappingHandle_ = INVALID_HANDLE_VALUE;
  return op.exit();
}
