// osscpuinfo.h - the topology of the processors, read from the system.
#pragma once

#include "sysinfo/osstopology.h"

namespace oss {

// Asks each processor of the process in turn; the whole process runs on one at a time meanwhile.
Topology probeTopology(Cpuid cpuid) noexcept;

}  // namespace oss
