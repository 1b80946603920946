// logrecord.h - the records of a diagnostic log as values, and a notation for what a test expects.
//
//   EXPECT_THAT(log.records(),
//               ElementsAre(SystemRecord(OSS_LOG_INFO, Func::OSSHFile_read, 50, SysCall::ReadFile,
//                                        ERROR_INVALID_HANDLE, ECF_INVALID_PARAMETER,
//                                        {{1, Hex(handle)}, {3, Uint(size)}})));
//
// An expectation names everything that a record tells about its event: level, function, probe,
// code, called function with its error or code, and all items by number, type, size and value. What
// a record tells about the moment and the writer is parsed as strictly, but not compared.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "osscatalog.h"
#include "osslog.h"

namespace osse_test {

// The value of an item, as the record shows it.
struct LogValue {
  std::string type;   // "Hex", "Sint64", "Uint32", "Char", "String", "Bool", "<hexdump>", "NULL"
  uint64_t size = 0;  // bytes, as shown
  uint64_t fullSize = 0;  // bytes of the data where the record says "of"; else 0
  std::string text;       // without the line end behind it

  bool operator==(const LogValue&) const = default;
};

struct LogItem {
  uint32_t number = 0;
  LogValue value;

  bool operator==(const LogItem&) const = default;
};

// What a record tells about its event.
struct LogEvidence {
  std::string level;  // "Info"
  std::string product, component, function;
  uint64_t probe = 0;
  OSSErr code = 0;  // 0 without a MESSAGE line
  std::string description;

  enum class Called { Nothing, Function, System } called = Called::Nothing;
  std::string calledProduct, calledComponent, calledFunction;
  std::string errorName;  // System; empty where the error has none
  int32_t error = 0;      // System
  OSSErr calledCode = 0;  // Function
  std::string calledDescription;

  std::string itemKind;  // "ARG" or "DATA"; empty without items
  std::vector<LogItem> items;

  bool operator==(const LogEvidence&) const = default;
};

struct LogRecord : LogEvidence {
  std::string timestamp;  // 26 characters
  int32_t zoneMinutes = 0;
  uint64_t offset = 0;  // of the record behind its leading line end
  uint64_t length = 0;  // without the leading line end
  char letter = '\0';
  uint32_t processId = 0;
  uint64_t threadId = 0;
};

// A log file taken apart. `error` is empty, or tells what is wrong with the record that stopped the
// parser and quotes it.
struct ParsedLog {
  std::vector<LogRecord> records;
  std::string error;
};

// Takes a whole log file apart. Every byte must belong to a record and stand where the layout puts
// it; each record must know its own place in the file.
ParsedLog parseLog(std::string_view file);

// ---- Expectations ----

// Values as the library logs them; the widths are those of the arguments.
LogValue hexValue(uint64_t value, uint64_t size);
LogValue uintValue(uint64_t value, uint64_t size);
template <class T>
LogValue Hex(T value) {
  return hexValue(static_cast<uint64_t>(value), sizeof value);
}
template <class T>
LogValue Hex(T* value) {
  return hexValue(reinterpret_cast<uint64_t>(value), sizeof value);
}
template <class T>
LogValue Uint(T value) {
  return uintValue(value, sizeof value);
}
LogValue String(std::string_view text);
// A text shown of `size` bytes of data.
LogValue String(std::string_view text, uint64_t size);
LogValue Null();

// A record about what the operation found itself; its items count from 1.
LogEvidence FoundRecord(uint64_t level, oss::Func function, uint64_t probe, OSSErr code,
                        std::initializer_list<LogValue> items = {});

// A record about a system call that failed with `error`.
LogEvidence SystemRecord(uint64_t level, oss::Func function, uint64_t probe, oss::SysCall call,
                         uint32_t error, OSSErr code, std::initializer_list<LogItem> items = {});

// A record about an operation of the library that returned `calledCode`.
LogEvidence CalledRecord(uint64_t level, oss::Func function, uint64_t probe, oss::Func called,
                         OSSErr calledCode, OSSErr code, std::initializer_list<LogItem> items = {});

// Shows both sides of a failed comparison alike.
void PrintTo(const LogEvidence& evidence, std::ostream* out);
inline void PrintTo(const LogRecord& record, std::ostream* out) {
  PrintTo(static_cast<const LogEvidence&>(record), out);
}

}  // namespace osse_test
