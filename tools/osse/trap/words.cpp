#include "trap/words.h"

#include <chrono>

#include "digits.h"

namespace oss::tool {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

}  // namespace

std::string hexOf(uint64_t value) {
  char text[kLongestNumber];
  return {text, putHex(text, value)};
}

std::string addressOf(uint64_t address) {
  std::string text = "0x0000000000000000";
  for (size_t digit = text.size(); address != 0; address >>= 4)
    text[--digit] = kDigits[address & 15];
  return text;
}

std::string digitsOf(std::string_view bytes) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string utf8Of(std::string_view latin1) {
  std::string text;
  for (const char c : latin1) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x80) text += static_cast<char>(0xC0 | byte >> 6);
    text += byte < 0x80 ? c : static_cast<char>(0x80 | (byte & 0x3F));
  }
  return text;
}

std::string utcOf(uint32_t seconds) {
  using namespace std::chrono;
  constexpr uint32_t kDay = 86'400;
  const year_month_day date = sys_days(days(seconds / kDay));
  char text[8 * kLongestNumber];
  char* out = putDecimal(text, static_cast<uint64_t>(static_cast<int>(date.year())));
  const auto put = [&out](char before, uint32_t value) {
    *out++ = before;
    putPair(out, value);
    out += 2;
  };
  put('-', static_cast<unsigned>(date.month()));
  put('-', static_cast<unsigned>(date.day()));
  put('T', seconds % kDay / 3600);
  put(':', seconds % 3600 / 60);
  put(':', seconds % 60);
  return {text, putChar(out, 'Z')};
}

}  // namespace oss::tool
