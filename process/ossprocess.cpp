// The process that runs.
#include "ossprocess.h"

#include <windows.h>

uint32_t ossProcessID() noexcept { return ::GetCurrentProcessId(); }

uint32_t ossProcessParentID() noexcept { return 0xFFFFFFFF; }

void ossProcessExit(uint32_t code) noexcept { ::ExitProcess(code); }
