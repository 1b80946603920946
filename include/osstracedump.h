// osstracedump.h - dump files of traces: the pieces that a controlling program writes, and the
// parser.
//
//   magic | options | ticks/second | RAMBO head | slots ............. | RAMBO tail
//   8       182,880   8              16          bufferSize bytes,     32, only of an
//                                                or chunks of 128 KiB  instantaneous dump
//
// An instantaneous dump takes the whole buffer as it stands; an auto-dump takes the chunks one by
// one while tracing goes on. In the dump of a function-count block the head is present but not
// filled, and its table (GTraceFunctionCount) stands for the slots.
//
// The library writes no file. A controlling program writes an instantaneous dump as
//   gtraceGetDumpHeaderBuffer(true, header, &data, &size); header; size bytes at data;
//   gtraceGetDumpTail(&tail); tail
// and an auto-dump as gtraceGetDumpHeaderBuffer(false, ...); header; and then, chunk by chunk from
// gtraceInitializeChunkWalker on: wait until `completed` of the chunk is RAMBO_CHUNK_SLOTS, write
// its RAMBO_CHUNK bytes, set `completed` to 0 and then add 1 to `generation`, both atomically. When
// the writers have stopped, the first `completed` slots of the chunk where the walker stands are
// left; what lies behind them is of an earlier pass of the ring.
//
// The writing side works on the block that is attached and fails as the operations of osstrace.h
// do. The reading side reads through an open OSSHFile, never outside what it was given, whatever
// the file claims. One thread uses a parser at a time.
#pragma once

#include "osstrace.h"
#include "osstracerecord.h"

class OSSHFile;

// ---- What stands in a file ----------------------------------------------------------------------

inline constexpr uint16_t RAMBO_INSTANTANEOUS_DUMP = 1;
inline constexpr uint16_t RAMBO_AUTO_DUMP = 2;

struct RamboDumpHead {
  char magic[8];  ///< "@HEAD", carriage return, line feed, zero
  uint32_t bufferSize;
  uint16_t dumpType;
  uint8_t circular;
  uint8_t zero;
};
OSS_LAYOUT(RamboDumpHead, 16);
OSS_FIELD(RamboDumpHead, magic, 0, 8);
OSS_FIELD(RamboDumpHead, bufferSize, 8, 4);
OSS_FIELD(RamboDumpHead, dumpType, 12, 2);
OSS_FIELD(RamboDumpHead, circular, 14, 1);
OSS_FIELD(RamboDumpHead, zero, 15, 1);

struct RamboDumpTail {
  char magic[8];           ///< "@TAIL", carriage return, line feed, zero
  uint32_t counter;        ///< slots reserved so far
  uint32_t slotIndex;      ///< circular: the next slot
  uint32_t sequenceStart;  ///< circular: the counter at the start of the sequence
  uint32_t truncated;      ///< fill-once: 1 when records were lost
  uint8_t unused[8];       ///< not written by the library
};
OSS_LAYOUT(RamboDumpTail, 32);
OSS_FIELD(RamboDumpTail, magic, 0, 8);
OSS_FIELD(RamboDumpTail, counter, 8, 4);
OSS_FIELD(RamboDumpTail, slotIndex, 12, 4);
OSS_FIELD(RamboDumpTail, sequenceStart, 16, 4);
OSS_FIELD(RamboDumpTail, truncated, 20, 4);
OSS_FIELD(RamboDumpTail, unused, 24, 8);

/// What every dump begins with.
struct GTraceDumpHeader {
  char magic[8];  ///< "GTDUMP1"
  GTraceOptions options;
  uint64_t ticksPerSecond;  ///< OSSTickConversionFactor of the dumping process
  RamboDumpHead ring;       ///< function-count: not filled
};
OSS_LAYOUT(GTraceDumpHeader, 182912);
OSS_FIELD(GTraceDumpHeader, magic, 0, 8);
OSS_FIELD(GTraceDumpHeader, options, 8, 182880);
OSS_FIELD(GTraceDumpHeader, ticksPerSecond, 182888, 8);
OSS_FIELD(GTraceDumpHeader, ring, 182896, 16);

// ---- Writing ------------------------------------------------------------------------------------

