// The record, from top to bottom:
//
//   0       CR LF: every record starts with an empty line
//   2..27   local time stamp, 28..31 zone offset, 32 blank
//   33..50  where the record lies in its file (placeLogRecord), padded with blanks
//   52...   LEVEL; then the lines PID and TID, FUNCTION, MESSAGE, CALLED, RETCODE, and the items
#include "log/osslogrecord.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "numeric/ossformat.h"
#include "osscatalog.h"
#include "ossstring.h"

namespace oss {
namespace {

constexpr uint64_t kMostItemBytes = 512;

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

// The text under construction: it only grows, is cut at the buffer's end, and always ends in a NUL.
class RecordText {
 public:
  explicit RecordText(char (&text)[kRecordBytes]) noexcept : text_(text) {
    std::memset(text_, 0, sizeof text_);
  }

  size_t length() const noexcept { return length_; }

  // Bytes left, the terminating NUL's included.
  size_t room() const noexcept { return kRecordBytes - length_; }

  OSS_PRINTF_LIKE(2, 3) void append(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    length_ += formatText(text_ + length_, room(), format, arguments);
    va_end(arguments);
  }

  void appendBytes(const char* bytes, size_t count) noexcept {
    count = std::min(count, room() - 1);
    std::memcpy(text_ + length_, bytes, count);
    length_ += count;
  }

