// osslogfacility.h - the log's inner face: what the library's own code and its tests reach.
#pragma once

#include <span>

#include "log/osslogrecord.h"

namespace oss {

// The facility that a null pointer stands for. Closed until the host opens it.
OSSLogFacility& defaultLogFacility() noexcept;

// Writes one record; the core of ossLog, ossLogRC and ossLogSysRC. A null facility is the default.
OSSErr writeLogRecord(OSSLogFacility* given, const LogEvent& event,
                      std::span<const LogArg> items) noexcept;

// Installs a function that is asked for the facility's level before each record is filtered; null
// removes it. It runs while the record is being written: what it logs is dropped. The library
// itself installs none.
using LogLevelHook = void (*)(uint64_t* level);
void ossLogSetLevelHook(LogLevelHook hook) noexcept;

// Sets the letter between offset and length in a record's place; NUL stands for 'F'.
void ossLogSetRecordLetter(char letter) noexcept;
char logRecordLetter() noexcept;

// The destinations. Each writes the composed record whole and tells whether that succeeded.
bool writeToFile(const OSSLogFacility& facility, char (&text)[kRecordBytes],
                 size_t length) noexcept;
bool writeToEventLog(const OSSLogFacility& facility, uint64_t level, const char* text) noexcept;
bool writeToStandardError(const char* text) noexcept;

}  // namespace oss
