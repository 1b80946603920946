// ossipcresource.h - how objects that processes share are named, and who may open them.
//
// Callers never write the names of kernel objects. They give a path and a project number, and every
// process that gives the same two gets the same name:
//
//   [Global\]OSSEIPC<project number><path without ':' and '\'>
//
//   C:\data\inst1, 7  ->  OSSEIPC7Cdatainst1
//
// What a caller must know about names:
//   - A name is cut after 261 characters without a word: two long paths that differ only behind the
//     cut give one name. The system's own limit, MAX_PATH, is a little lower, so that a name that
//     was cut names no object: a create is refused as ECF_FILE_NAME_TOO_LONG.
//   - Nothing separates the number from the path: number 1 with "1a" is number 11 with "a". Paths
//     that begin with a drive letter or a backslash and a letter never collide so.
//   - All kinds of objects share one name space. A name that an object of another kind has is
//     refused with ECF_INVALID_PARAMETER, not as one that exists; OSSHIPCMemory::attach gives
//     ECF_MEM_DOESNT_EXIST for it, and OSSHIPCQueue::attach ECF_QUE_DOESNT_EXIST where it is the
//     section's. A message queue takes three numbers, its own and the two behind it: on one path,
//     the project numbers of queues must differ by at least 3, and no other object may have one of
//     the three.
//   - Bytes are kept as they are: no case is folded, and '/' stays.
//
// An object lives until the last handle to it, in any process, is closed; a process that ends, in
// whatever way, closes its own. The name is free again from then on.
//
// Names hold no shared state: any thread may form them at any time, a record one thread at a time.
// ossIPCGetResID and ossIPCGetQueResID are traced. A refused argument is logged at level Error.
#pragma once

#include "osstypes.h"

/// The first version of an OSSIPCResID for which OSSIPCGetResIDParam::local counts.
inline constexpr uint64_t OSS_VERSION_LOCAL_NAMES = 0x09010003;

/// What a name is formed from. Its version is not examined: that of the identifier is.
struct OSSIPCGetResIDParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;  ///< NUL-terminated, need not exist; null gives the empty name
  int32_t projectID = 0;       ///< numbers the objects of one path; may be negative
  uint32_t spare = 0;          ///< carried along, not part of the name
  bool local = false;          ///< true: the name never begins with "Global\"
  uint8_t reserved[7] = {};
};
OSS_LAYOUT(OSSIPCGetResIDParam, 32);
OSS_FIELD(OSSIPCGetResIDParam, version, 0, 8);
OSS_FIELD(OSSIPCGetResIDParam, path, 8, 8);
OSS_FIELD(OSSIPCGetResIDParam, projectID, 16, 4);
OSS_FIELD(OSSIPCGetResIDParam, spare, 20, 4);
OSS_FIELD(OSSIPCGetResIDParam, local, 24, 1);

/// Names one object. It is copied by value into the records that create objects.
struct OSSIPCResID {
  uint64_t version = OSS_VERSION_CURRENT;
  char name[264] = {};  ///< at most 261 characters and a NUL
};
OSS_LAYOUT(OSSIPCResID, 272);
OSS_FIELD(OSSIPCResID, version, 0, 8);
OSS_FIELD(OSSIPCResID, name, 8, 264);

/// Names the three objects of a message queue.
struct OSSIPCQueResID {
  uint64_t version = OSS_VERSION_CURRENT;
  OSSIPCResID memory;          ///< the shared section
  OSSIPCResID dataSemaphore;   ///< readers sleep on it
  OSSIPCResID spaceSemaphore;  ///< writers sleep on it
};
OSS_LAYOUT(OSSIPCQueResID, 824);
OSS_FIELD(OSSIPCQueResID, version, 0, 8);
OSS_FIELD(OSSIPCQueResID, memory, 8, 272);
OSS_FIELD(OSSIPCQueResID, dataSemaphore, 280, 272);
OSS_FIELD(OSSIPCQueResID, spaceSemaphore, 552, 272);

/// Taken by the authorize operations, which change nothing: the security attributes below govern
/// who may open an object.
struct OSSIPCSecurityParam {
  uint64_t version = OSS_VERSION_CURRENT;
};
OSS_LAYOUT(OSSIPCSecurityParam, 8);
OSS_FIELD(OSSIPCSecurityParam, version, 0, 8);

/// The system's SECURITY_ATTRIBUTES.
struct _SECURITY_ATTRIBUTES;  // NOLINT(bugprone-reserved-identifier,cert-*): the system's tag

extern "C" {

/// Forms the name of an object. "Global\", which makes it one name for all sessions, is put in
/// front while g_bRunningTerminalServiceRemoteAdminMode is set, unless in->local is true and
/// out->version is OSS_VERSION_LOCAL_NAMES or later.
/// \param out  its version says what the caller knows of; receives the name, and the bytes behind
///             its NUL stay
/// \retval 0                      out->name is formed, and traced at probe 60; a null in->path
///                                gives the empty name
/// \retval ECF_INVALID_PARAMETER  `out` or `in` is null (probe 1111); nothing is written
/// \retval ECF_INVALID_VERSION    out->version is older than 20040702 (1112); nothing is written
OSS_API OSSErr ossIPCGetResID(const OSSIPCGetResIDParam* in, OSSIPCResID* out) noexcept;

/// Forms the three names of a message queue, with the numbers in->projectID, + 1 and + 2, which
/// wrap behind the greatest. in->local counts for the first name only: the other two begin with
/// "Global\" whenever the flag above is set.
/// \retval 0                      all three are formed
/// \retval ECF_INVALID_PARAMETER  `out` or `in` is null (probe 1111)
/// \retval ECF_INVALID_VERSION    out->version is older than 20040702 (1112), or that of one of its
///                                identifiers is, which ossIPCGetResID logs; traced at 20, 30 or
///                                40. The names before that one are formed
OSS_API OSSErr ossIPCGetQueResID(const OSSIPCGetResIDParam* in, OSSIPCQueResID* out) noexcept;

/// Not available on this platform. Neither traced nor logged.
/// \retval ECF_NOT_SUPPORTED  always
OSS_API OSSErr ossIPCGenerateSeed(...) noexcept;

/// Chooses the security attributes of what the process creates from now on: sections, semaphores,
/// queues, named waitposts, the programs that it starts, the mutexes of osssymbol.h. Meant to be
/// called once, early: it is stored without a lock. Without attributes, or with null, every user
/// may open the objects with full access, and the handles are inheritable (OSS_PROCESS_INHERIT).
/// \param attributes  copied at each create; the record, and the descriptor that it points to, are
///                    the caller's and must stay alive; null restores the default
OSS_API void ossSetSecurityAttributesForOSS(struct _SECURITY_ATTRIBUTES* attributes) noexcept;

}  // extern "C"
