// The log facility: open, close, level, and the way of a record from its caller to a writer.
#include "osslog.h"

#include <windows.h>

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "log/osslogfacility.h"
#include "numeric/osslatchguard.h"
#include "osscatalog.h"
#include "ossprocess.h"
#include "osstime.h"

namespace oss {
namespace {

OSSLogFacility g_defaultFacility;
LogLevelHook g_levelHook = nullptr;
char g_recordLetter = '\0';

// Set while any thread of the process writes a record. Deliberate: it is read and then set, not
// exchanged, and a record that finds it set is dropped; two threads may still pass it at once, and
// then the facility's latch orders them.
std::atomic<uint8_t> g_writing{0};

class WritingMark {
 public:
  WritingMark() noexcept { g_writing.store(1, std::memory_order_relaxed); }
  ~WritingMark() { g_writing.store(0, std::memory_order_relaxed); }
  WritingMark(const WritingMark&) = delete;
  WritingMark& operator=(const WritingMark&) = delete;

  static bool isSet() noexcept { return g_writing.load(std::memory_order_relaxed) != 0; }
};

// Names the thread that holds a facility's latch to write. A thread that gets here again from
// within its own record must never wait for itself, and the mark above may have been cleared by
// another thread meanwhile.
class WriterMark {
 public:
  explicit WriterMark(OSSLogFacility& facility) noexcept : thread_(facility.writerThread) {
    thread_.store(ossThreadID(), std::memory_order_relaxed);
  }
  ~WriterMark() { thread_.store(0, std::memory_order_relaxed); }
  WriterMark(const WriterMark&) = delete;
  WriterMark& operator=(const WriterMark&) = delete;

  static bool isCaller(OSSLogFacility& facility) noexcept {
    return std::atomic_ref(facility.writerThread).load(std::memory_order_relaxed) == ossThreadID();
  }

 private:
  std::atomic_ref<uint32_t> thread_;
};

OSSLogFacility& orDefault(OSSLogFacility* facility) noexcept {
  return facility != nullptr ? *facility : g_defaultFacility;
}

bool isValid(const OSSLogFacOpenParam* param) noexcept {
  if (param == nullptr || param->version < OSS_VERSION_OLDEST) return false;
  if (param->level > OSS_LOG_EVENT || param->name[0] == '\0') return false;
  switch (param->destination) {
    case OSS_LOG_TO_FILE: return param->path[0] != '\0';
    case OSS_LOG_TO_EVENT_LOG:
    case OSS_LOG_TO_STDERR: return true;
    default: return false;
  }
}

template <size_t Size>
void copyText(char (&to)[Size], const char (&from)[Size]) noexcept {
  std::memcpy(to, from, Size - 1);
  to[Size - 1] = '\0';
}

bool admits(uint64_t facilityLevel, uint64_t level) noexcept {
  if (level == OSS_LOG_EVENT) return true;
  return facilityLevel != OSS_LOG_EVENT && level >= OSS_LOG_SEVERE && level <= facilityLevel;
}

int32_t secondOfDay(const tm& time) noexcept {
  return (time.tm_hour * 60 + time.tm_min) * 60 + time.tm_sec;
}

int32_t currentZoneMinutes() noexcept {
  const int64_t now = std::time(nullptr);  // ossTimeGetUTC asks for the time zone, too: 4 us
  tm local;
  tm utc;
  ossTimeLocalTime(now, &local);
  ossTimeGmTime(now, &utc);
  return zoneOffsetMinutes(secondOfDay(local), secondOfDay(utc));
}

LogStamp currentStamp() noexcept {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  return {.year = now.wYear,
          .month = now.wMonth,
          .day = now.wDay,
          .hour = now.wHour,
          .minute = now.wMinute,
          .second = now.wSecond,
          .millisecond = now.wMilliseconds,
          .zoneMinutes = currentZoneMinutes(),
          .processId = ossProcessID(),
          .threadId = ossThreadID()};
}

OSSErr deliver(const OSSLogFacility& facility, uint64_t level, char (&text)[kRecordBytes],
               size_t length) noexcept {
  bool written;
  switch (facility.destination) {
    case OSS_LOG_TO_FILE: written = writeToFile(facility, text, length); break;
    case OSS_LOG_TO_EVENT_LOG: written = writeToEventLog(facility, level, text); break;
    case OSS_LOG_TO_STDERR: written = writeToStandardError(text); break;
    default: return ECF_INVALID_PARAMETER;
  }
  return written ? ECF_OK : ECF_FAILED;
}

// The items of one call, collected from its variable arguments.
class ItemList {
 public:
  // The shortest item takes 18 characters, so no more than these can be seen in a record.
  static constexpr size_t kMost = kRecordBytes / 18 + 1;

  void take(uint32_t number, va_list& arguments) noexcept {
    const void* const data = va_arg(arguments, const void*);
    const uint64_t size = va_arg(arguments, uint64_t);
    const int32_t type = va_arg(arguments, int32_t);
    args_[count_++] = {number, {data, size, type}};
  }

