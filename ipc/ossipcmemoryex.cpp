// Extended shared memory.
#include "ossipcmemoryex.h"

#include <windows.h>

#include <atomic>
#include <cstring>

#include "core/osshandle.h"
#include "core/ossoperation.h"
#include "ipc/ossipcsecurity.h"

using namespace oss;

struct OSSHIPCMemoryEx::Layout {
  OSS_FIELD(OSSHIPCMemoryEx, handle_, 0, 8);
  OSS_FIELD(OSSHIPCMemoryEx, name_, 8, 261);
  OSS_FIELD(OSSHIPCMemoryEx, address_, 272, 8);
  OSS_FIELD(OSSHIPCMemoryEx, size_, 280, 8);
};

namespace {

constexpr int32_t kProjectID = 120;

// What a create or an attach has so far.
struct Section {
  OSSIPCResID resID;
  HANDLE handle = INVALID_HANDLE_VALUE;
  void* address = nullptr;
};

bool isName(const char* name) noexcept {
  if (name == nullptr || *name == '\0') return false;
  return ::strnlen(name, OSS_MEMORY_NAME_MOST + 1) <= OSS_MEMORY_NAME_MOST &&
         std::strchr(name, '\\') == nullptr;
}

bool isValid(const OSSIPCMemoryExCreateParam& param) noexcept {
  return isName(param.name) && param.size != 0 && param.flags != 0 && param.permissions != 0;
}

DWORD accessOf(uint64_t flags) noexcept {
  if (flags & OSS_MEMORY_READ_ONLY) return FILE_MAP_READ;
  return flags & OSS_MEMORY_READ_WRITE ? FILE_MAP_READ | FILE_MAP_WRITE : 0;
}

// Refuses a view without an access, which some systems map: nobody could use it.
void* mapWhole(HANDLE section, uint64_t flags, void* address) noexcept {
  const DWORD access = accessOf(flags);
  if (access == 0) {
    ::SetLastError(ERROR_ACCESS_DENIED);
    return nullptr;
  }
  return ::MapViewOfFileEx(section, access, 0, 0, 0, address);
}

OSSErr formName(const char* name, OSSIPCResID* resID) noexcept {
  OSSIPCGetResIDParam in;
  in.path = name;
  in.projectID = kProjectID;
  return ossIPCGetResID(&in, resID);
}

// Whoever fails below shows all that it was given and what it has by then: items point at values.

OSSErr makeSection(Operation& op, const OSSIPCMemoryExCreateParam& param,
                   Section* section) noexcept {
  const LogArgs items = {{1, uint(param.version)},
                         {2, string(param.name)},
                         {3, uint(param.size)},
                         {4, hex(param.flags)},
                         {5, hex(param.address)},
                         {6, hex(param.permissions)},
                         {7, hex(param.options)},
                         {8, hex(section->handle)},
                         {9, string(section->resID.name, sizeof section->resID.name)}};

  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes;
  if (const OSSErr rc = ossIPCBuildSecurityAttributes(&descriptor, &attributes))
    return op.failCalled(110, Func::ossInitSecurityAttributes, rc, items);
  if (const OSSErr rc = formName(param.name, &section->resID))
    return op.failCalled(120, Func::ossIPCGetResID, rc, items);

  ::SetLastError(ERROR_SUCCESS);
  section->handle = ::CreateFileMappingA(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE,
                                         static_cast<DWORD>(param.size >> 32),
                                         static_cast<DWORD>(param.size), section->resID.name);
  if (section->handle == nullptr) return op.failSystem(140, SysCall::CreateFileMappingA, items);
  // Without the flag, a section that exists is used as it is.
  if (::GetLastError() == ERROR_ALREADY_EXISTS && param.flags & OSS_MEMORY_EXCLUSIVE)
    return op.failUnmapped(150, SysCall::CreateFileMappingA, ECF_EXISTS, items);

  section->address = mapWhole(section->handle, param.flags, param.address);
  if (section->address == nullptr) return op.failSystem(160, SysCall::MapViewOfFileEx, items);
  return ECF_OK;
}

OSSErr openSection(Operation& op, const OSSIPCMemoryExAttachParam& param,
                   Section* section) noexcept {
  const LogArgs items = {
      {1, uint(param.version)},  {2, string(param.name)},
      {3, hex(param.flags)},     {4, hex(param.address)},
      {5, hex(section->handle)}, {6, string(section->resID.name, sizeof section->resID.name)}};

  if (const OSSErr rc = formName(param.name, &section->resID))
    return op.failCalled(90, Func::ossIPCGetResID, rc, items);

  section->handle = ::OpenFileMappingA(accessOf(param.flags), FALSE, section->resID.name);
  if (section->handle == nullptr) return op.failSystem(100, SysCall::OpenFileMappingA, items);

  section->address = mapWhole(section->handle, param.flags, param.address);
  if (section->address == nullptr) return op.failSystem(120, SysCall::MapViewOfFileEx, items);
  return ECF_OK;
}

// Closes what a failed create or attach has opened.
OSSErr giveBack(Operation& op, const Section& section, OSSErr rc) noexcept {
  const bool isOpen = section.handle != nullptr && section.handle != INVALID_HANDLE_VALUE;
  // Deliberate: told as a close of another kind, beside the code of the failure itself.
  if (isOpen && !::CloseHandle(section.handle))
    static_cast<void>(op.failSystem(200, SysCall::Close, {{1, hex(section.handle)}}));
  return op.exit(rc);
}

// Unmaps the view and closes the section; what is gone is gone from its field, too.
OSSErr release(Operation& op, HANDLE* section, void** address, LogArgs items) noexcept {
  OSSErr rc = ECF_OK;
  if (::UnmapViewOfFile(*address))
    *address = nullptr;
  else
    rc = op.failSystem(30, SysCall::UnmapViewOfFile, items);

  if (closeHandle(*section)) {
    *section = INVALID_HANDLE_VALUE;
  } else {
    const OSSErr second = op.failSystem(40, SysCall::CloseHandle, {{1, hex(*section)}});
    if (rc == ECF_OK) rc = second;
  }
  return op.exit(rc);
}

}  // namespace