/// Where a dumper stands: it steps to the next chunk by adding 1 to `chunk` and `count` and
/// RAMBO_CHUNK to `slots`, and begins anew behind the last.
struct RamboChunkWalker {
  void* handle;
  RamboChunk* chunk;
  uint32_t count;
  void* slots;
};
OSS_LAYOUT(RamboChunkWalker, 32);
OSS_FIELD(RamboChunkWalker, handle, 0, 8);
OSS_FIELD(RamboChunkWalker, chunk, 8, 8);
OSS_FIELD(RamboChunkWalker, count, 16, 4);
OSS_FIELD(RamboChunkWalker, slots, 24, 8);

extern "C" {

/// Fills a dump's header and tells what to write behind it.
/// \param header  sizeof(GTraceDumpHeader) bytes
/// \param data    receives the address of the slots, or of the function-count table
/// \param size    receives their bytes
OSS_API OSSErr gtraceGetDumpHeaderBuffer(bool instantaneous, void* header, void** data,
                                         uint32_t* size) noexcept;
/// Fills all of the tail but its last 8 bytes; nothing in the function-count mode.
OSS_API OSSErr gtraceGetDumpTail(RamboDumpTail* tail) noexcept;
/// Sets the walker to the first chunk.
/// \retval ECF_RAMBO_AUTO_DUMP_NOT_ALLOWED  the buffer is not chunked
OSS_API OSSErr gtraceInitializeChunkWalker(RamboChunkWalker* walker) noexcept;

// The same for a ring without a control block; `head` takes a RamboDumpHead. They fail as
// ramboNewSequence does.
OSS_API OSSErr ramboGetDumpHeaderBuffer(void* handle, bool instantaneous, void* head, void** data,
                                        uint32_t* size) noexcept;
OSS_API OSSErr ramboGetDumpTail(void* handle, RamboDumpTail* tail) noexcept;
OSS_API OSSErr ramboInitializeChunkWalker(void* handle, RamboChunkWalker* walker) noexcept;

}  // extern "C"

// ---- Reading ------------------------------------------------------------------------------------

inline constexpr int32_t GTRACE_ANY_DUMP = 0;
inline constexpr int32_t GTRACE_RING_DUMP = 1;
inline constexpr int32_t GTRACE_COUNT_DUMP = 2;

/// A walk over the records of a ring. All zeros is a closed one; its fields are the library's.
/// Where they count slots, they count those of the walk, the oldest first.
struct RamboDumpParser {
  uint64_t dataStart;    ///< file offset of the first slot
  uint64_t slotCount;    ///< slots in the file
  uint64_t firstSlot;    ///< the slot of the file that is the walk's oldest
  uint64_t walkSlots;    ///< slots that the walk has
  uint64_t position;     ///< forward: the next slot; backward: the slot behind the next
  uint64_t refillAt;     ///< forward: from here on the buffer may not hold a whole record
  uint64_t refillBelow;  ///< backward: below it
  uint8_t* buffer;       ///< what was read ahead
  uint64_t bufferSlots;  ///< slots it has room for
  uint64_t bufferFirst;  ///< the first slot in it
  uint64_t bufferEnd;    ///< the slot behind the last in it
  uint64_t headless;     ///< backward: from here to the position no record begins
  uint64_t ringEnd;      ///< instantaneous: the slot that no record crosses
  uint64_t freshCount;   ///< sequence numbers so far below the counter are valid
  uint32_t counter;      ///< instantaneous: the reservation counter at the dump
  uint16_t dumpType;
  bool forward;
  bool open;
  bool wrapped;
  bool truncated;
};

/// A walk over a function-count table.
struct GTraceCountParser {
  GTraceFunctionCount* piece;  ///< what was read ahead
  uint64_t pieceOffset;        ///< its file offset
  uint64_t entries;            ///< entries in it
  uint64_t entry;              ///< the next of them
  uint64_t entriesLeft;        ///< behind the piece
};

/// A walk over the records of a dump. All zeros is a closed one.
struct GTraceDumpParser {
  int32_t kind;  ///< 0 closed, GTRACE_RING_DUMP or GTRACE_COUNT_DUMP
  RamboDumpParser ring;
  GTraceCountParser table;
};

