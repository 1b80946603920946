// peimage.h - what a loaded module imports and exports, read from its tables in memory.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace osse_test {

// The module under test: the DLL if the program has loaded it, else the program, which then holds
// the library's objects itself.
HMODULE libraryModule();

// A module's file name without its folder, for messages.
std::string nameOf(HMODULE module);

struct Import {
  std::string library;  // as the module spells it
  std::string function;
  void** entry;  // where the module keeps the function's address
};

// Everything that the module imports by name. One function may stand there more than once.
std::vector<Import> importsOf(HMODULE module);

// The names that the module exports, sorted.
std::vector<std::string> exportsOf(HMODULE module);

}  // namespace osse_test
