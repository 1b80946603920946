// dumpwalk.h - walks over a whole dump in memory and tells what was found, as text:
//
//   "7@7x1 8@8x3"      the records with sequence numbers 7 and 8, at slots 7 and 8, of 1 and 3
//   slots
//
// Every byte of each payload is compared with what dumpbuilder.h puts there; a payload that differs
// shows as "damaged".
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "osscatalog.h"
#include "trace/dumpbuilder.h"
#include "trace/dumpparser.h"
#include "trace/memorysource.h"

namespace oss::dumps {

inline std::string describe(uint64_t slot, const std::string& payload) {
  uint32_t sequence = 0;
  std::memcpy(&sequence, payload.data(), sizeof sequence);
  if (payload != payloadOf(sequence, payload.size())) return "damaged@" + std::to_string(slot);
  return std::to_string(sequence) + '@' + std::to_string(slot) + 'x' +
         std::to_string((payload.size() + 12) / RAMBO_SLOT);
}

// An open walk over the RAMBO part of a dump, which stands behind `inFront` other bytes.
class Walk {
 public:
  Walk(const std::string& dump, bool forward, bool ringFile = false, uint64_t inFront = 0)
      : file_(std::string(inFront, 'x') + dump), source(file_), inFront_(inFront) {
    source.seek(inFront);
    opened = openRingDump(source, parser, forward, ringFile);
  }
  ~Walk() { closeRingDump(parser); }
  Walk(const Walk&) = delete;
  Walk& operator=(const Walk&) = delete;

  // The next record; empty at the end.
  std::string next() {
    uint64_t offset = 0;
    const uint64_t bytes = parseRecord(source, parser, &offset, payload_.data(), payload_.size());
    if (bytes == 0) return "";
    const uint64_t slot = (offset - inFront_ - sizeof(RamboDumpHead) - 8) / RAMBO_SLOT;
    return describe(slot, payload_.substr(0, bytes));
  }

  std::string all() {
    std::string text;
    for (std::string record = next(); !record.empty(); record = next())
      text += (text.empty() ? "" : " ") + record;
    return text;
  }

 private:
  std::string file_;

 public:
  MemorySource source;
  RamboDumpParser parser;
  OSSErr opened;

 private:
  uint64_t inFront_;
  std::string payload_ = std::string(RAMBO_LARGEST_PAYLOAD, '\0');
};

inline std::string forward(const std::string& dump) { return Walk(dump, true).all(); }
inline std::string backward(const std::string& dump) { return Walk(dump, false).all(); }
inline std::string asRing(const std::string& dump) { return Walk(dump, true, true).all(); }

}  // namespace oss::dumps
