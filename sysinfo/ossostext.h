// ossostext.h - what numbers of the operating system mean, as texts. No platform header.
#pragma once

#include <cstdint>

#include "osssysvalue.h"

namespace oss {

// The families of the system; "UNKNOWN" for any other.
const char* platformName(uint32_t platform) noexcept;

struct ProcessorNumbers {
  uint16_t architecture;
  uint32_t type;
  uint16_t level;
  uint16_t revision;  // model in the high byte, stepping in the low one
};

// Fills in a description of the processor, or tells why there is none.
void describeProcessor(const ProcessorNumbers& processor, OSSSysInfoStr& text) noexcept;

}  // namespace oss
