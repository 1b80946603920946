// ossdirectory.h - the names in a directory, and copies of directory trees.
//
// A listing reads its directory once, in begin(), and hands out what it has kept: name by name, or
// all names as one block. It owns everything that it hands out, until end() or its destructor.
//
//   OSSDirectoryListingParam param;
//   param.path = "C:\\data\\*.log";
//   param.typeMask = OSS_FILE_TYPE_REGULAR;
//   OSSDirectoryListing listing;
//   if (const OSSErr rc = listing.begin(&param)) return rc;
//   while (const char* const name = listing.getNext()) ...
//   return listing.end();
//
// Every operation that returns a code is traced. Null pointers give ECF_INVALID_PARAMETER (probe
// 1111) and a record older than 20040702 gives ECF_INVALID_VERSION (1112), logged at level Error.
// Every other refusal leaves a log record, too, at level Info unless it says otherwise; what the
// system refuses gives the mapped code (ossErrorMapSystem) and the level that goes with it. No
// operation retries.
#pragma once

#include "osspath.h"

// ---- listing ----

struct OSSDirectoryListingParam {
  uint64_t version = OSS_VERSION_CURRENT;
  const char* path = nullptr;  ///< a directory, or a pattern: * or ? in its base name
  uint64_t typeMask = 0;       ///< a name is kept when its file's mode shares a bit with it:
                               ///< OSS_FILE_TYPE_REGULAR | OSS_FILE_TYPE_DIRECTORY
  uint64_t reserved = 0;       ///< traced and not used
};
OSS_LAYOUT(OSSDirectoryListingParam, 32);
OSS_FIELD(OSSDirectoryListingParam, version, 0, 8);
OSS_FIELD(OSSDirectoryListingParam, path, 8, 8);
OSS_FIELD(OSSDirectoryListingParam, typeMask, 16, 8);
OSS_FIELD(OSSDirectoryListingParam, reserved, 24, 8);

/// A listing is inactive until a successful begin() and active until a successful end(). One thread
/// uses it at a time.
class OSS_API OSSDirectoryListing {
 public:
  /// Constructs an inactive listing.
  OSSDirectoryListing() noexcept;

  /// Frees whatever the listing holds, in either state.
  ~OSSDirectoryListing();

  OSSDirectoryListing(const OSSDirectoryListing&) = delete;
  OSSDirectoryListing& operator=(const OSSDirectoryListing&) = delete;

  /// Reads a directory and keeps the names of the wanted kinds, in the order in which the system
  /// returns them. "." and ".." are directories like any other. A name whose file cannot be asked
  /// for its kind is left out, and nobody is told.
  ///
  /// A path may end in one separator, \ or /, which is dropped. A path that does not fit into 259
  /// bytes, or a pattern that does not fit into 260, is cut; of a directory that is cut nothing is
  /// found.
  ///
  /// A pattern is what ossBaseName() finds a wild card in, and matches as the system's own search
  /// does. The files are asked for in the directory that ossDirectoryName() gives of it, so
  ///   "C:\dir\*.log"      looks in "C:\dir";
  ///   "*.log"             looks in the current directory, as do "C:*.log" and "C:/dir/*", which
  ///                       search elsewhere and keep the names that exist here, too;
  ///   "\*.log"            is no pattern: its base name is "\". It is taken for a directory;
  ///   "\\.\C:\*"          keeps nothing: a device path is its own directory.
  ///
  /// \retval 0                      the listing is active
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  it is active already (probe 40); nothing changes
  /// \retval ECF_INVALID_PARAMETER  the path is empty (50)
  /// \retval ECF_BUFFER_TOO_SMALL   the path's base name (50) or directory name (60) does not fit
  ///                                into 260 bytes
  /// \retval ECF_NO_MEMORY          a name or the block cannot be allocated (85); level Error
  /// \return otherwise the system's refusal, mapped and logged: of the search (80; a pattern that
  ///         nothing matches, or a directory that is not there), of a step of it (90; the search
  ///         handle stays open) or of its end (100).
  /// A begin() that fails after the search has started leaves the listing inactive with the names
  /// read so far: getNext() hands them out, end() refuses, the destructor frees them. Another
  /// begin() would add to them.
  OSSErr begin(const OSSDirectoryListingParam* param) noexcept;

  /// Hands out the next name: NUL-terminated, without directory, the listing's own.
  /// \return null behind the last name
  char* getNext() noexcept;

  /// Makes the next getNext() start again from the first name.
  void rewind() noexcept;

  /// Hands out all names at once: each with its NUL, in order, and one more NUL behind the last. No
  /// names are a single NUL. The block is the listing's own.
  /// \return null unless the listing is active
  char* getFileList() noexcept;

  /// Tells how many names there are.
  uint64_t getNumberOfFiles() noexcept;

  /// Prints the size of the block, the count and the names to standard output.
  void dumpFileList() noexcept;

  /// Frees the names and the block; the listing may begin again.
  /// \retval 0  the listing is inactive
  /// \retval ECF_INVALID_INVOCATION_SEQUENCE  it is not active (probe 10); nothing is freed
  /// \return otherwise the refusal of ossMemFree for a name (20), an entry (30; the listing has let
  ///         go of it) or the block (40); the listing stays active, with what is left of it
  OSSErr end() noexcept;

 protected:
  /// Forgets everything without freeing it.
  void reset() noexcept;

 private:
  struct Entry;
  struct Layout;
  struct Builder;

  uint64_t m_iNumberOfFiles;
  Entry* m_pFirstEntry;
  char* m_pFileList;         // null unless active
  uint64_t m_iFileListSize;  // bytes of the block
  Entry* m_pCurrentEntry;    // what getNext() hands out next, unless it starts again
  bool m_bRewind;
  bool m_bActive;
};
OSS_LAYOUT(OSSDirectoryListing, 48);

// ---- copy ----

extern "C" {

/// Copies a directory with everything in it, depth first, in the order of a listing, each file as
/// ossFileCopy() does. The first failure stops it and leaves what is copied already; every
/// directory on the way up logs it again, with the two paths of what failed in it. Any thread may
/// copy.
/// \param from  the directory, without a separator at its end unless it is a drive's root;
///              NUL-terminated, in the ANSI code page
/// \param to    its copy, which must not exist; the directory around it must
/// \retval 0                        copied, except what has a source path of 261 bytes or more: the
///                                  listing leaves it out
/// \retval ECF_INVALID_PARAMETER    the two paths are the same byte for byte, `to` exists, or its
///                                  text leads into `from` (probe 10)
/// \retval ECF_FILE_NOT_A_DIRECTORY `from` is none (70)
/// \retval ECF_FILE_NAME_TOO_LONG   the path of something within has exactly 260 bytes as source,
///                                  or more than 259 as copy (80)
/// \return otherwise the refusal of a step: the source's information (20), the new directory (30),
///         the listing (40; so if `from` has more than 258 bytes), a directory within (50), a file
///         within (60), the listing's end (90)
OSS_API OSSErr ossDirectoryCopy(const char* from, const char* to) noexcept;

}  // extern "C"
