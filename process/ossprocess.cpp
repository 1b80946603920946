#include "ossprocess.h"

#include <windows.h>

uint32_t ossProcessID() noexcept { return ::GetCurrentProcessId(); }
