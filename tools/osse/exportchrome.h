// exportchrome.h - a dump as a Chrome trace, which most viewers of timelines read: a JSON object
// with one event a line.
//
// Calls are "B" and "E" events, everything else is an instant, "i". A call whose exit is missing
// ends with the argument incomplete = "exit", an exit without entry is an instant with
// incomplete = "entry". Times are microseconds.
#pragma once

#include <string>
#include <vector>

#include "clock.h"
#include "eventname.h"
#include "flow.h"
#include "itemlist.h"
#include "output.h"

namespace oss::tool {

class ChromeExport {
 public:
  // Begins the object.
  ChromeExport(Output& output, Names& names, Clock clock);

  void began(const Thread& thread);
  void entered(const Thread& thread, const Frame& frame, const Record& record);
  void left(const Thread& thread, const Frame& frame, uint64_t at, const Record* exit);
  void cut(const Thread& thread, const Record& record, uint64_t at);
  void note(const Thread& thread, const Record& record, uint64_t at);

  // Ends it. \param times  what the times mean
  void finish(std::string_view times);

 private:
  char* putEvent(char* out, char phase, const Thread& thread, uint64_t at);
  char* putName(char* out, const EventKey& key);
  char* putArguments(char* out, const Record* record, std::string_view incomplete);
  void writeMetadata(std::string_view kind, const Thread& thread, const std::string& name);

  Output& output_;
  Names& names_;
  Clock clock_;
  IndexMap eventNumbers_;
  std::vector<std::string> eventNames_;  // as they stand in JSON, in quotation marks
  IndexMap processes_;
  std::string items_;
  bool isFirst_ = true;
};

}  // namespace oss::tool