OSSHIPCMemoryEx::OSSHIPCMemoryEx() noexcept { reset(); }

OSSHIPCMemoryEx::~OSSHIPCMemoryEx() {
  reset();
  // Whoever looks at the memory afterwards finds a handle that holds nothing: the compiler must not
  // leave the stores out because the object ends here.
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

void OSSHIPCMemoryEx::reset() noexcept {
  handle_ = INVALID_HANDLE_VALUE;
  std::memset(name_, 0, sizeof name_);
  address_ = nullptr;
  size_ = 0;
}

void OSSHIPCMemoryEx::hold(void* handle, const OSSIPCResID& resID, void* address,
                           uint64_t size) noexcept {
  handle_ = handle;
  std::memcpy(name_, resID.name, sizeof name_ - 1);  // the NUL stays
  address_ = address;
  size_ = size;
}

OSSErr OSSHIPCMemoryEx::create(const OSSIPCMemoryExCreateParam* param,
                               OSSIPCMemoryExInfo* info) noexcept {
  Operation op(Func::OSSHIPCMemoryEx_create);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(info)) return rc;
  if (isAttached())
    return op.fail(20, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO, {hex(address_)});
  if (!isValid(*param))
    return op.fail(
        30, ECF_INVALID_PARAMETER, OSS_LOG_INFO,
        {string(param->name), uint(param->size), hex(param->flags), hex(param->permissions)});

  reset();
  Section section;
  if (const OSSErr rc = makeSection(op, *param, &section)) return giveBack(op, section, rc);
  hold(section.handle, section.resID, section.address, param->size);
  info->address = address_;
  return op.exit();
}

OSSErr OSSHIPCMemoryEx::attach(const OSSIPCMemoryExAttachParam* param,
                               OSSIPCMemoryExInfo* info) noexcept {
  Operation op(Func::OSSHIPCMemoryEx_attach);
  if (const OSSErr rc = op.check(param)) return rc;
  if (const OSSErr rc = op.checkNotNull(info)) return rc;
  if (isAttached())
    return op.fail(20, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO, {hex(address_)});
  if (!isName(param->name))
    return op.fail(30, ECF_INVALID_PARAMETER, OSS_LOG_INFO, {string(param->name)});

  reset();
  Section section;
  if (const OSSErr rc = openSection(op, *param, &section)) return giveBack(op, section, rc);
  hold(section.handle, section.resID, section.address, 0);
  info->address = address_;
  return op.exit();
}

OSSErr OSSHIPCMemoryEx::detach() noexcept {
  Operation op(Func::OSSHIPCMemoryEx_detach);

  const OSSErr rc =
      release(op, &handle_, &address_,
              {{1, string(name_, sizeof name_)}, {2, uint(size_)}, {3, hex(address_)}});
  if (handle_ == INVALID_HANDLE_VALUE) reset();
  return op.exit(rc);
}

OSSErr OSSHIPCMemoryEx::destroy() noexcept {
  Operation op(Func::OSSHIPCMemoryEx_destroy);

  const OSSErr rc =
      release(op, &handle_, &address_,
              {{1, string(name_, sizeof name_)}, {2, uint(size_)}, {3, hex(address_)}});
  reset();
  return op.exit(rc);
}

bool OSSHIPCMemoryEx::isAttached() const noexcept { return address_ != nullptr; }
