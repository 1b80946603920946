// Memory debugging: the control block, its choice at start-up, the list of live blocks.
#include "memory/ossmemdbg.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>

#include "core/ossprobe.h"
#include "memory/ossmemdbgsetting.h"
#include "numeric/osslatchguard.h"
#include "osscatalog.h"
#include "ossprimitivefile.h"
#include "ossprocess.h"
#include "ossstring.h"

OSSMemDebugCB* g_pMemDebugCB = nullptr;
char g_szMemDebugLogPath[261] = "";
uint8_t g_bIsMemoryFFDCEnabledFlag = 0;

namespace oss {

constinit OSSMemDebugCB g_memDebug = {};
constinit uint32_t g_mostBackPads = 0;

namespace {

constexpr uint32_t kPads = 2;

constexpr char kUsage[] =
    "Invalid OSSEMEMDBG string detected.\n\nUsage : export OSSEMEMDBG=<PATH>,<LEVEL>\n"
    "   where <PATH> is the path to store ossememdbg.log\n"
    // Deliberate: these are not the levels that are accepted.
    "         <LEVEL> is one of the OSSFULL, LIGHT, or IDLE\n\n";

// The record of the choice, "ossememdbg.log" in the directory. Quietly nothing when it cannot be
// opened.
class MemDebugLog : public OSSPrimitiveFileOp {
 public:
  MemDebugLog(const char* directory, DWORD disposition) noexcept {
    char path[sizeof g_szMemDebugLogPath + 64];
    ossSnprintf(path, sizeof path, "%s\\%s", directory, "ossememdbg.log");
    setFileHandle(::CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (isValid()) seekToEnd();
  }
  ~MemDebugLog() { close(); }
  MemDebugLog(const MemDebugLog&) = delete;
  MemDebugLog& operator=(const MemDebugLog&) = delete;
};

void recordChoice(const MemDebugSetting& setting) noexcept {
  MemDebugLog log(setting.directory, OPEN_ALWAYS);
  log.fwrite("PID            = 0x%X\n", ossProcessID());
  log.fwrite("---------------------------------\n");
  log.fwrite("mode           = %s\n", setting.level);
  log.fwrite("flags          = 0x%X\n", setting.flags);
  log.fwrite("Front pad size = %u\n", kPads);
  log.fwrite("Back pad size  = %u\n", kPads);
  log.fwrite("\n");
}

void recordRefusal(const MemDebugSetting& setting) noexcept {
  if (setting.directory[0] == '\0') return;
  MemDebugLog log(setting.directory, CREATE_ALWAYS);
  log.fwrite("PID = 0x%X\n", ossProcessID());
  log.fwrite("----------------------------------------------------\n");
  log.fwrite("Original Debug String is %s\n", setting.value);
  log.write(kUsage, 0);
}

bool isListed(const FullRecord& record) noexcept {
  if (record.next != nullptr && !hasLink(*record.next, &FullRecord::previous, &record))
    return false;
  if (record.previous != nullptr) return hasLink(*record.previous, &FullRecord::next, &record);
  return g_memDebug.liveBlocks == &record;
}

}  // namespace

bool hasLink(const FullRecord& record, FullRecord* FullRecord::*link,
             const FullRecord* expected) noexcept {
  // The record's first bytes.
  struct Links {
    FullRecord* next;
    FullRecord* previous;
    uint64_t behind;
  } links;
  static_assert(sizeof links == kProbeBytes);
  if (!probeBefore(reinterpret_cast<const char*>(&record) + sizeof links, &links)) return false;
  return (link == &FullRecord::next ? links.next : links.previous) == expected;
}

void linkLive(FullRecord& record) noexcept {
  LatchGuard latch(g_memDebug.latch);
  auto* const first = static_cast<FullRecord*>(g_memDebug.liveBlocks);
  record.next = first;
  record.previous = nullptr;
  if (first != nullptr) first->previous = &record;
  g_memDebug.liveBlocks = &record;
}

bool unlinkLive(FullRecord& record) noexcept {
  LatchGuard latch(g_memDebug.latch);
  if (!isListed(record)) return false;
  if (record.previous != nullptr)
    record.previous->next = record.next;
  else
    g_memDebug.liveBlocks = record.next;
  if (record.next != nullptr) record.next->previous = record.previous;
  return true;
}

void initializeMemDebug() noexcept {
  g_memDebug = {};
  const char* const value = std::getenv("OSSEMEMDBG");
  if (value == nullptr) {
    ossMemSetDebug(0, OSS_MEM_DEBUG_OFF, 0, 0);
    return;
  }

  const MemDebugSetting setting = parseMemDebugSetting(value);
  ossSnprintf(g_szMemDebugLogPath, sizeof g_szMemDebugLogPath, "%s", setting.directory);
  if (setting.isValid)
    recordChoice(setting);
  else
    recordRefusal(setting);
  g_bIsMemoryFFDCEnabledFlag = setting.listsLeaks;
  ossMemSetDebug(setting.flags, setting.eyeCatcher, kPads, kPads);
  if (setting.eyeCatcher == OSS_MEM_DEBUG_FULL) g_pMemDebugCB = &g_memDebug;
}

}  // namespace oss

using namespace oss;

OSSErr ossMemSetDebug(uint32_t flags, uint32_t eyeCatcher, uint32_t frontPads,
                      uint32_t backPads) noexcept {
  LatchGuard latch(g_memDebug.latch);
  g_memDebug.flags = flags;
  g_memDebug.frontPads = frontPads;
  g_memDebug.backPads = backPads;
  g_mostBackPads = std::max(g_mostBackPads, backPads);
  const bool toggles =
      (g_memDebug.eyeCatcher == OSS_MEM_DEBUG_NONE) != (eyeCatcher == OSS_MEM_DEBUG_NONE);
  if (toggles && g_memDebug.hasAllocated != 0) return ECF_MEM_CANNOT_TOGGLE_MEM_DEBUG_AFTER_ALLOC;

  g_memDebug.eyeCatcher = eyeCatcher;
  return ECF_OK;
}
