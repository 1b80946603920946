// The list of live blocks. It is written while the process ends, when the run-time has terminated:
// so it uses system calls, the library's own formatter and constant-initialised data only.
#include <windows.h>

#include "core/ossprobe.h"
#include "memory/ossmemdbg.h"
#include "numeric/osslatchguard.h"
#include "osscatalog.h"
#include "ossprimitivefile.h"
#include "ossprocess.h"
#include "ossstring.h"

namespace oss {
namespace {

#define OSS_TEN(text) text text text text text text text text text text
#define OSS_LINE_OF(c) \
  OSS_TEN(c) OSS_TEN(c) OSS_TEN(c) OSS_TEN(c) OSS_TEN(c) OSS_TEN(c) OSS_TEN(c) c c c c c c
constexpr char kStars[] = OSS_LINE_OF("*") "\n";
constexpr char kEquals[] = OSS_LINE_OF("=") "\n";
#undef OSS_LINE_OF
#undef OSS_TEN
static_assert(sizeof kStars == 76 + 2 && sizeof kEquals == 76 + 2);

constexpr char kTitle[] = "OSSe Unfreed Memory Blocks :\n";

// Where the list goes: the file it is appended to, or standard output.
class LeakReport {
 public:
  LeakReport() noexcept { console_.openConsole(); }
  ~LeakReport() {
    if (isFile_) file_.close();
  }
  LeakReport(const LeakReport&) = delete;
  LeakReport& operator=(const LeakReport&) = delete;

  // Appends to "<directory>\p<process>t<thread><suffix>". Standard output stays when the file
  // cannot be opened.
  void openFile(const char* suffix) noexcept {
    char path[sizeof g_szMemDebugLogPath + 64];
    ossSnprintf(path, sizeof path, "%s%cp%ut%I64u%s", g_szMemDebugLogPath, '\\', ossProcessID(),
                uint64_t{ossThreadID()}, suffix);
    isFile_ = file_.open(path, OSS_PRIMITIVE_WRITE | OSS_PRIMITIVE_OPEN_ALWAYS) == 0;
  }

  bool isFile() const noexcept { return isFile_; }

  void write(const char* text) noexcept { target().write(text, 0); }

  // What is written goes behind the findings that were appended meanwhile: they may have the same
  // file.
  OSSPrimitiveFileOp& target() noexcept {
    if (!isFile_) return console_;
    file_.seekToEnd();
    return file_;
  }

 private:
  OSSPrimitiveFileOp file_;
  OSSPrimitiveFileOp console_;
  bool isFile_ = false;
};

void writeHeading(LeakReport& report) noexcept {
  report.write(kStars);
  report.write(kTitle);
  report.write(kEquals);
}

void writeLegend(LeakReport& report) noexcept {
  report.write(kStars);
  report.target().fwrite(
      "KT5 Support and Development can generate a report of possible memory leaks\n"
      "using the following command from any uselvl'd build:\n"
      "perl -S kt5reportleaks -path %s\n\n",
      g_szMemDebugLogPath);
  report.write("To display all available options, run \"perl -S kt5reportleaks -help\"\n");
  report.write(kStars);
  report.write(
      "Legend:\n-------\nAddr - block address\nCode - block eye-catcher with flags\n"
      "Size - size of the block\nLine - line of code in a file\nFile - file name\n");
  report.write(kEquals);
  report.write(kTitle);
  report.write(kEquals);
}

void begin(LeakReport& report) noexcept {
  const bool hasLegend = (g_memDebug.flags & OSS_MEM_LEAK_REPORT) != 0;
  report.openFile(hasLegend ? "_leaks.mem" : ".mem");
  if (report.isFile() && hasLegend)
    writeLegend(report);
  else
    writeHeading(report);
}

// Checks a block and lists it. False when it cannot be read.
bool writeBlock(LeakReport& report, const FullRecord& listed) noexcept {
  const char* const end = reinterpret_cast<const char*>(&listed + 1);
  char* const user = const_cast<char*>(end) + sizeof(BlockHeader);
  BlockTag tag;
  if (!probeBefore(user, &tag)) return false;

  FullRecord record = listed;
  record.file[sizeof record.file - 1] = '\0';
  checkBlock(user, record.file, record.line, false);
  if (report.isFile())
    report.target().fwrite("Addr: %016I64x Code: 0x%x Size: %I64u Line: %u File: %s\n",
                           static_cast<uint64_t>(reinterpret_cast<uintptr_t>(user)),
                           tag.header.mark, record.size, record.line, record.file);
  else
    report.target().fwrite("Address: %p Size: %I64u Line: %u File: %s\n", static_cast<void*>(user),
                           record.size, record.line, record.file);
  return true;
}

// The list ends early where it is broken: at a record that does not know the one in front of it.
void listBlocks(uint64_t dumpFlag) noexcept {
  const auto* record = static_cast<const FullRecord*>(g_memDebug.liveBlocks);
  if (g_memDebug.eyeCatcher != OSS_MEM_DEBUG_FULL || record == nullptr) return;

  LeakReport report;
  if (dumpFlag == 1) begin(report);
  const FullRecord* previous = nullptr;
  while (record != nullptr && hasLink(*record, &FullRecord::previous, previous) &&
         writeBlock(report, *record)) {
    previous = record;
    record = record->next;
  }
  if (report.isFile()) report.write(kEquals);
}

// Takes the latch if that is possible within a tenth of a second.
bool tryForAWhile(volatile uint8_t& latch) noexcept {
  for (int tries = 0; tries < 100; ++tries) {
    if (exchangeHeld(&latch) == kLatchFree) return true;
    ::Sleep(1);
  }
  return false;
}

}  // namespace

void listLeaksAtEnd(bool othersAreDead) noexcept {
  if (g_bIsMemoryFFDCEnabledFlag == 0 || g_szMemDebugLogPath[0] == '\0') return;
  if (!othersAreDead) {
    ossMemAllocList(1);
    return;
  }
  const bool taken = tryForAWhile(g_memDebug.latch);
  listBlocks(1);
  if (taken) storeZero(&g_memDebug.latch);
}

}  // namespace oss

using namespace oss;

OSSErr ossMemAllocList(uint64_t dumpFlag) noexcept {
  LatchGuard latch(g_memDebug.latch);
  listBlocks(dumpFlag);
  return ECF_OK;
}
