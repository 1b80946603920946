// The directory listing: the names are read in one pass and kept as a linked list and as a block.
#include <windows.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "core/ossoperation.h"
#include "file/osspathtext.h"
#include "ossdirectory.h"
#include "ossmemory.h"
#include "ossstring.h"

using namespace oss;

struct OSSDirectoryListing::Entry {
  char* name;  // its own block
  Entry* next;
};

struct OSSDirectoryListing::Layout {
  OSS_LAYOUT(Entry, 16);
  OSS_FIELD(Entry, name, 0, 8);
  OSS_FIELD(Entry, next, 8, 8);

  OSS_FIELD(OSSDirectoryListing, m_iNumberOfFiles, 0, 8);
  OSS_FIELD(OSSDirectoryListing, m_pFirstEntry, 8, 8);
  OSS_FIELD(OSSDirectoryListing, m_pFileList, 16, 8);
  OSS_FIELD(OSSDirectoryListing, m_iFileListSize, 24, 8);
  OSS_FIELD(OSSDirectoryListing, m_pCurrentEntry, 32, 8);
  OSS_FIELD(OSSDirectoryListing, m_bRewind, 40, 1);
  OSS_FIELD(OSSDirectoryListing, m_bActive, 41, 1);
};

// Appends to a listing. What fails leaves the list as it was, and is the allocator's to tell.
struct OSSDirectoryListing::Builder {
  explicit Builder(OSSDirectoryListing& of) noexcept : listing(of), end(&of.m_pFirstEntry) {
    while (*end != nullptr) end = &(*end)->next;
  }

  OSSErr append(const char* name) noexcept;
  OSSErr makeFileList() noexcept;

  OSSDirectoryListing& listing;
  Entry** end;  // where the next entry is linked
};

namespace {

OSSErr allocate(void** block, uint64_t size) noexcept {
  return ossMemAlloc(block, nullptr, size, 0, __FILE__, __LINE__);
}

OSSErr release(void* block) noexcept { return ossMemFree(&block, nullptr, 0, __FILE__, __LINE__); }

bool isSeparator(char character) noexcept { return character == '\\' || character == '/'; }

// Where a listing looks, and for what.
struct Search {
  char directory[kPathBytes];
  char pattern[kPathTextBytes];
};

// A path with a wild card is the pattern itself; of any other path everything within is wanted.
// Deliberate: what does not fit is cut. A directory that is cut fills its buffer, so that its
// pattern ends in the separator, which nothing matches.
OSSErr findPlace(Operation& op, const char* path, Search& search) noexcept {
  char base[kPathBytes];
  if (const OSSErr rc = ossBaseName(path, base, sizeof base))
    return op.failCalled(50, Func::ossBaseName, rc, {{1, string(path)}});

  if (std::strpbrk(base, "*?") != nullptr) {
    ossSnprintf(search.pattern, sizeof search.pattern, "%s", path);
    if (const OSSErr rc = ossDirectoryName(path, search.directory, sizeof search.directory))
      return op.failCalled(60, Func::ossDirectoryName, rc, {{1, string(path)}});
    return ECF_OK;
  }

  const uint64_t length = ossSnprintf(search.directory, sizeof search.directory, "%s", path);
  const bool isWhole = path[length] == '\0';
  if (isWhole && isSeparator(path[length - 1])) search.directory[length - 1] = '\0';
  ossSnprintf(search.pattern, sizeof search.pattern, "%s\\*", search.directory);
  return ECF_OK;
}

// The paths of the files in one directory, each in the place of the last.
class PathOfFile {
 public:
  explicit PathOfFile(const char* directory) noexcept
      : prefix_(ossSnprintf(path_, sizeof path_, "%s\\", directory)) {}

  // Null when the path does not fit.
  const char* of(const char* name) noexcept {
    const size_t bytes = std::strlen(name) + 1;
    if (bytes > sizeof path_ - prefix_) return nullptr;
    std::memcpy(path_ + prefix_, name, bytes);
    return path_;
  }

 private:
  char path_[kPathTextBytes];
  const size_t prefix_;
};

// Asks the file itself: the search tells attributes, the mask speaks of modes. One that does not
// answer, such as a file deleted meanwhile, is not wanted.
bool isWanted(const char* path, uint64_t typeMask) noexcept {
  struct _stat64 status;
  return path != nullptr && ::_stat64(path, &status) == 0 && (status.st_mode & typeMask) != 0;
}

}  // namespace

OSSErr OSSDirectoryListing::Builder::append(const char* name) noexcept {
  const size_t bytes = std::strlen(name) + 1;
  void* copy = nullptr;
  if (const OSSErr rc = allocate(&copy, bytes)) return rc;
  void* entry = nullptr;
  if (const OSSErr rc = allocate(&entry, sizeof(Entry))) {
    static_cast<void>(release(copy));
    return rc;
  }

  std::memcpy(copy, name, bytes);
  *end = static_cast<Entry*>(entry);
  **end = {static_cast<char*>(copy), nullptr};
  end = &(*end)->next;
  ++listing.m_iNumberOfFiles;
  listing.m_iFileListSize += bytes;
  return ECF_OK;
}

