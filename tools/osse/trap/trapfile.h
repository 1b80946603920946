// trapfile.h - what a trap file holds, as far as it could be read.
//
//   const std::optional<TrapFile> trap = readTrapFile(bytes);
//
// A file may hold several dumps, one behind the other, each with a header; a TrapFile is one of
// them. The bytes are read once, from the front to the end, by what they look like: no section has
// a tag (marks.h tells what each is known by). A section that is damaged is kept, one that is cut
// off as far as it goes; bytes that no section explains are skipped. Each such case is a problem.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "osstrapfile.h"
#include "trap/bytes.h"
#include "trap/systemrecords.h"

namespace oss::tool {

enum class TrapSection {
  Header,
  System,
  Environment,
  Exception,
  Context,
  Modules,
  LibraryVersion,
  Stack,
  ModuleSection,
};
inline constexpr size_t kTrapSections = 9;

// As a reader would say it: "library version".
const char* nameOf(TrapSection section);

struct TrapFile {
  struct Place {
    TrapSection section;
    uint64_t offset;
    uint64_t bytes;
  };

  uint64_t number = 1;  // of this dump among those of the file
  uint64_t dumps = 1;

  std::vector<Place> places;  // of the sections, in the file's order
  std::vector<std::string> problems;

  Part<OSSTrapHeader> header;

  Part<SystemInfo> system;
  Part<OsVersion> version;
  Part<MemoryStatusEx> memory;  // one of these two at most
  Part<MemoryStatus> plainMemory;

  std::vector<std::string> environment;
  Part<ExceptionRecord> exception;
  Part<Context> context;
  std::vector<Part<OSSTrapModule>> modules;
  Part<ApiVersion> libraryVersion;

  std::string instructions;
  std::vector<Part<WalkFrame>> frames;
  std::optional<uint64_t> stackWords;  // as the file tells it; the bytes may be fewer
  std::string stack;

  std::vector<Part<OSSTrapModule>> moduleSection;

  bool has(TrapSection section) const;

  // The address of the first byte of the raw stack.
  std::optional<uint64_t> stackAddress() const;

  // The modules of the process, from whichever section has them.
  const std::vector<Part<OSSTrapModule>>& loaded() const {
    return modules.empty() ? moduleSection : modules;
  }
};

// The most that is read of a file, far above what a process with thousands of modules gives.
inline constexpr uint64_t kLargestTrapFile = uint64_t{16} << 20;
inline constexpr uint64_t kMostModules = kLargestTrapFile / sizeof(OSSTrapModule);

inline constexpr uint64_t kLastDump = UINT64_MAX;

// \param number  the dump that is wanted, from 1 on; the last one when there are fewer
// \return nothing when the bytes have no trap file's header
std::optional<TrapFile> readTrapFile(std::string_view file, uint64_t number = kLastDump);

}  // namespace oss::tool
