// osslogrecord_text.h - composing one record under a fixed stamp, and the texts that it begins
// with.
#pragma once

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "log/osslogrecord.h"

namespace oss::record_text {

inline constexpr LogStamp kStamp = {.year = 2026,
                                    .month = 3,
                                    .day = 7,
                                    .hour = 8,
                                    .minute = 5,
                                    .second = 9,
                                    .millisecond = 42,
                                    .zoneMinutes = 60,
                                    .processId = 4711,
                                    .threadId = 815};

// A record of OSSHFile::open at probe 280 under that stamp, and its header.
inline constexpr LogEvent kEvent = {
    .funcId = 0x081A0002, .messageCode = 0, .probe = 280, .level = OSS_LOG_INFO};
inline constexpr char kHeader[] =
    "\r\n2026-03-07-08.05.09.042000+060                    LEVEL: Info\r\n"
    "PID     : 4711                 TID : 815\r\n"
    "FUNCTION: common, OSSe, OSSHFile::open, probe:280\r\n";

// The composed text, NULs inside it included; empty when it does not end in a NUL in its buffer.
inline std::string compose(const LogEvent& event, std::span<const LogArg> items = {},
                           const LogStamp& stamp = kStamp) {
  char text[kRecordBytes];
  std::memset(text, 0x7E, sizeof text);
  const size_t length = composeLogRecord(text, event, stamp, items);
  return length < kRecordBytes && text[length] == '\0' ? std::string(text, length) : "";
}

// What an event with these items shows behind the header above.
inline std::string itemsText(std::initializer_list<LogArg> items) {
  const std::string text = compose(kEvent, items);
  return text.starts_with(kHeader) ? text.substr(sizeof kHeader - 1) : "no header: " + text;
}

// What one item shows, as number 1.
inline std::string itemText(const void* data, uint64_t size, int32_t type) {
  return itemsText({{1, {data, size, type}}});
}

// The bytes 0, 1, 2 and so on, at an address that is not null even when there are none.
inline std::vector<uint8_t> countingBytes(size_t count) {
  std::vector<uint8_t> bytes;
  bytes.reserve(std::max<size_t>(count, 1));
  bytes.resize(count);
  std::iota(bytes.begin(), bytes.end(), uint8_t{0});
  return bytes;
}

// The lines of a dump by their own rule: groups of four bytes, each followed by two blanks, two
// more blanks, the characters.
inline std::string dumpLines(const uint8_t* bytes, size_t count) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string lines;
  for (size_t line = 0; line < count; line += 16) {
    std::string groups, characters;
    for (size_t i = line; i < line + 16; ++i) {
      if (i < count) {
        groups += {kDigits[bytes[i] / 16], kDigits[bytes[i] % 16]};
        characters += bytes[i] >= 32 && bytes[i] < 127 ? static_cast<char>(bytes[i]) : '.';
      } else {
        groups += "  ";
      }
      if (i % 4 == 3) groups += "  ";
    }
    lines += groups + "  " + characters + "\r\n";
  }
  return lines;
}

}  // namespace oss::record_text
