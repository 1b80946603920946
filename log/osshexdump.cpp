// Lines are composed by hand: a fault handler has no room for surprises, and a dump has many bytes.
// The bytes of a line become text side by side, in one vector.
#include "osshexdump.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace oss {
namespace {

constexpr uint64_t kBytesPerLine = 16;
constexpr uint64_t kColumns = OSS_HEXDUMP_LINE - 1;

// Where the characters begin, and how much further to the right that is behind an address.
constexpr uint64_t kCharacterColumn = 43;
constexpr uint64_t kAddressColumns = 21;
static_assert(kAddressColumns + kCharacterColumn + kBytesPerLine + 2 <= kColumns,
              "no line is ever cut");

// ---- Sixteen bytes at once ----

using Bytes [[gnu::vector_size(kBytesPerLine)]] = uint8_t;

constexpr Bytes all(uint8_t byte) noexcept { return Bytes{} + byte; }

Bytes digitsOf(Bytes numbers) noexcept {
  return numbers + all('0') + (all('A' - '0' - 10) & (numbers > 9));
}

// The two digits of each byte.
std::array<Bytes, 2> pairsOfDigitsOf(Bytes bytes) noexcept {
  const Bytes high = digitsOf(bytes >> 4);
  const Bytes low = digitsOf(bytes & 15);
  return {__builtin_shufflevector(high, low, 0, 16, 1, 17, 2, 18, 3, 19,  //
                                  4, 20, 5, 21, 6, 22, 7, 23),
          __builtin_shufflevector(high, low, 8, 24, 9, 25, 10, 26, 11, 27,  //
                                  12, 28, 13, 29, 14, 30, 15, 31)};
}

Bytes charactersOf(Bytes bytes) noexcept {
  return ((bytes >= 32) & (bytes <= 126)) ? bytes : all('.');
}

// ---- The parts of a line ----

// The number's low bytes, the highest of them first.
char* appendNumber(char* out, uint64_t number, uint64_t bytes) noexcept {
  const auto highestFirst =
      std::bit_cast<Bytes>(std::array{__builtin_bswap64(number << (8 - bytes) * 8), uint64_t{0}});
  const Bytes digits = pairsOfDigitsOf(highestFirst)[0];
  out = std::copy_n("0x", 2, out);
  std::memcpy(out, &digits, 2 * bytes);
  return out + 2 * bytes;
}

char* appendAddress(char* out, const void* address) noexcept {
  out = appendNumber(out, reinterpret_cast<uintptr_t>(address), sizeof address);
  return std::copy_n(" : ", 3, out);
}

// The bytes as one number in the machine's order, and a blank.
char* appendValue(char* out, Bytes bytes, uint64_t count) noexcept {
  const uint64_t value = std::bit_cast<std::array<uint64_t, 2>>(bytes)[0];
  return appendNumber(out, value, count) + 1;
}

// Groups of two bytes; a blank follows each group, also the last, even if it holds one byte only.
// A whole group is written with four blanks, so the last of a full line brings those in front of
// the characters along.
char* appendGroups(char* out, Bytes bytes, uint64_t count) noexcept {
  constexpr uint64_t kFourBlanks = 0x2020'2020'0000'0000;
  const auto groups = std::bit_cast<std::array<uint32_t, 8>>(pairsOfDigitsOf(bytes));
#pragma GCC unroll 8
  for (uint64_t i = 0; i < count / 2; ++i) {
    const uint64_t group = kFourBlanks | groups[i];
    std::memcpy(out, &group, sizeof group);
    out += 5;
  }
  if (count % 2 == 0) return out;
  std::memcpy(out, &groups[count / 2], 2);
  return out + 3;
}

bool hasValueForm(uint64_t count, uint64_t flags) noexcept {
  return (flags & OSS_HEXDUMP_VALUE) != 0 && (count == 1 || count == 2 || count == 4 || count == 8);
}

// Writes a line into blanks, of which a full line needs none, and returns its end.
char* writeLine(char* out, const void* address, uint64_t count, uint64_t flags) noexcept {
  Bytes bytes = {};
  if (count != 0) std::memcpy(&bytes, address, count);

  if ((flags & OSS_HEXDUMP_ADDRESS) != 0) out = appendAddress(out, address);
  char* const characterColumn = out + kCharacterColumn;
  out =
      hasValueForm(count, flags) ? appendValue(out, bytes, count) : appendGroups(out, bytes, count);
  if ((flags & OSS_HEXDUMP_NO_CHARACTERS) == 0) {
    const Bytes characters = charactersOf(bytes);
    std::memcpy(characterColumn, &characters, count);
    out = characterColumn + count;
  }
  std::memcpy(out, "\r\n", 3);
  return out + 2;
}

// The same for a count that the compiler knows: no loop is left, and no call.
[[gnu::flatten]] char* writeFullLine(char* out, const void* address, uint64_t flags) noexcept {
  return writeLine(out, address, kBytesPerLine, flags);
}

}  // namespace
}  // namespace oss

using namespace oss;

uint64_t ossHexDumpLine(char* line, const void* address, uint64_t count, uint64_t flags) noexcept {
  if (line == nullptr || (address == nullptr && count != 0)) return 0;

  std::memset(line, ' ', kColumns);
  line[kColumns] = '\0';
  const char* const end = count < kBytesPerLine ? writeLine(line, address, count, flags)
                                                : writeFullLine(line, address, flags);
  return static_cast<uint64_t>(end - line);
}

uint64_t ossHexDumpToBuffer(const void* address, uint64_t length, char* out, uint64_t outSize,
                            const char* prefix, uint64_t flags) noexcept {
  if (out == nullptr || outSize == 0) return 0;
  *out = '\0';
  if (address == nullptr) return 0;

  const uint64_t prefixLength = prefix != nullptr ? std::strlen(prefix) : 0;
  // Deliberate: an exact fit is refused, and so is one with a byte to spare.
  const auto fits = [prefixLength](uint64_t lineLength, uint64_t room) {
    return room > prefixLength + lineLength + 2;
  };

  const auto* bytes = static_cast<const uint8_t*>(address);
  uint64_t written = 0;
  while (length != 0) {
    const uint64_t count = std::min(kBytesPerLine, length);
    const uint64_t room = outSize - written;
    char* const at = out + written + prefixLength;
    uint64_t lineLength = 0;
    if (count == kBytesPerLine && fits(kColumns, room)) {
      lineLength = static_cast<uint64_t>(writeFullLine(at, bytes, flags) - at);
    } else {
      char line[OSS_HEXDUMP_LINE];
      lineLength = ossHexDumpLine(line, bytes, count, flags);
      if (!fits(lineLength, room)) break;
      std::memcpy(at, line, lineLength + 1);
    }

    if (prefixLength != 0) std::memcpy(out + written, prefix, prefixLength);
    written += prefixLength + lineLength;
    bytes += count;
    length -= count;
  }
  return written;
}
