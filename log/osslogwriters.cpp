// The three destinations of a record.
#include <windows.h>

#include <cstdio>

#include "log/osslogfacility.h"
#include "osscatalog.h"
#include "ossfile.h"

namespace oss {
namespace {

// Adds the record to the file's end while no other process can. The place of the record is known
// only here, behind the lock.
bool appendTo(OSSHFile& file, char (&text)[kRecordBytes], size_t length) noexcept {
  OSSFileSeekParam toEnd;
  toEnd.origin = OSS_FILE_END;
  uint64_t fileSize = 0;
  if (file.seek(&toEnd, nullptr) != ECF_OK || file.getSize(&fileSize) != ECF_OK) return false;

  placeLogRecord(text, length, fileSize, logRecordLetter());
  OSSFileWriteParam record;
  record.buffer = text;
  record.size = length;
  return file.write(&record, nullptr) == ECF_OK;
}

}  // namespace

// Deliberate: each record opens and closes the file, so that it can be moved away or read at any
// time and a crash loses nothing.
bool writeToFile(const OSSLogFacility& facility, char (&text)[kRecordBytes],
                 size_t length) noexcept {
  OSSFileOpenParam open;
  open.path = facility.path;
  open.creation = OSS_FILE_OPEN_ALWAYS;
  open.access = OSS_FILE_WRITE;
  open.flags = 4;  // ignored by the file handle
  open.mode = facility.fileMode;
  OSSHFile file;
  if (file.open(&open) != ECF_OK) return false;

  const OSSFileLockParam whole(OSS_FILE_LOCK_EXCLUSIVE, OSS_FILE_LOCK_WAIT);
  bool written = false;
  if (file.lock(&whole) == ECF_OK) {
    written = appendTo(file, text, length);
    static_cast<void>(file.unlock());  // Closing releases the lock in any case.
  }
  static_cast<void>(file.close());  // The record is in the file, or is lost already.
  return written;
}

bool writeToEventLog(const OSSLogFacility& facility, uint64_t level, const char* text) noexcept {
  WORD type;
  switch (level) {
    case OSS_LOG_SEVERE:
    case OSS_LOG_ERROR: type = EVENTLOG_ERROR_TYPE; break;
    case OSS_LOG_WARNING: type = EVENTLOG_WARNING_TYPE; break;
    case OSS_LOG_INFO: type = EVENTLOG_INFORMATION_TYPE; break;
    case OSS_LOG_EVENT: type = EVENTLOG_SUCCESS; break;
    default: return false;
  }

  const HANDLE source = ::RegisterEventSourceA(nullptr, facility.name);
  if (source == nullptr) return false;
  const BOOL reported = ::ReportEventA(source, type, 0, 0, nullptr, 1, 0, &text, nullptr);
  ::DeregisterEventSource(source);
  return reported != FALSE;
}

bool writeToStandardError(const char* text) noexcept {
  // A redirected stream may be buffered, and then only the flush tells.
  return std::fputs(text, stderr) >= 0 && std::fflush(stderr) == 0;
}

}  // namespace oss