  void takeCounted(uint32_t count, va_list& arguments) noexcept {
    for (uint32_t number = 1; number <= count && number <= kMost; ++number) take(number, arguments);
  }

  void takeMasked(int32_t mask, va_list& arguments) noexcept {
    for (uint32_t number = 1; number <= 31; ++number)
      if (static_cast<uint32_t>(mask) >> (number - 1) & 1) take(number, arguments);
  }

  std::span<const LogArg> items() const noexcept { return {args_, count_}; }

 private:
  LogArg args_[kMost];
  size_t count_ = 0;
};

OSSErr logMasked(OSSLogFacility* facility, const LogEvent& event, int32_t itemMask,
                 va_list& arguments) noexcept {
  if (itemMask > 0) return ECF_INVALID_PARAMETER;

  ItemList list;
  list.takeMasked(itemMask, arguments);
  return writeLogRecord(facility, event, list.items());
}

}  // namespace

OSSLogFacility& defaultLogFacility() noexcept { return g_defaultFacility; }

void ossLogSetLevelHook(LogLevelHook hook) noexcept { g_levelHook = hook; }

void ossLogSetRecordLetter(char letter) noexcept { g_recordLetter = letter; }

char logRecordLetter() noexcept { return g_recordLetter != '\0' ? g_recordLetter : 'F'; }

OSSErr writeLogRecord(OSSLogFacility* given, const LogEvent& event,
                      std::span<const LogArg> items) noexcept {
  OSSLogFacility& facility = orDefault(given);
  if (WritingMark::isSet() || WriterMark::isCaller(facility)) return ECF_OK;
  const WritingMark writing;
  if (facility.open == 0) return ECF_INVALID_PARAMETER;

  LatchGuard latch(facility.latch);
  const WriterMark writer(facility);
  if (g_levelHook != nullptr) g_levelHook(&facility.level);
  if (!admits(facility.level, event.level)) return ECF_OK;

  char text[kRecordBytes];
  const size_t length = composeLogRecord(text, event, currentStamp(), items);
  return deliver(facility, event.level, text, length);
}

}  // namespace oss

using namespace oss;

OSSErr ossLogFacOpen(const OSSLogFacOpenParam* param, OSSLogFacility* given) noexcept {
  if (!isValid(param)) return ECF_INVALID_PARAMETER;

  OSSLogFacility& facility = orDefault(given);
  facility.latch = 0;
  LatchGuard latch(facility.latch);
  copyText(facility.path, param->path);
  copyText(facility.name, param->name);
  facility.level = param->level;
  facility.destination = param->destination;
  facility.fileMode = param->fileMode;
  facility.open = 1;
  return ECF_OK;
}

OSSErr ossLogFacClose(OSSLogFacility* given) noexcept {
  OSSLogFacility& facility = orDefault(given);
  LatchGuard latch(facility.latch);
  facility.open = 0;
  return ECF_OK;
}

OSSErr ossLogFacSetLevel(OSSLogFacility* given, uint64_t level) noexcept {
  OSSLogFacility& facility = orDefault(given);
  if (facility.open == 0) return ECF_INVALID_PARAMETER;

  LatchGuard latch(facility.latch);
  facility.level = level;
  return ECF_OK;
}

OSSErr ossLog(OSSLogFacility* facility, uint32_t funcId, OSSErr messageCode, uint64_t probe,
              uint64_t level, int32_t itemCount, ...) noexcept {
  if (itemCount < 0) return ECF_INVALID_PARAMETER;

  ItemList list;
  va_list arguments;
  va_start(arguments, itemCount);
  list.takeCounted(static_cast<uint32_t>(itemCount), arguments);
  va_end(arguments);
  return writeLogRecord(
      facility, {.funcId = funcId, .messageCode = messageCode, .probe = probe, .level = level},
      list.items());
}

OSSErr ossLogRC(OSSLogFacility* facility, uint32_t funcId, uint32_t calledFuncId, OSSErr calledRC,
                OSSErr messageCode, uint64_t probe, uint64_t level, int32_t itemMask,
                ...) noexcept {
  const LogEvent event = {.funcId = funcId,
                          .messageCode = messageCode,
                          .probe = probe,
                          .level = level,
                          .called = LogEvent::Called::Function,
                          .calledFuncId = calledFuncId,
                          .calledRC = calledRC};
  va_list arguments;
  va_start(arguments, itemMask);
  const OSSErr rc = logMasked(facility, event, itemMask, arguments);
  va_end(arguments);
  return rc;
}

OSSErr ossLogSysRC(OSSLogFacility* facility, uint32_t funcId, uint32_t sysCallId, uint64_t sysError,
                   OSSErr messageCode, uint64_t probe, uint64_t level, int32_t itemMask,
                   ...) noexcept {
  const LogEvent event = {.funcId = funcId,
                          .messageCode = messageCode,
                          .probe = probe,
                          .level = level,
                          .called = LogEvent::Called::System,
                          .calledFuncId = sysCallId,
                          .sysError = sysError};
  va_list arguments;
  va_start(arguments, itemMask);
  const OSSErr rc = logMasked(facility, event, itemMask, arguments);
  va_end(arguments);
  return rc;
}
