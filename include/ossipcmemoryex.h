// ossipcmemoryex.h - two variants of shared memory: extended and private.
//
// Extended memory takes a plain name from its caller, is mapped for reading only or for reading and
// writing, and may share a section that exists. Private memory invents a name that nobody else has,
// so that a thread can make a section and hand the handle itself, byte by byte, to another process.
//
// What holds for every handle, for the refusals that are not listed here, and for threads stands in
// ossipc.h; what a section is, in ossipcmemory.h.
#pragma once

#include "ossipcmemory.h"
#include "ossipcresource.h"
#include "osstypes.h"

// ---- Extended memory ----------------------------------------------------------------------------

/// Bits of `flags` below. Without an access the view is refused (ECF_ACCESS_DENIED).
inline constexpr uint64_t OSS_MEMORY_EXCLUSIVE = 1;   ///< create refuses a section that exists
inline constexpr uint64_t OSS_MEMORY_READ_ONLY = 4;   ///< access: reading; wins over the next
inline constexpr uint64_t OSS_MEMORY_READ_WRITE = 8;  ///< access: reading and writing

/// The longest name, without its NUL.
inline constexpr uint64_t OSS_MEMORY_NAME_MOST = 253;

/// A name is not empty, not longer than OSS_MEMORY_NAME_MOST and without a backslash. The kernel
/// object's is "[Global\]OSSEIPC120<name without ':'>"; where that is longer than the system takes
/// (ossipcresource.h) it is refused as ECF_FILE_NAME_TOO_LONG.
struct OSSIPCMemoryExCreateParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* name = nullptr;
  uint64_t size = 0;         ///< bytes, not 0; counts for a section that is made
  uint64_t flags = 0;        ///< OSS_MEMORY_..., not 0
  void* address = nullptr;   ///< of the view, a multiple of 64 KiB; null lets the system choose
  uint32_t permissions = 1;  ///< not 0; otherwise unused on this platform
  uint32_t padding = 0;
  uint64_t options = 0;  ///< not used on this platform
};
OSS_LAYOUT(OSSIPCMemoryExCreateParam, 56);
OSS_FIELD(OSSIPCMemoryExCreateParam, version, 0, 8);
OSS_FIELD(OSSIPCMemoryExCreateParam, name, 8, 8);
OSS_FIELD(OSSIPCMemoryExCreateParam, size, 16, 8);
OSS_FIELD(OSSIPCMemoryExCreateParam, flags, 24, 8);
OSS_FIELD(OSSIPCMemoryExCreateParam, address, 32, 8);
OSS_FIELD(OSSIPCMemoryExCreateParam, permissions, 40, 4);
OSS_FIELD(OSSIPCMemoryExCreateParam, options, 48, 8);

struct OSSIPCMemoryExAttachParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* name = nullptr;
  uint64_t flags = 0;       ///< OSS_MEMORY_READ_ONLY or OSS_MEMORY_READ_WRITE
  void* address = nullptr;  ///< of the view, a multiple of 64 KiB; null lets the system choose
};
OSS_LAYOUT(OSSIPCMemoryExAttachParam, 32);
OSS_FIELD(OSSIPCMemoryExAttachParam, version, 0, 8);
OSS_FIELD(OSSIPCMemoryExAttachParam, name, 8, 8);
OSS_FIELD(OSSIPCMemoryExAttachParam, flags, 16, 8);
OSS_FIELD(OSSIPCMemoryExAttachParam, address, 24, 8);

/// What create() and attach() tell. Its version is not examined.
struct OSSIPCMemoryExInfo {
  uint64_t version = OSS_VERSION_CURRENT;
  void* address = nullptr;  ///< of the view
};
OSS_LAYOUT(OSSIPCMemoryExInfo, 16);
OSS_FIELD(OSSIPCMemoryExInfo, version, 0, 8);
OSS_FIELD(OSSIPCMemoryExInfo, address, 8, 8);

/// Unlike other handles it refuses to be attached twice. A create or attach that fails behind its
/// checks shows all that it was given in its record, closes what it has opened and leaves the
/// handle as constructed; a refusal of that close is mapped and logged as well (probe 200), and
/// does not change the code.
class OSS_API OSSHIPCMemoryEx {
 public:
  /// Constructs a handle that is not attached.
  OSSHIPCMemoryEx() noexcept;

