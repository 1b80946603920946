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

std::optional<TrapFile> readTrapFile(std::string_view file) {
  TrapFile trap;
  if (!TrapReader(file.substr(0, kLargestTrapFile), trap).read()) return std::nullopt;
  return trap;
}

}  // namespace oss::tool
