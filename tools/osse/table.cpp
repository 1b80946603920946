#include "table.h"

#include <algorithm>

#include "digits.h"

namespace oss::tool {

Table::Table(std::initializer_list<const char*> titles) {
  rows_.emplace_back(titles.begin(), titles.end());
}

Table::Table(std::vector<std::string> titles) { rows_.push_back(std::move(titles)); }

void Table::write(Output& output) const {
  std::vector<size_t> widths(rows_.front().size());
  for (const auto& row : rows_)
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());

  std::string line;
  for (const auto& row : rows_) {
    line.clear();
    for (size_t i = 0; i + 1 < row.size(); ++i)
      line.append(widths[i] - row[i].size(), ' ').append(row[i]).append("  ");
    output.write(line.append(row.back()).append("\n"));
  }
}

std::string secondsOf(Clock& clock, uint64_t ticks) {
  const Moment span = clock.at(ticks);
  char text[2 * kLongestNumber];
  char* const point = putDecimal(text, span.seconds);
  return {text, put9Digits(putChar(point, '.'), span.nanoseconds)};
}

}  // namespace oss::tool
