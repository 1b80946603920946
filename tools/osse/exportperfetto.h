// exportperfetto.h - a dump as a native trace of the Perfetto viewer: a sequence of TracePacket
// messages.
//
// Calls are slices on the track of their thread, everything else is an instant. Each name is
// written once and then referred to by number. A call whose exit is missing ends with the
// annotation incomplete = "exit", an exit without entry is an instant with incomplete = "entry".
#pragma once

#include <string>

#include "clock.h"
#include "eventname.h"
#include "flow.h"
#include "itemlist.h"
#include "output.h"
#include "protobuf.h"

namespace oss::tool {

class PerfettoExport {
 public:
  // Begins the trace.
  PerfettoExport(Output& output, Names& names, Clock clock);

  void began(const Thread& thread);
  void entered(const Thread& thread, const Frame& frame, const Record& record);
  void left(const Thread& thread, const Frame& frame, uint64_t at, const Record* exit);
  void cut(const Thread& thread, const Record& record, uint64_t at);
  void note(const Thread& thread, const Record& record, uint64_t at);

 private:
  struct Packet;

  Packet beginEvent(const Thread& thread, uint64_t at);
  void endEvent(Packet& packet);
  void nameEvent(Packet& packet, const EventKey& key);
  void describeProcess(uint32_t process);
  void annotate(Packet& packet, const Record& record);

  Output& output_;
  Names& names_;
  Clock clock_;
  IndexMap eventNames_;
  IndexMap processes_;
  std::string items_;
};

}  // namespace oss::tool
