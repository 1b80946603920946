// table.h - columns of text: numbers to the right, the last column to the left. For the few lines
// of a summary, so it takes no care of speed.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "clock.h"
#include "output.h"

namespace oss::tool {

class Table {
 public:
  explicit Table(std::initializer_list<const char*> titles);
  explicit Table(std::vector<std::string> titles);

  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  void write(Output& output) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

// A span in a cell: "12.345678901".
std::string secondsOf(Clock& clock, uint64_t ticks);

}  // namespace oss::tool
