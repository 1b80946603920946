// counts.h - the table of a function-count dump.
#pragma once

#include <vector>

#include "clock.h"
#include "names.h"
#include "osstrace.h"
#include "output.h"

namespace oss::tool {

// What the dump command leaves where a function-count dump has nothing, in the place of the RAMBO
// head, which every reader skips: how many calls found no room in the table.
struct LostCalls {
  static constexpr char kMagic[8] = {'@', 'L', 'O', 'S', 'T', '\r', '\n', '\0'};

  char magic[8];
  uint32_t calls;
  uint32_t unused;
};
OSS_LAYOUT(LostCalls, 16);

// Writes a table of functions, the most called first. \param hasTimes  the calls were timed
void writeCounts(std::vector<GTraceFunctionCount> counts, bool hasTimes, Clock clock, Names& names,
                 Output& output);

}  // namespace oss::tool
