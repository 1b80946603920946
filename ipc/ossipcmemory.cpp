// The handle of a section of shared memory.
#include "ossipcmemory.h"

#include <windows.h>

#include "core/osserrorlevel.h"
#include "core/osshandle.h"
#include "core/ossoperation.h"
#include "ipc/ossipcitem.h"
#include "ipc/ossipcsecurity.h"

using namespace oss;

struct OSSHIPCMemory::Layout {
  OSS_FIELD(OSSHIPCMemory, handle_, 0, 8);
  OSS_FIELD(OSSHIPCMemory, address_, 8, 8);
};

namespace {

constexpr DWORD kReadAndWrite = FILE_MAP_READ | FILE_MAP_WRITE;

void* mapWhole(HANDLE section, const void* address) noexcept {
  return ::MapViewOfFileEx(section, kReadAndWrite, 0, 0, 0, const_cast<void*>(address));
}

// How every failure of a create ends, once it is logged: with a second record, and with the section
// given back.
OSSErr giveUp(Operation& op, Probe probe, OSSErr rc, const OSSIPCMemoryCreateParam& param,
              HANDLE* section) noexcept {
  op.trace(probe, *section);
  const OSSErr code = op.fail(probe + 1, rc, logLevelOf(rc),
                              {uint(param.size), hex(param.address), hex(param.options),
                               hex(param.reserved), hex(*section)});
  // Deliberate: a section that was not made, a null handle, is closed as well. Not reported.
  if (*section != INVALID_HANDLE_VALUE) ::CloseHandle(*section);
  *section = INVALID_HANDLE_VALUE;
  return code;
}

OSSErr release(Operation& op, HANDLE* section, void** address) noexcept {
  OSSErr rc = ECF_OK;
  if (::UnmapViewOfFile(*address))
    *address = nullptr;
  else
    rc = op.failSystem(30, SysCall::UnmapViewOfFile, {{1, hex(*address)}});

  // Deliberate: this code covers the other one, and only a trace shows it.
  if (!closeHandle(*section)) rc = op.failUnlogged(40, SysCall::CloseHandle, ::GetLastError());
  *section = INVALID_HANDLE_VALUE;
  return op.exit(rc);
}

}  // namespace

OSSHIPCMemory::OSSHIPCMemory() noexcept { reset(); }

void OSSHIPCMemory::reset() noexcept {
  handle_ = INVALID_HANDLE_VALUE;
  address_ = nullptr;
}

OSSErr OSSHIPCMemory::create(const OSSIPCMemoryCreateParam* param) noexcept {
  Operation op(Func::OSSHIPCMemory_create);
  if (const OSSErr rc = op.check(param)) return rc;
  op.trace(10, *param);
  reset();

  const LogItem name = nameOf(param->resID);
  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes;
  if (OSSErr rc = ossIPCBuildSecurityAttributes(&descriptor, &attributes)) {
    rc = op.failCalled(60, Func::ossInitSecurityAttributes, rc, {{1, name}});
    return giveUp(op, 60, rc, *param, &handle_);
  }

  const auto high = static_cast<DWORD>(param->size >> 32);
  const auto low = static_cast<DWORD>(param->size);
  ::SetLastError(ERROR_SUCCESS);
  handle_ = ::CreateFileMappingA(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, high, low,
                                 param->resID.name);
  if (handle_ == nullptr) {
    const OSSErr rc =
        op.failSystem(80, SysCall::CreateFileMappingA, {{1, name}, {2, hex(high)}, {3, hex(low)}});
    return giveUp(op, 80, rc, *param, &handle_);
  }
  if (::GetLastError() == ERROR_ALREADY_EXISTS) {
    const OSSErr rc = op.failSystem(90, SysCall::CreateFileMappingA, {{1, name}});
    return giveUp(op, 90, rc, *param, &handle_);
  }

  address_ = mapWhole(handle_, param->address);
  if (address_ == nullptr) {
    const OSSErr rc = op.failSystem(100, SysCall::MapViewOfFileEx, {{1, name}});
    return giveUp(op, 100, rc, *param, &handle_);
  }
  op.trace(110, address_);
  return op.exit();
}

OSSErr OSSHIPCMemory::destroy() noexcept {
  Operation op(Func::OSSHIPCMemory_destroy);

  // Deliberate: not passed on.
  static_cast<void>(detach());
  return op.exit();
}

OSSErr OSSHIPCMemory::attach(const OSSIPCResID* resID, const void* address) noexcept {
  Operation op(Func::OSSHIPCMemory_attach);
  if (const OSSErr rc = op.checkNotNull(resID)) return rc;
  reset();

  const HANDLE opened = ::OpenFileMappingA(kReadAndWrite, FALSE, resID->name);
  ScopedHandle section(opened);
  // Deliberate: one code for every failure; the record tells which.
  if (opened == nullptr)
    return op.failUnmapped(50, SysCall::OpenFileMappingA, ECF_MEM_DOESNT_EXIST,
                           {{1, nameOf(*resID)}, {2, hex(address)}, {3, hex(opened)}});

  address_ = mapWhole(opened, address);
  if (address_ == nullptr)
    return op.failSystem(70, SysCall::MapViewOfFileEx,
                         {{1, nameOf(*resID)}, {2, hex(address)}, {3, hex(opened)}});
  handle_ = section.release();
  return op.exit();
}

OSSErr OSSHIPCMemory::detach() noexcept {
  Operation op(Func::OSSHIPCMemory_detach);
  return release(op, &handle_, &address_);
}

OSSErr OSSHIPCMemory::detachAndDestroy() noexcept {
  Operation op(Func::OSSHIPCMemory_detachAndDestroy);
  return release(op, &handle_, &address_);
}

// An operation of the handle, although it needs nothing of it.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
OSSErr OSSHIPCMemory::authorize(const OSSIPCSecurityParam* param) noexcept {
  Operation op(Func::OSSHIPCMemory_authorize);
  if (const OSSErr rc = op.check(param)) return rc;
  return op.exit();
}

OSSErr OSSHIPCMemory::getAddress(void** address) noexcept {
  Operation op(Func::OSSHIPCMemory_getAddress);
  if (const OSSErr rc = op.checkNotNull(address)) return rc;

  *address = address_;
  return op.exit();
}

OSSErr OSSHIPCMemory::getMemorySize(uint64_t* size) noexcept {
  Operation op(Func::OSSHIPCMemory_getMemorySize);
  if (const OSSErr rc = op.checkNotNull(size)) return rc;

  const HANDLE process = ::GetCurrentProcess();
  if (process == nullptr) return op.fail(20, ECF_INVALID_HANDLE, OSS_LOG_INFO);

  MEMORY_BASIC_INFORMATION region = {};
  const SIZE_T told = ::VirtualQueryEx(process, address_, &region, sizeof region);
  if (told != sizeof region) {
    // Deliberate: how many bytes came back stands where the record has the system's error.
    ::SetLastError(static_cast<DWORD>(told));
    return op.failUnmapped(30, SysCall::VirtualQueryEx, ECF_FAILED,
                           {{1, hex(region)}, {2, hex(address_)}});
  }
  *size = region.RegionSize;
  return op.exit();
}

bool OSSHIPCMemory::isAttached() const noexcept { return address_ != nullptr; }
