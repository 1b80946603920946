// The loader's way into the library. It wraps the C run-time's own entry, which handles every
// notification, because the library has work to do behind it: at the attach it needs a run-time
// that is initialised, and at the detach it writes its last report when the run-time's termination
// has released everything that it will. Nothing is added for threads.
#include <windows.h>

#include "core/osswindows.h"
#include "fault/ossfaultend.h"
#include "memory/ossmemdbg.h"
#include "trace/gtcallstack.h"

extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE module, DWORD reason, void* reserved);

extern "C" BOOL WINAPI ossModuleEntry(HINSTANCE module, DWORD reason, void* reserved) {
  // What other threads held when a process that ends killed them stays as it is.
  if (reason == DLL_PROCESS_DETACH && reserved == nullptr) oss::releaseCallStacks();
  if (reason == DLL_PROCESS_DETACH) oss::endFaultCapture(reserved != nullptr);
  const BOOL result = DllMainCRTStartup(module, reason, reserved);
  if (reason == DLL_PROCESS_ATTACH && result) oss::attachProcess();
  // A process that ends has killed its other threads by now, perhaps in the middle of an
  // allocation.
  if (reason == DLL_PROCESS_DETACH) oss::listLeaksAtEnd(reserved != nullptr);
  return result;
}
