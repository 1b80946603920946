// The stacks come from the C run-time: the library's own allocator is traced, and would count what
// lives on at the end as leaks.
#include "trace/gtcallstack.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "numeric/osslatchguard.h"

namespace oss {
namespace {

uint8_t g_latch = 0;  // serialises the taking of the slot
std::atomic<DWORD> g_slot = TLS_OUT_OF_INDEXES;
std::atomic<CallStack*> g_stacks = nullptr;

CallStack* makeStack(DWORD slot) noexcept {
  void* const memory = std::malloc(sizeof(CallStack));
  if (memory == nullptr) return nullptr;
  auto* const stack = new (memory) CallStack;
  if (!::TlsSetValue(slot, stack)) {
    std::free(memory);
    return nullptr;
  }
  stack->next = g_stacks;
  while (!g_stacks.compare_exchange_weak(stack->next, stack)) {
  }
  return stack;
}

}  // namespace

void prepareCallStacks() noexcept {
  LatchGuard guard(g_latch);
  if (g_slot == TLS_OUT_OF_INDEXES) g_slot = ::TlsAlloc();
}

CallStack* callStack() noexcept {
  const DWORD slot = g_slot;
  if (slot == TLS_OUT_OF_INDEXES) return nullptr;
  const DWORD error = ::GetLastError();  // the reading of the slot clears it
  void* const stack = ::TlsGetValue(slot);
  ::SetLastError(error);
  return stack != nullptr ? static_cast<CallStack*>(stack) : makeStack(slot);
}

void releaseCallStacks() noexcept {
  const DWORD slot = g_slot.exchange(TLS_OUT_OF_INDEXES);
  if (slot != TLS_OUT_OF_INDEXES) ::TlsFree(slot);
  for (CallStack* stack = g_stacks.exchange(nullptr); stack != nullptr;) {
    CallStack* const next = stack->next;
    std::free(stack);
    stack = next;
  }
}

}  // namespace oss
