// decfloattext.h - decimal numbers as tests see them: by code and text.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>

#include "osscatalog.h"
#include "ossdecfloat.h"

// What toString did: its code, and the buffer up to where it was not touched.
struct Shown {
  OSSErr rc;
  std::string buffer;
  bool operator==(const Shown&) const = default;
};
inline void PrintTo(const Shown& shown, std::ostream* out) {
  *out << std::hex << shown.rc << ", " << testing::PrintToString(shown.buffer);
}

inline Shown show(const OSSDecfloat& number, uint64_t size = 42) {
  char buffer[64];
  std::memset(buffer, '#', sizeof buffer);
  const OSSErr rc = number.toString(buffer, size);
  return {rc, std::string(buffer, std::string(buffer, sizeof buffer).find('#'))};
}

inline Shown written(const std::string& text) { return {ECF_OK, text + '\0'}; }

// The text alone; the code in its place when there is none.
inline std::string textOf(const OSSDecfloat& number) {
  const Shown shown = show(number);
  return shown.rc == ECF_OK ? shown.buffer.substr(0, shown.buffer.size() - 1)
                            : "code " + std::to_string(shown.rc);
}

// What fromString did: its code, and the text of the number it left.
struct Read {
  OSSErr rc;
  std::string text;
  bool operator==(const Read&) const = default;
};
inline void PrintTo(const Read& read, std::ostream* out) {
  *out << std::hex << read.rc << ", " << read.text;
}

template <class Number>
Read read(const char* text, OSSDecfloatRounding rounding = OSS_DECFLOAT_ROUND_HALF_EVEN) {
  Number number;
  const OSSErr rc = number.fromString(text, rounding);
  return {rc, textOf(number)};
}

inline Read read16(const char* text, OSSDecfloatRounding rounding = OSS_DECFLOAT_ROUND_HALF_EVEN) {
  return read<OSSDecfloat16>(text, rounding);
}
inline Read read34(const char* text, OSSDecfloatRounding rounding = OSS_DECFLOAT_ROUND_HALF_EVEN) {
  return read<OSSDecfloat34>(text, rounding);
}
