// ossfile.h - one open file: OSSHFile and its parameter records.
//
// A handle is a plain value. It is constructed closed, owns its file from a successful open() until
// a successful close(), and releases nothing by a destructor. It does not check its own state: an
// operation on a closed handle is refused by the system, as ECF_INVALID_PARAMETER. One thread uses
// a handle at a time.
//
// Every operation is traced. One with a parameter record first refuses, with a log record at level
// Error and without calling the system,
//   a null record                     ECF_INVALID_PARAMETER, probe 1111
//   a record older than 20040702      ECF_INVALID_VERSION,   probe 1112
// Other arguments out of their range give ECF_INVALID_PARAMETER with a log record at level Info. A
// call that the system refuses gives the mapped code (ossErrorMapSystem) with a log record that
// names the call, its error and its arguments. No operation retries, except a lock that waits.
#pragma once

#include "ossdirectory.h"      // names in directories, copies of trees
#include "osspath.h"           // files and directories by their path
#include "ossprimitivefile.h"  // one system handle and nothing else, for fault handlers
#include "osstypes.h"

// ---- open ----

/// How open() treats what is there.
inline constexpr uint64_t OSS_FILE_OPEN_EXISTING = 1;   ///< a missing file is refused
inline constexpr uint64_t OSS_FILE_OPEN_ALWAYS = 2;     ///< a missing file is created
inline constexpr uint64_t OSS_FILE_TRUNCATE = 4;        ///< as 1, and emptied; needs write access
inline constexpr uint64_t OSS_FILE_CREATE_NEW = 8;      ///< an existing file is refused
inline constexpr uint64_t OSS_FILE_CREATE_ALWAYS = 16;  ///< an existing file is emptied

inline constexpr uint64_t OSS_FILE_READ = 1;
inline constexpr uint64_t OSS_FILE_WRITE = 2;
inline constexpr uint64_t OSS_FILE_READ_WRITE = 4;

/// Bits of OSSFileOpenParam::flags; other bits are ignored.
inline constexpr uint64_t OSS_FILE_WRITE_THROUGH = 1;
inline constexpr uint64_t OSS_FILE_DELETE_ON_CLOSE = 2;

struct OSSFileOpenParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;  ///< NUL-terminated, in the ANSI code page
  uint64_t creation = 0;       ///< OSS_FILE_OPEN_EXISTING ... OSS_FILE_CREATE_ALWAYS
  uint64_t access = 0;         ///< OSS_FILE_READ, OSS_FILE_WRITE or OSS_FILE_READ_WRITE
  uint64_t flags = 0;          ///< OSS_FILE_WRITE_THROUGH | OSS_FILE_DELETE_ON_CLOSE
  uint64_t mode = 0;           ///< permission bits; unused on this platform
  uint64_t reserved = 0;       ///< unused on this platform
};
OSS_LAYOUT(OSSFileOpenParam, 56);
OSS_FIELD(OSSFileOpenParam, version, 0, 8);
OSS_FIELD(OSSFileOpenParam, path, 8, 8);
OSS_FIELD(OSSFileOpenParam, creation, 16, 8);
OSS_FIELD(OSSFileOpenParam, access, 24, 8);
OSS_FIELD(OSSFileOpenParam, flags, 32, 8);
OSS_FIELD(OSSFileOpenParam, mode, 40, 8);
OSS_FIELD(OSSFileOpenParam, reserved, 48, 8);

// ---- read, write, seek, setSize ----

struct OSSFileReadParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t size = 0;  ///< bytes to read
};
OSS_LAYOUT(OSSFileReadParam, 16);
OSS_FIELD(OSSFileReadParam, version, 0, 8);
OSS_FIELD(OSSFileReadParam, size, 8, 8);

struct OSSFileWriteParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const void* buffer = nullptr;
  uint64_t size = 0;  ///< bytes to write
};
OSS_LAYOUT(OSSFileWriteParam, 24);
OSS_FIELD(OSSFileWriteParam, version, 0, 8);
OSS_FIELD(OSSFileWriteParam, buffer, 8, 8);
OSS_FIELD(OSSFileWriteParam, size, 16, 8);

inline constexpr uint64_t OSS_FILE_START = 0;
inline constexpr uint64_t OSS_FILE_CURRENT = 1;
inline constexpr uint64_t OSS_FILE_END = 2;