  /// Forgets what it held; unmaps and closes nothing.
  ~OSSHIPCMemoryEx();

  OSSHIPCMemoryEx(const OSSHIPCMemoryEx&) = delete;
  OSSHIPCMemoryEx& operator=(const OSSHIPCMemoryEx&) = delete;

  /// Creates a section, or takes the one of that name, and maps all of it.
  /// \param info  receives the view's address; untouched on failure
  /// \retval 0                                the handle is attached
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  it is attached already (20); Info
  /// \retval ECF_INVALID_PARAMETER            the record breaks its rules (30); Info
  /// \retval ECF_EXISTS                       OSS_MEMORY_EXCLUSIVE and the section exists (150)
  /// \return otherwise the system's refusal, mapped: of the security attributes (110), the name
  ///         (120), the section (140) or the view (160)
  OSSErr create(const OSSIPCMemoryExCreateParam* param, OSSIPCMemoryExInfo* info) noexcept;

  /// As detach(), but the handle is as constructed afterwards, whatever happened.
  OSSErr destroy() noexcept;

  /// Maps all of a section that exists.
  /// \param info  receives the view's address; untouched on failure
  /// \retval 0                                the handle is attached
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  it is attached already (20); Info
  /// \retval ECF_INVALID_PARAMETER            the name breaks its rules (30); Info
  /// \retval ECF_FILE_DOESNT_EXIST            there is no section of that name (100); Info
  /// \return otherwise the system's refusal, mapped: of the name (90), the section (100) or the
  ///         view (120)
  OSSErr attach(const OSSIPCMemoryExAttachParam* param, OSSIPCMemoryExInfo* info) noexcept;

  /// Unmaps the view and closes the section's handle. Both are tried, whatever becomes of the
  /// other; the handle is as constructed once it is closed.
  /// \retval 0  both are done
  /// \return otherwise the first refusal of the system, mapped: to unmap (30) or to close (40)
  OSSErr detach() noexcept;

  /// Whether the handle has a view. Not traced.
  bool isAttached() const noexcept;

 private:
  struct Layout;

  void reset() noexcept;
  void hold(void* handle, const OSSIPCResID& resID, void* address, uint64_t size) noexcept;

  void* handle_;    // all ones while there is none
  char name_[261];  // the kernel object's, as far as it fits
  void* address_;   // null while not attached
  uint64_t size_;   // that of a create
};
OSS_LAYOUT(OSSHIPCMemoryEx, 288);

// ---- Private memory -----------------------------------------------------------------------------

/// A section with a name of its own. Its creator hands the bytes of the handle to another process,
/// which calls remoteInitialization() and attach() on its copy:
///
///   creator                             the other process
///   memory.create(&param)
///   ... sizeof memory bytes of it ...   std::memcpy(&copy, bytes, sizeof copy)
///                                       copy.remoteInitialization()
///                                       copy.attach(nullptr)
///
/// Each process detaches its own. The creator must not detach before the other has attached. The
/// operations that are not listed are those of OSSHIPCMemory.
class OSS_API OSSHIPCPrivateMemory : public OSSHIPCMemory {
 public:
  /// Creates a section as OSSHIPCMemory::create does, under the first name of
  /// "PRIVMEMPID<process>TID<thread>", with the project numbers from 0 to 99, that is not taken.
  /// \param param  its identifier receives the name that was chosen
  /// \retval 0                    the handle is attached
  /// \retval ECF_INVALID_VERSION  param->resID is older than 20040702, which ossIPCGetResID logs
  /// \retval ECF_NO_RESOURCE      all of the hundred names are taken (100); Info
  /// \return otherwise the code of OSSHIPCMemory::create
  OSSErr create(OSSIPCMemoryCreateParam* param) noexcept;

  /// Maps the section of the handle's name, as OSSHIPCMemory::attach does.
  OSSErr attach(const void* address) noexcept;

  /// Makes a copy of another process's handle one that is not attached and has its name.
  /// \retval 0                     it can be attached
  /// \retval ECF_MEM_DOESNT_EXIST  the handle has no name (100); Info
  OSSErr remoteInitialization() noexcept;

 private:
  struct Layout;

  OSSIPCResID resID_;
};
OSS_LAYOUT(OSSHIPCPrivateMemory, 288);
