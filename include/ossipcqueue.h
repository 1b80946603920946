// ossipcqueue.h - a message queue: a ring of bytes in shared memory, and two semaphores to sleep
// on.
//
// One process creates it under the three names that ossIPCGetQueResID forms, others attach to it.
// Any number of threads and processes may put and get at the same time, each with a handle of its
// own. Messages are any bytes of any length; one that is longer than the ring streams through it
// while a reader drains it. Messages stay whole and in order; those of different writers follow
// each other as the writers get their turn.
//
// What lies in the shared section, in which order latches are taken, and what a process leaves
// behind that is ended while it uses a queue, stands in ossipcqueueheader.h; what holds for every
// handle, and for the refusals that are not listed here, in ossipc.h.
//
//   not attached    put, get and flush give ECF_INVALID_INVOCATION_SEQUENCE (probe 10), Error
//   not a queue     put and get give ECF_FAILED (20), Error, with the fields of a header that no
//                   ring can have
//
// Trusted is nothing that the section holds: whatever stands in its header, and whoever changes it
// meanwhile, no byte outside the section is read or written. A latch byte that is not 0 counts as
// held and is waited for. The bytes of messages are the callers' own business.
#pragma once

#include "ossipcmemory.h"
#include "ossipcqueueheader.h"
#include "ossipcresource.h"
#include "ossipcsemaphore.h"
#include "osstypes.h"

/// A get without limit.
inline constexpr int OSS_QUEUE_INFINITE = -1;

struct OSSIPCQueueCreateParam {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSIPCQueResID resID;
  /// Bytes. The ring takes as many, rounded up to a multiple of 8; one for less than 9 bytes takes
  /// 8 more. A message and its length, 8 bytes, are put at once if both fit into what is free.
  uint64_t maxMessageSize = 0;
  uint64_t options = 0;  ///< not used on this platform
};
OSS_LAYOUT(OSSIPCQueueCreateParam, 848);
OSS_FIELD(OSSIPCQueueCreateParam, version, 0, 8);
OSS_FIELD(OSSIPCQueueCreateParam, resID, 8, 824);
OSS_FIELD(OSSIPCQueueCreateParam, maxMessageSize, 832, 8);
OSS_FIELD(OSSIPCQueueCreateParam, options, 840, 8);

class OSS_API OSSHIPCQueue {
 public:
  /// Constructs a handle that is not attached.
  OSSHIPCQueue() noexcept;

  /// Creates the section and both semaphores and makes an empty queue of them. Nobody may use the
  /// queue before it has returned: an end that sleeps earlier may take the count that create waits
  /// for, and then both wait for ever; or create clears its mark, and nobody wakes it.
  /// \retval 0  the handle is attached
  /// \return otherwise the code of the operation that failed, which logs its share: making the
  ///         section (50, with its record) or the semaphores (60, 70; ECF_MEM_EXISTS or
  ///         ECF_SEM_EXISTS when a name is taken), taking their first counts (80, 90), asking for
  ///         the section's address (100). What was made before stays open, and stays so until
  ///         destroy() or the end of the process; the names are taken that long
  OSSErr create(const OSSIPCQueueCreateParam* param) noexcept;

  /// Detaches; the queue is gone with its last handle. The handle must not be used any more, but
  /// to attach or to create: it keeps the header's address, where nothing lies.
  /// \retval 0  detached, even if the section could not be released
  /// \return otherwise the first failure: of the data semaphore (50), which leaves the space
  ///         semaphore attached, or of the space semaphore (60)
  OSSErr destroy() noexcept;

  /// Opens a queue that exists. What the handle held before is forgotten and lost.
  /// \param resID  its version is not examined
  /// \retval 0                      the handle is attached
  /// \retval ECF_QUE_DOESNT_EXIST   the section cannot be opened, for whatever reason (40), or a
  ///                                semaphore does not exist (50, 60); Info
  /// \retval ECF_INVALID_PARAMETER  `resID` is null (1111)
  /// \return otherwise the code of the operation that failed: of the section's view (40), the data
  ///         semaphore (50), the space semaphore (60) or the address (70). What this call has
  ///         attached is detached again.
  OSSErr attach(const OSSIPCQueResID* resID) noexcept;

