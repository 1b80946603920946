// ossoperation.h - the frame of an exported operation, written once.
//
// An operation constructs its frame first and returns through it. The frame records the entry and
// the exit, checks parameter records, and turns a failure into a mapped code, a log record and an
// error trace point, always in this order:
//
//   failed call -> system error read -> ossErrorMapSystem -> log record -> gtraceErrorVar -> exit
//
// The exit is recorded by the destructor, after every guard declared behind the frame has cleaned
// up. A guard that makes system calls does so after the system error has been read, for the return
// expression is evaluated before any destructor runs.
//
// With tracing off the frame costs a load and a branch at each trace point, two of each while a
// block is attached. Two conditions keep it so: operations are noexcept, and what is cold is static
// with arguments by value: the address of a frame never escapes, and it lives in registers.
#pragma once

#include <atomic>
#include <cassert>
#include <concepts>
#include <initializer_list>

#include "log/osslogrecord.h"
#include "osscatalog.h"
#include "osstrace.h"
#include "osstypes.h"

namespace oss {

// A place inside one operation: steps in multiples of ten, argument checks from 1111 on.
using Probe = uint64_t;
using Level = uint64_t;

inline constexpr Probe kProbeNullRecord = 1111;
inline constexpr Probe kProbeOldRecord = 1112;

// Items of a record that a failing call explains: each carries its argument's number, by which the
// record shows it. Numbers rise.
using LogArgs = std::initializer_list<LogArg>;
// Items of a record about something that the operation found itself, numbered from 1.
using LogData = std::initializer_list<LogItem>;

// Makers of items. An item points at the value, which must outlive the call that logs it; a
// temporary does.
template <class T>
constexpr LogItem hex(const T& value) noexcept {
  return {&value, sizeof value, OSS_LOG_HEX};
}
template <class T>
constexpr LogItem uint(const T& value) noexcept {
  return {&value, sizeof value, OSS_LOG_UINT};
}
constexpr LogItem string(const char* text, uint64_t bytes) noexcept {
  return {text, bytes, OSS_LOG_STRING};
}
LogItem string(const char* text) noexcept;

// Makers of trace items: the bytes of a value or of a region.
struct TraceItem {
  const void* data;
  uint64_t length;
};
template <class T>
constexpr TraceItem bytesOf(const T& value) noexcept {
  return {&value, sizeof value};
}
TraceItem charactersOf(const char* text) noexcept;
using TraceItems = std::initializer_list<TraceItem>;

// Every parameter record begins with its version.
template <class T>
concept VersionedRecord = requires(const T& record) {
  { record.version } -> std::same_as<const uint64_t&>;
};

// True while a host has published an enabled trace control block. Asked anew at every trace point:
// tracing may be switched while an operation runs.
inline bool tracing() noexcept {
  auto* const block = std::atomic_ref(g_pGTCB).load(std::memory_order_acquire);
  return block != nullptr && std::atomic_ref(block->enabled).load(std::memory_order_relaxed) != 0;
}

// The call that failed. Some operations map a failure under one identifier and log it under
// another, log a code that they do not return, or map or log it in another operation's name.
struct FailedCall {
  SysCall mappedAs;
  SysCall loggedAs = mappedAs;
  OSSErr loggedCode = ECF_OK;  // 0: the mapped one
  Func mappedFor = Func{};     // none: the operation itself
  Func loggedFor = Func{};     // none: the operation itself
};

// Maps the last error of a failed call, logs the failure and returns its code, without tracing. The
// frame does it for its operation; the inner halves of operations that are traced as a whole call
// it themselves.
[[gnu::cold]] OSSErr logSystemFailure(Func self, Probe probe, FailedCall call,
                                      LogArgs args = {}) noexcept;
inline OSSErr logSystemFailure(Func self, Probe probe, SysCall call, LogArgs args = {}) noexcept {
  return logSystemFailure(self, probe, FailedCall{call}, args);
}

class Operation {
 public:
  explicit Operation(Func self) noexcept : self_(self) {
    if (tracing()) [[unlikely]]
      traceEntry(self_);
  }
  ~Operation() {
    assert(answered_ && "an operation must return through its frame");
    if (tracing()) [[unlikely]]
      traceExit(self_, rc_);
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // Success, or a code that needs no record (any more).
  [[nodiscard]] OSSErr exit(OSSErr rc = ECF_OK) noexcept { return answer(rc); }

  // The null record and the record that is too old: probes 1111 and 1112.
  template <VersionedRecord Record>
  [[nodiscard]] OSSErr check(const Record* record) noexcept {
    return check(record, self_);
  }
  template <VersionedRecord Record>
  [[nodiscard]] OSSErr check(const Record* record, Func reportedAs) noexcept {
    if (record != nullptr && record->version >= OSS_VERSION_OLDEST) [[likely]]
      return ECF_OK;
    return answer(refuse(reportedAs, record != nullptr ? &record->version : nullptr));
  }

  // A pointer that the operation needs: probe 1111, as for a null record.
  [[nodiscard]] OSSErr checkNotNull(const void* pointer) noexcept {
    if (pointer != nullptr) [[likely]]
      return ECF_OK;
    return answer(refuse(self_, nullptr));
  }

  // Found by the operation itself.
  [[nodiscard]] OSSErr fail(Probe probe, OSSErr rc, Level level, LogData data = {}) noexcept {
    return answer(report(self_, probe, rc, level, data));
  }

  // The same, reported in another operation's name.
  [[nodiscard]] OSSErr failAs(Func reportedAs, Probe probe, OSSErr rc, Level level) noexcept {
    return answer(report(reportedAs, probe, rc, level, {}));
  }

  // A field out of its range: an Info record that shows the field.
  [[nodiscard]] OSSErr failField(Probe probe, const uint64_t& field) noexcept {
    return fail(probe, ECF_INVALID_PARAMETER, OSS_LOG_INFO, {hex(field)});
  }

  // Found by a called operation of the library, which has logged its own share.
  [[nodiscard]] OSSErr failCalled(Probe probe, Func called, OSSErr rc, LogArgs args = {}) noexcept {
    return failCalledAs(probe, called, rc, rc, args);
  }

  // The same, told to the caller by a code of the operation's own.
  [[nodiscard]] OSSErr failCalledAs(Probe probe, Func called, OSSErr calledRC, OSSErr rc,
                                    LogArgs args = {}) noexcept {
    return answer(reportCalled(self_, probe, called, calledRC, rc, args));
  }

  // Found by the system: maps the last error, logs, records an error trace point.
  [[nodiscard]] OSSErr failSystem(Probe probe, FailedCall call, LogArgs args = {}) noexcept {
    return answer(reportSystem(self_, probe, call, args));
  }
  [[nodiscard]] OSSErr failSystem(Probe probe, SysCall call, LogArgs args = {}) noexcept {
    return failSystem(probe, FailedCall{call}, args);
  }

  // Found by the C run-time: the same with errno.
  [[nodiscard]] OSSErr failErrno(Probe probe, SysCall call, LogArgs args = {}) noexcept {
    return answer(reportErrno(self_, probe, call, args));
  }

  // Found by the system, whose error is logged and not mapped: the code is the operation's own.
  [[nodiscard]] OSSErr failUnmapped(Probe probe, SysCall call, OSSErr rc,
                                    LogArgs args = {}) noexcept {
    return answer(reportUnmapped(self_, probe, call, rc, args));
  }

  // Found by the system and told by a code only: maps the error, records an error trace point.
  [[nodiscard]] OSSErr failUnlogged(Probe probe, SysCall call, uint32_t error) noexcept {
    return answer(reportUnlogged(self_, probe, call, error));
  }

  // Found by a called operation, which has logged it: records an error trace point.
  [[nodiscard]] OSSErr failTraced(Probe probe, OSSErr rc) noexcept {
    return answer(reportTraced(self_, probe, rc));
  }

  // A data point. Its items are made only while tracing, so they must cost nothing to name.
  template <class... T>
  void trace(Probe probe, const T&... values) const noexcept {
    if (tracing()) [[unlikely]]
      traceData(self_, probe, {item(values)...});
  }

 private:
  OSSErr answer(OSSErr rc) noexcept {
    answered_ = true;
    return rc_ = rc;
  }

  static TraceItem item(const char* const& text) noexcept { return charactersOf(text); }
  template <class T>
  static TraceItem item(const T& value) noexcept {
    return bytesOf(value);
  }

  [[gnu::cold]] static void traceEntry(Func self) noexcept;
  [[gnu::cold]] static void traceExit(Func self, OSSErr rc) noexcept;
  [[gnu::cold]] static void traceData(Func self, Probe probe, TraceItems items) noexcept;
  [[gnu::cold]] static OSSErr refuse(Func reportedAs, const uint64_t* version) noexcept;
  [[gnu::cold]] static OSSErr report(Func self, Probe probe, OSSErr rc, Level level,
                                     LogData data) noexcept;
  [[gnu::cold]] static OSSErr reportCalled(Func self, Probe probe, Func called, OSSErr calledRC,
                                           OSSErr rc, LogArgs args) noexcept;
  [[gnu::cold]] static OSSErr reportSystem(Func self, Probe probe, FailedCall call,
                                           LogArgs args) noexcept;
  [[gnu::cold]] static OSSErr reportErrno(Func self, Probe probe, SysCall call,
                                          LogArgs args) noexcept;
  [[gnu::cold]] static OSSErr reportUnmapped(Func self, Probe probe, SysCall call, OSSErr rc,
                                             LogArgs args) noexcept;
  [[gnu::cold]] static OSSErr reportUnlogged(Func self, Probe probe, SysCall call,
                                             uint32_t error) noexcept;
  [[gnu::cold]] static OSSErr reportTraced(Func self, Probe probe, OSSErr rc) noexcept;

  const Func self_;
  OSSErr rc_ = ECF_OK;
  bool answered_ = false;  // read by the assertion only
};

}  // namespace oss
