#include "memory/ossmemdbgsetting.h"

#include <algorithm>
#include <cstring>

#include "ossmemory.h"

namespace oss {
namespace {

struct Level {
  const char* name;
  uint32_t eyeCatcher;
  uint32_t flags;
  bool listsLeaks;
};

constexpr Level kLevels[] = {
    {"FULL", OSS_MEM_DEBUG_FULL, 0x0F, false},   {"CORRUPTIONS", OSS_MEM_DEBUG_FULL, 0x0F, false},
    {"LEAKS", OSS_MEM_DEBUG_FULL, 0x2F, true},   {"ALL", OSS_MEM_DEBUG_FULL, 0x2F, true},
    {"LIGHT", OSS_MEM_DEBUG_LIGHT, 0x0B, false},
};

// The case of ASCII letters only, whatever the process's locale.
char upper(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

bool equalIgnoringCase(const char* a, const char* b) noexcept {
  while (*a != '\0' && upper(*a) == upper(*b)) ++a, ++b;
  return *a == '\0' && *b == '\0';
}

struct Part {
  const char* begin;
  size_t length;
};

// The next part from `*text` on, which moves behind it; of length 0 when there is none.
Part nextPart(const char** text) noexcept {
  const char* const begin = *text + std::strspn(*text, ",");
  const size_t length = std::strcspn(begin, ",");
  *text = begin + length;
  return {begin, length};
}

template <size_t Size>
void keep(char (&to)[Size], Part part) noexcept {
  const size_t length = std::min(part.length, Size - 1);
  std::memcpy(to, part.begin, length);
  to[length] = '\0';
}

}  // namespace

MemDebugSetting parseMemDebugSetting(const char* value) noexcept {
  MemDebugSetting setting;
  setting.eyeCatcher = OSS_MEM_DEBUG_OFF;
  keep(setting.value, {value, std::strlen(value)});

  const char* rest = setting.value;
  keep(setting.directory, nextPart(&rest));
  keep(setting.level, nextPart(&rest));
  if (nextPart(&rest).length != 0) return setting;

  for (const Level& level : kLevels) {
    if (!equalIgnoringCase(setting.level, level.name)) continue;
    setting.isValid = true;
    setting.eyeCatcher = level.eyeCatcher;
    setting.flags = level.flags;
    setting.listsLeaks = level.listsLeaks;
  }
  return setting;
}

}  // namespace oss
