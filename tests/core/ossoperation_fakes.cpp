// What the frame calls, written down.
#include "tests/core/ossoperation_fakes.h"

#include <windows.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "core/osserrorlevel.h"
#include "log/osslogfacility.h"
#include "memory/ossmemdbg.h"
#include "numeric/ossspintuning.h"
#include "osscatalog.h"
#include "ossprocess.h"
#include "osstime.h"
#include "osstrace.h"
#include "osstracepoint.h"

namespace oss::fakes {

std::vector<std::string> g_calls;
OSSErr g_mapped;
uint64_t g_mappedLevel;
uint64_t g_levelOfCode;
std::function<void()> g_duringLog;

std::string text(const char* format, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  return line;
}

void note(std::string call) {
  g_calls.push_back(std::move(call));
  ::SetLastError(0xDEAD);
}

namespace {

std::string bytes(const void* data, uint64_t size) {
  std::string hex;
  for (uint64_t i = 0; data != nullptr && i < size; ++i)
    hex += text("%02X", static_cast<const uint8_t*>(data)[i]);
  return data != nullptr ? hex : "null";
}

std::string itemsOf(uint64_t count, va_list arguments) {
  std::string items;
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t type = va_arg(arguments, uint64_t);
    const uint64_t length = va_arg(arguments, uint64_t);
    const void* const data = va_arg(arguments, const void*);
    items += text(" {%" PRIu64 " %" PRIu64 " ", type, length) + bytes(data, length) + "}";
  }
  return items;
}

std::string calledOf(const oss::LogEvent& event) {
  switch (event.called) {
    case oss::LogEvent::Called::None: return "nothing";
    case oss::LogEvent::Called::Function:
      return text("function %08X rc %08X", event.calledFuncId, event.calledRC);
    default: return text("system %08X error %" PRIu64, event.calledFuncId, event.sysError);
  }
}

}  // namespace
}  // namespace oss::fakes

using namespace oss::fakes;

GTraceControlBlock* g_pGTCB = nullptr;

// The upper bit is set: widened, the identifier must not take a sign along.
uint32_t ossThreadID() noexcept { return 0x89ABCDEF; }

void gtraceEntry(uint64_t thread, uint32_t funcId) noexcept {
  note(text("entry %016" PRIX64 " %08X", thread, funcId));
}

void gtraceExit(uint64_t thread, uint32_t funcId, const uint64_t* rc, uint64_t extra) noexcept {
  note(text("exit %016" PRIX64 " %08X rc %016" PRIX64 " extra %" PRIu64, thread, funcId, *rc,
            extra));
}

void gtraceErrorVar(uint64_t thread, uint32_t funcId, uint16_t probe, uint16_t type, uint64_t extra,
                    uint64_t count, ...) noexcept {
  va_list arguments;
  va_start(arguments, count);
  note(text("error %016" PRIX64 " %08X probe %u type %u extra %" PRIu64, thread, funcId, probe,
            type, extra) +
       itemsOf(count, arguments));
  va_end(arguments);
}

void gtraceVar(uint64_t thread, uint32_t funcId, uint16_t probe, uint16_t type, uint64_t count,
               ...) noexcept {
  va_list arguments;
  va_start(arguments, count);
  note(text("data %016" PRIX64 " %08X probe %u type %u", thread, funcId, probe, type) +
       itemsOf(count, arguments));
  va_end(arguments);
}

OSSErr ossErrorMapSystem(uint32_t funcId, uint64_t probe, uint64_t sysCallId, uint64_t sysError,
                         uint64_t* logLevelOut) noexcept {
  note(text("map %08X probe %" PRIu64 " call %08" PRIX64 " error %" PRIu64, funcId, probe,
            sysCallId, sysError));
  if (logLevelOut != nullptr) *logLevelOut = g_mappedLevel;
  return g_mapped;
}

uint64_t oss::logLevelOf(OSSErr rc) noexcept {
  note(text("level %08X", rc));
  return g_levelOfCode;
}

OSSErr oss::writeLogRecord(OSSLogFacility* facility, const LogEvent& event,
                           std::span<const LogArg> items) noexcept {
  std::string line = text("log %s %08X code %08X probe %" PRIu64 " level %" PRIu64 " ",
                          facility == nullptr ? "default" : "other", event.funcId,
                          event.messageCode, event.probe, event.level) +
                     calledOf(event);
  for (const LogArg& arg : items)
    line += text(" #%u {%d %" PRIu64 " ", arg.number, arg.item.type, arg.item.size) +
            bytes(arg.item.data, arg.item.size) + "}";
  note(line);
  if (g_duringLog) g_duringLog();
  return ECF_FAILED;
}

// ---- What the operations call besides ----

uint32_t ossSleep(uint32_t milliseconds) noexcept {
  note(text("sleep %u", milliseconds));
  return 0;
}

void oss::initializeSpinTuning(uint32_t processors) noexcept {
  note(text("processors %u", processors));
}

void oss::initializeMemDebug() noexcept { note("memory debugging"); }

void oss::listLeaksAtEnd(bool othersAreDead) noexcept {
  note(othersAreDead ? "leaks, others dead" : "leaks, others alive");
}
