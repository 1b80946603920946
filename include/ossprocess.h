// ossprocess.h - who runs: the identifiers of the calling thread and process.
#pragma once

#include "osstypes.h"

extern "C" {

/// The system's identifier of the calling thread. Any thread, any time; not traced.
OSS_API uint32_t ossThreadID() noexcept;

/// The system's identifier of the process. Any thread, any time; not traced.
OSS_API uint32_t ossProcessID() noexcept;

}  // extern "C"
