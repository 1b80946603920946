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
uint32_t linkTimeStamp(uint64_t base) noexcept {
  const ProcessMemory memory(::GetCurrentProcess());
  IMAGE_DOS_HEADER dos;
  IMAGE_NT_HEADERS64 image;
  if (!memory.read(base, &dos, sizeof dos) || dos.e_magic != IMAGE_DOS_SIGNATURE) return 0;
  if (!memory.read(base + static_cast<uint64_t>(dos.e_lfanew), &image, sizeof image)) return 0;
  return image.Signature == IMAGE_NT_SIGNATURE ? image.FileHeader.TimeDateStamp : 0;
}

// The records of one enumeration, first to last. From the C run-time: the library's own allocator
// may be what failed.
struct ModuleList {
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
  static_cast<ModuleList*>(list)->append(trapModule(name, base, size));
  return TRUE;
}

int writeModule(const char* name, uint64_t base, unsigned long size, void* file) noexcept {
  TrapWriter::appendModule(*static_cast<OSSTrapFile*>(file), trapModule(name, base, size));
  return TRUE;
}

}  // namespace

OSSTrapModule trapModule(const char* name, uint64_t base, uint64_t size) noexcept {
  OSSTrapModule module;
  for (size_t i = 0; i < kMostName && name[i] != '\0'; ++i) module.name[i] = name[i];
  auto* const image = reinterpret_cast<HMODULE>(base);
  module.marker = reinterpret_cast<uint64_t>(::GetProcAddress(image, "sqlzThisIsAKT5Library"));
  module.base = base;
  module.end = base + size;
  module.timeStamp = linkTimeStamp(base);
  return module;
}

int recordModules(HANDLE process, OSSTrapFile* file) noexcept {
  if (file != nullptr && file->isValid())
    return ossEnumerateLoadedModules(process, writeModule, file);

  ModuleList found;
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
