// dumpbuilder.h - trace dumps, made record by record in the test's own memory.
//
//   DumpBuilder dump;
//   dump.stamp(1'000).entry(kOpen).stamp(1'500).exit(kOpen, ECF_FAILED);
//   writeFile(dir.file("dump"), dump.instantaneous());
//
// Records go to slots with rising sequence numbers. Fields that a trace point does not write hold
// 0xEE..., as a slot of an earlier pass would.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "osstracedump.h"

namespace osse_test {

// An item of a record as it lies there.
struct BuiltItem {
  uint32_t type;
  uint32_t length;
  std::string_view data;
};

class DumpBuilder {
 public:
  // A circular buffer of the smallest size, with stamps of a counter of 10 MHz.
  DumpBuilder();

  GTraceOptions& options() { return header_->options; }
  void setTicksPerSecond(uint64_t ticks) { header_->ticksPerSecond = ticks; }

  // What the records that follow have in common.
  DumpBuilder& stamp(uint64_t ticks);
  DumpBuilder& thread(uint32_t process, uint64_t thread);
  DumpBuilder& fixedData(uint32_t first, uint32_t second);

  DumpBuilder& entry(uint32_t funcId);
  DumpBuilder& exit(uint32_t funcId, uint32_t rc = 0, uint64_t extra = 0);
  DumpBuilder& marker(uint32_t funcId, uint16_t probe, uint16_t type, uint16_t flags = 0);
  DumpBuilder& error(uint32_t funcId, uint16_t probe, uint64_t extra);
  DumpBuilder& errorRc(uint32_t funcId, uint16_t probe, uint32_t rc, uint64_t extra2);
  DumpBuilder& items(uint16_t type, uint32_t funcId, uint16_t probe,
                     const std::vector<BuiltItem>& items);
  DumpBuilder& correlator(uint32_t funcId, uint16_t probe, uint32_t correlator);

  // Slots as they are given.
  DumpBuilder& slot(std::string_view bytes);

  // The slots so far, to be broken.
  std::string& slots() { return slots_; }
  // Begins a new pass of the ring: what follows overwrites the oldest slots.
  DumpBuilder& wrap();

  std::string instantaneous(uint32_t truncated = 0) const;
  std::string autoDump() const;
  // A function-count dump with this table.
  std::string counts(const std::vector<GTraceFunctionCount>& table) const;

 private:
  GTraceRecord record(uint16_t type, uint32_t funcId) const;
  DumpBuilder& add(const GTraceRecord& record, size_t bytes, std::string_view behind = {});
  std::string head(uint16_t dumpType) const;

  std::vector<GTraceDumpHeader> holder_;
  GTraceDumpHeader* header_;
  uint64_t ticks_ = 0;
  uint32_t process_ = 4242;
  uint64_t thread_ = 17;
  uint32_t fixedData1_ = 0xFFFFFFFF;  // as long as nobody sets them
  uint32_t fixedData2_ = 0xFFFFFFFF;
  uint32_t counter_ = 0;
  size_t place_ = 0;  // bytes, where the next slot goes
  std::string slots_;
};

}  // namespace osse_test
