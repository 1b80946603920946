// Thread-specific data. The operations trace; the inner ones below them call the system and log
// what it refuses under identifiers of their own.
#include <windows.h>

#include "core/ossoperation.h"
#include "ossthread.h"

using namespace oss;

struct OSSHThreadSpecificData::Layout {
  OSS_FIELD(OSSHThreadSpecificData, index_, 0, 4);
};

namespace {

OSSErr createSlot(uint32_t* index) noexcept {
  *index = ::TlsAlloc();
  if (*index != TLS_OUT_OF_INDEXES) return ECF_OK;
  return logSystemFailure(Func::OSSHThreadSpecificDataInternal_create, 20, SysCall::TlsAlloc);
}

OSSErr destroySlot(uint32_t index) noexcept {
  if (::TlsFree(index)) return ECF_OK;
  return logSystemFailure(Func::OSSHThreadSpecificDataInternal_destroy, 20, SysCall::TlsFree,
                          {{1, uint(index)}});
}

OSSErr setSlot(uint32_t index, const void* value) noexcept {
  if (::TlsSetValue(index, const_cast<void*>(value))) return ECF_OK;
  return logSystemFailure(Func::OSSHThreadSpecificDataInternal_set, 20, SysCall::TlsSetValue,
                          {{1, uint(index)}});
}

// The system clears the last error when it hands out a null that a slot really holds; that, too, is
// a failure.
OSSErr getSlot(uint32_t index, void** value) noexcept {
  *value = ::TlsGetValue(index);
  if (*value != nullptr) return ECF_OK;
  return logSystemFailure(Func::OSSHThreadSpecificDataInternal_get, 10, SysCall::TlsGetValue,
                          {{1, uint(index)}});
}

}  // namespace

OSSErr OSSHThreadSpecificData::create() noexcept {
  Operation op(Func::OSSHThreadSpecificData_create);
  return op.exit(createSlot(&index_));
}

// What these change is the slot, not the object that names it.
// NOLINTBEGIN(readability-make-member-function-const)

OSSErr OSSHThreadSpecificData::destroy() noexcept {
  Operation op(Func::OSSHThreadSpecificData_destroy);
  return op.exit(destroySlot(index_));
}

OSSErr OSSHThreadSpecificData::set(const void* value) noexcept {
  Operation op(Func::OSSHThreadSpecificData_set);
  static_cast<void>(setSlot(index_, value));  // Deliberate: callers never see a failure.
  return op.exit();
}

OSSErr OSSHThreadSpecificData::get(void** value) noexcept {
  Operation op(Func::OSSHThreadSpecificData_get);
  if (const OSSErr rc = op.checkNotNull(value)) return rc;
  return op.exit(getSlot(index_, value));
}

// NOLINTEND(readability-make-member-function-const)
