// follow.h - an auto-dump: chunks go to a file as they fill.
#pragma once

#include <vector>

#include "chunks.h"
#include "passfilter.h"
#include "section.h"
#include "terminal.h"

namespace oss::tool {

// The chunks behind the header of a dump: one after the other, or round and round.
class ChunkFile {
 public:
  // \param mostChunks  0: the file grows
  ChunkFile(OutputFile& file, uint64_t mostChunks) : file_(file), mostChunks_(mostChunks) {}

  // \return false when it could not be written
  bool append(const char* slots, uint64_t bytes) {
    const uint64_t place = mostChunks_ == 0 ? count_ : count_ % mostChunks_;
    ++count_;
    return file_.writeAt(sizeof(GTraceDumpHeader) + place * RAMBO_CHUNK, slots, bytes);
  }

 private:
  OutputFile& file_;
  uint64_t mostChunks_;
  uint64_t count_ = 0;
};

class Follow {
 public:
  Follow(Section& section, const RamboChunkWalker& first, ChunkFile& file);

  // Writes chunks until tracing is disabled and no chunk is complete, or Ctrl+C, and then what
  // stands in the chunks that are not complete. When it ends for another reason than that tracing
  // is disabled, writers go on without a dumper. \return false when the file could not be written
  bool run();

 private:
  bool writeWhileEnabled();
  bool writeComplete();
  bool writeRest();

  Section& section_;
  Chunks chunks_;
  ChunkFile& file_;
  PassFilter filter_;
};

}  // namespace oss::tool
