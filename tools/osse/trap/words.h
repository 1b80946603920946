// words.h - numbers and foreign bytes as the text that a reader of a trap file sees.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace oss::tool {

// "0x" and as many digits as the value has.
std::string hexOf(uint64_t value);
// The same with all 16 digits, so that addresses stand below each other.
std::string addressOf(uint64_t address);

// The bytes as pairs of digits, without anything between them.
std::string digitsOf(std::string_view bytes);

// UTF-8 of bytes that are taken for ISO 8859-1: a trap file does not tell the code page of its
// process. No bytes are refused, and each stays one character.
std::string utf8Of(std::string_view latin1);

// A field of a record up to its first zero.
template <size_t kSize>
std::string_view textIn(const char (&field)[kSize]) {
  const std::string_view all(field, kSize);
  return all.substr(0, all.find('\0'));
}

// "2026-11-22T01:26:23Z" for seconds since 1970.
std::string utcOf(uint32_t seconds);

}  // namespace oss::tool
