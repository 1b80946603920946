#include "process/osscommandline.h"

#include <algorithm>
#include <cstring>

namespace oss {
namespace {

constexpr char kQuote = '"';

bool isQuoted(const char* program) noexcept { return *program == kQuote; }

// Copies a text without its NUL. Returns the place behind it.
char* append(char* out, const char* text) noexcept {
  return std::copy_n(text, std::strlen(text), out);
}

const char* next(const char* argument) noexcept { return argument + std::strlen(argument) + 1; }

}  // namespace

uint64_t commandBytes(const char* program) noexcept {
  return std::strlen(program) + 3 + (isQuoted(program) ? 0 : 2);
}

void writeCommand(const char* program, char* out) noexcept {
  const bool quoted = isQuoted(program);
  if (!quoted) *out++ = kQuote;
  out = append(out, program);
  if (!quoted) *out++ = kQuote;
  *out = '\0';
}

uint64_t commandLineBytes(const char* command, const char* arguments) noexcept {
  uint64_t bytes = std::strlen(command) + 1;
  for (const char* argument = arguments; *argument != '\0'; argument = next(argument))
    bytes += std::strlen(argument) + 1;
  return bytes;
}

void writeCommandLine(const char* command, const char* arguments, char* out) noexcept {
  out = append(out, command);
  for (const char* argument = arguments; *argument != '\0'; argument = next(argument)) {
    *out++ = ' ';
    out = append(out, argument);
  }
  *out = '\0';
}

}  // namespace oss
