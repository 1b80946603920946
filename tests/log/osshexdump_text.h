// osshexdump_text.h - a second writer of hex dumps, by the plain reading of their rules: each piece
// a string, its digits from the run-time.
#pragma once

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

namespace oss::hexdump_text {

inline std::string inHex(uint64_t value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%0*" PRIX64, digits, value);
  return text;
}

template <class T>
T numberAt(const uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

inline std::string expectedBytes(const uint8_t* bytes, size_t count, bool asValue) {
  if (asValue && count == 1) return "0x" + inHex(numberAt<uint8_t>(bytes), 2) + ' ';
  if (asValue && count == 2) return "0x" + inHex(numberAt<uint16_t>(bytes), 4) + ' ';
  if (asValue && count == 4) return "0x" + inHex(numberAt<uint32_t>(bytes), 8) + ' ';
  if (asValue && count == 8) return "0x" + inHex(numberAt<uint64_t>(bytes), 16) + ' ';

  std::string groups;
  for (size_t i = 0; i < count; ++i) {
    groups += inHex(bytes[i], 2);
    if (i % 2 == 1) groups += ' ';
  }
  return count % 2 == 1 ? groups + ' ' : groups;
}

inline std::string expectedLine(const uint8_t* bytes, size_t count, uint64_t flags) {
  std::string line;
  if ((flags & 2) != 0) line = "0x" + inHex(std::bit_cast<uint64_t>(bytes), 16) + " : ";
  line += expectedBytes(bytes, count, (flags & 1) != 0);
  if ((flags & 4) == 0) {
    line.resize((flags & 2) != 0 ? 64 : 43, ' ');
    for (size_t i = 0; i < count; ++i)
      line += bytes[i] < 0x20 || bytes[i] > 0x7E ? '.' : static_cast<char>(bytes[i]);
  }
  return line + "\r\n";
}

inline std::string expectedDump(const uint8_t* bytes, size_t length, uint64_t outSize,
                                const std::string& prefix, uint64_t flags) {
  std::string dump;
  for (size_t from = 0; from < length; from += 16) {
    const std::string line =
        prefix + expectedLine(bytes + from, std::min<size_t>(16, length - from), flags);
    if (dump.size() + line.size() + 2 >= outSize) break;
    dump += line;
  }
  return dump;
}

}  // namespace oss::hexdump_text
