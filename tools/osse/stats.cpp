#include "stats.h"

#include <algorithm>

#include "table.h"

namespace oss::tool {
namespace {

bool isOnStack(const Thread& thread, uint32_t funcId) {
  return std::any_of(thread.stack.begin(), thread.stack.end(),
                     [funcId](const Frame& frame) { return frame.funcId == funcId; });
}

}  // namespace

FunctionStats::Function& FunctionStats::of(uint32_t funcId) {
  const IndexMap::Found found = numbers_.findOrAdd(funcId, 0);
  if (found.isNew) functions_.push_back({funcId, 0, 0, 0, 0, 0});
  return functions_[found.index];
}

void FunctionStats::countExit(Function& function, const Record& exit) {
  ++records_;
  if (exit.head().returnCode != 0) ++function.failed;
}

void FunctionStats::entered(const Thread&, Frame& frame, const Record&) {
  ++records_;
  ++of(frame.funcId).calls;
}

void FunctionStats::left(const Thread& thread, const Frame& frame, uint64_t at,
                         const Record* exit) {
  Function& function = of(frame.funcId);
  if (exit != nullptr)
    countExit(function, *exit);
  else
    ++open_;
  const uint64_t total = span(frame.entered, at);
  function.self += span(frame.inCallees, total);
  if (!isOnStack(thread, frame.funcId)) function.total += total;
}

void FunctionStats::cut(const Thread&, const Record& record, uint64_t) {
  ++cut_;
  countExit(of(record.head().funcId), record);
}

void FunctionStats::note(const Thread&, const Record& record, uint64_t) {
  ++records_;
  Function& function = of(record.head().funcId);
  if (record.isError()) ++function.errors;
}

void FunctionStats::write(Output& output, Names& names, Clock clock, bool hasStamps) const {
  std::vector<Function> sorted = functions_;
  std::stable_sort(sorted.begin(), sorted.end(), [hasStamps](const Function& a, const Function& b) {
    return hasStamps && a.self != b.self ? a.self > b.self : a.calls > b.calls;
  });

  Table table({"calls", "errors", "failed", "total s", "self s", "function"});
  for (const Function& function : sorted) {
    table.add({std::to_string(function.calls), std::to_string(function.errors),
               std::to_string(function.failed), hasStamps ? secondsOf(clock, function.total) : "-",
               hasStamps ? secondsOf(clock, function.self) : "-",
               std::string(names.function(function.funcId))});
  }
  table.write(output);
  output.write("\nrecords " + std::to_string(records_) + ", threads " + std::to_string(threads_) +
               "\ncalls whose exit is missing " + std::to_string(open_) +
               "\nexits whose entry is missing " + std::to_string(cut_) + "\n");
}

}  // namespace oss::tool
