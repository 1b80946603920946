#include <windows.h>

#include "ossprocess.h"

uint32_t ossThreadID() noexcept { return ::GetCurrentThreadId(); }
