// osslogrecord.h - the text of one diagnostic record, composed in memory.
//
// Pure: everything that a record tells is an argument. The text is bounded by its buffer in every
// case; what does not fit is cut, and the text always ends in a NUL.
#pragma once

#include <span>

#include "osslog.h"

namespace oss {

inline constexpr size_t kRecordBytes = 4096;

// One data item. The data belongs to the caller and is read while the record is composed.
struct LogItem {
  const void* data;
  uint64_t size;
  int32_t type;
};

// An item and the number under which the record shows it.
struct LogArg {
  uint32_t number;
  LogItem item;
};

// What a record reports.
struct LogEvent {
  enum class Called : uint8_t { None, Function, System };

  uint32_t funcId;
  OSSErr messageCode;
  uint64_t probe;
  uint64_t level;
  Called called = Called::None;
  uint32_t calledFuncId = 0;  // Function and System
  OSSErr calledRC = 0;        // Function
  uint64_t sysError = 0;      // System
};

// When and by whom.
struct LogStamp {
  uint16_t year, month, day, hour, minute, second, millisecond;
  int32_t zoneMinutes;  // local time minus UTC
  uint32_t processId;
  uint64_t threadId;
};

// Local time minus UTC in minutes, from the two times as seconds of their days. The rule folds the
// difference into half a day: 12 h stays 720, 13 h becomes -660.
int32_t zoneOffsetMinutes(int32_t localSecondOfDay, int32_t utcSecondOfDay) noexcept;

// Composes the record and returns its length.
size_t composeLogRecord(char (&buffer)[kRecordBytes], const LogEvent& event, const LogStamp& stamp,
                        std::span<const LogArg> items) noexcept;

// Writes into a composed record where it will lie in its file: the offset and the length of the
// record behind its leading CR LF. It fits into the padding of the header.
void placeLogRecord(char (&text)[kRecordBytes], size_t length, uint64_t fileSize,
                    char recordLetter) noexcept;

}  // namespace oss