 private:
  char (&text_)[kRecordBytes];
  size_t length_ = 0;
};

// ---- Items --------------------------------------------------------------------------------------

// Item data need not be aligned.
template <class T>
T load(const void* data) {
  T value;
  std::memcpy(&value, data, sizeof value);
  return value;
}

bool appendHex(RecordText& text, const void* data, uint64_t size) {
  switch (size) {
    case 1: text.append("Hex, %I64u bytes\r\n0x%hX\r\n", size, load<uint8_t>(data)); return true;
    case 2: text.append("Hex, %I64u bytes\r\n0x%hX\r\n", size, load<uint16_t>(data)); return true;
    case 4: text.append("Hex, %I64u bytes\r\n0x%X\r\n", size, load<uint32_t>(data)); return true;
    case 8: text.append("Hex, %I64u bytes\r\n0x%I64X\r\n", size, load<uint64_t>(data)); return true;
    default: return false;
  }
}

bool appendSint(RecordText& text, const void* data, uint64_t size) {
  switch (size) {
    case 1: text.append("Sint8, %I64u bytes\r\n%hd\r\n", size, load<int8_t>(data)); return true;
    case 2: text.append("Sint16, %I64u bytes\r\n%hd\r\n", size, load<int16_t>(data)); return true;
    case 4: text.append("Sint32, %I64u bytes\r\n%d\r\n", size, load<int32_t>(data)); return true;
    case 8: text.append("Sint64, %I64u bytes\r\n%I64d\r\n", size, load<int64_t>(data)); return true;
    default: return false;
  }
}

bool appendUint(RecordText& text, const void* data, uint64_t size) {
  switch (size) {
    case 1: text.append("Uint8, %I64u bytes\r\n%hu\r\n", size, load<uint8_t>(data)); return true;
    case 2: text.append("Uint16, %I64u bytes\r\n%hu\r\n", size, load<uint16_t>(data)); return true;
    case 4: text.append("Uint32, %I64u bytes\r\n%u\r\n", size, load<uint32_t>(data)); return true;
    case 8:
      text.append("Uint64, %I64u bytes\r\n%I64u\r\n", size, load<uint64_t>(data));
      return true;
    default: return false;
  }
}

bool appendBool(RecordText& text, const void* data, uint64_t size) {
  if (size != 1 && size != 2 && size != 4 && size != 8) return false;
  uint64_t value = 0;
  std::memcpy(&value, data, size);
  text.append("Bool, %I64u bytes\r\n%s\r\n", size, value != 0 ? "true" : "false");
  return true;
}

bool appendChar(RecordText& text, const void* data, uint64_t size) {
  text.append("Char, %I64u bytes\r\n%c\r\n", size, size != 0 ? load<char>(data) : '\0');
  return true;
}

bool appendString(RecordText& text, const void* data, uint64_t size) {
  text.append("String, %I64u bytes\r\n", size);
  const char* const characters = static_cast<const char*>(data);
  const void* const end = size != 0 ? std::memchr(characters, '\0', size) : characters;
  text.appendBytes(characters, end != nullptr
                                   ? static_cast<size_t>(static_cast<const char*>(end) - characters)
                                   : size);
  if (text.room() >= 3) text.append("\r\n");
  return true;
}

// One line of a dump, for 1 to 16 bytes:
//   "00112233  44556677  8899AABB  CCDDEEFF    ................" CR LF
void appendDumpLine(RecordText& text, const uint8_t* bytes, size_t count) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  char line[60];
  char* out = line;
  for (size_t i = 0; i < 16; ++i) {
    *out++ = i < count ? kDigits[bytes[i] >> 4] : ' ';
    *out++ = i < count ? kDigits[bytes[i] & 0xF] : ' ';
    if (i % 4 == 3) {
      *out++ = ' ';
      *out++ = ' ';
    }
  }
  *out++ = ' ';
  *out++ = ' ';
  for (size_t i = 0; i < count; ++i)
    *out++ = bytes[i] >= 0x20 && bytes[i] <= 0x7E ? static_cast<char>(bytes[i]) : '.';
  *out++ = '\r';
  *out++ = '\n';
  text.appendBytes(line, static_cast<size_t>(out - line));
}

// How many of `size` bytes a dump shows in `room` bytes of text. Deliberate: the estimate counts 61
// characters a line, and its line count clears bit 4 before it divides, so that a dump of 16 bytes
// counts as none. Every append is bounded by the real room besides.
uint64_t dumpedBytes(uint64_t size, size_t room) {
  constexpr uint64_t kLineCharacters = 61;
  const uint64_t lines = ((size + 15) & ~uint64_t{16}) / 16;
  if (lines * kLineCharacters + 1 <= room) return size;
  return std::min<uint64_t>(size, (room - 1) / kLineCharacters * 16);
}

void appendDump(RecordText& text, const LogItem& item) {
  const uint64_t dumped = dumpedBytes(std::min(item.size, kMostItemBytes), text.room());
  text.append("<hexdump>, %I64u bytes", dumped);
  // Deliberate: no blank in "bytesof".
  if (dumped < item.size) text.append("of %I64u", item.size);
  text.append("\r\n");

  const auto* const bytes = static_cast<const uint8_t*>(item.data);
  for (uint64_t at = 0; at < dumped; at += 16)
    appendDumpLine(text, bytes + at, std::min<uint64_t>(dumped - at, 16));
}

bool appendTyped(RecordText& text, const LogItem& item) {
  const uint64_t size = std::min(item.size, kMostItemBytes);
  switch (item.type) {
    case OSS_LOG_HEX: return appendHex(text, item.data, size);
    case OSS_LOG_SINT: return appendSint(text, item.data, size);
    case OSS_LOG_UINT: return appendUint(text, item.data, size);
    case OSS_LOG_CHAR: return appendChar(text, item.data, size);
    case OSS_LOG_STRING: return appendString(text, item.data, size);
    case OSS_LOG_BOOL: return appendBool(text, item.data, size);
    default: return false;
  }
}

void appendItem(RecordText& text, const LogItem& item) {
  if (item.data == nullptr)
    text.append("\r\nNULL\r\n");
  else if (!appendTyped(text, item))
    appendDump(text, item);
}

void appendItems(RecordText& text, const LogEvent& event, std::span<const LogArg> items) {
  for (const LogArg& arg : items) {
    if (event.called == LogEvent::Called::None)
      text.append("DATA #%-2u: ", arg.number);
    else
      text.append("ARG  #%-2u: ", arg.number);
    appendItem(text, arg.item);
  }
}

// ---- Lines --------------------------------------------------------------------------------------

const char* levelText(uint64_t level) {
  switch (level) {
    case OSS_LOG_SEVERE: return "Severe";
    case OSS_LOG_ERROR: return "Error";
    case OSS_LOG_WARNING: return "Warning";
    case OSS_LOG_INFO: return "Info";
    case OSS_LOG_EVENT: return "Event";
    default: return "Unknown";
  }
}

void appendHeader(RecordText& text, const LogEvent& event, const LogStamp& stamp) {
  char timestamp[27];
  ossSnprintf(timestamp, sizeof timestamp, "%04d-%02d-%02d-%02d.%02d.%02d.%06d", stamp.year,
              stamp.month, stamp.day, stamp.hour, stamp.minute, stamp.second,
              stamp.millisecond * 1000);
  char zone[5];
  ossSnprintf(zone, sizeof zone, "%+.3d", stamp.zoneMinutes);

  text.append("\r\n");
  text.append(
      "%s%-23s LEVEL: %s%s\r\nPID     : %-21luTID : %I64u\r\nFUNCTION: %.40s, %.40s, %.40s, "
      "probe:%I64u\r\n",
      timestamp, zone, levelText(event.level),
      event.called == LogEvent::Called::System ? " (OS)" : "",
      static_cast<unsigned long>(stamp.processId), stamp.threadId,
      orEmpty(ecfGetProductName(event.funcId)), orEmpty(ecfGetComponentName(event.funcId)),
      orEmpty(ecfGetFunctionName(event.funcId)), event.probe);
}

// System calls stand under "OS, -" instead of their place in the catalog.
void appendCalledFunction(RecordText& text, uint32_t funcId) {
  constexpr uint32_t kProductAndComponent = 0xFFF80000;
  const bool isSystemCall =
      (funcId & kProductAndComponent) == makeFunctionId(1, 2, FunctionKind::None, 0);
  text.append("CALLED  : %.40s, %.40s, %.40s",
              isSystemCall ? "OS" : orEmpty(ecfGetProductName(funcId)),
              isSystemCall ? "-" : orEmpty(ecfGetComponentName(funcId)),
              orEmpty(ecfGetFunctionName(funcId)));
}

void appendSystemError(RecordText& text, const LogEvent& event, size_t calledLength) {
  constexpr int kErrorColumn = 50;
  const int width = std::max(0, kErrorColumn - static_cast<int>(calledLength));
  const int number = static_cast<int>(event.sysError);
  const char* const name = ossErrorNameMapSystem(event.calledFuncId, event.sysError);
  if (name != nullptr)
    text.append("%*s%s%s (%d)\r\n", width, " ", "OSERR: ", name, number);
  else
    text.append("%*s%s%d\r\n", width, " ", "OSERR: ", number);
}

void appendCalled(RecordText& text, const LogEvent& event) {
  if (event.called == LogEvent::Called::None || event.calledFuncId == 0) return;

  const size_t start = text.length();
  appendCalledFunction(text, event.calledFuncId);
  if (event.called == LogEvent::Called::System)
    appendSystemError(text, event, text.length() - start);
  else
    text.append("\r\nRETCODE : ECF=0x%X %.128s\r\n", event.calledRC,
                orEmpty(ecfErrorGetDescription(event.calledRC)));
}

}  // namespace

