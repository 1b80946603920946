// eventname.h - what a timeline calls an event: a call by its function, anything else by its kind
// and its function ("error OSSHFile::open"), an exit without entry by its function and "(cut)".
#pragma once

#include <cstdint>
#include <string>

#include "names.h"
#include "recordtext.h"

namespace oss::tool {

enum class Event : uint32_t { Call = 0, Note = 1, Cut = 2 };

// What tells event names apart.
struct EventKey {
  uint32_t funcId;
  uint32_t variant;

  EventKey(Event event, const GTraceRecord& head)
      : EventKey(event, head.funcId, event == Event::Note ? head.type : uint16_t{0}) {}
  EventKey(Event event, uint32_t function, uint16_t type = 0)
      : funcId(function), variant(static_cast<uint32_t>(event) << 16 | type) {}
};

inline std::string nameOf(const EventKey& key, Names& names) {
  std::string function(names.function(key.funcId));
  const auto type = static_cast<uint16_t>(key.variant);
  switch (static_cast<Event>(key.variant >> 16)) {
    case Event::Note: {
      std::string kind(kindOf(type));
      if (kind == "type") kind += ' ' + std::to_string(type);
      return kind + ' ' + function;
    }
    case Event::Cut: return function + " (cut)";
    case Event::Call: break;
  }
  return function;
}

}  // namespace oss::tool