OSSErr OSSDirectoryListing::Builder::makeFileList() noexcept {
  void* block = nullptr;
  if (const OSSErr rc = allocate(&block, listing.m_iFileListSize)) return rc;

  listing.m_pFileList = static_cast<char*>(block);
  char* place = listing.m_pFileList;
  for (const Entry* entry = listing.m_pFirstEntry; entry != nullptr; entry = entry->next) {
    const size_t bytes = std::strlen(entry->name) + 1;
    std::memcpy(place, entry->name, bytes);
    place += bytes;
  }
  // One byte, or a few where an earlier begin() failed and was counted.
  std::memset(place, 0, static_cast<size_t>(listing.m_pFileList + listing.m_iFileListSize - place));
  return ECF_OK;
}

OSSDirectoryListing::OSSDirectoryListing() noexcept { reset(); }

OSSDirectoryListing::~OSSDirectoryListing() {
  m_bActive = true;  // a begin() that failed may have left names
  static_cast<void>(end());
}

OSSErr OSSDirectoryListing::begin(const OSSDirectoryListingParam* param) noexcept {
  Operation op(Func::OSSDirectoryListing_begin);
  if (const OSSErr rc = op.check(param)) return rc;
  op.trace(10, *param);
  if (const OSSErr rc = op.checkNotNull(param->path)) return rc;
  if (m_bActive) return op.fail(40, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO);

  Search place;
  if (const OSSErr rc = findPlace(op, param->path, place)) return rc;
  WIN32_FIND_DATAA found;
  const HANDLE search = ::FindFirstFileA(place.pattern, &found);
  if (search == INVALID_HANDLE_VALUE)
    return op.failSystem(80, SysCall::FindFirstFileA, {{1, string(place.pattern)}});

  Builder builder(*this);
  PathOfFile path(place.directory);
  do {
    if (!isWanted(path.of(found.cFileName), param->typeMask)) continue;
    if (const OSSErr rc = builder.append(found.cFileName)) {
      ::FindClose(search);
      return op.failCalled(85, Func::ossMemAlloc, rc);
    }
  } while (::FindNextFileA(search, &found));

  ++m_iFileListSize;  // the last NUL
  // Deliberate: the search handle stays open.
  if (::GetLastError() != ERROR_NO_MORE_FILES)
    return op.failSystem(90, SysCall::FindNextFileA, {{1, hex(search)}});
  // Deliberate: mapped as the end of the search, logged as a step of it.
  if (!::FindClose(search))
    return op.failSystem(100, {.mappedAs = SysCall::FindClose, .loggedAs = SysCall::FindNextFileA},
                         {{1, hex(search)}});

  if (const OSSErr rc = builder.makeFileList()) return op.failCalled(85, Func::ossMemAlloc, rc);
  m_bActive = true;
  return op.exit();
}

char* OSSDirectoryListing::getNext() noexcept {
  if (m_bRewind) {
    m_pCurrentEntry = m_pFirstEntry;
    m_bRewind = false;
  }
  if (m_pCurrentEntry == nullptr) return nullptr;

  char* const name = m_pCurrentEntry->name;
  m_pCurrentEntry = m_pCurrentEntry->next;
  return name;
}

void OSSDirectoryListing::rewind() noexcept { m_bRewind = true; }

char* OSSDirectoryListing::getFileList() noexcept { return m_pFileList; }

// The exported name is that of a function that is not const.
// NOLINTNEXTLINE(readability-make-member-function-const)
uint64_t OSSDirectoryListing::getNumberOfFiles() noexcept { return m_iNumberOfFiles; }

void OSSDirectoryListing::dumpFileList() noexcept {
  using Number = unsigned long long;  // what the format names
  std::printf(
      "========================================= \r\n"
      "m_iFileListSize = %llu\r\n"
      "There is/are %llu file(s) \r\n"
      "========> File List Dump Start <========= \r\n",
      Number{m_iFileListSize}, Number{m_iNumberOfFiles});
  Number number = 0;
  for (const Entry* entry = m_pFirstEntry; entry != nullptr; entry = entry->next)
    std::printf("File %llu : |%s|\r\n", ++number, entry->name);
  std::printf("========>  File List Dump End  <========= \r\n");
}

OSSErr OSSDirectoryListing::end() noexcept {
  Operation op(Func::OSSDirectoryListing_end);
  if (!m_bActive) return op.fail(10, ECF_INVALID_INVOCATION_SEQUENCE, OSS_LOG_INFO);

  m_bRewind = true;  // the cursor's entry may be gone before a release is refused
  while (Entry* const entry = m_pFirstEntry) {
    if (const OSSErr rc = release(entry->name)) return op.failCalled(20, Func::ossMemFree, rc);
    // One that stays allocated has no name any more: the list lets go of it first.
    m_pFirstEntry = entry->next;
    if (const OSSErr rc = release(entry)) return op.failCalled(30, Func::ossMemFree, rc);
  }
  if (m_pFileList != nullptr)
    if (const OSSErr rc = release(m_pFileList)) return op.failCalled(40, Func::ossMemFree, rc);

  reset();
  return op.exit();
}

void OSSDirectoryListing::reset() noexcept {
  m_bRewind = true;
  m_bActive = false;
  m_iNumberOfFiles = 0;
  m_pFirstEntry = nullptr;
  m_pFileList = nullptr;
  m_iFileListSize = 0;
  m_pCurrentEntry = nullptr;
}
