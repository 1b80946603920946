// The allocator: blocks of the heap and chunks of areas.
#include "ossmemory.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/ossoperation.h"
#include "core/ossprobe.h"
#include "memory/ossarea.h"
#include "memory/ossmemdbg.h"
#include "numeric/osslatchguard.h"
#include "ossstring.h"

uint8_t g_bDumpMemAllocListFlag = 0;

namespace oss {
namespace {

constexpr uint64_t kAllFlags = OSS_MEM_ZERO | OSS_MEM_MARK_E1;

// Where a call came from.
struct Source {
  const char* file;
  uint32_t line;
};

void listOnDemand() noexcept {
  if (g_bDumpMemAllocListFlag == 0) [[likely]]
    return;
  g_bDumpMemAllocListFlag = 0;
  ossMemAllocList(1);
}

// ---- The heap -----------------------------------------------------------------------------------

void fillPads(uint64_t* pad, uint32_t count) noexcept {
  for (uint32_t i = 0; i < count; ++i) pad[i] = kGuard;
}

// Kept out of the way of plain blocks, which have nothing of it.
[[gnu::noinline]] void dressLight(const BlockView& block) noexcept {
  const ModeRecord record = {kGuard, static_cast<uint32_t>(block.layout.size()),
                             OSS_MEM_DEBUG_LIGHT};
  block.modeRecord() = record;
  std::memset(block.slack(), kSlackFill, block.layout.slack());
  block.modeTrailer() = record;
}

// The record's second half is written as one word, as a check soon reads it: a word that lies in
// two stores on their way is waited for.
void dressPlain(char* user, uint64_t size) noexcept {
  const BlockView block = {user, BlockLayout(OSS_MEM_DEBUG_OFF, size, 0, 0)};
  const uint64_t sizeAndMode = static_cast<uint32_t>(size) | uint64_t{OSS_MEM_DEBUG_OFF} << 32;
  ModeRecord& record = block.modeRecord();
  record.guard = 0;
  std::memcpy(&record.size, &sizeAndMode, sizeof sizeAndMode);
}

[[gnu::noinline]] void dressFull(const BlockView& block, Source source) noexcept {
  const BlockLayout& layout = block.layout;
  fillPads(block.frontPad(), layout.frontPads());
  FullRecord& record = block.fullRecord();
  record = {.next = nullptr,
            .previous = nullptr,
            .file = {},
            .size = layout.size(),
            .line = source.line,
            .frontPads = layout.frontPads(),
            .backPads = layout.backPads(),
            .mode = OSS_MEM_DEBUG_FULL};
  const std::string_view file = baseNameOf(source.file);
  std::memcpy(record.file, file.data(), std::min(file.size(), sizeof record.file - 1));
  std::memset(block.slack(), kSlackFill, layout.slack());
  fillPads(block.backPad(), layout.backPads());
  block.fullTrailer() = {layout.size(), OSS_MEM_DEBUG_FULL};
  linkLive(record);
}

// Writes everything around the user data, as the block's mode asks.
void dress(char* user, const BlockLayout& layout, Source source) noexcept {
  switch (layout.mode()) {
    case OSS_MEM_DEBUG_NONE: return;
    case OSS_MEM_DEBUG_LIGHT: return dressLight({user, layout});
    case OSS_MEM_DEBUG_FULL: return dressFull({user, layout}, source);
    default: dressPlain(user, layout.size());
  }
}

OSSErr allocateBlock(Operation& op, void** out, uint64_t size, uint64_t flags,
                     Source source) noexcept {
  const uint32_t fileHash = hashOfFile(source.file);
  const MemDebugMode mode = modeForAllocation();
  const BlockLayout layout(mode.eyeCatcher, size, mode.frontPads, mode.backPads);
  void* const start = layout.isPossible() ? std::malloc(layout.total()) : nullptr;
  if (start == nullptr) {
    // The run-time may leave no error, and is not asked for what cannot be.
    const DWORD error = layout.isPossible() ? ::GetLastError() : NO_ERROR;
    return op.failUnlogged(40, SysCall::Malloc,
                           error != NO_ERROR ? error : ERROR_NOT_ENOUGH_MEMORY);
  }

  char* const user = static_cast<char*>(start) + layout.before();
  headerOf(user) = {(flags & OSS_MEM_MARK_E1) != 0 ? kMarkAllocatedE1 : kMarkAllocated,
                    static_cast<uint32_t>(size), fileHash, source.line};
  if ((flags & OSS_MEM_ZERO) != 0)
    std::memset(user, 0, size);
  else if ((mode.flags & OSS_MEM_FILL_NEW) != 0)
    std::memset(user, kDataFill, size);
  dress(user, layout, source);

  *out = user;
  return op.exit();
}

// Retires a block of the default mode when its tag is whole: nothing else surrounds it that could
// be checked. False, with nothing done, for any other block.
bool retirePlainBlock(char* user) noexcept {
  BlockTag tag;
  if (!probeBefore(user, &tag) || tag.mode != OSS_MEM_DEBUG_OFF ||
      !isMark(tag.header.mark, kMarkAllocated) || !isDebugging())
    return false;

  const BlockView block = {user, BlockLayout(OSS_MEM_DEBUG_OFF, 0, 0, 0)};
  block.header().mark = kMarkFreed;
  block.modeRecord().mode = kFreedMode;
  std::free(block.start());
  return true;
}

// What the check does not know as a block of its own is left alone: giving it to the heap could
// break it.
[[gnu::noinline]] void releaseClosely(char* user, const char* file, uint64_t line) noexcept {
  void* const start = checkBlock(user, file, line, true);
  if (start == nullptr) return;
  // A block of the mode NONE is not marked by the check.
  headerOf(user).mark = kMarkFreed;
  std::free(start);
}

void releaseBlock(void** address, const char* file, uint64_t line) noexcept {
  char* const user = static_cast<char*>(*address);
  if (!retirePlainBlock(user)) [[unlikely]]
    releaseClosely(user, file, line);
  *address = nullptr;
}

// What the log tells about a release of nothing.
struct NullReport {
  [[gnu::cold]] NullReport(const char* file, uint64_t line) noexcept
      : length(ossSnprintf(text, sizeof text,
                           "NULL pointer for memory allocation address found at: %s, line %I64u",
                           file != nullptr ? file : "", line)) {}

