// The check of a heap block. Each finding is reported and the check goes on. What a block tells
// about itself is believed only as far as it proves readable and agrees with itself.
#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "core/ossprobe.h"
#include "memory/ossmemdbg.h"
#include "numeric/ossformat.h"
#include "ossassert.h"
#include "osscatalog.h"

namespace oss {
namespace {

constexpr char kNullAddress[] = "NULL pointer for memory allocation address found at:";
constexpr char kFreedAgain[] = "Freeing freed memory found at:";
constexpr char kFrontPad[] = "Front pad corruption found at:";
constexpr char kSizesDiffer[] =
    "Allocation size does not match between front and back pad structures found at:";

// Findings of one check, reported as non-fatal assertions, all for the same place.
class Findings {
 public:
  Findings(const char* file, uint64_t line) noexcept : file_(file), line_(line) {}

  [[gnu::cold]] void report(const char* finding) const noexcept {
    ossAssertFailureAction(finding, file_, line_, g_szMemDebugLogPath, 0,
                           static_cast<const void*>(nullptr));
  }

  // Formats as ossSnprintf does.
  [[gnu::cold]] void reportValue(const char* format, ...) const noexcept OSS_PRINTF_LIKE(2, 3) {
    char text[128];
    va_list values;
    va_start(values, format);
    formatText(text, sizeof text, format, values);
    va_end(values);
    report(text);
  }

