// trapfaults.cpp - trapfaults HOW FILE: a program that faults, and whose handler writes a trap
// file.
//
// A program of its own, for Wine's debugging-help library reads the debug information of every
// module, and falls over that of the test programs, which has thousands of templates.
#include <windows.h>

#include <cstdint>
#include <string_view>

#include "osstrapfile.h"

namespace {

constexpr UINT kTrapped = 77;
constexpr int kDidNotFault = 1;
const char* path = nullptr;

LONG CALLBACK writeTrap(EXCEPTION_POINTERS* fault) {
  OSSTrapFile trap;
  trap.open(path, OSS_PRIMITIVE_OPEN_ALWAYS);
  trap.seekToEnd();
  trap.initialize(0, fault->ExceptionRecord, fault->ContextRecord, nullptr);
  trap.dump(OSS_TRAP_ALL, 0, fault->ExceptionRecord, fault->ContextRecord);
  trap.close();
  ::TerminateProcess(::GetCurrentProcess(), kTrapped);
  return EXCEPTION_CONTINUE_SEARCH;
}

[[gnu::noinline]] void fault(std::string_view how) {
  if (how == "write") asm volatile("movl $1, (%0)" : : "a"(uint64_t{16}) : "memory");
  if (how == "divide") asm volatile("divl %0" : : "c"(0), "a"(1), "d"(0));
  if (how == "illegal") asm volatile("ud2");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return kDidNotFault;
  path = argv[2];
  ::SetUnhandledExceptionFilter(&writeTrap);
  fault(argv[1]);
  return kDidNotFault;
}
