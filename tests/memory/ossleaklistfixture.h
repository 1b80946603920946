// ossleaklistfixture.h - what the tests of the list of live blocks share: its texts.
#pragma once

#include <cstdio>
#include <string>

#include "memory/ossmemoryfixture.h"

namespace osse_test {

inline const std::string kStars = std::string(76, '*') + '\n';
inline const std::string kEquals = std::string(76, '=') + '\n';
inline const std::string kHeading = kStars + "OSSe Unfreed Memory Blocks :\n" + kEquals;

inline std::string legendOf(const std::string& directory) {
  return kStars +
         "KT5 Support and Development can generate a report of possible memory leaks\n"
         "using the following command from any uselvl'd build:\n"
         "perl -S kt5reportleaks -path " +
         directory +
         "\n\n"
         "To display all available options, run \"perl -S kt5reportleaks -help\"\n" +
         kStars +
         "Legend:\n"
         "-------\n"
         "Addr - block address\n"
         "Code - block eye-catcher with flags\n"
         "Size - size of the block\n"
         "Line - line of code in a file\n"
         "File - file name\n" +
         kEquals + "OSSe Unfreed Memory Blocks :\n" + kEquals;
}

// What a file tells of a block that was allocated by allocate().
inline std::string listedInFile(const void* block, uint64_t size, uint32_t mark = kMarkAllocated) {
  char text[128];
  std::snprintf(text, sizeof text, "Addr: %016llx Code: 0x%x Size: %llu Line: 4711 File: a.c\n",
                reinterpret_cast<unsigned long long>(block), mark,
                static_cast<unsigned long long>(size));
  return text;
}

// And what standard output does.
inline std::string listedOnOutput(const void* block, uint64_t size) {
  char text[128];
  std::snprintf(text, sizeof text, "Address: %016llX Size: %llu Line: 4711 File: a.c\n",
                reinterpret_cast<unsigned long long>(block), static_cast<unsigned long long>(size));
  return text;
}

// The name of a file of the list: that of a process and of the thread that wrote it.
inline std::string listName(uint32_t processId, uint32_t threadId, const std::string& suffix) {
  return 'p' + std::to_string(processId) + 't' + std::to_string(threadId) + suffix;
}

}  // namespace osse_test
