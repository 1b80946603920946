// dumpheader.h - what stands in front of and behind the records of a trace dump, read and checked.
//
// Validating a dump and opening a parser ask the same questions here, in the same order, so that a
// dump opens when, and only when, it is valid. Nothing that a file claims is used before the file
// has been found large enough to hold it. Both functions leave the position anywhere.
#pragma once

#include "osstracedump.h"
#include "trace/dumpsource.h"

namespace oss {

// The RAMBO part of a dump.
struct RingDump {
  RamboDumpHead head;
  RamboDumpTail tail;  // of an instantaneous dump
  uint64_t dataStart;  // file offset of the first slot
  uint64_t dataBytes;  // of the slots: the buffer's size, or what there is of an auto-dump
};

// `start` is the file offset of the RAMBO head. Returns ramboValidateDumpFile's codes.
OSSErr readRingDump(DumpSource& source, uint64_t start, RingDump& dump) noexcept;

// The rest of a dump.
struct TraceDump {
  bool countsFunctions;
  bool ringFile;
  uint32_t bufferSize;
  uint64_t ringStart;  // file offset of the RAMBO head
};

// `start` is the file offset of the dump. Returns ECF_OK, ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED,
// ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER or the code of a refused read.
OSSErr readTraceDump(DumpSource& source, uint64_t start, TraceDump& dump) noexcept;

// The public validations, at the source's position, which they restore.
OSSErr validateRingDump(DumpSource& source) noexcept;
OSSErr validateTraceDump(DumpSource& source, int32_t kind) noexcept;

}  // namespace oss
