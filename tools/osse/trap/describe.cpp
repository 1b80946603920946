#include "trap/describe.h"

#include <array>
#include <iterator>

#include "trap/exceptionname.h"
#include "trap/modulemap.h"
#include "trap/words.h"

namespace oss::tool {
namespace {

using Json = TrapDocument;

// Makes an object of those members of a record that lie before its cut.
template <class Record>
class Fields {
 public:
  explicit Fields(const Part<Record>& part) : part_(part) {}

  template <class Member>
  Fields& number(const char* name, Member Record::*member) {
    if (part_.holds(member)) object_[name] = part_.value.*member;
    return *this;
  }
  template <class Member>
  Fields& hex(const char* name, Member Record::*member) {
    if (part_.holds(member)) object_[name] = hexOf(part_.value.*member);
    return *this;
  }
  Fields& address(const char* name, uint64_t Record::*member) {
    if (part_.holds(member)) object_[name] = addressOf(part_.value.*member);
    return *this;
  }
  template <class Member>
  Fields& text(const char* name, Member Record::*member) {
    if (part_.holds(member)) object_[name] = utf8Of(textIn(part_.value.*member));
    return *this;
  }
  // What `make` makes of the member.
  template <class Member, class Make>
  Fields& made(const char* name, Member Record::*member, Make&& make) {
    if (part_.holds(member)) object_[name] = make(part_.value.*member);
    return *this;
  }

  Json take() { return std::move(object_); }

