// recordtext.h - a record as a line of text:
//
//   time             process thread kind  function        what else it says
//   12.345678901     4242    17     error OSSHFile::open  probe 280 [0x9000000C ECF_...]
//
// Time is "-" in a trace without stamps.
#pragma once

#include <string>
#include <string_view>

#include "clock.h"
#include "names.h"
#include "output.h"
#include "record.h"

namespace oss::tool {

// The word for a record's type: "entry", "exit", "data", ...; "type" for one that has none.
std::string_view kindOf(uint16_t type);

// An item as text: a word in hex, printable bytes in quotation marks, anything else byte by byte.
// A code of the catalog is followed by its name when `isError`.
void appendItem(std::string& text, const Item& item, bool isError);

class RecordText {
 public:
  RecordText(Output& output, Names& names, Clock clock, bool hasStamps)
      : output_(output), names_(names), clock_(clock), hasStamps_(hasStamps) {}

  // The line of a record without its end; `indent` spaces stand before the function.
  void write(const Record& record, uint32_t indent);
  // A line that tells of a call whose exit is missing.
  void writeOpen(uint32_t process, uint64_t thread, uint32_t funcId, uint32_t indent);
  // How long a call took.
  void writeDuration(uint64_t ticks);
  void writeCut() { output_.write(" (cut)"); }
  void endLine() { output_.write("\n"); }

 private:
  char* putTime(char* out, uint64_t ticks);
  void writeFunction(char* out, uint32_t funcId, uint32_t indent);
  void writeDetails(const Record& record);
  void writeItems(const Record& record);

  Output& output_;
  Names& names_;
  Clock clock_;
  Clock spans_ = clock_;
  bool hasStamps_;
  std::string item_;
};

}  // namespace oss::tool
