// osspath.h - files and directories by their path: test, inspect, create, rename, remove, copy.
//
// Paths are NUL-terminated, in the ANSI code page, taken byte by byte; the backslash alone
// separates their components. The operations keep no state and any thread may call them at any
// time, but the current directory, which every relative path depends on, is the process's.
//
// Every operation is traced, except ossIsFile, ossIsDirectory and ossFileSetOwnership. One with a
// parameter record first refuses, with a log record at level Error and without calling the system,
//   a null record                     ECF_INVALID_PARAMETER, probe 1111
//   a record older than 20040702      ECF_INVALID_VERSION,   probe 1112
// and every one that returns a code refuses another null pointer like a null record, unless it says
// otherwise. What an operation finds itself is logged at level Info. A call that the system refuses
// gives the mapped code (ossErrorMapSystem) with a log record that names the call, its error and
// its arguments. Nothing is retried, and nothing is undone after a partial success.
#pragma once

#include "osstypes.h"

// ---- Records ----

/// Bits of OSSPathTestParam::flags; other bits are ignored.
inline constexpr uint64_t OSS_PATH_EXISTS = 1;  ///< asks for nothing more than the others
inline constexpr uint64_t OSS_PATH_READABLE = 2;
inline constexpr uint64_t OSS_PATH_WRITABLE = 4;

struct OSSPathTestParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;
  uint64_t flags = OSS_PATH_EXISTS;  ///< OSS_PATH_...
  uint64_t reserved = 0;             ///< traced, not used
};
OSS_LAYOUT(OSSPathTestParam, 32);
OSS_FIELD(OSSPathTestParam, version, 0, 8);
OSS_FIELD(OSSPathTestParam, path, 8, 8);
OSS_FIELD(OSSPathTestParam, flags, 16, 8);
OSS_FIELD(OSSPathTestParam, reserved, 24, 8);

/// What ossDirectoryCreate() creates. Any other mode: every directory along the path, each of which
/// must be new.
inline constexpr uint64_t OSS_DIRECTORY_CREATE_ONE = 1;      ///< the last component
inline constexpr uint64_t OSS_DIRECTORY_CREATE_MISSING = 2;  ///< what is missing along the path

struct OSSDirectoryCreateParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;
  uint64_t permissions = 0;  ///< not applied
  uint64_t mode = 0;         ///< OSS_DIRECTORY_CREATE_...
};
OSS_LAYOUT(OSSDirectoryCreateParam, 32);
OSS_FIELD(OSSDirectoryCreateParam, version, 0, 8);
OSS_FIELD(OSSDirectoryCreateParam, path, 8, 8);
OSS_FIELD(OSSDirectoryCreateParam, permissions, 16, 8);
OSS_FIELD(OSSDirectoryCreateParam, mode, 24, 8);

/// Bit of OSSDirectoryDeleteParam::flags; other bits are ignored.
inline constexpr uint64_t OSS_DIRECTORY_DELETE_RECURSIVELY = 1;

struct OSSDirectoryDeleteParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;
  uint64_t flags = 0;  ///< OSS_DIRECTORY_DELETE_RECURSIVELY
};
OSS_LAYOUT(OSSDirectoryDeleteParam, 24);
OSS_FIELD(OSSDirectoryDeleteParam, version, 0, 8);
OSS_FIELD(OSSDirectoryDeleteParam, path, 8, 8);
OSS_FIELD(OSSDirectoryDeleteParam, flags, 16, 8);

struct OSSFileInfoParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;
};
OSS_LAYOUT(OSSFileInfoParam, 16);
OSS_FIELD(OSSFileInfoParam, version, 0, 8);
OSS_FIELD(OSSFileInfoParam, path, 8, 8);

/// Values of OSSFileInfo::type; 0 is anything else.
inline constexpr uint64_t OSS_FILE_TYPE_REGULAR = 0x8000;
inline constexpr uint64_t OSS_FILE_TYPE_DIRECTORY = 0x4000;

