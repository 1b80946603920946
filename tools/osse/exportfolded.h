// exportfolded.h - a dump as folded stacks, one line for each distinct stack:
//
//   process 4242;thread 17;OSSHFile::open;GetFileAttributes 1234
//
// The number is the time spent in the stack's last function itself, in nanoseconds; without stamps,
// how often it was called. "(open)" marks a call whose exit is missing, with the time up to where
// it was seen last; "(cut)" an exit without entry, whose time nobody knows.
#pragma once

#include <string>
#include <vector>

#include "clock.h"
#include "flow.h"
#include "names.h"
#include "output.h"

namespace oss::tool {

class FoldedExport {
 public:
  FoldedExport(Output& output, Names& names, Clock clock, bool hasStamps)
      : output_(output), names_(names), clock_(clock), hasStamps_(hasStamps) {}

  void began(const Thread& thread);
  void entered(const Thread& thread, Frame& frame, const Record& record);
  void left(const Thread& thread, const Frame& frame, uint64_t at, const Record* exit);
  void cut(const Thread& thread, const Record& record, uint64_t at);
  void note(const Thread&, const Record&, uint64_t) {}

  // Writes the stacks, in the order in which they appeared.
  void finish();

 private:
  enum class Mark : uint32_t { None, Open, Cut };

  // A stack: its last function, and the stack below it.
  struct Node {
    uint32_t below;   // kThread for a thread
    uint32_t funcId;  // or the thread's number
    Mark mark;
    uint64_t ticks;
    uint64_t calls;
  };
  static constexpr uint32_t kThread = UINT32_MAX;

  uint32_t stackOn(uint32_t below, uint32_t funcId, Mark mark);
  void count(uint32_t stack, uint64_t ticks);
  void writeStack(const Node& node);

  Output& output_;
  Names& names_;
  Clock clock_;
  bool hasStamps_;
  IndexMap numbers_;
  std::vector<Node> nodes_;
  std::vector<std::string> threads_;
  std::vector<uint32_t> threadNodes_;
  std::vector<std::string_view> path_;
};

}  // namespace oss::tool
