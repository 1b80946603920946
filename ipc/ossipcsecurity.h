// ossipcsecurity.h - the security attributes of every named object that the library creates.
#pragma once

#include <windows.h>

#include "osstypes.h"

namespace oss {

// Fills the attributes in: a copy of the process-wide ones (ossSetSecurityAttributesForOSS), or
// full access for every user and handles that child processes inherit, for which the descriptor is
// initialised. Both records are the caller's, on its stack, and must live through the create.
// Traced; a refusal of the system is mapped and logged by the default builder, with the
// descriptor's address: probe 10 (initialising) or 20 (its access list).
OSSErr ossIPCBuildSecurityAttributes(SECURITY_DESCRIPTOR* descriptor,
                                     SECURITY_ATTRIBUTES* attributes) noexcept;

}  // namespace oss
