// ossmemory.h - the allocator, its debug modes, areas of the caller's memory, and the leak list.
//
// A heap block carries a small header; with memory debugging on, guard pads, fill bytes and a place
// in the list of live blocks besides. The mode is chosen once per process, from the environment
// variable OSSEMEMDBG while the library loads:
//
//   OSSEMEMDBG=<directory>,<level>      level, in either case:
//     LIGHT                a guard in front of each block and one behind it
//     FULL, CORRUPTIONS    several guards, and the list of live blocks
//     LEAKS, ALL           the same, and the list is written when the process ends
//
// The choice is recorded in <directory>\ossememdbg.log. What a check finds is never a return code:
// it is reported as a non-fatal assertion (ossassert.h) with <directory> as its dump path, and the
// operation goes on.
//
// An area is memory of the caller's, such as a shared section, that is carved up through a list of
// free chunks. It holds offsets only, so that each process may see it at another address.
//
// Any thread may call any of these functions at any time. An assertion callback may not: it is also
// called while the list of live blocks is written, which is locked then, and would wait for ever.
#pragma once

#include "osstypes.h"

/// Allocation flags.
inline constexpr uint64_t OSS_MEM_ZERO = 1;     ///< the block is filled with zeros
inline constexpr uint64_t OSS_MEM_MARK_E1 = 2;  ///< the block is marked 0xA7C055E1, not 0xA7C055E0

/// Modes of memory debugging, by the eye-catcher of their blocks.
inline constexpr uint32_t OSS_MEM_DEBUG_NONE = 0;            ///< a bare header
inline constexpr uint32_t OSS_MEM_DEBUG_OFF = 0x1D1EC0DE;    ///< the default
inline constexpr uint32_t OSS_MEM_DEBUG_LIGHT = 0xE7AC011A;  ///< LIGHT
inline constexpr uint32_t OSS_MEM_DEBUG_FULL = 0xA110CA7E;   ///< FULL, CORRUPTIONS, LEAKS, ALL

/// Bits of the debug flags. Other bits are kept and do nothing.
inline constexpr uint32_t OSS_MEM_FILL_NEW = 0x01;     ///< new blocks are filled with 0xFF
inline constexpr uint32_t OSS_MEM_FILL_FREED = 0x02;   ///< freed blocks are filled with 0xFF
inline constexpr uint32_t OSS_MEM_LEAK_REPORT = 0x20;  ///< the leak list goes to its own file

/// The state of memory debugging. Guarded by its latch.
struct OSSMemDebugCB {
  uint32_t flags;
  uint32_t eyeCatcher;
  uint32_t frontPads;     ///< 8-byte guards in front of each block
  uint32_t backPads;      ///< and behind it
  uint32_t hasAllocated;  ///< 1 from the first allocation on
  uint32_t reserved;
  void* liveBlocks;  ///< the newest block; null for none
  uint8_t latch;
  uint8_t latchReserved[7];
};
OSS_LAYOUT(OSSMemDebugCB, 40);
OSS_FIELD(OSSMemDebugCB, flags, 0, 4);
OSS_FIELD(OSSMemDebugCB, eyeCatcher, 4, 4);
OSS_FIELD(OSSMemDebugCB, frontPads, 8, 4);
OSS_FIELD(OSSMemDebugCB, backPads, 12, 4);
OSS_FIELD(OSSMemDebugCB, hasAllocated, 16, 4);
OSS_FIELD(OSSMemDebugCB, liveBlocks, 24, 8);
OSS_FIELD(OSSMemDebugCB, latch, 32, 1);

/// The head of an area. Offsets count from it; 0 is none.
struct OSSMemArea {
  uint8_t latch;  ///< guards the area, for all processes that share it
  uint8_t latchReserved[7];
  uint64_t zero;
  uint64_t usableSize;  ///< bytes behind the head, a multiple of 24
  uint64_t firstFree;   ///< offset of the largest free chunk
};
OSS_LAYOUT(OSSMemArea, 32);
OSS_FIELD(OSSMemArea, latch, 0, 1);
OSS_FIELD(OSSMemArea, zero, 8, 8);
OSS_FIELD(OSSMemArea, usableSize, 16, 8);
OSS_FIELD(OSSMemArea, firstFree, 24, 8);

/// A free chunk, at its own start. The list descends by size.
struct OSSMemChunk {
  uint64_t next;
  uint64_t previous;
  uint64_t size;  ///< bytes of the chunk, this record included; a multiple of 24
};
OSS_LAYOUT(OSSMemChunk, 24);
OSS_FIELD(OSSMemChunk, next, 0, 8);
OSS_FIELD(OSSMemChunk, previous, 8, 8);
OSS_FIELD(OSSMemChunk, size, 16, 8);

