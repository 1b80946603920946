#include "counts.h"

#include <algorithm>

#include "table.h"

namespace oss::tool {

void writeCounts(std::vector<GTraceFunctionCount> counts, bool hasTimes, Clock clock, Names& names,
                 Output& output) {
  std::stable_sort(
      counts.begin(), counts.end(),
      [](const GTraceFunctionCount& a, const GTraceFunctionCount& b) { return a.calls > b.calls; });
  Table table({"calls", "total s", "function"});
  for (const GTraceFunctionCount& count : counts)
    table.add({std::to_string(count.calls), hasTimes ? secondsOf(clock, count.ticks) : "-",
               std::string(names.function(count.funcId))});
  table.write(output);
}

}  // namespace oss::tool