int32_t zoneOffsetMinutes(int32_t localSecondOfDay, int32_t utcSecondOfDay) noexcept {
  constexpr int32_t kDay = 86'400;
  constexpr int32_t kHalfDay = kDay / 2;
  int32_t offset = localSecondOfDay - utcSecondOfDay;
  if (offset <= -kHalfDay)
    offset += kDay;
  else if (offset > kHalfDay)  // Deliberate: exactly half a day stays, on this side only.
    offset -= kDay;
  return offset / 60;
}

size_t composeLogRecord(char (&buffer)[kRecordBytes], const LogEvent& event, const LogStamp& stamp,
                        std::span<const LogArg> items) noexcept {
  RecordText text(buffer);
  appendHeader(text, event, stamp);
  if (event.messageCode != 0)
    text.append("MESSAGE : ECF=0x%X %.128s\r\n", event.messageCode,
                orEmpty(ecfErrorGetDescription(event.messageCode)));
  appendCalled(text, event);
  appendItems(text, event, items);
  return text.length();
}

void placeLogRecord(char (&text)[kRecordBytes], size_t length, uint64_t fileSize,
                    char recordLetter) noexcept {
  constexpr size_t kPlace = 33;
  constexpr size_t kPlaceWidth = 17;
  char* const place = text + kPlace;
  const uint64_t written = ossSnprintf(place, kPlaceWidth + 1, "%c%I64u%c%I64u", 'I', fileSize + 2,
                                       recordLetter, uint64_t{length} - 2);
  place[written] = ' ';
  place[kPlaceWidth] = ' ';
}

}  // namespace oss
