// The walk over the sections; readstack.cpp reads the one that has parts of its own.
#include "trap/reader.h"

#include "trap/marks.h"
#include "trap/words.h"

namespace oss::tool {
namespace {

constexpr size_t kMostProblems = 50;

}  // namespace

void TrapReader::problem(const std::string& what, uint64_t at) {
  if (trap_.problems.size() < kMostProblems)
    trap_.problems.push_back("at " + hexOf(at) + ": " + what);
  else if (trap_.problems.size() == kMostProblems)
    trap_.problems.emplace_back("and more");
}

void TrapReader::place(TrapSection section, uint64_t start) {
  met_[static_cast<size_t>(section)] = true;
  trap_.places.push_back({section, start, at_ - start});
}

std::string TrapReader::takeText(uint64_t bytes) {
  const std::string_view text = file_.piece(at_, bytes);
  at_ += text.size();
  return std::string(text);
}

bool TrapReader::read() {
  if (!findHeader()) return false;
  while (!isEnd(at_) && readNext()) {
  }
  return true;
}

bool TrapReader::beginsDump() {
  if (!isHeader(file_, at_)) return false;
  readHeader(at_);
  return isFollowed(at_);
}

// ---- The header ----

bool TrapReader::findHeader() {
  const uint64_t start = at_;
  uint64_t at = start;
  while (!isEnd(at)) ++at;
  if (file_.left(at) != 0) {
    if (at != start)
      problem(std::to_string(at - start) + " bytes stand in front of the header", start);
    readHeader(at);
    return true;
  }
  // Without its eye-catcher a header is one when a section follows it.
  readHeader(start);
  problem("the eye-catcher is damaged", start);
  return trap_.header.isWhole() && file_.left(at_) != 0 && known(at_);
}

void TrapReader::readHeader(uint64_t at) {
  at_ = at;
  trap_.header = take<OSSTrapHeader>();
  place(TrapSection::Header, at);
  if (!trap_.header.isWhole())
    problem("the file is cut off in the header", at_);
  else if (trap_.header.value.instructionBytes > OSS_TRAP_MOST_INSTRUCTIONS)
    problem("the header tells of more instruction bytes than there can be", at);
}

// ---- What stands at a place ----

// The strongest marks are asked for first.
std::optional<TrapSection> TrapReader::knownByMarks(uint64_t at) const {
  using enum TrapSection;
  if (!isMet(Context) && isContext(file_, at)) return Context;
  if (!isMet(ModuleSection) && isModuleSection(file_, at)) return ModuleSection;
  if (!isMet(System) && isSystem(file_, at)) return System;
  if (!isMet(Environment) && isEnvironment(file_, at)) return Environment;
  if (!isMet(Modules) && isModule(file_, at)) return Modules;
  if (!isMet(LibraryVersion) && !isMet(Stack) && isVersion(at)) return LibraryVersion;
  if (!isMet(Stack) && isStack(at)) return Stack;
  return std::nullopt;
}

std::optional<TrapSection> TrapReader::known(uint64_t at) const {
  const std::optional<TrapSection> section = knownByMarks(at);
  if (!section && !isMet(TrapSection::Exception) && isException(at)) return TrapSection::Exception;
  return section;
}

std::optional<TrapSection> TrapReader::knownByWhatFollows(uint64_t at) const {
  using enum TrapSection;
  const auto fits = [&](TrapSection section, uint64_t bytes) {
    return !isMet(section) && file_.left(at) >= bytes && isFollowed(at + bytes);
  };
  if (fits(Exception, sizeof(ExceptionRecord))) return Exception;
  if (fits(Context, sizeof(tool::Context))) return Context;
  if (fits(LibraryVersion, sizeof(ApiVersion))) return LibraryVersion;
  const uint64_t count = trap_.header.value.modules;
  if (count != 0 && fits(Modules, count * sizeof(OSSTrapModule))) return Modules;
  if (count > 1 && !isMet(Modules) && isModule(file_, at + sizeof(OSSTrapModule))) return Modules;
  if (!isMet(Stack) && findFrames(at)) return Stack;
  if (!isMet(ModuleSection) && isDamagedModuleSection(at)) return ModuleSection;
  return std::nullopt;
}

// Its count or its first record is damaged, but not both.
bool TrapReader::isDamagedModuleSection(uint64_t at) const {
  constexpr uint64_t kSize = sizeof(OSSTrapModule);
  const uint64_t count = file_.get<uint64_t>(at).value_or(0);
  const uint64_t first = at + sizeof count;
  if (file_.left(first) < kSize) return false;
  if (isModule(file_, first) || isModule(file_, first + kSize)) return true;
  return count != 0 && count <= kMostModules && file_.left(first) == count * kSize;
}

// By whole records only, and by marks that other bytes hardly have.
std::optional<TrapSection> TrapReader::knownFromAfar(uint64_t at) const {
  using enum TrapSection;
  const uint64_t left = file_.left(at);
  if (!isMet(System) && left >= sizeof(SystemInfo) + sizeof(OsVersion) && isSystem(file_, at))
    return System;
  if (!isMet(Environment) && left >= sizeof OSS_TRAP_ENVIRONMENT_END + 7 &&
      isEnvironment(file_, at))
    return Environment;
  if (!isMet(Context) && left >= sizeof(tool::Context) && isContext(file_, at)) return Context;
  if (!isMet(Modules) && left >= sizeof(OSSTrapModule) && isModule(file_, at)) return Modules;
  if (!isMet(Exception) && left >= sizeof(ExceptionRecord) && isException(at)) return Exception;
  const uint64_t frame = at + trap_.header.value.instructionBytes;
  if (!isMet(Stack) && isSoundFrame(file_, frame)) return Stack;
  if (!isMet(ModuleSection) && left >= 8 + sizeof(OSSTrapModule) && isModuleSection(file_, at))
    return ModuleSection;
  return std::nullopt;
}

// Its own marks are few: behind a whole one must be what is known, or its code one of the system's.
bool TrapReader::isException(uint64_t at) const {
  constexpr uint32_t kSystemCode = 0xC0000000;
  if (!tool::isException(file_, at)) return false;
  const uint64_t behind = at + sizeof(ExceptionRecord);
  return isEnd(behind) || *file_.get<uint32_t>(at) >= kSystemCode || knownByMarks(behind);
}

bool TrapReader::isVersion(uint64_t at) const {
  if (!isLibraryVersion(file_, at)) return false;
  const uint64_t behind = at + sizeof(ApiVersion);
  if (isEnd(behind) || isStack(behind)) return true;
  if (!isMet(TrapSection::ModuleSection) && isModuleSection(file_, behind)) return true;
  return (trap_.header.value.contents & OSS_TRAP_HAS_LIBRARY_VERSION) != 0 &&
         (findFrames(behind) || isEndOfStack(behind));
}

// The stack by its first frame, or by the instruction bytes alone.
bool TrapReader::isStack(uint64_t at) const {
  const uint32_t instructions = trap_.header.value.instructionBytes;
  if (instructions > OSS_TRAP_MOST_INSTRUCTIONS) return false;
  const uint64_t behind = at + instructions;
  if (!isEnd(behind) && isFrame(file_, behind)) return true;
  if (instructions == 0 || file_.left(at) < instructions) return false;
  const bool isOther = !isMet(TrapSection::Exception) && tool::isException(file_, at);
  return (isEnd(behind) && !isOther) ||
         (!isMet(TrapSection::ModuleSection) && isModuleSection(file_, behind));
}

// Whether the file ends here before the first frame does: nothing else can be told of it.
bool TrapReader::isEndOfStack(uint64_t at) const {
  const uint32_t instructions = trap_.header.value.instructionBytes;
  return instructions != 0 && instructions <= OSS_TRAP_MOST_INSTRUCTIONS &&
         file_.left(at) < instructions + sizeof(WalkFrame);
}

// Where the frames begin when the header's count of instruction bytes, or the first frame, is
// damaged.
std::optional<uint64_t> TrapReader::findFrames(uint64_t at) const {
  for (uint64_t frames = at; frames <= at + OSS_TRAP_MOST_INSTRUCTIONS; ++frames)
    if (isSoundFrame(file_, frames)) return frames;
  const uint64_t told = at + trap_.header.value.instructionBytes;
  if (isSoundFrame(file_, told + sizeof(WalkFrame))) return told;
  return std::nullopt;
}

// ---- The walk ----

bool TrapReader::readNext() {
  std::optional<TrapSection> section = known(at_);
  if (!section) {
    section = knownByWhatFollows(at_);
    if (section) problem("the section " + std::string(nameOf(*section)) + " is damaged", at_);
  }
  if (!section) return skipToKnown();
  read(*section);
  return true;
}

bool TrapReader::skipToKnown() {
  using enum TrapSection;
  uint64_t at = at_ + 1;
  std::optional<TrapSection> section;
  while (!isEnd(at) && !(section = knownFromAfar(at))) ++at;
  const bool isLast = isEnd(at);
  if (section == Environment && hasEnvironmentEnd()) {
    readEnvironment();
    return true;
  }
  const bool hasThread = isMet(Context) || isMet(Modules) || isMet(LibraryVersion);
  if (file_.left(at) == 0 && hasThread && !isMet(Stack) && isEndOfStack(at_)) {
    readStack();
    if (file_.left(at_) != 0) problem("the file is cut off in a frame", at_);
    at_ = at;
    return false;
  }
  problem(std::to_string(at - at_) + (isLast ? " bytes at the end" : " bytes") +
              " belong to no section that is known, or to one that is cut off",
          at_);
  at_ = at;
  return !isLast;
}

void TrapReader::read(TrapSection section) {
  const uint64_t start = at_;
  bool isWhole = true;
  switch (section) {
    case TrapSection::Header: break;
    case TrapSection::System: return readSystem();
    case TrapSection::Environment: return readEnvironment();
    case TrapSection::Exception:
      trap_.exception = take<ExceptionRecord>();
      isWhole = trap_.exception.isWhole();
      break;
    case TrapSection::Context:
      trap_.context = take<Context>();
      isWhole = trap_.context.isWhole();
      break;
    case TrapSection::Modules: readModules(trap_.modules, trap_.header.value.modules); break;
    case TrapSection::LibraryVersion: trap_.libraryVersion = take<ApiVersion>(); break;
    case TrapSection::Stack: return readStack();
    case TrapSection::ModuleSection: return readModuleSection();
  }
  place(section, start);
  if (!isWhole) problem("the file is cut off in the section " + std::string(nameOf(section)), at_);
}

void TrapReader::readSystem() {
  const uint64_t start = at_;
  trap_.system = take<SystemInfo>();
  trap_.version = take<OsVersion>();
  met_[static_cast<size_t>(TrapSection::System)] = true;
  const uint64_t wanted = findMemoryStatus();
  if (wanted == sizeof(MemoryStatusEx)) trap_.memory = take<MemoryStatusEx>();
  if (wanted == sizeof(MemoryStatus)) trap_.plainMemory = take<MemoryStatus>();
  place(TrapSection::System, start);
  if (!trap_.version.isWhole() || trap_.memory.bytes + trap_.plainMemory.bytes < wanted)
    problem("the file is cut off in the section system", at_);
}

// The length of the memory status that follows, or 0: its own first field tells, or what stands
// behind it, or the header.
uint64_t TrapReader::findMemoryStatus() const {
  constexpr uint64_t kExtended = sizeof(MemoryStatusEx);
  constexpr uint64_t kPlain = sizeof(MemoryStatus);
  const uint32_t size = file_.get<uint32_t>(at_).value_or(0);
  if (size == kExtended || size == kPlain) return size;

  if (file_.left(at_) != 0 && known(at_)) return 0;
  for (const uint64_t bytes : {kExtended, kPlain})
    if (file_.left(at_) >= bytes && isFollowed(at_ + bytes)) return bytes;
  const uint32_t contents = trap_.header.value.contents;
  if ((contents & OSS_TRAP_HAS_EXTENDED_MEMORY) != 0) return kExtended;
  return (contents & OSS_TRAP_HAS_MEMORY) != 0 ? kPlain : 0;
}

// ---- The environment ----

void TrapReader::readEnvironment() {
  const uint64_t start = at_;
  for (;;) {
    const bool isEnd = isEnvironmentEnd(file_, at_);
    if (isEnd || isDamagedEnvironmentEnd(file_, at_)) {
      if (!isEnd) problem("the end mark of the environment is damaged", at_);
      at_ += sizeof(uint64_t) + sizeof OSS_TRAP_ENVIRONMENT_END - 1;
      break;
    }
    if (isEnvironment(file_, at_)) {
      const uint64_t length = *file_.get<uint64_t>(at_);
      at_ += sizeof length;
      trap_.environment.push_back(takeText(length));
      if (trap_.environment.back().size() == length) continue;
    } else if (hasEnvironmentEnd()) {
      const uint64_t damaged = at_;
      while (!isEnvironment(file_, at_)) ++at_;
      problem(std::to_string(at_ - damaged) + " bytes of the environment are damaged", damaged);
      continue;
    }
    problem("the environment ends without its end mark", at_);
    break;
  }
  place(TrapSection::Environment, start);
}

// Whether the end mark is still to come in this dump: without it nothing says that what looks like
// a string, behind one that is damaged, still is one.
bool TrapReader::hasEnvironmentEnd() {
  environmentEnd_ = std::max(environmentEnd_, at_);
  while (!isEnd(environmentEnd_) && !isEnvironmentEnd(file_, environmentEnd_)) ++environmentEnd_;
  return !isEnd(environmentEnd_);
}

// ---- Modules ----

// A damaged record is believed when it is one of those that were told of and a whole one, or
// another section, follows.
void TrapReader::readModules(Modules& modules, uint64_t count) {
  const uint64_t start = at_;
  constexpr uint64_t kSize = sizeof(OSSTrapModule);
  while (file_.left(at_) != 0) {
    const uint64_t place = at_;
    if (!isModule(file_, at_)) {
      const bool isOneMore = modules.size() < count && file_.left(at_) >= kSize;
      const bool isLast = modules.size() + 1 == count;
      const uint64_t behind = at_ + kSize;
      if (!isOneMore || !(isModule(file_, behind) || (isLast && isFollowed(behind)))) break;
      problem("a module record is damaged", at_);
    }
    modules.push_back(take<OSSTrapModule>());
    if (!modules.back().isWhole()) problem("the file is cut off in a module record", place);
  }
  if (modules.size() != count && count != UINT16_MAX)
    problem("there are " + std::to_string(modules.size()) + " module records, and " +
                std::to_string(count) + " were told of",
            start);
}

void TrapReader::readModuleSection() {
  const uint64_t start = at_;
  const uint64_t count = *file_.get<uint64_t>(at_);
  at_ += sizeof count;
  readModules(trap_.moduleSection, count);
  place(TrapSection::ModuleSection, start);
}

}  // namespace oss::tool
