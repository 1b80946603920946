// ossipcmemory.h - shared memory: a named section that one process creates and others attach to.
//
// The section is backed by the system's paging file and starts filled with zeros. The creator gives
// it a name (ossipcresource.h), a size and, if it likes, an address; each process has a view of its
// own, usually at another address, so that shared data holds offsets, not pointers. The section is
// gone when the last handle to it, in any process, is closed, and its name is free from then on,
// although views that nobody unmapped stay usable.
//
// What holds for every handle, for the refusals that are not listed here, and for threads stands in
// ossipc.h. Nothing is released by a destructor: a handle that is dropped while attached keeps its
// view and its system handle until the process ends.
#pragma once

#include "ossipcresource.h"
#include "osstypes.h"

/// What create() is given. The whole record is traced.
struct OSSIPCMemoryCreateParam {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSIPCResID resID;        ///< the section's name; an empty one makes a section without a name
  uint64_t size = 0;        ///< bytes, not 0
  void* address = nullptr;  ///< of the view, a multiple of 64 KiB; null lets the system choose
  uint64_t options = 0;     ///< not used on this platform
  uint64_t reserved = 0;    ///< not used on this platform
};
OSS_LAYOUT(OSSIPCMemoryCreateParam, 312);
OSS_FIELD(OSSIPCMemoryCreateParam, version, 0, 8);
OSS_FIELD(OSSIPCMemoryCreateParam, resID, 8, 272);
OSS_FIELD(OSSIPCMemoryCreateParam, size, 280, 8);
OSS_FIELD(OSSIPCMemoryCreateParam, address, 288, 8);
OSS_FIELD(OSSIPCMemoryCreateParam, options, 296, 8);
OSS_FIELD(OSSIPCMemoryCreateParam, reserved, 304, 8);

class OSS_API OSSHIPCMemory {
 public:
  /// Constructs a handle that is not attached.
  OSSHIPCMemory() noexcept;

  /// Creates a section and maps all of it, for reading and writing. What the handle held before is
  /// forgotten and lost. A failure is logged twice: at its probe with the name, and at the next one
  /// with the other fields and the system handle. The handle is not attached then.
  /// \retval 0               the handle is attached
  /// \retval ECF_MEM_EXISTS  the name is taken by a section (90), which is not touched
  /// \return otherwise the system's refusal, mapped: of the security attributes (60), of the
  ///         section (80) or of the view (100)
  OSSErr create(const OSSIPCMemoryCreateParam* param) noexcept;

  /// Detaches. The section is gone with its last handle, so there is nothing more to destroy.
  /// \retval 0  always; a refused unmapping is logged, a refused close is only traced
  OSSErr destroy() noexcept;

  /// Maps all of a section that exists, for reading and writing. What the handle held before is
  /// forgotten and lost.
  /// \param resID    the section's name; its version is not examined
  /// \param address  of the view, a multiple of 64 KiB; null lets the system choose
  /// \retval 0                     the handle is attached
  /// \retval ECF_MEM_DOESNT_EXIST  the section cannot be opened, for whatever reason, which the
  ///                               record tells (50); Info
  /// \return otherwise the system's refusal of the view, mapped (70). The handle is not attached.
  OSSErr attach(const OSSIPCResID* resID, const void* address) noexcept;

  /// Unmaps the view and closes the section's handle. Both are tried, whatever becomes of the
  /// other, and the system handle is forgotten in every case.
  /// \retval 0  the handle is not attached
  /// \return otherwise the system's refusal to close the handle, mapped and traced, but not logged
  ///         (40); if it did close, that to unmap the view, mapped and logged (30), which leaves
  ///         the view's address in the handle
  OSSErr detach() noexcept;

  /// The same as detach(), under a name of its own.
  OSSErr detachAndDestroy() noexcept;

  /// Changes nothing: who may open a section is decided when it is created.
  /// \retval 0  always, but for a null or old record
  OSSErr authorize(const OSSIPCSecurityParam* param) noexcept;

  /// Tells where the view is.
  /// \param address  receives it; null when the handle is not attached
  /// \retval 0  *address is set
  OSSErr getAddress(void** address) noexcept;

  /// Tells how large the view is: the size that was asked for, rounded up to whole pages (4096
  /// bytes). Of a handle that is not attached, it tells a size that means nothing.
  /// \retval 0                   *size is set, in bytes
  /// \retval ECF_FAILED          the system describes no region, or not all of it (30); Info
  /// \retval ECF_INVALID_HANDLE  the system names no process (20); Info
  OSSErr getMemorySize(uint64_t* size) noexcept;

  /// Whether the handle has a view. Not traced.
  bool isAttached() const noexcept;

 protected:
  void reset() noexcept;

  void* handle_;   // all ones while there is none
  void* address_;  // null while not attached

 private:
  struct Layout;
};
OSS_LAYOUT(OSSHIPCMemory, 16);
