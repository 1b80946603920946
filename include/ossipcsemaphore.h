// ossipcsemaphore.h - a counting semaphore that processes share.
//
// One process creates it under a name (ossipcresource.h), others attach to it; any of them takes a
// count with wait() and gives one with post(). The count lies between 0 and OSS_SEMAPHORE_MOST. A
// process that ends does not give back what it took. The semaphore is gone when the last handle to
// it, in any process, is closed.
//
// What holds for every handle, for the refusals that are not listed here, and for threads stands in
// ossipc.h. A handle that is not attached is refused by the system, as ECF_INVALID_PARAMETER.
// post() and wait() change nothing in the handle: any number of threads may call them at a time, as
// long as none attaches or detaches it.
#pragma once

#include "ossipcresource.h"
#include "osstypes.h"

/// The greatest count of a semaphore.
inline constexpr uint64_t OSS_SEMAPHORE_MOST = 32767;

/// A wait without limit.
inline constexpr uint32_t OSS_SEMAPHORE_INFINITE = 0xFFFFFFFF;

struct OSSIPCSemaphoreCreateParam {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSIPCResID resID;          ///< the name; an empty one makes a semaphore without a name
  uint64_t initialCount = 0;  ///< at most OSS_SEMAPHORE_MOST
  uint64_t options = 0;       ///< not used on this platform
  uint64_t reserved = 0;      ///< not used on this platform
};
OSS_LAYOUT(OSSIPCSemaphoreCreateParam, 304);
OSS_FIELD(OSSIPCSemaphoreCreateParam, version, 0, 8);
OSS_FIELD(OSSIPCSemaphoreCreateParam, resID, 8, 272);
OSS_FIELD(OSSIPCSemaphoreCreateParam, initialCount, 280, 8);
OSS_FIELD(OSSIPCSemaphoreCreateParam, options, 288, 8);
OSS_FIELD(OSSIPCSemaphoreCreateParam, reserved, 296, 8);

struct OSSIPCSemaphoreWaitParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint32_t timeout = 0;  ///< milliseconds, or OSS_SEMAPHORE_INFINITE
  uint32_t padding = 0;
  uint64_t unused[2] = {};
};
OSS_LAYOUT(OSSIPCSemaphoreWaitParam, 32);
OSS_FIELD(OSSIPCSemaphoreWaitParam, version, 0, 8);
OSS_FIELD(OSSIPCSemaphoreWaitParam, timeout, 8, 4);
OSS_FIELD(OSSIPCSemaphoreWaitParam, unused, 16, 16);

class OSS_API OSSHIPCSemaphore {
 public:
  /// Constructs a handle that is not attached.
  OSSHIPCSemaphore() noexcept;

  /// Creates a semaphore. What the handle held before is forgotten and lost. After a failure the
  /// handle is of no use although it may count as attached: it holds what the system answered.
  /// \retval 0               the handle is attached
  /// \retval ECF_SEM_EXISTS  the name is taken by a semaphore (probe 90), which is not touched
  /// \return otherwise the system's refusal, mapped: of the security attributes (70; the handle is
  ///         as it was), of the semaphore (80), or an error beside a semaphore that was made all
  ///         the same (100), which stays open
  OSSErr create(const OSSIPCSemaphoreCreateParam* param) noexcept;

  /// The same as detach(): the semaphore is gone with its last handle.
  OSSErr destroy() noexcept;

  /// Opens a semaphore that exists. What the handle held before is forgotten and lost.
  /// \param resID  the semaphore's name; its version is not examined
  /// \retval 0                     the handle is attached
  /// \retval ECF_SEM_DOESNT_EXIST  there is none of that name (40); Info
  /// \return otherwise the system's refusal, mapped (40). The handle is not attached.
  OSSErr attach(const OSSIPCResID* resID) noexcept;

  /// Closes the handle.
  /// \retval 0  closed
  /// \return otherwise the system's refusal, mapped (30). The handle is not attached in any case.
  OSSErr detach() noexcept;

  /// Gives one count; a waiter takes it.
  /// \retval 0            given
  /// \retval ECF_UNKNOWN  the count is OSS_SEMAPHORE_MOST already (40); Error
  /// \return otherwise the system's refusal, mapped (40)
  OSSErr post() noexcept;

  /// Takes one count, waiting for it if there is none.
  /// \retval 0                       taken
  /// \retval ECF_TIMEOUT             none came in time; not logged
  /// \retval ECF_SEM_WAIT_ABANDONED  the system calls the object abandoned (100); Info
  /// \return otherwise the system's refusal, mapped (110)
  OSSErr wait(const OSSIPCSemaphoreWaitParam* param) noexcept;

  /// Changes nothing: who may open a semaphore is decided when it is created.
  /// \retval 0  always, but for a null or old record
  OSSErr authorize(const OSSIPCSecurityParam* param) noexcept;

  /// Whether the handle holds anything. Not traced.
  bool isAttached() const noexcept;

 private:
  struct Layout;

  void* handle_;  // all ones while closed
};
OSS_LAYOUT(OSSHIPCSemaphore, 8);