struct OSSFileSeekParam {
  uint64_t version = OSS_VERSION_CURRENT;
  int64_t offset = 0;   ///< bytes from the origin
  uint64_t origin = 0;  ///< OSS_FILE_START, OSS_FILE_CURRENT or OSS_FILE_END
};
OSS_LAYOUT(OSSFileSeekParam, 24);
OSS_FIELD(OSSFileSeekParam, version, 0, 8);
OSS_FIELD(OSSFileSeekParam, offset, 8, 8);
OSS_FIELD(OSSFileSeekParam, origin, 16, 8);

struct OSSFileSetSizeParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t size = 0;      ///< the new size of the file in bytes
  uint64_t reserved = 0;  ///< must be 0
};
OSS_LAYOUT(OSSFileSetSizeParam, 24);
OSS_FIELD(OSSFileSetSizeParam, version, 0, 8);
OSS_FIELD(OSSFileSetSizeParam, size, 8, 8);
OSS_FIELD(OSSFileSetSizeParam, reserved, 16, 8);

// ---- lock, map ----

inline constexpr uint64_t OSS_FILE_LOCK_EXCLUSIVE = 1;
inline constexpr uint64_t OSS_FILE_LOCK_SHARED = 2;
inline constexpr uint64_t OSS_FILE_LOCK_WAIT = 1;
inline constexpr uint64_t OSS_FILE_LOCK_NO_WAIT = 2;

struct OSSFileLockParam {
  OSSFileLockParam(uint64_t lockMode, uint64_t lockWait) : mode(lockMode), wait(lockWait) {}

  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t mode;  ///< OSS_FILE_LOCK_EXCLUSIVE or OSS_FILE_LOCK_SHARED
  uint64_t wait;  ///< OSS_FILE_LOCK_WAIT or OSS_FILE_LOCK_NO_WAIT
};
OSS_LAYOUT(OSSFileLockParam, 24);
OSS_FIELD(OSSFileLockParam, version, 0, 8);
OSS_FIELD(OSSFileLockParam, mode, 8, 8);
OSS_FIELD(OSSFileLockParam, wait, 16, 8);

inline constexpr uint64_t OSS_FILE_MAP_READ_ONLY = 1;
inline constexpr uint64_t OSS_FILE_MAP_COPY_ON_WRITE = 2;
inline constexpr uint64_t OSS_FILE_MAP_READ_WRITE = 4;

struct OSSFileMapParam {
  uint64_t version = OSS_VERSION_CURRENT;
  uint64_t length = 0;      ///< bytes to map from the file's start; 0 maps the whole file
  uint64_t protection = 0;  ///< OSS_FILE_MAP_...
  uint64_t reserved = 0;
};
OSS_LAYOUT(OSSFileMapParam, 32);
OSS_FIELD(OSSFileMapParam, version, 0, 8);
OSS_FIELD(OSSFileMapParam, length, 8, 8);
OSS_FIELD(OSSFileMapParam, protection, 16, 8);
OSS_FIELD(OSSFileMapParam, reserved, 24, 8);

// ---- the handle ----

class OSS_API OSSHFile {
 public:
  /// Constructs a closed handle.
  OSSHFile() noexcept;

  /// Opens or creates a file; other processes may read and write it meanwhile. The fields of a
  /// handle that is open already are overwritten: its file stays open and is lost.
  /// \retval 0                      the handle owns the file
  /// \retval ECF_INVALID_PARAMETER  a null path (probe 210), an unknown creation (230) or access
  ///                                (240), or OSS_FILE_TRUNCATE with OSS_FILE_READ (250)
  /// \retval ECF_FILE_EXISTS        OSS_FILE_CREATE_NEW and the path exists (260); Info
  /// \retval ECF_FILE_DOESNT_EXIST  OSS_FILE_OPEN_EXISTING and the path's attributes cannot be
  ///                                read, for whatever reason (270); Info
  /// \return otherwise the system's refusal, mapped and logged (280). The handle is closed.
  OSSErr open(const OSSFileOpenParam* param) noexcept;

  /// Closes the file. A mapped view stays valid.
  /// \retval 0  the handle is closed
  /// \return otherwise the system's refusal, mapped and logged (20); the handle is unchanged
  OSSErr close() noexcept;

