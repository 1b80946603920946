// The items of a record: every type in every size, dumps, and what happens where the record ends.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "log/osslogrecord.h"
#include "tests/log/osslogrecord_text.h"

namespace oss {
namespace {

using record_text::compose;
using record_text::countingBytes;
using record_text::dumpLines;
using record_text::itemsText;
using record_text::itemText;
using record_text::kEvent;

constexpr uint64_t kMost64 = std::numeric_limits<uint64_t>::max();

template <class T>
std::string valueText(T value, int32_t type) {
  return itemText(&value, sizeof value, type);
}

std::string dumpText(size_t count) {
  return itemText(countingBytes(count).data(), count, OSS_LOG_DUMP);
}

// ---- Labels ----

LogEvent calledEvent(LogEvent::Called called) {
  LogEvent event = kEvent;
  event.called = called;
  return event;
}

TEST(LogItem, IsDataOfWhatTheFunctionFoundAndAnArgumentOfWhatItCalled) {
  const uint8_t value = 5;
  const LogArg items[] = {{1, {&value, 1, OSS_LOG_UINT}}};
  EXPECT_TRUE(compose(calledEvent(LogEvent::Called::None), items)
                  .ends_with("\r\nDATA #1 : Uint8, 1 bytes\r\n5\r\n"));
  EXPECT_TRUE(compose(calledEvent(LogEvent::Called::Function), items)
                  .ends_with("\r\nARG  #1 : Uint8, 1 bytes\r\n5\r\n"));
  EXPECT_TRUE(compose(calledEvent(LogEvent::Called::System), items)
                  .ends_with("\r\nARG  #1 : Uint8, 1 bytes\r\n5\r\n"));
}

TEST(LogItem, ShowsItsNumberInTwoColumnsOrMore) {
  const uint8_t value = 5;
  const LogItem item = {&value, 1, OSS_LOG_UINT};
  EXPECT_EQ(itemsText({{1, item}, {2, item}, {31, item}, {100, item}}),
            "DATA #1 : Uint8, 1 bytes\r\n5\r\n"
            "DATA #2 : Uint8, 1 bytes\r\n5\r\n"
            "DATA #31: Uint8, 1 bytes\r\n5\r\n"
            "DATA #100: Uint8, 1 bytes\r\n5\r\n");
}

TEST(LogItem, OfNullIsNullWhateverItsTypeAndSize) {
  for (int32_t type = -7; type <= 1; ++type)
    for (const uint64_t size : {uint64_t{0}, uint64_t{4}, uint64_t{600}, kMost64})
      EXPECT_EQ(itemText(nullptr, size, type), "DATA #1 : \r\nNULL\r\n") << type;
}

// ---- Numbers ----

TEST(LogItem, HexIsUpperCaseWithoutLeadingZeros) {
  EXPECT_EQ(valueText(uint8_t{0xAB}, OSS_LOG_HEX), "DATA #1 : Hex, 1 bytes\r\n0xAB\r\n");
  EXPECT_EQ(valueText(uint16_t{0xABCD}, OSS_LOG_HEX), "DATA #1 : Hex, 2 bytes\r\n0xABCD\r\n");
  EXPECT_EQ(valueText(0x89ABCDEFU, OSS_LOG_HEX), "DATA #1 : Hex, 4 bytes\r\n0x89ABCDEF\r\n");
  EXPECT_EQ(valueText(uint64_t{0x89ABCDEF01234567}, OSS_LOG_HEX),
            "DATA #1 : Hex, 8 bytes\r\n0x89ABCDEF01234567\r\n");
  EXPECT_EQ(valueText(uint8_t{0}, OSS_LOG_HEX), "DATA #1 : Hex, 1 bytes\r\n0x0\r\n");
  EXPECT_EQ(valueText(uint16_t{0xA}, OSS_LOG_HEX), "DATA #1 : Hex, 2 bytes\r\n0xA\r\n");
  EXPECT_EQ(valueText(0x1BU, OSS_LOG_HEX), "DATA #1 : Hex, 4 bytes\r\n0x1B\r\n");
  EXPECT_EQ(valueText(uint64_t{0x2A}, OSS_LOG_HEX), "DATA #1 : Hex, 8 bytes\r\n0x2A\r\n");
}

TEST(LogItem, SintNamesItsWidthAndKeepsItsSign) {
  EXPECT_EQ(valueText(int8_t{-128}, OSS_LOG_SINT), "DATA #1 : Sint8, 1 bytes\r\n-128\r\n");
  EXPECT_EQ(valueText(int8_t{127}, OSS_LOG_SINT), "DATA #1 : Sint8, 1 bytes\r\n127\r\n");
  EXPECT_EQ(valueText(int16_t{-32'768}, OSS_LOG_SINT), "DATA #1 : Sint16, 2 bytes\r\n-32768\r\n");
  EXPECT_EQ(valueText(int32_t{-1}, OSS_LOG_SINT), "DATA #1 : Sint32, 4 bytes\r\n-1\r\n");
  EXPECT_EQ(valueText(std::numeric_limits<int32_t>::min(), OSS_LOG_SINT),
            "DATA #1 : Sint32, 4 bytes\r\n-2147483648\r\n");
  EXPECT_EQ(valueText(std::numeric_limits<int64_t>::min(), OSS_LOG_SINT),
            "DATA #1 : Sint64, 8 bytes\r\n-9223372036854775808\r\n");
}

TEST(LogItem, UintNamesItsWidthAndHasNoSign) {
  EXPECT_EQ(valueText(uint8_t{255}, OSS_LOG_UINT), "DATA #1 : Uint8, 1 bytes\r\n255\r\n");
  EXPECT_EQ(valueText(uint16_t{65'535}, OSS_LOG_UINT), "DATA #1 : Uint16, 2 bytes\r\n65535\r\n");
  EXPECT_EQ(valueText(uint32_t{0xFFFFFFFF}, OSS_LOG_UINT),
            "DATA #1 : Uint32, 4 bytes\r\n4294967295\r\n");
  EXPECT_EQ(valueText(kMost64, OSS_LOG_UINT),
            "DATA #1 : Uint64, 8 bytes\r\n18446744073709551615\r\n");
}

TEST(LogItem, BoolIsTrueWhenAnyBitOfItsWidthIsSet) {
  EXPECT_EQ(valueText(uint8_t{0}, OSS_LOG_BOOL), "DATA #1 : Bool, 1 bytes\r\nfalse\r\n");
  EXPECT_EQ(valueText(uint8_t{2}, OSS_LOG_BOOL), "DATA #1 : Bool, 1 bytes\r\ntrue\r\n");
  EXPECT_EQ(valueText(uint16_t{0}, OSS_LOG_BOOL), "DATA #1 : Bool, 2 bytes\r\nfalse\r\n");
  EXPECT_EQ(valueText(uint16_t{0x8000}, OSS_LOG_BOOL), "DATA #1 : Bool, 2 bytes\r\ntrue\r\n");
  EXPECT_EQ(valueText(uint32_t{0}, OSS_LOG_BOOL), "DATA #1 : Bool, 4 bytes\r\nfalse\r\n");
  EXPECT_EQ(valueText(uint32_t{0x80000000}, OSS_LOG_BOOL), "DATA #1 : Bool, 4 bytes\r\ntrue\r\n");
  EXPECT_EQ(valueText(uint64_t{0}, OSS_LOG_BOOL), "DATA #1 : Bool, 8 bytes\r\nfalse\r\n");
  EXPECT_EQ(valueText(uint64_t{1} << 63, OSS_LOG_BOOL), "DATA #1 : Bool, 8 bytes\r\ntrue\r\n");
}

TEST(LogItem, BoolLooksAtNoByteBeyondItsWidth) {
  const uint64_t value = uint64_t{0xFF} << 32;
  EXPECT_EQ(itemText(&value, 4, OSS_LOG_BOOL), "DATA #1 : Bool, 4 bytes\r\nfalse\r\n");
}

TEST(LogItem, ANumberNeedNotBeAligned) {
  alignas(8) const uint8_t bytes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(itemText(bytes + 1, 8, OSS_LOG_HEX), "DATA #1 : Hex, 8 bytes\r\n0x807060504030201\r\n");
  EXPECT_EQ(itemText(bytes + 1, 2, OSS_LOG_SINT), "DATA #1 : Sint16, 2 bytes\r\n513\r\n");
}

TEST(LogItem, ANumberOfAnotherSizeIsADump) {
  const std::vector<uint8_t> bytes = countingBytes(16);
  for (const int32_t type : {OSS_LOG_HEX, OSS_LOG_SINT, OSS_LOG_UINT, OSS_LOG_BOOL})
    for (const uint64_t size : {0U, 3U, 5U, 6U, 7U, 9U, 16U})
      EXPECT_EQ(itemText(bytes.data(), size, type), dumpText(size)) << type << " " << size;
  EXPECT_EQ(itemText(bytes.data(), 3, OSS_LOG_UINT),
            "DATA #1 : <hexdump>, 3 bytes\r\n"
            "000102                                    ...\r\n");
}

TEST(LogItem, AnyTypeFromZeroOnIsADump) {
  const uint32_t value = 0x44434241;
  for (const int32_t type : {0, 1, 2, 6, std::numeric_limits<int32_t>::max()})
    EXPECT_EQ(itemText(&value, 4, type),
              "DATA #1 : <hexdump>, 4 bytes\r\n"
              "41424344                                  ABCD\r\n");
}

TEST(LogItem, ATypeBelowTheLastIsADump) {
  const uint32_t value = 0x44434241;
  for (const int32_t type : {-7, std::numeric_limits<int32_t>::min()})
    EXPECT_EQ(itemText(&value, 4, type), itemText(&value, 4, OSS_LOG_DUMP));
}

// ---- Characters ----

TEST(LogItem, CharIsTheFirstByteOfAnySize) {
  const std::string text(600, 'Q');
  EXPECT_EQ(itemText("AB", 1, OSS_LOG_CHAR), "DATA #1 : Char, 1 bytes\r\nA\r\n");
  EXPECT_EQ(itemText("AB", 2, OSS_LOG_CHAR), "DATA #1 : Char, 2 bytes\r\nA\r\n");
  EXPECT_EQ(itemText("\xE4", 1, OSS_LOG_CHAR), "DATA #1 : Char, 1 bytes\r\n\xE4\r\n");
  EXPECT_EQ(itemText(text.data(), 600, OSS_LOG_CHAR), "DATA #1 : Char, 512 bytes\r\nQ\r\n");
}

TEST(LogItem, CharOfZeroIsANulInsideTheRecord) {
  EXPECT_EQ(itemText("", 1, OSS_LOG_CHAR), std::string("DATA #1 : Char, 1 bytes\r\n\0\r\n", 28));
}

TEST(LogItem, CharOfNoBytesReadsNone) {
  EXPECT_EQ(itemText("A", 0, OSS_LOG_CHAR), std::string("DATA #1 : Char, 0 bytes\r\n\0\r\n", 28));
}

TEST(LogItem, StringEndsAtItsNulOrItsSize) {
  EXPECT_EQ(itemText("abc\0def", 8, OSS_LOG_STRING), "DATA #1 : String, 8 bytes\r\nabc\r\n");
  EXPECT_EQ(itemText("abcdef", 3, OSS_LOG_STRING), "DATA #1 : String, 3 bytes\r\nabc\r\n");
  EXPECT_EQ(itemText("abcdef", 0, OSS_LOG_STRING), "DATA #1 : String, 0 bytes\r\n\r\n");
  EXPECT_EQ(itemText("", 1, OSS_LOG_STRING), "DATA #1 : String, 1 bytes\r\n\r\n");
}

TEST(LogItem, StringIsCopiedAsItIs) {
  EXPECT_EQ(itemText("%s%n \x01\xFF", 7, OSS_LOG_STRING),
            "DATA #1 : String, 7 bytes\r\n%s%n \x01\xFF\r\n");
}

TEST(LogItem, StringShowsAtMost512Bytes) {
  const std::string text(600, 'x');
  const std::string shown = "DATA #1 : String, 512 bytes\r\n" + std::string(512, 'x') + "\r\n";
  EXPECT_EQ(itemText(text.data(), 512, OSS_LOG_STRING), shown);
  EXPECT_EQ(itemText(text.data(), 513, OSS_LOG_STRING), shown);
  EXPECT_EQ(itemText(text.data(), 600, OSS_LOG_STRING), shown);
  EXPECT_EQ(itemText(text.c_str(), kMost64, OSS_LOG_STRING), shown);
}

// ---- Dumps ----

TEST(LogItem, ADumpOfOneLineLeavesBlanksForBytesThatAreNotThere) {
  EXPECT_EQ(itemText("A", 1, OSS_LOG_DUMP),
            "DATA #1 : <hexdump>, 1 bytes\r\n"
            "41                                        A\r\n");
  EXPECT_EQ(itemText("ABCDE", 5, OSS_LOG_DUMP),
            "DATA #1 : <hexdump>, 5 bytes\r\n"
            "41424344  45                              ABCDE\r\n");
  EXPECT_EQ(itemText("ABCDEFGHIJKLM", 13, OSS_LOG_DUMP),
            "DATA #1 : <hexdump>, 13 bytes\r\n"
            "41424344  45464748  494A4B4C  4D          ABCDEFGHIJKLM\r\n");
}

TEST(LogItem, ADumpOfSixteenBytesIsOneFullLineWithoutAnOfPart) {
  EXPECT_EQ(itemText("0123456789abcdef", 16, OSS_LOG_DUMP),
            "DATA #1 : <hexdump>, 16 bytes\r\n"
            "30313233  34353637  38396162  63646566    0123456789abcdef\r\n");
}

TEST(LogItem, ADumpGoesOnInLinesOfSixteenBytes) {
  EXPECT_EQ(itemText("The quick brown fox jumps over the lazy dog again", 49, OSS_LOG_DUMP),
            "DATA #1 : <hexdump>, 49 bytes\r\n"
            "54686520  71756963  6B206272  6F776E20    The quick brown \r\n"
            "666F7820  6A756D70  73206F76  65722074    fox jumps over t\r\n"
            "6865206C  617A7920  646F6720  61676169    he lazy dog agai\r\n"
            "6E                                        n\r\n");
}

TEST(LogItem, ADumpOfNoBytesHasNoLines) {
  EXPECT_EQ(dumpText(0), "DATA #1 : <hexdump>, 0 bytes\r\n");
}

TEST(LogItem, ADumpShowsBytesFrom32To126AsThemselves) {
  const std::vector<uint8_t> bytes = countingBytes(256);
  const std::string text = itemText(bytes.data(), bytes.size(), OSS_LOG_DUMP);
  const size_t lines = text.find("\r\n") + 2;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const char shown = text[lines + i / 16 * 60 + 42 + i % 16];
    EXPECT_EQ(shown, i >= 32 && i <= 126 ? static_cast<char>(i) : '.') << i;
  }
}

TEST(LogItem, ADumpOfAnySizeUpTo512IsWhole) {
  const std::vector<uint8_t> bytes = countingBytes(512);
  for (size_t size = 1; size <= bytes.size(); ++size)
    EXPECT_EQ(dumpText(size), "DATA #1 : <hexdump>, " + std::to_string(size) + " bytes\r\n" +
                                  dumpLines(bytes.data(), size));
}

// Deliberate: "bytesof" is one word.
TEST(LogItem, ADumpOfMoreThan512BytesSaysOfHowMany) {
  const std::vector<uint8_t> bytes = countingBytes(600);
  EXPECT_EQ(dumpText(600),
            "DATA #1 : <hexdump>, 512 bytesof 600\r\n" + dumpLines(bytes.data(), 512));
  EXPECT_EQ(dumpText(513),
            "DATA #1 : <hexdump>, 512 bytesof 513\r\n" + dumpLines(bytes.data(), 512));
  EXPECT_EQ(
      itemText(bytes.data(), kMost64, OSS_LOG_DUMP),
      "DATA #1 : <hexdump>, 512 bytesof 18446744073709551615\r\n" + dumpLines(bytes.data(), 512));
}

}  // namespace
}  // namespace oss