 private:
  const Part<Record>& part_;
  Json object_ = Json::object();
};

// ---- Header and system ----

std::string timeText(const OSSTrapTime& time) {
  const auto digits = [](uint32_t value, size_t width) {
    std::string text = std::to_string(value);
    return text.insert(0, width - std::min(width, text.size()), '0');
  };
  return digits(time.year, 4) + '-' + digits(time.month, 2) + '-' + digits(time.day, 2) + 'T' +
         digits(time.hour, 2) + ':' + digits(time.minute, 2) + ':' + digits(time.second, 2) + '.' +
         digits(time.millisecond, 3);
}

Json contentNames(uint32_t contents) {
  struct Name {
    uint32_t bit;
    const char* text;
  };
  constexpr Name kNames[] = {
      {OSS_TRAP_HAS_EXCEPTION, "exception"},
      {OSS_TRAP_HAS_CONTEXT, "context"},
      {OSS_TRAP_HAS_MODULES, "modules"},
      {OSS_TRAP_HAS_CONTROL, "control registers"},
      {OSS_TRAP_HAS_INSTRUCTIONS, "instruction bytes"},
      {OSS_TRAP_HAS_LIBRARY_VERSION, "library version"},
      {OSS_TRAP_HAS_KEPT_MODULES, "kept modules"},
      {OSS_TRAP_HAS_EXTENDED_MEMORY, "extended memory status"},
      {OSS_TRAP_HAS_MEMORY, "memory status"},
  };
  Json names = Json::array();
  for (const Name& name : kNames)
    if ((contents & name.bit) != 0) names.push_back(name.text);
  return names;
}

Json headerOf(const TrapFile& trap) {
  return Fields(trap.header)
      .number("process", &OSSTrapHeader::processId)
      .number("thread", &OSSTrapHeader::threadId)
      .made("localTime", &OSSTrapHeader::time, timeText)
      .text("executable", &OSSTrapHeader::executable)
      .hex("contentFlags", &OSSTrapHeader::contents)
      .made("contents", &OSSTrapHeader::contents, contentNames)
      .number("modules", &OSSTrapHeader::modules)
      .address("instructionAddress", &OSSTrapHeader::instructions)
      .number("instructionBytes", &OSSTrapHeader::instructionBytes)
      .take();
}

template <class Record>
Json memoryOf(const Part<Record>& memory) {
  return Fields(memory)
      .number("load", &Record::load)
      .number("physical", &Record::physical)
      .number("physicalFree", &Record::physicalFree)
      .number("pageFile", &Record::pageFile)
      .number("pageFileFree", &Record::pageFileFree)
      .number("addresses", &Record::addresses)
      .number("addressesFree", &Record::addressesFree)
      .take();
}

Json systemOf(const TrapFile& trap) {
  Json system = Fields(trap.system)
                    .number("architecture", &SystemInfo::architecture)
                    .number("level", &SystemInfo::level)
                    .hex("revision", &SystemInfo::revision)
                    .number("processors", &SystemInfo::processors)
                    .hex("processorMask", &SystemInfo::processorMask)
                    .number("pageSize", &SystemInfo::pageSize)
                    .number("granularity", &SystemInfo::granularity)
                    .address("lowestAddress", &SystemInfo::lowestAddress)
                    .address("highestAddress", &SystemInfo::highestAddress)
                    .take();
  if (trap.version.holds(&OsVersion::build)) {
    const OsVersion& version = trap.version.value;
    system["version"] = std::to_string(version.major) + '.' + std::to_string(version.minor) + '.' +
                        std::to_string(version.build);
  }
  system.update(Fields(trap.version)
                    .number("platform", &OsVersion::platform)
                    .text("servicePack", &OsVersion::servicePack)
                    .take());
  return system;
}

// ---- The fault ----

Json exceptionOf(const Part<ExceptionRecord>& part, const ModuleMap& map) {
  const ExceptionRecord& exception = part.value;
  Json object = Fields(part).hex("code", &ExceptionRecord::code).take();
  if (const char* const name = exceptionName(exception.code)) object["name"] = name;
  object.update(Fields(part)
                    .hex("flags", &ExceptionRecord::flags)
                    .address("address", &ExceptionRecord::address)
                    .take());
  if (part.holds(&ExceptionRecord::address)) {
    const std::string place = map.find(exception.address);
    if (!place.empty()) object["place"] = place;
  }
  if (exception.nested != 0) object["nestedRecord"] = addressOf(exception.nested);

  const uint64_t there =
      part.bytes <= offsetof(ExceptionRecord, parameters)
          ? 0
          : (part.bytes - offsetof(ExceptionRecord, parameters)) / sizeof(uint64_t);
  const uint64_t count = std::min<uint64_t>(exception.parameterCount, there);
  if (count >= 2 && (exception.code == kAccessViolation || exception.code == kInPageError)) {
    object["access"] = accessName(exception.parameters[0]);
    object["accessAddress"] = addressOf(exception.parameters[1]);
  }
  if (count != 0) {
    Json& parameters = object["parameters"] = Json::array();
    for (uint64_t i = 0; i < count; ++i) parameters.push_back(hexOf(exception.parameters[i]));
  }
  return object;
}

Json registersOf(const Part<Context>& part) {
  Json registers = Fields(part)
                       .address("rip", &Context::rip)
                       .address("rsp", &Context::rsp)
                       .address("rbp", &Context::rbp)
                       .address("rax", &Context::rax)
                       .address("rbx", &Context::rbx)
                       .address("rcx", &Context::rcx)
                       .address("rdx", &Context::rdx)
                       .address("rsi", &Context::rsi)
                       .address("rdi", &Context::rdi)
                       .address("r8", &Context::r8)
                       .address("r9", &Context::r9)
                       .address("r10", &Context::r10)
                       .address("r11", &Context::r11)
                       .address("r12", &Context::r12)
                       .address("r13", &Context::r13)
                       .address("r14", &Context::r14)
                       .address("r15", &Context::r15)
                       .hex("eflags", &Context::eflags)
                       .hex("cs", &Context::cs)
                       .hex("ss", &Context::ss)
                       .hex("ds", &Context::ds)
                       .hex("es", &Context::es)
                       .hex("fs", &Context::fs)
                       .hex("gs", &Context::gs)
                       .hex("mxcsr", &Context::mxCsr)
                       .hex("contextFlags", &Context::flags)
                       .address("dr0", &Context::dr0)
                       .address("dr1", &Context::dr1)
                       .address("dr2", &Context::dr2)
                       .address("dr3", &Context::dr3)
                       .address("dr6", &Context::dr6)
                       .address("dr7", &Context::dr7)
                       .take();
  if (!part.holds(&Context::xmm)) return registers;
  for (size_t i = 0; i < std::size(part.value.xmm); ++i)
    registers["xmm" + std::to_string(i)] =
        addressOf(part.value.xmm[i].high) + addressOf(part.value.xmm[i].low).substr(2);
  return registers;
}

// ---- Modules and stack ----

Json modulesOf(const std::vector<Part<OSSTrapModule>>& modules) {
  Json list = Json::array();
  for (const Part<OSSTrapModule>& module : modules)
    list.push_back(Fields(module)
                       .address("base", &OSSTrapModule::base)
                       .address("end", &OSSTrapModule::end)
                       .made("linked", &OSSTrapModule::timeStamp, utcOf)
                       .hex("marker", &OSSTrapModule::marker)
                       .text("name", &OSSTrapModule::name)
                       .take());
  return list;
}

Json framesOf(const TrapFile& trap, const ModuleMap& map) {
  const auto offset = [](const WalkAddress& address) { return addressOf(address.offset); };
  const auto place = [&map](const WalkAddress& pc) { return map.find(pc.offset); };
  const auto parameters = [](const uint64_t(&values)[4]) {
    Json list = Json::array();
    for (const uint64_t value : values) list.push_back(addressOf(value));
    return list;
  };
  Json list = Json::array();
  for (const Part<WalkFrame>& frame : trap.frames)
    list.push_back(Fields(frame)
                       .made("pc", &WalkFrame::pc, offset)
                       .made("return", &WalkFrame::returning, offset)
                       .made("frame", &WalkFrame::frame, offset)
                       .made("stack", &WalkFrame::stack, offset)
                       .made("parameters", &WalkFrame::parameters, parameters)
                       .made("place", &WalkFrame::pc, place)
                       .take());
  return list;
}

const char* walkEndOf(const TrapFile& trap) {
  if (!trap.frames.back().isWhole()) return "the file is cut off";
  switch (trap.frames.back().value.returning.offset) {
    case 0: return "no return address";
    case OSS_TRAP_WALK_FAILED: return "the walk failed";
    default: return "the file tells no end";
  }
}

Json stackOf(const TrapFile& trap) {
  Json stack = Json::object();
  stack["words"] = *trap.stackWords;
  if (const std::optional<uint64_t> address = trap.stackAddress())
    stack["address"] = addressOf(*address);
  stack["bytes"] = digitsOf(trap.stack);
  return stack;
}

void addStack(const TrapFile& trap, const ModuleMap& map, Json& document) {
  if (!trap.instructions.empty())
    document["instructions"] = {{"address", addressOf(trap.header.value.instructions)},
                                {"bytes", digitsOf(trap.instructions)}};
  if (!trap.frames.empty()) {
    document["walk"] = {{"frames", trap.frames.size()}, {"end", walkEndOf(trap)}};
    document["frames"] = framesOf(trap, map);
  }
  if (trap.stackWords) document["stack"] = stackOf(trap);
}

Json sectionsOf(const TrapFile& trap) {
  Json list = Json::array();
  for (const TrapFile::Place& place : trap.places)
    list.push_back(
        {{"offset", hexOf(place.offset)}, {"bytes", place.bytes}, {"name", nameOf(place.section)}});
  return list;
}

}  // namespace

TrapDocument describe(const TrapFile& trap) {
  const ModuleMap map(trap.loaded());
  Json document;
  if (trap.dumps > 1) document["dump"] = {{"number", trap.number}, {"of", trap.dumps}};
  document["header"] = headerOf(trap);
  if (trap.has(TrapSection::System)) document["system"] = systemOf(trap);
  if (trap.memory.bytes != 0) document["memory"] = memoryOf(trap.memory);
  if (trap.plainMemory.bytes != 0) document["memory"] = memoryOf(trap.plainMemory);
  if (trap.has(TrapSection::Environment)) {
    Json& list = document["environment"] = Json::array();
    for (const std::string& text : trap.environment) list.push_back(utf8Of(text));
  }
  if (trap.has(TrapSection::Exception)) document["exception"] = exceptionOf(trap.exception, map);
  if (trap.has(TrapSection::Context)) document["registers"] = registersOf(trap.context);
  if (trap.has(TrapSection::Modules)) document["modules"] = modulesOf(trap.modules);
  if (trap.has(TrapSection::LibraryVersion))
    document["libraryVersion"] = Fields(trap.libraryVersion)
                                     .number("major", &ApiVersion::major)
                                     .number("minor", &ApiVersion::minor)
                                     .number("revision", &ApiVersion::revision)
                                     .take();
  addStack(trap, map, document);
  if (trap.has(TrapSection::ModuleSection))
    document["moduleSection"] = modulesOf(trap.moduleSection);
  document["sections"] = sectionsOf(trap);
  document["problems"] = trap.problems;
  return document;
}

}  // namespace oss::tool
