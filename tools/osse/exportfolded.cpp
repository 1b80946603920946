#include "exportfolded.h"

#include "digits.h"

namespace oss::tool {

void FoldedExport::began(const Thread& thread) {
  threads_.push_back("process " + std::to_string(thread.process) + ";thread " +
                     std::to_string(thread.id));
  threadNodes_.push_back(stackOn(kThread, thread.number, Mark::None));
}

void FoldedExport::entered(const Thread& thread, Frame& frame, const Record&) {
  const size_t depth = thread.stack.size();
  const uint32_t below = depth > 1 ? thread.stack[depth - 2].place : threadNodes_[thread.number];
  frame.place = stackOn(below, frame.funcId, Mark::None);
}

void FoldedExport::left(const Thread&, const Frame& frame, uint64_t at, const Record* exit) {
  const uint64_t total = span(frame.entered, at);
  const uint32_t stack =
      exit != nullptr ? frame.place : stackOn(nodes_[frame.place].below, frame.funcId, Mark::Open);
  count(stack, span(frame.inCallees, total));
}

void FoldedExport::cut(const Thread& thread, const Record& record, uint64_t) {
  const uint32_t below =
      thread.stack.empty() ? threadNodes_[thread.number] : thread.stack.back().place;
  count(stackOn(below, record.head().funcId, Mark::Cut), 0);
}

uint32_t FoldedExport::stackOn(uint32_t below, uint32_t funcId, Mark mark) {
  const uint64_t key = uint64_t{below} << 32 | funcId;
  const IndexMap::Found found = numbers_.findOrAdd(key, static_cast<uint64_t>(mark));
  if (found.isNew) nodes_.push_back({below, funcId, mark, 0, 0});
  return found.index;
}

void FoldedExport::count(uint32_t stack, uint64_t ticks) {
  nodes_[stack].ticks += ticks;
  ++nodes_[stack].calls;
}

void FoldedExport::finish() {
  for (const Node& node : nodes_) {
    if (node.calls == 0) continue;
    writeStack(node);
    char* out = putChar(output_.room(2 * kLongestNumber), ' ');
    out = putDecimal(out, hasStamps_ ? clock_.nanoseconds(node.ticks) : node.calls);
    output_.end(putChar(out, '\n'));
  }
}

void FoldedExport::writeStack(const Node& node) {
  path_.clear();
  const Node* at = &node;
  for (; at->below != kThread; at = &nodes_[at->below])
    path_.push_back(names_.function(at->funcId));
  output_.write(threads_[at->funcId]);
  for (size_t i = path_.size(); i-- > 0;) {
    output_.write(";");
    output_.write(path_[i]);
  }
  if (node.mark == Mark::Open) output_.write(" (open)");
  if (node.mark == Mark::Cut) output_.write(" (cut)");
}

}  // namespace oss::tool