  /// Moves the file pointer. A target before the start becomes the start.
  /// \param position  receives the new position in bytes; may be null
  /// \retval 0                         the pointer is moved
  /// \retval ECF_INVALID_PARAMETER     an unknown origin (120)
  /// \retval ECF_FILE_SEEK_BEYOND_EOF  the target lies behind the file's end (150), which itself is
  ///                                   allowed; Info, with target and size
  /// \return otherwise the system's refusal, mapped and logged (130, 140, 160). A refused move
  ///         leaves the pointer where it was, or at the end when that is the origin.
  OSSErr seek(const OSSFileSeekParam* param, uint64_t* position) noexcept;

  /// Tells the file's size in bytes.
  /// \retval 0                      *size is set
  /// \retval ECF_INVALID_PARAMETER  `size` is null (1111)
  /// \return otherwise the system's refusal, mapped and logged (20)
  OSSErr getSize(uint64_t* size) noexcept;

  /// Truncates or extends the file. The file pointer does not move.
  /// \retval 0                      the file has that size
  /// \retval ECF_INVALID_PARAMETER  the reserved word is not 0 (30)
  /// \return otherwise the system's refusal, mapped and logged: 110 and 130 (nothing changed), 150
  ///         (the size), 170 (the pointer, with the size changed already)
  OSSErr setSize(const OSSFileSetSizeParam* param) noexcept;

  /// Reads param->size bytes at the file pointer and moves it behind them.
  /// \param bytesRead  receives the count of bytes in the buffer, also when the call fails
  /// \retval 0                      all of them were read
  /// \retval ECF_FILE_EOF           fewer were left; *bytesRead tells how many. Traced, not logged
  /// \retval ECF_INVALID_PARAMETER  `bytesRead` is null (1111)
  /// \return otherwise the system's refusal, mapped and logged (50)
  OSSErr read(const OSSFileReadParam* param, void* buffer, uint64_t* bytesRead) noexcept;

  /// Writes param->size bytes at the file pointer and moves it behind them.
  /// \param bytesWritten  receives the count of bytes in the file, also when the call fails; may be
  ///                      null
  /// \retval 0                          all of them were written
  /// \retval ECF_FILE_INCOMPLETE_WRITE  the system took fewer (60); Info, with both counts
  /// \return otherwise the system's refusal, mapped and logged (40)
  OSSErr write(const OSSFileWriteParam* param, uint64_t* bytesWritten) noexcept;

  /// Takes the advisory lock of the file, which is its byte 0: it excludes other handles of this
  /// and of other processes that lock, and nobody else. Closing the handle releases it.
  /// \retval 0                      the lock is held
  /// \retval ECF_FILE_LOCK          OSS_FILE_LOCK_NO_WAIT and somebody else holds it; not logged.
  ///                                OSS_FILE_LOCK_WAIT tries every 100 ms, without limit, instead
  /// \retval ECF_INVALID_PARAMETER  an unknown mode (130) or wait (140)
  /// \return otherwise the system's refusal, mapped and logged (160)
  /// The refusals of a null and of an old record are logged under OSSHFile::read.
  OSSErr lock(const OSSFileLockParam* param) noexcept;

  /// Releases the lock.
  /// \retval 0  the lock is free
  /// \return otherwise the system's refusal, mapped and logged (20)
  OSSErr unlock() noexcept;

  /// Maps the file into memory. The handle holds one view at a time; unmap() it before the next.
  /// \param address  in: the preferred base address or null; out: the view. Never null itself
  /// \retval 0                      *address is the view
  /// \retval ECF_INVALID_PARAMETER  an unknown protection (60), or `address` is null (1111)
  /// \return otherwise the system's refusal, mapped and logged: of the mapping (70; an empty file
  ///         gives ECF_UNKNOWN) or of the view (80). Nothing is mapped.
  OSSErr map(const OSSFileMapParam* param, void** address) noexcept;

  /// Unmaps a view and closes its mapping.
  /// \retval 0  nothing is mapped
  /// \return otherwise the system's refusal, mapped and logged: of the view (30; nothing changed)
  ///         or of the mapping (40; the view is gone)
  OSSErr unmap(void* view) noexcept;

  /// Writes the file's buffered data to the disk.
  /// \retval 0  done
  /// \return otherwise the system's refusal, mapped and logged (20)
  OSSErr sync() noexcept;

  /// The system's handle, all ones while closed. Not traced.
  void* getFileHandle() const noexcept { return fileHandle_; }

 private:
  struct Layout;

  void reset() noexcept;

  void* fileHandle_;     // all ones while closed
  void* mappingHandle_;  // all ones while not mapped
  void* view_;           // null while not mapped
};
OSS_LAYOUT(OSSHFile, 24);