struct OSSFileInfo {
  uint64_t size = 0;          ///< bytes
  uint64_t reserved[2] = {};  ///< never written
  uint64_t type = 0;          ///< OSS_FILE_TYPE_...
  uint64_t permissions = 0;   ///< the low twelve bits of the C run-time's mode
  uint32_t owner = 0;         ///< user id
  uint32_t group = 0;         ///< group id
  uint64_t modified = 0;      ///< seconds since the start of 1970, UTC
};
OSS_LAYOUT(OSSFileInfo, 56);
OSS_FIELD(OSSFileInfo, size, 0, 8);
OSS_FIELD(OSSFileInfo, reserved, 8, 16);
OSS_FIELD(OSSFileInfo, type, 24, 8);
OSS_FIELD(OSSFileInfo, permissions, 32, 8);
OSS_FIELD(OSSFileInfo, owner, 40, 4);
OSS_FIELD(OSSFileInfo, group, 44, 4);
OSS_FIELD(OSSFileInfo, modified, 48, 8);

/// Bit of osstmpnam()'s flags; other bits are ignored.
inline constexpr uint64_t OSS_TMPNAM_CREATE = 1;

extern "C" {

// ---- Questions ----

/// True if the path names a regular file. False when it cannot be told. Not traced, not logged.
OSS_API bool ossIsFile(const char* path) noexcept;
/// True if the path names a directory. One `\` at the end is left away unless a `:` stands before
/// it: "C:\dir\" asks for "C:\dir", "C:\" for itself. A `/` at the end stays. Not traced, not
/// logged.
OSS_API bool ossIsDirectory(const char* path) noexcept;

/// Tests whether the path exists, and whether it may be read or written.
/// \retval 0                      it does, and it may
/// \retval ECF_FILE_DOESNT_EXIST  the path or a directory along it is missing; not logged
/// \retval ECF_ACCESS_DENIED      it may not; not logged
/// \return otherwise the run-time's refusal, mapped (40), with a second record that holds the flags
///         and the reserved word
OSS_API OSSErr ossPathTest(const OSSPathTestParam* param) noexcept;
/// True if ossPathTest() finds the path with OSS_PATH_EXISTS. Never logs; null is no path.
OSS_API bool ossPathExists(const char* path) noexcept;

/// Tells what the path names.
/// \param info  filled, except its reserved words; of an unknown type, only the type
/// \retval 0                           done
/// \retval ECF_FILE_UNKNOWN_FILE_TYPE  neither a file nor a directory (60), with the mode
/// \return otherwise the run-time's refusal, its errno mapped (30)
OSS_API OSSErr ossFileGetInfoV9(const OSSFileInfoParam* param, OSSFileInfo* info) noexcept;
/// The same under its older name.
OSS_API OSSErr ossFileGetInfo(const OSSFileInfoParam* param, OSSFileInfo* info) noexcept;

/// True if both name one file: their short forms, where the system has one, are equal whatever
/// their case. Never logs; null is no path.
OSS_API bool ossComparePaths(const char* a, const char* b) noexcept;

/// Tells the drives: bit 0 is A:, bit 1 is B:, and so on.
/// \retval 0                                   *map is set
/// \retval ECF_FILE_CANNOT_RETRIEVE_DRIVE_MAP  *map is 0 (10); logged at level Error
OSS_API OSSErr ossGetLogicalDriveMap(uint32_t* map) noexcept;

// ---- Files ----

/// Deletes a file.
/// \retval 0                         it is gone
/// \retval ECF_FILE_IS_A_DIRECTORY   nothing is deleted (30)
/// \return otherwise what ossPathTest() returned, ECF_FILE_DOESNT_EXIST for one (20), or the
///         system's refusal, mapped (40)
OSS_API OSSErr ossFileDelete(const char* path) noexcept;
/// Renames a file or a directory.
/// \retval 0                      it has the new name
/// \retval ECF_FILE_DOESNT_EXIST  the system refuses; its reason stands in the record alone (30)
OSS_API OSSErr ossFileRename(const char* from, const char* to) noexcept;
/// Does nothing on this platform, whatever its arguments. Not traced.
/// \retval 0  always
OSS_API OSSErr ossFileSetOwnership(...) noexcept;
/// Sets the permission bits of a path; this platform knows the owner's write bit.
/// \param mode  0 stands for 0600
/// \return 0, or the system's refusal, mapped (20)
OSS_API OSSErr ossFileSetPermissions(const char* path, uint64_t mode) noexcept;
/// Copies a file, never over an existing one.
/// \retval 0                      done
/// \retval ECF_INVALID_PARAMETER  both paths are the same bytes (10)
/// \retval ECF_FILE_EXISTS        the target exists (20)
/// \return otherwise the system's refusal, mapped, logged where it happened and once more here (30)
OSS_API OSSErr ossFileCopy(const char* from, const char* to) noexcept;

// ---- Directories ----

/// Tells the current directory.
/// \param buffer  receives it; may be null when *size is 0
/// \param size    in: the bytes at `buffer`; out: the length of the text without its NUL or, of a
///                buffer that is too small, the bytes needed
/// \retval 0                     done
/// \retval ECF_BUFFER_TOO_SMALL  see `size` (40)
/// \return otherwise the system's refusal, mapped (40)
OSS_API OSSErr ossDirectoryGetCurrent(char* buffer, uint64_t* size) noexcept;
/// Changes the current directory of the process.
/// \return 0, or the system's refusal, mapped (30)
OSS_API OSSErr ossDirectorySetCurrent(const char* path) noexcept;

/// Creates directories. Along a path neither a drive's root nor a share is created: with nothing
/// behind them there is nothing to do, which is an error unless what exists is accepted. A single
/// `\` at the start is no such root but a step like others, "\" and then "\dir", that exists.
/// \retval 0                       done. OSS_DIRECTORY_CREATE_MISSING takes every name that exists
///                                 for a directory: where a file has the last one it is 0, too
/// \retval ECF_FILE_EXISTS         the path is a root and the mode wants new directories (40)
/// \retval ECF_FILE_NAME_TOO_LONG  the path is longer than 260 bytes and not to be created as one
///                                 (40); nothing is created
/// \return otherwise the system's refusal, mapped, with the part of the path that failed (40)
OSS_API OSSErr ossDirectoryCreate(const OSSDirectoryCreateParam* param) noexcept;
/// Removes a directory, which must be empty, or all that is in it as well. A link to a directory
/// is removed and never followed.
/// \retval 0                         it is gone
/// \retval ECF_FILE_NOT_A_DIRECTORY  recursively, something else (70)
/// \retval ECF_INVALID_PARAMETER     recursively, the path is "NUL" (10)
/// \retval ECF_FILE_NAME_TOO_LONG    recursively, what is in it has a path of exactly 260 bytes
///                                   (80); a longer one stays, and its directory is not empty (30)
/// \return otherwise the first refusal, mapped; what is not yet removed stays. Of the directory
///         itself (30); recursively also of its listing (50; so if its path has more than 258
///         bytes) or the listing's end (60), of a directory (20) or a file (40) in it
OSS_API OSSErr ossDirectoryDelete(const OSSDirectoryDeleteParam* param) noexcept;

// ---- Text ----

/// Writes the directory part of a path: what stands before its last backslash that has something
/// behind it; "\" of "\file", "." of a path without one, "C:" of "C:\dir". A device or volume path
/// ("\\.\C:") is its own directory.
/// \param outSize  bytes at `out`; `out` may be null when it is 0
/// \retval 0                      done. "." and "\" are cut where they alone would fit without NUL
/// \retval ECF_INVALID_PARAMETER  the path is null or empty (10)
/// \retval ECF_BUFFER_TOO_SMALL   the text is empty (30); the record shows needed and given sizes
OSS_API OSSErr ossDirectoryName(const char* path, char* out, uint64_t outSize) noexcept;
/// Writes the last component of a path without backslashes: "dir" of "C:\dir\". Of a path with
/// none but the first byte, "\" and "\file", it is "\". Of two at the end only the last is passed
/// over: "C:\dir\\" has the empty name in the directory "C:\dir".
/// \param outSize  bytes at `out`: room for the component, a backslash that follows it, and a NUL
/// \retval 0                      done
/// \retval ECF_INVALID_PARAMETER  the path is null or empty (10)
/// \retval ECF_BUFFER_TOO_SMALL   nothing is written (30); the record shows needed and given sizes
OSS_API OSSErr ossBaseName(const char* path, char* out, uint64_t outSize) noexcept;

/// Makes the name of a temporary file. Without OSS_TMPNAM_CREATE it is a name in the root of the
/// current drive that no file has; with it, a new empty file in the temporary directory.
/// \param size  bytes at `buffer`: at least 14, or 260 to create
/// \retval 0                     done
/// \retval ECF_BUFFER_TOO_SMALL  `size` is too small; not logged
/// \retval ECF_FAILED            no name is left; not logged
/// \return otherwise the system's refusal, mapped: of the directory (10; the record tells
///         ECF_BUFFER_TOO_SMALL) or of the file (20; the record tells ECF_FAILED)
OSS_API OSSErr osstmpnam(char* buffer, uint64_t size, uint64_t flags) noexcept;

}  // extern "C"
