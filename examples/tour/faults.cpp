// Three faults, each in a process of its own, whose handler writes a trap file and a line of an XML
// report. The tour then reads the trap files.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "ossfault.h"
#include "tour.h"

namespace tour {
namespace {

struct Fault {
  const char* name;
  void (*function)();
};

// Written in assembly, where the compiler does not see what is wrong with them.
void writeToNull() { __asm__ volatile("xorl %%eax, %%eax\n movl $1, (%%rax)" ::: "eax", "memory"); }
void divideByZero() {
  __asm__ volatile("xorl %%ecx, %%ecx\n xorl %%edx, %%edx\n movl $1, %%eax\n idivl %%ecx" ::
                       : "eax", "ecx", "edx");
}
void executeNothing() { __asm__ volatile("ud2"); }

const Fault kFaults[] = {{"null-write", writeToNull},
                         {"division-by-zero", divideByZero},
                         {"illegal-instruction", executeNothing}};

const char* g_fault = nullptr;
const char* g_folder = nullptr;

std::string pathOf(const char* folder, const char* name) {
  return std::string(folder) + "tour." + name;
}

// The report of all faults: its closing tag is overwritten by the next fault's line.
void appendToReport(const EXCEPTION_RECORD& exception) {
  OSSTrapFile report;
  if (report.open(pathOf(g_folder, "traps.xml").c_str(), OSS_PRIMITIVE_OPEN_ALWAYS) != 0) return;
  if (report.writeXMLProlog()) report.fwrite("<traps>\n");
  report.fwrite(
      "<trap fault=\"%s\" process=\"%lu\" code=\"0x%08lX\" address=\"0x%p\"/>\n</traps>\n", g_fault,
      ::GetCurrentProcessId(), exception.ExceptionCode, exception.ExceptionAddress);
  report.close();
}

LONG WINAPI handle(EXCEPTION_POINTERS* fault) {
  OSSTrapFile trap;
  const std::string path = pathOf(g_folder, g_fault) + ".trap";
  if (trap.open(path.c_str(), OSS_PRIMITIVE_OPEN_ALWAYS) == 0) {
    trap.seekToEnd();  // behind the dumps of earlier faults
    trap.initialize(0, fault->ExceptionRecord, fault->ContextRecord, nullptr);
    trap.dump(OSS_TRAP_ALL, 0, fault->ExceptionRecord, fault->ContextRecord);
    trap.close();
  }
  appendToReport(*fault->ExceptionRecord);
  return EXCEPTION_EXECUTE_HANDLER;  // the process ends with the exception's code
}

DWORD runToItsEnd(const Stage& stage, const Fault& fault) {
  // A backslash in front of a quotation mark would take it along.
  std::string command =
      "\"" + stage.ownProgram + "\" --fault " + fault.name + " \"" + stage.folder + ".\"";
  STARTUPINFOA startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process))
    return 0;
  DWORD code = 0;
  ::WaitForSingleObject(process.hProcess, 30'000);
  ::GetExitCodeProcess(process.hProcess, &code);
  ::CloseHandle(process.hThread);
  ::CloseHandle(process.hProcess);
  return code;
}

// Reads a trap file that holds nothing but a header, an exception, modules and so on: the sections
// between are skipped by their sizes.
bool showTrap(const std::string& path) {
  OSSPrimitiveFileOp file;
  if (file.open(path.c_str(), OSS_PRIMITIVE_READ | OSS_PRIMITIVE_OPEN_EXISTING) != 0) return false;
  uint64_t count = 0;
  const auto take = [&file, &count](void* to, uint64_t size) {
    return file.read(size, to, &count) == 0 && count == size;
  };
  const auto skip = [&file](uint64_t size) {
    file.seekToOffset(file.getCurrentOffset() + static_cast<uint32_t>(size));
  };

  OSSTrapHeader header;
  bool isWhole =
      take(&header, sizeof header) && std::memcmp(header.eyeCatcher, OSS_TRAP_EYE_CATCHER, 8) == 0;
  skip(48 + 148 + 64);
  for (uint64_t length = 0; isWhole && take(&length, sizeof length);) {
    char text[16] = {};
    if (length != 11) {
      skip(length);
    } else if (take(text, 11) && std::strcmp(text, OSS_TRAP_ENVIRONMENT_END) == 0) {
      break;
    }
  }
  EXCEPTION_RECORD exception;
  isWhole = isWhole && take(&exception, sizeof exception);
  skip(sizeof(CONTEXT));
  if (isWhole) {
    const auto at = reinterpret_cast<uint64_t>(exception.ExceptionAddress);
    note("process %u, thread %u, %04u-%02u-%02u %02u:%02u:%02u", header.processId, header.threadId,
         header.time.year, header.time.month, header.time.day, header.time.hour, header.time.minute,
         header.time.second);
    note("exception 0x%08lX at 0x%016llX", exception.ExceptionCode, at);
    for (uint16_t i = 0; i < header.modules; ++i) {
      OSSTrapModule module;
      if (take(&module, sizeof module) && module.base <= at && at < module.end)
        note("in %s + 0x%llX, one of %u modules", module.name, at - module.base, header.modules);
    }
    note("%u instruction bytes from 0x%016llX on", header.instructionBytes, header.instructions);
  }
  file.close();
  return isWhole;
}

}  // namespace

int fault(const char* name, const char* folder) {
  for (const Fault& known : kFaults) {
    if (std::strcmp(name, known.name) != 0) continue;
    const std::string prefix = std::string(folder) + "\\";
    g_fault = name;
    g_folder = prefix.c_str();
    ::SetUnhandledExceptionFilter(handle);
    known.function();
  }
  return 1;
}

void catchFaults(const Stage& stage) {
  act("Three processes fault, and each leaves a trap file");
  std::remove((stage.folder + "tour.traps.xml").c_str());
  for (const Fault& known : kFaults) {
    const std::string path = pathOf(stage.folder.c_str(), known.name) + ".trap";
    std::remove(path.c_str());
    const DWORD code = runToItsEnd(stage, known);
    std::printf("  %s ended a process with 0x%08lX; %s\n", known.name, code, path.c_str());
    if (!showTrap(path)) expected("the trap file", ECF_FAILED, ECF_OK);
  }
}

}  // namespace tour
