// Feeds texts and bases to the conversions from text, and compares every result with a plain
// reading of their rules: one digit at a time, over 128 bits.
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "osscatalog.h"
#include "ossstring.h"
#include "tests/fuzz/require.h"
#include "tests/numeric/native128.h"

namespace {

constexpr Native kWord = Native{1} << 64;

bool isBlank(char c) { return c != '\0' && std::strchr(" \t\n\v\f\r", c) != nullptr; }

int64_t worth(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  return INT64_MAX;
}

struct Expected {
  uint64_t value = 0;
  size_t used = 0;
  bool outOfRange = false;
};

Expected expected(const std::string& text, int64_t base, bool isSigned) {
  const char* const start = text.c_str();
  const char* at = start;
  while (isBlank(*at)) ++at;
  const bool negative = *at == '-';
  if (*at == '-' || *at == '+') ++at;
  if (*at == '\0' || isBlank(*at)) return {};

  const bool prefixed = at[0] == '0' && (at[1] == 'x' || at[1] == 'X');
  if (base == 0) base = prefixed ? 16 : (at[0] == '0' && at[1] != '\0' ? 8 : 10);
  if (base == 16 && prefixed) {
    if (worth(at[2]) >= 16) return {.used = static_cast<size_t>(at + 1 - start)};
    at += 2;
  }

  Native value = 0;
  bool overflow = false;
  for (; worth(*at) < base; ++at) {
    const Native next =
        (value * static_cast<Native>(base) + static_cast<Native>(worth(*at))) % kWord;
    if (value == kWord - 1 || next < value) overflow = true;
    if (!overflow) value = next;
  }

  const Native limit = !isSigned ? kWord - 1 : kWord / 2 - (negative ? 0 : 1);
  const bool outOfRange = overflow || value > limit;
  if (outOfRange) value = limit;
  const bool negate = negative && (isSigned || !outOfRange);
  return {static_cast<uint64_t>(negate ? kWord - value : value), static_cast<size_t>(at - start),
          outOfRange};
}

void checkInteger(const std::string& text, uint32_t base) {
  constexpr int kUntouched = 7;
  char* end = nullptr;

  const Expected forUnsigned = expected(text, base, false);
  errno = kUntouched;
  require(ossStrToUint64(text.c_str(), &end, base) == forUnsigned.value);
  require(errno == (forUnsigned.outOfRange ? 34 : kUntouched));
  require(end == text.c_str() + forUnsigned.used);

  const auto signedBase = static_cast<int32_t>(base);
  const Expected forSigned = expected(text, signedBase, true);
  errno = kUntouched;
  require(static_cast<uint64_t>(ossStrToSint64(text.c_str(), &end, signedBase)) == forSigned.value);
  require(errno == (forSigned.outOfRange ? 34 : kUntouched));
  require(end == text.c_str() + forSigned.used);
}

void checkBoolean(const std::string& text) {
  std::string folded = "|";
  for (const char c : text) folded += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  folded += '|';
  const bool plain = text.find('|') == std::string::npos;
  const bool isTrue = plain && std::string("|1|ON|Y|YES|T|TRUE|").find(folded) != std::string::npos;
  const bool isFalse =
      plain && std::string("|0|OFF|N|NO|F|FALSE|").find(folded) != std::string::npos;

  bool value = !isTrue;
  require(ossStrToBoolean(text.c_str(), &value) ==
          (isTrue || isFalse ? ECF_OK : ECF_OSS_NOT_BOOLEAN_STRING));
  require(value == isTrue);
}

void checkFormatter(const std::string& text, size_t size) {
  char* const buffer = new char[size];  // its bounds are watched
  const uint64_t length = ossSnprintf(buffer, size, "%s", text.c_str());
  if (size == 0) require(length == 0);
  if (size != 0) require(text.substr(0, size - 1) == buffer && length == std::strlen(buffer));
  delete[] buffer;
}

}  // namespace

// The first byte chooses the base, the second the size of a buffer, the rest is the text.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  constexpr uint32_t kOddBases[] = {0, 8, 10, 16, 1, 100, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
  const uint32_t base = data[0] < 37 ? data[0] : kOddBases[data[0] % std::size(kOddBases)];
  const std::string text =
      std::string(reinterpret_cast<const char*>(data) + 2, size - 2).c_str();  // to its first NUL

  checkInteger(text, base);
  checkBoolean(text);
  checkFormatter(text, data[1]);
  return 0;
}
