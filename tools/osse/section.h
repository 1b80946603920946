// section.h - a named section that a traced program shares, with a control block at its start, and
// the few questions that the library answers about it.
//
// Always true: the block is attached only while a question is asked. What this program does between
// them, its own files above all, is never traced into somebody else's buffer, where a dumper could
// come to wait for itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "osstracedump.h"

namespace oss::tool {

class Section {
 public:
  Section() = default;
  ~Section();
  Section(const Section&) = delete;
  Section& operator=(const Section&) = delete;

  // Maps the section and looks whether it can hold the block that it claims to hold.
  // \return false, with a complaint
  bool open(const std::string& name);

  // Fills the header and finds what is to be written behind it; all of it lies in the section.
  OSSErr header(bool instantaneous, GTraceDumpHeader& header, const char** data, uint32_t* size);
  OSSErr tail(RamboDumpTail& tail);
  OSSErr firstChunk(RamboChunkWalker& walker);
  // Writers no longer wait for a dumper.
  OSSErr endAutoDump();

  bool isCounting() const { return (block().options.mode & GTRACE_FUNCTION_COUNT) != 0; }
  bool isEnabled() const { return read(block().enabled) != 0; }
  uint32_t lostCalls() const { return read(block().stopCounter); }

  // The ring's own record; only of a block that is not counting.
  const RamboControlBlock& ring() const {
    return *reinterpret_cast<const RamboControlBlock*>(view_ + sizeof(GTraceControlBlock));
  }

  // A word that other processes change.
  static uint32_t read(const uint32_t& word) {
    return std::atomic_ref(const_cast<uint32_t&>(word)).load(std::memory_order_acquire);
  }

 private:
  const GTraceControlBlock& block() const {
    return *reinterpret_cast<const GTraceControlBlock*>(view_);
  }
  bool holds(const void* data, uint64_t size) const;
  uint64_t neededBytes() const;

  void* mapping_ = nullptr;
  char* view_ = nullptr;
  uint64_t size_ = 0;
};

}  // namespace oss::tool