extern "C" {

/// Tells whether the file, from its current position on, is a dump that can be parsed. The position
/// is restored.
/// \param kind  GTRACE_ANY_DUMP, GTRACE_RING_DUMP or GTRACE_COUNT_DUMP
/// \retval 0                                         it is
/// \retval ECF_INVALID_PARAMETER                     `file` is null, or the dump is of another kind
/// \retval ECF_GTRACE_DUMP_FILE_HEADER_TRUNCATED
/// \retval ECF_GTRACE_DUMP_FILE_INVALID_EYE_CATCHER
/// \return otherwise ramboValidateDumpFile's code, or that of the refused seek back
OSS_API OSSErr gtraceValidateDumpFile(OSSHFile* file, int32_t kind) noexcept;

/// The same for what follows the GTraceDumpHeader::ticksPerSecond.
/// \retval ECF_RAMBO_DUMP_FILE_HEADER_TRUNCATED
/// \retval ECF_RAMBO_DUMP_FILE_INVALID_HEADER_EYE_CATCHER
/// \retval ECF_RAMBO_DUMP_FILE_INVALID_BUFFER_SIZE
/// \retval ECF_RAMBO_DUMP_FILE_INVALID_TYPE
/// \retval ECF_RAMBO_INSTANTANEOUS_DUMP_FILE_TRUNCATED
/// \retval ECF_RAMBO_DUMP_FILE_INVALID_TAIL_EYE_CATCHER
/// \retval ECF_RAMBO_DUMP_FILE_INVALID_SLOT_INDEX
/// \retval ECF_RAMBO_DUMP_FILE_TRUNCATED  an auto-dump whose last chunk ends within its first slot
OSS_API OSSErr ramboValidateDumpFile(OSSHFile* file) noexcept;

/// Opens a walk from the file's current position, the start of the dump. The walk keeps what it
/// needs to know: from here on the position is the caller's again, and each call may move it.
/// \param parser   closed; what it holds is overwritten. It takes at most 1 MiB of memory, whatever
///                 the file claims, until gtraceCloseDumpFileParser
/// \param forward  from the oldest record on; otherwise from the newest back. A function-count
///                 table is always read in its own order
/// \retval 0                      open
/// \retval ECF_INVALID_PARAMETER  `file` or `parser` is null
/// \retval ECF_NO_MEMORY          there is no room for what is read ahead
/// \return otherwise what gtraceValidateDumpFile finds, or the code of a refused read. The parser
///         then stays closed
OSS_API OSSErr gtraceOpenDumpFileParser(OSSHFile* file, GTraceDumpParser* parser,
                                        bool forward) noexcept;

/// Fetches the next record: in a function-count dump a GTraceFunctionCount, else the payload that
/// begins with a GTraceRecord. What is not whole is skipped: slots without a head, records without
/// their trailer, and in an instantaneous dump those of an earlier pass of the ring. A file that
/// has become shorter ends the walk. Most calls ask the system nothing.
/// \param recordOffset  receives the file offset of the payload; may be null
/// \param buffer        receives as much of the payload as fits; null receives nothing
/// \return bytes of the payload, 64 x slots - 12 or 16; 0 behind the last record, for a closed
///         parser and for a read that the system refuses, which the next call tries again
OSS_API uint64_t gtraceParseRecords(OSSHFile* file, GTraceDumpParser* parser,
                                    uint64_t* recordOffset, void* buffer,
                                    uint64_t bufferSize) noexcept;

/// Gives the walk's memory back.
/// \retval 0                      closed
/// \retval ECF_INVALID_PARAMETER  `parser` is null or not open; so ramboCloseDumpFileParser
OSS_API OSSErr gtraceCloseDumpFileParser(GTraceDumpParser* parser) noexcept;

// The walk over a ring alone; the position is that of the RAMBO head.
/// \param ringFile  an auto-dump file was written round and round: it is scanned, and the walk's
///                  oldest record is the one behind the newest
OSS_API OSSErr ramboOpenDumpFileParser(OSSHFile* file, RamboDumpParser* parser, bool forward,
                                       bool ringFile) noexcept;
OSS_API uint64_t ramboParseRecords(OSSHFile* file, RamboDumpParser* parser, uint64_t* recordOffset,
                                   void* buffer, uint64_t bufferSize) noexcept;
OSS_API OSSErr ramboCloseDumpFileParser(RamboDumpParser* parser) noexcept;

/// Whether old records were overwritten, and whether new ones were lost.
/// \retval 0                      *result is set
/// \retval ECF_INVALID_PARAMETER  an argument is null, or the parser is not open
OSS_API OSSErr ramboDidBufferWrap(const RamboDumpParser* parser, bool* result) noexcept;
OSS_API OSSErr ramboWasBufferTruncated(const RamboDumpParser* parser, bool* result) noexcept;

}  // extern "C"