  char text[1025];
  uint64_t length;
};

// ---- Areas --------------------------------------------------------------------------------------

[[gnu::noinline]] OSSErr allocateChunk(OSSMemArea& area, uint64_t size, uint64_t flags) noexcept {
  const uint64_t wanted = AreaList::rounded(size);
  LatchGuard latch(area.latch);
  void* const chunk = wanted != 0 ? AreaList(area).take(wanted) : nullptr;
  if (chunk == nullptr) return ECF_NO_MEMORY;

  // Deliberate: the chunk is not handed out; the caller knows which one the area gives.
  if ((flags & OSS_MEM_ZERO) != 0) std::memset(chunk, 0, wanted);
  return ECF_OK;
}

[[gnu::noinline]] OSSErr releaseChunk(OSSMemArea& area, void* chunk, uint64_t size) noexcept {
  LatchGuard latch(area.latch);
  const bool isBack = AreaList(area).giveBack(chunk, AreaList::rounded(size));
  return isBack ? ECF_OK : ECF_INVALID_PARAMETER;
}

}  // namespace
}  // namespace oss

using namespace oss;

OSSErr ossMemAlloc(void** out, void* area, uint64_t size, uint64_t flags, const char* file,
                   uint64_t line) noexcept {
  Operation op(Func::ossMemAlloc);
  listOnDemand();
  // Not logged: the caller's mistakes are the caller's to report.
  if (out == nullptr || size == 0 || (flags & ~kAllFlags) != 0)
    return op.exit(ECF_INVALID_PARAMETER);

  *out = nullptr;
  if (area != nullptr) return op.exit(allocateChunk(*static_cast<OSSMemArea*>(area), size, flags));
  return allocateBlock(op, out, size, flags, {file, static_cast<uint32_t>(line)});
}

OSSErr ossMemFree(void** address, void* area, uint64_t size, const char* file,
                  uint64_t line) noexcept {
  Operation op(Func::ossMemFree);
  listOnDemand();
  if (address == nullptr) return op.exit(ECF_INVALID_PARAMETER);
  if (*address == nullptr) [[unlikely]] {
    const NullReport report(file, line);
    return op.fail(20, ECF_MEM_NULL_POINTER, OSS_LOG_ERROR, {string(report.text, report.length)});
  }

  if (area != nullptr)
    return op.exit(releaseChunk(*static_cast<OSSMemArea*>(area), *address, size));
  releaseBlock(address, file, line);
  return op.exit();
}

OSSErr ossMemAreaInit(void* area, uint64_t size) noexcept {
  if (area == nullptr || size < sizeof(OSSMemArea)) return ECF_INVALID_PARAMETER;
  AreaList::format(*static_cast<OSSMemArea*>(area), size);
  return ECF_OK;
}
