// Hex dumps, line by line and of whole regions, against literal texts and against a second writer
// that takes its digits from the run-time.
#include "osshexdump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "tests/log/osshexdump_text.h"

namespace {

using oss::hexdump_text::expectedDump;
using oss::hexdump_text::expectedLine;

constexpr uint64_t kAllFlags = OSS_HEXDUMP_VALUE | OSS_HEXDUMP_ADDRESS | OSS_HEXDUMP_NO_CHARACTERS;
constexpr uint64_t kMost64 = ~uint64_t{0};
constexpr char kUntouched = '\x7E';

// An address that is shown but not read.
const void* at(uint64_t address) { return std::bit_cast<const void*>(address); }

// Bytes of all kinds: digits of every value, printable and not.
std::vector<uint8_t> someBytes(size_t count) {
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(0x1B + i * 0x35);
  return bytes;
}

// ---- One line ----

// The line as it is written: the length is returned, what the line leaves of its buffer is blank up
// to a NUL in the last byte, and nothing is written behind that.
std::string line(const void* address, uint64_t count, uint64_t flags) {
  std::array<char, OSS_HEXDUMP_LINE + 16> buffer;
  buffer.fill(kUntouched);
  const uint64_t length = ossHexDumpLine(buffer.data(), address, count, flags);

  const std::string text = buffer.data();
  EXPECT_EQ(length, text.size());
  std::string whole = text + '\0';
  whole.resize(OSS_HEXDUMP_LINE - 1, ' ');
  whole += '\0';
  whole.resize(buffer.size(), kUntouched);
  EXPECT_EQ(std::string_view(buffer.data(), buffer.size()), whole);
  return text;
}

std::string line(std::string_view bytes, uint64_t flags) {
  return line(bytes.data(), bytes.size(), flags);
}

TEST(HexDumpLine, HoldsEightGroupsOfTwoBytesAndTheirCharacters) {
  EXPECT_EQ(line(std::string_view("Hello, world!\n\0\1", 16), 0),
            "4865 6C6C 6F2C 2077 6F72 6C64 210A 0001    Hello, world!...\r\n");
}

TEST(HexDumpLine, BeginsWithTheAddressInSixteenDigits) {
  const std::string blanks(43, ' ');
  EXPECT_EQ(line(at(0x00007FFE1234ABC0), 0, OSS_HEXDUMP_ADDRESS),
            "0x00007FFE1234ABC0 : " + blanks + "\r\n");
  EXPECT_EQ(line(at(0xFEDCBA9876543210), 0, OSS_HEXDUMP_ADDRESS),
            "0xFEDCBA9876543210 : " + blanks + "\r\n");
}

TEST(HexDumpLine, WithTheAddressBytesAndCharactersMoveToTheRight) {
  static const char bytes[] = "Hello, world!\n\0";
  EXPECT_EQ(line(std::string_view(bytes, 16), OSS_HEXDUMP_ADDRESS).substr(18),
            " : 4865 6C6C 6F2C 2077 6F72 6C64 210A 0000    Hello, world!...\r\n");
}

TEST(HexDumpLine, ALineWithEverythingFillsItsBuffer) {
  EXPECT_EQ(line(someBytes(16).data(), 16, OSS_HEXDUMP_ADDRESS).size(), OSS_HEXDUMP_LINE - 1);
}

TEST(HexDumpLine, CharactersKeepTheirColumnHoweverFewTheBytes) {
  EXPECT_EQ(line("A", 0), "41                                         A\r\n");
  EXPECT_EQ(line("AB", 0), "4142                                       AB\r\n");
  EXPECT_EQ(line("ABC", 0), "4142 43                                    ABC\r\n");
  EXPECT_EQ(line("ABCDEFGHIJKLMNO", 0),
            "4142 4344 4546 4748 494A 4B4C 4D4E 4F      ABCDEFGHIJKLMNO\r\n");
}

TEST(HexDumpLine, WithoutCharactersEndsBehindTheBlankOfTheLastGroup) {
  EXPECT_EQ(line("A", OSS_HEXDUMP_NO_CHARACTERS), "41 \r\n");
  EXPECT_EQ(line("AB", OSS_HEXDUMP_NO_CHARACTERS), "4142 \r\n");
  EXPECT_EQ(line("ABC", OSS_HEXDUMP_NO_CHARACTERS), "4142 43 \r\n");
  EXPECT_EQ(line("ABCDEFGHIJKLMNOP", OSS_HEXDUMP_NO_CHARACTERS),
            "4142 4344 4546 4748 494A 4B4C 4D4E 4F50 \r\n");
}

TEST(HexDumpLine, OfNoBytesIsBlankUpToItsCharacterColumn) {
  EXPECT_EQ(line("", 0), std::string(43, ' ') + "\r\n");
  EXPECT_EQ(line("", OSS_HEXDUMP_VALUE), std::string(43, ' ') + "\r\n");
  EXPECT_EQ(line("", OSS_HEXDUMP_NO_CHARACTERS), "\r\n");
  EXPECT_EQ(line(at(0x1000), 0, OSS_HEXDUMP_ADDRESS | OSS_HEXDUMP_NO_CHARACTERS),
            "0x0000000000001000 : \r\n");
}

TEST(HexDumpLine, OneTwoFourAndEightBytesCanBeOneLittleEndianNumber) {
  EXPECT_EQ(line("\x0F", OSS_HEXDUMP_VALUE), "0x0F                                       .\r\n");
  EXPECT_EQ(line("4\x12", OSS_HEXDUMP_VALUE), "0x1234                                     4.\r\n");
  EXPECT_EQ(line("xV4\x12", OSS_HEXDUMP_VALUE),
            "0x12345678                                 xV4.\r\n");
  EXPECT_EQ(line("\xEF\xCD\xAB\x89gE#\x01", OSS_HEXDUMP_VALUE),
            "0x0123456789ABCDEF                         ....gE#.\r\n");
}

TEST(HexDumpLine, ANumberWithoutCharactersIsFollowedByOneBlank) {
  constexpr uint64_t kFlags = OSS_HEXDUMP_VALUE | OSS_HEXDUMP_NO_CHARACTERS;
  EXPECT_EQ(line("\x0F", kFlags), "0x0F \r\n");
  EXPECT_EQ(line("xV4\x12", kFlags), "0x12345678 \r\n");
}

TEST(HexDumpLine, ANumberStandsInTheColumnsOfTheGroups) {
  const std::string text = line("xV4\x12", OSS_HEXDUMP_VALUE | OSS_HEXDUMP_ADDRESS);
  EXPECT_EQ(text.substr(18), " : 0x12345678                                 xV4.\r\n");
}

TEST(HexDumpLine, AnyOtherCountStaysInGroupsAlsoAsNumber) {
  EXPECT_EQ(line(std::string_view("\0\x11\x22\x33\x44", 5), OSS_HEXDUMP_VALUE),
            "0011 2233 44                               ..\"3D\r\n");
  const std::vector<uint8_t> bytes = someBytes(16);
  for (const uint64_t count : {3u, 5u, 6u, 7u, 9u, 10u, 11u, 12u, 13u, 14u, 15u, 16u})
    EXPECT_EQ(line(bytes.data(), count, OSS_HEXDUMP_VALUE), line(bytes.data(), count, 0)) << count;
}

TEST(HexDumpLine, PrintsCharactersFrom32To126AndDotsForAllOthers) {
  for (unsigned value = 0; value < 256; ++value) {
    const auto byte = static_cast<char>(value);
    const char shown = value >= 32 && value <= 126 ? byte : '.';
    EXPECT_EQ(line(std::string_view(&byte, 1), 0)[43], shown) << value;
  }
  EXPECT_EQ(line("\x1F \x7E\x7F\x80\xFF", 0),
            "1F20 7E7F 80FF                             . ~...\r\n");
}

TEST(HexDumpLine, MoreThanSixteenBytesCountAsSixteen) {
  const std::vector<uint8_t> bytes = someBytes(32);
  for (const uint64_t count : {uint64_t{17}, uint64_t{32}, uint64_t{1} << 32, kMost64})
    for (uint64_t flags = 0; flags <= kAllFlags; ++flags)
      EXPECT_EQ(line(bytes.data(), count, flags), line(bytes.data(), 16, flags)) << count;
}

TEST(HexDumpLine, OtherFlagsDoNothing) {
  const std::vector<uint8_t> bytes = someBytes(4);
  for (uint64_t flags = 0; flags <= kAllFlags; ++flags)
    EXPECT_EQ(line(bytes.data(), 4, flags | ~kAllFlags), line(bytes.data(), 4, flags));
}

TEST(HexDumpLine, EveryCountWithAllCombinationsOfFlagsIsTheSecondWritersLine) {
  const std::vector<uint8_t> bytes = someBytes(64);
  for (size_t start = 0; start < 48; ++start)
    for (size_t count = 0; count <= 16; ++count)
      for (uint64_t flags = 0; flags <= kAllFlags; ++flags)
        ASSERT_EQ(line(&bytes[start], count, flags), expectedLine(&bytes[start], count, flags))
            << "count " << count << ", flags " << flags;
}

TEST(HexDumpLine, WithoutALineOrBytesWritesNothing) {
  char text[OSS_HEXDUMP_LINE];
  std::memset(text, kUntouched, sizeof text);
  EXPECT_EQ(ossHexDumpLine(nullptr, "bytes", 5, 0), 0u);
  EXPECT_EQ(ossHexDumpLine(nullptr, nullptr, 0, 0), 0u);
  EXPECT_EQ(ossHexDumpLine(text, nullptr, 1, 0), 0u);
  EXPECT_EQ(std::string_view(text, sizeof text), std::string(sizeof text, kUntouched));
}

TEST(HexDumpLine, NoBytesAtNullAreALineAsAnywhereElse) {
  EXPECT_EQ(line(nullptr, 0, 0), line("", 0));
  EXPECT_EQ(line(nullptr, 0, OSS_HEXDUMP_ADDRESS | OSS_HEXDUMP_NO_CHARACTERS),
            "0x0000000000000000 : \r\n");
}

// ---- A region ----

// The text that is written. Its length is returned, and it stays within outSize bytes.
std::string dump(const void* address, uint64_t length, uint64_t outSize, const char* prefix,
                 uint64_t flags) {
  std::vector<char> buffer(outSize + 100, kUntouched);
  const uint64_t written =
      ossHexDumpToBuffer(address, length, buffer.data(), outSize, prefix, flags);
  const std::string text = buffer.data();
  EXPECT_EQ(written, text.size());
  EXPECT_LT(text.size(), outSize);
  EXPECT_EQ(std::count(buffer.begin() + static_cast<ptrdiff_t>(outSize), buffer.end(), kUntouched),
            100);
  return text;
}

TEST(HexDumpToBuffer, WritesSixteenBytesALineEachBehindThePrefix) {
  const std::string bytes = "The quick brown fox jumps over the lazy dog.";
  EXPECT_EQ(dump(bytes.data(), bytes.size(), 1000, "> ", 0),
            "> 5468 6520 7175 6963 6B20 6272 6F77 6E20    The quick brown \r\n"
            "> 666F 7820 6A75 6D70 7320 6F76 6572 2074    fox jumps over t\r\n"
            "> 6865 206C 617A 7920 646F 672E              he lazy dog.\r\n");
}

TEST(HexDumpToBuffer, EachLineBeginsWithItsOwnAddress) {
  const std::vector<uint8_t> bytes = someBytes(40);
  const std::string text =
      dump(bytes.data(), bytes.size(), 1000, nullptr, kAllFlags & ~OSS_HEXDUMP_VALUE);
  EXPECT_EQ(text, expectedLine(&bytes[0], 16, 6) + expectedLine(&bytes[16], 16, 6) +
                      expectedLine(&bytes[32], 8, 6));
}

TEST(HexDumpToBuffer, AMultipleOfSixteenEndsWithAFullLine) {
  const std::vector<uint8_t> bytes = someBytes(32);
  EXPECT_EQ(dump(bytes.data(), 32, 1000, nullptr, 0),
            expectedLine(&bytes[0], 16, 0) + expectedLine(&bytes[16], 16, 0));
}

TEST(HexDumpToBuffer, OnlyTheLastLineCanBeANumber) {
  const std::string bytes = "0123456789ABCDEFxV4\x12";
  EXPECT_EQ(dump(bytes.data(), bytes.size(), 1000, nullptr, OSS_HEXDUMP_VALUE),
            "3031 3233 3435 3637 3839 4142 4344 4546    0123456789ABCDEF\r\n"
            "0x12345678                                 xV4.\r\n");
}

TEST(HexDumpToBuffer, AnEmptyPrefixIsNone) {
  const std::vector<uint8_t> bytes = someBytes(20);
  EXPECT_EQ(dump(bytes.data(), 20, 1000, "", 0), dump(bytes.data(), 20, 1000, nullptr, 0));
}

// A full line has 61 characters.
TEST(HexDumpToBuffer, ALineIsWrittenFromThreeBytesMoreThanItsTextOn) {
  const std::vector<uint8_t> bytes = someBytes(16);
  const std::string text = expectedLine(bytes.data(), 16, 0);
  EXPECT_EQ(dump(bytes.data(), 16, 61 + 1, nullptr, 0), "");  // text and NUL would fit
  EXPECT_EQ(dump(bytes.data(), 16, 61 + 2, nullptr, 0), "");
  EXPECT_EQ(dump(bytes.data(), 16, 61 + 3, nullptr, 0), text);
}

TEST(HexDumpToBuffer, ThePrefixTakesItsPartOfTheRoom) {
  const std::vector<uint8_t> bytes = someBytes(16);
  EXPECT_EQ(dump(bytes.data(), 16, 61 + 7 + 2, "prefix ", 0), "");
  EXPECT_EQ(dump(bytes.data(), 16, 61 + 7 + 3, "prefix ", 0),
            "prefix " + expectedLine(bytes.data(), 16, 0));
}

TEST(HexDumpToBuffer, EndsBeforeTheFirstLineThatDoesNotFit) {
  const std::vector<uint8_t> bytes = someBytes(48);
  const std::string first = "# " + expectedLine(&bytes[0], 16, 0);
  const std::string second = "# " + expectedLine(&bytes[16], 16, 0);
  EXPECT_EQ(dump(bytes.data(), 48, 2 * 63 + 2, "# ", 0), first);
  EXPECT_EQ(dump(bytes.data(), 48, 2 * 63 + 3, "# ", 0), first + second);
}

TEST(HexDumpToBuffer, ALineThatDoesNotFitEndsTheDumpAlsoWhenTheNextWould) {
  const std::vector<uint8_t> bytes = someBytes(17);
  constexpr uint64_t kFlags = OSS_HEXDUMP_NO_CHARACTERS;  // the second line has 5 characters
  EXPECT_EQ(dump(bytes.data(), 17, 20, nullptr, kFlags), "");
}

TEST(HexDumpToBuffer, WithoutRoomForTheFirstLineIsEmpty) {
  const std::vector<uint8_t> bytes = someBytes(16);
  EXPECT_EQ(dump(bytes.data(), 16, 1, nullptr, 0), "");
  EXPECT_EQ(dump(bytes.data(), 16, 60, nullptr, 0), "");
  EXPECT_EQ(dump(bytes.data(), 16, 500, std::string(500, 'p').c_str(), 0), "");
}

// A line with its address and all characters has 82.
TEST(HexDumpToBuffer, APageHolds49LinesWithTheirAddresses) {
  const std::vector<uint8_t> bytes = someBytes(1000);
  const std::string text = dump(bytes.data(), bytes.size(), 4096, nullptr, OSS_HEXDUMP_ADDRESS);
  EXPECT_EQ(text, expectedDump(bytes.data(), 49 * 16, 5000, "", OSS_HEXDUMP_ADDRESS));
  EXPECT_EQ(text.size(), 49u * 82);
}

TEST(HexDumpToBuffer, EveryLengthIsTheSecondWritersDump) {
  const std::vector<uint8_t> bytes = someBytes(70);
  for (size_t length = 1; length <= bytes.size(); ++length)
    for (uint64_t flags = 0; flags <= kAllFlags; ++flags)
      for (const char* const prefix : {"", "\t", "prefix: "})
        ASSERT_EQ(dump(bytes.data(), length, 1000, prefix, flags),
                  expectedDump(bytes.data(), length, 1000, prefix, flags))
            << "length " << length << ", flags " << flags;
}

TEST(HexDumpToBuffer, EverySizeHoldsWholeLinesOnly) {
  const std::vector<uint8_t> bytes = someBytes(49);
  for (uint64_t outSize = 1; outSize <= 400; ++outSize)
    for (uint64_t flags = 0; flags <= kAllFlags; ++flags)
      for (const char* const prefix : {"", "a prefix of 21 bytes "})
        ASSERT_EQ(dump(bytes.data(), bytes.size(), outSize, prefix, flags),
                  expectedDump(bytes.data(), bytes.size(), outSize, prefix, flags))
            << "outSize " << outSize << ", flags " << flags;
}

// Two of the three lines fit; nothing behind the third is read.
TEST(HexDumpToBuffer, TheLengthMayBeNearTwoToThe64) {
  const std::vector<uint8_t> bytes = someBytes(48);
  const std::string expected = expectedDump(bytes.data(), 32, 1000, "", 0);
  for (uint64_t less = 0; less <= 33; ++less)
    EXPECT_EQ(dump(bytes.data(), kMost64 - less, 2 * 61 + 3, nullptr, 0), expected) << less;
}

TEST(HexDumpToBuffer, WithoutBufferOrSizeWritesNothing) {
  char out[] = "untouched";
  EXPECT_EQ(ossHexDumpToBuffer("bytes", 5, nullptr, 100, nullptr, 0), 0u);
  EXPECT_EQ(ossHexDumpToBuffer("bytes", 5, nullptr, 0, nullptr, 0), 0u);
  EXPECT_EQ(ossHexDumpToBuffer("bytes", 5, out, 0, nullptr, 0), 0u);
  EXPECT_STREQ(out, "untouched");
}

TEST(HexDumpToBuffer, OfNothingIsEmpty) {
  EXPECT_EQ(dump("bytes", 0, 100, "prefix", 0), "");
  EXPECT_EQ(dump(nullptr, 0, 100, "prefix", 0), "");
  EXPECT_EQ(dump(nullptr, 5, 100, "prefix", 0), "");
}

}  // namespace
