// The wrappers of the debugging-help library, each a guarded call, and names for addresses.
#include "fault/ossSymFunctions.h"

#include <windows.h>

// Behind the system's types.
#include <dbghelp.h>

#include <atomic>
#include <cstring>

#include "fault/ossdebughelp.h"
#include "fault/osssectionguard.h"
#include "ossstring.h"
#include "osssymbol.h"

namespace oss {
namespace {

constinit std::atomic<bool> g_initialized = false;
constinit std::atomic<bool> g_preparing = false;  // a thread has changed the options
constinit std::atomic<uint64_t> g_initializeCalls = 0;
constinit std::atomic<HANDLE> g_callbackProcess = nullptr;

constexpr size_t kMostName = 260;

// Answers what a stack walk asks of the process's memory. What can be read of it may be less than
// was asked for.
BOOL CALLBACK answerRead(HANDLE process, ULONG request, ULONG64 data, ULONG64) {
  if (request != CBA_READ_MEMORY) return FALSE;

  const auto& read = *reinterpret_cast<const IMAGEHLP_CBA_READ_MEMORY*>(data);
  SIZE_T count = 0;
  const BOOL succeeded = ::ReadProcessMemory(process, reinterpret_cast<const void*>(read.addr),
                                             read.buf, read.bytes, &count);
  if (read.bytesread != nullptr) *read.bytesread = static_cast<DWORD>(count);
  return succeeded;
}

// A symbol's record with room for its name, which lies behind it.
struct NamedSymbol {
  IMAGEHLP_SYMBOL64 symbol;
  char name[kMostName];
};

// Initialises symbols in steps that `take` takes; it returns whether the step came to its end.
template <class Take>
void initializeBy(Take take) noexcept {
  // A second thread would take the changed options for the host's. It does not wait for the first,
  // which may be itself: a handler whose thread faulted in here comes again.
  const bool prepares = !g_initialized.load(std::memory_order_acquire) &&
                        !g_preparing.exchange(true, std::memory_order_acquire);
  DWORD options = 0;
  const bool defers = prepares && take([&options] {
                        options = ossSymGetOptions();
                        ossSymSetOptions(options | SYMOPT_DEFERRED_LOADS);
                      });
  take([] { ossSymInitialize(::GetCurrentProcess(), nullptr, TRUE); });
  if (defers) take([options] { ossSymSetOptions(options); });
  if (prepares) g_preparing.store(false, std::memory_order_release);
}

}  // namespace

void initializeSymbols() noexcept {
  initializeBy([](auto step) {
    step();
    return true;
  });
}

void initializeSymbolsGuarded() noexcept {
  initializeBy([](auto step) { return endsWithoutFault(step); });
}

uint64_t symInitializeCalls() noexcept { return g_initializeCalls.load(std::memory_order_relaxed); }

void withdrawStackWalkCallback() noexcept {
  const HANDLE process = g_callbackProcess.exchange(nullptr);
  if (process == nullptr) return;
  const auto registers =
      Guarded<decltype(::SymRegisterCallback64)>::find(GuardRow::SymRegisterCallback64);
  const GuardLock lock(GuardRow::SymRegisterCallback64, 0);
  if (registers != nullptr && lock.isIn()) registers(process, nullptr, 0);
}

}  // namespace oss

using namespace oss;

uint32_t ossLoadSymDLL() noexcept {
  loadGuardTable();
  return 0;
}

void ossFreeSymDLL() noexcept {}

int ossSymInitialize(void* process, const char* path, int invade) noexcept {
  g_initializeCalls.fetch_add(1, std::memory_order_relaxed);
  if (g_initialized.load(std::memory_order_acquire)) return FALSE;

  const auto initialize = Guarded<decltype(::SymInitialize)>::find(GuardRow::SymInitialize);
  if (initialize == nullptr) return FALSE;

  GuardLock lock(GuardRow::SymInitialize);
  // Another thread may have been faster.
  if (g_initialized.load(std::memory_order_relaxed)) return FALSE;
  const BOOL result = initialize(process, path, invade);
  if (result)
    g_initialized.store(true, std::memory_order_release);
  else
    lock.keepError();
  return result;
}

int ossSymCleanup(void*) noexcept { return 0; }

int ossSymGetSearchPath(void* process, char* path, unsigned long size) noexcept {
  return Guarded<decltype(::SymGetSearchPath)>::call(GuardRow::SymGetSearchPath, keepIfFailed,
                                                     process, path, size);
}

int ossSymSetSearchPath(void* process, const char* path) noexcept {
  return Guarded<decltype(::SymSetSearchPath)>::call(GuardRow::SymSetSearchPath, keepIfFailed,
                                                     process, path);
}