 private:
  const char* file_;
  uint64_t line_;
};

// What a check makes of a block.
struct Verdict {
  BlockLayout layout;
  bool isBlock;      // it can be given back: its start is beyond doubt
  bool isSizeKnown;  // two of its records tell the same
};

Verdict noBlock() noexcept { return {BlockLayout(OSS_MEM_DEBUG_OFF, 0, 0, 0), false, false}; }

// Tells whether the `bytes` in front of `end` can be read, and 24 of them at least.
bool isReadable(const char* end, uint64_t bytes) noexcept {
  constexpr uint64_t kPage = 4096;
  uint64_t seen[kProbeBytes / sizeof(uint64_t)];
  for (; bytes > kPage; bytes -= kPage, end -= kPage)
    if (!probeBefore(end, seen)) return false;
  return probeBefore(end, seen) &&
         (bytes <= kProbeBytes || probeBefore(end - bytes + kProbeBytes, seen));
}

bool isBackReadable(const BlockView& block) noexcept {
  const BlockLayout& layout = block.layout;
  return layout.isPossible() && isReadable(block.start() + layout.total(),
                                           layout.total() - layout.before() - layout.size());
}

// ---- LIGHT --------------------------------------------------------------------------------------

bool isSlackIntact(const BlockView& block) noexcept {
  const uint8_t* const slack = block.slack();
  return std::all_of(slack, slack + block.layout.slack(),
                     [](uint8_t byte) { return byte == kSlackFill; });
}

// The header's size tells where the trailer is, so a damaged record shows up against the trailer.
Verdict checkLight(char* user, const BlockTag& tag, const Findings& findings) noexcept {
  const BlockView block = {user, BlockLayout(OSS_MEM_DEBUG_LIGHT, tag.header.size, 0, 0)};
  const ModeRecord& record = block.modeRecord();
  if (record.guard != kGuard) findings.report("Front memory pad corruption found at:");
  if (!isBackReadable(block)) {
    findings.report("Memory pad size corruption found at:");
    return {block.layout, true, false};
  }

  const ModeRecord& trailer = block.modeTrailer();
  if (!isSlackIntact(block)) findings.report("Back memory pad corruption found at:");
  if (trailer.mode != OSS_MEM_DEBUG_LIGHT || trailer.guard != kGuard)
    findings.report("Back memory pad corruption found at:");
  if (trailer.size != record.size) findings.report("Memory pad size corruption found at:");
  const uint32_t size = tag.header.size;
  return {block.layout, true, record.size == size || trailer.size == size};
}

// ---- FULL ---------------------------------------------------------------------------------------

BlockLayout fullLayout(char* user) noexcept {
  const BlockView view = {user, BlockLayout(OSS_MEM_DEBUG_FULL, 0, 0, 0)};
  const FullRecord& record = view.fullRecord();
  return BlockLayout(OSS_MEM_DEBUG_FULL, record.size, record.frontPads, record.backPads);
}

// The count of front pads tells where the block starts. It is believed when it is the process's, or
// when the guards begin exactly there.
bool isStartCertain(const BlockView& block) noexcept {
  const uint32_t count = block.layout.frontPads();
  if (count == g_memDebug.frontPads) return true;

  const uint64_t* const pad = block.frontPad();
  uint64_t around[kProbeBytes / sizeof(uint64_t)];
  return probeBefore(pad + 2, around) && around[0] != kGuard &&
         std::all_of(pad, pad + count, [](uint64_t guard) { return guard == kGuard; });
}

// The count of back pads tells where the trailer is. It is believed as far as any block can have
// that many, so that a damaged one does not make guards of a stranger's memory.
bool isEndPlausible(const BlockView& block) noexcept {
  return block.layout.backPads() <= g_mostBackPads;
}

void checkFrontPads(const BlockView& block, const Findings& findings) noexcept {
  for (uint32_t i = 0; i < block.layout.frontPads(); ++i)
    if (block.frontPad()[i] != kGuard) findings.report(kFrontPad);
}

void checkBack(const BlockView& block, const Findings& findings) noexcept {
  const BlockLayout& layout = block.layout;
  for (uint64_t i = 0; i < layout.slack(); ++i)
    if (block.slack()[i] != kSlackFill)
      findings.report("Back Uint8 memory pad corruption found at:");
  for (uint32_t i = 0; i < layout.backPads(); ++i)
    if (const uint64_t found = block.backPad()[i]; found != kGuard)
      findings.reportValue("Back pad corruption (0x%I64X) found at:", found);

  const FullTrailer& trailer = block.fullTrailer();
  // Deliberate: no blank behind the parenthesis.
  if (trailer.mode != OSS_MEM_DEBUG_FULL)
    findings.reportValue("Back pad mode (0x%x)found at:", trailer.mode);
  if (trailer.size != layout.size()) findings.report(kSizesDiffer);
}

Verdict checkFull(char* user, const BlockTag& tag, const Findings& findings) noexcept {
  const BlockView block = {user, fullLayout(user)};
  const bool isBlock = isReadable(user, block.layout.before()) && isStartCertain(block);
  if (isBlock)
    checkFrontPads(block, findings);
  else
    findings.report(kFrontPad);

  if (!isBackReadable(block) || !isEndPlausible(block)) {
    findings.report(kSizesDiffer);
    return {block.layout, isBlock, false};
  }
  checkBack(block, findings);
  const uint64_t size = block.layout.size();
  return {block.layout, isBlock,
          tag.header.size == static_cast<uint32_t>(size) || block.fullTrailer().size == size};
}

// ---- Any block ----------------------------------------------------------------------------------

void checkMark(uint32_t mark, bool retire, const Findings& findings) noexcept {
  if (isMark(mark, kMarkAllocated)) return;
  if (retire && isMark(mark, kMarkFreed))
    findings.report(kFreedAgain);
  else
    findings.reportValue("Invalid block eye-catcher (0x%X) found at:", mark);
}

// Tells whether the record and the header of that mode can be read.
bool isRecordReadable(const char* user, uint32_t mode) noexcept {
  return isReadable(user, BlockLayout(mode, 0, 0, 0).before());
}

// Checks what surrounds the block, by its mode.
Verdict checkMode(char* user, const BlockTag& tag, const Findings& findings) noexcept {
  switch (tag.mode) {
    case OSS_MEM_DEBUG_OFF: return {BlockLayout(OSS_MEM_DEBUG_OFF, 0, 0, 0), true, false};
    case OSS_MEM_DEBUG_LIGHT:
      if (isRecordReadable(user, tag.mode)) return checkLight(user, tag, findings);
      break;
    case OSS_MEM_DEBUG_FULL:
      if (isRecordReadable(user, tag.mode)) return checkFull(user, tag, findings);
      break;
    case kFreedMode: findings.report(kFreedAgain); return noBlock();
    default: break;
  }
  findings.reportValue("Invalid pad type (0x%X) found at:", tag.mode);
  return noBlock();
}

void markFreed(const BlockView& block) noexcept {
  block.header().mark = kMarkFreed;
  if (block.layout.mode() == OSS_MEM_DEBUG_FULL)
    block.fullRecord().mode = kFreedMode;
  else
    block.modeRecord().mode = kFreedMode;
}

// Takes a block out of the list and marks it as freed. False, with nothing marked, when the list
// does not know it.
bool retireBlock(const BlockView& block, bool isSizeKnown) noexcept {
  if (block.layout.mode() == OSS_MEM_DEBUG_FULL && !unlinkLive(block.fullRecord())) return false;

  markFreed(block);
  if (isSizeKnown && (g_memDebug.flags & OSS_MEM_FILL_FREED) != 0)
    std::memset(block.user, kDataFill, block.layout.size());
  return true;
}

void* checkTagged(char* user, const BlockTag& tag, const Findings& findings, bool retire) noexcept {
  checkMark(tag.header.mark, retire, findings);
  const bool isAllocated = isMark(tag.header.mark, kMarkAllocated);
  if (!isDebugging()) return isAllocated ? user - BlockLayout::headerBefore() : nullptr;

  const Verdict verdict = checkMode(user, tag, findings);
  if (!verdict.isBlock || !isAllocated) return nullptr;
  const BlockView block = {user, verdict.layout};
  if (retire && !retireBlock(block, verdict.isSizeKnown)) {
    findings.report(kFrontPad);
    return nullptr;
  }
  return block.start();
}

}  // namespace

void* checkBlock(void* address, const char* file, uint64_t line, bool retire) noexcept {
  char* const user = static_cast<char*>(address);
  const Findings findings = {file, line};
  if (user == nullptr) {
    findings.report(kNullAddress);
    return nullptr;
  }
  BlockTag tag = {};
  if (probeBefore(user, &tag)) return checkTagged(user, tag, findings, retire);
  checkMark(tag.header.mark, retire, findings);
  return nullptr;
}

}  // namespace oss

using namespace oss;

OSSErr ossMemAllocCheck(void** address, const char* file, uint64_t line,
                        uint64_t freeFlag) noexcept {
  constexpr OSSErr kNotDebugging = 0xFFFFFFFF;
  const bool retire = freeFlag == 1;
  void* const start = checkBlock(address != nullptr ? *address : nullptr, file, line, retire);
  if (!isDebugging()) return kNotDebugging;
  if (retire && start != nullptr) *address = start;
  return ECF_OK;
}
