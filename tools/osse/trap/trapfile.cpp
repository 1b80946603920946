#include "trap/trapfile.h"

#include "trap/reader.h"

namespace oss::tool {

const char* nameOf(TrapSection section) {
  switch (section) {
    case TrapSection::Header: return "header";
    case TrapSection::System: return "system";
    case TrapSection::Environment: return "environment";
    case TrapSection::Exception: return "exception";
    case TrapSection::Context: return "context";
    case TrapSection::Modules: return "modules";
    case TrapSection::LibraryVersion: return "library version";
    case TrapSection::Stack: return "stack";
    case TrapSection::ModuleSection: break;
  }
  return "module section";
}

bool TrapFile::has(TrapSection section) const {
  return std::any_of(places.begin(), places.end(),
                     [section](const Place& place) { return place.section == section; });
}

std::optional<uint64_t> TrapFile::stackAddress() const {
  if (context.holds(&Context::rsp)) return context.value.rsp;
  if (!frames.empty() && frames.front().holds(&WalkFrame::stack))
    return frames.front().value.stack.offset;
  return std::nullopt;
}

namespace {

// Where a dump begins for certain, from `at` on; the file's end when none does.
uint64_t findDump(std::string_view file, uint64_t at) {
  for (; (at = file.find(OSS_TRAP_EYE_CATCHER, at)) != std::string_view::npos; ++at) {
    TrapFile unused;
    if (TrapReader(file, at, unused).beginsDump()) return at;
  }
  return file.size();
}

}  // namespace

std::optional<TrapFile> readTrapFile(std::string_view file, uint64_t number) {
  const std::string_view all = file.substr(0, kLargestTrapFile);
  std::optional<TrapFile> wanted;
  uint64_t dumps = 0;
  uint64_t next = 0;
  for (uint64_t start = 0; start < all.size();) {
    // A dump that was cut off does not reach into the one that was appended to it.
    if (start >= next) next = findDump(all, all.find(OSS_TRAP_EYE_CATCHER, start) + 1);
    TrapFile trap;
    TrapReader reader(all.substr(0, next), start, trap);
    if (!reader.read()) break;
    start = reader.end();
    trap.number = ++dumps;
    if (trap.number <= number) wanted = std::move(trap);
  }
  if (wanted) wanted->dumps = dumps;
  return wanted;
}

}  // namespace oss::tool
