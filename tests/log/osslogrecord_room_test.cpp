// The end of a record: what an item shows of itself in any room that is left.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "log/osslogrecord.h"
#include "tests/log/osslogrecord_text.h"

namespace oss {
namespace {

using record_text::compose;
using record_text::countingBytes;
using record_text::dumpLines;
using record_text::kEvent;

constexpr size_t kMostCharacters = kRecordBytes - 1;
constexpr uint32_t kNumber = 20;
constexpr size_t kLabelLength = 10;  // "DATA #20: "

const std::string kFiller(512, 'f');

// How long a text item of a number below 100 is: label, "String, " and " bytes", two line ends.
size_t lengthOfText(size_t size) {
  return kLabelLength + 14 + std::to_string(size).size() + 2 + size + 2;
}

// Texts that bring the record above to exactly `length` characters, numbered below kNumber.
std::vector<LogArg> itemsUpTo(size_t length) {
  std::vector<LogArg> items;
  const auto add = [&](size_t size) {
    items.push_back(
        {static_cast<uint32_t>(items.size() + 1), {kFiller.data(), size, OSS_LOG_STRING}});
  };
  size_t rest = length - compose(kEvent).size();
  for (; rest >= 2 * lengthOfText(512); rest -= lengthOfText(512)) add(512);

  // Two more make up any rest: one alone cannot where its size gains a digit.
  for (size_t first = 1; first <= 512; ++first)
    for (size_t digits = 1; digits <= 3; ++digits) {
      const size_t second = rest - lengthOfText(first) - lengthOfText(0) - digits + 1;
      if (second > 512 || lengthOfText(first) + lengthOfText(second) != rest) continue;
      add(first);
      add(second);
      return items;
    }
  return {};
}

// What the last item, number 20, shows when `room` bytes are left for it, the NUL included.
std::string shownIn(size_t room, const LogItem& item) {
  std::vector<LogArg> items = itemsUpTo(kRecordBytes - room);
  const std::string before = compose(kEvent, items);
  EXPECT_EQ(before.size(), kRecordBytes - room);
  items.push_back({kNumber, item});
  const std::string text = compose(kEvent, items);
  return text.starts_with(before) ? text.substr(before.size()) : "the text before it changed";
}

std::string cut(const std::string& text, size_t room) { return text.substr(0, room - 1); }

TEST(LogRoom, ARecordHoldsAtMost4095Characters) {
  std::vector<LogArg> items;
  for (uint32_t number = 1; number <= 31; ++number)
    items.push_back({number, {kFiller.data(), 512, OSS_LOG_STRING}});
  EXPECT_EQ(compose(kEvent, items).size(), kMostCharacters);
}

TEST(LogRoom, ItemsBehindTheEndShowNothing) {
  std::vector<LogArg> items;
  for (uint32_t number = 1; number <= 8; ++number)
    items.push_back({number, {kFiller.data(), 512, OSS_LOG_STRING}});
  const std::string full = compose(kEvent, items);
  ASSERT_EQ(full.size(), kMostCharacters);
  for (const int32_t type : {OSS_LOG_HEX, OSS_LOG_CHAR, OSS_LOG_STRING, OSS_LOG_DUMP}) {
    items.resize(8);
    items.push_back({9, {"12345678", 8, type}});
    EXPECT_EQ(compose(kEvent, items), full) << type;
  }
}

// Numbers and characters are cut wherever the record ends.
TEST(LogRoom, AValueIsCutInTheMiddle) {
  struct Row {
    LogItem item;
    std::string whole;
  };
  const uint64_t value = 0x89ABCDEF01234567;
  const Row rows[] = {
      {{&value, 8, OSS_LOG_HEX}, "DATA #20: Hex, 8 bytes\r\n0x89ABCDEF01234567\r\n"},
      {{&value, 8, OSS_LOG_SINT}, "DATA #20: Sint64, 8 bytes\r\n-8526495043095935641\r\n"},
      {{&value, 8, OSS_LOG_UINT}, "DATA #20: Uint64, 8 bytes\r\n9920249030613615975\r\n"},
      {{&value, 4, OSS_LOG_BOOL}, "DATA #20: Bool, 4 bytes\r\ntrue\r\n"},
      {{"A", 1, OSS_LOG_CHAR}, "DATA #20: Char, 1 bytes\r\nA\r\n"},
      {{nullptr, 8, OSS_LOG_HEX}, "DATA #20: \r\nNULL\r\n"},
  };
  for (const Row& row : rows)
    for (size_t room = 1; room <= row.whole.size() + 2; ++room)
      EXPECT_EQ(shownIn(room, row.item), cut(row.whole, room)) << room;
}

// The line end behind a string needs three bytes, so two are left unused.
TEST(LogRoom, AStringIsCutAndEndsItsLineOnlyWithThreeBytesLeft) {
  const std::string label = "DATA #20: String, 26 bytes\r\n";
  const std::string text = "abcdefghijklmnopqrstuvwxyz";
  for (size_t room = 1; room <= 70; ++room) {
    const std::string start = cut(label + text, room);
    const bool lineEnds = room - start.size() >= 3;
    EXPECT_EQ(shownIn(room, {text.data(), text.size(), OSS_LOG_STRING}),
              lineEnds ? start + "\r\n" : start)
        << room;
  }
}

// ---- Dumps ----

TEST(LogRoom, AFullDumpNeeds1953Bytes) {
  const std::vector<uint8_t> bytes = countingBytes(600);
  const auto firstLine = [&](size_t room, uint64_t size) {
    const std::string text = shownIn(room + kLabelLength, {bytes.data(), size, OSS_LOG_DUMP});
    return text.substr(0, text.find("\r\n"));
  };
  EXPECT_EQ(firstLine(1953, 512), "DATA #20: <hexdump>, 512 bytes");
  EXPECT_EQ(firstLine(1952, 512), "DATA #20: <hexdump>, 496 bytesof 512");
  EXPECT_EQ(firstLine(1953, 600), "DATA #20: <hexdump>, 512 bytesof 600");
  EXPECT_EQ(firstLine(1952, 600), "DATA #20: <hexdump>, 496 bytesof 600");
}

// Deliberate: the estimate takes 16 bytes for no line and 33 to 48 bytes for two.
TEST(LogRoom, TheEstimateOfADumpCountsOddNumbersOfLinesTooLow) {
  const std::vector<uint8_t> bytes = countingBytes(64);
  const auto firstLine = [&](size_t room, uint64_t size) {
    const std::string text = shownIn(room + kLabelLength, {bytes.data(), size, OSS_LOG_DUMP});
    return text.substr(0, text.find("\r\n"));
  };
  EXPECT_EQ(firstLine(30, 16), "DATA #20: <hexdump>, 16 bytes");
  EXPECT_EQ(firstLine(30, 1), "DATA #20: <hexdump>, 1 bytes");
  EXPECT_EQ(firstLine(122, 17), "DATA #20: <hexdump>, 16 bytesof 17");
  EXPECT_EQ(firstLine(123, 17), "DATA #20: <hexdump>, 17 bytes");
  EXPECT_EQ(firstLine(122, 48), "DATA #20: <hexdump>, 16 bytesof 48");
  EXPECT_EQ(firstLine(123, 48), "DATA #20: <hexdump>, 48 bytes");
  EXPECT_EQ(firstLine(61, 32), "DATA #20: <hexdump>, 0 bytesof 32");
  EXPECT_EQ(firstLine(62, 32), "DATA #20: <hexdump>, 16 bytesof 32");
}

// Bytes of a dump that fit by that estimate.
uint64_t dumpedBytes(uint64_t size, size_t room) {
  uint64_t padded = size + 15;
  if (padded / 16 % 2 == 1) padded -= 16;
  return padded / 16 * 61 + 1 <= room ? size : std::min<uint64_t>(size, (room - 1) / 61 * 16);
}

std::string dumpIn(size_t room, const std::vector<uint8_t>& bytes, uint64_t fullSize) {
  const uint64_t size = dumpedBytes(bytes.size(), room);
  return "<hexdump>, " + std::to_string(size) + " bytes" +
         (size < fullSize ? "of " + std::to_string(fullSize) : "") + "\r\n" +
         dumpLines(bytes.data(), size);
}

TEST(LogRoom, ADumpShowsWhatItsEstimateAdmitsAndIsCutAtTheEnd) {
  for (const size_t size : {0U, 1U, 15U, 16U, 17U, 32U, 33U, 48U, 49U, 64U, 255U, 512U}) {
    const std::vector<uint8_t> bytes = countingBytes(size);
    const size_t enough = kLabelLength + 32 + size / 16 * 61 + 2 * 61;
    for (size_t room = 1; room <= enough; ++room) {
      const std::string dump = room > kLabelLength ? dumpIn(room - kLabelLength, bytes, size) : "";
      ASSERT_EQ(shownIn(room, {bytes.data(), size, OSS_LOG_DUMP}), cut("DATA #20: " + dump, room))
          << size << " bytes in " << room;
    }
  }
}

}  // namespace
}  // namespace oss
