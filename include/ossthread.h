// ossthread.h - threads and thread-specific data.
//
// A thread that is started joinable must be waited for before its handle may be closed; one that is
// not joinable may be closed at once and runs on. One thread controls an OSSHThread at a time.
//
// Every operation with a name of its own in the catalog is traced. One with a parameter record
// first refuses a null record (ECF_INVALID_PARAMETER, probe 1111) and one older than 20040702
// (ECF_INVALID_VERSION, probe 1112), logged at level Error. Every other refusal is logged, too:
// what the operation finds itself at level Info, what the system refuses as its mapping says
// (ossErrorMapSystem).
#pragma once

#include "osstypes.h"

extern "C" {

/// The system's identifier of the calling thread. Any thread, any time; not traced.
OSS_API uint32_t ossThreadID() noexcept;

/// Ends the calling thread with exit code 0. Does not return; not traced.
[[noreturn]] OSS_API void ossThreadExit() noexcept;

}  // extern "C"

// ---- Threads ------------------------------------------------------------------------------------

/// A bit of OSSThreadParam::flags: the thread must be waited for before its handle is closed.
inline constexpr uint64_t OSS_THREAD_JOINABLE = 1;

struct OSSThreadParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t flags = 0;      ///< OSS_THREAD_JOINABLE; other bits are ignored
  uint64_t stackSize = 0;  ///< bytes; 0 for the system's default; more counts as 0xFFFFFFFF
};
OSS_LAYOUT(OSSThreadParam, 24);
OSS_FIELD(OSSThreadParam, version, 0, 8);
OSS_FIELD(OSSThreadParam, flags, 8, 8);
OSS_FIELD(OSSThreadParam, stackSize, 16, 8);

class OSS_API OSSHThread {
 public:
  /// Constructs a handle without a thread.
  OSSHThread() noexcept = default;

  /// Closes the handle if there is one. A thread that is joinable and has not been waited for is
  /// reported as by close(), and its handle stays open.
  ~OSSHThread();

  OSSHThread(const OSSHThread&) = delete;
  OSSHThread& operator=(const OSSHThread&) = delete;

  /// Starts a thread that calls entry(argument) and ends with exit code 0.
  /// \param argument  passed on; whose it is, is between the caller and the entry
  /// \param threadID  receives the thread's identifier; may be null
  /// \retval 0                           the thread runs
  /// \retval ECF_THREAD_ALREADY_CREATED  the handle has a thread, which is not touched (probe 30)
  /// \retval ECF_INVALID_PARAMETER       `entry` is null (40)
  /// \return otherwise the allocator's code (90), or the system's refusal, mapped (100). When the
  ///         system refuses, 16 bytes of the library's memory stay allocated
  OSSErr create(void (*entry)(void*), void* argument, const OSSThreadParam* param,
                unsigned long* threadID) noexcept;

  /// Waits without limit until the thread has ended. The handle stays open.
  /// \retval 0                       it has ended
  /// \retval ECF_THREAD_NOT_CREATED  the handle has no thread (10)
  /// \retval ECF_THREAD_CANNOT_WAIT  the thread is not joinable, or was waited for already (20)
  /// \return otherwise the system's refusal, mapped (0); the thread counts as waited for
  OSSErr wait() noexcept;

  /// Closes the handle; the thread is not stopped by it. The handle can then start another thread.
  /// \retval 0                       closed; what the system says to it is not asked
  /// \retval ECF_THREAD_NOT_CREATED  the handle has no thread (10)
  /// \retval ECF_THREAD_MUST_WAIT    the thread is joinable and has not been waited for (20)
  OSSErr close() noexcept;

 private:
  struct Layout;

  uint32_t threadID_ = 0;
  void* handle_ = nullptr;
  bool created_ = false;   // a thread was started and its handle is open
  bool joinable_ = false;  // and it must be waited for
};
OSS_LAYOUT(OSSHThread, 24);

// ---- Thread-specific data -----------------------------------------------------------------------

/// One slot that holds a pointer for each thread. Each thread sees null until it sets its own
/// pointer. An object names no slot until create(); copies name the same one; nothing is released
/// by a destructor. Between create() and destroy() any thread may set and get at any time. What the
/// system refuses is logged under the inner operation of the same name.
class OSS_API OSSHThreadSpecificData {
 public:
  /// Takes a slot.
  /// \retval 0  taken
  /// \return otherwise the system's refusal, mapped (20)
  OSSErr create() noexcept;

  /// Gives the slot back. The pointers in it are the threads' to release.
  /// \retval 0  given back
  /// \return otherwise the system's refusal, mapped (20)
  OSSErr destroy() noexcept;

  /// Stores the calling thread's pointer.
  /// \retval 0  always; a refusal of the system is only logged (20)
  OSSErr set(const void* value) noexcept;

  /// Fetches the calling thread's pointer.
  /// \param value  receives it, also when it is null
  /// \retval 0                                *value is not null
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  it is null: this thread has set none, or null (10);
  ///                                          Info
  /// \retval ECF_INVALID_PARAMETER            `value` is null (1111)
  /// \return otherwise the system's refusal, mapped (10)
  OSSErr get(void** value) noexcept;

 private:
  struct Layout;

  uint32_t index_;
};
OSS_LAYOUT(OSSHThreadSpecificData, 4);
