#include "trace/gtfilter.h"

#include <algorithm>
#include <iterator>

namespace oss {

bool passesThreads(const GTraceOptions& options, TracePoint point) noexcept {
  const size_t count = std::min<size_t>(options.threadFilters, std::size(options.threads));
  const GTraceThreadFilter* const end = options.threads + count;
  const GTraceThreadFilter* const entry =
      std::find_if(options.threads, end, [&](const GTraceThreadFilter& filter) {
        return (filter.flags & GTRACE_MATCH_PROCESS) != 0 && filter.processId == point.processId;
      });
  return entry != end &&
         ((entry->flags & GTRACE_MATCH_THREAD) == 0 || entry->threadId == point.threadId);
}

}  // namespace oss