unsigned long ossSymGetOptions() noexcept {
  return Guarded<decltype(::SymGetOptions)>::call(GuardRow::SymGetOptions, keepNothing);
}

unsigned long ossSymSetOptions(unsigned long options) noexcept {
  return Guarded<decltype(::SymSetOptions)>::call(GuardRow::SymSetOptions, keepNothing, options);
}

API_VERSION* ossImagehlpApiVersion() noexcept {
  return Guarded<decltype(::ImagehlpApiVersion)>::call(GuardRow::ImagehlpApiVersion, keepNothing);
}

API_VERSION* ossImagehlpApiVersionEx(API_VERSION* expected) noexcept {
  return Guarded<decltype(::ImagehlpApiVersionEx)>::call(GuardRow::ImagehlpApiVersionEx,
                                                         keepNothing, expected);
}

int ossSymRegisterCallback(void* process, OSSSymbolCallback callback, uint64_t context) noexcept {
  const int result = Guarded<decltype(::SymRegisterCallback64)>::call(
      GuardRow::SymRegisterCallback64, keepIfFailed, process, callback, context);
  // What is registered now is the host's, which nobody takes from it.
  HANDLE replaced = process;
  if (result) g_callbackProcess.compare_exchange_strong(replaced, nullptr);
  return result;
}

int ossSymRegisterStackWalkCallback(void* process) noexcept {
  const int result = ossSymRegisterCallback(process, answerRead, 0);
  if (result) g_callbackProcess.store(process);
  return result;
}

int ossSymGetModuleInfo(void* process, uint64_t address, _IMAGEHLP_MODULE64* module) noexcept {
  return Guarded<decltype(::SymGetModuleInfo64)>::call(GuardRow::SymGetModuleInfo64, keepIfFailed,
                                                       process, address, module);
}

uint64_t ossSymGetModuleBase(void* process, uint64_t address) noexcept {
  // Deliberate: the address decides, not the result.
  const auto keepsError = [address](DWORD64) noexcept { return address == 0; };
  return Guarded<decltype(::SymGetModuleBase64)>::call(GuardRow::SymGetModuleBase64, keepsError,
                                                       process, address);
}

uint64_t ossSymLoadModule(void* process, void* file, const char* image, const char* name,
                          uint64_t base, unsigned long size) noexcept {
  return Guarded<decltype(::SymLoadModule64)>::call(GuardRow::SymLoadModule64, keepIfFailed,
                                                    process, file, image, name, base, size);
}

int ossSymUnloadModule(void* process, uint64_t base) noexcept {
  return Guarded<decltype(::SymUnloadModule64)>::call(GuardRow::SymUnloadModule64, keepIfFailed,
                                                      process, base);
}

unsigned long ossGetTimestampForLoadedLibrary(void* module) noexcept {
  return Guarded<decltype(::GetTimestampForLoadedLibrary)>::call(
      GuardRow::GetTimestampForLoadedLibrary, keepIfFailed, static_cast<HMODULE>(module));
}

void* ossSymFunctionTableAccess(void* process, uint64_t address) noexcept {
  return Guarded<decltype(::SymFunctionTableAccess64)>::call(GuardRow::SymFunctionTableAccess64,
                                                             keepIfFailed, process, address);
}

int ossSymGetSymFromAddr(void* process, uint64_t address, uint64_t* displacement,
                         _IMAGEHLP_SYMBOL64* symbol) noexcept {
  return Guarded<decltype(::SymGetSymFromAddr64)>::call(GuardRow::SymGetSymFromAddr64, keepIfFailed,
                                                        process, address, displacement, symbol);
}

uint64_t* ossSymbolNameForAddress(uint64_t address, char* out, uint64_t outSize,
                                  uint64_t* displacement) noexcept {
  if (displacement != nullptr) *displacement = 0;
  if (out == nullptr || outSize == 0) return displacement;

  initializeSymbols();
  NamedSymbol found = {};
  found.symbol.SizeOfStruct = sizeof found.symbol;
  found.symbol.MaxNameLength = kMostName;
  uint64_t distance = 0;
  if (ossSymGetSymFromAddr(::GetCurrentProcess(), address, &distance, &found.symbol)) {
    ossSnprintf(out, outSize, "%s", found.symbol.Name);
    if (displacement != nullptr) *displacement = distance;
  } else if (address == 0) {
    ossSnprintf(out, outSize, "?unknown");
  } else {
    ossSnprintf(out, outSize, "0x%016I64X", address);
  }
  return displacement;
}
