// Memory: the debug modes and what they find, areas, the leak list of a process that ends.
#include <windows.h>

#include <cstdio>
#include <cstring>

#include "ossassert.h"
#include "ossmemory.h"
#include "ossstring.h"
#include "tour.h"

namespace tour {
namespace {

void showFinding(const char* expression, const char* file, uint64_t line, const char*, uint8_t,
                 va_list) {
  note("found: %s %s, line %llu", expression, file, line);
}

void* allocate(uint64_t size) {
  void* block = nullptr;
  told("ossMemAlloc", ossMemAlloc(&block, nullptr, size, 0, __FILE__, __LINE__));
  return block;
}

// A mode with an overrun by one byte and a second release.
void showMode(const char* name, uint32_t eyeCatcher) {
  note("-- %s", name);
  told("ossMemSetDebug", ossMemSetDebug(OSS_MEM_FILL_FREED, eyeCatcher, 2, 2));
  void* block = allocate(5);
  if (block == nullptr) return;

  static_cast<char*>(block)[5] = 'x';
  void* again = block;
  told("ossMemFree, a block written one byte too far",
       ossMemFree(&block, nullptr, 0, __FILE__, __LINE__));
  told("ossMemFree, the same block again", ossMemFree(&again, nullptr, 0, __FILE__, __LINE__));
}

void showArea() {
  note("-- an area of 1,000 bytes");
  alignas(8) static char memory[1000];
  told("ossMemAreaInit", ossMemAreaInit(memory, sizeof memory));
  const auto* const area = reinterpret_cast<const OSSMemArea*>(memory);
  note("%llu bytes to use, the first free chunk at %llu", area->usableSize, area->firstFree);

  // The smallest chunk that fits is the one that will be taken; here there is one only.
  void* chunk = memory + area->firstFree;
  void* out = nullptr;
  told("ossMemAlloc, 10 bytes of it", ossMemAlloc(&out, memory, 10, 0, __FILE__, __LINE__));
  note("the first free chunk is now at %llu", area->firstFree);
  told("ossMemFree", ossMemFree(&chunk, memory, 10, __FILE__, __LINE__));
}

void showFile(const std::string& path) {
  std::FILE* const file = std::fopen(path.c_str(), "r");
  if (file == nullptr) {
    expected(path.c_str(), ECF_FILE_DOESNT_EXIST, ECF_OK);
    return;
  }
  note("%s:", path.c_str());
  char line[512];
  while (std::fgets(line, sizeof line, file) != nullptr) std::printf("    | %s", line);
  std::fclose(file);
}

// Starts the tour once more, to leak with the leak list asked for, and shows what that left.
void showLeaks(const Stage& stage) {
  const std::string directory =
      stage.folder.empty() ? "." : stage.folder.substr(0, stage.folder.size() - 1);
  ::SetEnvironmentVariableA("OSSEMEMDBG", (directory + ",LEAKS").c_str());
  std::string command = "\"" + stage.ownProgram + "\" --leak";
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  const BOOL started = ::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0,
                                        nullptr, nullptr, &startup, &process);
  ::SetEnvironmentVariableA("OSSEMEMDBG", nullptr);
  if (!started) {
    expected("the leaking process", ECF_FAILED, ECF_OK);
    return;
  }
  ::WaitForSingleObject(process.hProcess, INFINITE);
  ::CloseHandle(process.hProcess);
  ::CloseHandle(process.hThread);

  note("-- a process with OSSEMEMDBG=%s,LEAKS that frees one block of three", directory.c_str());
  const std::string prefix = directory + "\\";
  showFile(prefix + "ossememdbg.log");
  char name[64];
  ossSnprintf(name, sizeof name, "p%lut%lu_leaks.mem", process.dwProcessId, process.dwThreadId);
  showFile(prefix + name);
}

}  // namespace

int leak() {
  void* blocks[3] = {};
  for (void*& block : blocks)
    if (ossMemAlloc(&block, nullptr, 100, 0, __FILE__, __LINE__) != ECF_OK) return 1;
  return ossMemFree(&blocks[1], nullptr, 0, __FILE__, __LINE__) == ECF_OK ? 0 : 1;
}

void debugMemory(const Stage& stage) {
  act("Memory is debugged");
  ossSetAssertionCallback(showFinding);
  showMode("off", OSS_MEM_DEBUG_OFF);
  showMode("LIGHT", OSS_MEM_DEBUG_LIGHT);
  showMode("FULL", OSS_MEM_DEBUG_FULL);
  told("ossMemSetDebug, off again", ossMemSetDebug(0, OSS_MEM_DEBUG_OFF, 0, 0));
  ossSetAssertionCallback(nullptr);
  showArea();
  showLeaks(stage);
}

}  // namespace tour
