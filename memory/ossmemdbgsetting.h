// ossmemdbgsetting.h - the value of OSSEMEMDBG, taken apart. Pure.
#pragma once

#include <cstdint>

namespace oss {

struct MemDebugSetting {
  char value[260] = {};      // the variable, cut
  char directory[260] = {};  // the first part; empty when there is none
  char level[19] = {};       // the second part as written, cut
  bool isValid = false;      // two parts, the second one a level
  uint32_t eyeCatcher;       // what the level asks for; OFF unless valid
  uint32_t flags = 0;
  bool listsLeaks = false;  // the live blocks are listed at the process's end
};

// Parts are separated by commas; empty parts do not count.
MemDebugSetting parseMemDebugSetting(const char* value) noexcept;

}  // namespace oss
