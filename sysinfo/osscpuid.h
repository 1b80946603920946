// osscpuid.h - the processor's identification instruction. Any thread, any time.
#pragma once

#include "sysinfo/osstopology.h"

// Executes it for a leaf and sub-leaf 0 and stores its registers, EAX first. Returns 0 when that
// faults.
extern "C" int ossCpuidInto(uint32_t leaf, oss::CpuRegisters* registers) noexcept;

namespace oss {

// All zeros when it faults.
CpuRegisters cpuid(uint32_t leaf) noexcept;

}  // namespace oss
