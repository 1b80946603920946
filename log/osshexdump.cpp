// Lines are composed by hand: a fault handler has no room for surprises, and a dump has many bytes.
#include "osshexdump.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace oss {
namespace {

constexpr uint64_t kBytesPerLine = 16;
constexpr uint64_t kColumns = OSS_HEXDUMP_LINE - 1;

// Where the characters begin, without and with the address in front of the bytes.
constexpr uint64_t kCharacterColumn = 43;
constexpr uint64_t kCharacterColumnBehindAddress = 64;
static_assert(kCharacterColumnBehindAddress + kBytesPerLine + 2 <= kColumns, "no line is ever cut");

// The two digits of each byte.
constexpr auto kDigits = [] {
  constexpr char kDigit[] = "0123456789ABCDEF";
  std::array<std::array<char, 2>, 256> digits{};
  for (size_t byte = 0; byte < digits.size(); ++byte)
    digits[byte] = {kDigit[byte / 16], kDigit[byte % 16]};
  return digits;
}();

char* appendByte(char* out, uint8_t byte) noexcept {
  std::memcpy(out, kDigits[byte].data(), 2);
  return out + 2;
}

// The number's low bytes, the highest of them first.
char* appendNumber(char* out, uint64_t number, uint64_t bytes) noexcept {
  out = std::copy_n("0x", 2, out);
  for (uint64_t left = bytes; left != 0; --left)
    out = appendByte(out, static_cast<uint8_t>(number >> (left - 1) * 8));
  return out;
}

char* appendAddress(char* out, const void* address) noexcept {
  out = appendNumber(out, reinterpret_cast<uintptr_t>(address), sizeof address);
  return std::copy_n(" : ", 3, out);
}

// The bytes as one number in the machine's order, and a blank.
char* appendValue(char* out, const uint8_t* bytes, uint64_t count) noexcept {
  uint64_t value = 0;
  std::memcpy(&value, bytes, count);
  return appendNumber(out, value, count) + 1;
}

// Groups of two bytes; a blank follows each group, also the last, even if it holds one byte only.
char* appendGroups(char* out, const uint8_t* bytes, uint64_t count) noexcept {
  for (uint64_t i = 0; i + 1 < count; i += 2)
    out = appendByte(appendByte(out, bytes[i]), bytes[i + 1]) + 1;
  return count % 2 != 0 ? appendByte(out, bytes[count - 1]) + 1 : out;
}

char* appendCharacters(char* out, const uint8_t* bytes, uint64_t count) noexcept {
  return std::transform(bytes, bytes + count, out, [](uint8_t byte) {
    return byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.';
  });
}

bool hasValueForm(uint64_t count, uint64_t flags) noexcept {
  return (flags & OSS_HEXDUMP_VALUE) != 0 && (count == 1 || count == 2 || count == 4 || count == 8);
}

}  // namespace
}  // namespace oss

using namespace oss;

uint64_t ossHexDumpLine(char* line, const void* address, uint64_t count, uint64_t flags) noexcept {
  if (line == nullptr || (address == nullptr && count != 0)) return 0;

  count = std::min(count, kBytesPerLine);
  const auto* const bytes = static_cast<const uint8_t*>(address);
  const bool showsAddress = (flags & OSS_HEXDUMP_ADDRESS) != 0;
  std::memset(line, ' ', kColumns);
  line[kColumns] = '\0';

  char* out = showsAddress ? appendAddress(line, address) : line;
  out =
      hasValueForm(count, flags) ? appendValue(out, bytes, count) : appendGroups(out, bytes, count);
  if ((flags & OSS_HEXDUMP_NO_CHARACTERS) == 0) {
    const uint64_t column = showsAddress ? kCharacterColumnBehindAddress : kCharacterColumn;
    out = appendCharacters(line + column, bytes, count);
  }
  std::memcpy(out, "\r\n", 3);
  return static_cast<uint64_t>(out - line) + 2;
}

uint64_t ossHexDumpToBuffer(const void* address, uint64_t length, char* out, uint64_t outSize,
                            const char* prefix, uint64_t flags) noexcept {
  if (out == nullptr || outSize == 0) return 0;
  *out = '\0';
  if (address == nullptr) return 0;

  const uint64_t prefixLength = prefix != nullptr ? std::strlen(prefix) : 0;
  const auto* bytes = static_cast<const uint8_t*>(address);
  uint64_t written = 0;
  while (length != 0) {
    char line[OSS_HEXDUMP_LINE];
    const uint64_t count = std::min(kBytesPerLine, length);
    const uint64_t lineLength = ossHexDumpLine(line, bytes, count, flags);
    // Deliberate: an exact fit is refused, and so is one with a byte to spare.
    if (outSize - written <= lineLength + prefixLength + 2) break;

    if (prefixLength != 0) std::memcpy(out + written, prefix, prefixLength);
    std::memcpy(out + written + prefixLength, line, lineLength + 1);
    written += prefixLength + lineLength;
    bytes += count;
    length -= count;
  }
  return written;
}
