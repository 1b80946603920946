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

std::optional<TrapFile> readTrapFile(std::string_view file, uint64_t number) {
  const std::string_view all = file.substr(0, kLargestTrapFile);
  std::optional<TrapFile> wanted;
  uint64_t dumps = 0;
  for (uint64_t start = 0; start < all.size();) {
    TrapFile trap;
    TrapReader reader(all, start, trap);
    if (!reader.read()) break;
    start = reader.end();
    trap.number = ++dumps;
    if (trap.number <= number) wanted = std::move(trap);
  }
  if (wanted) wanted->dumps = dumps;
  return wanted;
}

}  // namespace oss::tool
