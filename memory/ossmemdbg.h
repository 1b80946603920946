// ossmemdbg.h - the state of memory debugging, and the ways of its parts to each other.
#pragma once

#include "memory/ossblock.h"
#include "numeric/osslatchguard.h"
#include "ossmemory.h"

namespace oss {

// The process's control block. It is constant-initialised and never destroyed, so it can be used
// while the process ends.
extern OSSMemDebugCB g_memDebug;

// The largest count of back pads that was ever chosen.
extern uint32_t g_mostBackPads;

// False in the mode NONE, whose blocks tell nothing about themselves.
inline bool isDebugging() noexcept { return g_memDebug.eyeCatcher != OSS_MEM_DEBUG_NONE; }

// What one allocation needs to know.
struct MemDebugMode {
  uint32_t eyeCatcher;
  uint32_t flags;
  uint32_t frontPads;
  uint32_t backPads;
};

// Reads the mode for an allocation, after which it cannot be switched on or off any more.
inline MemDebugMode modeForAllocation() noexcept {
  LatchGuard latch(g_memDebug.latch);
  g_memDebug.hasAllocated = 1;
  return {g_memDebug.eyeCatcher, g_memDebug.flags, g_memDebug.frontPads, g_memDebug.backPads};
}

// Chooses the mode from OSSEMEMDBG. Part of the process attach.
void initializeMemDebug() noexcept;

// Adds a block to the list of live blocks, and takes it out again. Without a search. unlinkLive
// refuses a block whose neighbours do not know it, and then changes nothing.
void linkLive(FullRecord& record) noexcept;
bool unlinkLive(FullRecord& record) noexcept;

// Tells whether a record, which may not be there any more, links to `expected`.
bool hasLink(const FullRecord& record, FullRecord* FullRecord::*link,
             const FullRecord* expected) noexcept;

// Checks the heap block at a user address and reports what it finds. Returns the start of the
// system's block, null when that is in doubt. With `retire` a block is also marked as freed and
// taken out of the list of live blocks, unless the mode is NONE or the answer is null.
void* checkBlock(void* address, const char* file, uint64_t line, bool retire) noexcept;

// Writes the list of live blocks when the process ends and memory debugging asks for it.
// \param othersAreDead  the process's other threads are gone, perhaps with the latch in their
// hands:
//                       the wait for it is bounded, and the list is written without it
void listLeaksAtEnd(bool othersAreDead) noexcept;

}  // namespace oss
