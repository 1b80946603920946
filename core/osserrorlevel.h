// osserrorlevel.h - how grave a failure is, told by its code.
#pragma once

#include "osstypes.h"

namespace oss {

// The level to log a failure of the system, or of a called operation, at: Error for what nobody
// expects, Info for everything else.
uint64_t logLevelOf(OSSErr rc) noexcept;

}  // namespace oss
