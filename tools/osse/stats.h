// stats.h - what a dump says about each function: calls, errors, and time.
//
// Total time counts the outermost call of a recursive function only, so it never exceeds the time
// that passed on its thread; self time is what is spent in no function called from it.
#pragma once

#include <vector>

#include "clock.h"
#include "flow.h"
#include "names.h"
#include "output.h"

namespace oss::tool {

class FunctionStats {
 public:
  void began(const Thread&) { ++threads_; }
  void entered(const Thread&, Frame& frame, const Record& record);
  void left(const Thread& thread, const Frame& frame, uint64_t at, const Record* exit);
  void cut(const Thread& thread, const Record& record, uint64_t at);
  void note(const Thread& thread, const Record& record, uint64_t at);

  // Writes the table, by self time or, without stamps, by calls, and what was incomplete.
  void write(Output& output, Names& names, Clock clock, bool hasStamps) const;

 private:
  struct Function {
    uint32_t funcId;
    uint64_t calls;
    uint64_t errors;  // error records
    uint64_t failed;  // exits with a code
    uint64_t total;   // ticks
    uint64_t self;
  };

  Function& of(uint32_t funcId);
  void countExit(Function& function, const Record& exit);

  IndexMap numbers_;
  std::vector<Function> functions_;
  uint64_t threads_ = 0;
  uint64_t records_ = 0;
  uint64_t open_ = 0;
  uint64_t cut_ = 0;
};

}  // namespace oss::tool
