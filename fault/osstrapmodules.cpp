#include "fault/osstrapmodules.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "fault/ossprocessmemory.h"
#include "fault/osstrapwriter.h"
#include "ossstackwalk.h"

namespace oss {
namespace {

constexpr size_t kMostName = 260;

constinit std::atomic<KeptModule*> g_kept = nullptr;

// Read from the image's header, as the debugging-help library reads it: that is being enumerated,
// under one of its mutexes, and would take a second.
uint32_t linkTimeStamp(HANDLE process, uint64_t base) noexcept {
  const ProcessMemory memory(process);
  IMAGE_DOS_HEADER dos;
  IMAGE_NT_HEADERS64 image;
  if (!memory.read(base, &dos, sizeof dos) || dos.e_magic != IMAGE_DOS_SIGNATURE) return 0;
  if (!memory.read(base + static_cast<uint64_t>(dos.e_lfanew), &image, sizeof image)) return 0;
  return image.Signature == IMAGE_NT_SIGNATURE ? image.FileHeader.TimeDateStamp : 0;
}

// The records of one enumeration, first to last. From the C run-time: the library's own allocator
// may be what failed.
struct ModuleList {
  HANDLE process;
  KeptModule* first = nullptr;
  KeptModule** end = &first;

  void append(const OSSTrapModule& module) noexcept {
    auto* const link = static_cast<KeptModule*>(std::malloc(sizeof(KeptModule)));
    auto* const record = static_cast<OSSTrapModule*>(std::malloc(sizeof(OSSTrapModule)));
    if (link == nullptr || record == nullptr) {
      std::free(link);
      std::free(record);
      return;
    }
    *end = new (link) KeptModule{nullptr, new (record) OSSTrapModule(module)};
    end = &link->next;
  }
};

int keepModule(const char* name, uint64_t base, unsigned long size, void* list) noexcept {
  auto& modules = *static_cast<ModuleList*>(list);
  modules.append(trapModule(modules.process, name, base, size));
  return TRUE;
}

// The file that one enumeration appends to.
struct ModuleFile {
  HANDLE process;
  OSSTrapFile* file;
};

int writeModule(const char* name, uint64_t base, unsigned long size, void* to) noexcept {
  const auto& [process, file] = *static_cast<const ModuleFile*>(to);
  TrapWriter::appendModule(*file, trapModule(process, name, base, size));
  return TRUE;
}

bool isThisProcess(HANDLE process) noexcept {
  return ::GetProcessId(process) == ::GetCurrentProcessId();
}

// Where an image of this process has the marker of the product's modules; 0 if it has none.
uint64_t markerOf(uint64_t base) noexcept {
  auto* const image = reinterpret_cast<HMODULE>(base);
  return reinterpret_cast<uint64_t>(::GetProcAddress(image, "sqlzThisIsAKT5Library"));
}

}  // namespace

OSSTrapModule trapModule(HANDLE process, const char* name, uint64_t base, uint64_t size) noexcept {
  OSSTrapModule module;
  for (size_t i = 0; i < kMostName && name[i] != '\0'; ++i) module.name[i] = name[i];
  module.marker = isThisProcess(process) ? markerOf(base) : 0;
  module.base = base;
  module.end = base + size;
  module.timeStamp = linkTimeStamp(process, base);
  return module;
}

int recordModules(HANDLE process, OSSTrapFile* file) noexcept {
  if (file != nullptr && file->isValid()) {
    ModuleFile to{process, file};
    return ossEnumerateLoadedModules(process, writeModule, &to);
  }

  ModuleList found{process};
  const int result = ossEnumerateLoadedModules(process, keepModule, &found);
  if (found.first != nullptr) releaseModules(g_kept.exchange(found.first));
  return result;
}

KeptModule* takeKeptModules() noexcept { return g_kept.exchange(nullptr); }

void releaseModules(KeptModule* modules) noexcept {
  while (modules != nullptr) {
    KeptModule* const next = modules->next;
    std::free(modules->record);
    std::free(modules);
    modules = next;
  }
}

}  // namespace oss
