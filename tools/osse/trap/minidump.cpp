#include "trap/minidump.h"

#include <chrono>
#include <type_traits>

#include "trap/minidumplayout.h"
#include "trap/words.h"

namespace oss::tool {
namespace {

using minidump::Location;

// Seconds since 1970, with the local time taken for UTC: a trap file does not tell the zone.
uint32_t unixTimeOf(const OSSTrapTime& time) {
  using namespace std::chrono;
  const year_month_day date = year(time.year) / month(time.month) / day(time.day);
  if (!date.ok()) return 0;
  const auto sinceStart = sys_days(date).time_since_epoch() + hours(time.hour) +
                          minutes(time.minute) + seconds(time.second);
  return static_cast<uint32_t>(duration_cast<seconds>(sinceStart).count());
}

bool hasRegisters(const TrapFile& trap) { return trap.context.holds(&Context::rip); }
bool hasStack(const TrapFile& trap) { return !trap.stack.empty() && trap.stackAddress(); }

class MinidumpWriter {
 public:
  explicit MinidumpWriter(const TrapFile& trap) : trap_(trap) {}

  std::string write() {
    // The header stands in front; the directory is known at the end.
    append(minidump::Header{});
    if (hasRegisters(trap_)) context_ = append(trap_.context.value);
    addSystem();
    if (trap_.header.value.processId != 0) addMiscInfo();
    addModules();
    addMemory();
    addThread();
    if (trap_.exception.isWhole()) addException();
    finish();
    return std::move(file_);
  }

 private:
  using StreamType = minidump::StreamType;

  Location appendBytes(std::string_view bytes) {
    constexpr size_t kAlignment = 16;
    file_.resize((file_.size() + kAlignment - 1) / kAlignment * kAlignment);
    const Location location = {static_cast<uint32_t>(bytes.size()),
                               static_cast<uint32_t>(file_.size())};
    file_.append(bytes);
    return location;
  }
  template <class Record>
  static std::string_view bytesOf(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    return {reinterpret_cast<const char*>(&record), sizeof record};
  }
  template <class Record>
  Location append(const Record& record) {
    return appendBytes(bytesOf(record));
  }

  // A count of bytes and UTF-16, ended by a zero that is not counted.
  uint32_t appendText(std::string_view latin1) {
    const auto bytes = static_cast<uint32_t>(2 * latin1.size());
    std::string text(bytesOf(bytes));
    for (const char c : latin1) text.append({c, '\0'});
    return appendBytes(text.append(2, '\0')).rva;
  }

  void addStream(StreamType type, Location location) { directory_.push_back({type, location}); }
  // A count, and the records behind it.
  template <class Record>
  void addList(StreamType type, const std::vector<Record>& records) {
    const auto count = static_cast<uint32_t>(records.size());
    std::string list(bytesOf(count));
    for (const Record& record : records) list.append(bytesOf(record));
    addStream(type, appendBytes(list));
  }

  void addSystem();
  void addMiscInfo();
  void addModules();
  void addMemory();
  void addThread();
  void addException();
  void finish();

  const TrapFile& trap_;
  std::string file_;
  std::vector<minidump::DirectoryEntry> directory_;
  Location context_{};
  minidump::Memory stack_{};
};

// Always there: debuggers refuse a dump that does not tell the processor.
void MinidumpWriter::addSystem() {
  constexpr uint32_t kWindows = 2;
  minidump::SystemInfo info{};
  info.architecture = kArchitectureAmd64;
  info.platform = kWindows;
  info.level = trap_.system.value.level;
  info.revision = trap_.system.value.revision;
  info.processors = static_cast<uint8_t>(std::min(trap_.system.value.processors, 255U));
  const OsVersion& version = trap_.version.value;
  info.major = version.major;
  info.minor = version.minor;
  info.build = version.build;
  info.servicePack = appendText(textIn(version.servicePack));
  addStream(StreamType::SystemInfo, append(info));
}

void MinidumpWriter::addMiscInfo() {
  minidump::MiscInfo info{};
  info.bytes = sizeof info;
  info.flags = minidump::MiscInfo::kHasProcess;
  info.process = trap_.header.value.processId;
  addStream(StreamType::MiscInfo, append(info));
}

void MinidumpWriter::addModules() {
  std::vector<minidump::Module> modules;
  for (const Part<OSSTrapModule>& part : trap_.loaded()) {
    if (!part.holds(&OSSTrapModule::end) || part.value.end <= part.value.base) continue;
    minidump::Module module{};
    module.base = part.value.base;
    module.bytes =
        static_cast<uint32_t>(std::min<uint64_t>(part.value.end - part.value.base, UINT32_MAX));
    module.time = part.value.timeStamp;
    module.name = appendText(textIn(part.value.name));
    modules.push_back(module);
  }
  addList(StreamType::ModuleList, modules);
}

void MinidumpWriter::addMemory() {
  std::vector<minidump::Memory> memory;
  if (hasStack(trap_)) {
    stack_ = {*trap_.stackAddress(), appendBytes(trap_.stack)};
    memory.push_back(stack_);
  }
  if (!trap_.instructions.empty())
    memory.push_back({trap_.header.value.instructions, appendBytes(trap_.instructions)});
  addList(StreamType::MemoryList, memory);
}

void MinidumpWriter::addThread() {
  minidump::Thread thread{};
  thread.id = trap_.header.value.threadId;
  thread.stack = stack_;
  thread.context = context_;
  addList<minidump::Thread>(StreamType::ThreadList, {thread});
}

void MinidumpWriter::addException() {
  minidump::ExceptionStream stream{};
  stream.thread = trap_.header.value.threadId;
  stream.exception = trap_.exception.value;
  stream.exception.parameterCount =
      std::min(stream.exception.parameterCount, ExceptionRecord::kMostParameters);
  stream.context = context_;
  addStream(StreamType::Exception, append(stream));
}

void MinidumpWriter::finish() {
  std::string entries;
  for (const minidump::DirectoryEntry& entry : directory_) entries.append(bytesOf(entry));
  minidump::Header header{};
  header.signature = minidump::kSignature;
  header.version = minidump::kVersion;
  header.streams = static_cast<uint32_t>(directory_.size());
  header.directory = appendBytes(entries).rva;
  header.time = unixTimeOf(trap_.header.value.time);
  file_.replace(0, sizeof header, bytesOf(header));
}

}  // namespace

std::string minidumpOf(const TrapFile& trap) { return MinidumpWriter(trap).write(); }

std::vector<std::string> missingInMinidump(const TrapFile& trap) {
  std::vector<std::string> missing;
  if (trap.system.bytes == 0) missing.emplace_back("the system: x64 with no version is assumed");
  if (!hasRegisters(trap)) missing.emplace_back("the registers");
  if (!trap.exception.isWhole()) missing.emplace_back("the exception");
  if (trap.loaded().empty()) missing.emplace_back("the modules");
  if (!hasStack(trap)) missing.emplace_back("the stack");
  return missing;
}

}  // namespace oss::tool
