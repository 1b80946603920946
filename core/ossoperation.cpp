#include "core/ossoperation.h"

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/osserrorlevel.h"
#include "log/osslogfacility.h"
#include "ossprocess.h"
#include "osstracepoint.h"

namespace oss {
namespace {

constexpr uint32_t idOf(Func function) noexcept { return static_cast<uint32_t>(function); }
constexpr uint32_t idOf(SysCall call) noexcept { return static_cast<uint32_t>(call); }

constexpr uint64_t kBlockItem = GTRACE_ITEM_BLOCK;

uint64_t traceThread() noexcept { return ossThreadID(); }

// Probes of trace records are 16 bits wide; every probe of the library fits.
constexpr uint16_t traceProbe(Probe probe) noexcept { return static_cast<uint16_t>(probe); }

[[maybe_unused]] bool numbersRise(LogArgs args) noexcept {
  return std::is_sorted(args.begin(), args.end(),
                        [](const LogArg& a, const LogArg& b) { return a.number < b.number; });
}

void traceError(Func self, Probe probe, const OSSErr& rc) noexcept {
  if (tracing())
    gtraceErrorVar(traceThread(), idOf(self), traceProbe(probe), GTRACE_ERROR, 0, 1, kBlockItem,
                   uint64_t{sizeof rc}, &rc);
}

// The error is an argument because everything here changes the last one.
void logSystemError(Func self, Probe probe, OSSErr code, Level level, SysCall call, uint32_t error,
                    LogArgs args) noexcept {
  assert(numbersRise(args));
  writeLogRecord(nullptr,
                 {.funcId = idOf(self),
                  .messageCode = code,
                  .probe = probe,
                  .level = level,
                  .called = LogEvent::Called::System,
                  .calledFuncId = idOf(call),
                  .sysError = error},
                 {args.begin(), args.size()});
}

OSSErr logMappedError(Func self, Probe probe, FailedCall call, uint32_t error,
                      LogArgs args) noexcept {
  uint64_t level = 0;
  const Func mapper = call.mappedFor != Func{} ? call.mappedFor : self;
  const OSSErr rc = ossErrorMapSystem(idOf(mapper), probe, idOf(call.mappedAs), error, &level);
  const OSSErr logged = call.loggedCode != ECF_OK ? call.loggedCode : rc;
  const Func logger = call.loggedFor != Func{} ? call.loggedFor : self;
  logSystemError(logger, probe, logged, level, call.loggedAs, error, args);
  return rc;
}

}  // namespace

LogItem string(const char* text) noexcept {
  return string(text, text != nullptr ? std::strlen(text) : 0);
}

TraceItem charactersOf(const char* text) noexcept {
  return {text, text != nullptr ? std::strlen(text) : 0};
}

void Operation::traceEntry(Func self) noexcept { gtraceEntry(traceThread(), idOf(self)); }

void Operation::traceExit(Func self, OSSErr rc) noexcept {
  const uint64_t wide = rc;
  gtraceExit(traceThread(), idOf(self), &wide, 0);
}

void Operation::traceData(Func self, Probe probe, TraceItems items) noexcept {
  const auto at = [&](size_t index) { return items.begin()[index]; };
  const uint64_t thread = traceThread();
  switch (items.size()) {
    case 1:
      gtraceVar(thread, idOf(self), traceProbe(probe), GTRACE_DATA, 1, kBlockItem, at(0).length,
                at(0).data);
      break;
    case 2:
      gtraceVar(thread, idOf(self), traceProbe(probe), GTRACE_DATA, 2, kBlockItem, at(0).length,
                at(0).data, kBlockItem, at(1).length, at(1).data);
      break;
    case 3:
      gtraceVar(thread, idOf(self), traceProbe(probe), GTRACE_DATA, 3, kBlockItem, at(0).length,
                at(0).data, kBlockItem, at(1).length, at(1).data, kBlockItem, at(2).length,
                at(2).data);
      break;
    default: assert(false && "a data point of the library has one to three items");
  }
}

OSSErr Operation::refuse(Func reportedAs, const uint64_t* version) noexcept {
  if (version == nullptr)
    return report(reportedAs, kProbeNullRecord, ECF_INVALID_PARAMETER, OSS_LOG_ERROR, {});
  return report(reportedAs, kProbeOldRecord, ECF_INVALID_VERSION, OSS_LOG_ERROR, {uint(*version)});
}

OSSErr Operation::report(Func self, Probe probe, OSSErr rc, Level level, LogData data) noexcept {
  constexpr size_t kMost = 10;
  assert(data.size() <= kMost);
  LogArg args[kMost];
  uint32_t count = 0;
  for (const LogItem& item : data) {
    args[count] = {count + 1, item};
    ++count;
  }

  writeLogRecord(nullptr, {.funcId = idOf(self), .messageCode = rc, .probe = probe, .level = level},
                 {args, count});
  return rc;
}

OSSErr logSystemFailure(Func self, Probe probe, FailedCall call, LogArgs args) noexcept {
  return logMappedError(self, probe, call, ::GetLastError(), args);
}

OSSErr Operation::reportSystem(Func self, Probe probe, FailedCall call, LogArgs args) noexcept {
  const OSSErr rc = logSystemFailure(self, probe, call, args);
  traceError(self, probe, rc);
  return rc;
}

OSSErr Operation::reportErrno(Func self, Probe probe, SysCall call, LogArgs args) noexcept {
  const OSSErr rc =
      logMappedError(self, probe, FailedCall{call}, static_cast<uint32_t>(errno), args);
  traceError(self, probe, rc);
  return rc;
}

OSSErr Operation::reportUnmapped(Func self, Probe probe, SysCall call, OSSErr rc,
                                 LogArgs args) noexcept {
  const DWORD error = ::GetLastError();  // first: everything below changes it
  logSystemError(self, probe, rc, logLevelOf(rc), call, error, args);
  traceError(self, probe, rc);
  return rc;
}

OSSErr Operation::reportCalled(Func self, Probe probe, Func called, OSSErr calledRC, OSSErr rc,
                               LogArgs args) noexcept {
  assert(numbersRise(args));
  writeLogRecord(nullptr,
                 {.funcId = idOf(self),
                  .messageCode = rc,
                  .probe = probe,
                  .level = logLevelOf(calledRC),
                  .called = LogEvent::Called::Function,
                  .calledFuncId = idOf(called),
                  .calledRC = calledRC},
                 {args.begin(), args.size()});
  return rc;
}

OSSErr Operation::reportUnlogged(Func self, Probe probe, SysCall call, uint32_t error) noexcept {
  const OSSErr rc = ossErrorMapSystem(idOf(self), probe, idOf(call), error, nullptr);
  traceError(self, probe, rc);
  return rc;
}

OSSErr Operation::reportTraced(Func self, Probe probe, OSSErr rc) noexcept {
  traceError(self, probe, rc);
  return rc;
}

}  // namespace oss