  /// Gives the queue back; it lives on while other handles to it are open.
  /// \retval 0  the handle is not attached
  /// \return otherwise the first failure: of the section (30), of the data semaphore (40), of the
  ///         space semaphore (50). What comes behind it stays attached: another detach is refused
  ///         at the section (30)
  OSSErr detach() noexcept;

  /// Forgets all that is unread and wakes who sleeps. It does not wait for puts and gets under way:
  /// a message of which a part is flushed leaves its reader waiting for bytes that later messages
  /// bring. Nobody else should use the queue meanwhile.
  /// \retval 0  the ring is empty
  /// \return otherwise the refusal to wake the reader (40) or the writer (50). The ring is empty,
  ///         and the state latch stays held: later operations on the queue wait for it.
  OSSErr flush() noexcept;

  /// Puts a message at the queue's end; waits without limit for other writers and for room.
  /// \retval 0                      all of it is in the ring, or has been read from there
  /// \retval ECF_INVALID_PARAMETER  `data` is null and `size` is not 0 (1111)
  /// \return otherwise the refusal to sleep until there is room for the length (50, with the data)
  ///         or for the next piece (60), or to wake a reader (70). A part that is in the ring by
  ///         then stays there, and readers wait for the rest.
  OSSErr put(const void* data, uint64_t size) noexcept;

  /// Takes the message at the queue's front; waits without limit for other readers, also for one
  /// who sleeps until a message comes.
  /// \param received  its length in bytes; untouched unless the call succeeds; may be null
  /// \param timeout   milliseconds of each sleep, or OSS_QUEUE_INFINITE; 0 does not wait for a
  ///                  message. Who is woken too early sleeps as long anew: a call may last longer
  /// \retval 0                         the message is in the buffer
  /// \retval ECF_QUE_INVALID_MSG_TYPE  the queue is empty and `timeout` is 0; not logged
  /// \retval ECF_TIMEOUT               no message came in time (80), or its rest did not (110): the
  ///                                   part that was read is lost, and the next get takes the rest
  ///                                   for the beginning of a message; Info
  /// \retval ECF_QUE_MSG_TOO_BIG       the message is longer than the buffer (100); Info, with both
  ///                                   sizes. Its length is taken and its bytes stay: the next get
  ///                                   takes them for the beginning of a message
  /// \retval ECF_INVALID_PARAMETER     `buffer` is null and `bufferSize` is not 0 (1111)
  /// \return otherwise the refusal to sleep until a message (90) or its rest (120) comes, or to
  ///         wake a writer (130)
  OSSErr get(void* buffer, uint64_t bufferSize, uint64_t* received, int timeout) noexcept;

  /// Whether there is something to get at this moment. Not logged; false when not attached.
  bool hasMessage() noexcept;

  /// Whether section and semaphores are attached. Not traced.
  bool isAttached() const noexcept;

 private:
  struct Layout;

  OSSHIPCMemory memory_;
  OSSHIPCSemaphore dataSemaphore_;       // readers sleep on it
  OSSHIPCSemaphore spaceSemaphore_;      // writers sleep on it
  OSSIPCQueueHeader* header_ = nullptr;  // in this process's view; null until attached
};
OSS_LAYOUT(OSSHIPCQueue, 40);

extern "C" {

/// Tells the greatest size of a message that the kernel's own queues allow, in bytes. This platform
/// has none. Not traced, but ossGetKernelIPCInfo is, which each call asks until it has an answer.
/// \return the size, or 0 when there is no limit to tell
OSS_API int64_t ossGetMaxQueueMessageSize() noexcept;

}  // extern "C"