extern "C" {

/// The control block, published while the mode is OSS_MEM_DEBUG_FULL; null otherwise.
extern OSS_API OSSMemDebugCB* g_pMemDebugCB;
/// The directory of OSSEMEMDBG; empty for none.
extern OSS_API char g_szMemDebugLogPath[261];
/// 1 when the live blocks are listed at the process's end.
extern OSS_API uint8_t g_bIsMemoryFFDCEnabledFlag;
/// Set it, and the next allocation or release clears it and writes the list of live blocks first.
extern OSS_API uint8_t g_bDumpMemAllocListFlag;

/// Allocates a block, from the heap or from an area. Traced.
/// \param out    receives the block, aligned to 8 bytes; null on failure. For an area it stays null
///               on success, too: the chunk that was taken is the one that the list of free chunks
///               names as the smallest that fits, which a caller finds under its own lock before it
///               calls, by walking from OSSMemArea::firstFree while the size is sufficient.
/// \param area   null for the heap, else an area that ossMemAreaInit prepared
/// \param size   bytes, not 0. An area rounds up to a multiple of 24
/// \param flags  OSS_MEM_ZERO | OSS_MEM_MARK_E1
/// \param file   the caller's source file, kept by its base name; may be null
/// \param line   the caller's source line, kept by its low 32 bits
/// \retval 0                      allocated; the caller owns the block until ossMemFree
/// \retval ECF_INVALID_PARAMETER  `out` is null, size is 0, or flags has other bits
/// \retval ECF_NO_MEMORY          nothing that large is free
/// \return otherwise the system's refusal, mapped. No failure is logged.
OSS_API OSSErr ossMemAlloc(void** out, void* area, uint64_t size, uint64_t flags, const char* file,
                           uint64_t line) noexcept;

/// Checks a block and gives it back. Traced.
///
/// A heap block that turns out to be freed already, or not to be a block, is reported and left
/// alone. Detection is by what stands around the block, so it can fail once the memory is in use
/// again.
/// \param address  holds the block; null afterwards (for an area unchanged)
/// \param area     null for the heap, else the area that the block is from
/// \param size     for an area the size that was allocated; not used for the heap
/// \param file     the caller's source file, for reports
/// \param line     the caller's source line
/// \retval 0                      done, whatever a check found
/// \retval ECF_INVALID_PARAMETER  `address` is null; or, in an area, size is 0 or the chunk would
///                                not lie in it
/// \retval ECF_MEM_NULL_POINTER   *address is null; logged at level Error, probe 20
OSS_API OSSErr ossMemFree(void** address, void* area, uint64_t size, const char* file,
                          uint64_t line) noexcept;

/// Checks a heap block; what it finds is reported.
/// \param address   holds the block
/// \param freeFlag  1 also retires the block: its marks say that it is freed, and *address becomes
///                  the start of the system's block, which is the caller's to give to free(). It
///                  stays when the block was not a live one. 0 only checks
/// \retval 0           checked
/// \retval 0xFFFFFFFF  the mode is OSS_MEM_DEBUG_NONE: only the block's mark is checked
OSS_API OSSErr ossMemAllocCheck(void** address, const char* file, uint64_t line,
                                uint64_t freeFlag) noexcept;

/// Prepares an area: one free chunk of all that is behind the head, rounded down to a multiple of
/// 24. The area belongs to the caller, who gives it up when nobody uses it any more.
/// \param area  aligned to 8 bytes
/// \param size  bytes at `area`; below 56 nothing can be allocated
/// \retval 0                      prepared
/// \retval ECF_INVALID_PARAMETER  `area` is null, or size is below 32
OSS_API OSSErr ossMemAreaInit(void* area, uint64_t size) noexcept;

/// Writes the list of live blocks, newest first, and checks each block; nothing unless the mode is
/// OSS_MEM_DEBUG_FULL and there are blocks.
/// \param dumpFlag  1 appends to "p<process>t<thread>_leaks.mem" in the directory (with
///                  OSS_MEM_LEAK_REPORT) or to "p<process>t<thread>.mem", or writes to standard
///                  output when that file cannot be opened; 0 writes the blocks to standard output
/// \retval 0  always
OSS_API OSSErr ossMemAllocList(uint64_t dumpFlag) noexcept;

/// Chooses the mode. Blocks keep the layout of the mode in which they were allocated.
/// \param flags       OSS_MEM_FILL_NEW | OSS_MEM_FILL_FREED | OSS_MEM_LEAK_REPORT
/// \param eyeCatcher  OSS_MEM_DEBUG_...
/// \param frontPads   8-byte guards in front of each block, in the mode OSS_MEM_DEBUG_FULL
/// \param backPads    and behind it
/// \retval 0  the mode is chosen
/// \retval ECF_MEM_CANNOT_TOGGLE_MEM_DEBUG_AFTER_ALLOC  a block has been allocated already and the
///            call would go from or to OSS_MEM_DEBUG_NONE: flags and pads are stored, the mode
///            stays
OSS_API OSSErr ossMemSetDebug(uint32_t flags, uint32_t eyeCatcher, uint32_t frontPads,
                              uint32_t backPads) noexcept;

}  // extern "C"
